// PNG and TIFF predictors after Flate, checked against plain reference
// implementations written here, at every bit depth.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

namespace {

struct Shape {
    int columns, colors, bpc;
    std::size_t rowBytes() const { return (std::size_t(columns) * colors * bpc + 7) / 8; }
    std::size_t bpp() const { return (std::size_t(colors) * bpc + 7) / 8; }
};

int paethRef(int a, int b, int c) {
    int p = a + b - c;
    int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    if (pa <= pb && pa <= pc) return a;
    if (pb <= pc) return b;
    return c;
}

// Reference PNG unfiltering, one row at a time with explicit neighbours.
Bytes pngUnfilterRef(const Bytes& in, const Shape& s) {
    const std::size_t rb = s.rowBytes(), bpp = s.bpp();
    Bytes prev(rb, 0), out;
    for (std::size_t pos = 0; pos + 1 + rb <= in.size(); pos += 1 + rb) {
        int type = in[pos];
        Bytes cur(rb);
        for (std::size_t i = 0; i < rb; ++i) {
            int x = in[pos + 1 + i];
            int a = i >= bpp ? cur[i - bpp] : 0;
            int b = prev[i];
            int c = i >= bpp ? prev[i - bpp] : 0;
            int pred = 0;
            if (type == 1) pred = a;
            if (type == 2) pred = b;
            if (type == 3) pred = (a + b) / 2;
            if (type == 4) pred = paethRef(a, b, c);
            cur[i] = static_cast<unsigned char>((x + pred) & 0xff);
        }
        out.insert(out.end(), cur.begin(), cur.end());
        prev = cur;
    }
    return out;
}

// Reference PNG filtering of an image with the given row types.
Bytes pngFilterRef(const Bytes& image, const Shape& s, const std::vector<int>& types) {
    const std::size_t rb = s.rowBytes(), bpp = s.bpp();
    Bytes out;
    for (std::size_t r = 0; r * rb < image.size(); ++r) {
        int type = types[r % types.size()];
        out.push_back(static_cast<unsigned char>(type));
        for (std::size_t i = 0; i < rb; ++i) {
            int x = image[r * rb + i];
            int a = i >= bpp ? image[r * rb + i - bpp] : 0;
            int b = r ? image[(r - 1) * rb + i] : 0;
            int c = (r && i >= bpp) ? image[(r - 1) * rb + i - bpp] : 0;
            int pred = type == 1 ? a : type == 2 ? b : type == 3 ? (a + b) / 2 : type == 4 ? paethRef(a, b, c) : 0;
            out.push_back(static_cast<unsigned char>((x - pred) & 0xff));
        }
    }
    return out;
}

unsigned getSample(const Bytes& row, std::size_t k, int bpc) {
    if (bpc == 16) return unsigned(row[2 * k]) << 8 | row[2 * k + 1];
    if (bpc == 8) return row[k];
    std::size_t bit = k * bpc;
    return (row[bit / 8] >> (8 - bpc - bit % 8)) & ((1u << bpc) - 1);
}

void setSample(Bytes& row, std::size_t k, int bpc, unsigned v) {
    if (bpc == 16) {
        row[2 * k] = static_cast<unsigned char>(v >> 8);
        row[2 * k + 1] = static_cast<unsigned char>(v);
        return;
    }
    if (bpc == 8) {
        row[k] = static_cast<unsigned char>(v);
        return;
    }
    std::size_t bit = k * bpc;
    unsigned shift = 8 - bpc - bit % 8, mask = (1u << bpc) - 1;
    row[bit / 8] = static_cast<unsigned char>((row[bit / 8] & ~(mask << shift)) | ((v & mask) << shift));
}

// Reference TIFF predictor 2: each sample plus the same component of the
// pixel to its left, modulo 2^bpc; padding bits left alone.
Bytes tiffUndoRef(const Bytes& in, const Shape& s) {
    const std::size_t rb = s.rowBytes();
    const unsigned mod = s.bpc == 16 ? 65536u : 1u << s.bpc;
    Bytes out;
    for (std::size_t pos = 0; pos + rb <= in.size(); pos += rb) {
        Bytes row(in.begin() + pos, in.begin() + pos + rb);
        for (int x = 1; x < s.columns; ++x)
            for (int c = 0; c < s.colors; ++c) {
                std::size_t k = std::size_t(x) * s.colors + c;
                setSample(row, k, s.bpc, (getSample(row, k, s.bpc) + getSample(row, k - s.colors, s.bpc)) % mod);
            }
        out.insert(out.end(), row.begin(), row.end());
    }
    return out;
}

Bytes tiffDoRef(const Bytes& image, const Shape& s) {
    const std::size_t rb = s.rowBytes();
    const unsigned mod = s.bpc == 16 ? 65536u : 1u << s.bpc;
    Bytes out = image;
    for (std::size_t pos = 0; pos + rb <= image.size(); pos += rb) {
        Bytes src(image.begin() + pos, image.begin() + pos + rb), row = src;
        for (int x = 1; x < s.columns; ++x)
            for (int c = 0; c < s.colors; ++c) {
                std::size_t k = std::size_t(x) * s.colors + c;
                setSample(row, k, s.bpc, (getSample(src, k, s.bpc) + mod - getSample(src, k - s.colors, s.bpc)) % mod);
            }
        std::copy(row.begin(), row.end(), out.begin() + pos);
    }
    return out;
}

const Shape kShapes[] = {{1, 1, 0}, {3, 1, 0}, {7, 2, 0}, {17, 3, 0}, {5, 4, 0}, {33, 1, 0}};
const int kDepths[] = {1, 2, 4, 8, 16};

}  // namespace

