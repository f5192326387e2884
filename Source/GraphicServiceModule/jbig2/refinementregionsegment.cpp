// Generic refinement region decoding, ISO/IEC 14492 6.3.
//
// Order of the context bits, least significant first. Template 0: current
// image (x-1,y), (x+1,y-1), (x,y-1), A1; reference (dx = x-offset, dy =
// y-offset) (dx+1,dy+1), (dx,dy+1), (dx-1,dy+1), (dx+1,dy), (dx,dy),
// (dx-1,dy), (dx+1,dy-1), (dx,dy-1), A2. Template 1: current (x-1,y),
// (x+1,y-1), (x,y-1), (x-1,y-1); reference (dx+1,dy+1), (dx,dy+1), (dx+1,dy),
// (dx,dy), (dx-1,dy), (dx,dy-1).
#include "jbig2/refinementregionsegment.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "jbig2/jbig2result.h"
#include "rowwindows.h"

namespace jbig2 {

// Figures 14 and 15 of 14492 in the order above.
const unsigned int GenericRefinementRegionSegment::kTpgronContext[2] = {0x0100, 0x0080};

GenericRefinementRegionSegment::GenericRefinementRegionSegment()
    : m_contexts(nullptr), m_externalContexts(false), m_result(nullptr) {}

GenericRefinementRegionSegment::GenericRefinementRegionSegment(const Segment& header)
    : GenericRefinementRegionSegment() {
    setHeader(header);
}

GenericRefinementRegionSegment::~GenericRefinementRegionSegment() {
    releaseContexts();
    delete m_result;
}

void GenericRefinementRegionSegment::releaseContexts() {
    if (!m_externalContexts) std::free(m_contexts);
    m_contexts = nullptr;
    m_externalContexts = false;
}

void GenericRefinementRegionSegment::setReferenceContext(unsigned short* table) {
    releaseContexts();
    m_contexts = table;
    m_externalContexts = table != nullptr;
}

void GenericRefinementRegionSegment::createReferenceContext() {
    if (m_externalContexts && m_contexts) return;
    releaseContexts();
    const std::size_t n = static_cast<std::size_t>(1) << referenceContextSize(m_param.templ);
    // calloc: a large table costs only the pages its contexts touch.
    m_contexts = static_cast<unsigned short*>(std::calloc(n, sizeof(unsigned short)));
    if (!m_contexts) throw JBIG2_OUT_OF_MEMORY;
}

ImageProcessor<ImageDataBits>* GenericRefinementRegionSegment::takeImage() {
    ImageProcessor<ImageDataBits>* r = m_result;
    m_result = nullptr;
    return r;
}

void GenericRefinementRegionSegment::setParameter(const GenericRefinementRegionSegmentParameter& param) {
    m_param = param;
    m_param.templ &= 1;
    m_param.op = getPageOp(m_param.op);
}

void GenericRefinementRegionSegment::parseParameter(StepDataReader& reader) {
    GenericRefinementRegionSegmentParameter p;
    p.width = reader.getInt();
    p.height = reader.getInt();
    p.x = reader.getInt();
    p.y = reader.getInt();
    p.op = getPageOp(reader.getByte() & 7);
    const unsigned char flags = reader.getByte();
    p.templ = flags & 1;
    p.tpgron = (flags >> 1) & 1;
    p.reference = m_param.reference;
    m_param = p;
    if (p.templ == 0)
        for (int i = 0; i < 4; ++i) m_param.at[i] = static_cast<signed char>(reader.getByte());
    createReferenceContext();
}

void GenericRefinementRegionSegment::decode(StepDataReader& reader) {
    parseParameter(reader);
    decodedirect(reader, nullptr);
}

void GenericRefinementRegionSegment::decodedirect(StepDataReader& reader, ArithmeticDecoderState* state) {
    delete m_result;
    m_result = nullptr;
    std::unique_ptr<ImageProcessor<ImageDataBits>> image(new ImageProcessor<ImageDataBits>());
    image->create(m_param.width, m_param.height);
    m_result = image.release();
    if (!m_contexts) createReferenceContext();
    parseRegion(reader, state);
}

namespace {

using rows::AtPixel;
using rows::rowByte;

// The reference's rows as the region sees them: byte j of a realigned row
// holds the reference pixels under the region's pixels 8j-16 .. 8j-9, that
// is from 8j-16 less the offset on, 0 outside the reference. So a realigned
// row feeds a window exactly as a row of the region does, from two bytes
// before the region's first.
class ReferenceRows {
public:
    ReferenceRows(const ImageProcessor<ImageDataBits>* ref, int64_t dx, uint32_t regionStride)
        : m_ref(ref), m_dx(dx), m_bytes(static_cast<std::size_t>(regionStride) + 4) {
        // Symbols are refined by the thousand, mostly narrow: their rows
        // fit in the object itself.
        if (3 * m_bytes > sizeof(m_inline)) {
            m_buffer.assign(3 * m_bytes, 0);
            m_base = m_buffer.data();
        } else {
            m_base = m_inline;
        }
    }
    ReferenceRows(const ReferenceRows&) = delete;
    ReferenceRows& operator=(const ReferenceRows&) = delete;

