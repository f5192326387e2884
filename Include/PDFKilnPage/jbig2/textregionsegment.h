// Text region segments, types 4, 6, 7 (ISO/IEC 14492 6.4 and 7.4.3). The
// instance decoding here also serves the symbol dictionary's aggregate
// symbols, which are small text regions over the dictionary's own decoders.
#ifndef PDFKILN_JBIG2_TEXTREGIONSEGMENT_H
#define PDFKILN_JBIG2_TEXTREGIONSEGMENT_H

#include <memory>
#include <vector>

#include "arithmeticdecoder.h"
#include "huffman.h"
#include "imagedata.h"
#include "segment.h"

namespace jbig2 {

typedef ImageProcessor<ImageDataBits> SymbolImage;

// Reference corners of the text region flags.
enum { REFCORNER_BOTTOMLEFT = 0, REFCORNER_TOPLEFT = 1, REFCORNER_BOTTOMRIGHT = 2, REFCORNER_TOPRIGHT = 3 };

struct TextRegionParams {
    RegionSegmentInfo region;
    bool SBHUFF = false;
    bool SBREFINE = false;
    unsigned int LOGSBSTRIPS = 0;
    unsigned int SBSTRIPS = 1;  // 1 << LOGSBSTRIPS
    int REFCORNER = REFCORNER_TOPLEFT;
    bool TRANSPOSED = false;
    int SBCOMBOP = 0;
    int SBDEFPIXEL = 0;
    int SBDSOFFSET = 0;
    int SBRTEMPLATE = 0;
    signed char SBRAT[4] = {0, 0, 0, 0};
    // Huffman tables (owned); set only with SBHUFF.
    std::unique_ptr<HuffmanTable> SBHUFFFS, SBHUFFDS, SBHUFFDT, SBHUFFRDW, SBHUFFRDH, SBHUFFRDX, SBHUFFRDY,
        SBHUFFRSIZE;
    uint32_t SBNUMINSTANCES = 0;

    // Reads the region information, the flags, the table selection, the
    // refinement AT bytes and the instance count. User tables are taken in
    // order from `userTables`; a selection with none left throws
    // JBIG2_INVALID_DATA.
    void parse(StepDataReader& reader, const std::vector<const HuffmanTable*>& userTables);
    // The fixed tables of an aggregate symbol: FS F, DS H, DT K, RDW to RDY O,
    // RSIZE A.
    void setAggregateTables();
};

// Decoders of the instance loop. In a symbol dictionary they belong to the
// dictionary and run on across all its symbols, so the arithmetic state and
// the Huffman decoder are borrowed pointers here; a text region segment makes
// its own.
struct TextRegionDecodeVar {
    ArithmeticDecoderState* state = nullptr;
    IntArithmeticDecoder IADT, IAFS, IADS, IAIT, IARI, IARDW, IARDH, IARDX, IARDY;
    std::unique_ptr<IAIDArithmeticDecoder> IAID;
    HuffmanDecoder* huffman = nullptr;
    // The bytes the Huffman reader runs over, for the arithmetic-coded
    // refinements that sit byte-aligned inside Huffman-coded data.
    const unsigned char* huffmanData = nullptr;
    uint32_t huffmanSize = 0;
    // With SBHUFF: the symbol ID table; without it IDs are fixed-length codes
    // of `codeLength` bits (aggregate symbols of a Huffman dictionary).
    std::unique_ptr<HuffmanTable> symbolIdTable;
    unsigned int codeLength = 0;
    // Refinement contexts, shared by every refined instance.
    ContextTable refinementContexts;

    // Builds this region's own decoders on the rest of the view: one
    // arithmetic state, or the Huffman reader with the symbol ID table read
    // from the data.
    void parse(StepDataReader& reader, TextRegionParams& params, unsigned int symbolCount);
    // Throws JBIG2_INVALID_DATA once decoding has run far past the data, so
    // hostile counts cannot keep the instance loop going on padding.
    void checkExhausted() const;
    // Checks made once the arithmetic decoder had run out of data: past the
    // end it feeds 1-bits without consuming anything, so a well-adapted
    // context can go on decoding for ever while pastEnd hardly moves.
    mutable uint32_t checksPastEnd = 0;

    std::unique_ptr<ArithmeticDecoderState> ownState;
    std::unique_ptr<HuffmanDaraReader> ownReader;
    std::unique_ptr<HuffmanDecoder> ownHuffman;
};

class TextRegionSegment : public Segment {
public:
    TextRegionSegment() {}
    explicit TextRegionSegment(const Segment& header) { setHeader(header); }
    ~TextRegionSegment();
    TextRegionSegment(const TextRegionSegment&) = delete;
    TextRegionSegment& operator=(const TextRegionSegment&) = delete;

    // Reads the parameters and builds the decoders.
    void parse(StepDataReader& reader, const std::vector<const HuffmanTable*>& userTables, unsigned int symbolCount);
    // parse, then decodes the instances over `symbols` (the referred
    // dictionaries' exports, in order) into the region image.
    void decode(StepDataReader& reader, const std::vector<const SymbolImage*>& symbols,
                const std::vector<const HuffmanTable*>& userTables);

    // The instance loop: strips, symbol IDs, refinement, placement. `region`
    // must already hold the region's size and default pixel.
    static void decodeInstances(const TextRegionParams& params, TextRegionDecodeVar& var,
                                const std::vector<const SymbolImage*>& symbols, SymbolImage& region);
    // Places `symbol` with its reference corner at (s, t) of the strip
    // coordinates and moves `curs` past it.
    static void parseSymbolImagePos(int64_t s, int64_t t, const SymbolImage* symbol, const TextRegionParams& params,
                                    SymbolImage& region, int64_t& curs);
    // The bitmap of one instance: the symbol itself, or (with the RI bit) a
    // refinement of it, which is handed out in `refined` for the caller to own.
    static const SymbolImage* parseSymbolIamge(const SymbolImage* symbol, const TextRegionParams& params,
                                               TextRegionDecodeVar& var, std::unique_ptr<SymbolImage>& refined);

    const TextRegionParams& getParams() const { return m_params; }
    SymbolImage* getImage() const { return m_result; }
    SymbolImage* getRegionImage() const override { return m_result; }

private:
    TextRegionParams m_params;
    TextRegionDecodeVar m_var;
    SymbolImage* m_result = nullptr;
};

// Smallest n with 2^n >= count (0 for a count of 1 or less).
unsigned int symbolCodeLength(uint64_t count);

}  // namespace jbig2

#endif
