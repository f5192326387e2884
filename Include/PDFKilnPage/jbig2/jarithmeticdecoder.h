// The MQ arithmetic decoder of JBIG2Dec (ISO/IEC 14492 Annex E),
// with the integer and IAID procedures of Annex A. Its own classes: nothing
// here is shared with the jbig2:: decoder.
#ifndef PDFKILN_JBIG2DEC_JARITHMETICDECODER_H
#define PDFKILN_JBIG2DEC_JARITHMETICDECODER_H

#include <cstdint>

#include "jbig2decinput.h"

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

// One line of Table E.1 of ISO/IEC 14492, Qe shifted into the high half.
struct JArithmeticQe {
    uint32_t qe;
    unsigned char nmps, nlps, switchFlag;
};
extern const JArithmeticQe jArithmeticQeTable[47];

class JArithmeticDecoder {
public:
    JArithmeticDecoder();

    // The bytes to decode; bytes past the end read as 0xFF, which the
    // decoder then takes as a marker and feeds 1-bits without moving.
    void setInput(JBIG2ByteInput* in) { input = in; }
    // INITDEC.
    void start();
    // DECODE, for the context cx (masked to the size of stats). Inline: the
    // region decoders call it once a pixel.
    inline int decodeBit(uint32_t cx, JArithmeticDecoderStats* stats);
    // The integer procedure of Annex A.2: false for OOB, when *x is not set.
    // Values beyond the int range are clamped to it.
    bool decodeInt(int* x, JArithmeticDecoderStats* stats);
    // The IAID procedure of Annex A.3.
    uint32_t decodeIAID(uint32_t codeLen, JArithmeticDecoderStats* stats);

    void resetByteCounter() { nBytesRead = 0; }
    uint32_t getByteCounter() const { return nBytesRead; }

private:
    inline unsigned readByte();
    inline void byteIn();
    int decodeIntBit(JArithmeticDecoderStats* stats);

    JBIG2ByteInput* input;
    uint32_t buf0, buf1;
    uint32_t c, a;
    int ct;
    uint32_t prev;
    uint32_t nBytesRead;
};

inline unsigned JArithmeticDecoder::readByte() {
    ++nBytesRead;
    return input ? input->getByteOr(0xFF) : 0xFF;
}

inline void JArithmeticDecoder::byteIn() {
    if (buf0 == 0xff) {
        if (buf1 > 0x8f) {
            // A marker: feed 1-bits, read no further.
            ct = 8;
        } else {
            buf0 = buf1;
            buf1 = readByte();
            c = c + 0xfe00 - (buf0 << 9);
            ct = 7;
        }
    } else {
        buf0 = buf1;
        buf1 = readByte();
        c = c + 0xff00 - (buf0 << 8);
        ct = 8;
    }
}

inline int JArithmeticDecoder::decodeBit(uint32_t context, JArithmeticDecoderStats* stats) {
    if (__builtin_expect(context >= static_cast<uint32_t>(stats->contextSize), 0)) {
        context &= static_cast<uint32_t>(stats->contextSize - 1);
        if (context >= static_cast<uint32_t>(stats->contextSize)) context = 0;
    }
    unsigned char& cx = stats->cxTab[context];
    // Entries only ever hold indices of Table E.1 (setEntry clamps).
    const int iCX = cx >> 1;
    const int mpsCX = cx & 1;
    const JArithmeticQe& e = jArithmeticQeTable[iCX];
    const uint32_t qe = e.qe;
    int bit;
    a -= qe;
    if (c < a) {
        if (a & 0x80000000u) return mpsCX;
        // MPS_EXCHANGE
        if (a < qe) {
            bit = 1 - mpsCX;
            cx = static_cast<unsigned char>((e.nlps << 1) | (e.switchFlag ? 1 - mpsCX : mpsCX));
        } else {
            bit = mpsCX;
            cx = static_cast<unsigned char>((e.nmps << 1) | mpsCX);
        }
    } else {
        c -= a;
        // LPS_EXCHANGE
        if (a < qe) {
            bit = mpsCX;
            cx = static_cast<unsigned char>((e.nmps << 1) | mpsCX);
        } else {
            bit = 1 - mpsCX;
            cx = static_cast<unsigned char>((e.nlps << 1) | (e.switchFlag ? 1 - mpsCX : mpsCX));
        }
        a = qe;
    }
    // RENORMD
    do {
        if (ct == 0) byteIn();
        a <<= 1;
        c <<= 1;
        --ct;
    } while (!(a & 0x80000000u));
    return bit;
}

#endif
