// The jbig2 decoder frame: file organisations, segment loop and
// dispatch, page information and composition of regions with the page.
#include "jbig2/jbig2decoderimp.h"

#include <istream>
#include <memory>
#include <new>

#include "jbig2/codetablesegment.h"
#include "jbig2/extensionsegment.h"
#include "jbig2/genericregionsegment.h"
#include "jbig2/halftoneregionsegment.h"
#include "jbig2/jbig2decoder.h"
#include "jbig2/patterndictionarysegment.h"
#include "jbig2/refinementregionsegment.h"
#include "jbig2/symboldictsegment.h"
#include "jbig2/textregionsegment.h"

namespace jbig2 {

Jbig2DecoderImp::Jbig2DecoderImp(std::istream* stream)
    : m_pageCount(0), m_istream(stream), m_curPage(0), m_randomAccess(false), m_reserved1(0), m_reserved2(0),
      m_reserved3(0), m_reader(stream) {}

Jbig2DecoderImp::~Jbig2DecoderImp() {
    for (Page* p : m_pages) delete p;
    for (Segment* s : m_segments) delete s;
}

Segment* Jbig2DecoderImp::getSegment(unsigned int number) const {
    for (Segment* s : m_segments)
        if (s->number == number) return s;
    return nullptr;
}

Page* Jbig2DecoderImp::currentPage() const { return m_curPage < m_pages.size() ? m_pages[m_curPage] : nullptr; }

JBIG2_RESULT Jbig2DecoderImp::paresFile(bool embedded) {
    // 1. The stream's size from the current position.
    const std::istream::pos_type here = m_istream->tellg();
    m_istream->seekg(0, std::ios::end);
    const std::istream::pos_type end = m_istream->tellg();
    m_istream->seekg(here);
    int64_t total = (here != std::istream::pos_type(-1) && end != std::istream::pos_type(-1))
                        ? static_cast<int64_t>(end - here)
                        : 0;
    if (total < 0) total = 0;
    DecodeBudget budget(static_cast<uint64_t>(total));

    // 2. Embedded: segments from the first byte.
    if (embedded) {
        m_reader.setTotal(total);
        m_reader.readData(1024);
        return paresFileSequence();
    }

    // 3. A file: the ID string is read from the stream, and the buffer
    // starts after it, so it is not seen again.
    if (!Jbig2Decoder::isJbig2(*m_istream)) return JBIG2_NOT_JBIG2;
    m_reader.setTotal(total >= 8 ? total - 8 : 0);
    m_reader.readData(1024);
    StepDataReader header = m_reader.view();
    parseFileHeader(header);
    m_reader.move(header.getPosition());
    return m_randomAccess ? paresFileRandom() : paresFileSequence();
}

void Jbig2DecoderImp::parseFileHeader(StepDataReader& reader) {
    // The byte's absence reads as 0: random access.
    const unsigned char flags = reader.getByte();
    m_randomAccess = (flags & 1) == 0;
    if (!(flags & 2)) m_pageCount = reader.getInt();
}

JBIG2_RESULT Jbig2DecoderImp::paresFileSequence() {
    for (;;) {
        if (m_istream->good()) m_reader.readData(1024);
        const std::size_t rest = m_reader.available();
        // Trailing bytes after the stream's end are ignored.
        if (rest == 0 || (!m_istream->good() && rest < 11)) return JBIG2_SUCCESS;

        Segment header;
        StepDataReader headerView = m_reader.view();
        if (header.parseHeader(headerView) != JBIG2_SUCCESS) return JBIG2_SUCCESS;
        // Signed comparison: the unknown length (-1) passes. A truncated
        // stream decodes what stood before the cut.
        if (header.dataLength > m_reader.getTotal()) return JBIG2_SUCCESS;
        m_reader.move(header.headerSize);
        m_reader.readData(header.dataLength);
        StepDataReader data = header.dataLength >= 0 ? m_reader.view(static_cast<std::size_t>(header.dataLength))
                                                     : m_reader.view();
        if (header.dataLength > 0) m_reader.move(static_cast<uint64_t>(header.dataLength));
        // A length of 0 ends the loop: every end of page in well-formed data,
        // so a sequential stream yields one page (deliberate, for the one-page
        // embedded streams of PDF).
        if (header.dataLength == 0 || (header.dataLength < 0 && header.dataLength != -1)) return JBIG2_SUCCESS;
        if (header.type == 51) return JBIG2_SUCCESS;
        const JBIG2_RESULT r = parseSegments(header, data);
        if (r != JBIG2_SUCCESS) return r;
        // Unknown length: move by what the segment consumed.
        if (header.dataLength == -1) m_reader.move(data.getPosition());
    }
}

JBIG2_RESULT Jbig2DecoderImp::paresFileRandom() {
    std::vector<Segment> headers;
    for (;;) {
        m_reader.readData(1024);
        Segment header;
        StepDataReader headerView = m_reader.view();
        // A failing header is not looked at by this path; a view below 11
        // bytes throws JBIG2_INVALID_DATA to the caller of decodeImage.
        header.parseHeader(headerView);
        m_reader.move(header.headerSize);
        headers.push_back(header);
        if (header.type == 51) break;
    }
    for (const Segment& header : headers) {
        if (header.type == 51) break;
        m_reader.readData(header.dataLength);
        StepDataReader data = header.dataLength >= 0 ? m_reader.view(static_cast<std::size_t>(header.dataLength))
                                                     : m_reader.view();
        if (header.dataLength >= 0) m_reader.move(static_cast<uint64_t>(header.dataLength));
        const JBIG2_RESULT r = parseSegments(header, data);
        if (r != JBIG2_SUCCESS) return r;
        if (header.dataLength < 0) m_reader.move(data.getPosition());
    }
    return JBIG2_SUCCESS;
}

JBIG2_RESULT Jbig2DecoderImp::parseSegments(const Segment& header, StepDataReader& reader) {
    try {
        switch (header.type) {
        case 0:
            parseSymbolDictSegment(header, reader);
            break;
        case 4:
        case 6:
        case 7:
            parseTextRegionSegment(header, reader);
            break;
        case 16:
            parsePatternDictionarySegment(header, reader);
            break;
        case 20:
        case 22:
        case 23:
            parseHalftoneRegionSegment(header, reader);
            break;
        case 62:
            parseExtensionSegment(header, reader);
            break;
        case 36:
        case 38:
        case 39:
            parseGenericRegionSegment(header, reader);
            break;
        case 40:
        case 42:
        case 43:
            parseGenericRefinementRegionSegment(header, reader);
            break;
        case 48:
            parsePageInformation(reader);
            break;
        case 49:
            return currentPage() ? JBIG2_SUCCESS : JBIG2_INVALID_DATA;
        case 50:
            reader.getInt();  // the end row, discarded
            break;
        case 53:
            parseCodeTableSegment(header, reader);
            break;
        default:  // 52 profiles and unknown types: ignored
            break;
        }
    } catch (JBIG2_RESULT r) {
        return r;
    } catch (const std::bad_alloc&) {
        return JBIG2_OUT_OF_MEMORY;
    }
    return JBIG2_SUCCESS;
}

void Jbig2DecoderImp::parsePageInformation(StepDataReader& reader) {
    std::unique_ptr<Page> page(new Page());
    page->decode(reader);
    m_pages.push_back(page.get());
    page.release();
    m_curPage = static_cast<unsigned int>(m_pages.size() - 1);
    if (m_pages.size() > m_pageCount) m_pageCount = static_cast<unsigned int>(m_pages.size());
}

void Jbig2DecoderImp::composeWithPage(const ImageProcessor<ImageDataBits>* region, uint32_t x, uint32_t y, int op) {
    Page* page = currentPage();
    if (!page || !page->image || !region) throw JBIG2_INVALID_DATA;
    ImageProcessor<ImageDataBits>& image = *page->image;
    const uint64_t bottom = static_cast<uint64_t>(y) + region->getHeight();
    if (page->striped && bottom >= image.getBufferRows()) {
        // The buffer grows, filled with 0 whatever the default pixel, but the
        // height in the records stays: a striped page keeps the height of its
        // first allocation, and compose clips to it.
        if (bottom > 0xFFFFFFFFu) throw JBIG2_OUT_OF_MEMORY;
        image.growRows(static_cast<uint32_t>(bottom));
    }
    image.compose(static_cast<int32_t>(x), static_cast<int32_t>(y), *region, op);
}

void Jbig2DecoderImp::parseGenericRegionSegment(const Segment& header, StepDataReader& reader) {
    std::unique_ptr<GenericRegionSegment> seg(new GenericRegionSegment(header));
    seg->decode(reader);
    if (header.type == 36) {
        m_segments.push_back(seg.get());
        seg.release();
        return;
    }
    const GenericRegionSegmentParameter& p = seg->getParameter();
    composeWithPage(seg->getImage(), p.x, p.y, p.op);
}

void Jbig2DecoderImp::parseGenericRefinementRegionSegment(const Segment& header, StepDataReader& reader) {
    const ImageProcessor<ImageDataBits>* reference = nullptr;
    if (header.referredSegments.size() > 1) throw JBIG2_NO_REFERRED;
    if (header.referredSegments.size() == 1) {
        const Segment* referred = getSegment(header.referredSegments[0]);
        if (!referred) throw JBIG2_INVALID_DATA;
        if (referred->type != 4 && referred->type != 20 && referred->type != 36 && referred->type != 40)
            throw JBIG2_BAD_REFERRED_TYPE;
        reference = referred->getRegionImage();
    }
    std::unique_ptr<GenericRefinementRegionSegment> seg(new GenericRefinementRegionSegment(header));
    seg->setReference(reference);
    seg->decode(reader);
    if (header.type == 40) {
        m_segments.push_back(seg.get());
        seg.release();
        return;
    }
    const GenericRefinementRegionSegmentParameter& p = seg->getParameter();
    composeWithPage(seg->getImage(), p.x, p.y, p.op);
}

void Jbig2DecoderImp::parseCodeTableSegment(const Segment& header, StepDataReader& reader) {
    std::unique_ptr<CodeTableSegment> seg(new CodeTableSegment(header));
    seg->parse(reader);
    m_segments.push_back(seg.get());
    seg.release();
}

void Jbig2DecoderImp::collectReferred(const Segment& header, std::vector<SymbolImage*>* symbols,
                                      std::vector<const HuffmanTable*>& tables) const {
    for (unsigned int number : header.referredSegments) {
        const Segment* referred = getSegment(number);
        if (!referred) throw JBIG2_INVALID_DATA;
        if (referred->type == 0 && symbols) {
            const auto& exported = static_cast<const SymbolDictSegment*>(referred)->getExportedSymbols();
            symbols->insert(symbols->end(), exported.begin(), exported.end());
        } else if (referred->type == 53) {
            tables.push_back(&static_cast<const CodeTableSegment*>(referred)->getTable());
        }
    }
}

void Jbig2DecoderImp::parseSymbolDictSegment(const Segment& header, StepDataReader& reader) {
    std::vector<SymbolImage*> symbols;
    std::vector<const HuffmanTable*> tables;
    collectReferred(header, &symbols, tables);
    std::unique_ptr<SymbolDictSegment> seg(new SymbolDictSegment(header));
    seg->addInputSymbols(symbols);
    for (const HuffmanTable* t : tables) seg->addUserTable(t);
    seg->decode(reader);
    m_segments.push_back(seg.get());
    seg.release();
}

void Jbig2DecoderImp::parseTextRegionSegment(const Segment& header, StepDataReader& reader) {
    std::vector<SymbolImage*> symbols;
    std::vector<const HuffmanTable*> tables;
    collectReferred(header, &symbols, tables);
    std::unique_ptr<TextRegionSegment> seg(new TextRegionSegment(header));
    seg->decode(reader, std::vector<const SymbolImage*>(symbols.begin(), symbols.end()), tables);
    if (header.type == 4) {
        m_segments.push_back(seg.get());
        seg.release();
        return;
    }
    // The region goes onto the page with the operator of its region
    // information; SBCOMBOP placed the symbols inside it.
    const RegionSegmentInfo& info = seg->getParams().region;
    composeWithPage(seg->getImage(), info.x, info.y, info.op);
}

void Jbig2DecoderImp::parsePatternDictionarySegment(const Segment& header, StepDataReader& reader) {
    std::unique_ptr<PatternDictionarySegment> seg(new PatternDictionarySegment(header));
    seg->decode(reader);
    m_segments.push_back(seg.get());
    seg.release();
}

void Jbig2DecoderImp::parseHalftoneRegionSegment(const Segment& header, StepDataReader& reader) {
    if (header.referredSegments.size() != 1) throw JBIG2_NO_REFERRED;
    const Segment* referred = getSegment(header.referredSegments[0]);
    if (!referred) throw JBIG2_NO_REFERRED;
    if (referred->type != 16) throw JBIG2_BAD_REFERRED_TYPE;
    std::unique_ptr<HalftoneRegionSegment> seg(new HalftoneRegionSegment(header));
    seg->setPatternDictionary(static_cast<const PatternDictionarySegment*>(referred));
    seg->decode(reader);
    if (header.type == 20) {
        m_segments.push_back(seg.get());
        seg.release();
        return;
    }
    // As for text regions: the region information's operator, not HCOMBOP.
    const RegionSegmentInfo& info = seg->getRegionInfo();
    composeWithPage(seg->getImage(), info.x, info.y, info.op);
}

void Jbig2DecoderImp::parseExtensionSegment(const Segment& header, StepDataReader& reader) {
    std::unique_ptr<ExtensionSegment> seg(new ExtensionSegment(header));
    seg->decode(reader);
    m_segments.push_back(seg.get());
    seg.release();
}

}  // namespace jbig2
