// The segments that JBIG2Dec keeps for reference: bitmaps of
// intermediate regions, symbol dictionaries, pattern dictionaries and code
// tables. Also the raster budget of a decode. Types of their own: nothing
// here is shared with the jbig2:: decoder.
#ifndef PDFKILN_JBIG2DEC_SEGMENTS_H
#define PDFKILN_JBIG2DEC_SEGMENTS_H

#include <cstddef>
#include <cstdint>

class JArithmeticDecoderStats;
struct JBIG2HuffmanTable;

enum JBIG2SegmentType { jbig2SegBitmap, jbig2SegSymbolDict, jbig2SegPatternDict, jbig2SegCodeTable };

// Thrown inside JBIG2Dec when a decode must stop: the raster budget is spent
// or an allocation failed. readSegments catches it; what stands is returned.
struct JBIG2DecStop {};

// While alive, bounds the raster bytes (and the units of work that place
// symbols and patterns) that decoding on this thread may spend; a charge
// beyond it throws JBIG2DecStop. Scopes nest.
class JBIG2DecBudget {
public:
    explicit JBIG2DecBudget(uint64_t inputBytes);
    ~JBIG2DecBudget();
    JBIG2DecBudget(const JBIG2DecBudget&) = delete;
    JBIG2DecBudget& operator=(const JBIG2DecBudget&) = delete;

    // Spends `units` of the budget in force (if any).
    static void charge(uint64_t units);
    // What is left of the budget in force (all ones without one).
    static uint64_t left();
    // The largest single raster, in bytes.
    static uint64_t maxBitmapBytes();

private:
    uint64_t m_left;
    uint64_t* m_outer;
};

class JBIG2Segment {
public:
    explicit JBIG2Segment(uint32_t segNumA) : segNum(segNumA) {}
    virtual ~JBIG2Segment() {}
    JBIG2Segment(const JBIG2Segment&) = delete;
    JBIG2Segment& operator=(const JBIG2Segment&) = delete;
    void setSegNum(uint32_t segNumA) { segNum = segNumA; }
    uint32_t getSegNum() const { return segNum; }
    virtual JBIG2SegmentType getType() const = 0;

private:
    uint32_t segNum;
};

// A one-bit raster: rows from the top, bits from the most significant, 1 is
// black. The data holds h*line bytes and one more, always 0, so that byte
// reads one past a row stay inside.
class JBIG2Bitmap : public JBIG2Segment {
public:
    // Charges the budget; throws JBIG2DecStop beyond it. The pixels are 0.
    JBIG2Bitmap(uint32_t segNumA, int wA, int hA);
    ~JBIG2Bitmap() override;
    JBIG2SegmentType getType() const override { return jbig2SegBitmap; }

    JBIG2Bitmap* copy() const;
    // The w-by-h part at (x, y); pixels outside this bitmap read 0.
    JBIG2Bitmap* getSlice(int64_t x, int64_t y, int wA, int hA) const;
    // Raises the height to newH, the new rows filled by `pixel`. Refused (no
    // change, false) when newH is not larger or the size would reach
    // 0x7FFFFFFE bytes.
    bool expand(int newH, unsigned pixel);
    void clearToZero();
    void clearToOne();
    int getWidth() const { return w; }
    int getHeight() const { return h; }
    int getLineSize() const { return line; }
    int getPixel(int64_t x, int64_t y) const {
        if (x < 0 || y < 0 || x >= w || y >= h) return 0;
        return (data[y * line + (x >> 3)] >> (7 - (x & 7))) & 1;
    }
    void setPixel(int64_t x, int64_t y) {
        if (x < 0 || y < 0 || x >= w || y >= h) return;
        data[y * line + (x >> 3)] |= static_cast<unsigned char>(0x80 >> (x & 7));
    }
    void clearPixel(int64_t x, int64_t y) {
        if (x < 0 || y < 0 || x >= w || y >= h) return;
        data[y * line + (x >> 3)] &= static_cast<unsigned char>(~(0x80 >> (x & 7)));
    }
    // Row y (0 <= y < h) as a copy of row yy.
    void duplicateRow(int y, int yy);
    // Places `src` with its top-left corner at (x, y) by combOp (0 OR, 1 AND,
    // 2 XOR, 3 XNOR, 4 REPLACE; others do nothing), clipped to this bitmap.
    void combine(const JBIG2Bitmap* src, int64_t x, int64_t y, unsigned combOp);
    unsigned char* getDataPtr() { return data; }
    const unsigned char* getDataPtr() const { return data; }
    std::size_t getDataSize() const { return static_cast<std::size_t>(h) * static_cast<std::size_t>(line); }
    unsigned char* getRow(int y) { return data + static_cast<std::size_t>(y) * line; }
    const unsigned char* getRow(int y) const { return data + static_cast<std::size_t>(y) * line; }

private:
    int w, h, line;
    unsigned char* data;
};

class JBIG2SymbolDict : public JBIG2Segment {
public:
    JBIG2SymbolDict(uint32_t segNumA, uint32_t sizeA);
    ~JBIG2SymbolDict() override;
    JBIG2SegmentType getType() const override { return jbig2SegSymbolDict; }
    uint32_t getSize() const { return size; }
    void setBitmap(uint32_t idx, JBIG2Bitmap* bitmap);
    JBIG2Bitmap* getBitmap(uint32_t idx) const { return idx < size ? bitmaps[idx] : nullptr; }
    // Contexts kept for a later dictionary (flag bit 9); owned.
    void setGenericRegionStats(JArithmeticDecoderStats* stats);
    void setRefinementRegionStats(JArithmeticDecoderStats* stats);
    JArithmeticDecoderStats* getGenericRegionStats() const { return genericRegionStats; }
    JArithmeticDecoderStats* getRefinementRegionStats() const { return refinementRegionStats; }

private:
    uint32_t size;
    JBIG2Bitmap** bitmaps;
    JArithmeticDecoderStats* genericRegionStats;
    JArithmeticDecoderStats* refinementRegionStats;
};

class JBIG2PatternDict : public JBIG2Segment {
public:
    JBIG2PatternDict(uint32_t segNumA, uint32_t sizeA);
    ~JBIG2PatternDict() override;
    JBIG2SegmentType getType() const override { return jbig2SegPatternDict; }
    uint32_t getSize() const { return size; }
    void setBitmap(uint32_t idx, JBIG2Bitmap* bitmap);
    JBIG2Bitmap* getBitmap(uint32_t idx) const { return idx < size ? bitmaps[idx] : nullptr; }

private:
    uint32_t size;
    JBIG2Bitmap** bitmaps;
};

class JBIG2CodeTable : public JBIG2Segment {
public:
    // Takes the table (built, EOT-terminated, from malloc).
    JBIG2CodeTable(uint32_t segNumA, JBIG2HuffmanTable* tableA);
    ~JBIG2CodeTable() override;
    JBIG2SegmentType getType() const override { return jbig2SegCodeTable; }
    const JBIG2HuffmanTable* getHuffTable() const { return table; }

private:
    JBIG2HuffmanTable* table;
};

#endif
