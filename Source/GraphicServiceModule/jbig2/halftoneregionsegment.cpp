// Halftone region decoding, ISO/IEC 14492 6.6, 7.4.5 and Annex C: a grid of
// grey values, coded as Gray-coded bit planes, each cell drawing the pattern
// of its value.
#include "jbig2/halftoneregionsegment.h"

#include <memory>

#include "jbig2/genericregionsegment.h"
#include "jbig2/jbig2result.h"

namespace jbig2 {

HalftoneRegionSegment::~HalftoneRegionSegment() { delete m_result; }

int64_t HalftoneRegionSegment::gridX(uint32_t mg, uint32_t ng) const {
    // Grid coordinates carry 8 fraction bits; the shift rounds down.
    return (static_cast<int64_t>(HGX) + static_cast<int64_t>(mg) * HRY + static_cast<int64_t>(ng) * HRX) >> 8;
}

int64_t HalftoneRegionSegment::gridY(uint32_t mg, uint32_t ng) const {
    return (static_cast<int64_t>(HGY) + static_cast<int64_t>(mg) * HRX - static_cast<int64_t>(ng) * HRY) >> 8;
}

void HalftoneRegionSegment::decodeGrayScale(StepDataReader& reader, const ImageProcessor<ImageDataBits>* skip,
                                            std::vector<uint32_t>& values) {
    if (HBPP == 0) return;  // one pattern: every value is 0
    GenericRegionSegmentParameter gp;
    gp.width = HGW;
    gp.height = HGH;
    gp.mmr = HMMR;
    gp.templ = HTEMPLATE;
    gp.tpgdon = false;
    gp.useskip = skip != nullptr;
    gp.skip = skip;
    gp.skipEOFB = HMMR;
    const signed char at[8] = {static_cast<signed char>(HTEMPLATE <= 1 ? 3 : 2), -1, -3, -1, 2, -2, -2, -2};
    for (int i = 0; i < 8; ++i) gp.at[i] = at[i];
    GenericRegionSegment generic;
    generic.setParameter(gp);

    // One arithmetic state and one set of contexts run through all planes;
    // MMR planes each start where the previous one (and its EOFB) ended.
    std::unique_ptr<ArithmeticDecoderState> state;
    if (!HMMR) {
        generic.createContentTable();
        state.reset(new ArithmeticDecoderState(&reader));
        state->init();
    }
    std::unique_ptr<ImageProcessor<ImageDataBits>> above;
    for (unsigned int j = HBPP; j-- > 0;) {
        generic.decodedirect(reader, state.get());
        std::unique_ptr<ImageProcessor<ImageDataBits>> plane(generic.takeImage());
        const uint32_t stride = plane->getStride();
        if (above) {
            // Gray decoding: each plane is XORed with the one above it.
            for (uint32_t y = 0; y < HGH; ++y) {
                unsigned char* row = plane->getLine(y);
                const unsigned char* up = above->getLine(y);
                for (uint32_t i = 0; i < stride; ++i) row[i] ^= up[i];
            }
        }
        for (uint32_t y = 0; y < HGH; ++y) {
            const unsigned char* row = plane->getLine(y);
            uint32_t* out = values.data() + static_cast<std::size_t>(y) * HGW;
            for (uint32_t x = 0; x < HGW; ++x)
                if ((row[x >> 3] >> (7 - (x & 7))) & 1) out[x] |= 1u << j;
        }
        above = std::move(plane);
    }
}

void HalftoneRegionSegment::decode(StepDataReader& reader) {
    if (!m_dict) throw JBIG2_NO_REFERRED;
    m_region.parse(reader);
    const unsigned char flags = reader.getByte();
    HMMR = flags & 1;
    HTEMPLATE = (flags >> 1) & 3;
    HENABLESKIP = (flags >> 3) & 1;
    HCOMBOP = getPageOp((flags >> 4) & 7);
    HDEFPIXEL = (flags >> 7) & 1;
    HGW = reader.getInt();
    HGH = reader.getInt();
    HGX = static_cast<int32_t>(reader.getInt());
    HGY = static_cast<int32_t>(reader.getInt());
    HRX = static_cast<int16_t>(reader.getShort());
    HRY = static_cast<int16_t>(reader.getShort());

    std::unique_ptr<ImageProcessor<ImageDataBits>> image(new ImageProcessor<ImageDataBits>(m_region.width, m_region.height));
    if (HDEFPIXEL) image->fill(0xFF);

    const std::size_t patterns = m_dict->getPatternCount();
    if (patterns == 0) throw JBIG2_INVALID_DATA;
    HBPP = 0;
    while ((static_cast<uint64_t>(1) << HBPP) < patterns) ++HBPP;

    // The grid's values, one word a cell, count against the image limit.
    const uint64_t cells = static_cast<uint64_t>(HGW) * HGH;
    checkAllocation(cells * sizeof(uint32_t));
    std::vector<uint32_t> values(static_cast<std::size_t>(cells), 0);

    const int64_t hpw = m_dict->HDPW, hph = m_dict->HDPH;
    std::unique_ptr<ImageProcessor<ImageDataBits>> skip;
    if (HENABLESKIP) {
        // A cell whose pattern lies wholly outside the region is not coded.
        skip.reset(new ImageProcessor<ImageDataBits>(HGW, HGH));
        for (uint32_t mg = 0; mg < HGH; ++mg)
            for (uint32_t ng = 0; ng < HGW; ++ng) {
                const int64_t x = gridX(mg, ng), y = gridY(mg, ng);
                if (x + hpw <= 0 || x >= static_cast<int64_t>(m_region.width) || y + hph <= 0 ||
                    y >= static_cast<int64_t>(m_region.height))
                    skip->setPixel(ng, mg, 1);
            }
    }
    decodeGrayScale(reader, skip.get(), values);

    for (uint32_t mg = 0; mg < HGH; ++mg)
        for (uint32_t ng = 0; ng < HGW; ++ng) {
            const uint32_t v = values[static_cast<std::size_t>(mg) * HGW + ng];
            // Planes can spell values past GRAYMAX: invalid data, reported
            // before the dictionary's accessor would end the process.
            if (v >= patterns) throw JBIG2_INVALID_DATA;
            const int64_t x = gridX(mg, ng), y = gridY(mg, ng);
            if (x + hpw <= 0 || x >= static_cast<int64_t>(m_region.width) || y + hph <= 0 ||
                y >= static_cast<int64_t>(m_region.height))
                continue;  // nothing of it lands in the region
            image->compose(x, y, *m_dict->getImage(v), HCOMBOP);
        }
    delete m_result;
    m_result = image.release();
}

}  // namespace jbig2
