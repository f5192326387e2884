// Generic refinement region segments, types 40, 42, 43 (ISO/IEC
// 14492 6.3).
#ifndef PDFKILN_JBIG2_REFINEMENTREGIONSEGMENT_H
#define PDFKILN_JBIG2_REFINEMENTREGIONSEGMENT_H

#include "arithmeticdecoder.h"
#include "imagedata.h"
#include "segment.h"

namespace jbig2 {

struct GenericRefinementRegionSegmentParameter {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t x = 0;
    uint32_t y = 0;
    int op = 0;
    int templ = 0;
    bool tpgron = false;
    const ImageProcessor<ImageDataBits>* reference = nullptr;  // not owned
    int32_t dx = 0;                                             // reference offset
    int32_t dy = 0;
    signed char at[4] = {0, 0, 0, 0};
};

class GenericRefinementRegionSegment : public Segment {
public:
    GenericRefinementRegionSegment();
    explicit GenericRefinementRegionSegment(const Segment& header);
    ~GenericRefinementRegionSegment();
    GenericRefinementRegionSegment(const GenericRefinementRegionSegment&) = delete;
    GenericRefinementRegionSegment& operator=(const GenericRefinementRegionSegment&) = delete;

    void parseParameter(StepDataReader& reader);
    void setParameter(const GenericRefinementRegionSegmentParameter& param);
    const GenericRefinementRegionSegmentParameter& getParameter() const { return m_param; }
    void setReference(const ImageProcessor<ImageDataBits>* reference) { m_param.reference = reference; }
    // parseParameter, then decodedirect with a null state.
    void decode(StepDataReader& reader);
    void decodedirect(StepDataReader& reader, ArithmeticDecoderState* state);
    void parseRegion(StepDataReader& reader, ArithmeticDecoderState* state);

    void setReferenceContext(unsigned short* table);
    unsigned short* getReferenceContext() const { return m_contexts; }
    void createReferenceContext();
    static unsigned int referenceContextSize(int templ) { return templ ? 10 : 13; }

    ImageProcessor<ImageDataBits>* getImage() const { return m_result; }
    ImageProcessor<ImageDataBits>* getRegionImage() const override { return m_result; }
    ImageProcessor<ImageDataBits>* takeImage();

    // LTP contexts of templates 0 and 1, in this decoder's order of context bits.
    static const unsigned int kTpgronContext[2];

private:
    void releaseContexts();

    GenericRefinementRegionSegmentParameter m_param;
    unsigned short* m_contexts;
    bool m_externalContexts;
    ImageProcessor<ImageDataBits>* m_result;
};

}  // namespace jbig2

#endif
