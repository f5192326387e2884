// JBIG2Dec, the frame of the second JBIG2 decoder: globals then
// data, the segment loop with its headers and dispatch, the kept segments,
// and the exported C entry Jbig2ToRGB_New.
#include "jbig2/jbig2streamdec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <memory>
#include <new>

#include "QarMemStream/QarMemStream.h"

namespace {
// Segment types (ISO/IEC 14492 7.3).
bool isRegionType(unsigned t) { return (t >= 4 && t <= 7) || (t >= 20 && t <= 43); }
}  // namespace

JBIG2Dec::JBIG2Dec(const std::string* data, const std::string* globals)
    : m_data(data ? *data : std::string()), m_globals(globals ? *globals : std::string()), pageW(0), pageH(0),
      curPageH(0), pageDefPixel(0), pageDefCombOp(0), pageBitmap(nullptr), segments(&pageSegments), curStr(nullptr),
      dataPtr(nullptr), dataEnd(nullptr), genericRegionStats(1 << 1), refinementRegionStats(1 << 1),
      iadhStats(1 << 9), iadwStats(1 << 9), iaexStats(1 << 9), iaaiStats(1 << 9), iadtStats(1 << 9),
      iaitStats(1 << 9), iafsStats(1 << 9), iadsStats(1 << 9), iardxStats(1 << 9), iardyStats(1 << 9),
      iardwStats(1 << 9), iardhStats(1 << 9), iariStats(1 << 9), iaidStats(1 << 1), headersRead(0),
      lastRefCount(0) {}

JBIG2Dec::~JBIG2Dec() { close(); }

void JBIG2Dec::close() {
    delete pageBitmap;
    pageBitmap = nullptr;
    for (int i = 0; i < globalSegments.getLength(); ++i) delete static_cast<JBIG2Segment*>(globalSegments.get(i));
    globalSegments.clear();
    for (int i = 0; i < pageSegments.getLength(); ++i) delete static_cast<JBIG2Segment*>(pageSegments.get(i));
    pageSegments.clear();
    segments = &pageSegments;
    dataPtr = dataEnd = nullptr;
    pageW = pageH = curPageH = 0;
    pageDefPixel = pageDefCombOp = 0;
    headersRead = 0;
    lastRefCount = 0;
}

void JBIG2Dec::decode() {
    close();
    // Everything this decode allocates or places is charged to one budget,
    // scaled by the size of its input.
    JBIG2DecBudget budget(static_cast<uint64_t>(m_data.size()) + m_globals.size());
    if (!m_globals.empty()) {
        segments = &globalSegments;
        readStream(m_globals);
    }
    segments = &pageSegments;
    readStream(m_data);
    if (pageBitmap) {
        dataPtr = pageBitmap->getDataPtr();
        dataEnd = dataPtr + pageBitmap->getDataSize();
    } else {
        dataPtr = dataEnd = nullptr;
    }
}

void JBIG2Dec::readStream(const std::string& bytes) {
    std::iostream* stream = streamcreate(0);
    if (!stream) return;
    streamwrite(bytes.data(), 1, bytes.size(), stream);
    stream->seekg(0, std::ios::beg);
    curStr = stream;
    readSegments();
    curStr = nullptr;
    streamdestroy(stream);
}

int JBIG2Dec::getStmSize() const { return dataPtr && dataEnd > dataPtr ? static_cast<int>(dataEnd - dataPtr) : 0; }

int JBIG2Dec::getBlock(char* blk, int size) {
    int n = getStmSize();
    if (size < n) n = size;
    if (n <= 0 || !blk) return 0;
    std::memcpy(blk, dataPtr, static_cast<std::size_t>(n));
    dataPtr += n;
    return n;
}

uint64_t JBIG2Dec::streamLeft() {
    if (!curStr) return 0;
    const std::istream::pos_type here = curStr->tellg();
    if (here == std::istream::pos_type(-1)) return 0;
    curStr->seekg(0, std::ios::end);
    const std::istream::pos_type end = curStr->tellg();
    curStr->seekg(here);
    return end == std::istream::pos_type(-1) || end < here ? 0 : static_cast<uint64_t>(end - here);
}

