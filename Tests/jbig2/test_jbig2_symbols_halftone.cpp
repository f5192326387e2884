// Symbol dictionaries, text regions, pattern dictionaries and halftone regions
// on the smallest streams that show each behaviour.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "jbig2/jbig2.h"
#include "jbig2/textregionsegment.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

// B.1 (table A) codes 0..15 as "0" and 4 bits.
void tableA(BitWriter& w, uint32_t v) { w.bits("0").value(v, 4); }

// A Huffman dictionary (tables D, B, A, A) exporting `exported` symbols by the
// runs `exportRuns`; with `twoSymbols` it holds "11/01/11" and "101/010/101".
Bytes dictionary(bool twoSymbols, const std::vector<uint32_t>& exportRuns, uint32_t exported) {
    BitWriter w;
    if (twoSymbols) {
        w.bits("110" "110" "10" "111111");  // DH 3 (D), DW 2 and DW 1 (B), OOB
        tableA(w, 0);                        // BMSIZE 0: uncompressed
        w.align().value(0xE8, 8).value(0x50, 8).value(0xE8, 8);  // rows of 5 pixels, byte-aligned
    }
    for (uint32_t run : exportRuns) tableA(w, run);
    return cat({be(0x0001, 2), be(exported), be(twoSymbols ? 2 : 0), w.bytes()});  // SDHUFF
}

// A Huffman text region of 10x3 with SBDSOFFSET `dsOffset` (5 bits) placing
// symbol 0 twice in one strip: at S 1, then after an IDS of 2, coded by table
// H or, with `userDS`, by the user table of userTableForDS().
Bytes textRegion(unsigned dsOffset, bool userDS, unsigned char regionOp = 0, unsigned combOp = 0) {
    BitWriter w;
    oneSymbolIdTable(w);
    // DT 1 (table K) twice: STRIPT -1, then 0; DFS 1 (table F); ID 0.
    w.bits("0" "0" "00" "0000001" "0");
    w.bits(userDS ? "100" "0" "11" : "11010" "0" "01");  // IDS 2, ID 0, OOB
    return cat({regionInfo(10, 3, 0, 0, regionOp), be(0x0001 | (1u << 4) | (combOp << 7) | (dsOffset << 10), 2),
                be(userDS ? (3u << 2) : 0, 2), be(2), w.bytes()});  // SBHUFF, TOPLEFT; 2 instances
}

// A code table with OOB (prefix size 2, range size 1): 0..1 as "0"+1 bit, 2..3
// as "10"+1 bit, no lower nor upper range line (prefix lengths 0), OOB "11".
Bytes userTableForDS() {
    return cat({{0x03}, be(0), be(4),
                BitWriter().value(1, 2).value(1, 1).value(2, 2).value(1, 1).value(0, 4).value(2, 2).bytes()});
}

// A 10x3 page holding `segments`, then its end.
Bytes page10x3(std::initializer_list<Bytes> segments, unsigned char flags = 0) {
    return cat({pageSeg(0, 10, 3, flags), cat(segments), segment(4, 49, {}, {})});
}

// A pattern dictionary of 2x1 patterns, MMR-coded: pattern 0 "##" when
// GRAYMAX is 0, else patterns "..", "##".
Bytes patternDictionary(uint32_t graymax) {
    return cat({{0x01, 2, 1}, be(graymax), mmrRows({graymax == 0 ? "##" : "..##"})});  // HDMMR, HDPW, HDPH
}

// Halftone header: region w x h, grid gw x gh from (0,0), vector (2,0).
Bytes halftoneHeader(uint32_t w, uint32_t h, uint32_t gw, uint32_t gh, unsigned char flags) {
    return cat({regionInfo(w, h, 0, 0, 0), {flags}, be(gw), be(gh), be(0), be(0), be(0x200, 2), be(0, 2)});
}

// Arithmetic coding of one plane with template 3 and A1 at (2,-1), skipping
// cells marked in `skip`; the contexts are keyed by the neighbourhood itself.
Bytes encodePlane(const Rows& plane, const Rows& skip) {
    MQEncoder enc;
    std::map<uint32_t, unsigned short> cx;
    const int w = static_cast<int>(plane[0].size()), h = static_cast<int>(plane.size());
    auto px = [&](int x, int y) -> uint32_t { return x >= 0 && y >= 0 && x < w && y < h && plane[y][x] == '1'; };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (!skip.empty() && skip[y][x] == '1') continue;
            uint32_t c = 0;
            for (int i = -3; i <= 1; ++i) c = (c << 1) | px(x + i, y - 1);
            for (int i = -4; i <= -1; ++i) c = (c << 1) | px(x + i, y);
            enc.encode(cx[(c << 1) | px(x + 2, y - 1)], plane[y][x] == '1');
        }
    return enc.flush();
}

