// Symbol dictionary decoding, ISO/IEC 14492 6.5 and 7.4.2: height classes
// of new symbols (generic, refined or aggregate coding, or a Huffman-coded
// collective bitmap per class), then the export runs.
#include "jbig2/symboldictsegment.h"

#include <new>

#include "jbig2/genericregionsegment.h"
#include "jbig2/jbig2result.h"
#include "jbig2/refinementregionsegment.h"

namespace jbig2 {

namespace {

const uint32_t kMaxPastEnd = 4096;
// Symbols decoded after the data ran out, past which the count is taken to be
// hostile: past the end the decoder feeds 1-bits without consuming anything.
const uint32_t kMaxChecksPastEnd = 1u << 16;

// New symbols per byte of data above which a dictionary is refused: each
// symbol costs at least a width delta and a bitmap, and this leaves room
// for the most skewed coding.
const uint64_t kMaxSymbolsPerByte = 512;

int32_t decodeArith(IntArithmeticDecoder& decoder, ArithmeticDecoderState& state, bool& oob) {
    int32_t v = 0;
    oob = decoder.decode(state, v);
    return v;
}

void takeTable(unsigned int selection, const HuffmanParams* const* standard,
               const std::vector<const HuffmanTable*>& userTables, std::size_t& nextUser,
               std::unique_ptr<HuffmanTable>& out) {
    if (standard[selection]) {
        out.reset(new HuffmanTable(*standard[selection]));
        return;
    }
    if (nextUser >= userTables.size()) throw JBIG2_INVALID_DATA;
    out.reset(userTables[nextUser++]->clone());
}

}  // namespace

void SymbolDictParams::parse(StepDataReader& reader) {
    if (reader.getSize() <= 9) throw JBIG2_INVALID_DATA;
    const uint16_t flags = reader.getShort();
    SDHUFF = flags & 1;
    SDREFAGG = (flags >> 1) & 1;
    SDTEMPLATE = (flags >> 10) & 3;
    SDRTEMPLATE = (flags >> 12) & 1;
    // Bits 8 and 9, the use and retention of earlier contexts, are not acted
    // upon: every dictionary starts with fresh contexts.
    if (SDHUFF) {
        std::size_t nextUser = 0;
        static const HuffmanParams* const dh[4] = {&huffman_params_D, &huffman_params_E, &huffman_params_D, nullptr};
        static const HuffmanParams* const dw[4] = {&huffman_params_B, &huffman_params_C, &huffman_params_B, nullptr};
        static const HuffmanParams* const a[2] = {&huffman_params_A, nullptr};
        takeTable((flags >> 2) & 3, dh, userTables, nextUser, SDHUFFDH);
        takeTable((flags >> 4) & 3, dw, userTables, nextUser, SDHUFFDW);
        takeTable((flags >> 6) & 1, a, userTables, nextUser, SDHUFFBMSIZE);
        takeTable((flags >> 7) & 1, a, userTables, nextUser, SDHUFFAGGINST);
    } else {
        const int n = SDTEMPLATE == 0 ? 8 : 2;
        for (int i = 0; i < n; ++i) SDAT[i] = static_cast<signed char>(reader.getByte());
    }
    if (SDREFAGG && SDRTEMPLATE == 0)
        for (int i = 0; i < 4; ++i) SDRAT[i] = static_cast<signed char>(reader.getByte());
    SDNUMEXSYMS = reader.getInt();
    SDNUMNEWSYMS = reader.getInt();
}

void SymbolDictDecodeVar::parse(StepDataReader& reader, const SymbolDictParams& params) {
    const std::size_t rest = reader.remaining();
    data = reader.current();
    size = static_cast<uint32_t>(rest > 0xFFFFFFFFu ? 0xFFFFFFFFu : rest);
    const uint64_t total = static_cast<uint64_t>(params.inputSymbols.size()) + params.SDNUMNEWSYMS;
    codeLength = symbolCodeLength(total);
    if (params.SDHUFF) {
        huffmanReader.reset(new HuffmanDaraReader(data, size));
        huffman.reset(new HuffmanDecoder(huffmanReader.get()));
        tableO.build(huffman_params_O);
        tableA.build(huffman_params_A);
        text.huffman = huffman.get();
        text.huffmanData = data;
        text.huffmanSize = size;
    } else {
        ownState.reset(new ArithmeticDecoderState(&reader));
        ownState->init();
        state = ownState.get();
        text.state = state;
        genericContexts.assign(static_cast<std::size_t>(1) << GenericRegionSegment::contextSize(params.SDTEMPLATE));
    }
    if (params.SDREFAGG) {
        text.codeLength = codeLength;
        if (!params.SDHUFF) text.IAID.reset(new IAIDArithmeticDecoder(codeLength));
        text.refinementContexts.assign(static_cast<std::size_t>(1) << 13);
    }
}

SymbolDictSegment::~SymbolDictSegment() {
    for (SymbolImage* s : m_exported) delete s;
}

void SymbolDictSegment::addInputSymbols(const std::vector<SymbolImage*>& symbols) {
    m_params.inputSymbols.insert(m_params.inputSymbols.end(), symbols.begin(), symbols.end());
}

void SymbolDictSegment::parse(StepDataReader& reader) {
    m_params.parse(reader);
    if (m_params.SDNUMNEWSYMS > (static_cast<uint64_t>(reader.remaining()) + 1) * kMaxSymbolsPerByte)
        throw JBIG2_INVALID_DATA;
    m_var.parse(reader, m_params);
}

SymbolImage* SymbolDictSegment::refineOne(uint32_t width, uint32_t height,
                                          const std::vector<const SymbolImage*>& symbols) {
    SymbolDictDecodeVar& v = m_var;
    uint32_t id = 0;
    int32_t rdx = 0, rdy = 0;
    uint32_t bmsize = 0;
    bool oob = false;
    if (m_params.SDHUFF) {
        id = v.huffman->decodebits(v.codeLength);
        rdx = v.huffman->decodeint(v.tableO, oob);
        rdy = v.huffman->decodeint(v.tableO, oob);
        bmsize = static_cast<uint32_t>(v.huffman->decodeint(v.tableA, oob));
        v.huffman->skip();
    } else {
        v.text.IAID->decode(*v.state, id);
        bool oobX = false, oobY = false;
        rdx = decodeArith(v.text.IARDX, *v.state, oobX);
        rdy = decodeArith(v.text.IARDY, *v.state, oobY);
        if (oobX || oobY) throw JBIG2_INVALID_DATA;
    }
    if (id >= symbols.size()) throw JBIG2_INVALID_DATA;

    GenericRefinementRegionSegmentParameter gr;
    gr.width = width;
    gr.height = height;
    gr.templ = m_params.SDRTEMPLATE;
    gr.tpgron = false;
    gr.reference = symbols[id];
    gr.dx = rdx;
    gr.dy = rdy;
    for (int i = 0; i < 4; ++i) gr.at[i] = m_params.SDRAT[i];
    GenericRefinementRegionSegment refinement;
    refinement.setParameter(gr);
    refinement.setReferenceContext(v.text.refinementContexts.data());
    if (m_params.SDHUFF) {
        // Arithmetic-coded in the next BMSIZE bytes, which the Huffman reader
        // then steps over.
        const uint32_t at = v.huffman->offset();
        const uint32_t start = at < v.size ? at : v.size;
        const uint32_t avail = v.size - start;
        StepDataReader chunk(v.data + start, bmsize < avail ? bmsize : avail);
        refinement.decodedirect(chunk, nullptr);
        v.huffman->advance(bmsize);
    } else {
        refinement.decodedirect(*v.state->reader, v.state);
    }
    return refinement.takeImage();
}

SymbolImage* SymbolDictSegment::asTextRegion(uint32_t width, uint32_t height, uint32_t instances,
                                             const std::vector<const SymbolImage*>& symbols) {
    TextRegionParams p;
    p.region.width = width;
    p.region.height = height;
    p.SBHUFF = m_params.SDHUFF;
    p.SBREFINE = true;
    p.LOGSBSTRIPS = 0;
    p.SBSTRIPS = 1;
    p.REFCORNER = REFCORNER_TOPLEFT;
    p.TRANSPOSED = false;
    p.SBCOMBOP = 0;
    p.SBDEFPIXEL = 0;
    p.SBDSOFFSET = 0;
    p.SBRTEMPLATE = m_params.SDRTEMPLATE;
    for (int i = 0; i < 4; ++i) p.SBRAT[i] = m_params.SDRAT[i];
    p.SBNUMINSTANCES = instances;
    if (p.SBHUFF) p.setAggregateTables();
    std::unique_ptr<SymbolImage> image(new SymbolImage(width, height));
    TextRegionSegment::decodeInstances(p, m_var.text, symbols, *image);
    return image.release();
}

void SymbolDictSegment::decodeCollectiveBitmap(uint32_t totalWidth, uint32_t height,
                                               const std::vector<uint32_t>& widths, std::vector<SymbolImage*>& out) {
    SymbolDictDecodeVar& v = m_var;
    bool oob = false;
    const int32_t bmsize = v.huffman->decodeint(*m_params.SDHUFFBMSIZE, oob);
    if (oob || bmsize < 0) throw JBIG2_INVALID_DATA;
    v.huffman->skip();
    const uint32_t at = v.huffman->offset();
    const uint32_t start = at < v.size ? at : v.size;
    const uint32_t avail = v.size - start;
    std::unique_ptr<SymbolImage> collective;
    uint64_t advance = static_cast<uint32_t>(bmsize);
    if (bmsize == 0) {
        // Stored uncompressed, each row on a byte boundary; bytes past the
        // data read as 0.
        collective.reset(new SymbolImage(totalWidth, height));
        const uint32_t stride = collective->getStride();
        const uint32_t rowBytes = (totalWidth + 7) / 8;
        for (uint32_t y = 0; y < height; ++y) {
            const uint64_t rowStart = static_cast<uint64_t>(y) * rowBytes;
            for (uint32_t i = 0; i < rowBytes && i < stride; ++i) {
                const uint64_t k = rowStart + i;
                collective->getLine(y)[i] = k < avail ? v.data[start + k] : 0;
            }
        }
        advance = static_cast<uint64_t>(rowBytes) * height;
    } else {
        GenericRegionSegmentParameter gp;
        gp.width = totalWidth;
        gp.height = height;
        gp.mmr = true;
        GenericRegionSegment generic;
        generic.setParameter(gp);
        StepDataReader chunk(v.data + start, static_cast<uint32_t>(bmsize) < avail ? static_cast<uint32_t>(bmsize) : avail);
        generic.decodedirect(chunk, nullptr);
        collective.reset(generic.takeImage());
    }
    v.huffman->advance(static_cast<uint32_t>(advance > 0xFFFFFFFFu ? 0xFFFFFFFFu : advance));
    int64_t x = 0;
    for (uint32_t w : widths) {
        std::unique_ptr<SymbolImage> symbol(new SymbolImage(w, height));
        symbol->compose(-x, 0, *collective, 4);
        out.push_back(symbol.release());
        x += w;
    }
}

void SymbolDictSegment::decodeExports(const std::vector<const SymbolImage*>& all, std::size_t inputCount,
                                      std::vector<SymbolImage*>& newSymbols) {
    SymbolDictDecodeVar& v = m_var;
    const uint64_t total = all.size();
    std::vector<bool> exported(all.size(), false);
    uint64_t index = 0;
    bool flag = false;
    // Every run but a leading empty one moves the index, so a run total that
    // never meets the symbol count ends here, as invalid data.
    uint64_t rounds = 0;
    while (index < total) {
        if (++rounds > 2 * total + 2) throw JBIG2_INVALID_DATA;
        bool oob = false;
        const int32_t run = m_params.SDHUFF ? v.huffman->decodeint(v.tableA, oob) : decodeArith(v.IAEX, *v.state, oob);
        if (oob || run < 0 || index + static_cast<uint64_t>(run) > total) throw JBIG2_INVALID_DATA;
        for (int32_t i = 0; i < run; ++i) exported[static_cast<std::size_t>(index + i)] = flag;
        index += static_cast<uint64_t>(run);
        flag = !flag;
    }
    m_exported.reserve(m_params.SDNUMEXSYMS < total ? m_params.SDNUMEXSYMS : total);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!exported[i]) continue;
        if (i >= inputCount) {
            // A new symbol passes to the export list as it is.
            SymbolImage*& s = newSymbols[i - inputCount];
            m_exported.push_back(s);
            s = nullptr;
        } else {
            m_exported.push_back(all[i]->share());
        }
    }
}

