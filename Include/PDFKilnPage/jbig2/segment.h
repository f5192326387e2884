// Segment header and region segment information.
#ifndef PDFKILN_JBIG2_SEGMENT_H
#define PDFKILN_JBIG2_SEGMENT_H

#include <cstdint>
#include <vector>

#include "datareader.h"
#include "imagedata.h"

namespace jbig2 {

class Segment {
public:
    Segment() : number(0), pageAssociation(0), flags(0), dataLength(0), type(-1), headerSize(0) {}
    virtual ~Segment() {}
    Segment(const Segment&) = default;
    Segment& operator=(const Segment&) = default;

    // Reads a segment header from the view. Returns 0, or JBIG2_INVALID_DATA
    // when the referred numbers don't fit; throws JBIG2_INVALID_DATA for a
    // view below 11 bytes.
    int parseHeader(StepDataReader& reader);
    // Types of the dispatch table map to themselves, others to -1.
    void setType(int t);
    // Only region results are images; other segments have none.
    virtual ImageProcessor<ImageDataBits>* getRegionImage() const { return nullptr; }
    // Copies the header fields of another segment.
    void setHeader(const Segment& header);

    uint32_t number;
    uint32_t pageAssociation;
    unsigned char flags;
    int32_t dataLength;  // 0xFFFFFFFF reads as -1, the unknown length
    int type;
    std::vector<unsigned int> referredSegments;
    uint32_t headerSize;  // bytes the header took
};

// Operators 1 to 4 stay; anything else becomes 0 (OR).
int getPageOp(int op);

struct RegionSegmentInfo {
    uint32_t width;
    uint32_t height;
    uint32_t x;
    uint32_t y;
    unsigned char flags;
    int op;

    RegionSegmentInfo() : width(0), height(0), x(0), y(0), flags(0), op(0) {}
    void parse(StepDataReader& reader);
};

}  // namespace jbig2

#endif
