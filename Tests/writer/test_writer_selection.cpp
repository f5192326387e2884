// The merge engine: the page-selection text, the renumbering, and two sources merged end to end.
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"
#include "test_util.h"

using namespace PDF_KILN;

namespace {

// Sources with a given number of pages; the page objects are stand-ins.
struct Engine {
    explicit Engine(const std::vector<int>& pageCounts) : counts(pageCounts) {
        for (int n : pageCounts) {
            auto s = std::make_unique<pdftest::Source>(pdftest::minimalPdf());
            s->file.CheckAndInit();
            for (int p = 0; p < n; ++p) s->file.pages.push_back(SObj(100 + p, 0));
            out.addSource(&s->file);
            sources.push_back(std::move(s));
        }
    }
    ~Engine() { out.sources.clear(); }
    std::vector<int> counts;
    std::vector<std::unique_ptr<pdftest::Source>> sources;
    CDestFile out;
};

using Pairs = std::vector<std::pair<int, int>>;

// Each text runs on the engine of the case before when the sources are the same: a selection replaces the last one.
TEST(Selection, TextsAndTheOrderTheyGive) {
    const int bad = kResultBadBox;
    const struct {
        std::vector<int> pages;  // page count of each source
        const char* text;
        int rc;
        Pairs order;
    } cases[] = {
        {{9, 9}, "1:3", 0, {{1, 3}}},
        {{9, 9}, "1:3,7,9", 0, {{1, 3}, {1, 7}, {1, 9}}},
        {{9, 9}, "1:1~5 2:4", 0, {{1, 1}, {1, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 4}}},
        {{9, 9}, "1:2-4", 0, {{1, 2}, {1, 3}, {1, 4}}},
        {{9, 9}, "2:0", 0, {{2, 0}}},
        {{9, 9}, "0:0", 0, {{0, 0}}},
        {{1}, "1:1", 0, {{1, 1}}},
        {{1}, "1:2", bad, {}},  // page beyond the end: no entry
        {{3}, "0:3", bad, {}},
        {{3}, "1:3~1", bad, {}},
        {{3}, "1:", bad, {}},
        {{3}, "-1:1", bad, {}},
        {{3}, "1:1,0", bad, {}},  // a page 0 behind a comma
        {{3}, "1:-2", bad, {}},
        {{3}, "", bad, {}},
        {{2}, "1:1~3", 0, {{1, 1}, {1, 2}, {1, 3}}},  // ranges do not check the page count
        {{2}, "1:1,3,2", 0, {{1, 1}, {1, 2}}},        // lists leave page 3 of 2 out silently
        {{2}, "3:1 1:2", 0, {{1, 2}}},                // a file above the source count is left out
        {{9}, "1:007", 0, {{1, 7}}},                  // leading zeros are stepped over
    };
    std::unique_ptr<Engine> e;
    for (const auto& c : cases) {
        if (!e || e->counts != c.pages) e = std::make_unique<Engine>(c.pages);
        EXPECT_EQ(e->out.SetReadFileAndPage(c.text), c.rc) << c.text;
        if (c.rc != 0) continue;
        Pairs order;
        for (const auto& o : e->out.order) order.emplace_back(o.file, o.page);
        EXPECT_EQ(order, c.order) << c.text;
    }
}

TEST(Renumber, StartObjectTakesEffectAtInitAndRunsFollowFileOrder) {
    Engine e({1, 1});
    e.out.getStartObj(100);
    e.out.Init();
    e.sources[1]->file.fileObjects = {SObj(8, 0), SObj(3, 0)};
    e.sources[0]->file.fileObjects = {SObj(5, 0)};
    e.out.TidyObj();
    const auto num = [&](int file, int old) { return e.out.newObjTable.at(NewObjTable{0, file, old, 0}).num; };
    EXPECT_EQ((std::vector<int>{num(1, 5), num(2, 3), num(2, 8), e.out.nextObjNo}),
              (std::vector<int>{101, 102, 103, 104}));
}

std::size_t occurrences(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
    return n;
}

TEST(Merge, TwoSourcesGiveOneGroupNodeEachAndSharedObjectsOnce) {
    const std::string samples = std::string(PDFKILN_SOURCE_DIR) + "/samples/";
    pdftest::Opened a(testutil::readFile(samples + "sample.pdf")), b(testutil::readFile(samples + "classic.pdf"));
    ASSERT_EQ(std::make_tuple(a.rc, b.rc, a.file.pages.size(), b.file.pages.size()), std::make_tuple(0, 0, 2u, 1u));
    CDestFile out;
    out.addSource(&a.file);
    out.addSource(&b.file);
    ASSERT_EQ(out.SetReadFileAndPage("1:0 2:1"), 0);
    ASSERT_EQ(out.Read(), 0);
    ASSERT_EQ(out.TidyObj(), 0);
    out.assign("%PDF-1.7\n");
    ASSERT_EQ(out.Write(), 0);

    // Font 5, used by both pages of the first source, is written once; page dictionaries lose the supplied keys; the
    // root has two group kids and counts three pages.
    const std::pair<std::string, std::size_t> counts[] = {
        {"/BaseFont /Helvetica", 1}, {"/BaseFont /Times-Roman", 1}, {"/Contents", 0},
        {std::to_string(out.rootPages.num) + " 0 obj\n<</Type/Pages/Count 3/Kids[", 1},
        {"/Type/Pages/Count 2/Kids[", 1}, {"/Type/Pages/Count 1/Kids[", 1}};
    for (const auto& c : counts) EXPECT_EQ(occurrences(out, c.first), c.second) << c.first;

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
