// A caller of the installed library: opens a PDF and prints its version.
#include <PDFKilnPage/PDFKilnPage.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    PDF_KILN::CPDFKilnPage doc(argv[1], "");
    int rc = doc.init();
    if (rc != 0) {
        std::printf("open failed: %d\n", rc);
        return 1;
    }
    std::printf("opened %s: %s\n", argv[1], doc.getVersionText().c_str());
    return 0;
}
