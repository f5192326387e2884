// Code table segment, type 53.
#ifndef PDFKILN_JBIG2_CODETABLESEGMENT_H
#define PDFKILN_JBIG2_CODETABLESEGMENT_H

#include "huffman.h"
#include "segment.h"

namespace jbig2 {

class CodeTableSegment : public Segment {
public:
    CodeTableSegment() {}
    explicit CodeTableSegment(const Segment& header) { setHeader(header); }
    void parse(StepDataReader& reader);
    const HuffmanTable& getTable() const { return m_table; }
    const std::vector<HuffmanLine>& getLines() const { return m_lines; }
    bool hasOOB() const { return m_htoob != 0; }

private:
    HuffmanTable m_table;
    std::vector<HuffmanLine> m_lines;
    int m_htoob = 0;
};

}  // namespace jbig2

#endif
