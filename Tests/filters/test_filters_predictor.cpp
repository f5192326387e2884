// PNG and TIFF predictors after Flate, checked against plain reference
// implementations written here, at every bit depth.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;
using namespace std::string_literals;

namespace {

struct Shape {
    int columns, colors, bpc;
    std::size_t rowBytes() const { return (std::size_t(columns) * colors * bpc + 7) / 8; }
    std::size_t bpp() const { return (std::size_t(colors) * bpc + 7) / 8; }
};

int pngPredict(int type, int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    const int paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
    return type == 1 ? a : type == 2 ? b : type == 3 ? (a + b) / 2 : type == 4 ? paeth : 0;
}

// Reference PNG filtering of `image` with the given row types (cycled), or,
// when `types` is empty, unfiltering of `in` with each row's own type byte.
// The neighbours are always taken from the unfiltered image.
Bytes pngRef(const Bytes& in, const Shape& s, const std::vector<int>& types = {}) {
    const bool filter = !types.empty();
    const std::size_t rb = s.rowBytes(), bpp = s.bpp(), stride = filter ? rb : rb + 1;
    Bytes image = filter ? in : Bytes(), out;
    for (std::size_t r = 0; (r + 1) * stride <= in.size(); ++r) {
        const unsigned char* row = in.data() + r * stride + (filter ? 0 : 1);
        const int type = filter ? types[r % types.size()] : in[r * stride];
        if (filter) out.push_back(static_cast<unsigned char>(type));
        else image.resize((r + 1) * rb);
        for (std::size_t i = 0; i < rb; ++i) {
            const std::size_t at = r * rb + i;
            const int pred = pngPredict(type, i >= bpp ? image[at - bpp] : 0, r ? image[at - rb] : 0,
                                        r && i >= bpp ? image[at - rb - bpp] : 0);
            if (filter) out.push_back(static_cast<unsigned char>(row[i] - pred));
            else image[at] = static_cast<unsigned char>(row[i] + pred);
        }
    }
    return filter ? out : image;
}

unsigned getSample(const Bytes& row, std::size_t k, int bpc) {
    if (bpc == 16) return unsigned(row[2 * k]) << 8 | row[2 * k + 1];
    const std::size_t bit = k * bpc;
    return (row[bit / 8] >> (8 - bpc - bit % 8)) & ((1u << bpc) - 1);
}

void setSample(Bytes& row, std::size_t k, int bpc, unsigned v) {
    if (bpc == 16) {
        row[2 * k] = static_cast<unsigned char>(v >> 8);
        row[2 * k + 1] = static_cast<unsigned char>(v);
        return;
    }
    const std::size_t bit = k * bpc;
    const unsigned shift = 8 - bpc - bit % 8, mask = (1u << bpc) - 1;
    row[bit / 8] = static_cast<unsigned char>((row[bit / 8] & ~(mask << shift)) | ((v & mask) << shift));
}

// Reference TIFF predictor 2: undoing adds to each sample the same component
// of the pixel to its left, modulo 2^bpc, differencing subtracts it; padding
// bits are left alone.
Bytes tiffRef(const Bytes& in, const Shape& s, bool undo) {
    const std::size_t rb = s.rowBytes();
    const unsigned mod = s.bpc == 16 ? 65536u : 1u << s.bpc;
    Bytes out;
    for (std::size_t pos = 0; pos + rb <= in.size(); pos += rb) {
        const Bytes src(in.begin() + pos, in.begin() + pos + rb);
        Bytes row = src;
        for (std::size_t k = s.colors; k < std::size_t(s.columns) * s.colors; ++k) {
            const unsigned left = getSample(undo ? row : src, k - s.colors, s.bpc);
            setSample(row, k, s.bpc, (getSample(src, k, s.bpc) + (undo ? left : mod - left)) % mod);
        }
        out.insert(out.end(), row.begin(), row.end());
    }
    return out;
}

const Shape kShapes[] = {{1, 1, 0}, {3, 1, 0}, {7, 2, 0}, {17, 3, 0}, {5, 4, 0}, {33, 1, 0}};
const int kDepths[] = {1, 2, 4, 8, 16};

Result flate(const Bytes& in, int predictor, const Shape& s) {
    return decode(zlibCompress(in), props(FILTER_FLATE, predictor, s.colors, s.bpc, s.columns));
}

}  // namespace