// A halftone region over a pattern dictionary (of `dictType`; 0: none).
Bytes halftone(uint32_t w, uint32_t h, uint32_t graymax, const Bytes& region, int dictType = 16) {
    const Bytes dict = dictType == 16 ? patternDictionary(graymax) : Bytes(4, 0);
    return cat({pageSeg(0, w, h), dictType ? segment(1, dictType, {}, dict) : Bytes(),
                segment(2, 22, dictType ? std::vector<uint32_t>{1} : std::vector<uint32_t>{}, region),
                segment(3, 49, {}, {})});
}

}  // namespace

TEST(Jbig2SymbolText, Streams) {
    const Rows twoInstances = {".#.##.#...", "..#..#....", ".#.##.#..."};
    const Bytes both = segment(1, 0, {}, dictionary(true, {0, 2}, 2));
    const Bytes second = segment(1, 0, {}, dictionary(true, {1, 1}, 1));
    const Bytes reexport = segment(2, 0, {1}, dictionary(false, {1, 1}, 1));
    const Bytes text = segment(3, 6, {1}, textRegion(0x1F, false));
    // A 4x3 region, a 3x2 grid of 2x1 cells whose third column lies outside.
    const Rows plane = {"101", "011"}, cells = {"##..", "....", "..##"};
    const Bytes ht = halftoneHeader(6, 2, 2, 1, 0x01);
    checkDecodeCases({
        {"re-export with no new symbols; SBDSOFFSET 11111 pulls the second instance left: S = 3 + 2 - 1",
         page10x3({both, reexport, segment(3, 6, {2}, textRegion(0x1F, false))}), JBIG2_SUCCESS, twoInstances},
        {"SBDSOFFSET 1: S = 3 + 2 + 1", page10x3({both, reexport, segment(3, 6, {2}, textRegion(1, false))}),
         JBIG2_SUCCESS, {".#.#..#.#.", "..#....#..", ".#.#..#.#."}},
        {"export runs 1, 1: the second symbol", page10x3({second, text}), JBIG2_SUCCESS, twoInstances},
        {"export runs 0, 1, 1: the first symbol", page10x3({segment(1, 0, {}, dictionary(true, {0, 1, 1}, 1)), text}),
         JBIG2_SUCCESS, {".####.....", "..#.#.....", ".####....."}},
        {"an export run past the symbol count", page10x3({segment(1, 0, {}, dictionary(true, {0, 3}, 2))}),
         JBIG2_INVALID_DATA, {}},
        {"zero export runs for ever: invalid data, not a hang",
         page10x3({segment(1, 0, {}, dictionary(true, std::vector<uint32_t>(40, 0), 2))}), JBIG2_INVALID_DATA, {}},
        {"IDS by a referred code table segment",
         page10x3({second, segment(2, 53, {}, userTableForDS()), segment(3, 6, {1, 2}, textRegion(0x1F, true))}),
         JBIG2_SUCCESS, twoInstances},
        {"a user table selected with no code table referred",
         page10x3({second, segment(3, 6, {1}, textRegion(0x1F, true))}), JBIG2_INVALID_DATA, {}},
        // On a black page the region (white) replaces the page's pixels by its
        // own operator (REPLACE); SBCOMBOP XOR only places the symbols in it.
        {"the region operator composes with the page, SBCOMBOP places symbols",
         page10x3({second, segment(3, 6, {1}, textRegion(0x1F, false, 4, 2))}, 0x04), JBIG2_SUCCESS, twoInstances},
        {"a referred segment that doesn't exist", page10x3({segment(3, 6, {9}, textRegion(0x1F, false))}),
         JBIG2_INVALID_DATA, {}},
        {"a text region over no symbols", page10x3({segment(3, 6, {}, textRegion(0x1F, false))}), JBIG2_INVALID_DATA,
         {}},
        {"a dictionary of 9 bytes", page10x3({segment(1, 0, {}, Bytes(9, 0))}), JBIG2_INVALID_DATA, {}},
        {"halftone: GRAYMAX 0 has no planes, every cell draws pattern 0", halftone(6, 2, 0, ht), JBIG2_SUCCESS,
         {"####..", "......"}},
        {"halftone: HENABLESKIP leaves outside cells uncoded",
         halftone(4, 3, 1, cat({halftoneHeader(4, 3, 3, 2, 0x08 | 0x06), encodePlane(plane, {"001", "001"})})),
         JBIG2_SUCCESS, cells},
        {"halftone: without skipping",
         halftone(4, 3, 1, cat({halftoneHeader(4, 3, 3, 2, 0x06), encodePlane(plane, {})})), JBIG2_SUCCESS, cells},
        {"halftone: no referred segment", halftone(6, 2, 0, ht, 0), JBIG2_NO_REFERRED, {}},
        {"halftone: a referred segment that isn't a pattern dictionary", halftone(6, 2, 0, ht, 62),
         JBIG2_BAD_REFERRED_TYPE, {}},
    });
}

