// Pattern dictionary segments, type 16 (ISO/IEC 14492 6.7 and 7.4.4).
#ifndef PDFKILN_JBIG2_PATTERNDICTIONARYSEGMENT_H
#define PDFKILN_JBIG2_PATTERNDICTIONARYSEGMENT_H

#include <vector>

#include "imagedata.h"
#include "segment.h"

namespace jbig2 {

class PatternDictionarySegment : public Segment {
public:
    PatternDictionarySegment() {}
    explicit PatternDictionarySegment(const Segment& header) { setHeader(header); }
    ~PatternDictionarySegment();
    PatternDictionarySegment(const PatternDictionarySegment&) = delete;
    PatternDictionarySegment& operator=(const PatternDictionarySegment&) = delete;

    void decode(StepDataReader& reader);
    // Pattern `index`; an index past GRAYMAX fails a hard assertion.
    ImageProcessor<ImageDataBits>* getImage(unsigned int index) const;
    std::size_t getPatternCount() const { return m_patterns.size(); }

    unsigned char HDMMR = 0;
    unsigned char HDTEMPLATE = 0;
    unsigned char HDPW = 0;
    unsigned char HDPH = 0;
    uint32_t GRAYMAX = 0;

    // Pattern counts above this are refused as invalid data: each pattern is
    // an allocation of its own, and no real dictionary comes near it.
    static const uint32_t kMaxPatterns = 1u << 20;

private:
    std::vector<ImageProcessor<ImageDataBits>*> m_patterns;
};

}  // namespace jbig2

#endif
