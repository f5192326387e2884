// pdfkiln: the command-line face of the library.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "commands.h"
#include "tool_common.h"

#ifndef PDFKILN_VERSION
#define PDFKILN_VERSION "unknown"
#endif

namespace {

const char kReading[] =
    "Reading: the tool reads literal strings with balanced parentheses and rebuilds the object\n"
    "table from the file's \"N G obj\" headers when the cross-reference chain gives no usable\n"
    "catalog, as other readers do. --strict reads by the library's own rules only.\n"
    "--max-decoded SIZE (any command): the largest decoded stream, and decoded content of a page,\n"
    "in bytes or with K, M, G; default 256M, 0 for the library's own cap of 1G per decoding stage.\n"
    "Exit status: 0 done, 1 a file cannot be read or written, 2 bad arguments, 3 (compose) pages\n"
    "skipped or emptied, 4 a password is missing or wrong.\n";

struct Command {
    const char* name;
    int (*run)(int, char**);
    const char* help;
};

const Command kCommands[] = {
    {"info", cmdInfo,
     "usage: pdfkiln info FILE [--password P] [--strict] [--json] [--page N]\n"
     "       pdfkiln info FILE --page N --objects [--password P] [--strict]\n"
     "The header, cross-reference chain, trailer, /Info and /Encrypt of FILE, the page count and,\n"
     "per page, the boxes and rotation. /Info fields the file does not have are not shown (null in\n"
     "JSON); text strings in UTF-16 are shown as UTF-8. A box the page does not have reads\n"
     "\"absent\" (null in JSON). With --page N: also page N's annotations as the file has them\n"
     "(object, /Subtype, /Rect). With --page N --objects: the renumbered objects of page N, numbered\n"
     "from 1, its content size and its resources.\n"
     "--json prints one JSON object: file, version, headerOffset, xref {classicSections,\n"
     "xrefStreams, objects, free, inUse, compressed, rebuilt}, trailer {Size, Root, Info, Encrypt,\n"
     "ID}, info {Title, ...: string or null}, pageCount, pages [{page, MediaBox, CropBox, BleedBox,\n"
     "TrimBox, ArtBox: [x1, y1, x2, y2] or null, visible: [w, h], rotate}], with --page N\n"
     "annotations {page, count, items [{object, subtype, rect}]}, encrypt (or null).\n"},
    {"xref", cmdXref,
     "usage: pdfkiln xref FILE [--strict] [--json]\n"
     "Every entry of the object table: free, uncompressed with its offset, or compressed with its\n"
     "object stream and index. --json prints one JSON array of {num, gen, kind (0 free, 1 in use,\n"
     "2 compressed), offset | stream and index}.\n"},
    {"object", cmdObject,
     "usage: pdfkiln object FILE N [G] [--strict]\n"
     "       pdfkiln object FILE --all [--json] [--strict]\n"
     "One object's text as the library renders it, numbers kept; with --all every object of the\n"
     "table. --all --json prints JSON Lines: one JSON object per line, {num, gen, ok, stream}, where\n"
     "stream (present for stream objects) is the body as the library delivers it, in base64.\n"},
    {"content", cmdContent,
     "usage: pdfkiln content FILE [--page N] [--password P] [--strict]\n"
     "The decoded content streams of page N (default 1), joined, on standard output.\n"},
    {"find", cmdFind,
     "usage: pdfkiln find FILE [--password P] [--strict] /Key[:type]...\n"
     "A search from the catalog through dictionaries, arrays and references, breadth first. Each\n"
     "key is /Key or /Key:type; type is the kind of value that counts: boolean number string name\n"
     "array dictionary null stream reference, or none for any; dictionary when left out. Several\n"
     "keys are searched for in one walk. For each key found, two lines are printed: the key, then\n"
     "the text of the first value of that kind met; a key that is not found prints nothing.\n"},
    {"compose", cmdCompose, nullptr},
    {"merge", cmdMerge, nullptr},
    {"split", cmdSplit, nullptr},
    {"jbig2", cmdJbig2,
     "usage: pdfkiln jbig2 IN -o OUT.png|OUT.pbm [--embedded [--globals G]]\n"
     "       pdfkiln jbig2 FILE.pdf (--object N | --all) -o OUT.png|OUT.pbm\n"
     "Decodes a JBIG2 file or embedded stream (with --globals G by JBIG2Dec with /JBIG2Globals G),\n"
     "or image object N of a PDF (every JBIG2 image with --all: OUT-N.png, or OUT with N for %d).\n"},
};

void usage(FILE* out) {
    std::fputs("usage: pdfkiln COMMAND [ARGS]\n"
               "       pdfkiln help COMMAND | pdfkiln COMMAND --help | pdfkiln --version\n"
               "\n"
               "commands:\n"
               "  info      header, cross-reference chain, trailer, /Info, /Encrypt, pages and boxes\n"
               "  xref      every entry of the object table\n"
               "  object    one object's text, or every object's, as the library renders it\n"
               "  content   a page's decoded content streams\n"
               "  find      deep search for keys from the catalog\n"
               "  compose   place source pages on the pages of a new PDF (n-up, encryption)\n"
               "  merge     join selected pages of several files into one, by the merge engine\n"
               "  split     cut a file into files of N pages each, by the merge engine\n"
               "  jbig2     decode JBIG2 data to an image\n"
               "\n",
               out);
    std::fputs(kReading, out);
}

const Command* findCommand(const std::string& name) {
    for (const Command& c : kCommands)
        if (name == c.name) return &c;
    return nullptr;
}

// A command's help: its own text, or (for commands that print their own)
// the command run with --help.
int help(const Command& c) {
    if (!c.help) {
        char name[32];
        std::snprintf(name, sizeof name, "%s", c.name);
        char flag[] = "--help";
        char* args[] = {name, flag, nullptr};
        return c.run(2, args);
    }
    std::fputs(c.help, stdout);
    std::fputs(kReading, stdout);
    return 0;
}

std::size_t budget = std::size_t(256) << 20;

// SIZE: a decimal count of bytes, or with K, M or G behind it (binary units).
bool parseSize(const char* text, std::size_t& out) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text, &end, 10);
    if (end == text || errno != 0 || *text == '-') return false;
    unsigned shift = 0;
    if (*end == 'K' || *end == 'k') shift = 10, ++end;
    else if (*end == 'M' || *end == 'm') shift = 20, ++end;
    else if (*end == 'G' || *end == 'g') shift = 30, ++end;
    if (*end != '\0' || v > (std::numeric_limits<std::size_t>::max() >> shift)) return false;
    out = static_cast<std::size_t>(v) << shift;
    return true;
}

}  // namespace

