// pdfkiln content: a page's decoded content, as the facade gives it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "tool_common.h"

using namespace PDF_KILN;

int cmdContent(int argc, char** argv) {
    const char* file = nullptr;
    tool::ReadOptions read;
    int page = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if ((arg == "--page" || arg == "--password") && i + 1 >= argc)
            return tool::usageError("content", arg + " needs a value");
        if (arg == "--page") {
            if (!tool::parseCount("content", "--page", argv[++i], 1 << 30, page)) return tool::kExitUsage;
        } else if (arg == "--password") {
            read.password = argv[++i];
        } else if (arg == "--strict") {
            read.strict = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return tool::usageError("content", "unknown option '" + arg + "'");
        } else if (!file) {
            file = argv[i];
        } else {
            return tool::usageError("content", "one file only; '" + arg + "' is one too many");
        }
    }
    if (!file) return tool::usageError("content", "no FILE given");
    CPDFKilnPage doc(file, read.password);
    if (int status = tool::openDocument(doc, file, read)) return status;
    if (page > doc.getPageCount()) {
        std::fprintf(stderr, "pdfkiln: %s: --page %d: the file has %d page(s)\n", file, page, doc.getPageCount());
        return tool::kExitUsage;
    }
    int rc = 0;
    if (rc == 0) rc = doc.setPageNo(page);
    const std::string* text = nullptr;
    if (rc == 0) rc = doc.getPageContents(&text);
    if (rc != 0) {
        std::fprintf(stderr, "pdfkiln: %s: page %d: %s (%d)\n", file, page, tool::resultText(rc), rc);
        return 1;
    }
    std::fwrite(text->data(), 1, text->size(), stdout);
    return 0;
}
