#include "data/schema/comparator.h"

#include <cwchar>

#include "data/record/offsets.h"
#include "data/tree/descent.h"
#include "data/tree/primitive.h"

namespace kestrine::platform::data::Schema {

namespace {

// Keeps an entity on top of a stack for the length of one comparison, on every path.
class Pushed {
 public:
  Pushed(std::deque<Comparator::Entity*>& stack, Comparator::Entity& entity) : stack_(stack) {
    stack_.push_back(&entity);
  }
  ~Pushed() { stack_.pop_back(); }
  Pushed(const Pushed&) = delete;
  Pushed& operator=(const Pushed&) = delete;

 private:
  std::deque<Comparator::Entity*>& stack_;
};

}  // namespace

Comparator::Entity::Entity(IDataStore* store, unsigned offset)
    : store_(store), offset_(offset), logic_(store, offset, false), cursor_(0) {
  // Only tables and containers are ever scanned for members.
  if (kind() != Record::kTable && kind() != Record::kContainer) return;
  const Record::Offsets list(store, logic_.set()->children());
  children_.assign(list.get(), list.get() + list.items());
}

bool Comparator::Entity::operator==(const Entity& other) const {
  if (kind() != other.kind()) return false;
  switch (kind()) {
    case Record::kPrimitive: {
      const auto& a = static_cast<const Design::Primitive&>(*logic_.operator->());
      const auto& b = static_cast<const Design::Primitive&>(*other.logic_.operator->());
      return a.valuetype() == b.valuetype() && std::wcscmp(a.tag(), b.tag()) == 0;
    }
    case Record::kTable:
      return std::wcscmp(logic_->tag(), other.logic_->tag()) == 0;
    default:
      return false;
  }
}

unsigned Comparator::compare(IDataStore* candidateStore, unsigned candidateOffset,
                             IDataStore* definitionStore, unsigned definitionOffset) {
  Entity candidate(candidateStore, candidateOffset);
  Entity definition(definitionStore, definitionOffset);
  return compare(candidate, definition);
}

unsigned Comparator::compare(Entity& candidate, Entity& definition) {
  Pushed onCandidates(candidates_, candidate);
  Pushed onDefinitions(definitions_, definition);
  return match();
}

unsigned Comparator::match() {
  Entity& definition = *definitions_.back();
  if (definition.kind() != Record::kTable) return 0;
  Metadata::Descent level(definition.offset());
  for (; definition.cursor() < definition.children(); definition.advance()) {
    Entity member(definition.store(), definition.child(definition.cursor()));
    if (find(member) == 0) return 0;
  }
  return 1;
}

unsigned Comparator::find(Entity& member) {
  Entity& candidate = *candidates_.back();
  const bool table = candidate.kind() == Record::kTable;
  if (!table && candidate.kind() != Record::kContainer) return 0;
  for (; candidate.cursor() < candidate.children(); candidate.advance()) {
    Entity child(candidate.store(), candidate.child(candidate.cursor()));
    if (!(child == member)) continue;
    if (child.kind() == Record::kTable && compare(child, member) == 0) return 0;
    // A table candidate keeps its cursor on the child, so the child can also answer the next
    // equal member; a container's child answers one member only.
    if (!table) candidate.advance();
    return 1;
  }
  return 0;
}

}  // namespace kestrine::platform::data::Schema
