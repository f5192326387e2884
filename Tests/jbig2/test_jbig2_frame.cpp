// The frame (with the regions): organisations, result
// codes, kept deviations and the texts of the hard assertions. Inputs are
// built here, the smallest that show each behaviour.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "jbig2/jbig2decoder.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

// An MMR generic region whose every row is: white `white`, black `black`,
// then V0 to the end of the row (row codes from reference/ccitt-tables.md).
Bytes mmrRegion(uint32_t w, uint32_t h, uint32_t x, uint32_t y, unsigned char op, const std::string& whiteCode,
                const std::string& blackCode, unsigned char extraFlags = 0) {
    Bytes d = regionInfo(w, h, x, y, op);
    d.push_back(static_cast<unsigned char>(0x01 | extraFlags));  // MMR
    BitWriter bits;
    for (uint32_t r = 0; r < h; ++r) {
        bits.bits("001");
        bits.bits(whiteCode);
        bits.bits(blackCode);
        bits.bits("1");
    }
    d.insert(d.end(), bits.bytes().begin(), bits.bytes().end());
    return d;
}

Bytes fileHeader(bool sequential, int pages = 1) {
    Bytes b = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n'};
    b.push_back(sequential ? 1 : 0);
    put32(b, static_cast<uint32_t>(pages));
    return b;
}

std::string rowOf(Jbig2Decoder& d, uint32_t y) {
    ImageProcessor<ImageDataBits>* img = d.getImage(0);
    std::string s;
    for (uint32_t x = 0; x < img->getWidth(); ++x) s += img->getPixel(x, y) ? '#' : '.';
    return s;
}

// white 2 = 0111, black 3 = 10
const char* kW2 = "0111";
const char* kB3 = "10";

}  // namespace

TEST(Jbig2Frame, EmbeddedStreamWithOnePage) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 2)), segment(1, 39, {}, mmrRegion(8, 2, 0, 0, 0, kW2, kB3)),
                      segment(2, 49, {}, {})});
    // Bytes after the end of page are never read.
    data.push_back(0xEE);
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(d.getPageNumber(), 1u);
    EXPECT_EQ(d.getCurPageWidth(0), 8u);
    EXPECT_EQ(d.getCurPageHeight(0), 2u);
    EXPECT_EQ(d.getCurPageStripe(0), 2u);
    EXPECT_EQ(d.getCurPageDataSize(0), 2u);
    EXPECT_EQ(d.getCurPageXResolution(0), 72u);
    EXPECT_EQ(d.getCurPageYResolution(0), 96u);
    EXPECT_EQ(rowOf(d, 0), "..###...");
    EXPECT_EQ(rowOf(d, 1), "..###...");
    EXPECT_EQ(d.getCurPageData(0)[0], 0x38);
}

TEST(Jbig2Frame, Jbig2ToRGBHandsOutRows) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 2)), segment(1, 39, {}, mmrRegion(8, 2, 0, 0, 0, kW2, kB3))});
    void* out = nullptr;
    unsigned size = 0;
    ASSERT_EQ(Jbig2ToRGB(data.data(), static_cast<unsigned>(data.size()), &out, &size), 0);
    ASSERT_EQ(size, 2u);
    EXPECT_EQ(static_cast<unsigned char*>(out)[0], 0x38);
    EXPECT_EQ(static_cast<unsigned char*>(out)[1], 0x38);
    std::free(out);
}

TEST(Jbig2Frame, FileFormSequentialAndRandomAccess) {
    const Bytes page = segment(0, 48, {}, pageInfo(8, 1));
    const Bytes region = segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 0, kW2, kB3));
    const Bytes eop = segment(2, 49, {}, {});
    const Bytes eof = segment(3, 51, {}, {});
    {
        Bytes f = cat({fileHeader(true), page, region, eop, eof});
        std::istringstream in(std::string(f.begin(), f.end()));
        Jbig2Decoder d(in);
        EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
        EXPECT_EQ(rowOf(d, 0), "..###...");
    }
    {
        // Random access: all headers, then all data.
        auto headerOf = [](const Bytes& seg, std::size_t dataSize) { return Bytes(seg.begin(), seg.end() - static_cast<std::ptrdiff_t>(dataSize)); };
        const Bytes pageData = pageInfo(8, 1), regionData = mmrRegion(8, 1, 0, 0, 0, kW2, kB3);
        Bytes f = cat({fileHeader(false), headerOf(page, pageData.size()), headerOf(region, regionData.size()), eop,
                       eof, pageData, regionData});
        Jbig2Decoder d(f.data(), static_cast<unsigned>(f.size()), false);
        EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
        EXPECT_EQ(rowOf(d, 0), "..###...");
    }
}

TEST(Jbig2Frame, NotAJbig2File) {
    Bytes f = {'%', 'P', 'D', 'F', '-', '1', '.', '7', 0, 0, 0, 0};
    Jbig2Decoder d(f.data(), static_cast<unsigned>(f.size()), false);
    EXPECT_EQ(d.decodeImage(), JBIG2_NOT_JBIG2);
}

