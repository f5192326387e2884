// MQ arithmetic decoder (ISO/IEC 14492 Annex E) and the integer procedures of
// Annex A.
#include "jbig2/arithmeticdecoder.h"

#include <cstring>
#include <new>
#include <utility>

#include "jbig2/imagedata.h"
#include "jbig2/jbig2result.h"

namespace jbig2 {

namespace {

constexpr ArithmeticDecoder::Transition transition(unsigned int cx) {
    const unsigned int index = cx >> 1, mps = cx & 1;
    return ArithmeticDecoder::Transition{
        ArithmeticDecoder::qeTab[index], static_cast<uint16_t>((ArithmeticDecoder::nmpsTab[index] << 1) | mps),
        static_cast<uint16_t>((ArithmeticDecoder::nlpsTab[index] << 1) | (ArithmeticDecoder::switchTab[index] ? mps ^ 1 : mps))};
}

template <std::size_t... I>
constexpr std::array<ArithmeticDecoder::Transition, sizeof...(I)> transitionTable(std::index_sequence<I...>) {
    return {{transition(I)...}};
}

}  // namespace

const std::array<ArithmeticDecoder::Transition, 94> ArithmeticDecoder::transitions =
    transitionTable(std::make_index_sequence<94>());

unsigned int ArithmeticDecoder::lastRow(unsigned int cx) { return 92 | (cx & 1); }

void ArithmeticDecoderState::init() {
    B = reader->getByte();
    B1 = reader->getByte();
    C = (B ^ 0xFF) << 16;
    bytein();
    C <<= 7;
    CT -= 7;
    A = 0x80000000u;
}

IntArithmeticDecoder::IntArithmeticDecoder() : m_prev(1) { reset(); }

void IntArithmeticDecoder::reset() {
    std::memset(m_contexts, 0, sizeof(m_contexts));
    m_prev = 1;
}

bool IntArithmeticDecoder::decode(ArithmeticDecoderState& shared, int& value) {
    // The registers and PREV in locals for the whole integer, as in the
    // region decoders.
    ArithmeticDecoderState s = shared;
    uint32_t prev = 1;
    auto bit = [&]() {
        const uint32_t b = static_cast<uint32_t>(decodebit(s, m_contexts[prev]));
        prev = prev < 256 ? (prev << 1) | b : (((prev << 1) | b) & 0x1FF) | 0x100;
        return b;
    };
    const uint32_t sign = bit();
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
    for (int i = 0; i < bits; ++i) v = (v << 1) | bit();
    shared = s;
    m_prev = static_cast<int>(prev);
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

void ContextTable::release() {
    std::free(m_data);
    m_data = nullptr;
    m_size = 0;
}

void ContextTable::assign(std::size_t count) {
    release();
    m_data = static_cast<unsigned short*>(std::calloc(count ? count : 1, sizeof(unsigned short)));
    if (!m_data) throw JBIG2_OUT_OF_MEMORY;
    m_size = count;
}

IAIDArithmeticDecoder::IAIDArithmeticDecoder(unsigned int codeLength) : m_codeLength(codeLength) {
    if (codeLength > 30) throw JBIG2_OUT_OF_MEMORY;
    const std::size_t count = static_cast<std::size_t>(1) << codeLength;
    checkAllocation(static_cast<uint64_t>(count) * sizeof(unsigned short));
    m_idContexts.assign(count);
}

IAIDArithmeticDecoder::~IAIDArithmeticDecoder() {}

void IAIDArithmeticDecoder::decode(ArithmeticDecoderState& shared, unsigned int& value) {
    ArithmeticDecoderState s = shared;
    unsigned short* const cx = m_idContexts.data();
    uint32_t prev = 1;
    for (unsigned int i = 0; i < m_codeLength; ++i) prev = (prev << 1) | static_cast<uint32_t>(decodebit(s, cx[prev]));
    shared = s;
    value = prev - (static_cast<uint32_t>(1) << m_codeLength);
}

}  // namespace jbig2
