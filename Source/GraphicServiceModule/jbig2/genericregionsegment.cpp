// Generic region decoding, ISO/IEC 14492 6.2.
//
// Order of the context bits in this decoder (most significant first), by
// template:
//   0: row y-2 x-1..x+1 (15-13), row y-1 x-2..x+2 (12-8), row y x-4..x-1 (7-4),
//      A1 A2 A3 A4 (3-0)
//   1: row y-2 x-1..x+2 (12-9), row y-1 x-2..x+2 (8-4), row y x-3..x-1 (3-1), A1 (0)
//   2: row y-2 x-1..x+1 (9-7), row y-1 x-2..x+1 (6-3), row y x-2..x-1 (2-1), A1 (0)
//   3: row y-1 x-3..x+1 (9-5), row y x-4..x-1 (4-1), A1 (0)
//
// The context is carried along the row in registers (rowwindows.h): one
// window for each of the two rows above and one register of the pixels
// decoded so far in the current row. Pixels outside the region read 0: the
// windows start and end with zero bytes, and the bits past the width inside
// a row's last byte are never set. AT pixels come out of the same registers
// wherever those reach, and are fetched by position only further away.
#include "jbig2/genericregionsegment.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "jbig2/jbig2result.h"
#include "jbig2/mmrdecoder.h"
#include "rowwindows.h"

