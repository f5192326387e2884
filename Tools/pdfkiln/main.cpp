// pdfkiln: the command-line face of the library.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <cstring>
#include <string>

#include "commands.h"

namespace {

void usage(FILE* out) {
    std::fputs(
        "usage: pdfkiln COMMAND [ARGS]\n"
        "\n"
        "commands:\n"
        "  info FILE [--password P] [--json]   header, cross-reference chain, trailer, /Info, /Encrypt,\n"
        "                                      page count, and per page the boxes and rotation\n"
        "  info FILE --page N --objects        the renumbered objects, contents and resources of a page\n"
        "  compose -o OUT [--nup CxR] [--sheet WxH] [--password P] IN[:PAGES]...\n"
        "                                      place source pages on the pages of a new PDF\n"
        "  xref FILE [--json]                  every entry of the object table\n"
        "  object FILE N [G]                   one object's text, as the library renders it\n"
        "  object FILE --all [--json]          every object of the table (stream bodies base64 in JSON)\n"
        "  content FILE [--page N] [--password P]\n"
        "                                      the page's decoded content streams, joined\n"
        "  find FILE /Key[:type]...            deep search from the catalog; type is one of boolean number\n"
        "                                      string name array dictionary null stream reference none\n"
        "  jbig2 IN -o OUT.png|OUT.pbm [--embedded [--globals G]]\n"
        "                                      decode a JBIG2 file or embedded stream to an image;\n"
        "                                      with --globals G, by JBIG2Dec with /JBIG2Globals G\n"
        "  jbig2 FILE.pdf (--object N | --all) -o OUT.png|OUT.pbm\n"
        "                                      image object N (or every JBIG2 image, OUT-N.png or\n"
        "                                      OUT with N for %d) through Jbig2ToRGB_New\n"
        "\n"
        "  --max-decoded SIZE (any command)    largest decoded stream, and decoded content of a page,\n"
        "                                      in bytes or with K, M, G; default 256M, 0 for the\n"
        "                                      library's own cap of 1G per decoding stage\n",
        out);
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
    if (argc < 2 || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help")) {
        usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    // --max-decoded is taken out wherever it stands; the commands read it
    // through decodedBudget().
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--max-decoded")) {
            if (i + 1 >= argc || !parseSize(argv[i + 1], budget)) {
                std::fputs("pdfkiln: --max-decoded wants a size (bytes, or with K, M, G)\n", stderr);
                return 2;
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
        return 2;
    }
    std::string cmd = argv[1];
    if (cmd == "info") return cmdInfo(argc - 1, argv + 1);
    if (cmd == "xref") return cmdXref(argc - 1, argv + 1);
    if (cmd == "object") return cmdObject(argc - 1, argv + 1);
    if (cmd == "jbig2") return cmdJbig2(argc - 1, argv + 1);
    if (cmd == "find") return cmdFind(argc - 1, argv + 1);
    if (cmd == "content") return cmdContent(argc - 1, argv + 1);
    if (cmd == "compose") return cmdCompose(argc - 1, argv + 1);
    std::fprintf(stderr, "pdfkiln: unknown command '%s'\n", cmd.c_str());
    usage(stderr);
    return 2;
}
