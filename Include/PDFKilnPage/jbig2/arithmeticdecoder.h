// MQ arithmetic decoder and the integer procedures of ISO/IEC 14492 Annexes
// A and E.
#ifndef PDFKILN_JBIG2_ARITHMETICDECODER_H
#define PDFKILN_JBIG2_ARITHMETICDECODER_H

#include <cstdint>

#include "datareader.h"

namespace jbig2 {

// The decoder's registers, with the software convention of Annex E and a
// complemented C register. It reads from a StepDataReader it doesn't own.
struct ArithmeticDecoderState {
    uint32_t C;
    uint32_t A;
    int CT;
    uint32_t B;   // current byte
    uint32_t B1;  // next byte
    StepDataReader* reader;
    // Bytes fed in past the end of the data (or in front of a marker). Loops
    // whose length comes from the data use it to stop on hostile counts.
    uint32_t pastEnd;

    explicit ArithmeticDecoderState(StepDataReader* r) : C(0), A(0), CT(0), B(0), B1(0), reader(r), pastEnd(0) {}
    void init();
    void bytein();
};

// A context is one 16-bit word: probability index << 1 | MPS.
class ArithmeticDecoder {
public:
    static const uint32_t qeTab[47];
    static const unsigned char nmpsTab[47];
    static const unsigned char nlpsTab[47];
    static const unsigned char switchTab[47];

    // Inline: it is the inner step of every region decoder.
    static int decodebit(ArithmeticDecoderState& state, unsigned short& context) {
        unsigned int index = context >> 1;
        if (index > 46) index = 46;  // only tables of this decoder fill contexts
        const int mps = context & 1;
        const uint32_t qe = qeTab[index];
        int bit;
        state.A -= qe;
        if (state.C < state.A) {
            if (state.A & 0x80000000u) return mps;
            // MPS exchange
            if (state.A < qe) {
                bit = 1 - mps;
                context = static_cast<unsigned short>((nlpsTab[index] << 1) | (switchTab[index] ? 1 - mps : mps));
            } else {
                bit = mps;
                context = static_cast<unsigned short>((nmpsTab[index] << 1) | mps);
            }
        } else {
            state.C -= state.A;
            // LPS exchange
            if (state.A < qe) {
                bit = mps;
                context = static_cast<unsigned short>((nmpsTab[index] << 1) | mps);
            } else {
                bit = 1 - mps;
                context = static_cast<unsigned short>((nlpsTab[index] << 1) | (switchTab[index] ? 1 - mps : mps));
            }
            state.A = qe;
        }
        renormal(state);
        return bit;
    }

protected:
    static void renormal(ArithmeticDecoderState& state) {
        do {
            if (state.CT == 0) state.bytein();
            state.A <<= 1;
            state.C <<= 1;
            --state.CT;
        } while (!(state.A & 0x80000000u));
    }
};

// Integer decoding procedure of Annex A.2 with its own 512 contexts.
class IntArithmeticDecoder : public ArithmeticDecoder {
public:
    IntArithmeticDecoder();
    void reset();
    // Returns true for OOB, when `value` isn't written.
    bool decode(ArithmeticDecoderState& state, int& value);
    // The same with the value returned and the flag by reference.
    int decode(ArithmeticDecoderState& state, bool& oob);

protected:
    unsigned short m_contexts[512];
    int m_prev;
};

// Symbol ID procedure of Annex A.3.
class IAIDArithmeticDecoder : public IntArithmeticDecoder {
public:
    explicit IAIDArithmeticDecoder(unsigned int codeLength);
    ~IAIDArithmeticDecoder();
    IAIDArithmeticDecoder(const IAIDArithmeticDecoder&) = delete;
    IAIDArithmeticDecoder& operator=(const IAIDArithmeticDecoder&) = delete;
    void decode(ArithmeticDecoderState& state, unsigned int& value);
    unsigned int getCodeLength() const { return m_codeLength; }

private:
    unsigned int m_codeLength;
    unsigned short* m_idContexts;
};

}  // namespace jbig2

#endif
