// Symbol dictionaries, text regions, pattern dictionaries and halftone
// regions, on the smallest inputs that show each behaviour: Huffman-coded
// dictionaries and text (the codes of the standard tables are written out
// below), MMR-coded patterns, and arithmetic-coded grey planes made with the
// test MQ encoder.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "jbig2/jbig2.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

// Decodes an embedded stream; the page's rows as '#' and '.', or a text
// giving the result.
std::vector<std::string> decodeRows(const Bytes& data, int* result = nullptr) {
    Bytes copy = data;
    Jbig2Decoder d(copy.data(), static_cast<unsigned int>(copy.size()), true);
    const JBIG2_RESULT r = d.decodeImage();
    if (result) *result = r;
    std::vector<std::string> rows;
    if (r != JBIG2_SUCCESS || d.getPageNumber() == 0) return rows;
    ImageProcessor<ImageDataBits>* img = d.getImage(0);
    for (uint32_t y = 0; y < img->getHeight(); ++y) {
        std::string s;
        for (uint32_t x = 0; x < img->getWidth(); ++x) s += img->getPixel(x, y) ? '#' : '.';
        rows.push_back(s);
    }
    return rows;
}

// Codes of the standard tables used here (B.1 A, B.2 B, B.4 D, B.6 F, B.8 H,
// B.11 K).
void tableA(BitWriter& w, uint32_t v) {  // 0..15
    w.bits("0");
    w.value(v, 4);
}
void tableF(BitWriter& w, uint32_t v) {  // 0..127
    w.bits("00");
    w.value(v, 7);
}

// A Huffman dictionary of two new symbols in one height class of 3 rows,
// widths 2 and 3, stored as an uncompressed collective bitmap (BMSIZE 0),
// exporting `exportRuns` (table A).
Bytes dictionaryTwoSymbols(const std::vector<uint32_t>& exportRuns, uint32_t exported) {
    Bytes d;
    put16(d, 0x0001);  // SDHUFF, tables D, B, A, A
    put32(d, exported);
    put32(d, 2);
    BitWriter w;
    w.bits("110");     // DH 3 (table D)
    w.bits("110");     // DW 2 (table B)
    w.bits("10");      // DW 1: width 3
    w.bits("111111");  // OOB
    tableA(w, 0);      // BMSIZE 0: uncompressed
    w.align();
    // Rows of 5 pixels, each row on a byte boundary: "11" + "101", "01" + "010", "11" + "101".
    w.value(0xE8, 8);
    w.value(0x50, 8);
    w.value(0xE8, 8);
    for (uint32_t run : exportRuns) tableA(w, run);
    d.insert(d.end(), w.bytes().begin(), w.bytes().end());
    return d;
}

// A dictionary with no new symbols that re-exports its input by the runs.
Bytes dictionaryNoNewSymbols(const std::vector<uint32_t>& exportRuns, uint32_t exported) {
    Bytes d;
    put16(d, 0x0001);
    put32(d, exported);
    put32(d, 0);
    BitWriter w;
    for (uint32_t run : exportRuns) tableA(w, run);
    d.insert(d.end(), w.bytes().begin(), w.bytes().end());
    return d;
}

// A Huffman text region of 10x3 with SBDSOFFSET `dsOffset` (5 bits), placing
// symbol 0 of a one-symbol list twice in one strip: first at S 1, then after
// an IDS of 2. `userDS` codes the IDS with the user table of
// userTableForDS() instead of table H.
Bytes textRegion(unsigned dsOffset, bool userDS, unsigned char regionOp = 0, unsigned combOp = 0) {
    Bytes d = regionInfo(10, 3, 0, 0, regionOp);
    put16(d, static_cast<uint16_t>(0x0001 | (1u << 4) | (combOp << 7) | (dsOffset << 10)));  // SBHUFF, TOPLEFT
    put16(d, static_cast<uint16_t>(userDS ? (3u << 2) : 0));
    put32(d, 2);  // SBNUMINSTANCES
    BitWriter w;
    // Symbol ID table: run code 1 has length 1, all others unused; then the
    // one symbol's code length, 1.
    for (int i = 0; i < 35; ++i) w.value(i == 1 ? 1 : 0, 4);
    w.bits("0");
    w.align();
    w.bits("0");  // DT 1 (table K): STRIPT -1
    w.bits("0");  // DT 1: STRIPT 0
    tableF(w, 1);  // DFS 1
    w.bits("0");  // ID 0
    if (userDS) {
        w.bits("100");  // IDS 2
        w.bits("0");    // ID 0
        w.bits("11");   // OOB
    } else {
        w.bits("11010");  // IDS 2 (table H)
        w.bits("0");
        w.bits("01");  // OOB
    }
    d.insert(d.end(), w.bytes().begin(), w.bytes().end());
    return d;
}

