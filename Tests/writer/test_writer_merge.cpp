// The merge engine end to end: select pages of two sources, collect their closures, renumber, and write objects, page
// tree, catalog and tail.
#include <gtest/gtest.h>

#include <fstream>

#include "pdfkiln_destfile.h"
#include "pdfkiln_obj_page.h"
#include "pdfkiln_sourfile.h"
#include "test_util.h"

using namespace PDF_KILN;

namespace {

struct Opened {
    explicit Opened(const std::string& path) : in(path, std::ios::binary), file(in) { rc = file.CheckAndInit(); }
    std::ifstream in;
    CSourFile file;
    int rc;
};

std::size_t occurrences(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
    return n;
}

TEST(Merge, TwoSourcesGiveOneGroupNodeEachAndSharedObjectsOnce) {
    const std::string samples = std::string(PDFKILN_SOURCE_DIR) + "/samples/";
    Opened a(samples + "sample.pdf"), b(samples + "classic.pdf");
    ASSERT_EQ(a.rc, 0);
    ASSERT_EQ(b.rc, 0);
    ASSERT_EQ(a.file.pages.size(), 2u);
    ASSERT_EQ(b.file.pages.size(), 1u);

    CDestFile out;
    out.addSource(&a.file);
    out.addSource(&b.file);
    ASSERT_EQ(out.SetReadFileAndPage("1:0 2:1"), 0);
    ASSERT_EQ(out.Read(), 0);
    ASSERT_EQ(out.TidyObj(), 0);
    out.assign("%PDF-1.7\n");
    ASSERT_EQ(out.Write(), 0);

    // Both pages of the first source use font 5: it is written once.
    EXPECT_EQ(occurrences(out, "/BaseFont /Helvetica"), 1u);
    EXPECT_EQ(occurrences(out, "/BaseFont /Times-Roman"), 1u);
    // Page dictionaries lose what the embedding program supplies itself.
    EXPECT_EQ(occurrences(out, "/Contents"), 0u);
    // Root: two group kids, three pages counted.
    const std::string root = std::to_string(out.rootPages.num) + " 0 obj\n<</Type/Pages/Count 3/Kids[";
    EXPECT_NE(out.find(root), std::string::npos) << out;
    EXPECT_EQ(occurrences(out, "/Type/Pages/Count 2/Kids["), 1u);
    EXPECT_EQ(occurrences(out, "/Type/Pages/Count 1/Kids["), 1u);

    // The tail makes it a file whose table qpdf reads.
    out.catalog.self = SObj(out.nextObjNo++, 0);
    out.catalog.Write(out, a.file);
    out.fileInfo.info.self = SObj(out.nextObjNo++, 0);
    out.fileInfo.Write(out, a.file);
    testutil::TempDir tmp;
    const std::string path = tmp.file("merge.pdf");
    testutil::writeFile(path, static_cast<const std::string&>(out));
    if (testutil::run("qpdf --version") == 0) {
        EXPECT_EQ(testutil::run("qpdf --show-xref " + testutil::quote(path)), 0);
    }
    out.sources.clear();
}

}  // namespace
