// Input from memory: a document's bytes and a read buffer over them in which
// a seek is an assignment and a position is an offset. A file is read through
// a few cached windows, so that only what is read is held; a caller's stream
// is read once into memory.
#ifndef PDFKILN_MEMSOURCE_H
#define PDFKILN_MEMSOURCE_H

#include <cstddef>
#include <istream>
#include <streambuf>
#include <string>
#include <vector>

namespace PDF_KILN {

// The first byte of [p, e) that is not a blank as std::ws sees one in the
// classic locale (space, tab, line feed, vertical tab, form feed, return):
// the readers that work on bytes in memory skip what the stream would.
inline const char* skipStreamBlanks(const char* p, const char* e) {
    while (p != e && (*p == ' ' || (*p >= '\t' && *p <= '\r'))) ++p;
    return p;
}

// A read-only stream buffer, over bytes in memory or over a file's windows.
// Seeking behaves as on a file: a position past the end may be taken (reads
// there meet the end), a negative one may not.
class CMemoryBuf : public std::streambuf {
public:
    CMemoryBuf() { reset(nullptr, 0); }
    CMemoryBuf(const char* data, std::size_t size) { reset(data, size); }
    ~CMemoryBuf() override;
    CMemoryBuf(const CMemoryBuf&) = delete;
    CMemoryBuf& operator=(const CMemoryBuf&) = delete;

    // Reads [data, data + size), which must outlive the buffer.
    void reset(const char* data, std::size_t size);
    // Reads an open file of `size` bytes through windows; takes the
    // descriptor and closes it.
    void resetFile(int fd, std::size_t size);

    // The token reader's direct access: the next byte, the end of what is in
    // memory now, whether that end is the end of the input, and moving the
    // read position within [cursor, limit].
    const char* cursor() const { return gptr(); }
    const char* limit() const { return egptr(); }
    bool limitIsEnd() const { return fd_ < 0 || winOff_ + static_cast<std::size_t>(egptr() - eback()) >= size_; }
    void moveTo(const char* p) { setg(eback(), const_cast<char*>(p), egptr()); }
    // The read position as an offset into the input (what tellg gives).
    off_type offset() const { return position(); }
    // Appends the input's bytes [from, to) to `out` when they are all in
    // memory now; false (and nothing appended) otherwise. The read position
    // does not move.
    bool copyRange(std::size_t from, std::size_t to, std::string& out) const;

protected:
    pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;
    int_type underflow() override;
    int_type pbackfail(int_type c) override;

private:
    struct Window {
        std::size_t off = 0;
        std::vector<char> bytes;
        unsigned long used = 0;  // when it was last read from
        bool loaded = false;
    };
    off_type position() const;
    // Makes the window holding `offset` current; false where the file ends
    // or cannot be read there.
    bool showWindow(std::size_t offset);
    void closeFile();

    char* base_ = nullptr;
    std::size_t size_ = 0;
    off_type past_ = 0;  // a position beyond the end: nothing is readable there
    // File mode.
    int fd_ = -1;
    std::size_t winOff_ = 0;  // where the current window starts in the file
    std::vector<Window> windows_;
    unsigned long clock_ = 0;
};

// The bytes of one document: a file read through windows, or a copy of a
// caller's stream.
class CMemSource {
public:
    CMemSource() = default;
    CMemSource(const CMemSource&) = delete;
    CMemSource& operator=(const CMemSource&) = delete;

    // False when the file cannot be opened or is not a regular file.
    bool loadFile(const char* name);
    // False when the stream is not good or cannot be read to its end.
    bool loadStream(std::istream& in);

    // A read buffer over all the bytes, positioned at the start.
    std::streambuf* buffer() { return &buf_; }

private:
    std::string copy_;
    CMemoryBuf buf_;
};

}  // namespace PDF_KILN

#endif