std::size_t decodedBudget() { return budget; }

// Stands in when the JBIG2 command is not built into this tool.
__attribute__((weak)) int cmdJbig2(int, char**) {
    std::fputs("pdfkiln: jbig2 is not available in this build\n", stderr);
    return 2;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        usage(stderr);
        return tool::kExitUsage;
    }
    // --max-decoded is taken out wherever it stands; the commands read it
    // through decodedBudget().
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--max-decoded")) {
            if (i + 1 >= argc || !parseSize(argv[i + 1], budget)) {
                std::fputs("pdfkiln: --max-decoded wants a size (bytes, or with K, M, G)\n", stderr);
                return tool::kExitUsage;
            }
            ++i;
            continue;
        }
        argv[kept++] = argv[i];
    }
    argc = kept;
    argv[argc] = nullptr;
    if (argc < 2) {
        usage(stderr);
        return tool::kExitUsage;
    }
    const std::string cmd = argv[1];
    if (cmd == "-h" || cmd == "--help") {
        usage(stdout);
        return 0;
    }
    if (cmd == "--version" || cmd == "-V") {
        std::printf("pdfkiln %s (libPDFKilnPage %s)\n", PDFKILN_VERSION, PDFKILN_VERSION);
        return 0;
    }
    if (cmd == "help") {
        if (argc < 3) {
            usage(stdout);
            return 0;
        }
        const Command* c = findCommand(argv[2]);
        if (!c) {
            std::fprintf(stderr, "pdfkiln: unknown command '%s'\n", argv[2]);
            return tool::kExitUsage;
        }
        return help(*c);
    }
    const Command* c = findCommand(cmd);
    if (!c) {
        std::fprintf(stderr, "pdfkiln: unknown command '%s'\nTry 'pdfkiln --help'.\n", cmd.c_str());
        return tool::kExitUsage;
    }
    for (int i = 2; i < argc; ++i)
        if (c->help && (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h"))) return help(*c);
    return c->run(argc - 1, argv + 1);
}
