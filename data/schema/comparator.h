#ifndef KPL_DATA_SCHEMA_COMPARATOR_H_
#define KPL_DATA_SCHEMA_COMPARATOR_H_

#include <deque>
#include <vector>

#include "data/tree/logic.h"

namespace kestrine::platform::data::Schema {

using Metadata::IDataStore;

// Decides whether a candidate (a table or container) conforms to a definition (a table):
// every member of the definition must appear in the candidate in the same relative order,
// with the same name and, for a primitive, the same value type; nested tables must conform in
// turn. The candidate may hold further members.
//
// A comparator belongs to one thread. Failures while loading records pass through.
class Comparator {
 public:
  // One record taking part in a comparison, opened with its logic object and a snapshot of
  // its children list, plus a cursor on the next child to examine.
  class Entity {
   public:
    // Opens the record at `offset`; tables and containers fully, other kinds as far as they
    // open at all (a list or locale table carries only its kind).
    Entity(IDataStore* store, unsigned offset);

    // Same kind and, for a primitive, same name and value type; for a table, same name. Never
    // true for any other kind: a container member in a definition never conforms.
    bool operator==(const Entity& other) const;

    unsigned kind() const { return logic_.kind(); }
    IDataStore* store() const { return store_; }
    unsigned offset() const { return offset_; }
    // Entries of the children list (every entry, indexed or not) and entry `i` (unchecked).
    unsigned children() const { return static_cast<unsigned>(children_.size()); }
    unsigned child(unsigned i) const { return children_[i]; }
    unsigned cursor() const { return cursor_; }
    void advance() { ++cursor_; }

   private:
    IDataStore* store_;
    unsigned offset_;
    Design::Logic logic_;
    std::vector<unsigned> children_;
    unsigned cursor_;
  };

  Comparator() = default;
  Comparator(const Comparator&) = delete;
  Comparator& operator=(const Comparator&) = delete;

  // 1 when the candidate record conforms to the definition record, else 0 (also when the
  // definition is not a table).
  unsigned compare(IDataStore* candidateStore, unsigned candidateOffset,
                   IDataStore* definitionStore, unsigned definitionOffset);

  // The steps of compare, working on the innermost pair that compare pushed; meaningful only
  // while one runs. match: every member of the definition on top is found in order.
  unsigned match();
  // find: scans the candidate on top from its cursor for a child equal to `member` (and
  // conforming, for a table). Inside a table the cursor stays on the child found, so one child
  // can answer several equal members in a row; inside a container it moves past it, so each
  // child answers at most one. Only tables and containers hold anything to find.
  unsigned find(Entity& member);

 private:
  // Compares two opened entities with them on top of the stacks.
  unsigned compare(Entity& candidate, Entity& definition);

  std::deque<Entity*> candidates_;
  std::deque<Entity*> definitions_;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_COMPARATOR_H_
