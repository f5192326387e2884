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

using jbig2::ArithmeticDecoder;

static void mmrRow(BitWriter& w, const std::string& row) {
    // The terminating codes of white runs 0 to 16 and black runs 0 to 12.
    static const char* const white[] = {"00110101", "000111", "0111",   "1000",   "1011",   "1100",
                                        "1110",     "1111",   "10011",  "10100",  "00111",  "01000",
                                        "001000",   "000011", "110100", "110101", "101010"};
    static const char* const black[] = {"0000110111", "010",    "11",     "10",      "011",     "0011",   "0010",
                                        "00011",      "000101", "000100", "0000100", "0000101", "0000111"};
    std::size_t x = 0;
    while (x < row.size()) {
        std::size_t nw = 0, nb = 0;
        while (x < row.size() && row[x] == '.') ++nw, ++x;
        while (x < row.size() && row[x] == '#') ++nb, ++x;
        w.bits("001").bits(white[nw]).bits(black[nb]);
    }
}

Bytes mmrRows(const Rows& rows, bool eofb) {
    BitWriter w;
    for (const std::string& r : rows) mmrRow(w, r);
    if (eofb) w.bits("000000000001000000000001");
    return w.align().bytes();
}

Bytes genericMMR(uint32_t x, uint32_t y, unsigned char op, const Rows& rows, unsigned char flags) {
    const uint32_t w = static_cast<uint32_t>(rows.empty() ? 0 : rows[0].size());
    return cat({regionInfo(w, static_cast<uint32_t>(rows.size()), x, y, op), Bytes{flags}, mmrRows(rows)});
}

