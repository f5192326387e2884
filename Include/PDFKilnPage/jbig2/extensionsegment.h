// Extension segments, type 62 (ISO/IEC 14492 7.4.14).
#ifndef PDFKILN_JBIG2_EXTENSIONSEGMENT_H
#define PDFKILN_JBIG2_EXTENSIONSEGMENT_H

#include <string>
#include <utility>
#include <vector>

#include "segment.h"

namespace jbig2 {

class ExtensionSegment : public Segment {
public:
    ExtensionSegment() {}
    explicit ExtensionSegment(const Segment& header) { setHeader(header); }

    // Keeps the name and value pairs of an ASCII comment (type 0x20000000);
    // other extension types are skipped. The view moves to its end.
    void decode(StepDataReader& reader);

    uint32_t extensionType = 0;
    std::vector<std::pair<std::string, std::string>> comments;
};

}  // namespace jbig2

#endif
