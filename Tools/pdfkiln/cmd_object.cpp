// pdfkiln object: object text as the library renders it, with numbers kept.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"

using namespace PDF_KILN;

namespace {

std::string base64(const char* p, std::size_t n) {
    static const char* t = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((n + 2) / 3 * 4);
    for (std::size_t i = 0; i < n; i += 3) {
        unsigned v = static_cast<unsigned char>(p[i]) << 16;
        if (i + 1 < n) v |= static_cast<unsigned char>(p[i + 1]) << 8;
        if (i + 2 < n) v |= static_cast<unsigned char>(p[i + 2]);
        out += t[(v >> 18) & 63];
        out += t[(v >> 12) & 63];
        out += i + 1 < n ? t[(v >> 6) & 63] : '=';
        out += i + 2 < n ? t[v & 63] : '=';
    }
    return out;
}

// Renders one object in keep-numbers mode: "N G obj " and its body.
// An object the reader gives up on (a negative /Length throws, as the
// library's own entries report with 6000) is not rendered.
bool render(CSourFile& src, const SObj& key, CDestFile& sink) {
    sink.modeFlags |= CDestFile::kKeepNumbers;
    CObj obj(key);
    src.clear();
    try {
        return obj.Write(sink, src);
    } catch (const std::exception&) {
    } catch (int) {
    } catch (...) {
    }
    src.clear();
    return false;
}

}  // namespace

int cmdObject(int argc, char** argv) {
    const char* file = nullptr;
    bool all = false, json = false;
    long num = -1, gen = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--all")) all = true;
        else if (!std::strcmp(argv[i], "--json")) json = true;
        else if (!file) file = argv[i];
        else if (num < 0) num = std::strtol(argv[i], nullptr, 10);
        else gen = std::strtol(argv[i], nullptr, 10);
    }
    if (!file || (!all && num < 0)) {
        std::fputs("usage: pdfkiln object FILE N [G] | pdfkiln object FILE --all [--json]\n", stderr);
        return 2;
    }
    CPDFKilnPage doc(file, "");
    doc.setDecodedBudget(decodedBudget());
    int rc = doc.init();
    if (rc != 0 && rc != kResultNotLocalised) {
        std::fprintf(stderr, "pdfkiln: %s: cannot open (%d)\n", file, rc);
        return 1;
    }
    CSourFile& src = *doc.getSource();
    if (!all) {
        CDestFile sink;
        if (!render(src, SObj(static_cast<int>(num), static_cast<int>(gen)), sink)) {
            std::fprintf(stderr, "pdfkiln: object %ld %ld cannot be located\n", num, gen);
            return 1;
        }
        std::fwrite(sink.data(), 1, sink.size(), stdout);
        return 0;
    }
    int failed = 0;
    for (const auto& e : *src.fileInfo.objTable) {
        if (e.second.kind == 0) continue;
        CDestFile sink;
        const bool ok = render(src, e.first, sink);
        if (!ok) ++failed;
        if (json) {
            std::printf("{\"num\": %d, \"gen\": %d, \"ok\": %s", e.first.num, e.first.gen, ok ? "true" : "false");
            if (sink.streamDataSize || sink.find("stream\r\n") != std::string::npos)
                std::printf(", \"stream\": \"%s\"",
                            base64(sink.data() + sink.streamDataPos, sink.streamDataSize).c_str());
            std::printf("}\n");
        } else {
            std::fwrite(sink.data(), 1, sink.size(), stdout);
            if (!ok) std::printf("%% object %d %d cannot be located\n", e.first.num, e.first.gen);
        }
    }
    return failed ? 1 : 0;
}
