// JBIG2ByteInput: the bounded view over one segment's data through which
// every decoder of JBIG2Dec reads. No read moves past the end; a
// read there fails, or gives the caller's padding byte, and is counted, so
// that loops over damaged data can tell that the data ran out.
#ifndef PDFKILN_JBIG2DEC_INPUT_H
#define PDFKILN_JBIG2DEC_INPUT_H

#include <cstddef>
#include <cstdint>

class JBIG2ByteInput {
public:
    JBIG2ByteInput() : p(nullptr), n(0), pos(0), overrun(0) {}
    JBIG2ByteInput(const unsigned char* data, std::size_t size) : p(data), n(size), pos(0), overrun(0) {}

    std::size_t getPos() const { return pos; }
    std::size_t getSize() const { return n; }
    std::size_t remaining() const { return pos < n ? n - pos : 0; }
    const unsigned char* here() const { return p + (pos < n ? pos : n); }
    // Moves to `to`, clamped to the end.
    void setPos(std::size_t to) { pos = to < n ? to : n; }
    void skip(std::size_t count) { setPos(count > remaining() ? n : pos + count); }
    // Reads that found no byte since the view was made.
    uint64_t getOverrun() const { return overrun; }

    // The next byte, or `pad` past the end (counted as an overrun).
    unsigned getByteOr(unsigned pad) {
        if (pos < n) return p[pos++];
        ++overrun;
        return pad;
    }
    bool readUByte(unsigned* x) {
        if (pos >= n) return false;
        *x = p[pos++];
        return true;
    }
    bool readByte(int* x) {
        if (pos >= n) return false;
        *x = static_cast<signed char>(p[pos++]);
        return true;
    }
    bool readUWord(unsigned* x) {
        if (remaining() < 2) return false;
        *x = (static_cast<unsigned>(p[pos]) << 8) | p[pos + 1];
        pos += 2;
        return true;
    }
    bool readULong(uint32_t* x) {
        if (remaining() < 4) return false;
        *x = (static_cast<uint32_t>(p[pos]) << 24) | (static_cast<uint32_t>(p[pos + 1]) << 16) |
             (static_cast<uint32_t>(p[pos + 2]) << 8) | p[pos + 3];
        pos += 4;
        return true;
    }
    bool readLong(int32_t* x) {
        uint32_t u;
        if (!readULong(&u)) return false;
        *x = static_cast<int32_t>(u);
        return true;
    }

private:
    const unsigned char* p;
    std::size_t n;
    std::size_t pos;
    uint64_t overrun;
};

#endif
