// The MQ arithmetic decoder of JBIG2Dec (Part 8.6; ISO/IEC 14492 Annex E),
// with the integer and IAID procedures of Annex A. Its own classes: nothing
// here is shared with the jbig2:: decoder.
#ifndef PDFKILN_JBIG2DEC_JARITHMETICDECODER_H
#define PDFKILN_JBIG2DEC_JARITHMETICDECODER_H

#include <cstdint>

class JBIG2ByteInput;

// One probability state per context: index shifted left by 1, MPS in bit 0.
class JArithmeticDecoderStats {
public:
    explicit JArithmeticDecoderStats(int contextSizeA);
    ~JArithmeticDecoderStats();
    JArithmeticDecoderStats(const JArithmeticDecoderStats&) = delete;
    JArithmeticDecoderStats& operator=(const JArithmeticDecoderStats&) = delete;

    JArithmeticDecoderStats* copy() const;
    // All contexts to index 0, MPS 0.
    void reset();
    // Resizes (and resets) when the size differs, else resets.
    void resizeAndReset(int contextSizeA);
    int getContextSize() const { return contextSize; }
    void copyFrom(const JArithmeticDecoderStats& other);
    void setEntry(uint32_t cx, int i, int mps);
    int getIndex(uint32_t cx) const { return cxTab[cx] >> 1; }
    int getMPS(uint32_t cx) const { return cxTab[cx] & 1; }

private:
    unsigned char* cxTab;
    int contextSize;
    friend class JArithmeticDecoder;
};

class JArithmeticDecoder {
public:
    JArithmeticDecoder();

    // The bytes to decode; bytes past the end read as 0xFF, which the
    // decoder then takes as a marker and feeds 1-bits without moving.
    void setInput(JBIG2ByteInput* in) { input = in; }
    // INITDEC.
    void start();
    // DECODE, for the context cx (masked to the size of stats).
    int decodeBit(uint32_t cx, JArithmeticDecoderStats* stats);
    // The integer procedure of Annex A.2: false for OOB, when *x is not set.
    // Values beyond the int range are clamped to it.
    bool decodeInt(int* x, JArithmeticDecoderStats* stats);
    // The IAID procedure of Annex A.3.
    uint32_t decodeIAID(uint32_t codeLen, JArithmeticDecoderStats* stats);

    void resetByteCounter() { nBytesRead = 0; }
    uint32_t getByteCounter() const { return nBytesRead; }

private:
    unsigned readByte();
    void byteIn();
    int decodeIntBit(JArithmeticDecoderStats* stats);

    JBIG2ByteInput* input;
    uint32_t buf0, buf1;
    uint32_t c, a;
    int ct;
    uint32_t prev;
    uint32_t nBytesRead;
};

#endif