// The ID string passed with embedded true is parsed as segments: not result 1.
TEST(Jbig2Frame, FileWithEmbeddedFlagIsParsedAsSegments) {
    Bytes f = cat({fileHeader(true), segment(0, 48, {}, pageInfo(8, 1)), segment(2, 49, {}, {})});
    Jbig2Decoder d(f.data(), static_cast<unsigned>(f.size()), true);
    EXPECT_NE(d.decodeImage(), JBIG2_NOT_JBIG2);
}

TEST(Jbig2Frame, RegionBiggerThanPageIsClipped) {
    // 16 wide at x = -4 on an 8-wide page: white 2, black 3 lands at -2..0.
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 1)),
                      segment(1, 39, {}, mmrRegion(16, 3, 0xFFFFFFFCu, 0, 0, "1011" /* white 4 */, "10"))});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(d, 0), "###.....");
    EXPECT_EQ(d.getCurPageHeight(0), 1u);
}

TEST(Jbig2Frame, CombinationOperators) {
    // Page default pixel 1; REPLACE writes the region as it is.
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 1, 0x04)), segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 4, kW2, kB3))});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(d, 0), "..###...");
    // XOR on a black page inverts; an operator of 5 to 7 means OR.
    Bytes x = cat({segment(0, 48, {}, pageInfo(8, 1, 0x04)), segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 2, kW2, kB3))});
    Jbig2Decoder dx(x.data(), static_cast<unsigned>(x.size()), true);
    EXPECT_EQ(dx.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(dx, 0), "##...###");
    Bytes o = cat({segment(0, 48, {}, pageInfo(8, 1)), segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 7, kW2, kB3))});
    Jbig2Decoder dor(o.data(), static_cast<unsigned>(o.size()), true);
    EXPECT_EQ(dor.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(dor, 0), "..###...");
}

// Flags bits 4 to 7 of a generic region are ignored.
TEST(Jbig2Frame, GenericRegionFlagBitsFourToSevenIgnored) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 1)), segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 0, kW2, kB3, 0xF0))});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(d, 0), "..###...");
}

// TPGDON with LTP set in the first row leaves a zero row.
TEST(Jbig2Frame, TpgdonFirstRowStaysZero) {
    MQEncoder enc;
    unsigned short cx = 0;
    enc.encode(cx, 1);  // SLTP = 1 in its fresh context
    Bytes region = regionInfo(8, 1, 0, 0, 4);
    region.push_back(0x08 | (3 << 1));  // TPGDON, template 3
    region.push_back(2);                // AT (2, -1)
    region.push_back(0xFF);
    const Bytes coded = enc.flush();
    region.insert(region.end(), coded.begin(), coded.end());
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 1, 0x04)), segment(1, 39, {}, region)});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(d, 0), "........");
}

TEST(Jbig2Frame, RefinementReferredSegmentResults) {
    Bytes refine = regionInfo(8, 1, 0, 0, 0);
    refine.push_back(0x01);  // template 1
    refine.insert(refine.end(), {0x00, 0x00, 0xFF, 0xAC});
    Bytes codeTable = {0x00, 0, 0, 0, 0, 0, 0, 0, 1, 0x80};
    const Bytes page = segment(0, 48, {}, pageInfo(8, 1));
    {
        Bytes d1 = cat({page, segment(3, 42, {1, 2}, refine)});
        Jbig2Decoder d(d1.data(), static_cast<unsigned>(d1.size()), true);
        EXPECT_EQ(d.decodeImage(), JBIG2_NO_REFERRED) << "two referred segments";
    }
    {
        Bytes d1 = cat({page, segment(3, 42, {9}, refine)});
        Jbig2Decoder d(d1.data(), static_cast<unsigned>(d1.size()), true);
        EXPECT_EQ(d.decodeImage(), JBIG2_INVALID_DATA) << "missing referred segment";
    }
    {
        Bytes d1 = cat({page, segment(1, 53, {}, codeTable), segment(3, 42, {1}, refine)});
        Jbig2Decoder d(d1.data(), static_cast<unsigned>(d1.size()), true);
        EXPECT_EQ(d.decodeImage(), JBIG2_BAD_REFERRED_TYPE) << "a code table can't be refined";
    }
    {
        Bytes d1 = cat({page, segment(1, 36, {}, mmrRegion(8, 1, 0, 0, 0, kW2, kB3)), segment(3, 42, {1}, refine)});
        Jbig2Decoder d(d1.data(), static_cast<unsigned>(d1.size()), true);
        EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS) << "an intermediate generic region can";
    }
}

