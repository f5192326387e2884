// Helpers of the jbig2 tests: a bit writer and an MQ encoder (to build the
// smallest inputs that show a behaviour), a segment lister, the conversion of
// the file form to the embedded form, and readers of BMP and PBM bitmaps.
#ifndef PDFKILN_TESTS_JBIG2_SUPPORT_H
#define PDFKILN_TESTS_JBIG2_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "test_util.h"

namespace jbig2test {

using Bytes = std::vector<unsigned char>;

inline Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void put32(Bytes& b, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) b.push_back(static_cast<unsigned char>(v >> s));
}

inline void put16(Bytes& b, uint16_t v) {
    b.push_back(static_cast<unsigned char>(v >> 8));
    b.push_back(static_cast<unsigned char>(v));
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// A segment header (short forms: up to 4 referred segments, numbers below
// 257) and its data.
inline Bytes segment(uint32_t number, int type, const std::vector<uint32_t>& refs, const Bytes& data,
                     uint32_t length = 0xFFFFFFFEu) {
    Bytes b;
    put32(b, number);
    b.push_back(static_cast<unsigned char>(type));
    b.push_back(static_cast<unsigned char>(refs.size() << 5));
    for (uint32_t r : refs) b.push_back(static_cast<unsigned char>(r));
    b.push_back(1);  // page association
    put32(b, length == 0xFFFFFFFEu ? static_cast<uint32_t>(data.size()) : length);
    b.insert(b.end(), data.begin(), data.end());
    return b;
}

inline Bytes pageInfo(uint32_t w, uint32_t h, unsigned char flags = 0, uint16_t striping = 0) {
    Bytes d;
    put32(d, w);
    put32(d, h);
    put32(d, 72);
    put32(d, 96);
    d.push_back(flags);
    put16(d, striping);
    return d;
}

inline Bytes regionInfo(uint32_t w, uint32_t h, uint32_t x, uint32_t y, unsigned char op) {
    Bytes d;
    put32(d, w);
    put32(d, h);
    put32(d, x);
    put32(d, y);
    d.push_back(op);
    return d;
}

// Most significant bit first.
class BitWriter {
public:
    void bits(const std::string& s) {
        for (char c : s) bit(c == '1');
    }
    void value(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bit((v >> i) & 1);
    }
    void bit(bool b) {
        if (m_n % 8 == 0) m_bytes.push_back(0);
        if (b) m_bytes.back() |= static_cast<unsigned char>(0x80 >> (m_n % 8));
        ++m_n;
    }
    // Pads with zero bits to the next byte boundary.
    void align() {
        while (m_n % 8) bit(false);
    }
    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
    std::size_t m_n = 0;
};

// The MQ encoder of ISO/IEC 14492 Annex E.2 (software conventions), the
// counterpart of the decoder under test.
class MQEncoder {
public:
    MQEncoder() { reset(); }
    void reset() {
        A = 0x8000;
        C = 0;
        CT = 12;
        B = -1;  // no byte yet
        out.clear();
    }
    void encode(unsigned short& cx, int d);
    Bytes flush();

    Bytes out;

private:
    void codeMPS(unsigned short& cx);
    void codeLPS(unsigned short& cx);
    void renorme();
    void byteout();
    void setbits();
    uint32_t A, C;
    int CT;
    int B;
};

// Integer encoding of Annex A.2 with its own contexts.
class IntEncoder {
public:
    IntEncoder() : m_cx(512, 0) {}
    void encode(MQEncoder& enc, int64_t value, bool oob = false);

private:
    void bit(MQEncoder& enc, int b);
    std::vector<unsigned short> m_cx;
    int m_prev = 1;
};

struct SegmentInfo {
    uint32_t number = 0;
    int type = 0;
    uint32_t pageAssociation = 0;
    std::vector<uint32_t> referred;
    std::size_t headerStart = 0;
    std::size_t headerEnd = 0;
    std::size_t dataStart = 0;
    std::size_t dataEnd = 0;  // the end found for an unknown length
    uint32_t dataLength = 0;  // as written
};

struct Jbig2File {
    bool hasFileHeader = false;
    bool randomAccess = false;
    std::vector<SegmentInfo> segments;
    bool ok = false;
};

// Lists a file's segments, by the standard (long-form reference counts,
// unknown lengths of generic regions found by their end marker).
Jbig2File listSegments(const Bytes& data);

// The same segments in the embedded form: no file header, sequential, no
// end-of-file segment.
Bytes toEmbedded(const Bytes& data);

struct Bitmap {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;
    Bytes bits;  // 1 is black
    bool ok = false;
    int pixel(uint32_t x, uint32_t y) const { return (bits[y * stride + (x >> 3)] >> (7 - (x & 7))) & 1; }
};

Bitmap readBmp(const std::string& path);
Bitmap readPbm(const std::string& path);
Bitmap fromPacked(uint32_t width, uint32_t height, uint32_t stride, const unsigned char* data);
// Same size and same pixels (padding bits ignored).
bool samePixels(const Bitmap& a, const Bitmap& b);

// The serenity JBIG2 corpus and its files that decode to reference/bitmap.bmp.
inline const std::string kCorpus = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";
inline std::vector<std::string> listedFiles() { return testutil::listFile(kCorpus + "/decodes-to-bitmap.txt"); }

// A list of explained files beside the tests: file name -> rule (its first word).
inline std::map<std::string, std::string> explained(const std::string& file) {
    auto m = testutil::explained(std::string(JBIG2_TEST_DIR) + "/" + file);
    for (auto& e : m) e.second = e.second.substr(0, e.second.find(' '));
    return m;
}

// jbig2dec, a test-only oracle: `args` decoded to the PBM file `out`.
inline bool haveJbig2dec() { return testutil::exists("/usr/bin/jbig2dec"); }
inline Bitmap jbig2dec(const std::string& args, const std::string& out) {
    std::remove(out.c_str());
    return testutil::run("/usr/bin/jbig2dec -q -t pbm -o " + testutil::quote(out) + " " + args) == 0 ? readPbm(out)
                                                                                                      : Bitmap();
}

}  // namespace jbig2test

#endif
