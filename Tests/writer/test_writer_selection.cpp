// The merge engine's page-selection text and its renumbering.
#include <gtest/gtest.h>

#include <memory>

#include "writer_test_util.h"

using namespace PDF_KILN;

namespace {

// Sources with a given number of pages; the page objects are stand-ins.
struct Engine {
    explicit Engine(std::initializer_list<int> pageCounts) {
        for (int n : pageCounts) {
            auto s = std::make_unique<pdftest::Source>(pdftest::minimalPdf());
            s->file.CheckAndInit();
            for (int p = 0; p < n; ++p) s->file.pages.push_back(SObj(100 + p, 0));
            out.addSource(&s->file);
            sources.push_back(std::move(s));
        }
    }
    ~Engine() { out.sources.clear(); }
    std::vector<std::unique_ptr<pdftest::Source>> sources;
    CDestFile out;
};

std::vector<std::pair<int, int>> order(const CDestFile& out) {
    std::vector<std::pair<int, int>> v;
    for (const auto& e : out.order) v.emplace_back(e.file, e.page);
    return v;
}

using Pairs = std::vector<std::pair<int, int>>;

TEST(Selection, ListedExamples) {
    Engine e{9, 9};
    EXPECT_EQ(e.out.SetReadFileAndPage("1:3"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 3}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("1:3,7,9"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 3}, {1, 7}, {1, 9}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("1:1~5 2:4"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 1}, {1, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 4}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("1:2-4"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 2}, {1, 3}, {1, 4}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("2:0"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{2, 0}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("0:0"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{0, 0}}));
}

TEST(Selection, OnePageSource) {
    Engine e{1};
    EXPECT_EQ(e.out.SetReadFileAndPage("1:1"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 1}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("1:2"), kResultBadBox) << "page beyond the end: no entry, so 1006";
}

TEST(Selection, RefusedTexts) {
    Engine e{3};
    EXPECT_EQ(e.out.SetReadFileAndPage("0:3"), kResultBadBox);
    EXPECT_EQ(e.out.SetReadFileAndPage("1:3~1"), kResultBadBox);
    EXPECT_EQ(e.out.SetReadFileAndPage("1:"), kResultBadBox);
    EXPECT_EQ(e.out.SetReadFileAndPage("-1:1"), kResultBadBox);
    EXPECT_EQ(e.out.SetReadFileAndPage("1:1,0"), kResultBadBox) << "a page 0 behind a comma";
    EXPECT_EQ(e.out.SetReadFileAndPage("1:-2"), kResultBadBox);
    EXPECT_EQ(e.out.SetReadFileAndPage(""), kResultBadBox);
}

TEST(Selection, RangesDoNotCheckThePageCountButListsDo) {
    Engine e{2};
    EXPECT_EQ(e.out.SetReadFileAndPage("1:1~3"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 1}, {1, 2}, {1, 3}}));
    EXPECT_EQ(e.out.SetReadFileAndPage("1:1,3,2"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 1}, {1, 2}})) << "page 3 of a 2-page source is left out silently";
    EXPECT_EQ(e.out.SetReadFileAndPage("3:1 1:2"), 0) << "a file above the source count is left out";
    EXPECT_EQ(order(e.out), (Pairs{{1, 2}}));
}

TEST(Selection, LeadingZerosAreSteppedOver) {
    Engine e{9};
    EXPECT_EQ(e.out.SetReadFileAndPage("1:007"), 0);
    EXPECT_EQ(order(e.out), (Pairs{{1, 7}}));
}

TEST(Renumber, StartObjectTakesEffectAtInitAndRunsFollowFileOrder) {
    Engine e{1, 1};
    e.out.getStartObj(100);
    e.out.Init();
    e.sources[1]->file.fileObjects = {SObj(8, 0), SObj(3, 0)};
    e.sources[0]->file.fileObjects = {SObj(5, 0)};
    e.out.TidyObj();
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 1, 5, 0}).num, 101);
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 2, 3, 0}).num, 102);
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 2, 8, 0}).num, 103);
    EXPECT_EQ(e.out.nextObjNo, 104);
}

}  // namespace
