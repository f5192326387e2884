#include "QarMemStream/QarMemStream.h"

#include <algorithm>
#include <cstring>

namespace QarMem {

MemBuf::MemBuf(std::size_t hint) {
    buf_.reserve(hint);
    syncGet(0);
}

// The get area always spans the whole vector; only the current pointer moves.
void MemBuf::syncGet(std::size_t gpos) {
    char* base = buf_.empty() ? nullptr : buf_.data();
    gpos = std::min(gpos, buf_.size());
    setg(base, base + gpos, base + buf_.size());
}

MemBuf::int_type MemBuf::underflow() {
    std::size_t gpos = static_cast<std::size_t>(gptr() - eback());
    syncGet(gpos);
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    return traits_type::eof();
}

MemBuf::int_type MemBuf::overflow(int_type ch) {
    if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
    char c = traits_type::to_char_type(ch);
    xsputn(&c, 1);
    return ch;
}

std::streamsize MemBuf::xsputn(const char* s, std::streamsize n) {
    if (n <= 0) return 0;
    std::size_t gpos = static_cast<std::size_t>(gptr() - eback());
    std::size_t need = putPos_ + static_cast<std::size_t>(n);
    if (need > buf_.size()) buf_.resize(need);
    std::memcpy(buf_.data() + putPos_, s, static_cast<std::size_t>(n));
    putPos_ = need;
    syncGet(gpos);
    return n;
}

MemBuf::pos_type MemBuf::seekoff(off_type off, std::ios_base::seekdir dir,
                                 std::ios_base::openmode which) {
    const bool in = (which & std::ios_base::in) != 0;
    const bool out = (which & std::ios_base::out) != 0;
    off_type base;
    if (dir == std::ios_base::beg) base = 0;
    else if (dir == std::ios_base::end) base = static_cast<off_type>(buf_.size());
    else if (in && !out) base = gptr() - eback();
    else if (out && !in) base = static_cast<off_type>(putPos_);
    else return pos_type(off_type(-1));
    off_type target = base + off;
    if (target < 0 || target > static_cast<off_type>(buf_.size())) return pos_type(off_type(-1));
    if (in) syncGet(static_cast<std::size_t>(target));
    if (out) putPos_ = static_cast<std::size_t>(target);
    return pos_type(target);
}

MemBuf::pos_type MemBuf::seekpos(pos_type pos, std::ios_base::openmode which) {
    return seekoff(off_type(pos), std::ios_base::beg, which);
}

}  // namespace QarMem

std::iostream* streamcreate(std::size_t sizeHint) { return new QarMem::MemStream(sizeHint); }

std::size_t streamwrite(const void* data, std::size_t size, std::size_t count, std::iostream* stream) {
    if (!stream || !data || size == 0 || count == 0) return 0;
    stream->write(static_cast<const char*>(data), static_cast<std::streamsize>(size * count));
    return stream->good() ? count : 0;
}

void streamdestroy(std::iostream* stream) { delete stream; }
