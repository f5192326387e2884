// The compact tables behind the object table and the page tree: they must read
// exactly like the ordered maps they replaced.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;

namespace {

SObjState at(int pos) {
    SObjState s;
    s.pos = pos;
    s.kind = 1;
    return s;
}

// Every operation applied to an ObjTable and to a std::map side by side.
TEST(ObjTable, ReadsLikeTheOrderedMap) {
    std::mt19937 rng(7);
    ObjTable table;
    std::map<SObj, SObjState> model;
    // Dense numbers, second generations, negative and far-off numbers (which
    // do not fit the vector) and a generation equal to the empty-slot mark.
    const int nums[] = {0, 1, 2, 3, 5, 8, 40, 41, 1000, -3, 2000000000, INT32_MAX};
    const int gens[] = {0, 1, 65535, -1, INT32_MIN};
    for (int round = 0; round < 4000; ++round) {
        const int base = nums[rng() % 12];
        const SObj k(base < 5000 && rng() % 2 ? base + static_cast<int>(rng() % 50) : base, gens[rng() % 5]);
        switch (rng() % 4) {
            case 0:
            case 1: {
                const bool fresh = table.insert({k, at(round)}).second;
                EXPECT_EQ(fresh, model.insert({k, at(round)}).second);
                break;
            }
            case 2:
                table.erase(k);
                model.erase(k);
                break;
            default:
                table[k].pos += 1;
                model[k].pos += 1;
        }
        ASSERT_EQ(table.size(), model.size());
        auto it = table.find(k);
        ASSERT_EQ(it == table.end(), model.count(k) == 0);
        // Iterating from a found entry goes on in key order.
        if (it != table.end()) {
            auto m = model.find(k);
            for (int step = 0; step < 3 && m != model.end(); ++step, ++it, ++m) {
                ASSERT_NE(it, table.end());
                EXPECT_EQ(it->first.num, m->first.num);
                EXPECT_EQ(it->first.gen, m->first.gen);
                EXPECT_EQ(it->second.pos, m->second.pos);
            }
        }
    }
    auto m = model.begin();
    for (const auto& e : table) {
        ASSERT_NE(m, model.end());
        EXPECT_EQ(e.first.num, m->first.num);
        EXPECT_EQ(e.first.gen, m->first.gen);
        EXPECT_EQ(e.second.pos, m->second.pos);
        ++m;
    }
    EXPECT_EQ(m, model.end());
    EXPECT_EQ(table.highestNumber(), model.empty() ? -1 : model.rbegin()->first.num);
    int gen = 0;
    ASSERT_NE(table.lowestOf(model.begin()->first.num, &gen), nullptr);
    EXPECT_EQ(gen, model.begin()->first.gen);
    const ObjTable copy = table;
    EXPECT_EQ(copy.size(), table.size());
    EXPECT_THROW(copy.at(SObj(-77, 3)), std::out_of_range);
}

TEST(RefMap, KeysAreNumberAndGenerationAlone) {
    RefMap<SKey> parents;
    for (int n = 1; n <= 5000; ++n) parents[SObj(n, n % 3, 99)] = SObj(n / 2, 0);
    EXPECT_EQ(parents.size(), 5000u);
    for (int n = 1; n <= 5000; ++n) {
        auto it = parents.find(SObj(n, n % 3));
        ASSERT_NE(it, parents.end());
        EXPECT_EQ(it->second.num, n / 2);
    }
    EXPECT_EQ(parents.count(SObj(7, 2)), 0u);   // 7's generation is 1
    EXPECT_FALSE(parents.emplace(SObj(9, 0), SObj(1, 0)).second);
    std::size_t seen = 0;
    for (auto it = parents.begin(); it != parents.end(); ++it) ++seen;
    EXPECT_EQ(seen, 5000u);
}

TEST(PaperTable, SharedRecordsAndPointersThatStay) {
    PaperTable papers;
    CPaperInfo a;
    a.box[0] = RectTD{0, 0, 612, 792};
    a.rotate = 90;
    a.resources = SObj(4, 0, 32);
    CPaperInfo b = a;
    b.box[1] = RectTD{10, 10, 600, 780};
    for (int n = 10; n < 1010; ++n) papers.set(SObj(n, 0), n % 2 ? a : b);
    const CPaperInfo* p = papers.get(SObj(11, 0));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->rotate, 90);
    EXPECT_EQ(p->resources.aux, 32);
    EXPECT_EQ(papers.get(SObj(12, 0))->box[1].right, 600);
    EXPECT_EQ(papers.get(SObj(11, 0)), p);
    // A page set again shows its new values through the pointer handed out.
    papers.set(SObj(11, 0), b);
    EXPECT_EQ(p->box[1].top, 780);
    EXPECT_EQ(papers.get(SObj(5, 0)), nullptr);
}

}  // namespace