bool JBIG2Dec::streamRead(unsigned char* buf, std::size_t n) {
    if (!curStr || n == 0) return n == 0;
    curStr->read(reinterpret_cast<char*>(buf), static_cast<std::streamsize>(n));
    return static_cast<std::size_t>(curStr->gcount()) == n;
}

bool JBIG2Dec::streamReadUByte(unsigned* x) {
    unsigned char b;
    if (!streamRead(&b, 1)) return false;
    *x = b;
    return true;
}

bool JBIG2Dec::streamReadUWord(unsigned* x) {
    unsigned char b[2];
    if (!streamRead(b, 2)) return false;
    *x = (static_cast<unsigned>(b[0]) << 8) | b[1];
    return true;
}

bool JBIG2Dec::streamReadULong(uint32_t* x) {
    unsigned char b[4];
    if (!streamRead(b, 4)) return false;
    *x = (static_cast<uint32_t>(b[0]) << 24) | (static_cast<uint32_t>(b[1]) << 16) |
         (static_cast<uint32_t>(b[2]) << 8) | b[3];
    return true;
}

// An immediate generic region of unknown data length (7.2.7) ends with
// 0xFF 0xAC (arithmetic) or 0x00 0x00 (MMR) and the 4-byte row count. Finds
// that end in what is left of the stream; the stream stays where it was.
bool JBIG2Dec::findUnknownLengthEnd(uint32_t* length) {
    const std::istream::pos_type here = curStr->tellg();
    if (here == std::istream::pos_type(-1)) return false;
    std::string rest;
    char buf[4096];
    while (curStr->read(buf, sizeof buf), curStr->gcount() > 0)
        rest.append(buf, static_cast<std::size_t>(curStr->gcount()));
    curStr->clear();
    curStr->seekg(here);
    // Region information (17 bytes) and the flags byte come first.
    if (rest.size() < 18 + 6) return false;
    const bool mmr = (static_cast<unsigned char>(rest[17]) & 1) != 0;
    const unsigned char m0 = mmr ? 0x00 : 0xFF, m1 = mmr ? 0x00 : 0xAC;
    for (std::size_t i = 18; i + 6 <= rest.size(); ++i) {
        if (static_cast<unsigned char>(rest[i]) == m0 && static_cast<unsigned char>(rest[i + 1]) == m1) {
            *length = static_cast<uint32_t>(i + 6);
            return true;
        }
    }
    return false;
}

