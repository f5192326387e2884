// Packed one-bit rasters of the jbig2 decoder: rows from the top,
// bits from the most significant, stride ((width-1)>>3)+1, and 1 is black.
#ifndef PDFKILN_JBIG2_IMAGEDATA_H
#define PDFKILN_JBIG2_IMAGEDATA_H

#include <cstddef>
#include <cstdint>

namespace jbig2 {

// Reference-counted pixel buffer. It may hold more rows than the
// ImageProcessor that looks at it reports: that is how a striped page grows
// its buffer while keeping the height of its first allocation.
class ImageDataBits {
public:
    // Allocates stride*height bytes, uninitialised; throws JBIG2_OUT_OF_MEMORY
    // when the allocation fails or exceeds maxImageBytes().
    static ImageDataBits* create(uint32_t stride, uint32_t height);
    void addRef() { ++refcount; }
    void release();

    int refcount;
    uint32_t stride;
    uint32_t height;
    unsigned char* data;

    // The largest single buffer the decoder will allocate. Requests above it
    // are treated as allocation failures (result 5), so hostile sizes fail
    // early instead of exhausting memory.
    static std::size_t maxImageBytes();

private:
    ImageDataBits() : refcount(1), stride(0), height(0), data(nullptr) {}
    ~ImageDataBits();
    ImageDataBits(const ImageDataBits&) = delete;
    ImageDataBits& operator=(const ImageDataBits&) = delete;
};

// Throws JBIG2_OUT_OF_MEMORY when a buffer of `bytes` may not be allocated.
void checkAllocation(uint64_t bytes);

// While alive, limits the raster bytes that decoding on this thread may
// allocate in total (result 5 beyond it); scopes nest.
class DecodeBudget {
public:
    explicit DecodeBudget(uint64_t inputBytes);
    ~DecodeBudget();
    DecodeBudget(const DecodeBudget&) = delete;
    DecodeBudget& operator=(const DecodeBudget&) = delete;

private:
    uint64_t m_left;
    uint64_t* m_outer;
};

template <class T>
class ImageProcessor {
public:
    ImageProcessor() : m_width(0), m_height(0), m_stride(0), m_data(nullptr) {}
    ImageProcessor(uint32_t width, uint32_t height) : ImageProcessor() { create(width, height); }
    ~ImageProcessor() {
        if (m_data) m_data->release();
    }
    ImageProcessor(const ImageProcessor&) = delete;
    ImageProcessor& operator=(const ImageProcessor&) = delete;

    static uint32_t strideFor(uint32_t width) { return width == 0 ? 1 : ((width - 1) >> 3) + 1; }

    // Allocates a zeroed width-by-height raster, dropping any earlier one.
    void create(uint32_t width, uint32_t height);
    void fill(unsigned char value);

    uint32_t getWidth() const { return m_width; }
    uint32_t getHeight() const { return m_height; }
    uint32_t getStride() const { return m_stride; }
    T* getDataBits() const { return m_data; }
    unsigned char* getData() const { return m_data ? m_data->data : nullptr; }
    unsigned char* getLine(uint32_t y) const { return m_data->data + static_cast<std::size_t>(y) * m_stride; }
    // Rows the buffer holds, which can exceed getHeight() after growRows.
    uint32_t getBufferRows() const { return m_data ? m_data->height : 0; }

    int getPixel(int64_t x, int64_t y) const {
        if (x < 0 || y < 0 || x >= m_width || y >= m_height) return 0;
        return (getLine(static_cast<uint32_t>(y))[x >> 3] >> (7 - (x & 7))) & 1;
    }
    void setPixel(int64_t x, int64_t y, int v) {
        if (x < 0 || y < 0 || x >= m_width || y >= m_height) return;
        unsigned char& b = getLine(static_cast<uint32_t>(y))[x >> 3];
        const unsigned char m = static_cast<unsigned char>(0x80 >> (x & 7));
        b = v ? (b | m) : (b & ~m);
    }

    // Places `source` with its top-left corner at (x, y) by operator op
    // (0 OR, 1 AND, 2 XOR, 3 XNOR, 4 REPLACE), clipped to this raster's width
    // and height. Operators above 4 do nothing.
    void compose(int64_t x, int64_t y, const ImageProcessor& source, int op);

    // Swaps in a buffer of `rows` rows: the old rows copied, the rest zero.
    // The reported height stays as it is (growth of striped pages).
    void growRows(uint32_t rows);

    // A second raster over the same pixels: the buffer's reference count
    // rises, so a dictionary can export a symbol that another one owns.
    ImageProcessor* share() const;

private:
    uint32_t m_width;
    uint32_t m_height;
    uint32_t m_stride;
    T* m_data;
};

}  // namespace jbig2

#include "imagedata_impl.h"

#endif