    // Rows ry-1, ry and ry+1 of the reference; `ry` moves down one row a call
    // after the first.
    void moveTo(int64_t ry, bool first) {
        if (first) {
            for (int k = 0; k < 3; ++k) realign(ry - 1 + k, line(k));
        } else {
            // Rotate: the rows above move up and only the new lowest row is made.
            unsigned char* oldest = m_lines[0];
            m_lines[0] = m_lines[1];
            m_lines[1] = m_lines[2];
            m_lines[2] = oldest;
            realign(ry + 1, m_lines[2]);
        }
    }
    // Row ry-1+k realigned (k 0 to 2); its first byte stands two bytes before
    // the region's first.
    const unsigned char* row(int k) const { return m_lines[k]; }

    // The first window of a row: its bytes -2 to 1.
    static uint32_t startWindow(const unsigned char* r) {
        return (static_cast<uint32_t>(r[0]) << 24) | (static_cast<uint32_t>(r[1]) << 16) |
               (static_cast<uint32_t>(r[2]) << 8) | r[3];
    }

private:
    unsigned char* line(int k) {
        m_lines[k] = m_base + static_cast<std::size_t>(k) * m_bytes;
        return m_lines[k];
    }

    void realign(int64_t ry, unsigned char* out) const {
        const int64_t height = m_ref ? static_cast<int64_t>(m_ref->getHeight()) : 0;
        if (ry < 0 || ry >= height) {
            std::memset(out, 0, m_bytes);
            return;
        }
        const unsigned char* src = m_ref->getLine(static_cast<uint32_t>(ry));
        const int64_t width = m_ref->getWidth();
        const int64_t stride = m_ref->getStride();
        for (std::size_t j = 0; j < m_bytes; ++j) {
            // Reference pixel under the region's pixel 8j-16.
            const int64_t p = static_cast<int64_t>(j) * 8 - 16 - m_dx;
            uint32_t v = 0;
            if (p < width && p + 8 > 0) {
                const int64_t q = p >> 3;  // rounds down, also below 0
                const uint32_t hi = (q >= 0 && q < stride) ? src[q] : 0u;
                const uint32_t lo = (q + 1 >= 0 && q + 1 < stride) ? src[q + 1] : 0u;
                v = (((hi << 8) | lo) << (p & 7)) >> 8 & 0xFF;
                // Bits past the reference's width may be set (a filled
                // region); they read 0.
                if (p + 8 > width) v &= 0xFFu << (p + 8 - width);
            }
            out[j] = static_cast<unsigned char>(v);
        }
    }

    const ImageProcessor<ImageDataBits>* m_ref;
    int64_t m_dx;
    std::size_t m_bytes;
    unsigned char m_inline[3 * 68];
    std::vector<unsigned char> m_buffer;
    unsigned char* m_base;
    unsigned char* m_lines[3] = {nullptr, nullptr, nullptr};
};

// An AT pixel of the reference at (rx+dx, ry+dy): from the window of its
// row where that reaches, else by position.
struct ReferenceAtPixel {
    int window = -1;  // 0 to 2 for the windows of rows ry-1 to ry+1
    unsigned int shift = 0;
    unsigned int bit = 0;
    int dx = 0, dy = 0;
    const unsigned char* row = nullptr;  // read by position: the row, or none