void MQEncoder::encode(unsigned short& cx, int d) {
    const unsigned i = cx >> 1;
    const uint32_t qe = ArithmeticDecoder::qeTab[i] >> 16;
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
        cx = static_cast<unsigned short>((ArithmeticDecoder::nmpsTab[i] << 1) | mps);
    else
        cx = static_cast<unsigned short>((ArithmeticDecoder::nlpsTab[i] << 1) | (mps ^ ArithmeticDecoder::switchTab[i]));
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

void IntEncoder::bit(MQEncoder& enc, int b) {
    enc.encode(m_cx[static_cast<std::size_t>(m_prev)], b);
    m_prev = m_prev < 256 ? (m_prev << 1) | b : ((((m_prev << 1) | b) & 0x1FF) | 0x100);
}

void IntEncoder::encode(MQEncoder& enc, int64_t value, bool oob) {
    m_prev = 1;
    const uint64_t v = oob ? 0 : static_cast<uint64_t>(value < 0 ? -value : value);
    bit(enc, oob || value < 0);
    struct Range { uint64_t low; int bits; };
    static const Range ranges[] = {{0, 2}, {4, 4}, {20, 6}, {84, 8}, {340, 12}, {4436, 32}};
    int r = 0;
    while (r < 5 && v >= ranges[r + 1].low) ++r;
    // Prefix: r ones, then a zero unless it is the last range.
    for (int i = 0; i < r; ++i) bit(enc, 1);
    if (r < 5) bit(enc, 0);
    for (int i = ranges[r].bits - 1; i >= 0; --i) bit(enc, static_cast<int>(((v - ranges[r].low) >> i) & 1));
}

std::vector<StandardTableCases> standardTableCases() {
    static const char* const text[] = {
        "0+4:0=0 0+4:15=15 10+8:0=16 10+8:255=271 110+16:0=272 110+16:65535=65807 111+32:0=65808 "
        "111+32:1000000=1065808",
        "0=0 10=1 110=2 1110+3:0=3 1110+3:7=10 11110+6:0=11 11110+6:63=74 111110+32:0=75 111110+32:25=100 "
        "111111=oob",
        "11111110+8:0=-256 11111110+8:255=-1 0=0 10=1 110=2 1110+3:5=8 11110+6:63=74 11111111+32:0=-257 "
        "11111111+32:43=-300 1111110+32:0=75 111110=oob",
        "0=1 10=2 110=3 1110+3:7=11 11110+6:0=12 11110+6:63=75 11111+32:0=76 11111+32:4=80",
        "1111110+8:0=-255 1111110+8:255=0 0=1 10=2 110=3 1110+3:0=4 11110+6:63=75 1111111+32:0=-256 "
        "1111111+32:10=-266 111110+32:0=76",
        "11100+10:0=-2048 11100+10:1023=-1025 1000+9:0=-1024 1001+8:255=-257 1010+7:0=-256 11101+6:63=-65 "
        "11110+5:0=-64 1011+5:31=-1 00+7:0=0 00+7:127=127 010+7:0=128 011+8:255=511 1100+9:0=512 "
        "1101+10:1023=2047 111110+32:0=-2049 111110+32:1=-2050 111111+32:0=2048 111111+32:2=2050",
        "1000+9:0=-1024 000+8:255=-257 1001+7:0=-256 11010+6:0=-128 11011+5:31=-33 1010+5:0=-32 1011+5:0=0 "
        "11100+5:31=63 11101+6:0=64 1100+7:127=255 001+8:0=256 010+9:511=1023 011+10:0=1024 "
        "011+10:1023=2047 11110+32:0=-1025 11110+32:5=-1030 11111+32:0=2048",
        "11111100+3:0=-15 11111100+3:7=-8 111111100+1:1=-6 11111101+1:0=-5 111111101=-3 1111100=-2 1010=-1 "
        "00+1:0=0 00+1:1=1 11010=2 111010=3 100+4:15=19 111011+1:1=21 1011+4:0=22 1100+5:31=69 11011+6:0=70 "
        "11100+7:127=261 111100+7:0=262 1111101+8:255=645 111101+10:1023=1669 111111110+32:0=-16 "
        "111111110+32:4=-20 111111111+32:0=1670 01=oob",
        "11111100+4:0=-31 111111100+2:3=-12 11111101+2:0=-11 111111101+1:1=-6 1111100+1:0=-5 1010+1:1=-2 "
        "010+1:0=-1 010+1:1=0 011+1:1=2 11010+1:0=3 111010+1:1=6 100+5:31=38 111011+2:0=39 1011+5:31=74 "
        "1100+6:0=75 11011+7:127=266 11100+8:0=267 111100+8:255=778 1111101+9:0=779 111101+11:2047=3338 "
        "111111110+32:0=-32 111111111+32:1=3340 00=oob",
        "1111010+4:0=-21 1111010+4:15=-6 11111100=-5 1111011=-4 11000=-3 00+2:0=-2 00+2:3=1 11001=2 "
        "110110=3 1111100=4 11111101=5 01+6:0=6 01+6:63=69 11010+5:0=70 110111+5:31=133 111000+6:0=134 "
        "111001+7:127=325 111010+8:0=326 111011+9:511=1093 111100+10:0=1094 1111101+11:2047=4165 "
        "11111110+32:0=-22 11111111+32:0=4166 10=oob",
        "0=1 10+1:1=3 1100=4 1101+1:1=6 11100+1:0=7 11101+2:3=12 111100+2:0=13 1111010+2:3=20 "
        "1111011+3:0=21 1111100+4:15=44 1111101+5:0=45 1111110+6:63=140 1111111+32:0=141 1111111+32:9=150",
        "0=1 10=2 110+1:1=4 11100=5 11101+1:1=7 111100+1:0=8 1111010=10 1111011+1:1=12 1111100+2:0=13 "
        "1111101+3:7=24 1111110+4:0=25 11111110+5:31=72 11111111+32:0=73",
        "0=1 100=2 1100=3 11100=4 1101+1:1=6 101+3:0=7 101+3:7=14 111010+1:0=15 111011+2:3=20 111100+3:0=21 "
        "111101+4:15=44 111110+5:0=45 1111110+6:63=140 1111111+32:0=141",
        "100=-2 101=-1 0=0 110=1 111=2",
        "1111100+4:0=-24 1111100+4:15=-9 111100+2:0=-8 11100+1:1=-3 1100=-2 100=-1 0=0 101=1 1101=2 "
        "11101+1:1=4 111101+2:3=8 1111101+4:15=24 1111110+32:0=-25 1111110+32:75=-100 1111111+32:0=25 "
        "1111111+32:75=100"};
    std::vector<StandardTableCases> all;
    for (int t = 0; t < 15; ++t) {
        StandardTableCases table{static_cast<char>('A' + t), {}, {}};
        BitWriter w;
        std::istringstream in(text[t]);
        for (std::string c; in >> c;) {
            const std::size_t plus = c.find('+'), colon = c.find(':'), eq = c.find('=');
            w.bits(c.substr(0, std::min(plus, eq)));
            if (plus != std::string::npos)
                w.value(static_cast<uint32_t>(std::stoul(c.substr(colon + 1, eq - colon - 1))),
                        std::stoi(c.substr(plus + 1, colon - plus - 1)));
            const bool oob = c.substr(eq + 1) == "oob";
            table.cases.push_back({c, oob, oob ? 0 : std::stoi(c.substr(eq + 1))});
        }
        table.bits = w.bytes();
        all.push_back(table);
    }
    return all;
}

Rows Bitmap::rows() const {
    Rows r;
    for (uint32_t y = 0; y < height; ++y) {
        std::string s;
        for (uint32_t x = 0; x < width; ++x) s += pixel(x, y) ? '#' : '.';
        r.push_back(s);
    }
    return r;
}

Bitmap fromPacked(uint32_t width, uint32_t height, uint32_t stride, const unsigned char* data) {
    return {width, height, stride, Bytes(data, data + static_cast<std::size_t>(stride) * height), true};
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
    for (uint32_t y = 0; y < a.height; ++y)
        for (uint32_t x = 0; x < a.width; ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) return false;
    return true;
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
        out.insert(out.end(), d.begin() + static_cast<std::ptrdiff_t>(s.headerStart),
                   d.begin() + static_cast<std::ptrdiff_t>(s.headerEnd));
        out.insert(out.end(), d.begin() + static_cast<std::ptrdiff_t>(s.dataStart),
                   d.begin() + static_cast<std::ptrdiff_t>(s.dataEnd));
    }
    return out;
}

void walkCorpus(const std::string& explainedFile,
                const std::function<std::string(const std::string& name, const Bytes& data)>& differs,
                const std::function<void(const std::string& name, const std::string& rule)>& checkRule) {
    std::map<std::string, std::string> rules = testutil::explained(std::string(JBIG2_TEST_DIR) + "/" + explainedFile);
    for (auto& e : rules) e.second = e.second.substr(0, e.second.find(' '));
    int same = 0, explainedCount = 0, wrong = 0;
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
            ++wrong;
            ADD_FAILURE() << name << ": " << what;
        }
    }
    for (const auto& r : rules)
        if (!seen.count(r.first)) ADD_FAILURE() << explainedFile << " lists " << r.first << ", not a listed file";
    std::printf("%d agree, %d explained, %d wrong (of %zu files)\n", same, explainedCount, wrong, seen.size());
    EXPECT_GT(seen.size(), 100u);
}

}  // namespace jbig2test
