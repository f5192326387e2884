// Generic region segments, types 36, 38, 39 (ISO/IEC 14492 6.2).
#ifndef PDFKILN_JBIG2_GENERICREGIONSEGMENT_H
#define PDFKILN_JBIG2_GENERICREGIONSEGMENT_H

#include "arithmeticdecoder.h"
#include "imagedata.h"
#include "segment.h"

namespace jbig2 {

struct GenericRegionSegmentParameter {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t x = 0;
    uint32_t y = 0;
    int op = 0;
    bool mmr = false;
    int templ = 0;
    bool tpgdon = false;
    bool useskip = false;
    const ImageProcessor<ImageDataBits>* skip = nullptr;  // not owned
    signed char at[8] = {0, 0, 0, 0, 0, 0, 0, 0};         // AT pixel pairs (x, y)
    // MMR only: an EOFB code right after the last row is stepped over, as
    // between the bit planes of a halftone's grey-scale image.
    bool skipEOFB = false;
};

class GenericRegionSegment : public Segment {
public:
    GenericRegionSegment();
    explicit GenericRegionSegment(const Segment& header);
    ~GenericRegionSegment();
    GenericRegionSegment(const GenericRegionSegment&) = delete;
    GenericRegionSegment& operator=(const GenericRegionSegment&) = delete;

    // parseParameter, then decodedirect with a null state.
    void decode(StepDataReader& reader);
    void parseParameter(StepDataReader& reader);
    void setParameter(const GenericRegionSegmentParameter& param);
    const GenericRegionSegmentParameter& getParameter() const { return m_param; }
    // Decodes into a fresh zeroed image. A null state means a new state on the
    // view from its position; a given state goes on where it stands.
    void decodedirect(StepDataReader& reader, ArithmeticDecoderState* state);

    // Context sharing: a table set from outside is not owned.
    void setContentTable(unsigned short* table);
    void getContentTable(unsigned short* out) const;
    unsigned short* getContentTable() const { return m_contexts; }
    void createContentTable();
    static unsigned int contextSize(int templ);

    ImageProcessor<ImageDataBits>* getImage() const { return m_result; }
    ImageProcessor<ImageDataBits>* getRegionImage() const override { return m_result; }
    // Hands the result over to the caller, who deletes it.
    ImageProcessor<ImageDataBits>* takeImage();

    // LTP contexts of templates 0 to 3, in this decoder's order of context bits.
    static const unsigned int kTpgdonContext[4];

private:
    void decodeMMR(StepDataReader& reader);
    void decodeArithmetic(ArithmeticDecoderState& state);
    // Picks the row loop for the template and its AT pixels.
    template <bool Skip>
    void decodeWithTemplate(ArithmeticDecoderState& state);
    // One row loop per template, with the AT pixels at their nominal places
    // or anywhere, and with or without a skip bitmap.
    template <int T, bool Nominal, bool Skip>
    void decodeRows(ArithmeticDecoderState& state);
    void releaseContexts();

    GenericRegionSegmentParameter m_param;
    unsigned short* m_contexts;
    bool m_externalContexts;
    ImageProcessor<ImageDataBits>* m_result;
};

}  // namespace jbig2

#endif
