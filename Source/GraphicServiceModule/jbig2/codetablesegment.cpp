// Code table segment, type 53 (ISO/IEC 14492 7.4.13 and B.2).
#include "jbig2/codetablesegment.h"

#include "jbig2/jbig2result.h"

namespace jbig2 {

namespace {
// Guard against a table whose lines would run on for ever over zero bits.
const std::size_t kMaxLines = 1u << 16;
}

void CodeTableSegment::parse(StepDataReader& reader) {
    int htoob = 0, htps = 1, htrs = 1;
    if (reader.remaining() > 0) {
        const unsigned char flags = reader.getByte();
        htoob = flags & 1;
        htps = ((flags >> 1) & 7) + 1;
        htrs = ((flags >> 4) & 7) + 1;
    }
    const int32_t lowest = static_cast<int32_t>(reader.getInt());
    const int32_t highest = static_cast<int32_t>(reader.getInt());

    // The lines' reader sees as many bytes as the view has consumed so far
    // (9): how the code stands, kept. The rest reads as zero bits.
    const std::size_t consumed = reader.getPosition();
    HuffmanDaraReader bits(reader.current(), static_cast<uint32_t>(consumed < reader.remaining() ? consumed
                                                                                                 : reader.remaining()));
    std::vector<HuffmanLine> lines;
    int64_t current = lowest;
    while (current < highest) {
        if (lines.size() >= kMaxLines) throw JBIG2_INVALID_DATA;
        const int32_t prefix = static_cast<int32_t>(bits.read(static_cast<unsigned int>(htps)));
        const int32_t range = static_cast<int32_t>(bits.read(static_cast<unsigned int>(htrs)));
        lines.push_back(HuffmanLine{prefix, range, static_cast<int32_t>(current)});
        if (range > 32) throw JBIG2_INVALID_DATA;
        current += static_cast<int64_t>(1) << range;
    }
    const int32_t lowerPrefix = static_cast<int32_t>(bits.read(static_cast<unsigned int>(htps)));
    lines.push_back(HuffmanLine{lowerPrefix, 32, static_cast<int32_t>(static_cast<int64_t>(lowest) - 1)});
    const int32_t upperPrefix = static_cast<int32_t>(bits.read(static_cast<unsigned int>(htps)));
    // The upper line's low value is highest minus 1: kept as the code stands.
    lines.push_back(HuffmanLine{upperPrefix, 32, static_cast<int32_t>(static_cast<int64_t>(highest) - 1)});
    if (htoob) {
        const int32_t oobPrefix = static_cast<int32_t>(bits.read(static_cast<unsigned int>(htps)));
        lines.push_back(HuffmanLine{oobPrefix, 0, 0});
    }
    reader.skip(bits.offSet());
    m_htoob = htoob;
    m_lines.swap(lines);
    const HuffmanParams params = {m_htoob, static_cast<int>(m_lines.size()), m_lines.data()};
    m_table.build(params);
}

}  // namespace jbig2
