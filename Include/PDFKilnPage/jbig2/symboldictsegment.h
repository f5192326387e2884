// Symbol dictionary segments, type 0 (ISO/IEC 14492 6.5 and 7.4.2).
#ifndef PDFKILN_JBIG2_SYMBOLDICTSEGMENT_H
#define PDFKILN_JBIG2_SYMBOLDICTSEGMENT_H

#include <memory>
#include <vector>

#include "arithmeticdecoder.h"
#include "huffman.h"
#include "imagedata.h"
#include "segment.h"
#include "textregionsegment.h"

namespace jbig2 {

struct SymbolDictParams {
    bool SDHUFF = false;
    bool SDREFAGG = false;
    // Tables of height, width, bitmap size and aggregate instance count (owned).
    std::unique_ptr<HuffmanTable> SDHUFFDH, SDHUFFDW, SDHUFFBMSIZE, SDHUFFAGGINST;
    int SDTEMPLATE = 0;
    signed char SDAT[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    int SDRTEMPLATE = 0;
    signed char SDRAT[4] = {0, 0, 0, 0};
    uint32_t SDNUMEXSYMS = 0;
    uint32_t SDNUMNEWSYMS = 0;
    // Tables of the referred code table segments, in order (not owned).
    std::vector<const HuffmanTable*> userTables;
    // Exports of the referred dictionaries, in order (not owned).
    std::vector<const SymbolImage*> inputSymbols;

    // Throws JBIG2_INVALID_DATA for a view of 9 bytes or fewer, or when a
    // user table is selected and none is left. Flag bits 8 and 9 (context
    // use and retention) are read but not acted upon.
    void parse(StepDataReader& reader);
};

struct SymbolDictDecodeVar {
    ArithmeticDecoderState* state = nullptr;
    IntArithmeticDecoder IADH, IADW, IAEX, IAAI;
    std::unique_ptr<HuffmanDaraReader> huffmanReader;
    std::unique_ptr<HuffmanDecoder> huffman;
    HuffmanTable tableO;  // refinement offsets and sizes of Huffman mode
    HuffmanTable tableA;  // export runs and refinement sizes of Huffman mode
    unsigned int codeLength = 0;
    // Generic region contexts, running on across all symbols.
    ContextTable genericContexts;
    // The decoders of refinement and aggregate coding: IAID, IARDX, IARDY and
    // the rest of the text region set, shared with asTextRegion.
    TextRegionDecodeVar text;

    void parse(StepDataReader& reader, const SymbolDictParams& params);

    std::unique_ptr<ArithmeticDecoderState> ownState;
    const unsigned char* data = nullptr;  // the rest of the view, for Huffman mode
    uint32_t size = 0;
};

class SymbolDictSegment : public Segment {
public:
    SymbolDictSegment() {}
    explicit SymbolDictSegment(const Segment& header) { setHeader(header); }
    ~SymbolDictSegment();
    SymbolDictSegment(const SymbolDictSegment&) = delete;
    SymbolDictSegment& operator=(const SymbolDictSegment&) = delete;

    // Input symbols and user tables must be set before decode.
    void addInputSymbols(const std::vector<SymbolImage*>& symbols);
    void addUserTable(const HuffmanTable* table) { m_params.userTables.push_back(table); }
    void parse(StepDataReader& reader);
    void decode(StepDataReader& reader);

    const std::vector<SymbolImage*>& getExportedSymbols() const { return m_exported; }
    const SymbolDictParams& getParams() const { return m_params; }

private:
    // An aggregate of `instances` symbols decoded as a text region of
    // width by height over the dictionary's own decoders and symbols so far.
    SymbolImage* asTextRegion(uint32_t width, uint32_t height, uint32_t instances,
                              const std::vector<const SymbolImage*>& symbols);
    SymbolImage* refineOne(uint32_t width, uint32_t height, const std::vector<const SymbolImage*>& symbols);
    void decodeCollectiveBitmap(uint32_t totalWidth, uint32_t height, const std::vector<uint32_t>& widths,
                                std::vector<SymbolImage*>& out);
    void decodeExports(const std::vector<const SymbolImage*>& all, std::size_t inputCount,
                       std::vector<SymbolImage*>& newSymbols);

    SymbolDictParams m_params;
    SymbolDictDecodeVar m_var;
    std::vector<SymbolImage*> m_exported;  // owned; may share pixels with the inputs
};

}  // namespace jbig2

#endif
