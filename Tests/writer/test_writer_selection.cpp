// The merge engine's page-selection text and its renumbering.
#include <gtest/gtest.h>

#include <memory>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"

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

// Each text on the engine of the case before when the sources are the same, so that a selection also replaces the one
// before it.
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
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 1, 5, 0}).num, 101);
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 2, 3, 0}).num, 102);
    EXPECT_EQ(e.out.newObjTable.at(NewObjTable{0, 2, 8, 0}).num, 103);
    EXPECT_EQ(e.out.nextObjNo, 104);
}

}  // namespace
