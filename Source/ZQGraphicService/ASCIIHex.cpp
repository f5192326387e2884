// ASCIIHex decoding and encoding.
//
// Decoding skips PDF white space, stops at '>', pads an odd final digit with
// 0, and rejects any other character with ZQ_CORRUPT. Data that ends without
// '>' is accepted as if it were there. Encoding writes upper-case pairs on
// one line followed by '>'.
#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

inline bool isPdfSpace(unsigned char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0';
}

inline int hexValue(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

int asciiHexDecode(ByteView in, ZqBuffer& out) {
    if (!out.reserveGuess(in.size / 2 + 1)) return ZQ_TOO_LARGE;
    int high = -1;
    for (std::size_t i = 0; i < in.size; ++i) {
        const unsigned char c = in.data[i];
        if (c == '>') break;
        if (isPdfSpace(c)) continue;
        const int v = hexValue(c);
        if (v < 0) return ZQ_CORRUPT;
        if (high < 0) {
            high = v;
        } else {
            if (!out.push(static_cast<unsigned char>(high << 4 | v))) return ZQ_TOO_LARGE;
            high = -1;
        }
    }
    if (high >= 0 && !out.push(static_cast<unsigned char>(high << 4))) return ZQ_TOO_LARGE;
    return ZQ_OK;
}

int asciiHexEncode(ByteView in, ZqBuffer& out) {
    static const char digits[] = "0123456789ABCDEF";
    if (in.size > (out.limit() - 1) / 2 || !out.reserveExtra(in.size * 2 + 1)) return ZQ_TOO_LARGE;
    unsigned char* dst = out.data() + out.size();
    for (std::size_t i = 0; i < in.size; ++i) {
        *dst++ = static_cast<unsigned char>(digits[in.data[i] >> 4]);
        *dst++ = static_cast<unsigned char>(digits[in.data[i] & 15]);
    }
    *dst = '>';
    out.commit(in.size * 2 + 1);
    return ZQ_OK;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