namespace jbig2 {

// The fixed patterns of Figures 8 to 11 of 14492 in the order above. For
// template 3 the value 0x018A, which has been quoted for it, lacks the A1 bit
// of Figure 11 (four bits where the figure has five); the figure is followed
// here, as files with TPGDON and template 3 decode exactly only with it.
const unsigned int GenericRegionSegment::kTpgdonContext[4] = {0x3953, 0x079A, 0x00E3, 0x018B};

GenericRegionSegment::GenericRegionSegment() : m_contexts(nullptr), m_externalContexts(false), m_result(nullptr) {}

GenericRegionSegment::GenericRegionSegment(const Segment& header) : GenericRegionSegment() { setHeader(header); }

GenericRegionSegment::~GenericRegionSegment() {
    releaseContexts();
    delete m_result;
}

unsigned int GenericRegionSegment::contextSize(int templ) {
    static const unsigned int sizes[4] = {16, 13, 10, 10};
    return sizes[templ & 3];
}

void GenericRegionSegment::releaseContexts() {
    if (!m_externalContexts) std::free(m_contexts);
    m_contexts = nullptr;
    m_externalContexts = false;
}

void GenericRegionSegment::setContentTable(unsigned short* table) {
    releaseContexts();
    m_contexts = table;
    m_externalContexts = table != nullptr;
}

void GenericRegionSegment::getContentTable(unsigned short* out) const {
    if (m_contexts && out)
        std::memcpy(out, m_contexts, (static_cast<std::size_t>(1) << contextSize(m_param.templ)) * sizeof(unsigned short));
}

void GenericRegionSegment::createContentTable() {
    if (m_externalContexts && m_contexts) return;  // supplied from outside
    releaseContexts();
    const std::size_t n = static_cast<std::size_t>(1) << contextSize(m_param.templ);
    // calloc: a large table costs only the pages its contexts touch.
    m_contexts = static_cast<unsigned short*>(std::calloc(n, sizeof(unsigned short)));
    if (!m_contexts) throw JBIG2_OUT_OF_MEMORY;
}

ImageProcessor<ImageDataBits>* GenericRegionSegment::takeImage() {
    ImageProcessor<ImageDataBits>* r = m_result;
    m_result = nullptr;
    return r;
}

void GenericRegionSegment::setParameter(const GenericRegionSegmentParameter& param) {
    m_param = param;
    m_param.templ &= 3;
    m_param.op = getPageOp(m_param.op);
}

void GenericRegionSegment::parseParameter(StepDataReader& reader) {
    GenericRegionSegmentParameter p;
    p.width = reader.getInt();
    p.height = reader.getInt();
    p.x = reader.getInt();
    p.y = reader.getInt();
    p.op = getPageOp(reader.getByte() & 7);
    const unsigned char flags = reader.getByte();  // 0 when no byte is left
    p.mmr = flags & 1;
    p.templ = (flags >> 1) & 3;
    p.tpgdon = (flags >> 3) & 1;
    // Bits 4 to 7 are ignored.
    m_param = p;
    if (p.mmr) return;
    const int atBytes = p.templ == 0 ? 8 : 2;
    for (int i = 0; i < atBytes; ++i) m_param.at[i] = static_cast<signed char>(reader.getByte());
    createContentTable();
}

void GenericRegionSegment::decode(StepDataReader& reader) {
    parseParameter(reader);
    decodedirect(reader, nullptr);
}

void GenericRegionSegment::decodedirect(StepDataReader& reader, ArithmeticDecoderState* state) {
    delete m_result;
    m_result = nullptr;
    std::unique_ptr<ImageProcessor<ImageDataBits>> image(new ImageProcessor<ImageDataBits>());
    image->create(m_param.width, m_param.height);
    m_result = image.release();
    if (m_param.mmr) {
        decodeMMR(reader);
        return;
    }
    if (!m_contexts) createContentTable();
    if (state) {
        decodeArithmetic(*state);
    } else {
        ArithmeticDecoderState own(&reader);
        own.init();
        decodeArithmetic(own);
    }
}

void GenericRegionSegment::decodeMMR(StepDataReader& reader) {
    const std::size_t rest = reader.remaining();
    MMRDecoder mmr(*m_result, reader.current(), static_cast<unsigned int>(rest > 0xFFFFFFFFu ? 0xFFFFFFFFu : rest),
                   static_cast<int>(m_result->getWidth()), static_cast<int>(m_result->getHeight()));
    mmr.decode();
    uint64_t bits = mmr.getConsumedBits();
    if (m_param.skipEOFB) {
        // EOFB is two EOL codes, 000000000001 twice.
        uint32_t word = 0;
        const uint64_t byte = bits >> 3;
        for (int i = 0; i < 4; ++i) {
            const uint64_t at = byte + static_cast<uint64_t>(i);
            word = (word << 8) | (at < rest ? reader.current()[at] : 0u);
        }
        if (((word << (bits & 7)) >> 8) == 0x001001u) bits += 24;
    }
    const uint64_t bytes = (bits + 7) >> 3;
    reader.skip(static_cast<std::size_t>(bytes < rest ? bytes : rest));
}

void GenericRegionSegment::decodeArithmetic(ArithmeticDecoderState& state) {
    if (m_param.useskip && m_param.skip)
        decodeWithTemplate<true>(state);
    else
        decodeWithTemplate<false>(state);
}

namespace {

using rows::AtPixel;
using rows::rowByte;

template <std::size_t N, class F>
constexpr std::array<uint16_t, N> tableOf(F f) {
    std::array<uint16_t, N> t{};
    for (std::size_t i = 0; i < N; ++i) t[i] = static_cast<uint16_t>(f(static_cast<uint32_t>(i)));
    return t;
}

// Each template's pixels, in the order of the table at the top of this file:
// `fixed` gives those of the two rows above from the windows, `current`
// those of the current row. With the AT pixels at their nominal places,
// `nominal` gives the rows above together with the AT pixels: a run of the
// window, taken in one piece, indexes a table of its context bits.
//
// `groupRow1`, `groupRow2` and `groupHistory` are the bits of the windows
// (at a group's start) and of the pixels before x-1 that a group of eight
// pixels reads with the AT pixels nominal: when all are white, and the
// group's own pixels turn out white, every pixel of the group has context 0.
template <int T>
struct Template;

template <>
struct Template<0> {
    static const int atCount = 4;
    static const uint32_t groupRow1 = 0x7FFE0, groupRow2 = 0x3FFC0, groupHistory = 0xE;
    static uint32_t fixed(uint32_t w2, uint32_t w1) { return ((w2 >> 1) & 0xE000) | ((w1 >> 5) & 0x1F00); }
    static uint32_t current(uint32_t cur) { return (cur & 0xF) << 4; }
    // Row y-1 x-3..x+3 holds A2 (-3,-1) and A1 (3,-1); row y-2 x-2..x+2
    // holds A4 (-2,-2) and A3 (2,-2).
    static constexpr std::array<uint16_t, 128> row1 =
        tableOf<128>([](uint32_t v) { return (((v >> 1) & 0x1F) << 8) | ((v & 1) << 3) | (((v >> 6) & 1) << 2); });
    static constexpr std::array<uint16_t, 32> row2 =
        tableOf<32>([](uint32_t v) { return (((v >> 1) & 7) << 13) | ((v & 1) << 1) | ((v >> 4) & 1); });
    static uint32_t nominal(uint32_t w2, uint32_t w1) { return row1[(w1 >> 12) & 0x7F] | row2[(w2 >> 13) & 0x1F]; }
};

template <>
struct Template<1> {
    static const int atCount = 1;
    static const uint32_t groupRow1 = 0x3FFE0, groupRow2 = 0x1FFC0, groupHistory = 0x6;
    static uint32_t fixed(uint32_t w2, uint32_t w1) { return ((w2 >> 4) & 0x1E00) | ((w1 >> 9) & 0x1F0); }
    static uint32_t current(uint32_t cur) { return (cur & 7) << 1; }
    // Row y-1 x-2..x+3 holds A1 (3,-1).
    static constexpr std::array<uint16_t, 64> row1 =
        tableOf<64>([](uint32_t v) { return (((v >> 1) & 0x1F) << 4) | (v & 1); });
    static uint32_t nominal(uint32_t w2, uint32_t w1) { return ((w2 >> 4) & 0x1E00) | row1[(w1 >> 12) & 0x3F]; }
};

template <>
struct Template<2> {
    static const int atCount = 1;
    static const uint32_t groupRow1 = 0x3FFC0, groupRow2 = 0x1FF80, groupHistory = 0x2;
    static uint32_t fixed(uint32_t w2, uint32_t w1) { return ((w2 >> 7) & 0x380) | ((w1 >> 11) & 0x78); }
    static uint32_t current(uint32_t cur) { return (cur & 3) << 1; }
    // Row y-1 x-2..x+2 holds A1 (2,-1).
    static constexpr std::array<uint16_t, 32> row1 =
        tableOf<32>([](uint32_t v) { return (((v >> 1) & 0xF) << 3) | (v & 1); });
    static uint32_t nominal(uint32_t w2, uint32_t w1) { return ((w2 >> 7) & 0x380) | row1[(w1 >> 13) & 0x1F]; }
};

template <>
struct Template<3> {
    static const int atCount = 1;
    static const uint32_t groupRow1 = 0x7FFC0, groupRow2 = 0, groupHistory = 0xE;
    static uint32_t fixed(uint32_t, uint32_t w1) { return (w1 >> 9) & 0x3E0; }
    static uint32_t current(uint32_t cur) { return (cur & 0xF) << 1; }
    // Row y-1 x-3..x+2 holds A1 (2,-1).
    static constexpr std::array<uint16_t, 64> row1 =
        tableOf<64>([](uint32_t v) { return (((v >> 1) & 0x1F) << 5) | (v & 1); });
    static uint32_t nominal(uint32_t, uint32_t w1) { return row1[(w1 >> 13) & 0x3F]; }
};

const signed char kNominalAt[4][8] = {
    {3, -1, -3, -1, 2, -2, -2, -2}, {3, -1, 0, 0, 0, 0, 0, 0}, {2, -1, 0, 0, 0, 0, 0, 0}, {2, -1, 0, 0, 0, 0, 0, 0}};

// The registers of one region's row loop. It lives as a local of the loop,
// so that all of it stays in machine registers.
template <int T, bool Nominal, bool Skip>
struct RowRegisters {
    typedef Template<T> Tmpl;

