// A caller of the installed library: opens a PDF, prints its version, and
// seeds a merge's renumbering table the way callers spell its key.
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
    PDF_KILN::CDestFile merge;
    merge.insertNewObjTab(PDF_KILN::NewObjTable{0, 1, 7, 0}, PDF_KILN::SObj(12, 0));
    return merge.newObjTable.count(PDF_KILN::NewObjTable{0, 1, 7, 0}) == 1 ? 0 : 1;
}
