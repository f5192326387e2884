// Halftone region segments, types 20, 22, 23 (ISO/IEC 14492 6.6, 7.4.5 and
// Annex C).
#ifndef PDFKILN_JBIG2_HALFTONEREGIONSEGMENT_H
#define PDFKILN_JBIG2_HALFTONEREGIONSEGMENT_H

#include <vector>

#include "imagedata.h"
#include "patterndictionarysegment.h"
#include "segment.h"

namespace jbig2 {

class HalftoneRegionSegment : public Segment {
public:
    HalftoneRegionSegment() {}
    explicit HalftoneRegionSegment(const Segment& header) { setHeader(header); }
    ~HalftoneRegionSegment();
    HalftoneRegionSegment(const HalftoneRegionSegment&) = delete;
    HalftoneRegionSegment& operator=(const HalftoneRegionSegment&) = delete;

    void setPatternDictionary(const PatternDictionarySegment* dict) { m_dict = dict; }
    void decode(StepDataReader& reader);

    // Grid position of cell (mg, ng), in region pixels.
    int64_t gridX(uint32_t mg, uint32_t ng) const;
    int64_t gridY(uint32_t mg, uint32_t ng) const;

    const RegionSegmentInfo& getRegionInfo() const { return m_region; }
    ImageProcessor<ImageDataBits>* getImage() const { return m_result; }
    ImageProcessor<ImageDataBits>* getRegionImage() const override { return m_result; }

    bool HMMR = false;
    int HTEMPLATE = 0;
    bool HENABLESKIP = false;
    int HCOMBOP = 0;
    int HDEFPIXEL = 0;
    uint32_t HGW = 0, HGH = 0;
    int32_t HGX = 0, HGY = 0;
    int16_t HRX = 0, HRY = 0;
    unsigned int HBPP = 0;

private:
    // Grey values of the grid, row by row (Annex C).
    void decodeGrayScale(StepDataReader& reader, const ImageProcessor<ImageDataBits>* skip,
                         std::vector<uint32_t>& values);

    RegionSegmentInfo m_region;
    const PatternDictionarySegment* m_dict = nullptr;
    ImageProcessor<ImageDataBits>* m_result = nullptr;
};

}  // namespace jbig2

#endif
