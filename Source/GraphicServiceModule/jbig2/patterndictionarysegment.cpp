// Pattern dictionary decoding, ISO/IEC 14492 6.7 and 7.4.4: one collective
// bitmap of GRAYMAX+1 patterns side by side, cut into the patterns.
#include "jbig2/patterndictionarysegment.h"

#include <memory>

#include "jbig2/genericregionsegment.h"
#include "jbig2/jbig2result.h"
#include "jbig2assert.h"

namespace jbig2 {

PatternDictionarySegment::~PatternDictionarySegment() {
    for (ImageProcessor<ImageDataBits>* p : m_patterns) delete p;
}

ImageProcessor<ImageDataBits>* PatternDictionarySegment::getImage(unsigned int index) const {
    JBIG2_ASSERT_IN(index < m_patterns.size(), "index < m_patterns.size()",
                    "GraphicServiceModule/jbig2/patterndictionarysegment.cpp");
    return m_patterns[index];
}

void PatternDictionarySegment::decode(StepDataReader& reader) {
    const unsigned char flags = reader.getByte();
    HDMMR = flags & 1;
    HDTEMPLATE = (flags >> 1) & 3;
    HDPW = reader.getByte();
    HDPH = reader.getByte();
    GRAYMAX = reader.getInt();
    if (GRAYMAX >= kMaxPatterns) throw JBIG2_INVALID_DATA;
    const uint64_t count = static_cast<uint64_t>(GRAYMAX) + 1;
    const uint64_t width = count * HDPW;
    // The patterns together, with the bookkeeping of each, stay within the
    // image limit, as the collective bitmap does.
    checkAllocation(count * (ImageProcessor<ImageDataBits>::strideFor(HDPW) * static_cast<uint64_t>(HDPH) + 64));

    GenericRegionSegmentParameter gp;
    gp.width = static_cast<uint32_t>(width);
    gp.height = HDPH;
    gp.mmr = HDMMR;
    gp.templ = HDTEMPLATE;
    gp.tpgdon = false;
    gp.useskip = false;
    // A1 is the pixel one pattern to the left. A pattern width above 128
    // does not fit the AT byte; such dictionaries are refused rather than
    // decoded with the wrong context. MMR needs no AT pixels.
    if (!HDMMR && HDPW > 128) throw JBIG2_INVALID_DATA;
    const signed char at[8] = {static_cast<signed char>(-static_cast<int>(HDPW)), 0, -3, -1, 2, -2, -2, -2};
    for (int i = 0; i < 8; ++i) gp.at[i] = at[i];
    GenericRegionSegment generic;
    generic.setParameter(gp);
    if (!HDMMR) generic.createContentTable();
    generic.decodedirect(reader, nullptr);
    std::unique_ptr<ImageProcessor<ImageDataBits>> collective(generic.takeImage());

    m_patterns.reserve(static_cast<std::size_t>(count));
    for (uint64_t i = 0; i < count; ++i) {
        std::unique_ptr<ImageProcessor<ImageDataBits>> pattern(new ImageProcessor<ImageDataBits>(HDPW, HDPH));
        pattern->compose(-static_cast<int64_t>(i * HDPW), 0, *collective, 4);
        m_patterns.push_back(pattern.release());
    }
}

}  // namespace jbig2
