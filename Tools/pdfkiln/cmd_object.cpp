// pdfkiln object: object text as the library renders it, with numbers kept.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "tool_common.h"

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
    bool all = false, json = false, strict = false;
    int num = -1, gen = 0;
    bool haveGen = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--all") all = true;
        else if (arg == "--json") json = true;
        else if (arg == "--strict") strict = true;
        else if (arg.size() > 1 && arg[0] == '-') return tool::usageError("object", "unknown option '" + arg + "'");
        else if (!file) file = argv[i];
        else if (num < 0) {
            // Object 0 is the head of the free list: never an object.
            if (!tool::parseCount("object", "N", argv[i], 1 << 30, num)) return tool::kExitUsage;
        } else if (!haveGen) {
            if (arg != "0" && !tool::parseCount("object", "G", argv[i], 65535, gen)) return tool::kExitUsage;
            haveGen = true;
        } else {
            return tool::usageError("object", "'" + arg + "' is one argument too many");
        }
    }
    if (!file) return tool::usageError("object", "no FILE given");
    if (all == (num >= 0)) return tool::usageError("object", "give either N [G] or --all");
    if (json && !all) return tool::usageError("object", "--json goes with --all");
    const std::string problem = tool::fileProblem(file);
    if (!problem.empty()) {
        std::fprintf(stderr, "pdfkiln: %s: %s\n", file, problem.c_str());
        return tool::kExitFailed;
    }
    CPDFKilnPage doc(file, "");
    doc.setBalancedStrings(!strict);
    doc.setRebuildObjectTable(!strict);
    doc.setDecodedBudget(decodedBudget());
    int rc = doc.init();
    if (rc != 0 && rc != kResultNotLocalised) {
        std::fprintf(stderr, "pdfkiln: %s: %s (%d)\n", file, tool::resultText(rc), rc);
        return 1;
    }
    CSourFile& src = *doc.getSource();
    if (!all) {
        CDestFile sink;
        if (!render(src, SObj(num, gen), sink)) {
            std::fprintf(stderr, "pdfkiln: object %d %d cannot be located\n", num, gen);
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