    void place(int atx, int aty, unsigned int contextBit) {
        dx = atx;
        dy = aty;
        bit = contextBit;
        if (aty >= -1 && aty <= 1 && atx >= rows::kWindowLeft && atx <= rows::kWindowRight) {
            window = aty + 1;
            shift = static_cast<unsigned int>(15 - atx);
        }
    }
    void setLine(const ImageProcessor<ImageDataBits>& ref, int64_t ry) {
        const int64_t ay = ry + dy;
        row = (window < 0 && ay >= 0 && ay < static_cast<int64_t>(ref.getHeight()))
                  ? ref.getLine(static_cast<uint32_t>(ay))
                  : nullptr;
    }
    uint32_t read(const uint32_t* windows, int64_t rx, int64_t refWidth) const {
        if (window >= 0) return ((windows[window] >> shift) & 1) << bit;
        return rows::pixelAt(row, rx + dx, refWidth) << bit;
    }
};

// The context bits of each template, least significant first as listed at
// the top of this file, from the window of row y-1 of the region (c1) and
// those of reference rows ry-1, ry, ry+1 (q0, q1, q2), as the pixel sees
// them. `nominal` includes the AT pixels at their nominal places: A1 at
// (-1,-1) of the region, A2 at (-1,-1) of the reference.
template <int T>
struct RefinementTemplate;

template <>
struct RefinementTemplate<0> {
    static uint32_t fixed(uint32_t c1, uint32_t q0, uint32_t q1, uint32_t q2) {
        return ((c1 >> 13) & 0x6) | ((q2 >> 10) & 0x70) | ((q1 >> 7) & 0x380) | ((q0 >> 4) & 0xC00);
    }
    static uint32_t nominal(uint32_t c1, uint32_t q0, uint32_t q1, uint32_t q2) {
        return ((c1 >> 13) & 0xE) | ((q2 >> 10) & 0x70) | ((q1 >> 7) & 0x380) | ((q0 >> 4) & 0x1C00);
    }
};

template <>
struct RefinementTemplate<1> {
    static uint32_t fixed(uint32_t c1, uint32_t q0, uint32_t q1, uint32_t q2) {
        return ((c1 >> 13) & 0xE) | ((q2 >> 10) & 0x30) | ((q1 >> 8) & 0x1C0) | ((q0 >> 6) & 0x200);
    }
    static uint32_t nominal(uint32_t c1, uint32_t q0, uint32_t q1, uint32_t q2) { return fixed(c1, q0, q1, q2); }
};

// The registers of one refinement region's row loop, a local of the loop so
// that all of it stays in machine registers.
template <int T, bool Nominal>
struct RefinementRegisters {
    typedef RefinementTemplate<T> Tmpl;

    explicit RefinementRegisters(const ArithmeticDecoderState& state) : s(state) {}

    ArithmeticDecoderState s;
    unsigned short* cx;
    uint32_t lastMask;        // context bits that the pixel x-1 sets
    const AtPixel* a1;        // template 0, anywhere: on the region
    const ReferenceAtPixel* a2;  // on the reference
    int64_t width, refWidth, dx;
    bool ltp;
    uint32_t c1;              // window of row y-1 of the region
    uint32_t q[3];            // windows of reference rows ry-1, ry, ry+1
    uint32_t hist;            // current row before x-1, x-2 at bit 1
    uint32_t bit;             // pixel x-1

    // A group of eight pixels over white: with typical prediction on, a
    // white reference all around predicts every pixel white; without it,
    // a white region and reference give context 0 throughout, and the
    // group goes at once when it decodes white on the quick path. The mask
    // covers x-1 to x+8 of each window (the AT pixels at their nominal
    // places are among them).
    JBIG2_INLINE bool whiteGroup() {
        const uint32_t around = 0x1FF80;
        if (((q[0] | q[1] | q[2]) & around) != 0) return false;
        if (!ltp) {
            if (((c1 & around) | bit) != 0) return false;
            const unsigned int value = cx[0];
            if ((value & 1) || !ArithmeticDecoder::decodeMpsRun(s, value, 8)) return false;
        }
        hist = (hist | bit) << 8;
        bit = 0;
        return true;
    }

