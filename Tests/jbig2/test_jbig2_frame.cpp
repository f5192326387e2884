// The frame (with the regions): organisations, result codes, kept deviations
// and the texts of the hard assertions, on the smallest inputs that show each.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "jbig2/jbig2decoder.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

Bytes fileHeader(bool sequential, int pages = 1) {
    Bytes b = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n', static_cast<unsigned char>(sequential ? 1 : 0)};
    put32(b, static_cast<uint32_t>(pages));
    return b;
}

const std::string kRow = "..###...";
// A generic region of `rows` rows of kRow at (0, y) by `op`.
Bytes region(uint32_t rows, unsigned char op = 0, uint32_t y = 0, unsigned char flags = 0x01) {
    return genericMMR(0, y, op, Rows(rows, kRow), flags);
}

// The same page and region in the file forms: sequential, and random access
// (all headers, then all data).
Bytes sequentialFile() {
    return cat({fileHeader(true), segment(0, 48, {}, pageInfo(8, 1)), segment(1, 39, {}, region(1)),
                segment(2, 49, {}, {}), segment(3, 51, {}, {})});
}
Bytes randomAccessFile() {
    const Bytes page = pageInfo(8, 1), data = region(1);
    return cat({fileHeader(false), segment(0, 48, {}, {}, static_cast<uint32_t>(page.size())),
                segment(1, 39, {}, {}, static_cast<uint32_t>(data.size())), segment(2, 49, {}, {}),
                segment(3, 51, {}, {}), page, data});
}

// A refinement region (template 1) referring to `refs`, on an 8x1 page.
Bytes refinement(const std::vector<uint32_t>& refs, const Bytes& before = {}) {
    const Bytes body = cat({regionInfo(8, 1, 0, 0, 0), Bytes{0x01, 0x00, 0x00, 0xFF, 0xAC}});
    return cat({segment(0, 48, {}, pageInfo(8, 1)), before, segment(3, 42, refs, body)});
}

// A template-3 region with TPGDON whose first SLTP is 1.
Bytes tpgdonRegion() {
    MQEncoder enc;
    unsigned short cx = 0;
    enc.encode(cx, 1);
    return cat({regionInfo(8, 1, 0, 0, 4), Bytes{0x08 | (3 << 1), 2, 0xFF}, enc.flush()});  // AT (2, -1)
}

Bytes onePage(std::initializer_list<Bytes> segments, unsigned char flags = 0) {
    Bytes data = segment(0, 48, {}, pageInfo(8, 1, flags));
    for (const Bytes& s : segments) data = cat({data, s});
    return data;
}

}  // namespace

TEST(Jbig2Frame, Streams) {
    const Bytes truncated = segment(2, 39, {}, genericMMR(0, 0, 4, {"....###."}));
    const Bytes codeTable = {0x00, 0, 0, 0, 0, 0, 0, 0, 1, 0x80};
    checkDecodeCases({
        {"embedded; bytes after the end of page are never read",
         cat({segment(0, 48, {}, pageInfo(8, 2)), segment(1, 39, {}, region(2)), segment(2, 49, {}, {}), {0xEE}}),
         JBIG2_SUCCESS, {kRow, kRow}},
        {"file form, sequential, from a stream", sequentialFile(), JBIG2_SUCCESS, {kRow}, Form::Stream},
        {"file form, random access", randomAccessFile(), JBIG2_SUCCESS, {kRow}, Form::File},
        {"not a JBIG2 file", {'%', 'P', 'D', 'F', '-', '1', '.', '7', 0, 0, 0, 0}, JBIG2_NOT_JBIG2, {}, Form::File},
        {"the ID string in the embedded form is parsed as segments",
         cat({fileHeader(true), segment(0, 48, {}, pageInfo(8, 1)), segment(2, 49, {}, {})}), JBIG2_SUCCESS, {},
         Form::Embedded, 0},
        {"a region bigger than the page, at x -4, is clipped",
         onePage({segment(1, 39, {}, genericMMR(0xFFFFFFFCu, 0, 0, Rows(3, "....###.........")))}), JBIG2_SUCCESS,
         {"###....."}},
        {"REPLACE writes the region over a black page", onePage({segment(1, 39, {}, region(1, 4))}, 0x04),
         JBIG2_SUCCESS, {kRow}},
        {"XOR on a black page inverts", onePage({segment(1, 39, {}, region(1, 2))}, 0x04), JBIG2_SUCCESS,
         {"##...###"}},
        {"an operator of 5 to 7 means OR", onePage({segment(1, 39, {}, region(1, 7))}), JBIG2_SUCCESS, {kRow}},
        {"flag bits 4 to 7 of a generic region are ignored", onePage({segment(1, 39, {}, region(1, 0, 0, 0xF1))}),
         JBIG2_SUCCESS, {kRow}},
        {"TPGDON with LTP set in the first row leaves a zero row", onePage({segment(1, 39, {}, tpgdonRegion())}, 0x04),
         JBIG2_SUCCESS, {"........"}},
        {"refinement with two referred segments", refinement({1, 2}), JBIG2_NO_REFERRED, {}},
        {"refinement with a missing referred segment", refinement({9}), JBIG2_INVALID_DATA, {}},
        {"a code table can't be refined", refinement({1}, segment(1, 53, {}, codeTable)), JBIG2_BAD_REFERRED_TYPE, {}},
        {"an intermediate generic region can", refinement({1}, segment(1, 36, {}, region(1))), JBIG2_SUCCESS,
         {".######."}},
        // Reached in the random-access organisation only: the sequential one
        // stops at any length 0.
        {"end of page without a page", cat({fileHeader(false), segment(0, 49, {}, {}), segment(1, 51, {}, {})}),
         JBIG2_INVALID_DATA, {}, Form::File},
        {"out of memory", segment(0, 48, {}, pageInfo(0xFFFFFFF0u, 0xFFFFFFF0u)), JBIG2_OUT_OF_MEMORY, {}},
        {"a truncated stream keeps what stood before the cut",
         onePage({segment(1, 39, {}, region(1)), Bytes(truncated.begin(), truncated.begin() + 14)}), JBIG2_SUCCESS,
         {kRow}},
        {"a striped page keeps the height of its first allocation (kept deviation)",
         cat({segment(0, 48, {}, pageInfo(8, 0xFFFFFFFFu, 0, 0x8000 | 2)), segment(1, 39, {}, region(2)),
              segment(2, 50, {}, {0, 0, 0, 1}), segment(3, 39, {}, region(2, 0, 2))}),
         JBIG2_SUCCESS, {kRow, kRow}},
        {"an unknown height without striping is an empty image", segment(0, 48, {}, pageInfo(8, 0xFFFFFFFFu)),
         JBIG2_SUCCESS, {}},
        {"a header view below 11 bytes is thrown to the caller", {0, 0, 0, 1, 48}, kThrown + JBIG2_INVALID_DATA, {}},
    });
}