// Found by fuzz_jbig2: past the end of its data the arithmetic decoder feeds
// 1-bits without consuming anything, and this text region's instance count,
// taken from the data, kept it decoding for seconds. It stops as invalid.
TEST(Jbig2SymbolText, InstancesDecodedPastTheEndOfTheDataStop) {
    const Bytes file = fromHex(
        "974a42320d0a1a0a010000000100000000300001000000130000018f000001900000000000000000010000000000010001010000"
        "01d1000031fffdff02fefefe0000000700000007278ae7b92111361730dd9c9593f374544998f4c70d051aff41eed363b152e0a9"
        "73ac02bc9b060e6d838dcdc9521ba6207ab7ba637a9c8a4c1e1fd3447cbe67413323fc5c507c4f08f5f65247bc923fc1c6ceba3a"
        "4c5ea2d08e5bab9cb0762e32b7e08ab212747d7d87942ec055e7e6a842ff322cab4b4e002b9666fed375c3d8516ff36f5764173d"
        "6107346b508951b3fb64076e1d1857001e7c447acbe001a3ace869ce0f7c7b5b8669ac34556dfe8c238fd6a9668e2eed742bbef5"
        "d0ae892e3e0071c436eb5182b8634db9e999f0b85f5aee090f59fd31ac416f0fadb47574b61312905ef3379dc2d19e805b1867a6"
        "266f0fe761bd2f977b421b5ca4d6ba22fb59c70bb11184b82e213d187787e8d31ab5218212a50a8f1c1a6eb7b90a037f9adab243"
        "0e4777cde7508a4e5f1b6fa71f69c8d9e5d4f80a25c46d8419777756a94bd489926e8f0e4e949857a082d23c7b765096edff43ac"
        "8e953de202702a499829c37f00c0cd0e8fc3270fd6a12037384eb0a2636b0d4cb4c5ac9f1e907704c1ec64ca9433daff42166675"
        "2d4db41b439ab1aa7f8b5a110d61d8e5e3fe2fdae50a634d90ab55f4f1df70eaff6e39b829393aecb4801784d564d652bfffac00"
        "000002062001010000003a0000018f00000190000000444444444444444444444444ffffffffffff022544444444444444440000"
        "000000000d15000000000005201200000000000000000000000000000006d47c75a13e5d7ddced65fc082a7ce400000003310001"
        "00000000");
    EXPECT_EQ(decodeJbig2(file, Form::File).result, JBIG2_INVALID_DATA);
    // The guard itself: once the decoder has run out of data, a bounded number
    // of strips and instances, then invalid.
    const unsigned char none = 0;
    StepDataReader empty(&none, 0);
    ArithmeticDecoderState state(&empty);
    TextRegionDecodeVar v;
    v.state = &state;
    for (int i = 0; i < 100000; ++i) v.checkExhausted();
    state.pastEnd = 1;
    EXPECT_EQ(thrownBy([&] {
                  for (int i = 0; i < 100000; ++i) v.checkExhausted();
              }),
              JBIG2_INVALID_DATA);
    EXPECT_EQ(v.checksPastEnd, 65537u);
}

TEST(Jbig2Halftone, PatternIndexPastGraymaxAsserts) {
    Bytes d = patternDictionary(0);
    StepDataReader reader(d.data(), d.size());
    PatternDictionarySegment dict;
    dict.decode(reader);
    EXPECT_EQ(dict.getPatternCount(), 1u);
    EXPECT_DEATH(dict.getImage(1),
                 "GraphicServiceModule/jbig2/patterndictionarysegment.cpp:.*index < m_patterns.size()");
}

TEST(Jbig2Extension, AsciiCommentPairsAreKept) {
    Bytes d = be(0x20000000);
    for (const char* s : {"Title", "Test", "Author", "me", "", ""}) d.insert(d.end(), s, s + std::strlen(s) + 1);
    StepDataReader reader(d.data(), d.size());
    ExtensionSegment ext;
    ext.decode(reader);
    ASSERT_EQ(ext.comments.size(), 2u);
    EXPECT_EQ(ext.comments[1].first, "Author");
    EXPECT_EQ(ext.comments[1].second, "me");
    EXPECT_EQ(reader.getPosition(), d.size());
}
