// JBIG2Dec, the second and self-contained JBIG2 decoder, for
// PDF's embedded JBIG2 with /JBIG2Globals, and its exported C entry
// Jbig2ToRGB_New. It shares no code and no types with the jbig2:: decoder of
// Jbig2ToRGB; this header brings in all of its classes.
//
// How it differs from the jbig2:: decoder: the globals are read
// first; the result is inverted (0 is black, as /JBIG2Decode asks); the entry
// returns 0 in every case; there is no file header; end-of-page and
// end-of-file segments are skipped, not stops; the long form of the
// referred-segment count is read in full; a failed read stops decoding and
// what stands is the result; a page of unknown height starts with the
// striping word's maxStripe rows and grows (by `expand`, with the page's
// default pixel) as regions reach below it; the page's default combination
// operator comes from flag bits 3 and 4.
#ifndef PDFKILN_JBIG2DEC_JBIG2STREAMDEC_H
#define PDFKILN_JBIG2DEC_JBIG2STREAMDEC_H

#include <cstdint>
#include <iosfwd>
#include <string>

#include "glist.h"
#include "jarithmeticdecoder.h"
#include "jbig2decinput.h"
#include "jbig2decsegments.h"
#include "jbig2huffmandecoder.h"
#include "jbig2mmrdecoder.h"

class JBIG2Dec {
public:
    // Copies both; a null pointer is an empty string.
    JBIG2Dec(const std::string* data, const std::string* globals);
    ~JBIG2Dec();
    JBIG2Dec(const JBIG2Dec&) = delete;
    JBIG2Dec& operator=(const JBIG2Dec&) = delete;

    // Frees the page and every kept segment.
    void close();
    // Reads the globals (if any), then the data; never fails: a read that
    // fails ends the segment loop and what stands is the result.
    void decode();
    // Bytes of the result still to be taken by getBlock: line size times
    // height of the page bitmap, or 0 without a page.
    int getStmSize() const;
    // Copies up to `size` bytes of the result (1 is black, as decoded) and
    // moves past them; returns the count.
    int getBlock(char* blk, int size);

    // What the decode produced, for callers that need more than the bytes.
    const JBIG2Bitmap* getPageBitmap() const { return pageBitmap; }
    // The page information as read: width, height (0xFFFFFFFF unknown),
    // default pixel, default combination operator (flag bits 3 and 4).
    uint32_t getPageW() const { return pageW; }
    uint32_t getPageH() const { return pageH; }
    unsigned getPageDefPixel() const { return pageDefPixel; }
    unsigned getPageDefCombOp() const { return pageDefCombOp; }
    int getGlobalSegmentCount() const { return globalSegments.getLength(); }
    int getPageSegmentCount() const { return pageSegments.getLength(); }
    // Segment headers read, over globals and data.
    int getSegmentHeadersRead() const { return headersRead; }
    // Referred-segment count of the last header read (the long form in full).
    uint32_t getLastRefCount() const { return lastRefCount; }

private:
    void readStream(const std::string& bytes);
    void readSegments();
    // Bytes left in the stream being read.
    uint64_t streamLeft();
    bool streamRead(unsigned char* buf, std::size_t n);
    bool streamReadUByte(unsigned* x);
    bool streamReadUWord(unsigned* x);
    bool streamReadULong(uint32_t* x);
    bool findUnknownLengthEnd(uint32_t* length);

