// Helpers of the jbig2 tests (see jbig2_test_support.h).
#include "jbig2_test_support.h"

#include <cctype>
#include <cstring>
#include <sstream>

#include "jbig2/arithmeticdecoder.h"

namespace jbig2test {

using jbig2::ArithmeticDecoder;

void MQEncoder::encode(unsigned short& cx, int d) {
    if (d == (cx & 1))
        codeMPS(cx);
    else
        codeLPS(cx);
}

void MQEncoder::codeMPS(unsigned short& cx) {
    const unsigned i = cx >> 1;
    const uint32_t qe = ArithmeticDecoder::qeTab[i] >> 16;
    A -= qe;
    if ((A & 0x8000) == 0) {
        if (A < qe)
            A = qe;
        else
            C += qe;
        cx = static_cast<unsigned short>((ArithmeticDecoder::nmpsTab[i] << 1) | (cx & 1));
        renorme();
    } else {
        C += qe;
    }
}

void MQEncoder::codeLPS(unsigned short& cx) {
    const unsigned i = cx >> 1;
    const uint32_t qe = ArithmeticDecoder::qeTab[i] >> 16;
    int mps = cx & 1;
    A -= qe;
    if (A < qe)
        C += qe;
    else
        A = qe;
    if (ArithmeticDecoder::switchTab[i]) mps = 1 - mps;
    cx = static_cast<unsigned short>((ArithmeticDecoder::nlpsTab[i] << 1) | mps);
    renorme();
}

void MQEncoder::renorme() {
    do {
        A <<= 1;
        C <<= 1;
        if (--CT == 0) byteout();
    } while ((A & 0x8000) == 0);
}

// B is the byte at BP; -1 stands for the byte before the start, never written.
void MQEncoder::byteout() {
    auto next = [&](int shift, uint32_t mask, int ct) {
        if (B >= 0) out.push_back(static_cast<unsigned char>(B));
        B = static_cast<int>(C >> shift) & 0xFF;
        C &= mask;
        CT = ct;
    };
    if (B == 0xFF) {
        next(20, 0xFFFFF, 7);
    } else if (C < 0x8000000) {
        next(19, 0x7FFFF, 8);
    } else {
        if (B >= 0) ++B;
        if (B == 0xFF) {
            C &= 0x7FFFFFF;
            next(20, 0xFFFFF, 7);
        } else {
            next(19, 0x7FFFF, 8);
        }
    }
}

void MQEncoder::setbits() {
    const uint32_t tempc = C + A;
    C |= 0xFFFF;
    if (C >= tempc) C -= 0x8000;
}

Bytes MQEncoder::flush() {
    setbits();
    C <<= CT;
    byteout();
    C <<= CT;
    byteout();
    if (B >= 0) out.push_back(static_cast<unsigned char>(B));
    if (B != 0xFF) out.push_back(0xFF);
    out.push_back(0xAC);
    return out;
}

void IntEncoder::bit(MQEncoder& enc, int b) {
    enc.encode(m_cx[static_cast<std::size_t>(m_prev)], b);
    if (m_prev < 256)
        m_prev = (m_prev << 1) | b;
    else
        m_prev = (((m_prev << 1) | b) & 0x1FF) | 0x100;
}

void IntEncoder::encode(MQEncoder& enc, int64_t value, bool oob) {
    m_prev = 1;
    const int s = oob ? 1 : (value < 0 ? 1 : 0);
    const uint64_t v = oob ? 0 : static_cast<uint64_t>(value < 0 ? -value : value);
    bit(enc, s);
    struct Range { uint64_t low; int prefix; int bits; };
    static const Range ranges[] = {{0, 1, 2}, {4, 2, 4}, {20, 3, 6}, {84, 4, 8}, {340, 5, 12}, {4436, 5, 32}};
    int r = 0;
    while (r < 5 && v >= ranges[r + 1].low) ++r;
    // Prefix: r ones, then a zero unless it is the last range.
    for (int i = 0; i < r; ++i) bit(enc, 1);
    if (r < 5) bit(enc, 0);
    const uint64_t rest = v - ranges[r].low;
    for (int i = ranges[r].bits - 1; i >= 0; --i) bit(enc, static_cast<int>((rest >> i) & 1));
}

namespace {

uint32_t be32(const Bytes& d, std::size_t p) {
    if (p + 4 > d.size()) return 0;
    return (uint32_t(d[p]) << 24) | (uint32_t(d[p + 1]) << 16) | (uint32_t(d[p + 2]) << 8) | d[p + 3];
}

// The end of a generic region of unknown length (7.2.7): the end marker
// (0xFF 0xAC arithmetic, 0x00 0x00 MMR) and the 4-byte row count behind it.
std::size_t findUnknownEnd(const Bytes& d, std::size_t dataStart) {
    const bool mmr = dataStart + 17 < d.size() && (d[dataStart + 17] & 1);
    const unsigned char m0 = mmr ? 0x00 : 0xFF, m1 = mmr ? 0x00 : 0xAC;
    for (std::size_t p = dataStart + 18; p + 6 <= d.size(); ++p)
        if (d[p] == m0 && d[p + 1] == m1) return p + 6;
    return d.size();
}

bool parseHeader(const Bytes& d, std::size_t& p, SegmentInfo& s) {
    if (p + 11 > d.size()) return false;
    s.headerStart = p;
    s.number = be32(d, p);
    const unsigned char flags = d[p + 4];
    s.type = flags & 0x3F;
    p += 5;
    uint32_t count = d[p] >> 5;
    if (count == 7) {
        count = be32(d, p) & 0x1FFFFFFF;
        p += 4 + (count + 8) / 8;
    } else {
        p += 1;
    }
    const int size = s.number <= 256 ? 1 : (s.number <= 65536 ? 2 : 4);
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t v = 0;
        for (int k = 0; k < size; ++k) v = (v << 8) | (p < d.size() ? d[p++] : 0);
        s.referred.push_back(v);
    }
    if (flags & 0x40) {
        s.pageAssociation = be32(d, p);
        p += 4;
    } else {
        s.pageAssociation = p < d.size() ? d[p] : 0;
        p += 1;
    }
    s.dataLength = be32(d, p);
    p += 4;
    s.headerEnd = p;
    return p <= d.size();
}

}  // namespace

