// The dictionaries and code tables that JBIG2Dec keeps for reference.
#include <cstdlib>
#include <new>

#include "jbig2/jarithmeticdecoder.h"
#include "jbig2/jbig2decsegments.h"
#include "jbig2/jbig2huffmandecoder.h"

namespace {
JBIG2Bitmap** newBitmapArray(uint32_t size) {
    // Each entry costs its pointer, so that a count read from the data is
    // bounded by the budget before it becomes an allocation.
    JBIG2DecBudget::charge(static_cast<uint64_t>(size) * sizeof(JBIG2Bitmap*));
    JBIG2Bitmap** p = static_cast<JBIG2Bitmap**>(std::calloc(size ? size : 1, sizeof(JBIG2Bitmap*)));
    if (!p) throw JBIG2DecStop();
    return p;
}
}  // namespace

JBIG2SymbolDict::JBIG2SymbolDict(uint32_t segNumA, uint32_t sizeA)
    : JBIG2Segment(segNumA), size(0), bitmaps(nullptr), genericRegionStats(nullptr), refinementRegionStats(nullptr) {
    bitmaps = newBitmapArray(sizeA);
    size = sizeA;
}

JBIG2SymbolDict::~JBIG2SymbolDict() {
    for (uint32_t i = 0; i < size; ++i) delete bitmaps[i];
    std::free(bitmaps);
    delete genericRegionStats;
    delete refinementRegionStats;
}

void JBIG2SymbolDict::setBitmap(uint32_t idx, JBIG2Bitmap* bitmap) {
    if (idx >= size) {
        delete bitmap;
        return;
    }
    delete bitmaps[idx];
    bitmaps[idx] = bitmap;
}

void JBIG2SymbolDict::setGenericRegionStats(JArithmeticDecoderStats* stats) {
    delete genericRegionStats;
    genericRegionStats = stats;
}

void JBIG2SymbolDict::setRefinementRegionStats(JArithmeticDecoderStats* stats) {
    delete refinementRegionStats;
    refinementRegionStats = stats;
}

JBIG2PatternDict::JBIG2PatternDict(uint32_t segNumA, uint32_t sizeA) : JBIG2Segment(segNumA), size(0), bitmaps(nullptr) {
    bitmaps = newBitmapArray(sizeA);
    size = sizeA;
}

JBIG2PatternDict::~JBIG2PatternDict() {
    for (uint32_t i = 0; i < size; ++i) delete bitmaps[i];
    std::free(bitmaps);
}

void JBIG2PatternDict::setBitmap(uint32_t idx, JBIG2Bitmap* bitmap) {
    if (idx >= size) {
        delete bitmap;
        return;
    }
    delete bitmaps[idx];
    bitmaps[idx] = bitmap;
}

JBIG2CodeTable::JBIG2CodeTable(uint32_t segNumA, JBIG2HuffmanTable* tableA) : JBIG2Segment(segNumA), table(tableA) {}

JBIG2CodeTable::~JBIG2CodeTable() { std::free(table); }
