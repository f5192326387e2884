// JBIG2Bitmap of the JBIG2Dec decoder, with `expand` for pages that grow,
// and the raster budget that bounds what one decode may allocate and place.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "jbig2/jbig2decsegments.h"

#ifndef JBIG2DEC_MAX_IMAGE_BYTES
#define JBIG2DEC_MAX_IMAGE_BYTES 0x40000000ull
#endif
#ifndef JBIG2DEC_BUDGET_PER_BYTE
#define JBIG2DEC_BUDGET_PER_BYTE 4096ull
#endif
// The budget of the smallest inputs, and the most any input gets (0: no cap).
#ifndef JBIG2DEC_BUDGET_FLOOR
#define JBIG2DEC_BUDGET_FLOOR (16ull << 20)
#endif
#ifndef JBIG2DEC_BUDGET_CAP
#define JBIG2DEC_BUDGET_CAP 0ull
#endif

namespace {
// The budget of the decode running on this thread (see JBIG2DecBudget).
thread_local uint64_t* t_jbig2DecBudget = nullptr;
// What every bitmap costs beyond its pixels, so that many empty ones add up.
const uint64_t kBitmapOverhead = 64;
}  // namespace

JBIG2DecBudget::JBIG2DecBudget(uint64_t inputBytes) : m_outer(t_jbig2DecBudget) {
    // Units are raster bytes: allocating a raster costs its bytes, decoding
    // it costs a unit per 8 pixels (per 4 for refinement), placing a symbol
    // or a pattern its bytes. The floor takes a 600 dpi letter page with a
    // generic region as large (about 13 MB of units), and larger inputs get
    // more. Fuzzing builds use a small floor and a cap, so that no unit runs
    // for long under the sanitizers.
    const uint64_t floor = JBIG2DEC_BUDGET_FLOOR;
    const uint64_t perByte = JBIG2DEC_BUDGET_PER_BYTE;
    m_left = inputBytes > floor / perByte ? inputBytes * perByte : floor;
    if (JBIG2DEC_BUDGET_CAP && m_left > JBIG2DEC_BUDGET_CAP) m_left = JBIG2DEC_BUDGET_CAP;
    t_jbig2DecBudget = &m_left;
}

JBIG2DecBudget::~JBIG2DecBudget() { t_jbig2DecBudget = m_outer; }

void JBIG2DecBudget::charge(uint64_t units) {
    if (!t_jbig2DecBudget) return;
    if (units > *t_jbig2DecBudget) {
        *t_jbig2DecBudget = 0;
        throw JBIG2DecStop();
    }
    *t_jbig2DecBudget -= units;
}

uint64_t JBIG2DecBudget::left() { return t_jbig2DecBudget ? *t_jbig2DecBudget : ~uint64_t(0); }

uint64_t JBIG2DecBudget::maxBitmapBytes() { return JBIG2DEC_MAX_IMAGE_BYTES; }

JBIG2Bitmap::JBIG2Bitmap(uint32_t segNumA, int wA, int hA) : JBIG2Segment(segNumA), w(0), h(0), line(0), data(nullptr) {
    if (wA < 0 || hA < 0) throw JBIG2DecStop();
    const uint64_t lineBytes = (static_cast<uint64_t>(wA) + 7) >> 3;
    const uint64_t bytes = lineBytes * static_cast<uint64_t>(hA);
    if (bytes >= 0x7FFFFFFEull || bytes > JBIG2DecBudget::maxBitmapBytes()) throw JBIG2DecStop();
    // Rows cost a unit each too, so that rasters of width 0 are not free.
    JBIG2DecBudget::charge(bytes + static_cast<uint64_t>(hA) + kBitmapOverhead);
    // One byte more than the rows, always 0: reads one byte past a row stay inside.
    data = static_cast<unsigned char*>(std::calloc(static_cast<std::size_t>(bytes) + 1, 1));
    if (!data) throw JBIG2DecStop();
    w = wA;
    h = hA;
    line = static_cast<int>(lineBytes);
}

JBIG2Bitmap::~JBIG2Bitmap() { std::free(data); }

