// LZW decoding as used by PDF: MSB-first codes of 9 to 12 bits, 256 clears
// the table, 257 ends the data, new entries start at 258.
//
// With early change (the PDF default) the code width grows one code before
// the table actually needs the wider codes, as TIFF writers do; without it,
// the width grows exactly when the next entry needs it.
//
// Like the Flate decoder, data that stops without an end code yields what was
// decoded, and a code that is not in the table ends decoding: with ZQ_OK if
// some output was produced before it, ZQ_CORRUPT otherwise.
#include <cstdint>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

constexpr unsigned kClear = 256;
constexpr unsigned kEnd = 257;
constexpr unsigned kFirstFree = 258;
constexpr unsigned kTableSize = 4096;

struct Entry {
    uint16_t prefix;  // previous code of the string, unused for single bytes
    uint8_t last;     // final byte of the string
    uint8_t first;    // first byte of the string
    uint16_t length;  // string length, 1..4096
};

class BitReader {
public:
    explicit BitReader(ByteView in) : in_(in) {}
    // Reads `width` bits MSB first; false when fewer remain.
    bool read(unsigned width, unsigned& code) {
        while (bits_ < width) {
            if (pos_ >= in_.size) return false;
            acc_ = (acc_ << 8) | in_.data[pos_++];
            bits_ += 8;
        }
        bits_ -= width;
        code = static_cast<unsigned>(acc_ >> bits_) & ((1u << width) - 1);
        return true;
    }

private:
    ByteView in_;
    std::size_t pos_ = 0;
    uint32_t acc_ = 0;
    unsigned bits_ = 0;
};

}  // namespace

int lzwDecode(ByteView in, bool earlyChange, ZqBuffer& out) {
    static_assert(kTableSize <= 65536, "entry fields are 16-bit");
    Entry table[kTableSize];
    for (unsigned i = 0; i < 256; ++i) table[i] = Entry{0, uint8_t(i), uint8_t(i), 1};
    const unsigned early = earlyChange ? 1 : 0;
    unsigned next = kFirstFree;
    unsigned width = 9;
    int prev = -1;  // previous code, -1 right after a clear
    const std::size_t start = out.size();
    BitReader bits(in);
    unsigned code;
    while (bits.read(width, code)) {
        if (code == kClear) {
            next = kFirstFree;
            width = 9;
            prev = -1;
            continue;
        }
        if (code == kEnd) break;
        if (code > next || (code == next && prev < 0) || (code >= 256 && code < kFirstFree)) {
            // Not in the table (and not the one entry about to be made).
            return out.size() > start ? ZQ_OK : ZQ_CORRUPT;
        }
        if (prev >= 0 && next < kTableSize) {
            // The new entry is prev's string plus the first byte of the
            // current string; when the current code is that very entry
            // (the KwKwK case), its first byte is prev's first byte.
            const Entry& p = table[prev];
            uint8_t firstByte = code == next ? p.first : table[code].first;
            table[next] = Entry{uint16_t(prev), firstByte, p.first, uint16_t(p.length + 1)};
            ++next;
            if (next + early >= (1u << width) && width < 12) ++width;
        }
        // Emit the string by walking the prefix chain from its end.
        const unsigned len = table[code].length;
        if (!out.reserveExtra(len)) return ZQ_TOO_LARGE;
        unsigned char* dst = out.data() + out.size() + len;
        unsigned c = code;
        for (unsigned i = 0; i < len; ++i) {
            *--dst = table[c].last;
            c = table[c].prefix;
        }
        out.commit(len);
        prev = static_cast<int>(code);
    }
    return ZQ_OK;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
