// MQ arithmetic decoder and the integer procedures of ISO/IEC 14492 Annexes
// A and E.
#ifndef PDFKILN_JBIG2_ARITHMETICDECODER_H
#define PDFKILN_JBIG2_ARITHMETICDECODER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "datareader.h"

// The decoder's steps are inlined into the region loops whatever the
// compiler's size heuristics say: only then do its registers stay in
// machine registers for a whole region.
#if defined(__GNUC__)
#define JBIG2_INLINE inline __attribute__((always_inline))
#else
#define JBIG2_INLINE inline
#endif

namespace jbig2 {

// The decoder's registers, with the software convention of Annex E and a
// complemented C register. It reads from a StepDataReader it doesn't own.
//
// The region decoders copy a state into a local for the length of a region
// and copy it back when done: a local whose address never escapes stays in
// machine registers, where the pixel stores of the region (char writes, which
// may alias anything in memory) cannot force it out.
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
    // Inline: it runs once for every eight renormalisation shifts.
    JBIG2_INLINE void bytein() {
        if (reader->remaining() == 0 || (B == 0xFF && B1 > 0x8F)) ++pastEnd;
        if (B == 0xFF) {
            if (B1 > 0x8F) {
                // A marker: feed 1-bits and never move past it.
                CT = 8;
            } else {
                B = B1;
                B1 = reader->getByte();
                C = C + 0xFE00 - (B << 9);
                CT = 7;
            }
        } else {
            B = B1;
            B1 = reader->getByte();
            C = C + 0xFF00 - (B << 8);
            CT = 8;
        }
    }
};

// A context is one 16-bit word: probability index << 1 | MPS.
class ArithmeticDecoder {
public:
    // Table E.1, with Qe in the high half of the 32-bit register.
    static constexpr uint32_t qeTab[47] = {
        0x56010000, 0x34010000, 0x18010000, 0x0AC10000, 0x05210000, 0x02210000, 0x56010000, 0x54010000,
        0x48010000, 0x38010000, 0x30010000, 0x24010000, 0x1C010000, 0x16010000, 0x56010000, 0x54010000,
        0x51010000, 0x48010000, 0x38010000, 0x34010000, 0x30010000, 0x28010000, 0x24010000, 0x22010000,
        0x1C010000, 0x18010000, 0x16010000, 0x14010000, 0x12010000, 0x11010000, 0x0AC10000, 0x09C10000,
        0x08A10000, 0x05210000, 0x04410000, 0x02A10000, 0x02210000, 0x01410000, 0x01110000, 0x00850000,
        0x00490000, 0x00250000, 0x00150000, 0x00090000, 0x00050000, 0x00010000, 0x56010000};

    static constexpr unsigned char nmpsTab[47] = {
        1,  2,  3,  4,  5,  38, 7,  8,  9,  10, 11, 12, 13, 29, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24,
        25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 45, 46};

    static constexpr unsigned char nlpsTab[47] = {
        1,  6,  9,  12, 29, 33, 6,  14, 14, 14, 17, 18, 20, 21, 14, 14, 15, 16, 17, 18, 19, 19, 20, 21,
        22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 46};

    static constexpr unsigned char switchTab[47] = {
        1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

    // One row of Table E.1 by context word (index << 1 | MPS): Qe, and the
    // whole next context word after an MPS and after an LPS, the sense of the
    // MPS already switched where the table says so.
    struct Transition {
        uint32_t qe;
        uint16_t nextMps;
        uint16_t nextLps;
    };
    static const std::array<Transition, 94> transitions;

    // Inline: it is the inner step of every region decoder.
    static JBIG2_INLINE int decodebit(ArithmeticDecoderState& state, unsigned short& context) {
        return decodebit(state, context, context);
    }

    // The same with the context's value already read: the region decoders
    // read the two contexts that the next pixel can have before the pixel
    // in front of it is known, which takes the memory read off the path
    // from one decoded bit to the next.
    static JBIG2_INLINE int decodebit(ArithmeticDecoderState& state, unsigned short& context, unsigned int value) {
        unsigned int cx = value;
        // Only tables of this decoder fill contexts; an index past the table
        // reads as its last row.
        if (cx >= 94) cx = lastRow(cx);
        const Transition& t = transitions[cx];
        const int mps = static_cast<int>(cx & 1);
        int bit;
        state.A -= t.qe;
        if (state.C < state.A) {
            if (state.A & 0x80000000u) return mps;
            // MPS exchange
            if (state.A < t.qe) {
                bit = mps ^ 1;
                context = t.nextLps;
            } else {
                bit = mps;
                context = t.nextMps;
            }
        } else {
            state.C -= state.A;
            // LPS exchange
            if (state.A < t.qe) {
                bit = mps;
                context = t.nextMps;
            } else {
                bit = mps ^ 1;
                context = t.nextLps;
            }
            state.A = t.qe;
        }
        renormal(state);
        return bit;
    }

    // Decodes n bits in one context together when every one of them takes
    // the quick MPS path of decodebit (A stays at 0x80000000 or above, C
    // below A): each is then the MPS and neither the context nor anything
    // but A changes, so the n steps come down to one subtraction. Returns
    // false, changing nothing, when that isn't so. `value` is the context.
    static JBIG2_INLINE bool decodeMpsRun(ArithmeticDecoderState& state, unsigned int value, unsigned int n) {
        unsigned int cx = value;
        if (cx >= 94) cx = lastRow(cx);
        const uint64_t total = static_cast<uint64_t>(transitions[cx].qe) * n;
        // A is 0x80000000 or more between decisions.
        if (total > state.A - 0x80000000u) return false;
        const uint32_t after = state.A - static_cast<uint32_t>(total);
        if (state.C >= after) return false;
        state.A = after;
        return true;
    }

protected:
    // Out of line, so that the test stays a branch that is predicted and
    // not a data dependency on the path from one bit to the next.
#if defined(__GNUC__)
    __attribute__((noinline, cold))
#endif
    static unsigned int lastRow(unsigned int cx);

    // Doubles A and C until A's top bit is set, feeding a byte whenever CT
    // runs out: the shifts between two bytes are done at once.
    static JBIG2_INLINE void renormal(ArithmeticDecoderState& state) {
        // A is never 0 here: after an exchange it is Qe or above C.
        int shifts = __builtin_clz(state.A);
        for (;;) {
            if (state.CT == 0) state.bytein();
            const int n = shifts < state.CT ? shifts : state.CT;
            state.A <<= n;
            state.C <<= n;
            state.CT -= n;
            shifts -= n;
            if (shifts == 0) return;
        }
    }
};

// A zeroed table of contexts. It comes from calloc, which hands over fresh
// pages for a large table without writing them: a 65536-entry table of
// generic template 0 costs only the pages its contexts touch. Throws
// JBIG2_OUT_OF_MEMORY when the table can't be had.
class ContextTable {
public:
    ContextTable() = default;
    explicit ContextTable(std::size_t count) { assign(count); }
    ~ContextTable() { std::free(m_data); }
    ContextTable(const ContextTable&) = delete;
    ContextTable& operator=(const ContextTable&) = delete;

    void assign(std::size_t count);
    // Gives the memory back: a kept segment needs no contexts once decoded.
    void release();
    unsigned short* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    unsigned short* m_data = nullptr;
    std::size_t m_size = 0;
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
    ContextTable m_idContexts;
};

}  // namespace jbig2

#endif
