// JBIG2Dec and Jbig2ToRGB_New, the second JBIG2 decoder: streams by the rows
// of its table of differences from the jbig2:: decoder and by its edge cases,
// the corpus against reference/bitmap.bmp, and PDF images against jbig2dec -e.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "PDFKilnPage/PDFKilnPage.h"
#include "corpus_util.h"
#include "jbig2_test_support.h"
#include "pdf_builder.h"

using namespace jbig2test;

namespace {

// What Jbig2ToRGB_New hands out: 0 is black.
struct NewResult { int rc = -1; Bytes bytes; bool outSet = false; };

NewResult callNew(const Bytes& data, const Bytes& globals, bool globalsNull = false) {
    NewResult r;
    unsigned char* out = reinterpret_cast<unsigned char*>(0x1);
    unsigned int size = 12345;
    r.rc = Jbig2ToRGB_New(reinterpret_cast<const char*>(data.data()), static_cast<int>(data.size()),
                          globalsNull ? nullptr : reinterpret_cast<const char*>(globals.data()),
                          static_cast<int>(globals.size()), &out, &size);
    if (out != reinterpret_cast<unsigned char*>(0x1) && (r.outSet = out != nullptr)) {
        r.bytes.assign(out, out + size);
        std::free(out);
    }
    return r;
}

// Rows packed as Jbig2ToRGB_New hands them out: 0 black, padding bits white.
Bytes packInverted(const Rows& rows) {
    BitWriter w;
    for (const std::string& row : rows) {
        for (char c : row) w.bit(c == '.');
        for (std::size_t i = row.size(); i % 8; ++i) w.bit(true);
    }
    return w.bytes();
}

// JBIG2Dec after decoding `data` with `globals`, and its page's rows (1 black).
std::unique_ptr<JBIG2Dec> runDec(const Bytes& data, const Bytes& globals = {}) {
    const std::string d(data.begin(), data.end()), g(globals.begin(), globals.end());
    auto dec = std::make_unique<JBIG2Dec>(&d, &g);
    dec->decode();
    return dec;
}
Rows decRows(const Bytes& data, const Bytes& globals = {}) {
    const auto dec = runDec(data, globals);
    const JBIG2Bitmap* b = dec->getPageBitmap();
    return b ? fromPacked(b->getWidth(), b->getHeight(), b->getLineSize(), b->getDataPtr()).rows() : Rows();
}

// A segment header with the long form of the referred-segment count, and the
// retention bytes as this decoder counts them: (count + 9) / 8.
Bytes longFormSegment(uint32_t number, int type, const std::vector<uint32_t>& refs, const Bytes& data) {
    return cat({be(number), {static_cast<unsigned char>(type)}, be(0xE0000000u | static_cast<uint32_t>(refs.size())),
                Bytes((refs.size() + 9) / 8, 0), Bytes(refs.begin(), refs.end()), {1},
                be(static_cast<uint32_t>(data.size())), data});
}

// Pattern dictionary (MMR, GRAYMAX 1) of two 2x2 patterns, `first` then `second`.
Bytes twoPatterns(const std::string& first = "..", const std::string& second = "##") {
    return cat({{0x01, 2, 2}, be(1), mmrRows({first + second, first + second})});
}

// Halftone region 4x2 (HMMR) over a 2x1 grid from (0, 0), cell pitch 2 (HRX),
// grey plane "10".
Bytes halftoneOverPatterns() {
    return cat({regionInfo(4, 2, 0, 0, 0), {0x01}, be(2), be(1), be(0), be(0), be(2 << 8, 2), be(0, 2),
                mmrRows({"#."}, true)});
}

// A user table of 20 lines, 17 bytes of line data where the jbig2:: decoder
// sees nine (values 0..19 by prefix length 5; range lines of prefix length 6),
// giving the heights (SDHUFFDH 3) of a dictionary whose one symbol has height
// 11 (01011, past the ninth byte), width 3 (B.2), OOB, BMSIZE 0 and export
// runs 0, 1 (B.1); a text region (tables F, H, K) places it at (0, 0).
Bytes codeTableOf20Lines() {
    BitWriter lines, head, runs, text;
    for (int i = 0; i < 20; ++i) lines.value(5, 5).value(0, 1);
    lines.value(6, 5).value(6, 5).align();
    head.bits("01011" "1110000" "111111" "00000").align();
    runs.bits("00000" "00001").align();
    Bytes glyph(11, 0x00);
    glyph[10] = 0xE0;
    oneSymbolIdTable(text);
    // STRIPT -1 and the strip's DT 1 (B.11), FS 0 (B.6), symbol 0, OOB (B.8).
    text.bits("0" "0" "000000000" "0" "01").align();
    return cat({segment(1, 53, {}, cat({{4 << 1}, be(0), be(20), lines.bytes()})),
                segment(2, 0, {1}, cat({be(0x000D, 2), be(1), be(1), head.bytes(), glyph, runs.bytes()})),
                pageSeg(3, 8, 11),
                segment(4, 6, {2}, cat({regionInfo(8, 11, 0, 0, 0), be(0x0011, 2), be(0, 2), be(1), text.bytes()}))});
}

// A 4x3 refinement region at x 2 with no referred segment: `target` coded by
// template 1 against that part of `page` (0 outside it).
Bytes refinementOfThePage(const Rows& page, const Rows& target) {
    const int rx0 = 2, w = 4, h = 3;
    auto refPx = [&](int x, int y) { return (x < 0 || y < 0 || x >= w || y >= h) ? 0 : page[y][rx0 + x] == '#'; };
    auto curPx = [&](int x, int y) { return (x < 0 || y < 0 || x >= w || y >= h) ? 0 : target[y][x] == '#'; };
    MQEncoder enc;
    std::vector<unsigned short> cx(1 << 10, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            enc.encode(cx[curPx(x - 1, y) | (curPx(x + 1, y - 1) << 1) | (curPx(x, y - 1) << 2) |
                          (curPx(x - 1, y - 1) << 3) | (refPx(x + 1, y + 1) << 4) | (refPx(x, y + 1) << 5) |
                          (refPx(x + 1, y) << 6) | (refPx(x, y) << 7) | (refPx(x - 1, y) << 8) |
                          (refPx(x, y - 1) << 9)],
                       curPx(x, y));
    return cat({regionInfo(w, h, rx0, 0, 0), {0x01}, enc.flush()});  // template 1
}

}  // namespace

// Each stream's page as JBIG2Dec holds it, and the same page inverted out of
// Jbig2ToRGB_New (always 0, a block even when empty; no page: no bytes).
TEST(Jbig2Dec, Streams) {
    const Bytes patterns = segment(1, 16, {}, twoPatterns());
    const Bytes pageAndHalftone = cat({pageSeg(2, 4, 2), segment(3, 22, {1}, halftoneOverPatterns())});
    const Bytes globalPage = cat({pageSeg(1, 8, 1), mmrSeg(2, 0, 0, 0, {"####...."})}), page8x1 = pageSeg(1, 8, 1);
    const Bytes unknownLength =
        cat({regionInfo(8, 0xFFFFFFFFu, 0, 0, 0), {0x01}, mmrRows({"##....##", "..####.."}), {0, 0}, be(2)});
    // Arithmetic, template 0, TPGDON.
    const Bytes widthZero =
        cat({regionInfo(0, 0x7FFFFFFEu, 0, 0, 0), {0x08, 3, 0xFF, 0xFD, 0xFF, 2, 0xFE, 0xFE, 0xFE}, Bytes(16, 0x00)});
    // A text region promising 2^32-1 instances over an empty dictionary.
    const Bytes emptyDict = cat({be(0x0001, 2), be(0), be(0), {0x00}});
    const Bytes manyInstances = cat({regionInfo(8, 8, 0, 0, 0), be(0, 2), be(0xFFFFFFFFu), Bytes(32, 0x00)});
    Bytes truncated = cat({pageSeg(1, 8, 3), mmrSeg(2, 0, 0, 0, Rows(3, "########"))});
    truncated.resize(truncated.size() - 2);
    Rows tallSymbol(10, "........");
    tallSymbol.push_back("###.....");
    const Rows refined = {"####....", "####....", "####...."};
    const struct {
        const char* what;
        Bytes data, globals;
        Rows rows;
    } cases[] = {
        // Row "/JBIG2Globals: read first".
        {"a dictionary in the globals serves the page data", pageAndHalftone, patterns, {"##..", "##.."}},
        {"without the globals the halftone is dropped", pageAndHalftone, {}, {"....", "...."}},
        {"the same segments all in the data", cat({patterns, pageAndHalftone}), {}, {"##..", "##.."}},
        {"the globals are searched before the page segments", cat({patterns, pageAndHalftone}),
         segment(1, 16, {}, twoPatterns("##", "##")), {"####", "####"}},
        {"a page in the globals is the page", {}, globalPage, {"####...."}},
        {"until the data has one", pageSeg(3, 8, 2), globalPage, {"........", "........"}},
        // Row "pixel sense of the result: inverted, 0 black".
        {"padding bits come out white", cat({pageSeg(1, 12, 2), mmrSeg(2, 0, 0, 0, {"####....####", ".......#...#"})}),
         {}, {"####....####", ".......#...#"}},
        // Row "result: always 0", and the edge cases of the entry.
        {"empty data without globals", {}, {}, {}},
        {"a stream without page information", patterns, {}, {}},
        // Row "file header: none, embedded only".
        {"a file header is read as segments and gives no page",
         cat({{0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n', 0x01}, page8x1, mmrSeg(2, 0, 0, 0, {"########"})}), {}, {}},
        // Row "end of page: ignored" (end of file, stripe, profiles, extensions: skipped).
        {"segments after an end of page are still decoded",
         cat({pageSeg(1, 8, 2), mmrSeg(2, 0, 0, 0, {"##......"}), segment(3, 49, {}, {}), segment(4, 51, {}, {}),
              segment(5, 50, {}, {0, 0, 0, 1}), segment(6, 52, {}, {1, 2, 3}), segment(7, 62, {}, {0x20, 0, 0, 0, 0}),
              mmrSeg(8, 0, 1, 0, {"......##"})}),
         {}, {"##......", "......##"}},
        {"a second page replaces the first",
         cat({page8x1, mmrSeg(2, 0, 0, 0, {"########"}), segment(3, 49, {}, {}), pageSeg(4, 4, 1)}), {}, {"...."}},
        // Row "long-form reference count: full" (a halftone needs exactly one).
        {"a halftone finds its dictionary through the long form",
         cat({patterns, pageSeg(2, 4, 2), longFormSegment(3, 22, {1}, halftoneOverPatterns())}), {}, {"##..", "##.."}},
        // Row "failure: read stops, what stands is returned".
        {"a truncated header ends decoding and keeps the page",
         cat({page8x1, mmrSeg(2, 0, 0, 0, {"####...."}), {0, 0, 0, 3, 38, 0}}), {}, {"####...."}},
        {"a region before any page ends the loop", cat({mmrSeg(1, 0, 0, 0, {"####...."}), page8x1}), {}, {}},
        {"a missing referred segment drops the region and decoding goes on",
         cat({pageSeg(1, 4, 2), segment(3, 22, {9}, halftoneOverPatterns()), mmrSeg(4, 0, 1, 0, {".##."})}), {},
         {"....", ".##."}},
        {"a truncated segment decodes what it holds", truncated, {}, {"########", "########", "........"}},
        // Rows "striped page growth", "page height unknown", "default pixel of added rows".
        {"an unknown height starts at the maximum stripe and grows",
         cat({pageSeg(1, 8, 0xFFFFFFFFu, 0, 0x8000 | 2), mmrSeg(2, 0, 0, 0, {"#......."}),
              segment(3, 50, {}, {0, 0, 0, 1}), mmrSeg(4, 0, 3, 0, {".......#", "......##"})}),
         {}, {"#.......", "........", "........", ".......#", "......##"}},
        {"added rows take the page default pixel",
         cat({pageSeg(1, 8, 0xFFFFFFFFu, 0x04, 0x8000 | 1), mmrSeg(2, 0, 3, 4, {"....####"})}), {},
         {"########", "########", "########", "....####"}},
        {"a known height does not grow",
         cat({pageSeg(1, 8, 2, 0, 0x8000 | 1), mmrSeg(2, 0, 1, 0, {"########", "########"})}), {},
         {"........", "########"}},
        {"an unknown height without striping starts empty",
         cat({pageSeg(1, 8, 0xFFFFFFFFu), mmrSeg(2, 0, 1, 0, {"#......#"})}), {}, {"........", "#......#"}},
        // Row "page operator bits: 3 and 4": the page's (XOR) leaves the regions' own.
        {"regions compose by their own operator",
         cat({pageSeg(1, 8, 1, 0x10), mmrSeg(2, 0, 0, 0, {"####...."}), mmrSeg(3, 0, 0, 0, {"..####.."}),
              mmrSeg(4, 0, 0, 2, {"#......#"}), mmrSeg(5, 0, 0, 1, {".#######"}), mmrSeg(6, 4, 0, 4, {"#..#"})}),
         {}, {".####..#"}},
        // Bounds: raster sizes and work by the budget, reads by the data.
        {"a huge instance count ends with the data",
         cat({segment(1, 0, {}, emptyDict), pageSeg(2, 8, 8), segment(3, 6, {1}, manyInstances)}), {},
         Rows(8, "........")},
        {"an unknown-length generic region ends at its marker",
         cat({pageSeg(1, 8, 3), segment(2, 38, {}, unknownLength, 0xFFFFFFFFu), mmrSeg(3, 0, 2, 0, {"########"})}), {},
         {"##....##", "..####..", "########"}},
        {"a region of width zero and many rows costs its rows: the read stops there",
         cat({page8x1, segment(2, 38, {}, widthZero), mmrSeg(3, 0, 0, 0, {"########"})}), {}, {"........"}},
        {"a code table segment reads all its lines", codeTableOf20Lines(), {}, tallSymbol},
        {"no referred segment refines the page",
         cat({pageSeg(1, 8, 3), mmrSeg(2, 0, 0, 0, refined),
              segment(3, 42, {}, refinementOfThePage(refined, {".##.", "#..#", "####"}))}),
         {}, {"##.##...", "###..#..", "######.."}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(decRows(c.data, c.globals), c.rows);
        const NewResult n = callNew(c.data, c.globals);
        EXPECT_EQ(n.rc, 0);
        EXPECT_TRUE(n.outSet);
        EXPECT_EQ(n.bytes, packInverted(c.rows));
    }
}

TEST(Jbig2Dec, EntryEdgeCases) {
    const Bytes data = cat({pageSeg(2, 4, 2), segment(3, 22, {1}, halftoneOverPatterns())});
    EXPECT_EQ(callNew(data, {}, true).bytes, (Bytes{0xFF, 0xFF})) << "a null globals pointer is no globals";
    for (int seed = 0; seed < 200; ++seed) {
        Bytes junk(static_cast<std::size_t>(seed * 7 % 300));
        uint32_t v = static_cast<uint32_t>(seed) * 2654435761u + 1;
        for (unsigned char& c : junk) c = static_cast<unsigned char>((v = v * 1103515245u + 12345u) >> 24);
        EXPECT_EQ(callNew(junk, Bytes(junk.begin(), junk.begin() + static_cast<long>(junk.size() / 3))).rc, 0);
    }
    // Negative sizes are no data; a null out pointer is tolerated.
    unsigned char* out = nullptr;
    unsigned int size = 7;
    EXPECT_EQ(Jbig2ToRGB_New("x", -5, "y", -1, &out, &size), 0);
    EXPECT_EQ(size, 0u);
    std::free(out);
    EXPECT_EQ(Jbig2ToRGB_New(nullptr, 0, nullptr, 0, nullptr, nullptr), 0);
    // Hostile page sizes are refused at once.
    for (uint32_t w : {0x7FFFFFFFu, 0xFFFFFFFFu, 100000u})
        for (uint32_t h : {0x7FFFFFFEu, 100000u}) {
            const NewResult r = callNew(pageSeg(1, w, h), {});
            EXPECT_EQ(r.rc, 0);
            EXPECT_TRUE(r.bytes.empty()) << w << "x" << h;
        }
}

// The decoder holds 1 as black; getBlock hands its bytes out in pieces.
TEST(Jbig2Dec, GetBlockHandsOutTheBytesInPieces) {
    const auto dec = runDec(cat({pageSeg(1, 12, 2), mmrSeg(2, 0, 0, 0, {"####....####", ".......#...#"})}));
    ASSERT_EQ(dec->getStmSize(), 4);
    char b[3];
    EXPECT_EQ(dec->getBlock(b, 3), 3);
    EXPECT_EQ(Bytes(b, b + 3), (Bytes{0xF0, 0xF0, 0x01}));
    EXPECT_EQ(dec->getStmSize(), 1);
    EXPECT_EQ(dec->getBlock(b, 3), 1);
    EXPECT_EQ(static_cast<unsigned char>(b[0]), 0x10);
    EXPECT_EQ(dec->getBlock(b, 3), 0);
}

TEST(Jbig2Dec, LongFormCountIsTheLow29BitsAndTheRetentionBytesAreSkipped) {
    for (uint32_t count : {0u, 5u, 6u, 7u, 8u, 9u, 15u, 20u}) {
        std::vector<uint32_t> refs(count);
        for (uint32_t i = 0; i < count; ++i) refs[i] = i;
        const Bytes data = cat({pageSeg(1, 8, 1), longFormSegment(2, 38, refs, genericMMR(0, 0, 0, {"#.#.#.#."}))});
        const auto dec = runDec(data);
        EXPECT_EQ(dec->getLastRefCount(), count);
        EXPECT_EQ(dec->getSegmentHeadersRead(), 2);
        EXPECT_EQ(decRows(data), Rows{"#.#.#.#."}) << count;
    }
    // A huge count (0x1fffffff) is bounded by the input.
    const auto dec = runDec(cat({pageSeg(1, 8, 1), be(2), {38}, be(0xFFFFFFFFu), Bytes(64, 0)}));
    EXPECT_EQ(dec->getLastRefCount(), 0x1fffffffu);
    EXPECT_EQ(dec->getSegmentHeadersRead(), 1);
    EXPECT_NE(dec->getPageBitmap(), nullptr);
}

TEST(Jbig2Dec, ExpandRefusesToShrinkAndHugeSizes) {
    JBIG2Bitmap b(0, 16, 2);
    b.setPixel(3, 1);
    EXPECT_FALSE(b.expand(2, 1) || b.expand(1, 1) || b.expand(0x7FFFFFFF, 0));
    EXPECT_EQ(b.getHeight(), 2);
    EXPECT_TRUE(b.expand(4, 1));
    EXPECT_EQ(b.getHeight(), 4);
    EXPECT_EQ(b.getPixel(3, 1), 1);
    EXPECT_EQ(b.getPixel(0, 1), 0);
    EXPECT_EQ(b.getPixel(15, 3), 1);
    EXPECT_EQ(b.getDataPtr()[b.getDataSize()], 0) << "one byte more than the rows, kept at 0";
}

TEST(Jbig2Dec, TheDefaultOperatorComesFromFlagBits3And4) {
    const struct { unsigned char flags; unsigned op; } cases[] = {{0x00, 0}, {0x08, 1}, {0x10, 2}, {0x18, 3},
                                                                  {0x20, 0}, {0x30, 2}, {0x04, 0}, {0x3C, 3}};
    for (const auto& c : cases) EXPECT_EQ(runDec(pageSeg(1, 8, 1, c.flags))->getPageDefCombOp(), c.op) << int(c.flags);
}

// A few hundred bytes asking for 38 regions of 4000x4000 stop at the budget.
TEST(Jbig2Dec, ManyLargeRegionsStopAtTheBudget) {
    Bytes data = pageSeg(1, 4000, 4000);
    for (uint32_t n = 2; n < 40; ++n)
        data = cat({data, segment(n, 38, {}, cat({regionInfo(4000, 4000, 0, 0, 0), {0x01}}))});
    const auto dec = runDec(data);
    ASSERT_NE(dec->getPageBitmap(), nullptr);
    EXPECT_EQ(dec->getStmSize(), 500 * 4000);
    EXPECT_LT(dec->getSegmentHeadersRead(), 39);
}

// Fuzzer inputs (a length byte L, the globals, R*L/255 bytes, then the data)
// that once ran for seconds: ever wider symbols, a generic region of width 0
// and 2^31-1 rows, an MMR region of 0 rows and a width near 2^31 (8 GB).
TEST(Jbig2Dec, InputsTheFuzzerFoundEndQuicklyAndSmall) {
    const char* const slowInputs[] = {
        "c3000000010001010000016800150000000500000005f25dfbf7fa16f240ca81c20c20e1061074d3a69fe9a7fa69ffffffff69afda6b"
        "f69ab4d430830a18418511e0f75f800000067e9240f94a2841c20e9d3f4fd3f5ad775ad7d69d69f84eb0b09d69c2d69cffffffffffff"
        "ffebebafaafaeabaafad2f4bd2f095697a5aaeabaaeabad505e95697a505858250b0942c25094250b5a50b4ab09425082841420a1052"
        "0c14a105040a50071082841505416a961505ad6161616158585616159051b48c1430a191ec5c70014000000000300001000000130000"
        "018f000001900000000000000000010000000800020620010100ff1300003e0000018f000001900000000000000000000d1500150000"
        "0005001100000000000000000000000000000005007ebcd08f969f7375593fc00000016d52bc000000000331000100000000",
        "0000000000300001000000130000018f00000190000000000000000001000000000001270001000000f2000000000cc9000000000000"
        "00000000000000000000000000813afd66fa4f02c1347d233ac5a872ea33d73a9551488457259a0ab1bfa3846eacd13576246ce870e6"
        "31ff4dcec7698478673b43a7dbd8ea85cf05f91990fa10f64eaa6e777cb61c92585f640e21af1c2657af1c2657d0792c5116d965b5b9"
        "204e27e5e458869e8a2a51a20d94ff49f733b03a1745ef6d60bf6f142e2dcf76c5a8e78d06ed574c5bf2a9a09e6ba12d5447eff03719"
        "254c2af63bff0000018f000001900000000000000000000a11feb6c164a66a68066bc68da504cd4867940d6bcc4b48fcfba8032d4c6e"
        "850b0be0077d110bf010abd852c9e0e954570d9df42030b93cb09c36cd4251edbae81c766450f8e1961bb8c864d73ea299f98c39ce0e"
        "f6ce40094d96dab175963af6b02c42ec0809ffac0000000231000100000000",
        "0000000000300001000000130000018f0000019000000000000000000100000000000127000100007cd67ef171a000000000000001da"
        "b4c6b792880d836d0968212632e7d05f6e94eff6279d83b6a049ff3713885b4887e5bdb45e8a1ae1ee460d0714905fffac0000000231"
        "000100000000"};
    for (const char* hex : slowInputs) {
        const Bytes in = fromHex(hex);
        const auto split = in.begin() + 1 + static_cast<std::ptrdiff_t>((in.size() - 1) * in[0] / 255);
        EXPECT_EQ(callNew(Bytes(split, in.end()), Bytes(in.begin() + 1, split)).rc, 0);
    }
}

TEST(Jbig2DecMMR, EOFBClosesDataOfUnknownLength) {
    Bytes bytes = cat({mmrRows({".##."}, true), Bytes{0xAB}});
    JBIG2ByteInput in(bytes.data(), bytes.size());
    JBIG2MMRDecoder m;
    m.setInput(&in, bytes.size());
    const std::vector<int> codes = {m.get2DCode(), m.getWhiteCode(), m.getBlackCode(),
                                    m.get2DCode(), m.getWhiteCode(), m.getBlackCode()};  // read in this order
    EXPECT_EQ(codes, (std::vector<int>{JBIG2MMRDecoder::twoDimHoriz, 1, 2, JBIG2MMRDecoder::twoDimHoriz, 1, 0}));
    EXPECT_EQ(m.get24Bits(), 0x001001u);
    m.skipToByteBoundary();
    m.finish(false);
    EXPECT_EQ(in.getPos(), bytes.size() - 1);
}

TEST(Jbig2DecCorpus, EveryListedFileMatchesReferenceInverted) {
    if (!haveCorpus()) GTEST_SKIP() << "corpus not present";
    const Bitmap reference = readBmp(kCorpus + "/reference/bitmap.bmp");
    ASSERT_TRUE(reference.ok);
    walkCorpus("explained-jbig2dec.txt", [&](const std::string& name, const Bytes& file) -> std::string {
        const NewResult plain = callNew(toEmbedded(file), {}), split = callNew(pickSegments(file, isPageData),
                                                                               pickSegments(file, isGlobal));
        EXPECT_EQ(plain.rc, 0) << name;
        EXPECT_EQ(split.rc, 0) << name;
        EXPECT_EQ(split.bytes, plain.bytes) << name << ": the globals form differs from the plain embedded form";
        // Pixels only: the padding bits of the composite files' rows differ.
        const Bitmap got = fromRows(plain.bytes, reference.width, true);
        if (samePixels(got, reference)) return "";
        return "differs (" + std::to_string(got.width) + "x" + std::to_string(got.height) + ", " +
               std::to_string(plain.bytes.size()) + " bytes)";
    });
}

// The JBIG2 images of PDF files by `pdfkiln jbig2 FILE.pdf --all` (Jbig2ToRGB_New)
// against jbig2dec -e on the same globals and data: the corpus PDFs with
// /JBIG2Globals and, as Debian has no JBIG2 encoder, a PDF of the JBIG2 corpus
// files split into globals and page data.
TEST(Jbig2DecPdf, EveryJbig2ImageOfAPdfMatchesJbig2decOnTheSameGlobalsAndData) {
    if (!haveCorpus()) GTEST_SKIP() << "corpus not present";
    if (!testutil::exists(PDFKILN_TOOL)) GTEST_SKIP() << "no pdfkiln tool";
    testutil::TempDir tmp;
    ASSERT_FALSE(tmp.path.empty());
    const auto tool = [&](const std::string& pdf) {
        return testutil::run(testutil::quote(PDFKILN_TOOL) + " jbig2 " + testutil::quote(pdf) + " --all -o " +
                             testutil::quote(tmp.file("img.pbm")));
    };
    int corpusPdfs = 0;
    for (const std::string& rel : corpus::available() ? corpus::qpdfFiles() : std::vector<std::string>()) {
        const std::string path = corpus::root() + "/qpdf/" + rel, text = testutil::readFile(path);
        if (text.find("/JBIG2Decode") == std::string::npos || text.find("/JBIG2Globals") == std::string::npos) continue;
        ++corpusPdfs;
        EXPECT_EQ(tool(path), 0) << path;
    }
    std::printf("corpus PDFs with /JBIG2Decode and /JBIG2Globals: %d\n", corpusPdfs);

    const Bitmap reference = readBmp(kCorpus + "/reference/bitmap.bmp");
    ASSERT_TRUE(reference.ok);
    struct Image { Bytes globals, data; int object; };
    std::map<std::string, Image> images;
    pdftest::PdfBuilder pdf("%PDF-1.5");
    pdf.catalog();
    int object = 3;
    for (const std::string& name : listedFiles()) {
        const Bytes file = readFile(kCorpus + "/" + name);
        const Image& im = images[name] = {pickSegments(file, isGlobal), pickSegments(file, isPageData), object};
        const std::string parms = " /DecodeParms << /JBIG2Globals " + std::to_string(object + 1) + " 0 R >>";
        pdf.stream(object, "/Type /XObject /Subtype /Image /Width " + std::to_string(reference.width) + " /Height " +
                               std::to_string(reference.height) +
                               " /ColorSpace /DeviceGray /BitsPerComponent 1 /Filter /JBIG2Decode" +
                               (im.globals.empty() ? "" : parms),
                   std::string(im.data.begin(), im.data.end()));
        pdf.stream(object + 1, "", std::string(im.globals.begin(), im.globals.end()));
        object += 2;
    }
    pdf.startxref(pdf.xrefTable("/Root 1 0 R"));
    testutil::writeFile(tmp.file("jbig2-images.pdf"), pdf.str());
    ASSERT_EQ(tool(tmp.file("jbig2-images.pdf")), 0);
    std::map<std::string, Bitmap> ours;
    for (const auto& [name, im] : images) {
        ours[name] = readPbm(tmp.file("img-" + std::to_string(im.object) + ".pbm"));
        EXPECT_TRUE(samePixels(ours[name], reference)) << name << ": the tool's image is not the reference";
    }
    if (!haveJbig2dec()) GTEST_SKIP() << "no jbig2dec to compare with";

    // Where jbig2dec -e differs, it reads the original file the same other way.
    walkCorpus(
        "explained-jbig2dec-pdf.txt",
        [&](const std::string& name, const Bytes&) -> std::string {
            const Image& im = images[name];
            testutil::writeFile(tmp.file("g.jb2"), im.globals);
            testutil::writeFile(tmp.file("d.jb2"), im.data);
            const std::string args = "-e " + (im.globals.empty() ? "" : testutil::quote(tmp.file("g.jb2")) + " ") +
                                     testutil::quote(tmp.file("d.jb2"));
            const Bitmap oracle = jbig2dec(args, tmp.file("oracle.pbm"));
            if (samePixels(ours[name], oracle)) return "";
            return "differs from jbig2dec -e (" + std::to_string(oracle.width) + "x" + std::to_string(oracle.height) +
                   (oracle.ok ? ")" : ", jbig2dec gave no image)");
        },
        [&](const std::string& name, const std::string& rule) {
            EXPECT_EQ(rule, "jbig2dec-differs-from-reference") << name;
            const Bitmap fileForm = jbig2dec(testutil::quote(kCorpus + "/" + name), tmp.file("file-form.pbm"));
            EXPECT_FALSE(samePixels(fileForm, reference)) << name << ": jbig2dec reads the file form right";
        });
}