Jbig2File listSegments(const Bytes& d) {
    Jbig2File f;
    std::size_t p = 0;
    static const unsigned char id[8] = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n'};
    if (d.size() >= 9 && std::memcmp(d.data(), id, 8) == 0) {
        f.hasFileHeader = true;
        const unsigned char flags = d[8];
        f.randomAccess = !(flags & 1);
        p = 9 + ((flags & 2) ? 0 : 4);
    }
    if (!f.randomAccess) {
        while (p < d.size()) {
            SegmentInfo s;
            if (!parseHeader(d, p, s)) return f;
            s.dataStart = p;
            s.dataEnd = s.dataLength == 0xFFFFFFFFu ? findUnknownEnd(d, p) : p + s.dataLength;
            if (s.dataEnd > d.size()) return f;
            p = s.dataEnd;
            f.segments.push_back(s);
            if (s.type == 51) break;
        }
    } else {
        for (;;) {
            SegmentInfo s;
            if (!parseHeader(d, p, s)) return f;
            f.segments.push_back(s);
            if (s.type == 51) break;
        }
        for (SegmentInfo& s : f.segments) {
            s.dataStart = p;
            s.dataEnd = p + s.dataLength;
            if (s.dataEnd > d.size()) return f;
            p = s.dataEnd;
        }
    }
    f.ok = true;
    return f;
}