TEST(Predictors, EachTypeAtEachDepthMatchesReference) {
    uint32_t seed = 1;
    for (int bpc : kDepths)
        for (Shape s : kShapes) {
            s.bpc = bpc;
            const std::size_t rb = s.rowBytes(), rows = 6;
            SCOPED_TRACE("bpc " + std::to_string(bpc) + " colors " + std::to_string(s.colors) + " columns " +
                         std::to_string(s.columns));
            for (int type = 0; type <= 4; ++type) {
                // Random filtered rows of a single type.
                Bytes filtered = randomBytes(rows * (rb + 1), seed++);
                for (std::size_t r = 0; r < rows; ++r) filtered[r * (rb + 1)] = static_cast<unsigned char>(type);
                for (int pred : {10, 15}) {
                    Result got = flate(filtered, pred, s);
                    ASSERT_EQ(got.rc, ZQ_OK);
                    ASSERT_EQ(got.data, pngRef(filtered, s)) << "type " << type;
                }
                // And an image filtered with that type comes back intact.
                Bytes image = randomBytes(rows * rb, seed++);
                EXPECT_EQ(flate(pngRef(image, s, {type}), 12, s).data, image);
            }
            // Row types mixed within one stream.
            Bytes image = randomBytes(10 * rb, seed++);
            EXPECT_EQ(flate(pngRef(image, s, {4, 0, 3, 1, 2}), 14, s).data, image);

            // TIFF: undoing matches the reference, and undoing the reference's
            // differencing restores the image.
            Bytes data = randomBytes(5 * rb, seed++);
            Result got = flate(data, 2, s);
            ASSERT_EQ(got.rc, ZQ_OK);
            ASSERT_EQ(got.data, tiffRef(data, s, true));
            EXPECT_EQ(flate(tiffRef(data, s, false), 2, s).data, data);
        }
}

TEST(Predictors, SmallCasesAndBadParameters) {
    auto fl = [](int pred, int colors, int bpc, int columns) { return props(FILTER_FLATE, pred, colors, bpc, columns); };
    const std::string z0123 = z("\0\1\2\3"s);
    const DecodeCase cases[] = {
        // 16-bit TIFF: 0x00FF + 0x0001 carries into the high byte.
        {fl(2, 1, 16, 3), z("\x00\xff\x00\x01\xff\xff"s), ZQ_OK, "\x00\xff\x01\x00\x00\xff"s},
        // 1-bit TIFF is a running XOR; the two padding bits stay as they were
        // (6 columns: 1 0 0 0 0 0, padding 11).
        {fl(2, 1, 1, 6), z("\x83"), ZQ_OK, "\xff"},
        // PNG Sub with 3-byte pixels, then Paeth: up for the first pixel, then
        // left where it is the closest guess.
        {fl(11, 3, 8, 2), z("\1\1\2\3\1\1\1\4\5\5\5\5\5\5"), ZQ_OK, "\1\2\3\2\3\4\6\7\x08\x0b\x0c\x0d"},
        // Columns absent (0) means one column.
        {fl(10, 1, 8, 0), z("\2\5\2\6"), ZQ_OK, "\5\x0b"},
        {fl(3, 1, 8, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(4, 1, 8, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(9, 1, 8, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(16, 1, 8, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(100, 1, 8, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 1, 3, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 1, 5, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 1, 7, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 1, 12, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 1, 32, 3), z0123, ZQ_BAD_ARGUMENT, ""},
        {fl(12, 0x7fffffff, 16, 0x7fffffff), z0123, ZQ_BAD_ARGUMENT, ""},
        // Predictor 0, 1 and negative values mean none; bits per component
        // are only checked when a predictor is used.
        {fl(-5, 1, 8, 3), z0123, ZQ_OK, "\0\1\2\3"s},
        {fl(0, 1, 8, 3), z0123, ZQ_OK, "\0\1\2\3"s},
        {fl(1, 1, 8, 3), z0123, ZQ_OK, "\0\1\2\3"s},
        {fl(1, 1, 3, 3), z0123, ZQ_OK, "\0\1\2\3"s},
        // An unknown PNG row type is damage.
        {fl(12, 1, 8, 3), z("\5\1\2\3"), ZQ_CORRUPT, ""},
        // A short final row is decoded as far as it goes.
        {fl(12, 1, 8, 3), z("\0\1\2\3\2\1"s), ZQ_OK, "\1\2\3\2"},
        {fl(2, 1, 8, 3), z("\1\2\3\4\5"), ZQ_OK, "\1\3\6\4\x09"},
        // Huge but valid rows with little data: one partial row.
        {fl(12, 1000000, 8, 1000), z("\1\1\1\1\1"), ZQ_OK, "\1\1\1\1"},
    };
    expectDecodes(cases);
}
