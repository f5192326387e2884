// Helpers of the jbig2 tests (see jbig2_test_support.h).
#include "jbig2_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "jbig2/arithmeticdecoder.h"
#include "jbig2/jbig2decoder.h"

namespace jbig2test {

using Q = jbig2::ArithmeticDecoder;  // the probability estimation tables

Bytes mmrRows(const Rows& rows, bool eofb) {
    // The terminating codes of white runs 0 to 16 and black runs 0 to 12.
    static const char* const white[] = {"00110101", "000111", "0111",   "1000",   "1011",   "1100",  "1110",  "1111",
                                        "10011",    "10100",  "00111",  "01000",  "001000", "000011", "110100",
                                        "110101",   "101010"};
    static const char* const black[] = {"0000110111", "010", "11", "10", "011", "0011", "0010", "00011", "000101",
                                        "000100", "0000100", "0000101", "0000111"};
    BitWriter w;
    for (const std::string& row : rows)
        for (std::size_t x = 0, nw = 0, nb = 0; x < row.size(); nw = nb = 0) {
            while (x < row.size() && row[x] == '.') ++nw, ++x;
            while (x < row.size() && row[x] == '#') ++nb, ++x;
            w.bits("001").bits(white[nw]).bits(black[nb]);
        }
    if (eofb) w.bits("000000000001000000000001");
    return w.align().bytes();
}

Bytes genericMMR(uint32_t x, uint32_t y, unsigned char op, const Rows& rows, unsigned char flags) {
    const uint32_t w = static_cast<uint32_t>(rows.empty() ? 0 : rows[0].size());
    return cat({regionInfo(w, static_cast<uint32_t>(rows.size()), x, y, op), Bytes{flags}, mmrRows(rows)});
}

void MQEncoder::encode(unsigned short& cx, int d) {
    const unsigned i = cx >> 1;
    const uint32_t qe = Q::qeTab[i] >> 16;
    const int mps = cx & 1;
    A -= qe;
    if (d == mps && (A & 0x8000)) {
        C += qe;
        return;
    }
    // CODEMPS takes the lower interval (A = qe) when it is the larger one,
    // CODELPS when it is the smaller one; then the state moves and renormalises.
    if ((A < qe) == (d == mps))
        A = qe;
    else
        C += qe;
    if (d == mps)
        cx = static_cast<unsigned short>((Q::nmpsTab[i] << 1) | mps);
    else
        cx = static_cast<unsigned short>((Q::nlpsTab[i] << 1) | (mps ^ Q::switchTab[i]));
    do {
        A <<= 1;
        C <<= 1;
        if (--CT == 0) byteout();
    } while ((A & 0x8000) == 0);
}

void MQEncoder::byteout() {
    if (B != 0xFF && C >= 0x8000000) {  // a carry into B
        if (B >= 0) ++B;
        if (B == 0xFF) C &= 0x7FFFFFF;
    }
    const int shift = B == 0xFF ? 20 : 19;  // a bit stuffed after 0xFF
    if (B >= 0) out.push_back(static_cast<unsigned char>(B));
    B = static_cast<int>(C >> shift) & 0xFF;
    C &= (1u << shift) - 1;
    CT = 27 - shift;
}

Bytes MQEncoder::flush() {
    const uint32_t tempc = C + A;  // SETBITS
    C |= 0xFFFF;
    if (C >= tempc) C -= 0x8000;
    for (int i = 0; i < 2; ++i) {
        C <<= CT;
        byteout();
    }
    if (B >= 0) out.push_back(static_cast<unsigned char>(B));
    if (B != 0xFF) out.push_back(0xFF);
    out.push_back(0xAC);
    return out;
}

Rows Bitmap::rows() const {
    Rows r(height, std::string(width, '.'));
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            if (pixel(x, y)) r[y][x] = '#';
    return r;
}

Bitmap fromPacked(uint32_t width, uint32_t height, uint32_t stride, const unsigned char* data) {
    return {width, height, stride, Bytes(data, data + static_cast<std::size_t>(stride) * height), true};
}

Bitmap fromRows(const Bytes& bytes, uint32_t width, bool inverted) {
    const uint32_t stride = width ? (width + 7) / 8 : 1;
    Bytes black(bytes);
    if (inverted)
        for (unsigned char& b : black) b = static_cast<unsigned char>(~b);
    return fromPacked(width, static_cast<uint32_t>(black.size() / stride), stride, black.data());
}

Bitmap readBmp(const std::string& path) {
    const Bytes d = readFile(path);
    if (d.size() < 62 || d[0] != 'B' || d[1] != 'M') return Bitmap();
    auto le32 = [&](std::size_t p) {
        return uint32_t(d[p]) | (uint32_t(d[p + 1]) << 8) | (uint32_t(d[p + 2]) << 16) | (uint32_t(d[p + 3]) << 24);
    };
    const uint32_t offset = le32(10), pal = 14 + le32(14);
    const int32_t w = static_cast<int32_t>(le32(18)), h = static_cast<int32_t>(le32(22));
    if ((d[28] | (d[29] << 8)) != 1 || w <= 0 || h == 0) return Bitmap();
    // Black is the palette index of lower luminance.
    const bool invert = d[pal + 4] + d[pal + 5] + d[pal + 6] > d[pal] + d[pal + 1] + d[pal + 2];
    const uint32_t width = static_cast<uint32_t>(w), height = static_cast<uint32_t>(h < 0 ? -h : h);
    const uint32_t stride = (width + 7) / 8, rowBytes = ((width + 31) / 32) * 4;
    Bytes bits(static_cast<std::size_t>(stride) * height);
    for (uint32_t y = 0; y < height; ++y) {
        const std::size_t p = offset + static_cast<std::size_t>(h > 0 ? height - 1 - y : y) * rowBytes;
        if (p + stride > d.size()) return Bitmap();
        for (uint32_t i = 0; i < stride; ++i)
            bits[y * stride + i] = static_cast<unsigned char>(invert ? ~d[p + i] : d[p + i]);
    }
    return fromPacked(width, height, stride, bits.data());
}

// P4 as jbig2dec and the tool write it: no comments.
Bitmap readPbm(const std::string& path) {
    std::istringstream in(testutil::readFile(path));
    std::string magic;
    uint32_t w = 0, h = 0;
    if (!(in >> magic >> w >> h) || magic != "P4") return Bitmap();
    in.get();  // the single whitespace before the raster
    const std::string raster((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (raster.size() < static_cast<std::size_t>((w + 7) / 8) * h) return Bitmap();
    return fromPacked(w, h, (w + 7) / 8, reinterpret_cast<const unsigned char*>(raster.data()));
}

bool samePixels(const Bitmap& a, const Bitmap& b, bool topRows) {
    if (!a.ok || !b.ok || a.width != b.width || (topRows ? a.height > b.height : a.height != b.height)) return false;
    const Rows ra = a.rows(), rb = b.rows();
    return std::equal(ra.begin(), ra.end(), rb.begin());
}

Decoded decodeJbig2(const Bytes& data, Form form) {
    Bytes copy = data;
    std::istringstream stream(std::string(data.begin(), data.end()));
    jbig2::Jbig2Decoder d = form == Form::Stream ? jbig2::Jbig2Decoder(stream)
                                                 : jbig2::Jbig2Decoder(copy.data(), static_cast<unsigned>(copy.size()),
                                                                       form == Form::Embedded);
    Decoded r;
    const int thrown = thrownBy([&] { r.result = d.decodeImage(); });
    if (thrown >= 0) r.result = kThrown + thrown;
    if (r.result != jbig2::JBIG2_SUCCESS || (r.pages = d.getPageNumber()) == 0) return r;
    jbig2::ImageProcessor<jbig2::ImageDataBits>* img = d.getImage(0);
    r.image = fromPacked(img->getWidth(), img->getHeight(), img->getStride(), img->getData());
    EXPECT_EQ(d.getCurPageHeight(0), r.image.height);
    EXPECT_EQ(d.getCurPageDataSize(0), r.image.stride * r.image.height);
    return r;
}

void checkDecodeCases(const std::vector<DecodeCase>& cases) {
    for (const DecodeCase& c : cases) {
        SCOPED_TRACE(c.what);
        const Decoded d = decodeJbig2(c.data, c.form);
        EXPECT_EQ(d.result, c.result);
        if (d.result == jbig2::JBIG2_SUCCESS) { EXPECT_EQ(d.pages, c.pages); }
        EXPECT_EQ(d.image.rows(), c.rows);
    }
}

namespace {

uint32_t be32(const Bytes& d, std::size_t p) {
    if (p + 4 > d.size()) return 0;
    return (uint32_t(d[p]) << 24) | (uint32_t(d[p + 1]) << 16) | (uint32_t(d[p + 2]) << 8) | d[p + 3];
}

struct SegmentInfo {
    int type = 0;
    std::size_t headerStart = 0, headerEnd = 0, dataStart = 0, dataEnd = 0;
    uint32_t dataLength = 0;  // as written
};

// The end of a generic region of unknown length: the end marker (0xFF 0xAC
// arithmetic, 0x00 0x00 MMR) and the 4-byte row count behind it.
std::size_t findUnknownEnd(const Bytes& d, std::size_t dataStart) {
    const bool mmr = dataStart + 17 < d.size() && (d[dataStart + 17] & 1);
    for (std::size_t p = dataStart + 18; p + 6 <= d.size(); ++p)
        if (d[p] == (mmr ? 0x00 : 0xFF) && d[p + 1] == (mmr ? 0x00 : 0xAC)) return p + 6;
    return d.size();
}

// Reads the header at `p` and moves past it.
bool parseHeader(const Bytes& d, std::size_t& p, SegmentInfo& s) {
    if (p + 11 > d.size()) return false;
    s.headerStart = p;
    const uint32_t number = be32(d, p);
    const unsigned char flags = d[p + 4];
    s.type = flags & 0x3F;
    uint32_t count = d[p + 5] >> 5;
    p += 6;
    if (count == 7) {  // the long form, then the retention bits
        count = be32(d, p - 1) & 0x1FFFFFFF;
        p += 3 + (count + 8) / 8;
    }
    p += count * (number <= 256 ? 1 : (number <= 65536 ? 2 : 4)) + ((flags & 0x40) ? 4 : 1);
    s.dataLength = be32(d, p);
    s.headerEnd = p += 4;
    return p <= d.size();
}

}  // namespace

Bytes pickSegments(const Bytes& d, const std::function<bool(int type)>& keep) {
    std::vector<SegmentInfo> segments;
    std::size_t p = 0;
    bool randomAccess = false;
    static const unsigned char id[8] = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n'};
    if (d.size() >= 9 && std::memcmp(d.data(), id, 8) == 0) {
        randomAccess = !(d[8] & 1);
        p = 9 + ((d[8] & 2) ? 0 : 4);
    }
    for (SegmentInfo s; parseHeader(d, p, s); s = SegmentInfo()) {
        if (!randomAccess) {
            s.dataStart = p;
            s.dataEnd = s.dataLength == 0xFFFFFFFFu ? findUnknownEnd(d, p) : p + s.dataLength;
            if (s.dataEnd > d.size()) break;
            p = s.dataEnd;
        }
        segments.push_back(s);
        if (s.type == 51) break;
    }
    Bytes out;
    for (SegmentInfo& s : segments) {
        if (randomAccess) {  // all headers, then all data
            s.dataStart = p;
            p = s.dataEnd = p + s.dataLength;
        }
        if (!keep(s.type) || s.dataEnd > d.size()) continue;
        const auto at = [&](std::size_t i) { return d.begin() + static_cast<std::ptrdiff_t>(i); };
        out.insert(out.end(), at(s.headerStart), at(s.headerEnd));
        out.insert(out.end(), at(s.dataStart), at(s.dataEnd));
    }
    return out;
}

void walkCorpus(const std::string& explainedFile,
                const std::function<std::string(const std::string& name, const Bytes& data)>& differs,
                const std::function<void(const std::string& name, const std::string& rule)>& checkRule) {
    std::map<std::string, std::string> rules = testutil::explained(std::string(JBIG2_TEST_DIR) + "/" + explainedFile);
    for (auto& e : rules) e.second = e.second.substr(0, e.second.find(' '));
    int same = 0, explainedCount = 0;
    std::set<std::string> seen;
    for (const std::string& name : listedFiles()) {
        seen.insert(name);
        const std::string what = differs(name, readFile(kCorpus + "/" + name));
        const auto rule = rules.find(name);
        if (what.empty()) {
            ++same;
            if (rule != rules.end()) ADD_FAILURE() << name << " is listed (" << rule->second << ") but agrees";
        } else if (rule != rules.end()) {
            ++explainedCount;
            std::printf("  explained: %-50s %-34s %s\n", name.c_str(), rule->second.c_str(), what.c_str());
            if (checkRule) checkRule(name, rule->second);
        } else {
            ADD_FAILURE() << name << ": " << what;
        }
    }
    for (const auto& r : rules)
        if (!seen.count(r.first)) ADD_FAILURE() << explainedFile << " lists " << r.first << ", not a listed file";
    std::printf("%d agree, %d explained, %zu wrong (of %zu files)\n", same, explainedCount,
                seen.size() - same - explainedCount, seen.size());
    EXPECT_GT(seen.size(), 100u);
}

}  // namespace jbig2test