// A code table with OOB: 0..1 as "0"+1 bit, 2..3 as "10"+1 bit, OOB "11".
Bytes userTableForDS() {
    Bytes d;
    d.push_back(0x03);  // HTOOB, prefix size 2, range size 1
    put32(d, 0);
    put32(d, 4);
    BitWriter w;
    w.value(1, 2);
    w.value(1, 1);  // line 0..1
    w.value(2, 2);
    w.value(1, 1);  // line 2..3
    w.value(0, 2);  // no lower range line
    w.value(0, 2);  // no upper range line
    w.value(2, 2);  // OOB
    d.insert(d.end(), w.bytes().begin(), w.bytes().end());
    return d;
}

const std::vector<std::string> kTwoInstances = {".#.##.#...", "..#..#....", ".#.##.#..."};

}  // namespace

TEST(Jbig2SymbolText, ReexportWithNoNewSymbolsAndNegativeDsOffset) {
    // Dictionary 1 exports both symbols (runs 0 not exported, 2 exported);
    // dictionary 2 has SDNUMNEWSYMS 0 and exports only its second input
    // (runs 1, 1). The text region sees that one symbol, "101/010/101", and
    // SBDSOFFSET 11111 pulls the second instance one pixel left: S = 3 + 2 - 1.
    const Bytes data = cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, dictionaryTwoSymbols({0, 2}, 2)),
                            segment(2, 0, {1}, dictionaryNoNewSymbols({1, 1}, 1)),
                            segment(3, 6, {2}, textRegion(0x1F, false)), segment(4, 49, {}, {})});
    int r = -1;
    EXPECT_EQ(decodeRows(data, &r), kTwoInstances);
    EXPECT_EQ(r, 0);

    // SBDSOFFSET 1 instead: S = 3 + 2 + 1.
    const Bytes plus = cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, dictionaryTwoSymbols({0, 2}, 2)),
                            segment(2, 0, {1}, dictionaryNoNewSymbols({1, 1}, 1)),
                            segment(3, 6, {2}, textRegion(1, false)), segment(4, 49, {}, {})});
    EXPECT_EQ(decodeRows(plus), (std::vector<std::string>{".#.#..#.#.", "..#....#..", ".#.#..#.#."}));
}

TEST(Jbig2SymbolText, ExportRuns) {
    // Runs 1 (not exported), 1 (exported): the text region's symbol 0 is the
    // second symbol, the 3-wide one.
    const Bytes second = cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, dictionaryTwoSymbols({1, 1}, 1)),
                              segment(3, 6, {1}, textRegion(0x1F, false)), segment(4, 49, {}, {})});
    EXPECT_EQ(decodeRows(second), kTwoInstances);
    // Runs 0, 1, 1: only the first symbol, "11/01/11".
    const Bytes first = cat({segment(0, 48, {}, pageInfo(10, 3)),
                             segment(1, 0, {}, dictionaryTwoSymbols({0, 1, 1}, 1)),
                             segment(3, 6, {1}, textRegion(0x1F, false)), segment(4, 49, {}, {})});
    EXPECT_EQ(decodeRows(first), (std::vector<std::string>{".####.....", "..#.#.....", ".####....."}));
    // A run past the symbol count is invalid data.
    int r = -1;
    const Bytes over = cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, dictionaryTwoSymbols({0, 3}, 2)),
                            segment(4, 49, {}, {})});
    decodeRows(over, &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
    // Zero runs for ever never reach the count: invalid data, not a hang.
    const Bytes zeros = cat({segment(0, 48, {}, pageInfo(10, 3)),
                             segment(1, 0, {}, dictionaryTwoSymbols(std::vector<uint32_t>(40, 0), 2)),
                             segment(4, 49, {}, {})});
    decodeRows(zeros, &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
}

TEST(Jbig2SymbolText, UserTableFromCodeTableSegment) {
    // The same region with IDS coded by a referred code table segment.
    const Bytes data = cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, dictionaryTwoSymbols({1, 1}, 1)),
                            segment(2, 53, {}, userTableForDS()), segment(3, 6, {1, 2}, textRegion(0x1F, true)),
                            segment(4, 49, {}, {})});
    EXPECT_EQ(decodeRows(data), kTwoInstances);
    // Selecting a user table with no code table referred is invalid data.
    int r = -1;
    const Bytes missing = cat({segment(0, 48, {}, pageInfo(10, 3)),
                               segment(1, 0, {}, dictionaryTwoSymbols({1, 1}, 1)),
                               segment(3, 6, {1}, textRegion(0x1F, true)), segment(4, 49, {}, {})});
    decodeRows(missing, &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
}

