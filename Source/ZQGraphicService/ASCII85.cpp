// ASCII base-85 decoding and encoding.
//
// Decoding: white space is skipped, 'z' stands for four zero bytes at the
// start of a group, '~' ends the data (the '>' after it is not required), and
// a leading "<~" is skipped. A final group of 2..4 characters yields 1..3
// bytes; a lone final character, a 'z' inside a group, a group worth more
// than 2^32-1 or any other character is ZQ_CORRUPT. Data without "~>" is
// accepted as if it ended there.
//
// Encoding writes one line of groups, 'z' for all-zero groups, then "~>".
#include <cstdint>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

inline bool isPdfSpace(unsigned char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0';
}

// Emits the first `n` bytes of a group value, most significant first.
bool emitGroup(uint32_t v, int n, ZqBuffer& out) {
    unsigned char b[4] = {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                          static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    return out.append(b, std::size_t(n));
}

}  // namespace

int ascii85Decode(ByteView in, ZqBuffer& out) {
    if (!out.reserveGuess(in.size / 5 * 4 + 4)) return ZQ_TOO_LARGE;
    std::size_t i = 0;
    while (i < in.size && isPdfSpace(in.data[i])) ++i;
    if (in.size - i >= 2 && in.data[i] == '<' && in.data[i + 1] == '~') i += 2;
    uint64_t value = 0;
    int count = 0;
    for (; i < in.size; ++i) {
        const unsigned char c = in.data[i];
        if (c == '~') break;
        if (isPdfSpace(c)) continue;
        if (c == 'z') {
            if (count != 0) return ZQ_CORRUPT;
            if (!emitGroup(0, 4, out)) return ZQ_TOO_LARGE;
            continue;
        }
        if (c < '!' || c > 'u') return ZQ_CORRUPT;
        value = value * 85 + (c - '!');
        if (++count == 5) {
            if (value > 0xffffffffu) return ZQ_CORRUPT;
            if (!emitGroup(uint32_t(value), 4, out)) return ZQ_TOO_LARGE;
            value = 0;
            count = 0;
        }
    }
    if (count == 1) return ZQ_CORRUPT;
    if (count > 1) {
        // Pad with the highest digit so that truncation gives the right bytes.
        for (int k = count; k < 5; ++k) value = value * 85 + 84;
        if (value > 0xffffffffu) return ZQ_CORRUPT;
        if (!emitGroup(uint32_t(value), count - 1, out)) return ZQ_TOO_LARGE;
    }
    return ZQ_OK;
}

int ascii85Encode(ByteView in, ZqBuffer& out) {
    const std::size_t groups = in.size / 4 + 1;
    if (groups > (out.limit() - 2) / 5 || !out.reserveExtra(groups * 5 + 2)) return ZQ_TOO_LARGE;
    unsigned char* dst = out.data() + out.size();
    unsigned char* const begin = dst;
    std::size_t i = 0;
    for (; i + 4 <= in.size; i += 4) {
        uint32_t v = uint32_t(in.data[i]) << 24 | uint32_t(in.data[i + 1]) << 16 | uint32_t(in.data[i + 2]) << 8 |
                     in.data[i + 3];
        if (v == 0) {
            *dst++ = 'z';
            continue;
        }
        for (int k = 4; k >= 0; --k) {
            dst[k] = static_cast<unsigned char>('!' + v % 85);
            v /= 85;
        }
        dst += 5;
    }
    const std::size_t rest = in.size - i;
    if (rest) {
        uint32_t v = 0;
        for (std::size_t k = 0; k < 4; ++k) v = v << 8 | (k < rest ? in.data[i + k] : 0);
        unsigned char group[5];
        for (int k = 4; k >= 0; --k) {
            group[k] = static_cast<unsigned char>('!' + v % 85);
            v /= 85;
        }
        for (std::size_t k = 0; k < rest + 1; ++k) *dst++ = group[k];
    }
    *dst++ = '~';
    *dst++ = '>';
    out.commit(std::size_t(dst - begin));
    return ZQ_OK;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
