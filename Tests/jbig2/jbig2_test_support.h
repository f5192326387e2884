// Helpers of the jbig2 tests: builders of the smallest inputs that show a
// behaviour, bitmap readers, decoding by the jbig2:: decoder, the embedded
// form of a file, and the corpus walk.
#ifndef PDFKILN_TESTS_JBIG2_SUPPORT_H
#define PDFKILN_TESTS_JBIG2_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "jbig2/jbig2result.h"
#include "test_util.h"

namespace jbig2test {

using Bytes = std::vector<unsigned char>;
using Rows = std::vector<std::string>;  // a bitmap's rows, '#' black and '.' white

inline Bytes readFile(const std::string& path) {
    const std::string s = testutil::readFile(path);
    return Bytes(s.begin(), s.end());
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Hexadecimal digits, two a byte.
inline Bytes fromHex(const std::string& hex) {
    Bytes out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

// `v` big-endian in `n` bytes.
inline Bytes be(uint32_t v, int n = 4) {
    Bytes b;
    for (int s = 8 * n - 8; s >= 0; s -= 8) b.push_back(static_cast<unsigned char>(v >> s));
    return b;
}

// A segment header (short forms: up to 4 referred segments, numbers below
// 257, page 1) and its data; `length` replaces the data's size when given.
inline Bytes segment(uint32_t number, int type, const std::vector<uint32_t>& refs, const Bytes& data,
                     uint32_t length = 0xFFFFFFFEu) {
    return cat({be(number), {static_cast<unsigned char>(type), static_cast<unsigned char>(refs.size() << 5)},
                Bytes(refs.begin(), refs.end()), {1},
                be(length == 0xFFFFFFFEu ? static_cast<uint32_t>(data.size()) : length), data});
}
inline Bytes pageInfo(uint32_t w, uint32_t h, unsigned char flags = 0, uint16_t striping = 0) {
    return cat({be(w), be(h), be(72), be(96), {flags}, be(striping, 2)});
}
inline Bytes regionInfo(uint32_t w, uint32_t h, uint32_t x, uint32_t y, unsigned char op) {
    return cat({be(w), be(h), be(x), be(y), {op}});
}

// Most significant bit first.
class BitWriter {
public:
    BitWriter& bits(const std::string& s) {
        for (char c : s) bit(c == '1');
        return *this;
    }
    BitWriter& value(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bit((v >> i) & 1);
        return *this;
    }
    void bit(bool b) {
        if (m_n % 8 == 0) m_bytes.push_back(0);
        if (b) m_bytes.back() |= static_cast<unsigned char>(0x80 >> (m_n % 8));
        ++m_n;
    }
    BitWriter& align() {  // zero bits to the next byte boundary
        while (m_n % 8) bit(false);
        return *this;
    }
    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
    std::size_t m_n = 0;
};

// MMR rows in horizontal mode only (valid against any row above; white runs
// up to 16, black up to 12), an EOFB after them when asked.
Bytes mmrRows(const Rows& rows, bool eofb = false);
// An MMR generic region's data (`flags`: its flags byte).
Bytes genericMMR(uint32_t x, uint32_t y, unsigned char op, const Rows& rows, unsigned char flags = 0x01);
// Segments: page information, and an immediate generic region of MMR rows.
inline Bytes pageSeg(uint32_t number, uint32_t w, uint32_t h, unsigned char flags = 0, uint16_t striping = 0) {
    return segment(number, 48, {}, pageInfo(w, h, flags, striping));
}
inline Bytes mmrSeg(uint32_t number, uint32_t x, uint32_t y, unsigned char op, const Rows& rows, int type = 38) {
    return segment(number, type, {}, genericMMR(x, y, op, rows));
}
// The symbol ID table of a Huffman text region over one symbol: run code 1
// has length 1, the others none; then the symbol's code length, 1.
inline void oneSymbolIdTable(BitWriter& w) {
    for (int i = 0; i < 35; ++i) w.value(i == 1 ? 1 : 0, 4);
    w.bits("0").align();
}

// The MQ encoder of Annex E.2 (software conventions).
class MQEncoder {
public:
    void encode(unsigned short& cx, int d);
    Bytes flush();

private:
    void byteout();
    Bytes out;
    uint32_t A = 0x8000, C = 0;
    int CT = 12;
    int B = -1;  // the byte at BP; -1 before the first, never written
};

// The JBIG2_RESULT that `f` throws, or -1 when it returns.
template <typename F>
int thrownBy(F f) {
    try {
        f();
    } catch (jbig2::JBIG2_RESULT r) {
        return r;
    }
    return -1;
}

struct Bitmap {
    uint32_t width = 0, height = 0, stride = 0;
    Bytes bits;  // 1 is black
    bool ok = false;
    int pixel(uint32_t x, uint32_t y) const { return (bits[y * stride + (x >> 3)] >> (7 - (x & 7))) & 1; }
    Rows rows() const;
};
Bitmap fromPacked(uint32_t width, uint32_t height, uint32_t stride, const unsigned char* data);
// Rows of `width` pixels packed one after the other, 0 black when `inverted`.
Bitmap fromRows(const Bytes& bytes, uint32_t width, bool inverted = false);
Bitmap readBmp(const std::string& path);
Bitmap readPbm(const std::string& path);
// Same size and same pixels (padding bits ignored); with `topRows`, `a` may
// be `b` cut to its first rows.
bool samePixels(const Bitmap& a, const Bitmap& b, bool topRows = false);

// What jbig2::Jbig2Decoder makes of `data` in a form: the result (kThrown + r
// when decodeImage throws r), the page count and page 1.
enum class Form { Embedded, File, Stream };
constexpr int kThrown = 100;
struct Decoded { int result = -1; unsigned pages = 0; Bitmap image; };
Decoded decodeJbig2(const Bytes& data, Form form = Form::Embedded);
// A stream and what decodeJbig2 makes of it: the result, page 1's rows (none
// unless the result is 0) and, with result 0, the page count.
struct DecodeCase {
    const char* what;
    Bytes data;
    int result;
    Rows rows;
    Form form = Form::Embedded;
    unsigned pages = 1;
};
void checkDecodeCases(const std::vector<DecodeCase>& cases);

// A file's segments of the types `keep` takes, in the embedded form (no file
// header, sequential); unknown lengths of generic regions by their end marker.
Bytes pickSegments(const Bytes& file, const std::function<bool(int type)>& keep);
inline Bytes toEmbedded(const Bytes& file) { return pickSegments(file, [](int t) { return t != 51; }); }
// Split for PDF: dictionaries and code tables go to the globals.
inline bool isGlobal(int type) { return type == 0 || type == 16 || type == 53; }
inline bool isPageData(int type) { return !isGlobal(type) && type != 51; }

// The serenity JBIG2 corpus and its files that decode to reference/bitmap.bmp.
inline const std::string kCorpus = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";
inline bool haveCorpus() { return testutil::exists(kCorpus + "/decodes-to-bitmap.txt"); }
inline std::vector<std::string> listedFiles() { return testutil::listFile(kCorpus + "/decodes-to-bitmap.txt"); }

// Walks the listed files: `differs` says how a file's decoding differs ("" if
// not). A file that differs must be listed in `explainedFile` beside the
// tests, whose rule (first word) `checkRule` may check; a listed one must.
void walkCorpus(const std::string& explainedFile,
                const std::function<std::string(const std::string& name, const Bytes& data)>& differs,
                const std::function<void(const std::string& name, const std::string& rule)>& checkRule = nullptr);

// jbig2dec, a test-only oracle: `args` decoded to the PBM file `out`.
inline bool haveJbig2dec() { return testutil::exists("/usr/bin/jbig2dec"); }
inline Bitmap jbig2dec(const std::string& args, const std::string& out) {
    std::remove(out.c_str());
    return testutil::run("/usr/bin/jbig2dec -q -t pbm -o " + testutil::quote(out) + " " + args) == 0 ? readPbm(out)
                                                                                                      : Bitmap();
}

}  // namespace jbig2test

#endif
