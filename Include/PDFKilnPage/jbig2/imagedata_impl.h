// Template bodies of ImageProcessor (included by imagedata.h).
#ifndef PDFKILN_JBIG2_IMAGEDATA_IMPL_H
#define PDFKILN_JBIG2_IMAGEDATA_IMPL_H

#include <cstdint>
#include <cstring>

namespace jbig2 {

template <class T>
void ImageProcessor<T>::create(uint32_t width, uint32_t height) {
    const uint32_t stride = strideFor(width);
    T* data = T::create(stride, height);
    if (data->data) std::memset(data->data, 0, static_cast<std::size_t>(stride) * height);
    if (m_data) m_data->release();
    m_data = data;
    m_width = width;
    m_height = height;
    m_stride = stride;
}

template <class T>
void ImageProcessor<T>::fill(unsigned char value) {
    if (m_data && m_data->data)
        std::memset(m_data->data, value, static_cast<std::size_t>(m_stride) * m_data->height);
}

namespace composing {

// One operator on destination and source bits, a byte or eight at a time.
template <int Op, class U>
inline U combine(U d, U s) {
    switch (Op) {
    case 0: return d | s;
    case 1: return d & s;
    case 2: return d ^ s;
    case 3: return static_cast<U>(~(d ^ s));
    default: return s;
    }
}

inline uint64_t loadBigEndian(const unsigned char* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}

inline void storeBigEndian(unsigned char* p, uint64_t v) {
    v = __builtin_bswap64(v);
    std::memcpy(p, &v, 8);
}

// Destination bytes first..last of one row; source byte k+(b-first) holds,
// from bit `shift` on, the eight source pixels that land on byte b. Only the
// end bytes can reach past the source row (their masks drop those bits), so
// only they are read with bounds, and not even they when the rectangle
// keeps clear of the row's ends (Inside).
template <int Op, bool Inside>
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline void composeRow(unsigned char* drow, const unsigned char* srow, int64_t sstride, int64_t first, int64_t last,
                       int64_t k, unsigned int shift, unsigned int firstMask, unsigned int lastMask) {
    auto fetch = [&](int64_t at) -> unsigned int {
        if (Inside) return ((static_cast<unsigned int>(srow[at]) << 8 | (shift ? srow[at + 1] : 0u)) << shift) >> 8;
        const unsigned int hi = (at >= 0 && at < sstride) ? srow[at] : 0u;
        const unsigned int lo = (shift && at + 1 >= 0 && at + 1 < sstride) ? srow[at + 1] : 0u;
        return ((hi << 8 | lo) << shift) >> 8;
    };
    auto put = [&](int64_t b, unsigned int s, unsigned int mask) {
        const unsigned int d = drow[b];
        drow[b] = static_cast<unsigned char>((d & ~mask) | (combine<Op, unsigned int>(d, s) & mask));
    };
    if (first == last) {
        put(first, fetch(k), firstMask & lastMask);
        return;
    }
    put(first, fetch(k), firstMask);
    const int64_t inner = last - first - 1;
    const unsigned char* src = srow + k + 1;
    unsigned char* dst = drow + first + 1;
    int64_t i = 0;
    if (shift == 0) {
        for (; i + 8 <= inner; i += 8)
            storeBigEndian(dst + i, combine<Op, uint64_t>(loadBigEndian(dst + i), loadBigEndian(src + i)));
        for (; i < inner; ++i) dst[i] = static_cast<unsigned char>(combine<Op, unsigned int>(dst[i], src[i]));
    } else {
        // The source byte after a chunk lends the chunk's last bits.
        for (; i + 8 <= inner; i += 8) {
            const uint64_t v = (loadBigEndian(src + i) << shift) | (src[i + 8] >> (8 - shift));
            storeBigEndian(dst + i, combine<Op, uint64_t>(loadBigEndian(dst + i), v));
        }
        for (; i < inner; ++i)
            dst[i] = static_cast<unsigned char>(
                combine<Op, unsigned int>(dst[i], static_cast<unsigned int>((src[i] << shift) | (src[i + 1] >> (8 - shift)))));
    }
    put(last, fetch(k + last - first), lastMask);
}

template <int Op>
void composeRows(unsigned char* dst, int64_t dstride, const unsigned char* src, int64_t sstride, int64_t x, int64_t y,
                 int64_t sx0, int64_t sy0, int64_t w, int64_t h) {
    const int64_t first = x >> 3, last = (x + w - 1) >> 3;
    // Source bit that lands on bit 0 (the leftmost) of the first byte.
    const int64_t sbit = first * 8 - x + sx0;
    const int64_t k = sbit >> 3;  // rounds down
    const unsigned int shift = static_cast<unsigned int>(sbit & 7);
    const unsigned int firstMask = 0xFFu >> (x & 7);
    const unsigned int lastMask = (0xFFu << (7 - ((x + w - 1) & 7))) & 0xFFu;
    const bool inside = k >= 0 && k + (last - first) + (shift ? 1 : 0) < sstride;
    if (inside && shift == 0 && firstMask == 0xFF && lastMask == 0xFF) {
        // Whole bytes onto whole bytes, as patterns and most symbols go.
        const int64_t n = last - first + 1;
        for (int64_t r = 0; r < h; ++r) {
            unsigned char* d = dst + (y + r) * dstride + first;
            const unsigned char* s = src + (sy0 + r) * sstride + k;
            for (int64_t i = 0; i < n; ++i) d[i] = static_cast<unsigned char>(combine<Op, unsigned int>(d[i], s[i]));
        }
    } else if (inside) {
        for (int64_t r = 0; r < h; ++r)
            composeRow<Op, true>(dst + (y + r) * dstride, src + (sy0 + r) * sstride, sstride, first, last, k, shift,
                                 firstMask, lastMask);
    } else {
        for (int64_t r = 0; r < h; ++r)
            composeRow<Op, false>(dst + (y + r) * dstride, src + (sy0 + r) * sstride, sstride, first, last, k, shift,
                                  firstMask, lastMask);
    }
}

}  // namespace composing

template <class T>
void ImageProcessor<T>::compose(int64_t x, int64_t y, const ImageProcessor& source, int op) {
    if (op > 4 || op < 0 || !m_data || !source.m_data) return;
    int64_t sx0 = 0, sy0 = 0;
    if (x < 0) { sx0 = -x; x = 0; }
    if (y < 0) { sy0 = -y; y = 0; }
    int64_t w = static_cast<int64_t>(source.m_width) - sx0;
    int64_t h = static_cast<int64_t>(source.m_height) - sy0;
    if (x + w > m_width) w = static_cast<int64_t>(m_width) - x;
    if (y + h > m_height) h = static_cast<int64_t>(m_height) - y;
    if (w <= 0 || h <= 0) return;
    // For each destination byte the eight source bits that fall on it, and
    // a mask of the bits inside the rectangle; the operator is chosen once.
    unsigned char* dst = m_data->data;
    const unsigned char* src = source.m_data->data;
    const int64_t ds = m_stride, ss = source.m_stride;
    switch (op) {
    case 0: composing::composeRows<0>(dst, ds, src, ss, x, y, sx0, sy0, w, h); break;
    case 1: composing::composeRows<1>(dst, ds, src, ss, x, y, sx0, sy0, w, h); break;
    case 2: composing::composeRows<2>(dst, ds, src, ss, x, y, sx0, sy0, w, h); break;
    case 3: composing::composeRows<3>(dst, ds, src, ss, x, y, sx0, sy0, w, h); break;
    default: composing::composeRows<4>(dst, ds, src, ss, x, y, sx0, sy0, w, h); break;
    }
}

template <class T>
void ImageProcessor<T>::growRows(uint32_t rows) {
    T* data = T::create(m_stride, rows);
    const uint32_t keep = m_data ? (m_data->height < rows ? m_data->height : rows) : 0;
    const std::size_t keepBytes = static_cast<std::size_t>(keep) * m_stride;
    if (keepBytes) std::memcpy(data->data, m_data->data, keepBytes);
    std::memset(data->data + keepBytes, 0, static_cast<std::size_t>(rows) * m_stride - keepBytes);
    if (m_data) m_data->release();
    m_data = data;
}

template <class T>
ImageProcessor<T>* ImageProcessor<T>::share() const {
    ImageProcessor* copy = new ImageProcessor();
    copy->m_width = m_width;
    copy->m_height = m_height;
    copy->m_stride = m_stride;
    copy->m_data = m_data;
    if (m_data) m_data->addRef();
    return copy;
}

}  // namespace jbig2

#endif
