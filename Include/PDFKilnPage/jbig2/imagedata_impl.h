// Template bodies of ImageProcessor (included by imagedata.h).
#ifndef PDFKILN_JBIG2_IMAGEDATA_IMPL_H
#define PDFKILN_JBIG2_IMAGEDATA_IMPL_H

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
    // Byte by byte: for each destination byte, the eight source bits that
    // fall on it, and a mask of the bits inside the rectangle.
    const int64_t firstByte = x >> 3, lastByte = (x + w - 1) >> 3;
    const int64_t srcBits = static_cast<int64_t>(source.m_stride) * 8;
    for (int64_t r = 0; r < h; ++r) {
        const unsigned char* srow = source.getLine(static_cast<uint32_t>(sy0 + r));
        unsigned char* drow = getLine(static_cast<uint32_t>(y + r));
        for (int64_t b = firstByte; b <= lastByte; ++b) {
            // Source bit that lands on bit 0 (the leftmost) of byte b.
            const int64_t sbit = b * 8 - x + sx0;
            unsigned int s16 = 0;
            for (int k = 0; k < 2; ++k) {
                const int64_t byteIndex = (sbit >> 3) + k;  // floor division
                s16 = (s16 << 8) | ((byteIndex >= 0 && byteIndex * 8 < srcBits) ? srow[byteIndex] : 0u);
            }
            const unsigned int shift = static_cast<unsigned int>(sbit & 7);
            const unsigned char s = static_cast<unsigned char>((s16 << shift) >> 8);
            unsigned int mask = 0xFF;
            if (b == firstByte) mask &= 0xFFu >> (x & 7);
            if (b == lastByte) mask &= 0xFFu << (7 - ((x + w - 1) & 7));
            const unsigned char d = drow[b];
            unsigned char v;
            switch (op) {
            case 0: v = static_cast<unsigned char>(d | s); break;
            case 1: v = static_cast<unsigned char>(d & s); break;
            case 2: v = static_cast<unsigned char>(d ^ s); break;
            case 3: v = static_cast<unsigned char>(~(d ^ s)); break;
            default: v = s; break;
            }
            drow[b] = static_cast<unsigned char>((d & ~mask) | (v & mask));
        }
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
