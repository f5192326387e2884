// Generic region decoding, ISO/IEC 14492 6.2.
//
// Order of the context bits in this decoder (most significant first), by
// template; "AT" bits are fetched by position, the others come from one
// register per row that shifts as x moves:
//   0: row y-2 x-1..x+1 (15-13), row y-1 x-2..x+2 (12-8), row y x-4..x-1 (7-4),
//      A1 A2 A3 A4 (3-0)
//   1: row y-2 x-1..x+2 (12-9), row y-1 x-2..x+2 (8-4), row y x-3..x-1 (3-1), A1 (0)
//   2: row y-2 x-1..x+1 (9-7), row y-1 x-2..x+1 (6-3), row y x-2..x-1 (2-1), A1 (0)
//   3: row y-1 x-3..x+1 (9-5), row y x-4..x-1 (4-1), A1 (0)
#include "jbig2/genericregionsegment.h"

#include <cstring>
#include <memory>
#include <new>

#include "jbig2/jbig2result.h"
#include "jbig2/mmrdecoder.h"

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
    if (!m_externalContexts) delete[] m_contexts;
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
    m_contexts = new (std::nothrow) unsigned short[n];
    if (!m_contexts) throw JBIG2_OUT_OF_MEMORY;
    std::memset(m_contexts, 0, n * sizeof(unsigned short));
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
    switch (m_param.templ) {
    case 0: decodeTemplate0(state); break;
    case 1: decodeTemplate1(state); break;
    case 2: decodeTemplate2(state); break;
    default: decodeTemplate3(state); break;
    }
}

// TPGDON: toggles LTP; with LTP set the row copies the one above (the first
// row stays zero). Returns true when the row is done.
bool GenericRegionSegment::decodeTypicalRow(ArithmeticDecoderState& state, uint32_t y, int& ltp) {
    if (!m_param.tpgdon) return false;
    ltp ^= ArithmeticDecoder::decodebit(state, m_contexts[kTpgdonContext[m_param.templ]]);
    if (!ltp) return false;
    if (y > 0)
        std::memcpy(m_result->getLine(y), m_result->getLine(y - 1), m_result->getStride());
    return true;
}

namespace {

// Pixel x of a row of the region, 0 outside it (or for no row).
inline uint32_t px(const unsigned char* row, int64_t x, int64_t width) {
    if (!row || x < 0 || x >= width) return 0;
    return (row[x >> 3] >> (7 - (x & 7))) & 1;
}

inline bool skipped(const GenericRegionSegmentParameter& p, int64_t x, int64_t y) {
    return p.useskip && p.skip && p.skip->getPixel(x, y);
}

}  // namespace

void GenericRegionSegment::decodeTemplate0(ArithmeticDecoderState& state) {
    ImageProcessor<ImageDataBits>& img = *m_result;
    const int64_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const signed char* at = m_param.at;
    static const signed char kNominal[8] = {3, -1, -3, -1, 2, -2, -2, -2};
    const bool nominal = std::memcmp(at, kNominal, 8) == 0;
    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        if (decodeTypicalRow(state, y, ltp)) continue;
        unsigned char* row = img.getLine(y);
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        const unsigned char* r2 = y >= 2 ? img.getLine(y - 2) : nullptr;
        if (nominal) {
            // AT pixels at their nominal places come from wider registers:
            // row y-1 x-3..x+3, row y-2 x-2..x+2.
            uint32_t w1 = (px(r1, 0, W) << 3) | (px(r1, 1, W) << 2) | (px(r1, 2, W) << 1) | px(r1, 3, W);
            uint32_t w2 = (px(r2, 0, W) << 2) | (px(r2, 1, W) << 1) | px(r2, 2, W);
            uint32_t c0 = 0;
            for (int64_t x = 0; x < W; ++x) {
                uint32_t bit = 0;
                if (!skipped(m_param, x, y)) {
                    const uint32_t cx = (((w2 >> 1) & 0x7) << 13) | (((w1 >> 1) & 0x1F) << 8) | (c0 << 4) |
                                        ((w1 & 1) << 3) | (((w1 >> 6) & 1) << 2) | ((w2 & 1) << 1) | ((w2 >> 4) & 1);
                    bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(state, m_contexts[cx]));
                    if (bit) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                }
                w1 = ((w1 << 1) & 0x7F) | px(r1, x + 4, W);
                w2 = ((w2 << 1) & 0x1F) | px(r2, x + 3, W);
                c0 = ((c0 << 1) & 0xF) | bit;
            }
            continue;
        }
        uint32_t c2 = (px(r2, 0, W) << 1) | px(r2, 1, W);
        uint32_t c1 = (px(r1, 0, W) << 2) | (px(r1, 1, W) << 1) | px(r1, 2, W);
        uint32_t c0 = 0;
        for (int64_t x = 0; x < W; ++x) {
            uint32_t bit = 0;
            if (!skipped(m_param, x, y)) {
                const uint32_t cx = (c2 << 13) | (c1 << 8) | (c0 << 4) |
                                    (static_cast<uint32_t>(img.getPixel(x + at[0], y + at[1])) << 3) |
                                    (static_cast<uint32_t>(img.getPixel(x + at[2], y + at[3])) << 2) |
                                    (static_cast<uint32_t>(img.getPixel(x + at[4], y + at[5])) << 1) |
                                    static_cast<uint32_t>(img.getPixel(x + at[6], y + at[7]));
                bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(state, m_contexts[cx]));
                if (bit) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
            }
            c2 = ((c2 << 1) & 0x7) | px(r2, x + 2, W);
            c1 = ((c1 << 1) & 0x1F) | px(r1, x + 3, W);
            c0 = ((c0 << 1) & 0xF) | bit;
        }
    }
}

