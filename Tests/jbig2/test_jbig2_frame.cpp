// The frame (with the regions): organisations, result codes, kept deviations
// and the texts of the hard assertions, on the smallest streams that show each.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "jbig2/jbig2decoder.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

Bytes fileHeader(bool sequential, uint32_t pages = 1) {
    return cat({{0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n', static_cast<unsigned char>(sequential)}, be(pages)});
}

const std::string kRow = "..###...";
// An immediate lossless generic region segment of `rows` rows of kRow at (0, y).
Bytes region(uint32_t number, uint32_t rows, unsigned char op = 0, uint32_t y = 0) {
    return mmrSeg(number, 0, y, op, Rows(rows, kRow), 39);
}
// An 8x1 page (page segment 0) holding `segments`.
Bytes onePage(std::initializer_list<Bytes> segments, unsigned char flags = 0) {
    return cat({pageSeg(0, 8, 1, flags), cat(segments)});
}
// A refinement region (template 1) referring to `refs`, after `before`.
Bytes refinement(const std::vector<uint32_t>& refs, const Bytes& before = {}) {
    return onePage({before, segment(3, 42, refs, cat({regionInfo(8, 1, 0, 0, 0), {0x01, 0x00, 0x00, 0xFF, 0xAC}}))});
}

}  // namespace

TEST(Jbig2Frame, Streams) {
    const Bytes truncated = mmrSeg(2, 0, 0, 4, {"....###."}, 39), pageData = pageInfo(8, 1);
    const Bytes regionData = genericMMR(0, 0, 0, {kRow}), ends = cat({segment(2, 49, {}, {}), segment(3, 51, {}, {})});
    MQEncoder tpgdon;  // a template-3 region with TPGDON whose first SLTP is 1
    unsigned short cx = 0;
    tpgdon.encode(cx, 1);
    const Bytes tpgdonRegion = cat({regionInfo(8, 1, 0, 0, 4), {0x08 | (3 << 1), 2, 0xFF}, tpgdon.flush()});
    checkDecodeCases({
        {"embedded; bytes after the end of page are never read",
         cat({pageSeg(0, 8, 2), region(1, 2), segment(2, 49, {}, {}), {0xEE}}), JBIG2_SUCCESS, {kRow, kRow}},
        {"file form, sequential, from a stream", cat({fileHeader(true), onePage({region(1, 1)}), ends}),
         JBIG2_SUCCESS, {kRow}, Form::Stream},
        {"file form, random access: all headers, then all data",
         cat({fileHeader(false), segment(0, 48, {}, {}, static_cast<uint32_t>(pageData.size())),
              segment(1, 39, {}, {}, static_cast<uint32_t>(regionData.size())), ends, pageData, regionData}),
         JBIG2_SUCCESS, {kRow}, Form::File},
        {"not a JBIG2 file", {'%', 'P', 'D', 'F', '-', '1', '.', '7', 0, 0, 0, 0}, JBIG2_NOT_JBIG2, {}, Form::File},
        {"the ID string in the embedded form is parsed as segments",
         cat({fileHeader(true), onePage({segment(2, 49, {}, {})})}), JBIG2_SUCCESS, {}, Form::Embedded, 0},
        {"a region bigger than the page, at x -4, is clipped",
         onePage({mmrSeg(1, 0xFFFFFFFCu, 0, 0, Rows(3, "....###........."), 39)}), JBIG2_SUCCESS, {"###....."}},
        {"REPLACE writes the region over a black page", onePage({region(1, 1, 4)}, 0x04), JBIG2_SUCCESS, {kRow}},
        {"XOR on a black page inverts", onePage({region(1, 1, 2)}, 0x04), JBIG2_SUCCESS, {"##...###"}},
        {"an operator of 5 to 7 means OR", onePage({region(1, 1, 7)}), JBIG2_SUCCESS, {kRow}},
        {"flag bits 4 to 7 of a generic region are ignored",
         onePage({segment(1, 39, {}, genericMMR(0, 0, 0, {kRow}, 0xF1))}), JBIG2_SUCCESS, {kRow}},
        {"TPGDON with LTP set in the first row leaves a zero row", onePage({segment(1, 39, {}, tpgdonRegion)}, 0x04),
         JBIG2_SUCCESS, {"........"}},
        {"refinement with two referred segments", refinement({1, 2}), JBIG2_NO_REFERRED, {}},
        {"refinement with a missing referred segment", refinement({9}), JBIG2_INVALID_DATA, {}},
        {"a code table can't be refined", refinement({1}, segment(1, 53, {}, {0, 0, 0, 0, 0, 0, 0, 0, 1, 0x80})),
         JBIG2_BAD_REFERRED_TYPE, {}},
        {"an intermediate generic region can", refinement({1}, mmrSeg(1, 0, 0, 0, {kRow}, 36)), JBIG2_SUCCESS,
         {".######."}},
        {"end of page without a page (random access: sequential stops at any length 0)",
         cat({fileHeader(false), segment(0, 49, {}, {}), segment(1, 51, {}, {})}), JBIG2_INVALID_DATA, {}, Form::File},
        {"out of memory", pageSeg(0, 0xFFFFFFF0u, 0xFFFFFFF0u), JBIG2_OUT_OF_MEMORY, {}},
        {"a truncated stream keeps what stood before the cut",
         onePage({region(1, 1), Bytes(truncated.begin(), truncated.begin() + 14)}), JBIG2_SUCCESS, {kRow}},
        {"a striped page keeps the height of its first allocation (kept deviation)",
         cat({pageSeg(0, 8, 0xFFFFFFFFu, 0, 0x8000 | 2), region(1, 2), segment(2, 50, {}, {0, 0, 0, 1}),
              region(3, 2, 0, 2)}),
         JBIG2_SUCCESS, {kRow, kRow}},
        {"an unknown height without striping is an empty image", pageSeg(0, 8, 0xFFFFFFFFu), JBIG2_SUCCESS, {}},
        {"a header view below 11 bytes is thrown to the caller", {0, 0, 0, 1, 48}, kThrown + JBIG2_INVALID_DATA, {}},
    });
}

// The page information, Jbig2ToRGB's rows, the ID string, and a page count from
// the file header beyond the pages read: an out-of-range error, not an assertion.
TEST(Jbig2Frame, PageInformationAndEntries) {
    Bytes data = cat({pageSeg(0, 8, 2), region(1, 2)});
    Bytes f = cat({fileHeader(true, 3), onePage({segment(1, 49, {}, {})})});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    Jbig2Decoder three(f.data(), static_cast<unsigned>(f.size()), false);
    ASSERT_EQ(d.decodeImage(), JBIG2_SUCCESS);
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
    std::istringstream yes(std::string("\x97JB2\r\n\x1A\n\x01", 9)), no(std::string("\x97JB2\r\n\x1A\r", 8));
    EXPECT_TRUE(Jbig2Decoder::isJbig2(yes));
    EXPECT_FALSE(Jbig2Decoder::isJbig2(no));
    EXPECT_EQ(three.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(three.getPageNumber(), 3u);
    EXPECT_THROW(three.getCurPageWidth(2), std::out_of_range);
}

TEST(Jbig2FrameDeathTest, Assertions) {
    const std::string pageno = "Assertion `\\(unsigned int\\)pageno < m_jdi->getPageCount\\(\\)' failed";
    Bytes zero = {0}, noPage = segment(0, 52, {}, {1, 2, 3}), page = pageSeg(0, 8, 1);
    void* out = nullptr;
    unsigned size = 0;
    EXPECT_DEATH(Jbig2Decoder(zero.data(), 1, true).getPageNumber(),
                 "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `m_jdi' failed");
    EXPECT_DEATH(Jbig2ToRGB(noPage.data(), static_cast<unsigned>(noPage.size()), &out, &size),
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
