// Generic refinement region decoding, ISO/IEC 14492 6.3.
//
// Order of the context bits, least significant first. Template 0: current
// image (x-1,y), (x+1,y-1), (x,y-1), A1; reference (dx = x-offset, dy =
// y-offset) (dx+1,dy+1), (dx,dy+1), (dx-1,dy+1), (dx+1,dy), (dx,dy),
// (dx-1,dy), (dx+1,dy-1), (dx,dy-1), A2. Template 1: current (x-1,y),
// (x+1,y-1), (x,y-1), (x-1,y-1); reference (dx+1,dy+1), (dx,dy+1), (dx+1,dy),
// (dx,dy), (dx-1,dy), (dx,dy-1).
#include "jbig2/refinementregionsegment.h"

#include <cstring>
#include <memory>
#include <new>

#include "jbig2/jbig2result.h"

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
    if (!m_externalContexts) delete[] m_contexts;
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
    m_contexts = new (std::nothrow) unsigned short[n];
    if (!m_contexts) throw JBIG2_OUT_OF_MEMORY;
    std::memset(m_contexts, 0, n * sizeof(unsigned short));
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

void GenericRefinementRegionSegment::parseRegion(StepDataReader& reader, ArithmeticDecoderState* state) {
    std::unique_ptr<ArithmeticDecoderState> own;
    if (!state) {
        own.reset(new ArithmeticDecoderState(&reader));
        own->init();
        state = own.get();
    }
    ImageProcessor<ImageDataBits>& img = *m_result;
    // A null reference reads as white everywhere: the standard's use of the
    // page bitmap is not carried out.
    static const ImageProcessor<ImageDataBits> kEmpty;
    const ImageProcessor<ImageDataBits>& ref = m_param.reference ? *m_param.reference : kEmpty;
    const int64_t W = img.getWidth();
    const int64_t H = img.getHeight();
    const int64_t ox = m_param.dx, oy = m_param.dy;
    const signed char* at = m_param.at;
    const bool t1 = m_param.templ != 0;
    int ltp = 0;
    for (int64_t y = 0; y < H; ++y) {
        if (m_param.tpgron) ltp ^= ArithmeticDecoder::decodebit(*state, m_contexts[kTpgronContext[t1 ? 1 : 0]]);
        const int64_t ry = y - oy;
        for (int64_t x = 0; x < W; ++x) {
            const int64_t rx = x - ox;
            if (ltp) {
                // Typical prediction: a uniform 3x3 neighbourhood gives the pixel.
                const int v = ref.getPixel(rx, ry);
                bool uniform = true;
                for (int j = -1; j <= 1 && uniform; ++j)
                    for (int i = -1; i <= 1; ++i)
                        if (ref.getPixel(rx + i, ry + j) != v) {
                            uniform = false;
                            break;
                        }
                if (uniform) {
                    img.setPixel(x, y, v);
                    continue;
                }
            }
            uint32_t cx;
            if (!t1) {
                cx = static_cast<uint32_t>(img.getPixel(x - 1, y)) | (img.getPixel(x + 1, y - 1) << 1) |
                     (img.getPixel(x, y - 1) << 2) | (img.getPixel(x + at[0], y + at[1]) << 3) |
                     (ref.getPixel(rx + 1, ry + 1) << 4) | (ref.getPixel(rx, ry + 1) << 5) |
                     (ref.getPixel(rx - 1, ry + 1) << 6) | (ref.getPixel(rx + 1, ry) << 7) |
                     (ref.getPixel(rx, ry) << 8) | (ref.getPixel(rx - 1, ry) << 9) |
                     (ref.getPixel(rx + 1, ry - 1) << 10) | (ref.getPixel(rx, ry - 1) << 11) |
                     (ref.getPixel(rx + at[2], ry + at[3]) << 12);
            } else {
                cx = static_cast<uint32_t>(img.getPixel(x - 1, y)) | (img.getPixel(x + 1, y - 1) << 1) |
                     (img.getPixel(x, y - 1) << 2) | (img.getPixel(x - 1, y - 1) << 3) |
                     (ref.getPixel(rx + 1, ry + 1) << 4) | (ref.getPixel(rx, ry + 1) << 5) |
                     (ref.getPixel(rx + 1, ry) << 6) | (ref.getPixel(rx, ry) << 7) |
                     (ref.getPixel(rx - 1, ry) << 8) | (ref.getPixel(rx, ry - 1) << 9);
            }
            const int bit = ArithmeticDecoder::decodebit(*state, m_contexts[cx]);
            if (bit) img.setPixel(x, y, 1);
        }
    }
}

}  // namespace jbig2
