// Internal interface between the entry points (ZqFilter.cpp) and the codecs.
//
// Every codec reads a read-only byte range and appends to one ZqBuffer. The
// buffer enforces the per-stage output bound, so codecs only have to check
// the boolean result of each growth call and report ZQ_TOO_LARGE.
#ifndef ZQ_GRAPHICSERVICE_CODEC_H
#define ZQ_GRAPHICSERVICE_CODEC_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ZQGraphicService/ZqFilter.h"

namespace ZQGraphicService_NS {
namespace codec {

struct ByteView {
    const unsigned char* data;
    std::size_t size;
};

// Growable byte buffer with a hard size limit. By default the storage is
// malloc'd, so that it can be handed to a FilterMemBlock with release().
// Given a string, the buffer writes into that string instead (its size is the
// buffer's capacity until finish() cuts it to the bytes produced), so a
// decoder's output is never copied to reach its caller.
class ZqBuffer {
public:
    explicit ZqBuffer(std::size_t limit = kMaxStageOutput) : limit_(limit) {}
    ZqBuffer(std::string& backing, std::size_t limit) : backing_(&backing), limit_(limit) {
        backing.clear();
        cap_ = backing.capacity() < limit ? backing.capacity() : limit;
        backing.resize(cap_);
        data_ = cap_ ? reinterpret_cast<unsigned char*>(&backing[0]) : nullptr;
    }
    ~ZqBuffer() {
        if (!backing_) std::free(data_);
    }
    ZqBuffer(const ZqBuffer&) = delete;
    ZqBuffer& operator=(const ZqBuffer&) = delete;

    unsigned char* data() { return data_; }
    const unsigned char* data() const { return data_; }
    std::size_t size() const { return size_; }
    std::size_t capacity() const { return cap_; }
    std::size_t limit() const { return limit_; }
    std::size_t spare() const { return cap_ - size_; }

    // Makes room for `total` bytes in all. False when `total` is over the
    // limit or memory runs out; the contents are unchanged then.
    bool reserve(std::size_t total);

    // Makes at least `extra` spare bytes available, growing geometrically.
    bool reserveExtra(std::size_t extra) {
        if (extra <= cap_ - size_) return true;
        if (extra > limit_ - size_) return false;
        return grow(size_ + extra);
    }

    // Room for a first guess of the output size, cut to the limit: only the
    // bytes actually produced may fail the limit.
    bool reserveGuess(std::size_t extra) {
        return reserveExtra(extra < limit_ - size_ ? extra : limit_ - size_);
    }

    bool append(const unsigned char* p, std::size_t n) {
        if (!reserveExtra(n)) return false;
        if (n) std::memcpy(data_ + size_, p, n);
        size_ += n;
        return true;
    }
    bool push(unsigned char c) {
        if (size_ == cap_ && !reserveExtra(1)) return false;
        data_[size_++] = c;
        return true;
    }
    bool fill(unsigned char c, std::size_t n) {
        if (!reserveExtra(n)) return false;
        std::memset(data_ + size_, c, n);
        size_ += n;
        return true;
    }

    // Marks `n` more bytes of the spare area as used (after writing them).
    void commit(std::size_t n) { size_ += n; }
    // Shortens the contents; n must not exceed size().
    void truncate(std::size_t n) {
        if (n < size_) size_ = n;
    }

    // Gives up the storage (at least one byte, so never null on success) and
    // leaves the buffer empty. Returns null when the byte cannot be allocated.
    // Not for a buffer over a string.
    unsigned char* release(std::size_t* capacity);

    // A buffer over a string: cuts the string to the bytes produced.
    void finish() {
        if (backing_) backing_->resize(size_);
    }

private:
    bool grow(std::size_t need);

    std::string* backing_ = nullptr;
    unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t cap_ = 0;
    std::size_t limit_;
};

// Parameters of the row predictors shared by Flate and LZW.
struct PredictorParams {
    int predictor = 1;        // 1 none, 2 TIFF, 10..15 PNG
    int colors = 1;
    int bitsPerComponent = 8;
    int columns = 1;
};

// Decoders: append the decoded form of `in` to `out`; return a ZQ_* code.
int flateDecode(ByteView in, ZqBuffer& out);
int lzwDecode(ByteView in, bool earlyChange, ZqBuffer& out);
int asciiHexDecode(ByteView in, ZqBuffer& out);
int ascii85Decode(ByteView in, ZqBuffer& out);
int runLengthDecode(ByteView in, ZqBuffer& out);
int ccittDecode(ByteView in, int columns, ZqBuffer& out);
int dctDecode(ByteView in, ZqBuffer& out);

// Checks predictor parameters without touching data; ZQ_OK when usable.
int predictorCheck(const PredictorParams& p);
// Undoes a predictor in place over the whole buffer (rows of decoded data).
int predictorDecode(const PredictorParams& p, ZqBuffer& data);

// Runs one decoding stage of kind prop.type over `in` into `out`.
int decodeStage(ByteView in, const FilterPropTD& prop, ZqBuffer& out);

// Encoders.
int flateEncode(ByteView in, int level, ZqBuffer& out);
int asciiHexEncode(ByteView in, ZqBuffer& out);
int ascii85Encode(ByteView in, ZqBuffer& out);

}  // namespace codec
}  // namespace ZQGraphicService_NS

#endif
