#include "data/xml/xml_rendering_logic.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "core/storage/datastore_test_support.h"
#include "data/record/offsets.h"
#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/tree/table.h"
#include "data/xml/xml_test_support.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::IDataStore;
using core::storage::datastore::MemoryDataStore;
using testing::render;

const std::string kHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// Catches a hidden child or root written anyway, or one that ends the walk over its
// siblings.
TEST(XMLRenderingLogicTest, LeavesOutHiddenSubtreesAndRecordsOfOtherKinds) {
  MemoryDataStore store;
  unsigned list;
  {
    Metadata::Root root(&store, L"r");
    Structural::Container node(&store, structure::IContainer::kNode, L"n");
    Design::Table hidden(&store, L"hidden");
    Design::Primitive inside(&store, metadata::kInt8, L"inside");
    Design::Primitive stale(&store, metadata::kInt8, L"stale");
    Design::Primitive shown(&store, metadata::kInt8, L"shown");
    Design::Primitive last(&store, metadata::kInt8, L"last");
    root.add(node.offset());
    hidden.add(inside.offset());
    node.add(hidden.offset());
    node.add(stale.offset());
    node.add(shown.offset());
    node.add(last.offset());
    node.hide(hidden.offset());
    list = node.children();
  }
  // The list's second entry now names a list record, a record of no element. The walk
  // counts the indexed children (three now), so it also stops before "last".
  Record::Offsets(&store, list).set(1, list);
  EXPECT_EQ(render(store), kHeader +
                               "<root version=\"0\" name=\"r\">\n"
                               "  <node name=\"n\">\n"
                               "    <int8 name=\"shown\"/>\n"
                               "  </node>\n"
                               "</root>\n");
  Metadata::Root(&store, 0).on(0x04);
  EXPECT_EQ(render(store), kHeader);
  EXPECT_EQ(render(store, nullptr, IDataStore::BADOFF), kHeader);
}

// Catches a walk that fails on a damaged child past those its set lists, which it must pass
// over as if unread, or that passes over a damaged child it lists.
TEST(XMLRenderingLogicTest, FailsOnADamagedChildOnlyWhenItIsListed) {
  MemoryDataStore store;
  unsigned list, again, other;
  {
    Metadata::Root root(&store, L"r");
    Design::Primitive a(&store, metadata::kInt8, L"a"), b(&store, metadata::kInt8, L"b");
    root.add(a.offset());
    root.add(b.offset());
    list = root.children();
    Design::Primitive::tStart four;
    four.elements = 4;
    again = Design::Primitive(&store, metadata::kInt8, L"a", four).offset();
    other = Design::Primitive(&store, metadata::kInt8, L"c", four).offset();
  }
  // Each cut short within its value array: the name still reads, the record no longer does.
  for (unsigned damaged : {again, other}) {
    const std::string bytes = core::storage::datastore::readAll(store, damaged);
    store.write(damaged, bytes.data(), static_cast<unsigned>(bytes.size()) - 2, true);
  }
  // Two names among three entries: the third is not written, damaged or not.
  store.append(list, &again, 4);
  EXPECT_EQ(render(store), kHeader +
                               "<root version=\"0\" name=\"r\">\n"
                               "  <int8 name=\"a\"/>\n"
                               "  <int8 name=\"b\"/>\n"
                               "</root>\n");
  Record::Offsets(&store, list).set(2, other);
  EXPECT_THROW(render(store), core::Exception);
}

// Runs `work` on a thread with a small stack.
template <class Work>
void onSmallStack(Work& work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  auto run = [](void* argument) -> void* {
    (*static_cast<Work*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// Catches a writer that recurses per level: deep trees are written by a loop, and a
// recursive walk would overflow this thread's small stack long before the leaf.
TEST(XMLRenderingLogicTest, WritesTreesDeeperThanTheStackAllows) {
  const unsigned depth = 3000;
  std::string xml = "<root name='r'>";
  for (unsigned i = 0; i < depth; ++i)
    xml += "<node name='n'>";
  xml += "<int8 name='leaf'>1</int8>";
  for (unsigned i = 0; i < depth; ++i)
    xml += "</node>";
  xml += "</root>";
  MemoryDataStore store;
  ASSERT_TRUE(testing::parse(store, xml).empty());
  std::string out;
  auto work = [&] { out = render(store); };
  onSmallStack(work);
  EXPECT_NE(out.find("<int8 name=\"leaf\">1</int8>"), std::string::npos);
  std::size_t closed = 0;
  for (std::size_t at = out.find("</node>"); at != std::string::npos;
       at = out.find("</node>", at + 1))
    ++closed;
  EXPECT_EQ(closed, depth);
}

}  // namespace
}  // namespace kestrine::platform::data::XML