    bool readRegionInfo(uint32_t* w, uint32_t* h, uint32_t* x, uint32_t* y, unsigned* flags);
    void readSymbolDictSeg(uint32_t segNum, const uint32_t* refSegs, uint32_t nRefSegs);
    void readTextRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs);
    JBIG2Bitmap* readTextRegion(bool huff, bool refine, int w, int h, uint32_t numInstances, uint32_t logStrips,
                                uint32_t numSyms, const JBIG2HuffmanTable* symCodeTab, uint32_t symCodeLen,
                                JBIG2Bitmap** syms, unsigned defPixel, unsigned combOp, unsigned transposed,
                                unsigned refCorner, int sOffset, const JBIG2HuffmanTable* huffFSTable,
                                const JBIG2HuffmanTable* huffDSTable, const JBIG2HuffmanTable* huffDTTable,
                                const JBIG2HuffmanTable* huffRDWTable, const JBIG2HuffmanTable* huffRDHTable,
                                const JBIG2HuffmanTable* huffRDXTable, const JBIG2HuffmanTable* huffRDYTable,
                                const JBIG2HuffmanTable* huffRSizeTable, unsigned templ, const int* atx,
                                const int* aty);
    void readPatternDictSeg(uint32_t segNum);
    void readHalftoneRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs);
    void readGenericRegionSeg(uint32_t segNum, bool imm, bool unknownLength);
    JBIG2Bitmap* readGenericBitmap(bool mmr, int w, int h, int templ, bool tpgdOn, bool useSkip,
                                   const JBIG2Bitmap* skip, const int* atx, const int* aty, int64_t mmrDataLength);
    JBIG2Bitmap* readMMRBitmap(int w, int h, int64_t mmrDataLength);
    void readGenericRefinementRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs);
    JBIG2Bitmap* readGenericRefinementRegion(int w, int h, int templ, bool tpgrOn, const JBIG2Bitmap* refBitmap,
                                             int refDX, int refDY, const int* atx, const int* aty);
    void readPageInfoSeg();
    void readCodeTableSeg(uint32_t segNum);

    JBIG2Segment* findSegment(uint32_t segNum) const;
    void discardSegment(uint32_t segNum);
    // Composes an immediate region with the page, growing a page of unknown
    // height when the region reaches below it.
    void composeWithPage(const JBIG2Bitmap* bitmap, uint32_t x, uint32_t y, unsigned extCombOp);
    void resetGenericStats(int templ, const JArithmeticDecoderStats* prevStats);
    void resetRefinementStats(int templ, const JArithmeticDecoderStats* prevStats);
    void resetIntStats(uint32_t symCodeLen);

    std::string m_data;
    std::string m_globals;

    uint32_t pageW, pageH, curPageH;
    unsigned pageDefPixel;
    unsigned pageDefCombOp;
    JBIG2Bitmap* pageBitmap;

    GList globalSegments;
    GList pageSegments;
    GList* segments;  // the list being filled: globals, then page

    std::istream* curStr;
    std::string segData;    // the data of the segment in hand
    JBIG2ByteInput segInput;  // the bounded view over segData

    const unsigned char* dataPtr;
    const unsigned char* dataEnd;

    JArithmeticDecoder arithDecoder;
    JArithmeticDecoderStats genericRegionStats;
    JArithmeticDecoderStats refinementRegionStats;
    JArithmeticDecoderStats iadhStats;
    JArithmeticDecoderStats iadwStats;
    JArithmeticDecoderStats iaexStats;
    JArithmeticDecoderStats iaaiStats;
    JArithmeticDecoderStats iadtStats;
    JArithmeticDecoderStats iaitStats;
    JArithmeticDecoderStats iafsStats;
    JArithmeticDecoderStats iadsStats;
    JArithmeticDecoderStats iardxStats;
    JArithmeticDecoderStats iardyStats;
    JArithmeticDecoderStats iardwStats;
    JArithmeticDecoderStats iardhStats;
    JArithmeticDecoderStats iariStats;
    JArithmeticDecoderStats iaidStats;
    JBIG2HuffmanDecoder huffDecoder;
    JBIG2MMRDecoder mmrDecoder;

    int headersRead;
    uint32_t lastRefCount;
};

// Decodes PDF-embedded JBIG2 `data` with its /JBIG2Globals (`globals` may be
// null or empty) by JBIG2Dec. *out receives a malloc block of *outSize bytes
// (line size times height of the page, possibly 0) with every byte inverted:
// 0 is black. The caller frees it. Returns 0 in every case.
extern "C" int Jbig2ToRGB_New(const char* data, int dataSize, const char* globals, int globalsSize,
                              unsigned char** out, unsigned int* outSize);

#endif
