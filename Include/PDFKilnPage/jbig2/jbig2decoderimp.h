// Implementation of the jbig2 decoder frame: file organisations,
// segment dispatch, pages and composition.
#ifndef PDFKILN_JBIG2_JBIG2DECODERIMP_H
#define PDFKILN_JBIG2_JBIG2DECODERIMP_H

#include <iosfwd>
#include <vector>

#include "datareader.h"
#include "huffman.h"
#include "imagedata.h"
#include "jbig2result.h"
#include "page.h"
#include "segment.h"

namespace jbig2 {

class Jbig2DecoderImp {
public:
    explicit Jbig2DecoderImp(std::istream* stream);
    ~Jbig2DecoderImp();
    Jbig2DecoderImp(const Jbig2DecoderImp&) = delete;
    Jbig2DecoderImp& operator=(const Jbig2DecoderImp&) = delete;

    JBIG2_RESULT paresFile(bool embedded);
    // Dispatches one segment on its type; catches JBIG2_RESULT and returns it.
    JBIG2_RESULT parseSegments(const Segment& header, StepDataReader& reader);

    unsigned int getPageCount() const { return m_pageCount; }
    // Standard out-of-range error beyond the vector.
    Page* getPage(unsigned int index) const { return m_pages.at(index); }
    // Linear search of the kept segments, first match.
    Segment* getSegment(unsigned int number) const;
    bool isRandomAccess() const { return m_randomAccess; }

private:
    JBIG2_RESULT paresFileSequence();
    JBIG2_RESULT paresFileRandom();
    void parseFileHeader(StepDataReader& reader);
    Page* currentPage() const;

    void parsePageInformation(StepDataReader& reader);
    void parseGenericRegionSegment(const Segment& header, StepDataReader& reader);
    void parseGenericRefinementRegionSegment(const Segment& header, StepDataReader& reader);
    void parseCodeTableSegment(const Segment& header, StepDataReader& reader);
    void parseSymbolDictSegment(const Segment& header, StepDataReader& reader);
    void parseTextRegionSegment(const Segment& header, StepDataReader& reader);
    void parsePatternDictionarySegment(const Segment& header, StepDataReader& reader);
    void parseHalftoneRegionSegment(const Segment& header, StepDataReader& reader);
    void parseExtensionSegment(const Segment& header, StepDataReader& reader);
    // The exports of referred symbol dictionaries (when `symbols` is given)
    // and the tables of referred code table segments, in order; a referred
    // number that isn't kept throws JBIG2_INVALID_DATA.
    void collectReferred(const Segment& header, std::vector<ImageProcessor<ImageDataBits>*>* symbols,
                         std::vector<const HuffmanTable*>& tables) const;
    // Composes an immediate region with the current page, growing a striped
    // page's buffer (but not its height) first.
    void composeWithPage(const ImageProcessor<ImageDataBits>* region, uint32_t x, uint32_t y, int op);

    unsigned int m_pageCount;
    std::vector<Page*> m_pages;
    std::vector<Segment*> m_segments;
    std::istream* m_istream;
    unsigned int m_curPage;
    bool m_randomAccess;
    [[maybe_unused]] unsigned char m_reserved1;  // stays 0
    [[maybe_unused]] unsigned char m_reserved2;  // stays 0
    [[maybe_unused]] unsigned char m_reserved3;  // stays 0
    StreamReader m_reader;
};

}  // namespace jbig2

#endif
