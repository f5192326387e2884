// Pixel buffers of the jbig2 decoder.
#include "jbig2/imagedata.h"

#include <algorithm>
#include <new>

#include "jbig2/jbig2result.h"

#ifndef JBIG2_MAX_IMAGE_BYTES
#define JBIG2_MAX_IMAGE_BYTES 0x40000000ull
#endif

namespace jbig2 {

std::size_t ImageDataBits::maxImageBytes() { return static_cast<std::size_t>(JBIG2_MAX_IMAGE_BYTES); }

namespace {
// The raster budget of the decode running on this thread (see DecodeBudget).
thread_local uint64_t* t_budget = nullptr;
}  // namespace

DecodeBudget::DecodeBudget(uint64_t inputBytes) : m_outer(t_budget) {
    // Every raster a decode allocates is charged here, so that a few hundred
    // bytes cannot make the decoder produce (and refine, and compose)
    // gigabytes of pixels: a floor that any real page fits in, and more for
    // larger inputs.
    // Builds with a small image limit (fuzzing) get a proportionally small floor.
    const uint64_t perByte = 4096;
    const uint64_t floor = std::min<uint64_t>(uint64_t(16) << 20, uint64_t(16) * ImageDataBits::maxImageBytes());
    m_left = inputBytes > floor / perByte ? inputBytes * perByte : floor;
    t_budget = &m_left;
}

DecodeBudget::~DecodeBudget() { t_budget = m_outer; }

void checkAllocation(uint64_t bytes) {
    if (bytes > ImageDataBits::maxImageBytes()) throw JBIG2_OUT_OF_MEMORY;
    if (t_budget) {
        if (bytes > *t_budget) throw JBIG2_OUT_OF_MEMORY;
        *t_budget -= bytes;
    }
}

ImageDataBits* ImageDataBits::create(uint32_t stride, uint32_t height) {
    const uint64_t bytes = static_cast<uint64_t>(stride) * height;
    checkAllocation(bytes);
    // The record and its pixels in one block: rasters are made by the
    // thousand (symbols, patterns), and each allocation counts. Never a
    // null buffer, so empty images need no special cases.
    const std::size_t total = sizeof(ImageDataBits) + static_cast<std::size_t>(bytes ? bytes : 1);
    void* block = ::operator new(total, std::nothrow);
    if (!block) throw JBIG2_OUT_OF_MEMORY;
    ImageDataBits* d = new (block) ImageDataBits;
    d->data = static_cast<unsigned char*>(block) + sizeof(ImageDataBits);
    d->stride = stride;
    d->height = height;
    return d;
}

ImageDataBits::~ImageDataBits() {}

void ImageDataBits::release() {
    if (--refcount <= 0) {
        this->~ImageDataBits();
        ::operator delete(this);
    }
}

}  // namespace jbig2
