// Storage shared by all codecs; see ZqCodec.h.
#include <cstdlib>
#include <exception>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

bool ZqBuffer::grow(std::size_t need) {
    // Double, starting at 4 KiB, but never past the limit: the capacity is
    // later stored in a 32-bit field, and the limit keeps it representable.
    std::size_t want = cap_ < 4096 ? 4096 : cap_;
    while (want < need && want <= limit_ / 2) want *= 2;
    if (want < need) want = need;
    if (want > limit_) want = limit_;
    if (want < need) return false;
    if (backing_) {
        try {
            backing_->resize(want);
        } catch (const std::exception&) {
            return false;
        }
        data_ = reinterpret_cast<unsigned char*>(&(*backing_)[0]);
        cap_ = want;
        return true;
    }
    void* p = std::realloc(data_, want);
    if (!p) return false;
    data_ = static_cast<unsigned char*>(p);
    cap_ = want;
    return true;
}

bool ZqBuffer::reserve(std::size_t total) {
    if (total <= cap_) return true;
    if (total > limit_) return false;
    return grow(total);
}

unsigned char* ZqBuffer::release(std::size_t* capacity) {
    if (!data_) {
        data_ = static_cast<unsigned char*>(std::malloc(1));
        if (!data_) return nullptr;
        cap_ = 1;
    }
    unsigned char* p = data_;
    *capacity = cap_;
    data_ = nullptr;
    size_ = cap_ = 0;
    return p;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
