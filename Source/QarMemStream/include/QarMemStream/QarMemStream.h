// Seekable read-write memory stream of the support library.
//
// streamcreate(hint) returns a std::iostream over a growable in-memory buffer
// (hint is only a capacity reservation); streamwrite appends like fwrite at the
// put position; streamdestroy frees a stream made by streamcreate.
#ifndef QAR_MEMSTREAM_H
#define QAR_MEMSTREAM_H

#include <cstddef>
#include <iostream>
#include <streambuf>
#include <vector>

namespace QarMem {

// A std::streambuf over one byte vector with independent get and put
// positions; both may seek anywhere within [0, size].
class MemBuf : public std::streambuf {
public:
    explicit MemBuf(std::size_t hint = 0);
    const std::vector<char>& bytes() const { return buf_; }

protected:
    int_type underflow() override;
    int_type overflow(int_type ch) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;
    pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                     std::ios_base::openmode which) override;
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

private:
    void syncGet(std::size_t gpos);
    std::size_t putPos_ = 0;
    std::vector<char> buf_;
};

class MemStream : public std::iostream {
public:
    explicit MemStream(std::size_t hint = 0) : std::iostream(nullptr), buf_(hint) { init(&buf_); }
    const std::vector<char>& bytes() const { return buf_.bytes(); }

private:
    MemBuf buf_;
};

}  // namespace QarMem

std::iostream* streamcreate(std::size_t sizeHint);
std::size_t streamwrite(const void* data, std::size_t size, std::size_t count, std::iostream* stream);
void streamdestroy(std::iostream* stream);

#endif