TEST(Jbig2Frame, PageInformationAndJbig2ToRGB) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 2)), segment(1, 39, {}, region(2))});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    ASSERT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(d.getPageNumber(), 1u);
    EXPECT_EQ(d.getCurPageWidth(0), 8u);
    EXPECT_EQ(d.getCurPageStripe(0), 2u);
    EXPECT_EQ(d.getCurPageXResolution(0), 72u);
    EXPECT_EQ(d.getCurPageYResolution(0), 96u);
    EXPECT_EQ(d.getCurPageData(0)[0], 0x38);
    void* out = nullptr;
    unsigned size = 0;
    ASSERT_EQ(Jbig2ToRGB(data.data(), static_cast<unsigned>(data.size()), &out, &size), 0);
    EXPECT_EQ(Bytes(static_cast<unsigned char*>(out), static_cast<unsigned char*>(out) + size), (Bytes{0x38, 0x38}));
    std::free(out);
}

// A page count from the file header beyond the pages read: a standard
// out-of-range error, not an assertion.
TEST(Jbig2Frame, PageCountBeyondPagesIsOutOfRange) {
    Bytes f = cat({fileHeader(true, 3), segment(0, 48, {}, pageInfo(8, 1)), segment(1, 49, {}, {})});
    Jbig2Decoder d(f.data(), static_cast<unsigned>(f.size()), false);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(d.getPageNumber(), 3u);
    EXPECT_THROW(d.getCurPageWidth(2), std::out_of_range);
}

TEST(Jbig2Frame, IsJbig2) {
    std::istringstream yes(std::string("\x97JB2\r\n\x1A\n\x01", 9)), no(std::string("\x97JB2\r\n\x1A\r", 8));
    EXPECT_TRUE(Jbig2Decoder::isJbig2(yes));
    EXPECT_FALSE(Jbig2Decoder::isJbig2(no));
}

// ---------------------------------------------------------- hard assertions

TEST(Jbig2FrameDeathTest, Assertions) {
    const std::string pageno = "Assertion `\\(unsigned int\\)pageno < m_jdi->getPageCount\\(\\)' failed";
    Bytes zero = {0}, noPage = segment(0, 52, {}, {1, 2, 3}), page = segment(0, 48, {}, pageInfo(8, 1));
    EXPECT_DEATH(Jbig2Decoder(zero.data(), 1, true).getPageNumber(),
                 "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `m_jdi' failed");
    EXPECT_DEATH(
        {
            void* out = nullptr;
            unsigned size = 0;
            Jbig2ToRGB(noPage.data(), static_cast<unsigned>(noPage.size()), &out, &size);
        },
        "GraphicServiceModule/jbig2/jbig2decoder.*" + pageno);
    EXPECT_DEATH(
        {
            Jbig2Decoder d(page.data(), static_cast<unsigned>(page.size()), true);
            d.decodeImage();
            d.getCurPageWidth(1);
        },
        pageno);
    std::istringstream bad("");
    bad.setstate(std::ios::failbit);
    EXPECT_DEATH(Jbig2Decoder(bad).decodeImage(),
                 "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `m_istream->good\\(\\)' failed");
    EXPECT_DEATH(Jbig2Decoder::isJbig2(bad), "Assertion `inputstream.good\\(\\)' failed");
}
