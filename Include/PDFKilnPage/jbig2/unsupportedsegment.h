// Seam for the segments that a later step decodes (Parts 8.4, 8.5): symbol
// dictionaries (0), text regions (4, 6, 7), pattern dictionaries (16),
// halftone regions (20, 22, 23) and extensions (62). For now the frame parses
// their header, keeps the kept kinds in its list so that references to them
// resolve by number and type, and skips their data.
#ifndef PDFKILN_JBIG2_UNSUPPORTEDSEGMENT_H
#define PDFKILN_JBIG2_UNSUPPORTEDSEGMENT_H

#include "segment.h"

namespace jbig2 {

class UnsupportedSegment : public Segment {
public:
    explicit UnsupportedSegment(const Segment& header) { setHeader(header); }
    // Skips the segment's data: the view moves to its end.
    void decode(StepDataReader& reader) { reader.setPosition(reader.getSize()); }
};

}  // namespace jbig2

#endif
