// Text region decoding, ISO/IEC 14492 6.4 and 7.4.3: strips of symbol
// instances, each placed by its reference corner, optionally refined.
#include "jbig2/textregionsegment.h"

#include <new>

#include "jbig2/jbig2result.h"
#include "jbig2/refinementregionsegment.h"

namespace jbig2 {

namespace {

// Fed bytes past the end of the data after which a loop whose length comes
// from the data is taken to run on hostile counts. Well-formed data reads at
// most a few bytes past its end.
const uint32_t kMaxPastEnd = 4096;
// Strips and instances decoded after the data ran out, past which the same
// holds: a byte fed past the end can carry hundreds of thousands of decisions.
const uint32_t kMaxChecksPastEnd = 1u << 16;

const HuffmanTable* selectTable(unsigned int selection, const HuffmanParams* const* standard,
                                const std::vector<const HuffmanTable*>& userTables, std::size_t& nextUser,
                                std::unique_ptr<HuffmanTable>& out) {
    if (standard[selection]) {
        out.reset(new HuffmanTable(*standard[selection]));
    } else {
        // 3 (or an unused value, which no encoder writes) takes the next user table.
        if (nextUser >= userTables.size()) throw JBIG2_INVALID_DATA;
        out.reset(userTables[nextUser++]->clone());
    }
    return out.get();
}

int32_t decodeValue(HuffmanDecoder& huffman, const HuffmanTable& table) {
    bool oob = false;
    const int32_t v = huffman.decodeint(table, oob);
    if (oob) throw JBIG2_INVALID_DATA;
    return v;
}

int32_t decodeValue(IntArithmeticDecoder& decoder, ArithmeticDecoderState& state) {
    int32_t v = 0;
    if (decoder.decode(state, v)) throw JBIG2_INVALID_DATA;
    return v;
}

}  // namespace

unsigned int symbolCodeLength(uint64_t count) {
    unsigned int n = 0;
    while (n < 63 && (static_cast<uint64_t>(1) << n) < count) ++n;
    return n;
}

void TextRegionParams::parse(StepDataReader& reader, const std::vector<const HuffmanTable*>& userTables) {
    region.parse(reader);
    const uint16_t flags = reader.getShort();
    SBHUFF = flags & 1;
    SBREFINE = (flags >> 1) & 1;
    LOGSBSTRIPS = (flags >> 2) & 3;
    SBSTRIPS = 1u << LOGSBSTRIPS;
    REFCORNER = (flags >> 4) & 3;
    TRANSPOSED = (flags >> 6) & 1;
    SBCOMBOP = getPageOp((flags >> 7) & 3);
    SBDEFPIXEL = (flags >> 9) & 1;
    // Five bits, signed: 0x10 to 0x1F stand for -16 to -1.
    SBDSOFFSET = (flags >> 10) & 0x1F;
    if (SBDSOFFSET > 15) SBDSOFFSET -= 32;
    SBRTEMPLATE = (flags >> 15) & 1;

    if (SBHUFF) {
        const uint16_t sel = reader.getShort();
        std::size_t nextUser = 0;
        static const HuffmanParams* const fs[4] = {&huffman_params_F, &huffman_params_G, nullptr, nullptr};
        static const HuffmanParams* const ds[4] = {&huffman_params_H, &huffman_params_I, &huffman_params_J, nullptr};
        static const HuffmanParams* const dt[4] = {&huffman_params_K, &huffman_params_L, &huffman_params_M, nullptr};
        static const HuffmanParams* const rd[4] = {&huffman_params_N, &huffman_params_O, nullptr, nullptr};
        static const HuffmanParams* const rsize[2] = {&huffman_params_A, nullptr};
        selectTable(sel & 3, fs, userTables, nextUser, SBHUFFFS);
        selectTable((sel >> 2) & 3, ds, userTables, nextUser, SBHUFFDS);
        selectTable((sel >> 4) & 3, dt, userTables, nextUser, SBHUFFDT);
        selectTable((sel >> 6) & 3, rd, userTables, nextUser, SBHUFFRDW);
        selectTable((sel >> 8) & 3, rd, userTables, nextUser, SBHUFFRDH);
        selectTable((sel >> 10) & 3, rd, userTables, nextUser, SBHUFFRDX);
        selectTable((sel >> 12) & 3, rd, userTables, nextUser, SBHUFFRDY);
        selectTable((sel >> 14) & 1, rsize, userTables, nextUser, SBHUFFRSIZE);
    }
    if (SBREFINE && SBRTEMPLATE == 0)
        for (int i = 0; i < 4; ++i) SBRAT[i] = static_cast<signed char>(reader.getByte());
    SBNUMINSTANCES = reader.getInt();
}

void TextRegionParams::setAggregateTables() {
    SBHUFFFS.reset(new HuffmanTable(huffman_params_F));
    SBHUFFDS.reset(new HuffmanTable(huffman_params_H));
    SBHUFFDT.reset(new HuffmanTable(huffman_params_K));
    SBHUFFRDW.reset(new HuffmanTable(huffman_params_O));
    SBHUFFRDH.reset(new HuffmanTable(huffman_params_O));
    SBHUFFRDX.reset(new HuffmanTable(huffman_params_O));
    SBHUFFRDY.reset(new HuffmanTable(huffman_params_O));
    SBHUFFRSIZE.reset(new HuffmanTable(huffman_params_A));
}

void TextRegionDecodeVar::parse(StepDataReader& reader, TextRegionParams& params, unsigned int symbolCount) {
    // Only refined instances use them.
    if (params.SBREFINE) refinementContexts.assign(static_cast<std::size_t>(1) << 13);
    const std::size_t rest = reader.remaining();
    if (!params.SBHUFF) {
        codeLength = symbolCodeLength(symbolCount);
        IAID.reset(new IAIDArithmeticDecoder(codeLength));
        ownState.reset(new ArithmeticDecoderState(&reader));
        ownState->init();
        state = ownState.get();
        return;
    }
    huffmanData = reader.current();
    huffmanSize = static_cast<uint32_t>(rest > 0xFFFFFFFFu ? 0xFFFFFFFFu : rest);
    ownReader.reset(new HuffmanDaraReader(huffmanData, huffmanSize));
    ownHuffman.reset(new HuffmanDecoder(ownReader.get()));
    huffman = ownHuffman.get();

    // The symbol ID code table: 35 run code lengths of 4 bits, then the
    // symbols' code lengths coded with them, 32 to 34 being repeats.
    HuffmanLine runLines[35];
    for (int i = 0; i < 35; ++i) runLines[i] = HuffmanLine{static_cast<int32_t>(huffman->decodebits(4)), 0, i};
    const HuffmanParams runParams = {0, 35, runLines};
    const HuffmanTable runTable(runParams);
    std::vector<HuffmanLine> lines;
    lines.reserve(symbolCount);
    while (lines.size() < symbolCount) {
        const int32_t code = decodeValue(*huffman, runTable);
        int32_t length = 0;
        uint32_t repeat = 1;
        if (code < 32) {
            length = code;
        } else if (code == 32) {
            if (lines.empty()) throw JBIG2_INVALID_DATA;
            length = lines.back().prefixLength;
            repeat = 3 + huffman->decodebits(2);
        } else if (code == 33) {
            repeat = 3 + huffman->decodebits(3);
        } else {
            repeat = 11 + huffman->decodebits(7);
        }
        for (uint32_t i = 0; i < repeat; ++i) {
            if (lines.size() >= symbolCount) throw JBIG2_INVALID_DATA;
            lines.push_back(HuffmanLine{length, 0, static_cast<int32_t>(lines.size())});
        }
    }
    huffman->skip();
    // Two unused slots where the range lines would stand, so that no symbol's
    // line is taken for the lower range line.
    lines.push_back(HuffmanLine{0, 0, 0});
    lines.push_back(HuffmanLine{0, 0, 0});
    const HuffmanParams idParams = {0, static_cast<int>(lines.size()), lines.data()};
    symbolIdTable.reset(new HuffmanTable(idParams));
}

void TextRegionDecodeVar::checkExhausted() const {
    if (state && state->pastEnd > kMaxPastEnd) throw JBIG2_INVALID_DATA;
    if (state && state->pastEnd > 0 && ++checksPastEnd > kMaxChecksPastEnd) throw JBIG2_INVALID_DATA;
    if (huffman && huffman->offset() > static_cast<uint64_t>(huffmanSize) + 8) throw JBIG2_INVALID_DATA;
}

TextRegionSegment::~TextRegionSegment() { delete m_result; }

void TextRegionSegment::parse(StepDataReader& reader, const std::vector<const HuffmanTable*>& userTables,
                              unsigned int symbolCount) {
    m_params.parse(reader, userTables);
    m_var.parse(reader, m_params, symbolCount);
}

void TextRegionSegment::decode(StepDataReader& reader, const std::vector<const SymbolImage*>& symbols,
                               const std::vector<const HuffmanTable*>& userTables) {
    parse(reader, userTables, static_cast<unsigned int>(symbols.size()));
    std::unique_ptr<SymbolImage> image(new SymbolImage());
    image->create(m_params.region.width, m_params.region.height);
    if (m_params.SBDEFPIXEL) image->fill(0xFF);
    decodeInstances(m_params, m_var, symbols, *image);
    m_var.refinementContexts.release();  // a kept region needs them no more
    delete m_result;
    m_result = image.release();
}

const SymbolImage* TextRegionSegment::parseSymbolIamge(const SymbolImage* symbol, const TextRegionParams& p,
                                                       TextRegionDecodeVar& v, std::unique_ptr<SymbolImage>& refined) {
    refined.reset();
    int ri = 0;
    if (p.SBREFINE) ri = p.SBHUFF ? static_cast<int>(v.huffman->decodebits(1)) : decodeValue(v.IARI, *v.state);
    if (!ri) return symbol;

    int32_t rdw, rdh, rdx, rdy;
    uint32_t rsize = 0;
    if (p.SBHUFF) {
        rdw = decodeValue(*v.huffman, *p.SBHUFFRDW);
        rdh = decodeValue(*v.huffman, *p.SBHUFFRDH);
        rdx = decodeValue(*v.huffman, *p.SBHUFFRDX);
        rdy = decodeValue(*v.huffman, *p.SBHUFFRDY);
        rsize = static_cast<uint32_t>(decodeValue(*v.huffman, *p.SBHUFFRSIZE));
        v.huffman->skip();
    } else {
        rdw = decodeValue(v.IARDW, *v.state);
        rdh = decodeValue(v.IARDH, *v.state);
        rdx = decodeValue(v.IARDX, *v.state);
        rdy = decodeValue(v.IARDY, *v.state);
    }
    const int64_t width = static_cast<int64_t>(symbol->getWidth()) + rdw;
    const int64_t height = static_cast<int64_t>(symbol->getHeight()) + rdh;
    if (width < 0 || height < 0 || width > 0xFFFFFFFFll || height > 0xFFFFFFFFll) throw JBIG2_INVALID_DATA;

    GenericRefinementRegionSegmentParameter gr;
    gr.width = static_cast<uint32_t>(width);
    gr.height = static_cast<uint32_t>(height);
    gr.templ = p.SBRTEMPLATE;
    gr.tpgron = false;
    gr.reference = symbol;
    // Half the size change, rounded down (also for negative changes), plus
    // the offset.
    gr.dx = static_cast<int32_t>((static_cast<int64_t>(rdw) >> 1) + rdx);
    gr.dy = static_cast<int32_t>((static_cast<int64_t>(rdh) >> 1) + rdy);
    for (int i = 0; i < 4; ++i) gr.at[i] = p.SBRAT[i];
    GenericRefinementRegionSegment refinement;
    refinement.setParameter(gr);
    refinement.setReferenceContext(v.refinementContexts.data());
    if (p.SBHUFF) {
        // The refinement is arithmetic-coded in the next `rsize` bytes, which
        // the Huffman reader then steps over.
        const uint32_t at = v.huffman->offset();
        const uint32_t start = at < v.huffmanSize ? at : v.huffmanSize;
        const uint32_t avail = v.huffmanSize - start;
        StepDataReader chunk(v.huffmanData + start, rsize < avail ? rsize : avail);
        refinement.decodedirect(chunk, nullptr);
        v.huffman->advance(rsize);
    } else {
        refinement.decodedirect(*v.state->reader, v.state);
    }
    refined.reset(refinement.takeImage());
    return refined.get();
}

void TextRegionSegment::parseSymbolImagePos(int64_t s, int64_t t, const SymbolImage* symbol,
                                            const TextRegionParams& p, SymbolImage& region, int64_t& curs) {
    const int64_t w = symbol->getWidth();
    const int64_t h = symbol->getHeight();
    const bool right = p.REFCORNER == REFCORNER_TOPRIGHT || p.REFCORNER == REFCORNER_BOTTOMRIGHT;
    const bool bottom = p.REFCORNER == REFCORNER_BOTTOMLEFT || p.REFCORNER == REFCORNER_BOTTOMRIGHT;
    // Along the strip the instance starts at the corner's side: a right (or,
    // transposed, bottom) corner moves CURS over the symbol first.
    if (!p.TRANSPOSED && right) s += w - 1;
    if (p.TRANSPOSED && bottom) s += h - 1;
    curs = s;
    int64_t x, y;
    if (!p.TRANSPOSED) {
        x = right ? s - w + 1 : s;
        y = bottom ? t - h + 1 : t;
    } else {
        x = right ? t - w + 1 : t;
        y = bottom ? s - h + 1 : s;
    }
    region.compose(x, y, *symbol, p.SBCOMBOP);
    if (!p.TRANSPOSED && !right) curs += w - 1;
    if (p.TRANSPOSED && !bottom) curs += h - 1;
}

void TextRegionSegment::decodeInstances(const TextRegionParams& p, TextRegionDecodeVar& v,
                                        const std::vector<const SymbolImage*>& symbols, SymbolImage& region) {
    const bool huff = p.SBHUFF;
    if (!huff && (!v.state || !v.IAID)) throw JBIG2_INVALID_DATA;
    if (huff && !v.huffman) throw JBIG2_INVALID_DATA;
    auto decodeDT = [&]() -> int64_t {
        return huff ? decodeValue(*v.huffman, *p.SBHUFFDT) : decodeValue(v.IADT, *v.state);
    };
    int64_t stript = -decodeDT() * static_cast<int64_t>(p.SBSTRIPS);
    int64_t firsts = 0;
    uint32_t instances = 0;
    while (instances < p.SBNUMINSTANCES) {
        v.checkExhausted();
        stript += decodeDT() * static_cast<int64_t>(p.SBSTRIPS);
        int64_t curs = 0;
        bool first = true;
        for (;;) {
            if (first) {
                firsts += huff ? decodeValue(*v.huffman, *p.SBHUFFFS) : decodeValue(v.IAFS, *v.state);
                curs = firsts;
                first = false;
            } else {
                int32_t ids = 0;
                const bool oob = huff ? v.huffman->decodeint(ids, *p.SBHUFFDS) : v.IADS.decode(*v.state, ids);
                if (oob) break;
                curs += static_cast<int64_t>(ids) + p.SBDSOFFSET;
            }
            v.checkExhausted();
            int64_t curt = 0;
            if (p.SBSTRIPS != 1)
                curt = huff ? static_cast<int64_t>(v.huffman->decodebits(p.LOGSBSTRIPS)) : decodeValue(v.IAIT, *v.state);
            const int64_t t = stript + curt;

            uint32_t id = 0;
            if (!huff)
                v.IAID->decode(*v.state, id);
            else if (v.symbolIdTable)
                id = static_cast<uint32_t>(decodeValue(*v.huffman, *v.symbolIdTable));
            else
                id = v.huffman->decodebits(v.codeLength);
            if (id >= symbols.size() || !symbols[id]) throw JBIG2_INVALID_DATA;

            std::unique_ptr<SymbolImage> refined;
            const SymbolImage* image = parseSymbolIamge(symbols[id], p, v, refined);
            parseSymbolImagePos(curs, t, image, p, region, curs);
            ++instances;
        }
    }
}

}  // namespace jbig2
