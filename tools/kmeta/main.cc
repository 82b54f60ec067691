// kmeta: reads and writes metadata trees as XML, in memory, in a store file or in a database.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>

#include "commands.h"
#include "failure.h"
#include "options.h"
#include "session.h"

namespace {

const char kUsage[] =
    "usage: kmeta COMMAND [OPTIONS] [ARGUMENTS]\n"
    "\n"
    "Reads and writes metadata trees as XML documents, in memory, in a store file or in a\n"
    "PostgreSQL database.\n"
    "\n"
    "commands:\n"
    "  roundtrip [--schemas S]... [--exact] DOC\n"
    "      Parse DOC into a fresh in-memory store and write the tree back as XML on\n"
    "      standard output.\n"
    "  import [--store S] [--schemas S]... [--stats] [--strict] DOC\n"
    "      Parse DOC into the store. Into an empty store the document makes the tree. Into a\n"
    "      store that holds one, the document's root element stands for the existing root,\n"
    "      which keeps its name, and the document's containers and tables are added to it;\n"
    "      their names must not be taken at the top level yet. The store is changed only\n"
    "      when the whole document was read; a persistent store commits the import at once.\n"
    "      Content the import cannot take is reported and skipped; --strict reports also\n"
    "      what check would, and then refuses the whole document if anything was reported.\n"
    "      --stats prints \"records N used B peak-kb K\" afterwards: the store's live\n"
    "      records and bytes used, and the process's peak memory.\n"
    "  export [--store S] [--schemas S]... [--path P] [--exact]\n"
    "      Write the tree, or the container or table at P inside the tree's root element,\n"
    "      as XML on standard output; either imports again as a tree. Struct values are\n"
    "      written only when schema documents are given.\n"
    "  ls [--store S] [P]\n"
    "      List the children of the root or of the container or table at P, one a line,\n"
    "      tab-separated after a header: kind (node, group, link, table or the value type),\n"
    "      name, class (a container's or table's schema, a struct's type), unit, dimension\n"
    "      (elements as stored, or number of children), flags (optional, hidden, uri).\n"
    "  get [--store S] [--schemas S]... P\n"
    "      Print the values of the primitive at P as an export writes them; several\n"
    "      strings one a line. Struct values need the schema documents.\n"
    "  validate [--store S] --schemas S... P URI\n"
    "      Check the container or table at P against the schema URI.\n"
    "  check [--schemas S]... DOC\n"
    "      List on standard output, one a line with its line and column, every place where\n"
    "      an import of DOC would skip, cut, wrap, block or drop content.\n"
    "  check --store S\n"
    "      Read every record of the store's tree and list each damaged one.\n"
    "\n"
    "options:\n"
    "  --store S    a store file (import creates it), :memory: (the default), or a store in\n"
    "               a PostgreSQL database (import creates it), addressed by a libpq URI\n"
    "               with the store's name: postgresql://[user@]host[:port]/db?store=NAME\n"
    "  --schemas S  a schema document, parsed into a store of its own; classes and struct\n"
    "               types resolve against all of them. Repeatable.\n"
    "  --path P     names joined by \".\" from below the root, as in catalogue.pumps.p100\n"
    "  --exact      write scalar and double values in the fewest digits that read back\n"
    "               bit for bit (not 7 significant digits), and optional=\"true\" where\n"
    "               set, so that the tree survives export and import unchanged\n"
    "  --help       print this text\n"
    "\n"
    "limits on every document read (DOC and schema documents), each 0 for none:\n"
    "  --max-depth N    levels of nested elements (default 200000)\n"
    "  --max-value N    bytes of one primitive's values (default 67108864, 64 MiB); the\n"
    "                   text of one element may take 8 times as many\n"
    "  --max-fields N   fields of one struct type, its struct members expanded (default\n"
    "                   100000)\n"
    "Content past a limit is reported and skipped, as other problems are.\n"
    "\n"
    "DOC and schema documents may be - for standard input. Parse reports go to standard\n"
    "error, one a line.\n"
    "\n"
    "exit status: 0 success (parse reports are not failures); 1 usage error, unreadable or\n"
    "malformed input, a document without a tree, a path that names nothing fitting, an\n"
    "unknown schema, a store that holds no tree or cannot be read, import --strict with\n"
    "reports; 2 validate: the tree does not conform; check: something was listed.\n";

// Tells what failed, drops what the command did and answers exit status 1.
int fail(kmeta::Session& session, const char* message) {
  std::fprintf(stderr, "kmeta: %s\n", message);
  session.abandon();
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  // A document can draw thousands of reports, and unbuffered each costs a system call.
  // Where no one watches them come, they go out in blocks; standard output is written only
  // after what was reported before it, so that the two keep their order in one file.
  if (isatty(STDERR_FILENO) != 1) std::setvbuf(stderr, nullptr, _IOFBF, 64 * 1024);
  // Declared outside the handlers below, which must see the store still open.
  kmeta::Session session;
  try {
    kmeta::Options options = kmeta::parseArguments(argc, argv);
    if (options.help) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    return kmeta::findCommand(options).run(options, session);
  } catch (const std::bad_alloc&) {
    return fail(session, "out of memory");
  } catch (const std::exception& error) {
    return fail(session, error.what());
  } catch (...) {
    return fail(session, "unexpected failure");
  }
}