void GenericRegionSegment::decodeTemplate1(ArithmeticDecoderState& state) {
    ImageProcessor<ImageDataBits>& img = *m_result;
    const int64_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const signed char* at = m_param.at;
    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        if (decodeTypicalRow(state, y, ltp)) continue;
        unsigned char* row = img.getLine(y);
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        const unsigned char* r2 = y >= 2 ? img.getLine(y - 2) : nullptr;
        uint32_t c2 = (px(r2, 0, W) << 2) | (px(r2, 1, W) << 1) | px(r2, 2, W);
        uint32_t c1 = (px(r1, 0, W) << 2) | (px(r1, 1, W) << 1) | px(r1, 2, W);
        uint32_t c0 = 0;
        for (int64_t x = 0; x < W; ++x) {
            uint32_t bit = 0;
            if (!skipped(m_param, x, y)) {
                const uint32_t cx = (c2 << 9) | (c1 << 4) | (c0 << 1) |
                                    static_cast<uint32_t>(img.getPixel(x + at[0], y + at[1]));
                bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(state, m_contexts[cx]));
                if (bit) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
            }
            c2 = ((c2 << 1) & 0xF) | px(r2, x + 3, W);
            c1 = ((c1 << 1) & 0x1F) | px(r1, x + 3, W);
            c0 = ((c0 << 1) & 0x7) | bit;
        }
    }
}

void GenericRegionSegment::decodeTemplate2(ArithmeticDecoderState& state) {
    ImageProcessor<ImageDataBits>& img = *m_result;
    const int64_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const signed char* at = m_param.at;
    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        if (decodeTypicalRow(state, y, ltp)) continue;
        unsigned char* row = img.getLine(y);
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        const unsigned char* r2 = y >= 2 ? img.getLine(y - 2) : nullptr;
        uint32_t c2 = (px(r2, 0, W) << 1) | px(r2, 1, W);
        uint32_t c1 = (px(r1, 0, W) << 1) | px(r1, 1, W);
        uint32_t c0 = 0;
        for (int64_t x = 0; x < W; ++x) {
            uint32_t bit = 0;
            if (!skipped(m_param, x, y)) {
                const uint32_t cx = (c2 << 7) | (c1 << 3) | (c0 << 1) |
                                    static_cast<uint32_t>(img.getPixel(x + at[0], y + at[1]));
                bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(state, m_contexts[cx]));
                if (bit) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
            }
            c2 = ((c2 << 1) & 0x7) | px(r2, x + 2, W);
            c1 = ((c1 << 1) & 0xF) | px(r1, x + 2, W);
            c0 = ((c0 << 1) & 0x3) | bit;
        }
    }
}

void GenericRegionSegment::decodeTemplate3(ArithmeticDecoderState& state) {
    ImageProcessor<ImageDataBits>& img = *m_result;
    const int64_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const signed char* at = m_param.at;
    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        if (decodeTypicalRow(state, y, ltp)) continue;
        unsigned char* row = img.getLine(y);
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        uint32_t c1 = (px(r1, 0, W) << 1) | px(r1, 1, W);
        uint32_t c0 = 0;
        for (int64_t x = 0; x < W; ++x) {
            uint32_t bit = 0;
            if (!skipped(m_param, x, y)) {
                const uint32_t cx = (c1 << 5) | (c0 << 1) | static_cast<uint32_t>(img.getPixel(x + at[0], y + at[1]));
                bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(state, m_contexts[cx]));
                if (bit) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
            }
            c1 = ((c1 << 1) & 0x1F) | px(r1, x + 2, W);
            c0 = ((c0 << 1) & 0xF) | bit;
        }
    }
}

}  // namespace jbig2