    JBIG2_INLINE void pixel(uint32_t i, uint32_t x) {
        const uint32_t c = c1 << i, q0 = q[0] << i, q1 = q[1] << i, q2 = q[2] << i;
        const uint32_t last = bit, before = hist;
        hist = (before | last) << 1;
        if (ltp) {
            // Typical prediction: a uniform 3x3 neighbourhood in the
            // reference gives the pixel without decoding.
            const uint32_t around = ((q0 >> 14) & 7) | ((q1 >> 11) & 0x38) | ((q2 >> 8) & 0x1C0);
            if (around == 0 || around == 0x1FF) {
                bit = around & 1;
                return;
            }
        }
        uint32_t context;
        if (Nominal) {
            context = Tmpl::nominal(c, q0, q1, q2);
        } else {
            context = Tmpl::fixed(c, q0, q1, q2);
            if (T == 0) {
                const uint32_t windows[3] = {q0, q1, q2};
                context |= a1->read(c, 0, before, x, width) | a2->read(windows, static_cast<int64_t>(x) - dx, refWidth);
            }
        }
        const uint32_t withLast = context | lastMask;
        const unsigned int white = cx[context], black = cx[withLast];
        bit = static_cast<uint32_t>(ArithmeticDecoder::decodebit(s, cx[last ? withLast : context], last ? black : white));
    }
};

template <int T, bool Nominal>
void decodeRefinement(ArithmeticDecoderState& shared, unsigned short* contexts, const GenericRefinementRegionSegmentParameter& p,
                      ImageProcessor<ImageDataBits>& img) {
    // A null reference reads as white everywhere: the standard's use of the
    // page bitmap is not carried out.
    static const ImageProcessor<ImageDataBits> kEmpty;
    const ImageProcessor<ImageDataBits>& ref = p.reference ? *p.reference : kEmpty;
    const uint32_t W = img.getWidth();
    const uint32_t H = img.getHeight();
    const uint32_t stride = img.getStride();
    ReferenceRows refRows(&ref, p.dx, stride);

    AtPixel a1;
    ReferenceAtPixel a2;
    RefinementRegisters<T, Nominal> r(shared);
    r.cx = contexts;
    r.lastMask = 1;
    if (T == 0 && !Nominal) {
        a1.place(p.at[0], p.at[1], 3, 1);
        if (a1.isLast()) r.lastMask |= 1u << a1.bit;
        a2.place(p.at[2], p.at[3], 12);
    }
    r.a1 = &a1;
    r.a2 = &a2;
    r.width = W;
    r.refWidth = ref.getWidth();
    r.dx = p.dx;
    const uint32_t fullGroups = W / 8;

    int ltp = 0;
    for (uint32_t y = 0; y < H; ++y) {
        if (p.tpgron)
            ltp ^= ArithmeticDecoder::decodebit(r.s, contexts[GenericRefinementRegionSegment::kTpgronContext[T]]);
        r.ltp = ltp != 0;
        const int64_t ry = static_cast<int64_t>(y) - p.dy;
        refRows.moveTo(ry, y == 0);
        if (T == 0 && !Nominal) {
            a1.setLine(img, y);
            a2.setLine(ref, ry);
        }
        unsigned char* row = img.getLine(y);
        const unsigned char* r1 = y >= 1 ? img.getLine(y - 1) : nullptr;
        const unsigned char* q0 = refRows.row(0);
        const unsigned char* q1 = refRows.row(1);
        const unsigned char* q2 = refRows.row(2);
        r.c1 = (rowByte(r1, 0, stride) << 8) | rowByte(r1, 1, stride);
        r.q[0] = ReferenceRows::startWindow(q0);
        r.q[1] = ReferenceRows::startWindow(q1);
        r.q[2] = ReferenceRows::startWindow(q2);
        r.hist = 0;
        r.bit = 0;
        uint32_t j = 0;
        for (; j < fullGroups; ++j) {
            const uint32_t x = j * 8;
            if (Nominal && r.whiteGroup()) {
                row[j] = 0;
            } else {
                r.pixel(0, x);
                r.pixel(1, x + 1);
                r.pixel(2, x + 2);
                r.pixel(3, x + 3);
                r.pixel(4, x + 4);
                r.pixel(5, x + 5);
                r.pixel(6, x + 6);
                r.pixel(7, x + 7);
                row[j] = static_cast<unsigned char>(r.hist | r.bit);
            }
            r.c1 = (r.c1 << 8) | rowByte(r1, j + 2, stride);
            // Realigned rows have their two leading bytes in front.
            r.q[0] = (r.q[0] << 8) | q0[j + 4];
            r.q[1] = (r.q[1] << 8) | q1[j + 4];
            r.q[2] = (r.q[2] << 8) | q2[j + 4];
        }
        if (j < stride) {
            const uint32_t n = W - j * 8;
            for (uint32_t i = 0; i < n; ++i) r.pixel(i, j * 8 + i);
            row[j] = static_cast<unsigned char>((r.hist | r.bit) << (8 - n));
        }
    }
    shared = r.s;
}

}  // namespace

void GenericRefinementRegionSegment::parseRegion(StepDataReader& reader, ArithmeticDecoderState* state) {
    std::unique_ptr<ArithmeticDecoderState> own;
    if (!state) {
        own.reset(new ArithmeticDecoderState(&reader));
        own->init();
        state = own.get();
    }
    ImageProcessor<ImageDataBits>& img = *m_result;
    static const signed char kNominalAt[4] = {-1, -1, -1, -1};
    if (m_param.templ != 0)
        decodeRefinement<1, true>(*state, m_contexts, m_param, img);
    else if (std::memcmp(m_param.at, kNominalAt, 4) == 0)
        decodeRefinement<0, true>(*state, m_contexts, m_param, img);
    else
        decodeRefinement<0, false>(*state, m_contexts, m_param, img);
}

}  // namespace jbig2