void SymbolDictSegment::decode(StepDataReader& reader) {
    parse(reader);
    SymbolDictDecodeVar& v = m_var;
    const SymbolDictParams& p = m_params;
    const std::size_t inputCount = p.inputSymbols.size();
    std::vector<const SymbolImage*> all(p.inputSymbols.begin(), p.inputSymbols.end());
    std::vector<SymbolImage*> newSymbols;
    struct Cleanup {
        std::vector<SymbolImage*>& list;
        ~Cleanup() {
            for (SymbolImage* s : list) delete s;
        }
    } cleanup{newSymbols};
    const std::size_t reserve = p.SDNUMNEWSYMS < 65536 ? p.SDNUMNEWSYMS : 65536;
    all.reserve(inputCount + reserve);
    newSymbols.reserve(reserve);
    std::vector<uint32_t> widths;
    if (p.SDHUFF && !p.SDREFAGG) widths.reserve(reserve);

    // The pixels of all new symbols together stay within the image limit.
    uint64_t symbolBytes = 0;
    auto account = [&](uint64_t w, uint64_t h) {
        symbolBytes += (w == 0 ? 1 : ((w - 1) >> 3) + 1) * h + 64;
        checkAllocation(symbolBytes);
    };
    uint32_t checksPastEnd = 0;
    auto checkExhausted = [&]() {
        if (v.state && v.state->pastEnd > kMaxPastEnd) throw JBIG2_INVALID_DATA;
        if (v.state && v.state->pastEnd > 0 && ++checksPastEnd > kMaxChecksPastEnd) throw JBIG2_INVALID_DATA;
        if (v.huffman && v.huffman->offset() > static_cast<uint64_t>(v.size) + 8) throw JBIG2_INVALID_DATA;
    };

    int64_t hcheight = 0;
    while (newSymbols.size() < p.SDNUMNEWSYMS) {
        checkExhausted();
        bool oob = false;
        const int32_t dh = p.SDHUFF ? v.huffman->decodeint(*p.SDHUFFDH, oob) : decodeArith(v.IADH, *v.state, oob);
        if (oob) throw JBIG2_INVALID_DATA;
        hcheight += dh;
        if (hcheight < 0 || hcheight > 0xFFFFFFFFll) throw JBIG2_INVALID_DATA;
        const uint32_t height = static_cast<uint32_t>(hcheight);
        int64_t symwidth = 0;
        uint64_t totwidth = 0;
        widths.clear();
        for (;;) {
            checkExhausted();
            const int32_t dw = p.SDHUFF ? v.huffman->decodeint(*p.SDHUFFDW, oob) : decodeArith(v.IADW, *v.state, oob);
            if (oob) break;
            // Reaching the count without OOB is fine; a symbol beyond it ends
            // the class.
            if (newSymbols.size() + widths.size() >= p.SDNUMNEWSYMS) break;
            symwidth += dw;
            if (symwidth < 0 || symwidth > 0xFFFFFFFFll) throw JBIG2_INVALID_DATA;
            const uint32_t width = static_cast<uint32_t>(symwidth);
            account(width, height);
            totwidth += width;
            if (p.SDHUFF && !p.SDREFAGG) {
                widths.push_back(width);
                continue;
            }
            std::unique_ptr<SymbolImage> symbol;
            if (!p.SDREFAGG) {
                GenericRegionSegmentParameter gp;
                gp.width = width;
                gp.height = height;
                gp.templ = p.SDTEMPLATE;
                gp.tpgdon = false;
                for (int i = 0; i < 8; ++i) gp.at[i] = p.SDAT[i];
                GenericRegionSegment generic;
                generic.setParameter(gp);
                generic.setContentTable(v.genericContexts.data());
                generic.decodedirect(*v.state->reader, v.state);
                symbol.reset(generic.takeImage());
            } else {
                const int32_t instances =
                    p.SDHUFF ? v.huffman->decodeint(*p.SDHUFFAGGINST, oob) : decodeArith(v.IAAI, *v.state, oob);
                if (oob || instances <= 0) {
                    // No instances: the symbol stays blank.
                    symbol.reset(new SymbolImage(width, height));
                } else if (instances == 1) {
                    symbol.reset(refineOne(width, height, all));
                } else {
                    symbol.reset(asTextRegion(width, height, static_cast<uint32_t>(instances), all));
                }
            }
            newSymbols.push_back(symbol.get());
            all.push_back(symbol.release());
        }
        if (p.SDHUFF && !p.SDREFAGG && !widths.empty()) {
            if (totwidth > 0xFFFFFFFFu) throw JBIG2_INVALID_DATA;
            std::vector<SymbolImage*> cut;
            struct CutCleanup {
                std::vector<SymbolImage*>& list;
                ~CutCleanup() {
                    for (SymbolImage* s : list) delete s;
                }
            } cutCleanup{cut};
            decodeCollectiveBitmap(static_cast<uint32_t>(totwidth), height, widths, cut);
            for (SymbolImage*& s : cut) {
                newSymbols.push_back(s);
                all.push_back(s);
                s = nullptr;
            }
        }
    }
    decodeExports(all, inputCount, newSymbols);
    // The dictionary stays for the segments that refer to it, but its
    // contexts are done with: their memory goes to the next segment.
    v.genericContexts.release();
    v.text.refinementContexts.release();
}

}  // namespace jbig2