TEST(Jbig2SymbolText, RegionOperatorComposesWithPageAndCombopPlacesSymbols) {
    // Page default pixel 1 (all black). The region, white by default, is
    // composed by its region-information operator (REPLACE, 4), so the
    // region's pixels replace the page's; SBCOMBOP XOR (2) is only used for
    // the symbols inside, which here don't overlap.
    const Bytes data = cat({segment(0, 48, {}, pageInfo(10, 3, 0x04)),
                            segment(1, 0, {}, dictionaryTwoSymbols({1, 1}, 1)),
                            segment(3, 6, {1}, textRegion(0x1F, false, 4, 2)), segment(4, 49, {}, {})});
    EXPECT_EQ(decodeRows(data), kTwoInstances);
}

TEST(Jbig2SymbolText, BadReferencesAndIds) {
    int r = -1;
    // A referred segment that doesn't exist.
    decodeRows(cat({segment(0, 48, {}, pageInfo(10, 3)), segment(3, 6, {9}, textRegion(0x1F, false)),
                    segment(4, 49, {}, {})}),
               &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
    // A text region over no symbols: every ID is out of range.
    decodeRows(cat({segment(0, 48, {}, pageInfo(10, 3)), segment(3, 6, {}, textRegion(0x1F, false)),
                    segment(4, 49, {}, {})}),
               &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
    // A dictionary of 9 bytes or fewer.
    decodeRows(cat({segment(0, 48, {}, pageInfo(10, 3)), segment(1, 0, {}, Bytes(9, 0)), segment(4, 49, {}, {})}),
               &r);
    EXPECT_EQ(r, JBIG2_INVALID_DATA);
}

namespace {

// A pattern dictionary of 2x1 patterns, MMR-coded, GRAYMAX `graymax`
// (0 or 1): pattern 0 "##" when GRAYMAX is 0, else patterns "..", "##".
Bytes patternDictionary(uint32_t graymax) {
    Bytes d;
    d.push_back(0x01);  // HDMMR
    d.push_back(2);     // HDPW
    d.push_back(1);     // HDPH
    put32(d, graymax);
    BitWriter w;
    w.bits("001");  // horizontal mode
    if (graymax == 0) {
        w.bits("00110101");  // white 0
        w.bits("11");        // black 2
    } else {
        w.bits("0111");  // white 2
        w.bits("11");    // black 2
    }
    d.insert(d.end(), w.bytes().begin(), w.bytes().end());
    return d;
}

// Halftone header: region w x h, grid gw x gh from (0,0) with vector (2,0)
// in whole pixels; rows of the grid step down by 2.
Bytes halftoneHeader(uint32_t w, uint32_t h, uint32_t gw, uint32_t gh, unsigned char flags) {
    Bytes d = regionInfo(w, h, 0, 0, 0);
    d.push_back(flags);
    put32(d, gw);
    put32(d, gh);
    put32(d, 0);
    put32(d, 0);
    put16(d, 0x200);  // HRX 2.0
    put16(d, 0);      // HRY
    return d;
}

// Arithmetic coding of one plane with template 3 and A1 at (2,-1), skipping
// cells marked in `skip`; the contexts are keyed by the neighbourhood itself.
Bytes encodePlane(const std::vector<std::string>& plane, const std::vector<std::string>& skip) {
    MQEncoder enc;
    std::map<uint32_t, unsigned short> cx;
    auto px = [&](int x, int y) -> uint32_t {
        if (y < 0 || x < 0 || y >= static_cast<int>(plane.size()) || x >= static_cast<int>(plane[0].size())) return 0;
        return plane[y][x] == '1';
    };
    for (int y = 0; y < static_cast<int>(plane.size()); ++y)
        for (int x = 0; x < static_cast<int>(plane[0].size()); ++x) {
            if (!skip.empty() && skip[y][x] == '1') continue;
            uint32_t c = 0;
            for (int i = -3; i <= 1; ++i) c = (c << 1) | px(x + i, y - 1);
            for (int i = -4; i <= -1; ++i) c = (c << 1) | px(x + i, y);
            c = (c << 1) | px(x + 2, y - 1);
            enc.encode(cx[c], plane[y][x] == '1');
        }
    return enc.flush();
}

}  // namespace

TEST(Jbig2Halftone, GraymaxZeroHasNoPlanes) {
    // One pattern, HBPP 0: no grey data at all; every cell draws pattern 0.
    const Bytes data = cat({segment(0, 48, {}, pageInfo(6, 2)), segment(1, 16, {}, patternDictionary(0)),
                            segment(2, 22, {1}, halftoneHeader(6, 2, 2, 1, 0x01)), segment(3, 49, {}, {})});
    EXPECT_EQ(decodeRows(data), (std::vector<std::string>{"####..", "......"}));
}

TEST(Jbig2Halftone, SkipBitmapLeavesOutsideCellsUncoded) {
    // A 4x3 region, a 3x2 grid of 2x1 patterns at x 0, 2, 4 and y 0, 2: the
    // third cell of each row lies outside. With HENABLESKIP those cells are
    // not coded; without it they are, and the same pixels come out.
    const std::vector<std::string> plane = {"101", "011"};
    const std::vector<std::string> expected = {"##..", "....", "..##"};
    const Bytes skipped = cat({halftoneHeader(4, 3, 3, 2, 0x08 | 0x06), encodePlane(plane, {"001", "001"})});
    const Bytes all = cat({halftoneHeader(4, 3, 3, 2, 0x06), encodePlane(plane, {})});
    for (const Bytes* region : {&skipped, &all}) {
        const Bytes data = cat({segment(0, 48, {}, pageInfo(4, 3)), segment(1, 16, {}, patternDictionary(1)),
                                segment(2, 22, {1}, *region), segment(3, 49, {}, {})});
        int r = -1;
        EXPECT_EQ(decodeRows(data, &r), expected) << (region == &skipped ? "HENABLESKIP" : "no skip");
        EXPECT_EQ(r, 0);
    }
}

TEST(Jbig2Halftone, ReferredSegmentRules) {
    int r = -1;
    // No referred segment: 2. A referred segment that isn't a pattern
    // dictionary: 3.
    decodeRows(cat({segment(0, 48, {}, pageInfo(6, 2)), segment(2, 22, {}, halftoneHeader(6, 2, 2, 1, 0x01)),
                    segment(3, 49, {}, {})}),
               &r);
    EXPECT_EQ(r, JBIG2_NO_REFERRED);
    decodeRows(cat({segment(0, 48, {}, pageInfo(6, 2)), segment(1, 62, {}, Bytes(4, 0)),
                    segment(2, 22, {1}, halftoneHeader(6, 2, 2, 1, 0x01)), segment(3, 49, {}, {})}),
               &r);
    EXPECT_EQ(r, JBIG2_BAD_REFERRED_TYPE);
}

TEST(Jbig2Halftone, PatternIndexPastGraymaxAsserts) {
    Bytes d = patternDictionary(0);
    StepDataReader reader(d.data(), d.size());
    PatternDictionarySegment dict;
    dict.decode(reader);
    EXPECT_EQ(dict.getPatternCount(), 1u);
    EXPECT_DEATH(dict.getImage(1), "GraphicServiceModule/jbig2/patterndictionarysegment.cpp:.*index < m_patterns.size()");
}

TEST(Jbig2Extension, AsciiCommentPairsAreKept) {
    Bytes d;
    put32(d, 0x20000000);
    for (const char* s : {"Title", "Test", "Author", "me"}) d.insert(d.end(), s, s + std::char_traits<char>::length(s) + 1);
    d.push_back(0);
    d.push_back(0);
    StepDataReader reader(d.data(), d.size());
    ExtensionSegment ext;
    ext.decode(reader);
    ASSERT_EQ(ext.comments.size(), 2u);
    EXPECT_EQ(ext.comments[1].first, "Author");
    EXPECT_EQ(ext.comments[1].second, "me");
    EXPECT_EQ(reader.getPosition(), d.size());
}
