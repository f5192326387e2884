// Pixel buffers of the jbig2 decoder.
#include "jbig2/imagedata.h"

#include <new>

#include "jbig2/jbig2result.h"

#ifndef JBIG2_MAX_IMAGE_BYTES
#define JBIG2_MAX_IMAGE_BYTES 0x40000000ull
#endif

namespace jbig2 {

std::size_t ImageDataBits::maxImageBytes() { return static_cast<std::size_t>(JBIG2_MAX_IMAGE_BYTES); }

void checkAllocation(uint64_t bytes) {
    if (bytes > ImageDataBits::maxImageBytes()) throw JBIG2_OUT_OF_MEMORY;
}

ImageDataBits* ImageDataBits::create(uint32_t stride, uint32_t height) {
    const uint64_t bytes = static_cast<uint64_t>(stride) * height;
    checkAllocation(bytes);
    ImageDataBits* d = new (std::nothrow) ImageDataBits;
    if (!d) throw JBIG2_OUT_OF_MEMORY;
    // Never a null buffer, so empty images need no special cases.
    d->data = new (std::nothrow) unsigned char[bytes ? static_cast<std::size_t>(bytes) : 1];
    if (!d->data) {
        delete d;
        throw JBIG2_OUT_OF_MEMORY;
    }
    d->stride = stride;
    d->height = height;
    return d;
}

ImageDataBits::~ImageDataBits() { delete[] data; }

void ImageDataBits::release() {
    if (--refcount <= 0) delete this;
}

}  // namespace jbig2