// End of page with no page: 6 (reached in the random-access organisation,
// since the sequential one stops at any length 0).
TEST(Jbig2Frame, EndOfPageWithoutPage) {
    Bytes f = cat({fileHeader(false), segment(0, 49, {}, {}), segment(1, 51, {}, {})});
    Jbig2Decoder d(f.data(), static_cast<unsigned>(f.size()), false);
    EXPECT_EQ(d.decodeImage(), JBIG2_INVALID_DATA);
}

TEST(Jbig2Frame, OutOfMemory) {
    Bytes data = segment(0, 48, {}, pageInfo(0xFFFFFFF0u, 0xFFFFFFF0u));
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_OUT_OF_MEMORY);
}

// A truncated stream decodes what stood before the cut and reports success.
TEST(Jbig2Frame, TruncatedStreamKeepsWhatStoodBefore) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 1)), segment(1, 39, {}, mmrRegion(8, 1, 0, 0, 0, kW2, kB3))});
    Bytes region2 = segment(2, 39, {}, mmrRegion(8, 1, 0, 0, 4, "1011", "10"));
    data.insert(data.end(), region2.begin(), region2.begin() + 14);  // header and a little more
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(rowOf(d, 0), "..###...");
}

// Striped pages keep the height of their first allocation (kept deviation).
TEST(Jbig2Frame, StripedPageKeepsFirstHeight) {
    Bytes data = cat({segment(0, 48, {}, pageInfo(8, 0xFFFFFFFFu, 0, 0x8000 | 2)),
                      segment(1, 39, {}, mmrRegion(8, 2, 0, 0, 0, kW2, kB3)), segment(2, 50, {}, {0, 0, 0, 1}),
                      segment(3, 39, {}, mmrRegion(8, 2, 0, 2, 0, kW2, kB3))});
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    EXPECT_EQ(d.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(d.getCurPageHeight(0), 2u);
    EXPECT_EQ(d.getCurPageDataSize(0), 2u);
    // Unknown height without striping: an empty image.
    Bytes e = segment(0, 48, {}, pageInfo(8, 0xFFFFFFFFu));
    Jbig2Decoder de(e.data(), static_cast<unsigned>(e.size()), true);
    EXPECT_EQ(de.decodeImage(), JBIG2_SUCCESS);
    EXPECT_EQ(de.getCurPageHeight(0), 0u);
}

// A header view below 11 bytes is thrown to the caller of decodeImage.
TEST(Jbig2Frame, ShortHeaderViewThrows) {
    Bytes data = {0, 0, 0, 1, 48};
    Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
    try {
        d.decodeImage();
        FAIL() << "no throw";
    } catch (JBIG2_RESULT r) {
        EXPECT_EQ(r, JBIG2_INVALID_DATA);
    }
}

TEST(Jbig2Frame, IsJbig2) {
    std::istringstream yes(std::string("\x97JB2\r\n\x1A\n\x01", 9));
    EXPECT_TRUE(Jbig2Decoder::isJbig2(yes));
    std::istringstream no(std::string("\x97JB2\r\n\x1A\r", 8));
    EXPECT_FALSE(Jbig2Decoder::isJbig2(no));
}

// ---------------------------------------------------------- hard assertions

using Jbig2FrameDeathTest = ::testing::Test;

TEST(Jbig2FrameDeathTest, AccessorBeforeDecode) {
    Bytes data = {0};
    EXPECT_DEATH(
        {
            Jbig2Decoder d(data.data(), 1, true);
            d.getPageNumber();
        },
        "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `m_jdi' failed");
}

TEST(Jbig2FrameDeathTest, NoPageInformation) {
    Bytes data = segment(0, 52, {}, {1, 2, 3});
    EXPECT_DEATH(
        {
            void* out = nullptr;
            unsigned size = 0;
            Jbig2ToRGB(data.data(), static_cast<unsigned>(data.size()), &out, &size);
        },
        "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `\\(unsigned int\\)pageno < "
        "m_jdi->getPageCount\\(\\)' failed");
}

TEST(Jbig2FrameDeathTest, PageBeyondCount) {
    Bytes data = segment(0, 48, {}, pageInfo(8, 1));
    EXPECT_DEATH(
        {
            Jbig2Decoder d(data.data(), static_cast<unsigned>(data.size()), true);
            d.decodeImage();
            d.getCurPageWidth(1);
        },
        "Assertion `\\(unsigned int\\)pageno < m_jdi->getPageCount\\(\\)' failed");
}

TEST(Jbig2FrameDeathTest, StreamNotGood) {
    EXPECT_DEATH(
        {
            std::istringstream in("");
            in.setstate(std::ios::failbit);
            Jbig2Decoder d(in);
            d.decodeImage();
        },
        "GraphicServiceModule/jbig2/jbig2decoder.*Assertion `m_istream->good\\(\\)' failed");
    EXPECT_DEATH(
        {
            std::istringstream in("");
            in.setstate(std::ios::failbit);
            Jbig2Decoder::isJbig2(in);
        },
        "Assertion `inputstream.good\\(\\)' failed");
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