TEST(PNGPredictor, EachTypeAtEachDepthMatchesReference) {
    uint32_t seed = 1;
    for (int bpc : kDepths)
        for (Shape s : kShapes) {
            s.bpc = bpc;
            const std::size_t rb = s.rowBytes(), rows = 6;
            for (int type = 0; type <= 4; ++type) {
                // Random filtered rows of a single type.
                Bytes filtered = randomBytes(rows * (rb + 1), seed++);
                for (std::size_t r = 0; r < rows; ++r) filtered[r * (rb + 1)] = static_cast<unsigned char>(type);
                for (int pred : {10, 15}) {
                    Result got = decode(zlibCompress(filtered), props(FILTER_FLATE, pred, s.colors, bpc, s.columns));
                    ASSERT_EQ(got.rc, ZQ_OK);
                    ASSERT_EQ(got.data, pngUnfilterRef(filtered, s))
                        << "type " << type << " bpc " << bpc << " colors " << s.colors << " columns " << s.columns;
                }
                // And an image filtered with that type comes back intact.
                Bytes image = randomBytes(rows * rb, seed++);
                Bytes enc = pngFilterRef(image, s, {type});
                EXPECT_EQ(decode(zlibCompress(enc), props(FILTER_FLATE, 12, s.colors, bpc, s.columns)).data, image);
            }
            // Row types mixed within one stream.
            Bytes image = randomBytes(10 * rb, seed++);
            Bytes enc = pngFilterRef(image, s, {4, 0, 3, 1, 2});
            EXPECT_EQ(decode(zlibCompress(enc), props(FILTER_FLATE, 14, s.colors, bpc, s.columns)).data, image);
        }
}

TEST(TIFFPredictor, EachDepthMatchesReference) {
    uint32_t seed = 100;
    for (int bpc : kDepths)
        for (Shape s : kShapes) {
            s.bpc = bpc;
            Bytes data = randomBytes(5 * s.rowBytes(), seed++);
            Result got = decode(zlibCompress(data), props(FILTER_FLATE, 2, s.colors, bpc, s.columns));
            ASSERT_EQ(got.rc, ZQ_OK);
            ASSERT_EQ(got.data, tiffUndoRef(data, s)) << "bpc " << bpc << " colors " << s.colors << " columns "
                                                      << s.columns;
            // Differencing with the reference and undoing it restores the image.
            EXPECT_EQ(decode(zlibCompress(tiffDoRef(data, s)), props(FILTER_FLATE, 2, s.colors, bpc, s.columns)).data,
                      data);
        }
}

