// kmeta as its users run it: a separate process, its exit status, its two outputs and the
// store file it leaves.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/lmdb_datastore.h"
#include "kestrine/platform/data/structure/container.h"
#include "tools/kmeta/kmeta_test_support.h"
#include "tools/kmeta/options.h"

namespace kmeta::testing {
namespace {

// Catches: options and operands confused with each other, or values lost, in the command
// line taken apart before any command runs.
TEST(KmetaOptions, TakesOptionsAndOperandsInAnyOrder) {
  auto parse = [](std::vector<const char*> words) {
    words.insert(words.begin(), "kmeta");
    return parseArguments(static_cast<int>(words.size()), words.data());
  };
  Options options = parse(
      {"import", "doc.xml", "--schemas", "a.xml", "--store=s.db", "--schemas=b.xml", "--stats"});
  EXPECT_EQ(options.command, "import");
  EXPECT_EQ(options.store, "s.db");
  EXPECT_EQ(options.schemas, (std::vector<std::string>{"a.xml", "b.xml"}));
  EXPECT_EQ(options.operands, std::vector<std::string>{"doc.xml"});
  EXPECT_EQ(options.given, unsigned(kStoreOption | kSchemasOption | kStatsOption));

  Options rest = parse({"get", "-", "--", "--path"});
  EXPECT_EQ(rest.operands, (std::vector<std::string>{"-", "--path"}));
  EXPECT_EQ(rest.given, 0u);
  EXPECT_EQ(rest.store, ":memory:");
  EXPECT_TRUE(parse({"--help"}).help);
}

const char kDocument[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<root version=\"1\" name=\"plant\">\n"
    "  <group name=\"pumps\">\n"
    "    <name locale=\"de-de\">Pumpen</name>\n"
    "    <node name=\"p1\">\n"
    "      <double name=\"flow\" units=\"CubicMeterPerHour\">42.5</double>\n"
    "      <uint16 name=\"ports\">2 3</uint16>\n"
    "      <string name=\"tags\">\n"
    "        <val>cast iron</val>\n"
    "        <val>\xc3\xa9tanche</val>\n"
    "      </string>\n"
    "      <binary name=\"blob\">AAEC</binary>\n"
    "      <int32 name=\"remote\" uri=\"file:///remote.bin\"/>\n"
    "    </node>\n"
    "  </group>\n"
    "  <table name=\"limits\">\n"
    "    <int32 name=\"max\">7</int32>\n"
    "  </table>\n"
    "</root>\n";

const char kSchemas[] =
    "<root name=\"schemas\"><table name=\"flange\">"
    "<double name=\"diameter\" dim=\"1\"/><uint16 name=\"bolts\" dim=\"1\"/></table></root>";

const char kTyped[] =
    "<root name=\"typed\"><node name=\"n\" class=\"flange\">"
    "<struct name=\"s\" type=\"flange\" dim=\"2\">125 8 100 4</struct>"
    "<table name=\"t\" class=\"flange\"><double name=\"diameter\">1</double></table>"
    "<table name=\"other\" optional=\"true\"><int8 name=\"bolts\">1</int8></table>"
    "</node></root>";

// Runs a test on each kind of persistent store.
class KmetaStoreTest : public KmetaTest, public ::testing::WithParamInterface<std::string> {
 protected:
  std::string store() const { return storeArgument(GetParam(), scratch()); }
};

// Catches: a command line that is not understood running anyway, or failing without a word.
TEST_F(KmetaTest, RefusesCommandLinesItDoesNotUnderstand) {
  Outcome help = kmeta({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: kmeta COMMAND", 0), 0u);
  EXPECT_EQ(help.err, "");
  EXPECT_EQ(kmeta({"export", "--help"}).status, 0);

  expectFailure(kmeta({}), "no command given");
  expectFailure(kmeta({"frobnicate"}), "unknown command 'frobnicate'");
  expectFailure(kmeta({"ls", "--verbose"}), "unknown option '--verbose'");
  expectFailure(kmeta({"import", "doc.xml", "--store"}), "--store needs a value");
  expectFailure(kmeta({"roundtrip", "--store", "x", "doc.xml"}), "roundtrip does not take --store");
  expectFailure(kmeta({"import", "--stats=1", "doc.xml"}), "--stats takes no value");
  expectFailure(kmeta({"get"}), "get: too few arguments");
  expectFailure(kmeta({"validate", "a", "uri"}), "validate needs --schemas");
}

// Catches: unreadable or malformed input, a store without a tree (missing, or not a store
// file) or a database server that is not there, crashing, passing as success, or leaving a
// store file behind; and a malformed document's well-formed beginning reaching the store.
TEST_F(KmetaTest, RefusesUnreadableAndMalformedInputWithoutTouchingTheStore) {
  expectFailure(kmeta({"export"}), "the store holds no tree");
  std::string missing = scratch() + "/missing";
  expectFailure(kmeta({"export", "--store", missing}), missing + ": no such store file");
  EXPECT_FALSE(std::filesystem::exists(missing));
  expectFailure(kmeta({"ls", "--store", file("junk", "not a store")}), "");
  std::string noServer = "postgresql:///db?host=" + scratch() + "&store=s";
  expectFailure(kmeta({"ls", "--store", noServer}), noServer + ": connect: ");
  expectFailure(kmeta({"roundtrip", scratch() + "/missing.xml"}),
                scratch() + "/missing.xml: cannot open: No such file or directory");
  expectFailure(kmeta({"roundtrip", scratch()}), scratch() + ": is a directory");
  std::string malformed = file("bad.xml", "<root name=\"r\">\n  <group name=\"g\">\n</root>\n");
  expectFailure(kmeta({"import", "--store", store(), malformed}),
                scratch() + "/bad.xml: XML error at line 3, column 3: mismatched tag");
  EXPECT_FALSE(std::filesystem::exists(store())) << "a refused import created the store";

  ASSERT_EQ(kmeta({"import", "--store", store(), file("doc.xml", kDocument)}).status, 0);
  std::string before = kmeta({"export", "--store", store()}).out;
  std::string prefix = "<root name=\"r\"><group name=\"added\"><int32 name=\"x\">1</int32>";
  expectFailure(kmeta({"import", "--store", store(), file("cut.xml", prefix)}),
                scratch() + "/cut.xml: XML error at line 1, column ");
  expectFailure(kmeta({"import", "--store", store(), "--schemas", malformed,
                       file("ok.xml", prefix + "</group></root>")}),
                scratch() + "/bad.xml: XML error");
  EXPECT_EQ(kmeta({"export", "--store", store()}).out, before);
  expectFailure(kmeta({"roundtrip", "-"}, file("stdin.xml", "<root name=")),
                "standard input: XML error at line 1");
}

// Catches: parse reports lost, mangled (not UTF-8, not one a line) or taken for failures,
// and reports held back until after the document when both outputs go to one file.
TEST_F(KmetaTest, ReportsProblemsInTheContentOneALineAndSucceeds) {
  const std::string document = file("odd.xml",
                                    "<root name=\"r\"><gr\xc3\xb6\xc3\x9f\x65 name=\"x\"/>"
                                    "<int32 name=\"loose\">1</int32><group/></root>");
  Outcome run = kmeta({"roundtrip", document});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "gr\xc3\xb6\xc3\x9f\x65 : unknown element, skipping\n"
            "int32 : could not nest the element\n"
            "group : missing mandatory 'id' attribute\n");
  EXPECT_EQ(run.out,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"r\"/>\n");
  const std::string both = scratch() + "/both";
  ASSERT_EQ(
      std::system(("'" KPL_KMETA "' roundtrip '" + document + "' > '" + both + "' 2>&1").c_str()),
      0);
  EXPECT_EQ(readFile(both), run.err + run.out);
}

// Catches: a document that does not come back as it went in, through memory, standard
// input, or a store file written by one process and read by others; output lost on a full
// disk while the status says success; wrong columns, kinds, units or flags in a listing,
// values printed otherwise than an export writes them, and a path that names nothing, or
// the wrong kind of thing, answered with something; and a second import making a second
// root, renaming the first, or silently dropping a subtree whose top-level name is taken.
TEST_P(KmetaStoreTest, ImportedDocumentsAreListedAndExportedByOtherProcesses) {
  std::string document = file("doc.xml", kDocument);
  Outcome roundtrip = kmeta({"roundtrip", document});
  EXPECT_EQ(roundtrip.status, 0);
  EXPECT_EQ(roundtrip.err, "");
  EXPECT_EQ(roundtrip.out, kDocument);
  EXPECT_EQ(kmeta({"roundtrip", "-"}, document).out, kDocument);
  // Output lost on a full disk must not pass as success.
  EXPECT_EQ(waitKmeta(startKmeta({"roundtrip", document}, "", "/dev/full")), 1);

  Outcome import = kmeta({"import", "--store", store(), "--stats", document});
  EXPECT_EQ(import.status, 0);
  EXPECT_EQ(import.out.rfind("records ", 0), 0u) << import.out;
  Outcome exported = kmeta({"export", "--store", store()});
  EXPECT_EQ(exported.status, 0);
  EXPECT_EQ(exported.out, kDocument);
  Outcome part = kmeta({"export", "--store", store(), "--path", "limits"});
  EXPECT_EQ(part.out,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"plant\">\n"
            "  <table name=\"limits\">\n    <int32 name=\"max\">7</int32>\n  </table>\n</root>\n");
  EXPECT_EQ(kmeta({"ls", "--store", store(), "pumps"}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "node\tp1\t\t\t5\t\n");
  EXPECT_EQ(kmeta({"ls", "--store", store(), "pumps.p1"}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "double\tflow\t\tCubicMeterPerHour\t1\t\n"
            "uint16\tports\t\t\t2\t\n"
            "string\ttags\t\t\t18\t\n"
            "binary\tblob\t\t\t3\t\n"
            "int32\tremote\t\t\t0\turi\n");
  EXPECT_EQ(kmeta({"get", "--store", store(), "pumps.p1.flow"}).out, "42.5\n");
  EXPECT_EQ(kmeta({"get", "--store", store(), "pumps.p1.ports"}).out, "2 3\n");
  EXPECT_EQ(kmeta({"get", "--store", store(), "pumps.p1.tags"}).out, "cast iron\n\xc3\xa9tanche\n");
  EXPECT_EQ(kmeta({"get", "--store", store(), "pumps.p1.blob"}).out, "AAEC\n");
  Outcome remote = kmeta({"get", "--store", store(), "pumps.p1.remote"});
  EXPECT_EQ(remote.status, 0);
  EXPECT_EQ(remote.out, "");
  EXPECT_EQ(kmeta({"get", "--store", store(), "limits.max"}).out, "7\n");

  expectFailure(kmeta({"ls", "--store", store(), "pumps.p9"}), "nothing at 'pumps.p9'");
  expectFailure(kmeta({"ls", "--store", store(), "pumps.p1.flow"}),
                "no container or table at 'pumps.p1.flow'");
  // Below a primitive the finder alone would stop at the primitive.
  expectFailure(kmeta({"get", "--store", store(), "pumps.p1.flow.x"}),
                "nothing at 'pumps.p1.flow.x'");
  expectFailure(kmeta({"get", "--store", store(), "pumps.p1"}), "no primitive at 'pumps.p1'");
  expectFailure(kmeta({"export", "--store", store(), "--path", "pumps.p1.tags"}),
                "no container or table at 'pumps.p1.tags'");

  // A second import adds to the tree's root.
  Outcome more = kmeta({"import", "--store", store(),
                        file("more.xml",
                             "<root version=\"1\" name=\"other\"><group name=\"valves\">"
                             "<int32 name=\"n\">5</int32></group></root>")});
  EXPECT_EQ(more.status, 0);
  EXPECT_EQ(more.err, "");
  EXPECT_EQ(kmeta({"ls", "--store", store()}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "group\tpumps\t\t\t1\t\n"
            "table\tlimits\t\t\t1\t\n"
            "group\tvalves\t\t\t1\t\n");
  std::string both = kmeta({"export", "--store", store()}).out;
  EXPECT_NE(both.find("<root version=\"1\" name=\"plant\">"), std::string::npos);
  EXPECT_NE(both.find("<int32 name=\"n\">5</int32>"), std::string::npos);
  expectFailure(kmeta({"import", "--store", store(),
                       file("taken.xml",
                            "<root name=\"r\"><group name=\"new\"/>"
                            "<table name=\"limits\"/></root>")}),
                scratch() + "/taken.xml: the store holds 'limits' already");
  EXPECT_EQ(kmeta({"export", "--store", store()}).out, both);
}

// Catches: classes and struct types not resolved through the schema documents, and
// validation answering the wrong status.
TEST_P(KmetaStoreTest, SchemaDocumentsServeParsingExportAndValidation) {
  std::string schemas = file("schemas.xml", kSchemas);
  std::string typed = file("typed.xml", kTyped);
  Outcome import = kmeta({"import", "--store", store(), "--schemas", schemas, typed});
  EXPECT_EQ(import.status, 0);
  EXPECT_EQ(import.err, "");
  EXPECT_EQ(kmeta({"get", "--store", store(), "--schemas", schemas, "n.s"}).out, "125 8 100 4\n");
  EXPECT_EQ(kmeta({"get", "--store", store(), "n.s"}).out, "") << "struct values need schemas";
  EXPECT_NE(kmeta({"export", "--store", store(), "--schemas", schemas}).out.find(">125 8 100 4<"),
            std::string::npos);
  EXPECT_EQ(kmeta({"ls", "--store", store(), "n"}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "double\tdiameter\t\t\t1\thidden\n"
            "uint16\tbolts\t\t\t1\thidden\n"
            "struct\ts\tflange\t\t20\t\n"
            "table\tt\tflange\t\t2\t\n"
            "table\tother\t\t\t1\toptional\n");

  Outcome conforms = kmeta({"validate", "--store", store(), "--schemas", schemas, "n.t", "flange"});
  EXPECT_EQ(conforms.status, 0);
  EXPECT_EQ(conforms.out, "n.t conforms to flange\n");
  EXPECT_EQ(kmeta({"validate", "--store", store(), "--schemas", schemas, "n", "flange"}).status, 0);
  Outcome differs =
      kmeta({"validate", "--store", store(), "--schemas", schemas, "n.other", "flange"});
  EXPECT_EQ(differs.status, 2);
  EXPECT_EQ(differs.out, "n.other does not conform to flange\n");
  expectFailure(kmeta({"validate", "--store", store(), "--schemas", schemas, "n", "gasket"}),
                "no schema 'gasket' in the schema documents");
  expectFailure(kmeta({"validate", "--store", store(), "--schemas", schemas, "n.s", "flange"}),
                "no container or table at 'n.s'");
}

// Catches: an exact export that loses bits of a floating value (denormals, extremes, -0,
// infinities, values 7 digits cannot tell apart) or the optional flag, so that export and
// import do not reach a fixed point after one round.
TEST_P(KmetaStoreTest, ExactExportsKeepEveryBitAndFlag) {
  std::mt19937_64 random(7);
  std::string doubles = "-0 5e-324 2.2250738585072014e-308 1.7976931348623157e308 0.1";
  std::string scalars = "-0 1e-45 1.17549435e-38 3.4028235e38 16777217 0.1";
  unsigned count = 0;
  for (int i = 0; i < 2000; ++i) {
    std::uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    std::uint32_t narrow = static_cast<std::uint32_t>(bits >> 7);
    float f;
    std::memcpy(&f, &narrow, sizeof f);
    char text[64];
    // Infinities and NaN read as no number, in an exact document as in any.
    if (!std::isfinite(d) || !std::isfinite(f)) continue;
    ++count;
    doubles += (std::snprintf(text, sizeof text, " %.17g", d), text);
    scalars += (std::snprintf(text, sizeof text, " %.9g", f), text);
  }
  std::string document =
      "<root name=\"r\"><group name=\"g\" optional=\"true\"><double name=\"d\">" + doubles +
      "</double><vector3 name=\"v\">0.1 0.2 0.3</vector3><scalar name=\"s\">" + scalars +
      "</scalar><table name=\"t\" optional=\"true\"/></group></root>";
  ASSERT_EQ(kmeta({"import", "--store", store(), file("doc.xml", document)}).status, 0);
  Outcome first = kmeta({"export", "--store", store(), "--exact"});
  std::string copy = scratch() + "/copy";
  ASSERT_EQ(kmeta({"import", "--store", copy, file("first.xml", first.out)}).status, 0);
  EXPECT_EQ(kmeta({"export", "--store", copy, "--exact"}).out, first.out);
  EXPECT_EQ(kmeta({"ls", "--store", copy, "g"}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "double\td\t\t\t" +
                std::to_string(count + 5) +
                "\t\n"
                "vector3\tv\t\t\t3\t\n"
                "scalar\ts\t\t\t" +
                std::to_string(count + 6) +
                "\t\n"
                "table\tt\t\t\t0\toptional\n");
  EXPECT_NE(first.out.find("<group name=\"g\" optional=\"true\">"), std::string::npos);
  EXPECT_NE(first.out.find(">-0 5e-324 2.2250738585072014e-308 1.7976931348623157e+308 0.1 "),
            std::string::npos);
  // The default export still writes 7 digits and no flag.
  EXPECT_NE(kmeta({"export", "--store", copy}).out.find("<group name=\"g\">"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Stores, KmetaStoreTest, ::testing::Values("File", "Postgres"),
                         storeKindName);

// Catches: a process answering from the indexes it built before another process changed the
// store file: a container imported elsewhere not found or made a second time, also when the
// other import lands while this process holds the store's lock and has read the tree (its
// first change then moves it on to the newest state).
TEST_F(KmetaTest, ChangesMadeByOtherProcessesAreSeenByTheNextCall) {
  using kestrine::platform::core::storage::datastore::IDataStore;
  using kestrine::platform::core::storage::datastore::LmdbDataStore;
  using kestrine::platform::data::structure::IContainerFrontEnd;
  auto import = [&](const std::string& group) {
    std::string document =
        "<root name=\"r\"><group name=\"" + group + "\"><int32 name=\"n\">1</int32></group></root>";
    return kmeta({"import", "--store", store(), file(group + ".xml", document)}).status;
  };
  ASSERT_EQ(kmeta({"import", "--store", store(), file("doc.xml", kDocument)}).status, 0);
  {
    LmdbDataStore open(store());
    ASSERT_TRUE(IContainerFrontEnd::find(&open, L"pumps"));
    ASSERT_EQ(import("valves"), 0);
    auto valves = IContainerFrontEnd::find(&open, L"valves");
    ASSERT_TRUE(valves);
    EXPECT_TRUE(valves->has(L"n"));

    std::unique_ptr<IDataStore::ILock> held(open.lock());
    IDataStore::tStamp reading;
    open.stamp(reading);  // the state this holder reads from, until its first change
    ASSERT_EQ(import("late"), 0);
    auto late = IContainerFrontEnd::toplevel(&open, L"late");
    ASSERT_TRUE(late);
    EXPECT_TRUE(late->has(L"n")) << "a second, empty 'late' was made";
  }
  EXPECT_EQ(kmeta({"ls", "--store", store()}).out,
            "kind\tname\tclass\tunit\tdimension\tflags\n"
            "group\tpumps\t\t\t1\t\n"
            "table\tlimits\t\t\t1\t\n"
            "group\tvalves\t\t\t1\t\n"
            "group\tlate\t\t\t1\t\n");
}

}  // namespace
}  // namespace kmeta::testing
