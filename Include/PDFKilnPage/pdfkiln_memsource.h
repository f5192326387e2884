// Input from memory: a document's bytes held once (a mapped file or a copy of
// the caller's stream) and a read buffer over them in which a seek is an
// assignment and a position is an offset, never a system call.
#ifndef PDFKILN_MEMSOURCE_H
#define PDFKILN_MEMSOURCE_H

#include <cstddef>
#include <istream>
#include <streambuf>
#include <string>

namespace PDF_KILN {

// A read-only stream buffer over [data, data + size). Seeking behaves as on a
// file: a position past the end may be taken (reads there meet the end), a
// negative one may not.
class CMemoryBuf : public std::streambuf {
public:
    CMemoryBuf() { reset(nullptr, 0); }
    CMemoryBuf(const char* data, std::size_t size) { reset(data, size); }
    CMemoryBuf(const CMemoryBuf&) = delete;
    CMemoryBuf& operator=(const CMemoryBuf&) = delete;

    void reset(const char* data, std::size_t size);
    const char* data() const { return base_; }
    std::size_t size() const { return size_; }

    // The token reader's direct access: the next byte, the end of what can
    // be read, and moving the read position within them.
    const char* cursor() const { return gptr(); }
    const char* limit() const { return egptr(); }
    void moveTo(const char* p) { setg(eback(), const_cast<char*>(p), egptr()); }

protected:
    pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

private:
    char* base_ = nullptr;
    std::size_t size_ = 0;
    off_type past_ = 0;  // a position beyond the end: nothing is readable there
};

// The bytes of one document. A file is mapped (read into memory where it
// cannot be); a caller's stream is read once from its start.
class CMemSource {
public:
    CMemSource() = default;
    ~CMemSource();
    CMemSource(const CMemSource&) = delete;
    CMemSource& operator=(const CMemSource&) = delete;

    // False when the file cannot be opened or read.
    bool loadFile(const char* name);
    // False when the stream is not good or cannot be read to its end.
    bool loadStream(std::istream& in);

    const char* data() const { return data_; }
    std::size_t size() const { return size_; }
    // A read buffer over all the bytes, positioned at the start.
    std::streambuf* buffer() { return &buf_; }

private:
    void release();
    const char* data_ = nullptr;
    std::size_t size_ = 0;
    void* mapped_ = nullptr;
    std::string copy_;
    CMemoryBuf buf_;
};

}  // namespace PDF_KILN

#endif