void JBIG2Dec::readSegments() {
    uint32_t segNum;
    while (streamReadULong(&segNum)) {
        unsigned segFlags, refFlags;
        if (!streamReadUByte(&segFlags) || !streamReadUByte(&refFlags)) break;
        const unsigned segType = segFlags & 0x3f;
        uint32_t nRefSegs = refFlags >> 5;
        if (nRefSegs == 7) {
            // The long form: the count is the low 29 bits of 4 bytes, and a
            // retention bit for the segment and each referred one follows.
            unsigned char more[3];
            if (!streamRead(more, 3)) break;
            nRefSegs = ((static_cast<uint32_t>(refFlags) << 24) | (static_cast<uint32_t>(more[0]) << 16) |
                        (static_cast<uint32_t>(more[1]) << 8) | more[2]) &
                       0x1fffffff;
            lastRefCount = nRefSegs;
            // As this decoder counts them: (count+9)/8 bytes.
            const uint32_t retentionBytes = (nRefSegs + 9) >> 3;
            if (!curStr->ignore(retentionBytes) || static_cast<uint32_t>(curStr->gcount()) != retentionBytes) break;
        }
        lastRefCount = nRefSegs;
        const unsigned refSize = segNum <= 256 ? 1 : segNum <= 65536 ? 2 : 4;
        // Every referred number takes at least a byte, so the count is
        // bounded by what is left before it becomes an allocation.
        if (static_cast<uint64_t>(nRefSegs) * refSize > streamLeft()) break;
        uint32_t* refSegs = static_cast<uint32_t*>(std::malloc((nRefSegs ? nRefSegs : 1) * sizeof(uint32_t)));
        if (!refSegs) break;
        std::unique_ptr<uint32_t, decltype(&std::free)> refHolder(refSegs, &std::free);
        bool ok = true;
        for (uint32_t i = 0; ok && i < nRefSegs; ++i) {
            unsigned v8, v16;
            uint32_t v32;
            if (refSize == 1) {
                ok = streamReadUByte(&v8);
                refSegs[i] = v8;
            } else if (refSize == 2) {
                ok = streamReadUWord(&v16);
                refSegs[i] = v16;
            } else {
                ok = streamReadULong(&v32);
                refSegs[i] = v32;
            }
        }
        if (!ok) break;
        uint32_t page;
        if (segFlags & 0x40) {
            if (!streamReadULong(&page)) break;
        } else {
            unsigned p8;
            if (!streamReadUByte(&p8)) break;
        }
        uint32_t segLength;
        if (!streamReadULong(&segLength)) break;
        ++headersRead;

        // A region needs a page to be placed on.
        if (!pageBitmap && isRegionType(segType)) break;

        bool unknownLength = false;
        if (segLength == 0xffffffffu) {
            if (segType != 36 && segType != 38 && segType != 39) break;
            if (!findUnknownLengthEnd(&segLength)) break;
            unknownLength = true;
        }

        // The segment's data, as much of it as the input holds: every read of
        // the handlers is bounded by this view, and the length read from the
        // header never becomes an allocation larger than the input.
        const uint64_t want = std::min<uint64_t>(segLength, streamLeft());
        segData.resize(static_cast<std::size_t>(want));
        std::size_t got = 0;
        if (want > 0) {
            curStr->read(&segData[0], static_cast<std::streamsize>(want));
            got = static_cast<std::size_t>(curStr->gcount());
            segData.resize(got);
        }
        segInput = JBIG2ByteInput(reinterpret_cast<const unsigned char*>(segData.data()), got);
        arithDecoder.setInput(&segInput);
        huffDecoder.setInput(&segInput);
        huffDecoder.reset();
        arithDecoder.resetByteCounter();

        try {
            switch (segType) {
            case 0: readSymbolDictSeg(segNum, refSegs, nRefSegs); break;
            case 4: readTextRegionSeg(segNum, false, refSegs, nRefSegs); break;
            case 6:
            case 7: readTextRegionSeg(segNum, true, refSegs, nRefSegs); break;
            case 16: readPatternDictSeg(segNum); break;
            case 20: readHalftoneRegionSeg(segNum, false, refSegs, nRefSegs); break;
            case 22:
            case 23: readHalftoneRegionSeg(segNum, true, refSegs, nRefSegs); break;
            case 36: readGenericRegionSeg(segNum, false, unknownLength); break;
            case 38:
            case 39: readGenericRegionSeg(segNum, true, unknownLength); break;
            case 40: readGenericRefinementRegionSeg(segNum, false, refSegs, nRefSegs); break;
            case 42:
            case 43: readGenericRefinementRegionSeg(segNum, true, refSegs, nRefSegs); break;
            case 48: readPageInfoSeg(); break;
            case 53: readCodeTableSeg(segNum); break;
            // End of stripe (50), profiles (52), extension (62), end of page
            // (49), end of file (51) and unknown types: their bytes are skipped.
            default: break;
            }
        } catch (const JBIG2DecStop&) {
            break;
        } catch (const std::bad_alloc&) {
            break;
        }
        // A truncated segment ends the input.
        if (got < segLength) break;
    }
    segData.clear();
    segInput = JBIG2ByteInput();
}

JBIG2Segment* JBIG2Dec::findSegment(uint32_t segNum) const {
    for (int i = 0; i < globalSegments.getLength(); ++i) {
        JBIG2Segment* seg = static_cast<JBIG2Segment*>(globalSegments.get(i));
        if (seg->getSegNum() == segNum) return seg;
    }
    for (int i = 0; i < pageSegments.getLength(); ++i) {
        JBIG2Segment* seg = static_cast<JBIG2Segment*>(pageSegments.get(i));
        if (seg->getSegNum() == segNum) return seg;
    }
    return nullptr;
}

