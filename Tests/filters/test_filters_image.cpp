// Image filters: CCITT fax (Modified Huffman) and DCT (JPEG), on inputs hand-coded or made with libtiff and libjpeg.
#include <gtest/gtest.h>

#include <cstdlib>

#include <jpeglib.h>
#include <tiffio.h>

#include "filter_test_util.h"
#include "test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;
using namespace std::string_literals;

namespace {

std::string packBits(const std::string& bits) {
    BitWriter w;
    for (char c : bits) w.put(c == '1', 1);
    return text(w.out);
}

// A 1-bit image, rows padded to whole bytes: 1 = black and padding 0 for libtiff, or as the decoder should return
// it, 0 = black and padding bits 1.
Bytes faxImage(int width, int height, bool decoded = false) {
    const int rb = (width + 7) / 8;
    Bytes img(std::size_t(rb) * height, decoded ? 0xff : 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (((x / 3 + y / 2) % 5 == 0) || (x > width / 2 && y % 7 < 3) || x == width - 1)
                img[y * rb + x / 8] ^= static_cast<unsigned char>(0x80 >> (x % 8));
    return img;
}

void quietTiff(const char*, const char*, va_list) {}

// libtiff's fax codec's raw strip: Group 3 with EOLs, or Modified Huffman with neither EOLs nor byte-aligned rows.
Bytes tiffFaxEncode(const Bytes& img, int width, int height, bool withEol) {
    TIFFSetErrorHandler(quietTiff);
    TIFFSetWarningHandler(quietTiff);
    testutil::TempDir dir;
    const std::string path = dir.file("fax.tif");
    TIFF* t = TIFFOpen(path.c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(height));
    TIFFSetField(t, TIFFTAG_COMPRESSION, withEol ? COMPRESSION_CCITTFAX3 : COMPRESSION_CCITTRLE);
    if (withEol) TIFFSetField(t, TIFFTAG_GROUP3OPTIONS, 0);
    else TIFFSetField(t, TIFFTAG_FAXMODE, FAXMODE_NORTC | FAXMODE_NOEOL);
    const int rb = (width + 7) / 8;
    for (int y = 0; y < height; ++y) {
        Bytes row(img.begin() + y * rb, img.begin() + (y + 1) * rb);
        TIFFWriteScanline(t, row.data(), uint32_t(y), 0);
    }
    TIFFClose(t);
    Bytes raw;
    if (TIFF* r = TIFFOpen(path.c_str(), "r")) {
        raw.resize(std::size_t(std::max<tmsize_t>(TIFFRawStripSize(r, 0), 0)));
        raw.resize(std::size_t(std::max<tmsize_t>(TIFFReadRawStrip(r, 0, raw.data(), tmsize_t(raw.size())), 0)));
        TIFFClose(r);
    }
    return raw;
}

FilterPropTD faxProps(int columns) { return props(FILTER_CCITTFAX, 0, 1, 1, columns); }

Bytes jpegEncode(const Bytes& pixels, int w, int h, int comps, J_COLOR_SPACE cs, bool progressive, int quality = 92) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* buf = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &buf, &size);
    c.image_width = JDIMENSION(w);
    c.image_height = JDIMENSION(h);
    c.input_components = comps;
    c.in_color_space = cs;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<unsigned char*>(pixels.data()) + std::size_t(c.next_scanline) * w * comps;
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    Bytes out(buf, buf + size);
    jpeg_destroy_compress(&c);
    std::free(buf);
    return out;
}

// Decodes with libjpeg directly (default output colour space).
Bytes jpegDecodeRef(const Bytes& jpg, int* comps) {
    jpeg_decompress_struct d;
    jpeg_error_mgr err;
    d.err = jpeg_std_error(&err);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, jpg.data(), jpg.size());
    jpeg_read_header(&d, TRUE);
    jpeg_start_decompress(&d);
    const std::size_t rb = std::size_t(d.output_width) * d.output_components;
    Bytes out(rb * d.output_height);
    while (d.output_scanline < d.output_height) {
        JSAMPROW row = out.data() + d.output_scanline * rb;
        jpeg_read_scanlines(&d, &row, 1);
    }
    *comps = d.output_components;
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    return out;
}

Bytes smoothImage(int w, int h, int comps) {
    Bytes p(std::size_t(w) * h * comps);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < comps; ++c)
                p[(std::size_t(y) * w + x) * comps + c] = static_cast<unsigned char>(x * 160 / w + y * 60 / h + c * 10);
    return p;
}

}  // namespace