TEST(Predictors, KnownSmallCases) {
    // 16-bit TIFF: 0x00FF + 0x0001 carries into the high byte.
    Bytes t16 = {0x00, 0xFF, 0x00, 0x01, 0xFF, 0xFF};
    EXPECT_EQ(decode(zlibCompress(t16), props(FILTER_FLATE, 2, 1, 16, 3)).data,
              (Bytes{0x00, 0xFF, 0x01, 0x00, 0x00, 0xFF}));
    // 1-bit TIFF is a running XOR; the two padding bits stay as they were.
    Bytes t1 = {0b10000011};  // 6 columns: 1 0 0 0 0 0, padding 11
    EXPECT_EQ(decode(zlibCompress(t1), props(FILTER_FLATE, 2, 1, 1, 6)).data, (Bytes{0b11111111}));
    // PNG Sub with 3-byte pixels, then Paeth: up for the first pixel, then
    // left where it is the closest guess.
    Bytes png = {1, 1, 2, 3, 1, 1, 1, 4, 5, 5, 5, 5, 5, 5};
    EXPECT_EQ(decode(zlibCompress(png), props(FILTER_FLATE, 11, 3, 8, 2)).data,
              (Bytes{1, 2, 3, 2, 3, 4, 6, 7, 8, 11, 12, 13}));
    // Columns absent (0) means one column.
    EXPECT_EQ(decode(zlibCompress(Bytes{2, 5, 2, 6}), props(FILTER_FLATE, 10)).data, (Bytes{5, 11}));
}

TEST(Predictors, BadParametersAndRows) {
    Bytes z = zlibCompress(Bytes{0, 1, 2, 3});
    for (int pred : {3, 4, 9, 16, 100})
        EXPECT_EQ(decode(z, props(FILTER_FLATE, pred, 1, 8, 3)).rc, ZQ_BAD_ARGUMENT) << pred;
    for (int bpc : {3, 5, 7, 12, 32})
        EXPECT_EQ(decode(z, props(FILTER_FLATE, 12, 1, bpc, 3)).rc, ZQ_BAD_ARGUMENT) << bpc;
    EXPECT_EQ(decode(z, props(FILTER_FLATE, 12, 0x7fffffff, 16, 0x7fffffff)).rc, ZQ_BAD_ARGUMENT);
    // Predictor 0, 1 and negative values mean none.
    for (int pred : {-5, 0, 1}) EXPECT_EQ(decode(z, props(FILTER_FLATE, pred, 1, 8, 3)).data, (Bytes{0, 1, 2, 3}));
    // Bits per component are only checked when a predictor is used.
    EXPECT_EQ(decode(z, props(FILTER_FLATE, 1, 1, 3, 3)).rc, ZQ_OK);
    // An unknown PNG row type is damage.
    EXPECT_EQ(decode(zlibCompress(Bytes{5, 1, 2, 3}), props(FILTER_FLATE, 12, 1, 8, 3)).rc, ZQ_CORRUPT);
    // A short final row is decoded as far as it goes.
    EXPECT_EQ(decode(zlibCompress(Bytes{0, 1, 2, 3, 2, 1}), props(FILTER_FLATE, 12, 1, 8, 3)).data,
              (Bytes{1, 2, 3, 2}));
    EXPECT_EQ(decode(zlibCompress(Bytes{1, 2, 3, 4, 5}), props(FILTER_FLATE, 2, 1, 8, 3)).data,
              (Bytes{1, 3, 6, 4, 9}));
    // Huge but valid rows with little data: one partial row.
    Result wide = decode(zlibCompress(Bytes{1, 1, 1, 1, 1}), props(FILTER_FLATE, 12, 1000000, 8, 1000));
    ASSERT_EQ(wide.rc, ZQ_OK);
    EXPECT_EQ(wide.data, (Bytes{1, 1, 1, 1}));
}