JBIG2Bitmap* JBIG2Bitmap::copy() const {
    JBIG2Bitmap* b = new JBIG2Bitmap(getSegNum(), w, h);
    std::memcpy(b->data, data, getDataSize() + 1);
    return b;
}

JBIG2Bitmap* JBIG2Bitmap::getSlice(int64_t x, int64_t y, int wA, int hA) const {
    JBIG2Bitmap* slice = new JBIG2Bitmap(0, wA, hA);
    slice->combine(this, -x, -y, 4);
    return slice;
}

bool JBIG2Bitmap::expand(int newH, unsigned pixel) {
    if (newH <= h || line <= 0) return false;
    const uint64_t bytes = static_cast<uint64_t>(newH) * static_cast<uint64_t>(line);
    if (bytes >= 0x7FFFFFFEull || bytes > JBIG2DecBudget::maxBitmapBytes()) return false;
    JBIG2DecBudget::charge(bytes - getDataSize());
    unsigned char* p = static_cast<unsigned char*>(std::realloc(data, static_cast<std::size_t>(bytes) + 1));
    if (!p) throw JBIG2DecStop();
    data = p;
    std::memset(data + getDataSize(), pixel ? 0xFF : 0x00, static_cast<std::size_t>(bytes) - getDataSize());
    data[bytes] = 0;
    h = newH;
    return true;
}

void JBIG2Bitmap::clearToZero() { std::memset(data, 0, getDataSize()); }

void JBIG2Bitmap::clearToOne() { std::memset(data, 0xFF, getDataSize()); }

void JBIG2Bitmap::duplicateRow(int y, int yy) {
    if (y < 0 || y >= h || yy < 0 || yy >= h || y == yy) return;
    std::memcpy(getRow(y), getRow(yy), static_cast<std::size_t>(line));
}

void JBIG2Bitmap::combine(const JBIG2Bitmap* src, int64_t x, int64_t y, unsigned combOp) {
    if (combOp > 4 || !src) return;
    // Clip: source columns sx0.., rows sy0..; destination from (dx0, dy0).
    const int64_t sx0 = x < 0 ? -x : 0;
    const int64_t sy0 = y < 0 ? -y : 0;
    const int64_t dx0 = x < 0 ? 0 : x;
    const int64_t dy0 = y < 0 ? 0 : y;
    const int64_t cw = std::min<int64_t>(static_cast<int64_t>(src->w) - sx0, static_cast<int64_t>(w) - dx0);
    const int64_t ch = std::min<int64_t>(static_cast<int64_t>(src->h) - sy0, static_cast<int64_t>(h) - dy0);
    if (cw <= 0 || ch <= 0) return;
    for (int64_t r = 0; r < ch; ++r) {
        const unsigned char* srow = src->getRow(static_cast<int>(sy0 + r));
        unsigned char* drow = getRow(static_cast<int>(dy0 + r));
        int64_t d = dx0, s = sx0, n = cw;
        while (n > 0) {
            const int bitOff = static_cast<int>(d & 7);
            const int take = static_cast<int>(std::min<int64_t>(8 - bitOff, n));
            // `take` source bits from column s, placed at bit offset bitOff.
            const int64_t sb = s >> 3;
            const unsigned two = (static_cast<unsigned>(srow[sb]) << 8) |
                                 (sb + 1 < src->line ? static_cast<unsigned>(srow[sb + 1]) : 0u);
            const unsigned bits = ((two << (s & 7)) >> 8) & 0xFF;  // source bits from s, MSB-aligned
            const unsigned mask = (0xFFu >> bitOff) & (0xFFu << (8 - bitOff - take)) & 0xFF;
            const unsigned v = (bits >> bitOff) & mask;
            unsigned char& dst = drow[d >> 3];
            unsigned res;
            switch (combOp) {
            case 0: res = dst | v; break;
            case 1: res = dst & (v | ~mask); break;
            case 2: res = dst ^ v; break;
            case 3: res = dst ^ (~v & mask); break;
            default: res = (dst & ~mask) | v; break;
            }
            dst = static_cast<unsigned char>(res);
            d += take;
            s += take;
            n -= take;
        }
    }
}
