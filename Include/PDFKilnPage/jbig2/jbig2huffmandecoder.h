// The Huffman decoder of JBIG2Dec (ISO/IEC 14492 Annex B) and its
// tables: the standard tables B.1 to B.15 and tables built from code table
// segments or from a text region's symbol code lengths.
#ifndef PDFKILN_JBIG2DEC_HUFFMANDECODER_H
#define PDFKILN_JBIG2DEC_HUFFMANDECODER_H

#include <cstdint>

class JBIG2ByteInput;

// Range lengths with a meaning of their own.
const uint32_t jbig2HuffmanLOW = 0xfffffffdu;  // lower range line: value minus 32 bits
const uint32_t jbig2HuffmanOOB = 0xfffffffeu;  // the out-of-band line
const uint32_t jbig2HuffmanEOT = 0xffffffffu;  // end of table

// One line of a table; a table ends with an EOT line. Prefix length 0 marks
// an unused line.
struct JBIG2HuffmanTable {
    int32_t val;
    uint32_t prefixLen;
    uint32_t rangeLen;
    uint32_t prefix;
};

class JBIG2HuffmanDecoder {
public:
    JBIG2HuffmanDecoder();

    void setInput(JBIG2ByteInput* in) { input = in; }
    // Drops the bits left of the current byte: the next read starts on a
    // byte boundary.
    void reset();
    // False for OOB or for a prefix that no line has; *x is set otherwise.
    bool decodeInt(int* x, const JBIG2HuffmanTable* table);
    // n bits, most significant first (n up to 32). Past the end of the data
    // the bits read as 1.
    uint32_t readBits(uint32_t n);
    uint32_t readBit();
    // Sorts the `len` lines (table[len] must be the EOT line) and assigns the
    // prefixes of B.3. False when a prefix length is above 32.
    static bool buildTable(JBIG2HuffmanTable* table, uint32_t len);

private:
    JBIG2ByteInput* input;
    uint32_t buf;
    uint32_t bufLen;
};

// The standard tables, built once (B.1 = A ... B.15 = O).
const JBIG2HuffmanTable* jbig2StandardTable(char name);

#endif