void JBIG2Dec::discardSegment(uint32_t segNum) {
    GList* lists[2] = {&globalSegments, &pageSegments};
    for (GList* list : lists) {
        for (int i = 0; i < list->getLength(); ++i) {
            JBIG2Segment* seg = static_cast<JBIG2Segment*>(list->get(i));
            if (seg->getSegNum() == segNum) {
                list->del(i);
                delete seg;
                return;
            }
        }
    }
}

void JBIG2Dec::composeWithPage(const JBIG2Bitmap* bitmap, uint32_t x, uint32_t y, unsigned extCombOp) {
    if (!pageBitmap || !bitmap) return;
    // A page of unknown height grows to take the region, its new rows filled
    // with the page's default pixel.
    if (pageH == 0xffffffffu) {
        const uint64_t bottom = static_cast<uint64_t>(y) + static_cast<uint64_t>(bitmap->getHeight());
        if (bottom > curPageH && bottom < 0x7fffffffu) {
            if (pageBitmap->expand(static_cast<int>(bottom), pageDefPixel)) curPageH = static_cast<uint32_t>(bottom);
        }
    }
    pageBitmap->combine(bitmap, static_cast<int64_t>(x), static_cast<int64_t>(y), extCombOp);
}

void JBIG2Dec::resetGenericStats(int templ, const JArithmeticDecoderStats* prevStats) {
    static const int sizes[4] = {16, 13, 10, 10};
    const int size = 1 << sizes[templ & 3];
    if (prevStats && prevStats->getContextSize() == size)
        genericRegionStats.copyFrom(*prevStats);
    else
        genericRegionStats.resizeAndReset(size);
}

void JBIG2Dec::resetRefinementStats(int templ, const JArithmeticDecoderStats* prevStats) {
    const int size = 1 << (templ ? 10 : 13);
    if (prevStats && prevStats->getContextSize() == size)
        refinementRegionStats.copyFrom(*prevStats);
    else
        refinementRegionStats.resizeAndReset(size);
}

void JBIG2Dec::resetIntStats(uint32_t symCodeLen) {
    iadhStats.reset();
    iadwStats.reset();
    iaexStats.reset();
    iaaiStats.reset();
    iadtStats.reset();
    iaitStats.reset();
    iafsStats.reset();
    iadsStats.reset();
    iardxStats.reset();
    iardyStats.reset();
    iardwStats.reset();
    iardhStats.reset();
    iariStats.reset();
    if (symCodeLen > 30) symCodeLen = 30;
    iaidStats.resizeAndReset(1 << (symCodeLen + 1));
}

bool JBIG2Dec::readRegionInfo(uint32_t* w, uint32_t* h, uint32_t* x, uint32_t* y, unsigned* flags) {
    return segInput.readULong(w) && segInput.readULong(h) && segInput.readULong(x) && segInput.readULong(y) &&
           segInput.readUByte(flags);
}

extern "C" int Jbig2ToRGB_New(const char* data, int dataSize, const char* globals, int globalsSize,
                              unsigned char** out, unsigned int* outSize) {
    try {
        const std::string dataStr = (data && dataSize > 0) ? std::string(data, static_cast<std::size_t>(dataSize))
                                                           : std::string();
        const std::string globalsStr = (globals && globalsSize > 0)
                                           ? std::string(globals, static_cast<std::size_t>(globalsSize))
                                           : std::string();
        JBIG2Dec dec(&dataStr, &globalsStr);
        dec.decode();
        const int size = dec.getStmSize();
        unsigned char* block = static_cast<unsigned char*>(std::malloc(size > 0 ? static_cast<std::size_t>(size) : 1));
        if (!block) {
            if (out) *out = nullptr;
            if (outSize) *outSize = 0;
            return 0;
        }
        const int got = size > 0 ? dec.getBlock(reinterpret_cast<char*>(block), size) : 0;
        // /JBIG2Decode's sense: 0 is black.
        for (int i = 0; i < got; ++i) block[i] = static_cast<unsigned char>(~block[i]);
        if (out)
            *out = block;
        else
            std::free(block);
        if (outSize) *outSize = static_cast<unsigned int>(got);
    } catch (...) {
        if (out) *out = nullptr;
        if (outSize) *outSize = 0;
    }
    return 0;
}