Bytes toEmbedded(const Bytes& d) {
    const Jbig2File f = listSegments(d);
    Bytes out;
    for (const SegmentInfo& s : f.segments) {
        if (s.type == 51) continue;
        out.insert(out.end(), d.begin() + static_cast<std::ptrdiff_t>(s.headerStart),
                   d.begin() + static_cast<std::ptrdiff_t>(s.headerEnd));
        out.insert(out.end(), d.begin() + static_cast<std::ptrdiff_t>(s.dataStart),
                   d.begin() + static_cast<std::ptrdiff_t>(s.dataEnd));
    }
    return out;
}

Bitmap fromPacked(uint32_t width, uint32_t height, uint32_t stride, const unsigned char* data) {
    Bitmap b;
    b.width = width;
    b.height = height;
    b.stride = stride;
    b.bits.assign(data, data + static_cast<std::size_t>(stride) * height);
    b.ok = true;
    return b;
}

Bitmap readBmp(const std::string& path) {
    Bitmap b;
    const Bytes d = readFile(path);
    if (d.size() < 62 || d[0] != 'B' || d[1] != 'M') return b;
    auto le32 = [&](std::size_t p) {
        return uint32_t(d[p]) | (uint32_t(d[p + 1]) << 8) | (uint32_t(d[p + 2]) << 16) | (uint32_t(d[p + 3]) << 24);
    };
    const uint32_t offset = le32(10), infoSize = le32(14);
    const int32_t w = static_cast<int32_t>(le32(18)), h = static_cast<int32_t>(le32(22));
    const int bpp = d[28] | (d[29] << 8);
    if (bpp != 1 || w <= 0 || h == 0) return b;
    // Which palette index is black.
    const std::size_t pal = 14 + infoSize;
    const int lum0 = d[pal] + d[pal + 1] + d[pal + 2];
    const int lum1 = d[pal + 4] + d[pal + 5] + d[pal + 6];
    const bool invert = lum1 > lum0;  // index 1 is white: black is index 0
    b.width = static_cast<uint32_t>(w);
    b.height = static_cast<uint32_t>(h < 0 ? -h : h);
    b.stride = (b.width + 7) / 8;
    b.bits.assign(static_cast<std::size_t>(b.stride) * b.height, 0);
    const uint32_t rowBytes = ((b.width + 31) / 32) * 4;
    for (uint32_t y = 0; y < b.height; ++y) {
        const uint32_t srcRow = h > 0 ? b.height - 1 - y : y;
        const std::size_t p = offset + static_cast<std::size_t>(srcRow) * rowBytes;
        if (p + b.stride > d.size()) return Bitmap();
        for (uint32_t i = 0; i < b.stride; ++i)
            b.bits[y * b.stride + i] = static_cast<unsigned char>(invert ? ~d[p + i] : d[p + i]);
    }
    b.ok = true;
    return b;
}

Bitmap readPbm(const std::string& path) {
    Bitmap b;
    const Bytes d = readFile(path);
    std::size_t p = 0;
    auto token = [&]() {
        std::string t;
        while (p < d.size()) {
            if (d[p] == '#') {
                while (p < d.size() && d[p] != '\n') ++p;
            } else if (std::isspace(d[p])) {
                if (!t.empty()) break;
                ++p;
            } else {
                t += static_cast<char>(d[p++]);
            }
        }
        return t;
    };
    if (token() != "P4") return b;
    b.width = static_cast<uint32_t>(std::stoul(token()));
    b.height = static_cast<uint32_t>(std::stoul(token()));
    ++p;  // the single whitespace before the raster
    b.stride = (b.width + 7) / 8;
    const std::size_t n = static_cast<std::size_t>(b.stride) * b.height;
    if (p + n > d.size()) return Bitmap();
    b.bits.assign(d.begin() + static_cast<std::ptrdiff_t>(p), d.begin() + static_cast<std::ptrdiff_t>(p + n));
    b.ok = true;
    return b;
}

bool samePixels(const Bitmap& a, const Bitmap& b) {
    if (!a.ok || !b.ok || a.width != b.width || a.height != b.height) return false;
    for (uint32_t y = 0; y < a.height; ++y)
        for (uint32_t x = 0; x < a.width; ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) return false;
    return true;
}

}  // namespace jbig2test