    explicit RowRegisters(const ArithmeticDecoderState& state) : s(state) {}

    ArithmeticDecoderState s;
    unsigned short* cx;
    // The context bits that the pixel x-1 sets: its place among the
    // current-row pixels, and any AT pixel that lands on it.
    uint32_t lastMask;
    const AtPixel* at;
    int64_t width;
    const unsigned char* skipRow;
    uint32_t skipWidth;
    uint32_t w1, w2;   // windows of rows y-1 and y-2
    uint32_t hist;     // current row before x-1, x-2 at bit 1
    uint32_t bit;      // pixel x-1

    // A group of eight pixels whose context is 0 throughout while they
    // decode white, and that does decode white on the quick path: done at
    // once. White areas, most of a page, go a group at a time.
    JBIG2_INLINE bool whiteGroup() {
        if (((w1 & Tmpl::groupRow1) | (w2 & Tmpl::groupRow2) | (hist & Tmpl::groupHistory) | bit) != 0) return false;
        const unsigned int value = cx[0];
        if ((value & 1) || !ArithmeticDecoder::decodeMpsRun(s, value, 8)) return false;
        hist <<= 8;
        return true;
    }

    // Decodes the i-th pixel of the group, at x.
    JBIG2_INLINE void pixel(uint32_t i, uint32_t x) {
        const uint32_t a1 = w1 << i, a2 = w2 << i;
        uint32_t context = Tmpl::current(hist);
        if (Nominal) {
            context |= Tmpl::nominal(a2, a1);
        } else {
            context |= Tmpl::fixed(a2, a1);
            for (int k = 0; k < Tmpl::atCount; ++k) context |= at[k].read(a1, a2, hist, x, width);
        }
        // Both contexts that x-1 allows are read before x-1 is known.
        const uint32_t withLast = context | lastMask;
        const unsigned int white = cx[context], black = cx[withLast];
        const uint32_t last = bit;
        hist = (hist | last) << 1;
        bit = 0;
        if (!Skip || !skipRow || x >= skipWidth || !((skipRow[x >> 3] >> (7 - (x & 7))) & 1))
            bit = static_cast<uint32_t>(
                ArithmeticDecoder::decodebit(s, cx[last ? withLast : context], last ? black : white));
    }
};

}  // namespace

template <bool Skip>
void GenericRegionSegment::decodeWithTemplate(ArithmeticDecoderState& state) {
    const signed char* at = m_param.at;
    switch (m_param.templ) {
    case 0:
        if (std::memcmp(at, kNominalAt[0], 8) == 0)
            decodeRows<0, true, Skip>(state);
        else
            decodeRows<0, false, Skip>(state);
        break;
    case 1:
        if (std::memcmp(at, kNominalAt[1], 2) == 0)
            decodeRows<1, true, Skip>(state);
        else
            decodeRows<1, false, Skip>(state);
        break;
    case 2:
        if (std::memcmp(at, kNominalAt[2], 2) == 0)
            decodeRows<2, true, Skip>(state);
        else
            decodeRows<2, false, Skip>(state);
        break;
    default:
        if (std::memcmp(at, kNominalAt[3], 2) == 0)
            decodeRows<3, true, Skip>(state);
        else
            decodeRows<3, false, Skip>(state);
        break;
    }
}

template <int T, bool Nominal, bool Skip>
void GenericRegionSegment::decodeRows(ArithmeticDecoderState& shared) {
    typedef Template<T> Tmpl;
    ImageProcessor<ImageDataBits>& img = *m_result;
    const uint32_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const uint32_t stride = img.getStride();
    AtPixel atPixels[Tmpl::atCount];
    RowRegisters<T, Nominal, Skip> r(shared);
    r.cx = m_contexts;
    r.lastMask = Tmpl::current(1);
    if (!Nominal)
        for (int i = 0; i < Tmpl::atCount; ++i) {
            AtPixel& a = atPixels[i];
            a.place(m_param.at[2 * i], m_param.at[2 * i + 1], static_cast<unsigned int>(Tmpl::atCount - 1 - i), 2);
            if (a.isLast()) r.lastMask |= 1u << a.bit;
        }
    r.at = atPixels;
    r.width = W;
    const ImageProcessor<ImageDataBits>* skip = Skip ? m_param.skip : nullptr;
    r.skipWidth = Skip ? skip->getWidth() : 0;
    r.skipRow = nullptr;
    const uint32_t ltpContext = kTpgdonContext[T];
    const uint32_t fullGroups = W / 8;

    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        unsigned char* row = img.getLine(y);
        if (m_param.tpgdon) {
            // TPGDON: LTP toggles; with it set the row copies the one above
            // (the first row stays zero).
            ltp ^= ArithmeticDecoder::decodebit(r.s, r.cx[ltpContext]);
            if (ltp) {
                if (y > 0) std::memcpy(row, img.getLine(y - 1), stride);
                continue;
            }
        }
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        const unsigned char* r2 = y >= 2 ? img.getLine(y - 2) : nullptr;
        if (Skip) r.skipRow = y < skip->getHeight() ? skip->getLine(y) : nullptr;
        if (!Nominal)
            for (AtPixel& a : atPixels) a.setLine(img, y);
        r.w1 = (rowByte(r1, 0, stride) << 8) | rowByte(r1, 1, stride);
        r.w2 = (rowByte(r2, 0, stride) << 8) | rowByte(r2, 1, stride);
        r.hist = 0;
        r.bit = 0;
        uint32_t j = 0;
        for (; j < fullGroups; ++j) {
            const uint32_t x = j * 8;
            if (Nominal && !Skip && r.whiteGroup()) {
                row[j] = 0;
            } else {
                // Unrolled, so that each pixel's window shifts are constants.
                r.pixel(0, x);
                r.pixel(1, x + 1);
                r.pixel(2, x + 2);
                r.pixel(3, x + 3);
                r.pixel(4, x + 4);
                r.pixel(5, x + 5);
                r.pixel(6, x + 6);
                r.pixel(7, x + 7);
                // The group's pixels are the low bits of the current row.
                row[j] = static_cast<unsigned char>(r.hist | r.bit);
            }
            r.w1 = (r.w1 << 8) | rowByte(r1, j + 2, stride);
            r.w2 = (r.w2 << 8) | rowByte(r2, j + 2, stride);
        }
        if (j < stride) {
            const uint32_t n = W - j * 8;
            for (uint32_t i = 0; i < n; ++i) r.pixel(i, j * 8 + i);
            row[j] = static_cast<unsigned char>((r.hist | r.bit) << (8 - n));
        }
    }
    shared = r.s;
}

}  // namespace jbig2
