// pdfkiln content: a page's decoded content, as the facade gives it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"

using namespace PDF_KILN;

int cmdContent(int argc, char** argv) {
    const char* file = nullptr;
    std::string password;
    int page = 1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--page") && i + 1 < argc) page = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--password") && i + 1 < argc) password = argv[++i];
        else if (!file) file = argv[i];
        else {
            file = nullptr;
            break;
        }
    }
    if (!file) {
        std::fputs("usage: pdfkiln content FILE [--page N] [--password P]\n", stderr);
        return 2;
    }
    CPDFKilnPage doc(file, password);
    doc.setDecodedBudget(decodedBudget());
    int rc = doc.init();
    if (rc == 0 && !password.empty()) {
        try {
            doc.SetSourcePassword(password);
        } catch (int code) {
            rc = code;
        }
    }
    if (rc == 0) rc = doc.setPageNo(page);
    const std::string* text = nullptr;
    if (rc == 0) rc = doc.getPageContents(&text);
    if (rc != 0) {
        std::fprintf(stderr, "pdfkiln: %s: page %d: failed (%d)\n", file, page, rc);
        return 1;
    }
    std::fwrite(text->data(), 1, text->size(), stdout);
    return 0;
}
