// Row predictors applied after Flate and LZW decoding: TIFF predictor 2
// (horizontal differencing per component) and the PNG filters (predictor
// values 10..15, where each row starts with its own filter-type byte).
//
// Both are undone in place: PNG output rows are one byte shorter than input
// rows, so writing row i never overtakes the unread part of row i.
//
// A final row that is cut short is decoded as far as it goes rather than
// dropped or padded, so no decoded byte is lost and none is invented.
#include <cstdint>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

struct RowShape {
    std::size_t rowBytes;  // bytes of one row of samples, without a type byte
    std::size_t bpp;       // bytes per complete pixel, at least 1 (PNG)
};

RowShape shapeOf(const PredictorParams& p) {
    uint64_t columns = p.columns < 1 ? 1 : uint64_t(p.columns);
    uint64_t colors = p.colors < 1 ? 1 : uint64_t(p.colors);
    uint64_t bpc = p.bitsPerComponent < 1 ? 8 : uint64_t(p.bitsPerComponent);
    uint64_t pixelBits = colors * bpc;
    return RowShape{std::size_t((columns * pixelBits + 7) / 8), std::size_t((pixelBits + 7) / 8)};
}

inline int paeth(int a, int b, int c) {
    int p = a + b - c;
    int pa = p > a ? p - a : a - p;
    int pb = p > b ? p - b : b - p;
    int pc = p > c ? p - c : c - p;
    if (pa <= pb && pa <= pc) return a;
    return pb <= pc ? b : c;
}

int pngDecode(const RowShape& s, ZqBuffer& buf) {
    unsigned char* d = buf.data();
    const std::size_t total = buf.size();
    const std::size_t rb = s.rowBytes, bpp = s.bpp;
    std::size_t in = 0, out = 0;
    bool firstRow = true;
    while (in < total) {
        const unsigned type = d[in++];
        const std::size_t n = total - in < rb ? total - in : rb;
        const unsigned char* src = d + in;
        unsigned char* dst = d + out;
        // The row above, when there is one, is the previous output row.
        const unsigned char* up = firstRow ? nullptr : dst - rb;
        switch (type) {
        case 0:
            for (std::size_t i = 0; i < n; ++i) dst[i] = src[i];
            break;
        case 1:
            for (std::size_t i = 0; i < n; ++i)
                dst[i] = static_cast<unsigned char>(src[i] + (i >= bpp ? dst[i - bpp] : 0));
            break;
        case 2:
            for (std::size_t i = 0; i < n; ++i)
                dst[i] = static_cast<unsigned char>(src[i] + (up ? up[i] : 0));
            break;
        case 3:
            for (std::size_t i = 0; i < n; ++i) {
                unsigned left = i >= bpp ? dst[i - bpp] : 0;
                unsigned above = up ? up[i] : 0;
                dst[i] = static_cast<unsigned char>(src[i] + ((left + above) >> 1));
            }
            break;
        case 4:
            for (std::size_t i = 0; i < n; ++i) {
                int left = i >= bpp ? dst[i - bpp] : 0;
                int above = up ? up[i] : 0;
                int corner = (up && i >= bpp) ? up[i - bpp] : 0;
                dst[i] = static_cast<unsigned char>(src[i] + paeth(left, above, corner));
            }
            break;
        default:
            return ZQ_CORRUPT;
        }
        in += n;
        out += n;
        firstRow = false;
    }
    buf.truncate(out);
    return ZQ_OK;
}

int tiffDecode(const PredictorParams& p, const RowShape& s, ZqBuffer& buf) {
    unsigned char* d = buf.data();
    const std::size_t total = buf.size();
    const std::size_t rb = s.rowBytes;
    const unsigned bpc = unsigned(p.bitsPerComponent);
    const std::size_t colors = std::size_t(p.colors < 1 ? 1 : p.colors);
    for (std::size_t row = 0; row < total; row += rb) {
        unsigned char* r = d + row;
        const std::size_t n = total - row < rb ? total - row : rb;
        if (bpc == 8) {
            for (std::size_t i = colors; i < n; ++i) r[i] = static_cast<unsigned char>(r[i] + r[i - colors]);
        } else if (bpc == 16) {
            const std::size_t step = 2 * colors;
            for (std::size_t i = step; i + 1 < n; i += 2) {
                unsigned v = ((unsigned(r[i]) << 8) | r[i + 1]) + ((unsigned(r[i - step]) << 8) | r[i - step + 1]);
                r[i] = static_cast<unsigned char>(v >> 8);
                r[i + 1] = static_cast<unsigned char>(v);
            }
        } else {
            // 1, 2 or 4 bits: samples packed MSB first; each sample adds the
            // same component of the previous pixel, modulo 2^bpc. Only whole
            // samples inside the row are touched, never the padding bits.
            const unsigned mask = (1u << bpc) - 1;
            const std::size_t samples = (n * 8) / bpc;
            const std::size_t rowSamples = (rb * 8) / bpc;
            const std::size_t count = samples < rowSamples ? samples : rowSamples;
            const std::size_t used = std::size_t(p.columns < 1 ? 1 : p.columns) * colors;
            const std::size_t limit = count < used ? count : used;
            auto get = [&](std::size_t k) {
                std::size_t bit = k * bpc;
                return (r[bit >> 3] >> (8 - bpc - (bit & 7))) & mask;
            };
            for (std::size_t k = colors; k < limit; ++k) {
                unsigned v = (get(k) + get(k - colors)) & mask;
                std::size_t bit = k * bpc;
                unsigned shift = 8 - bpc - unsigned(bit & 7);
                r[bit >> 3] = static_cast<unsigned char>((r[bit >> 3] & ~(mask << shift)) | (v << shift));
            }
        }
    }
    return ZQ_OK;
}

}  // namespace

int predictorCheck(const PredictorParams& p) {
    if (p.predictor <= 1) return ZQ_OK;
    if (p.predictor != 2 && (p.predictor < 10 || p.predictor > 15)) return ZQ_BAD_ARGUMENT;
    switch (p.bitsPerComponent) {
    case 1: case 2: case 4: case 8: case 16: break;
    default: return ZQ_BAD_ARGUMENT;
    }
    // A row longer than a whole stage's output is not a real image.
    uint64_t columns = p.columns < 1 ? 1 : uint64_t(p.columns);
    uint64_t colors = p.colors < 1 ? 1 : uint64_t(p.colors);
    if (columns * colors > uint64_t(kMaxStageOutput)) return ZQ_BAD_ARGUMENT;
    return ZQ_OK;
}

int predictorDecode(const PredictorParams& p, ZqBuffer& data) {
    int rc = predictorCheck(p);
    if (rc != ZQ_OK || p.predictor <= 1 || data.size() == 0) return rc;
    const RowShape shape = shapeOf(p);
    if (p.predictor == 2) return tiffDecode(p, shape, data);
    return pngDecode(shape, data);
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
