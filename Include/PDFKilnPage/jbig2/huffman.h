// Huffman decoding of ISO/IEC 14492 Annex B with the standard tables B.1 to
// B.15.
#ifndef PDFKILN_JBIG2_HUFFMAN_H
#define PDFKILN_JBIG2_HUFFMAN_H

#include <cstdint>
#include <memory>
#include <vector>

#include "datareader.h"

namespace jbig2 {

// One table line: prefix length, range length, range low.
struct HuffmanLine {
    int32_t prefixLength;
    int32_t rangeLength;
    int32_t rangeLow;
};

// The last lines are the lower range line, the upper range line and, with
// HTOOB, the OOB line. A table of the standard without a lower (or upper)
// range line keeps an unused slot of prefix length 0 in its place.
struct HuffmanParams {
    int HTOOB;
    int lineCount;
    const HuffmanLine* lines;
};

extern const HuffmanParams huffman_params_A;  // B.1
extern const HuffmanParams huffman_params_B;  // B.2
extern const HuffmanParams huffman_params_C;  // B.3
extern const HuffmanParams huffman_params_D;  // B.4
extern const HuffmanParams huffman_params_E;  // B.5
extern const HuffmanParams huffman_params_F;  // B.6
extern const HuffmanParams huffman_params_G;  // B.7
extern const HuffmanParams huffman_params_H;  // B.8
extern const HuffmanParams huffman_params_I;  // B.9
extern const HuffmanParams huffman_params_J;  // B.10
extern const HuffmanParams huffman_params_K;  // B.11
extern const HuffmanParams huffman_params_L;  // B.12
extern const HuffmanParams huffman_params_M;  // B.13
extern const HuffmanParams huffman_params_N;  // B.14
extern const HuffmanParams huffman_params_O;  // B.15

struct HuffmanTableItem {
    int32_t value;
    uint8_t consume;  // bits of the prefix (and spread range) to consume
    uint8_t further;  // range bits still to read
    uint8_t flags;    // FLAG_OOB, FLAG_LOWER, FLAG_INVALID
    uint8_t reserved;
};

class HuffmanTable {
public:
    enum { FLAG_OOB = 1, FLAG_LOWER = 2, FLAG_INVALID = 4 };

    HuffmanTable() : m_width(0) {}
    explicit HuffmanTable(const HuffmanParams& params) : m_width(0) { build(params); }
    HuffmanTable(const HuffmanTable& other) = default;
    HuffmanTable& operator=(const HuffmanTable& other) = default;
    virtual ~HuffmanTable() {}
    HuffmanTable* clone() const;

    // Throws JBIG2_INVALID_DATA for a table that can't be represented. The
    // fifteen standard tables are built once and then shared.
    void build(const HuffmanParams& params);
    unsigned int getWidth() const { return m_width; }
    const HuffmanTableItem& getTableItem(uint32_t index) const { return (*m_items)[index]; }
    std::size_t getItemCount() const { return m_items ? m_items->size() : 0; }

private:
    unsigned int m_width;
    // Never changed once built, so copies (a table per segment that selects
    // it) share the items.
    std::shared_ptr<const std::vector<HuffmanTableItem>> m_items;
};

class HuffmanDaraReader : public DataReader {
public:
    HuffmanDaraReader(const unsigned char* data, uint32_t size);
    // The next n bits (n up to 32), advancing past them.
    uint32_t read(unsigned int n);
    // The next n bits without moving.
    uint32_t peek(unsigned int n) const;
    // Advances n bits and refills; returns the bits passed over.
    uint32_t decodeHelper(int& n);
    void skipToByteBoundary();
    void moveAhead(uint32_t bytes);
    uint32_t offSet() const { return m_byteOffset + m_bitOffset / 8; }

private:
    void advance(uint32_t n);
    uint32_t m_current;
    uint32_t m_next;
    uint32_t m_bitOffset;   // bits of m_current consumed, 0..31
    uint32_t m_byteOffset;  // byte offset of m_current
};

class HuffmanDecoder {
public:
    explicit HuffmanDecoder(HuffmanDaraReader* reader) : m_reader(reader) {}
    virtual ~HuffmanDecoder() {}
    void skip() { m_reader->skipToByteBoundary(); }
    void advance(uint32_t n) { m_reader->moveAhead(n); }
    uint32_t offset() const { return m_reader->offSet(); }
    uint32_t decodebits(unsigned int n) { return m_reader->read(n); }
    // Throws JBIG2_INVALID_DATA for a prefix that isn't in the table.
    int decodeint(const HuffmanTable& table, bool& oob);
    bool decodeint(int& value, const HuffmanTable& table);

private:
    HuffmanDaraReader* m_reader;
};

}  // namespace jbig2

#endif