TEST(CCITT, HandCodedBadTruncatedAndDamagedInputs) {
    const int width = 64, height = 30;
    const Bytes img = faxImage(width, height), enc = tiffFaxEncode(img, width, height, false);
    const DecodeCase cases[] = {
        // Columns 8: white 8 | white 0, black 8 | white 4, black 4; then fill bits.
        {faxProps(8), packBits("10011" "00110101" "000101" "1011" "011"), ZQ_OK, "\xff\x00\xf0"s},
        // Columns 5 (padding bits come back as 1): white 2, black 3.
        {faxProps(5), packBits("0111" "10"), ZQ_OK, "\xc7"},
        {faxProps(64), std::string(16, '\0'), ZQ_CORRUPT, ""},
        {faxProps(64), "\0\0\0\1"s, ZQ_CORRUPT, ""},
        {faxProps(-8), text(enc), ZQ_BAD_ARGUMENT, ""},
        {faxProps(1 << 24), text(enc), ZQ_BAD_ARGUMENT, ""},
        {faxProps(64), "", ZQ_OK, ""},
    };
    expectDecodes(cases);
    // Truncation returns the complete rows before the cut.
    Result cut = decode(Bytes(enc.begin(), enc.begin() + enc.size() / 2), faxProps(width));
    ASSERT_EQ(cut.rc, ZQ_OK);
    Bytes want = faxImage(width, height, true);
    ASSERT_GT(cut.data.size(), 0u);
    ASSERT_LT(cut.data.size(), want.size());
    EXPECT_EQ(cut.data.size() % 8, 0u);
    EXPECT_TRUE(std::equal(cut.data.begin(), cut.data.end(), want.begin()));
    std::mt19937 rng(3);
    for (int i = 0; i < 200; ++i) {
        Bytes m = enc;
        for (int k = 0; k < 3; ++k) m[rng() % m.size()] = static_cast<unsigned char>(rng());
        Result r = decode(m, faxProps(int(rng() % 200)));
        EXPECT_TRUE(r.rc == ZQ_OK || r.rc == ZQ_CORRUPT);
    }
}

TEST(CCITT, LibtiffEncodedImages) {
    for (int width : {8, 100, 1728}) {
        const int height = 40;
        Bytes img = faxImage(width, height);
        for (bool eol : {false, true}) {
            Bytes enc = tiffFaxEncode(img, width, height, eol);
            ASSERT_FALSE(enc.empty());
            Result r = decode(enc, faxProps(width == 1728 ? 0 : width));  // 0 means 1728
            ASSERT_EQ(r.rc, ZQ_OK) << width << " eol " << eol;
            EXPECT_EQ(r.data, faxImage(width, height, true)) << width << " eol " << eol;
        }
    }
}

TEST(DCT, MatchesLibjpegAndSurvivesDamage) {
    // Grey, RGB, progressive and CMYK; the last one is damaged below.
    const struct {
        int w, h, comps;
        J_COLOR_SPACE cs;
        bool progressive;
    } cases[] = {{37, 23, 1, JCS_GRAYSCALE, false}, {64, 48, 3, JCS_RGB, false}, {50, 33, 3, JCS_RGB, true},
                 {24, 16, 4, JCS_CMYK, false}, {160, 120, 3, JCS_RGB, false}};
    Bytes pixels, jpg;
    for (const auto& c : cases) {
        pixels = smoothImage(c.w, c.h, c.comps);
        jpg = jpegEncode(pixels, c.w, c.h, c.comps, c.cs, c.progressive);
        int comps = 0;
        Bytes ref = jpegDecodeRef(jpg, &comps);
        ASSERT_EQ(comps, c.comps);
        Result r = decode(jpg, FILTER_DCT);
        ASSERT_EQ(r.rc, ZQ_OK);
        ASSERT_EQ(r.data.size(), std::size_t(c.w) * c.h * c.comps);
        EXPECT_EQ(r.data, ref);
        int worst = 0;
        for (std::size_t i = 0; i < pixels.size(); ++i) worst = std::max(worst, std::abs(int(pixels[i]) - r.data[i]));
        EXPECT_LT(worst, 40) << "decoded image far from the original";
    }
    ASSERT_GT(jpg.size(), 1500u);
    // Claimed dimensions past the output bound are refused before decoding.
    std::string huge = text(jpg);
    const std::size_t sof = huge.find("\xff\xc0");
    ASSERT_NE(sof, std::string::npos);
    huge.replace(sof + 5, 4, "\xff\xdc\xff\xdc");  // height and width 65500
    const FilterPropTD dct = props(FILTER_DCT);
    const DecodeCase bad[] = {
        {dct, "", ZQ_CORRUPT, ""},
        {dct, "definitely not a jpeg", ZQ_CORRUPT, ""},
        {dct, text(jpg).substr(0, 100), ZQ_CORRUPT, ""},  // inside the headers
        {dct, huge, ZQ_TOO_LARGE, ""},
    };
    expectDecodes(bad);
    // Cut inside the entropy-coded data: libjpeg completes the image, as viewers show it, so the full size comes back.
    Result cut = decode(Bytes(jpg.begin(), jpg.begin() + jpg.size() * 3 / 4), FILTER_DCT);
    ASSERT_EQ(cut.rc, ZQ_OK);
    EXPECT_EQ(cut.data.size(), pixels.size());

    std::mt19937 rng(8);
    for (int i = 0; i < 150; ++i) {
        Bytes m = jpg;
        for (int k = 0; k < 4; ++k) m[rng() % m.size()] = static_cast<unsigned char>(rng());
        Result r = decode(m, FILTER_DCT);
        EXPECT_TRUE(r.rc == ZQ_OK || r.rc == ZQ_CORRUPT || r.rc == ZQ_TOO_LARGE);
    }
}
