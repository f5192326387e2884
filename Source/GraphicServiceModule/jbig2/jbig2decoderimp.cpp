// The jbig2 decoder frame: file organisations, segment loop and
// dispatch, page information and composition of regions with the page.
#include "jbig2/jbig2decoderimp.h"

#include <istream>
#include <memory>
#include <new>

#include "jbig2/codetablesegment.h"
#include "jbig2/genericregionsegment.h"
#include "jbig2/jbig2decoder.h"
#include "jbig2/refinementregionsegment.h"
#include "jbig2/unsupportedsegment.h"

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
        case 0:   // symbol dictionary
        case 4:   // intermediate text region
        case 16:  // pattern dictionary
        case 20:  // intermediate halftone region
        case 62:  // extension
            parseUnsupportedSegment(header, reader, true);
            break;
        case 6:  // immediate text region
        case 7:
        case 22:  // immediate halftone region
        case 23:
            parseUnsupportedSegment(header, reader, false);
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

void Jbig2DecoderImp::parseUnsupportedSegment(const Segment& header, StepDataReader& reader, bool keep) {
    std::unique_ptr<UnsupportedSegment> seg(new UnsupportedSegment(header));
    seg->decode(reader);
    if (keep) {
        m_segments.push_back(seg.get());
        seg.release();
    }
}

}  // namespace jbig2
