// MQ arithmetic decoder (ISO/IEC 14492 Annex E) and the integer procedures of
// Annex A.
#include "jbig2/arithmeticdecoder.h"

#include <cstring>
#include <new>

#include "jbig2/imagedata.h"
#include "jbig2/jbig2result.h"

namespace jbig2 {

// Table E.1, with Qe in the high half of the 32-bit register.
const uint32_t ArithmeticDecoder::qeTab[47] = {
    0x56010000, 0x34010000, 0x18010000, 0x0AC10000, 0x05210000, 0x02210000, 0x56010000, 0x54010000,
    0x48010000, 0x38010000, 0x30010000, 0x24010000, 0x1C010000, 0x16010000, 0x56010000, 0x54010000,
    0x51010000, 0x48010000, 0x38010000, 0x34010000, 0x30010000, 0x28010000, 0x24010000, 0x22010000,
    0x1C010000, 0x18010000, 0x16010000, 0x14010000, 0x12010000, 0x11010000, 0x0AC10000, 0x09C10000,
    0x08A10000, 0x05210000, 0x04410000, 0x02A10000, 0x02210000, 0x01410000, 0x01110000, 0x00850000,
    0x00490000, 0x00250000, 0x00150000, 0x00090000, 0x00050000, 0x00010000, 0x56010000};

const unsigned char ArithmeticDecoder::nmpsTab[47] = {
    1,  2,  3,  4,  5,  38, 7,  8,  9,  10, 11, 12, 13, 29, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24,
    25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 45, 46};

const unsigned char ArithmeticDecoder::nlpsTab[47] = {
    1,  6,  9,  12, 29, 33, 6,  14, 14, 14, 17, 18, 20, 21, 14, 14, 15, 16, 17, 18, 19, 19, 20, 21,
    22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 46};

const unsigned char ArithmeticDecoder::switchTab[47] = {
    1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

void ArithmeticDecoderState::init() {
    B = reader->getByte();
    B1 = reader->getByte();
    C = (B ^ 0xFF) << 16;
    bytein();
    C <<= 7;
    CT -= 7;
    A = 0x80000000u;
}

void ArithmeticDecoderState::bytein() {
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

IntArithmeticDecoder::IntArithmeticDecoder() : m_prev(1) { reset(); }

void IntArithmeticDecoder::reset() {
    std::memset(m_contexts, 0, sizeof(m_contexts));
    m_prev = 1;
}

bool IntArithmeticDecoder::decode(ArithmeticDecoderState& s, int& value) {
    m_prev = 1;
    auto bit = [&]() {
        const int b = decodebit(s, m_contexts[m_prev]);
        if (m_prev < 256)
            m_prev = (m_prev << 1) | b;
        else
            m_prev = (((m_prev << 1) | b) & 0x1FF) | 0x100;
        return b;
    };
    const int sign = bit();
    int bits, offset;
    if (!bit()) {
        bits = 2;
        offset = 0;
    } else if (!bit()) {
        bits = 4;
        offset = 4;
    } else if (!bit()) {
        bits = 6;
        offset = 20;
    } else if (!bit()) {
        bits = 8;
        offset = 84;
    } else if (!bit()) {
        bits = 12;
        offset = 340;
    } else {
        bits = 32;
        offset = 4436;
    }
    uint32_t v = 0;
    for (int i = 0; i < bits; ++i) v = (v << 1) | static_cast<uint32_t>(bit());
    // Wrap-around arithmetic for the 32-bit case keeps hostile values defined.
    const uint32_t magnitude = v + static_cast<uint32_t>(offset);
    if (sign && magnitude == 0) return true;
    value = static_cast<int>(sign ? 0u - magnitude : magnitude);
    return false;
}

int IntArithmeticDecoder::decode(ArithmeticDecoderState& s, bool& oob) {
    int value = 0;
    oob = decode(s, value);
    return value;
}

IAIDArithmeticDecoder::IAIDArithmeticDecoder(unsigned int codeLength)
    : m_codeLength(codeLength), m_idContexts(nullptr) {
    if (codeLength > 30) throw JBIG2_OUT_OF_MEMORY;
    const std::size_t count = static_cast<std::size_t>(1) << codeLength;
    checkAllocation(static_cast<uint64_t>(count) * sizeof(unsigned short));
    m_idContexts = new (std::nothrow) unsigned short[count];
    if (!m_idContexts) throw JBIG2_OUT_OF_MEMORY;
    std::memset(m_idContexts, 0, count * sizeof(unsigned short));
}

IAIDArithmeticDecoder::~IAIDArithmeticDecoder() { delete[] m_idContexts; }

void IAIDArithmeticDecoder::decode(ArithmeticDecoderState& s, unsigned int& value) {
    uint32_t prev = 1;
    for (unsigned int i = 0; i < m_codeLength; ++i) prev = (prev << 1) | static_cast<uint32_t>(decodebit(s, m_idContexts[prev]));
    value = prev - (static_cast<uint32_t>(1) << m_codeLength);
}

}  // namespace jbig2
