// Huffman tables, reader and decoder of ISO/IEC 14492 Annex B.
#include "jbig2/huffman.h"

#include <new>

#include "jbig2/jbig2result.h"

namespace jbig2 {

HuffmanTable* HuffmanTable::clone() const {
    HuffmanTable* t = new (std::nothrow) HuffmanTable(*this);
    if (!t) throw JBIG2_OUT_OF_MEMORY;
    return t;
}

namespace {

void buildItems(const HuffmanParams& params, unsigned int& outWidth, std::vector<HuffmanTableItem>& out);

const HuffmanParams* const kStandardParams[15] = {
    &huffman_params_A, &huffman_params_B, &huffman_params_C, &huffman_params_D, &huffman_params_E,
    &huffman_params_F, &huffman_params_G, &huffman_params_H, &huffman_params_I, &huffman_params_J,
    &huffman_params_K, &huffman_params_L, &huffman_params_M, &huffman_params_N, &huffman_params_O};

struct StandardTable {
    unsigned int width = 0;
    std::shared_ptr<const std::vector<HuffmanTableItem>> items;
};

// The standard tables, built on first use (some have 65536 items, too many
// to build for every segment that selects them).
const StandardTable& standardTable(std::size_t index) {
    static const std::vector<StandardTable> tables = [] {
        std::vector<StandardTable> out(15);
        for (std::size_t i = 0; i < 15; ++i) {
            std::vector<HuffmanTableItem> items;
            buildItems(*kStandardParams[i], out[i].width, items);
            out[i].items = std::make_shared<const std::vector<HuffmanTableItem>>(std::move(items));
        }
        return out;
    }();
    return tables[index];
}

}  // namespace

void HuffmanTable::build(const HuffmanParams& params) {
    for (std::size_t i = 0; i < 15; ++i)
        if (&params == kStandardParams[i]) {
            const StandardTable& t = standardTable(i);
            m_width = t.width;
            m_items = t.items;
            return;
        }
    std::vector<HuffmanTableItem> items;
    unsigned int width = 0;
    buildItems(params, width, items);
    try {
        m_items = std::make_shared<const std::vector<HuffmanTableItem>>(std::move(items));
    } catch (const std::bad_alloc&) {
        throw JBIG2_OUT_OF_MEMORY;
    }
    m_width = width;
}

namespace {

void buildItems(const HuffmanParams& params, unsigned int& outWidth, std::vector<HuffmanTableItem>& out) {
    enum { FLAG_OOB = HuffmanTable::FLAG_OOB, FLAG_LOWER = HuffmanTable::FLAG_LOWER, FLAG_INVALID = HuffmanTable::FLAG_INVALID };
    const int n = params.lineCount;
    if (n <= 0 || !params.lines) throw JBIG2_INVALID_DATA;
    const int lowerLine = params.HTOOB ? n - 3 : n - 2;
    const int oobLine = params.HTOOB ? n - 1 : -1;

    // 1. Width: the greatest prefix+range up to 16, a longer line counting
    // with its prefix alone.
    unsigned int width = 0;
    int maxPrefix = 0;
    for (int i = 0; i < n; ++i) {
        const HuffmanLine& l = params.lines[i];
        if (l.prefixLength < 0 || l.rangeLength < 0 || l.rangeLength > 32) throw JBIG2_INVALID_DATA;
        if (l.prefixLength == 0) continue;
        const int64_t sum = static_cast<int64_t>(l.prefixLength) + l.rangeLength;
        const unsigned int w = static_cast<unsigned int>(sum <= 16 ? sum : l.prefixLength);
        if (w > width) width = w;
        if (l.prefixLength > maxPrefix) maxPrefix = l.prefixLength;
    }
    if (width > 16) throw JBIG2_INVALID_DATA;

    // 2. All items invalid.
    HuffmanTableItem invalid = {0, 0, 0, FLAG_INVALID, 0};
    std::vector<HuffmanTableItem> items;
    try {
        items.assign(static_cast<std::size_t>(1) << width, invalid);
    } catch (const std::bad_alloc&) {
        throw JBIG2_OUT_OF_MEMORY;
    }

    // 3. Codes as in B.3: per length, consecutive codes in the order of lines.
    std::vector<int> lenCount(static_cast<std::size_t>(maxPrefix) + 1, 0);
    for (int i = 0; i < n; ++i)
        if (params.lines[i].prefixLength > 0) ++lenCount[params.lines[i].prefixLength];
    uint32_t firstCode = 0;
    for (int len = 1; len <= maxPrefix; ++len) {
        firstCode = (firstCode + static_cast<uint32_t>(lenCount[len - 1])) << 1;
        if (len == 1) firstCode = 0;
        uint32_t code = firstCode;
        for (int i = 0; i < n; ++i) {
            const HuffmanLine& l = params.lines[i];
            if (l.prefixLength != len) continue;
            // 4. The line fills the items from its code to the next.
            const unsigned int shift = width - static_cast<unsigned int>(len);
            const uint64_t start = static_cast<uint64_t>(code) << shift;
            const uint64_t end = static_cast<uint64_t>(code + 1) << shift;
            if (end > items.size()) throw JBIG2_INVALID_DATA;
            uint8_t flags = 0;
            if (i == oobLine) flags |= FLAG_OOB;
            if (i == lowerLine) flags |= FLAG_LOWER;
            const int sum = l.prefixLength + l.rangeLength;
            for (uint64_t j = start; j < end; ++j) {
                HuffmanTableItem& it = items[static_cast<std::size_t>(j)];
                it.flags = flags;
                it.reserved = 0;
                if (sum <= 16 && !(flags & FLAG_OOB)) {
                    // 5. Spread out: the range bits are part of the index.
                    const uint32_t rangeBits =
                        static_cast<uint32_t>(j >> (width - static_cast<unsigned int>(sum))) &
                        ((1u << l.rangeLength) - 1u);
                    const int64_t v = (flags & FLAG_LOWER) ? static_cast<int64_t>(l.rangeLow) - rangeBits
                                                           : static_cast<int64_t>(l.rangeLow) + rangeBits;
                    it.value = static_cast<int32_t>(v);
                    it.consume = static_cast<uint8_t>(sum);
                    it.further = 0;
                } else {
                    // 6. Longer lines read their range bits afterwards.
                    it.value = (flags & FLAG_OOB) ? l.rangeLow : l.rangeLow;
                    it.consume = static_cast<uint8_t>(l.prefixLength);
                    it.further = static_cast<uint8_t>((flags & FLAG_OOB) ? 0 : l.rangeLength);
                }
            }
            ++code;
        }
    }
    outWidth = width;
    out.swap(items);
}

}  // namespace

HuffmanDaraReader::HuffmanDaraReader(const unsigned char* data, uint32_t size)
    : DataReader(data, size), m_current(0), m_next(0), m_bitOffset(0), m_byteOffset(0) {
    m_current = getNextDWord(0u);
    m_next = getNextDWord(4u);
}

uint32_t HuffmanDaraReader::peek(unsigned int n) const {
    if (n == 0) return 0;
    const uint64_t both = (static_cast<uint64_t>(m_current) << 32) | m_next;
    return static_cast<uint32_t>((both << m_bitOffset) >> (64 - n));
}

void HuffmanDaraReader::advance(uint32_t n) {
    uint64_t bit = static_cast<uint64_t>(m_bitOffset) + n;
    while (bit >= 32) {
        m_current = m_next;
        // Positions far past the end all read zero; keep the offset bounded.
        if (m_byteOffset <= m_size + 8) m_byteOffset += 4;
        m_next = getNextDWord(m_byteOffset + 4);
        bit -= 32;
    }
    m_bitOffset = static_cast<uint32_t>(bit);
}

uint32_t HuffmanDaraReader::read(unsigned int n) {
    if (n > 32) n = 32;
    const uint32_t v = peek(n);
    advance(n);
    return v;
}

uint32_t HuffmanDaraReader::decodeHelper(int& n) {
    if (n < 0) n = 0;
    return read(static_cast<unsigned int>(n));
}

void HuffmanDaraReader::skipToByteBoundary() {
    const uint32_t rest = m_bitOffset & 7;
    if (rest) advance(8 - rest);
}

void HuffmanDaraReader::moveAhead(uint32_t bytes) {
    // Whole words first, so that a large move costs little.
    while (bytes >= 4) {
        advance(32);
        bytes -= 4;
        if (m_byteOffset > m_size + 8) return;
    }
    advance(bytes * 8);
}

int HuffmanDecoder::decodeint(const HuffmanTable& table, bool& oob) {
    oob = false;
    if (table.getItemCount() == 0) throw JBIG2_INVALID_DATA;
    const HuffmanTableItem& item = table.getTableItem(m_reader->peek(table.getWidth()));
    if (item.flags & HuffmanTable::FLAG_INVALID) throw JBIG2_INVALID_DATA;
    m_reader->read(item.consume);
    if (item.flags & HuffmanTable::FLAG_OOB) {
        oob = true;
        return item.value;
    }
    int64_t value = item.value;
    if (item.further) {
        const uint32_t bits = m_reader->read(item.further);
        value = (item.flags & HuffmanTable::FLAG_LOWER) ? value - bits : value + bits;
    }
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

bool HuffmanDecoder::decodeint(int& value, const HuffmanTable& table) {
    bool oob = false;
    value = decodeint(table, oob);
    return oob;
}

}  // namespace jbig2
