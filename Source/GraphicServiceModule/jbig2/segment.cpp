// Segment header (ISO/IEC 14492 7.2) and region segment information.
#include "jbig2/segment.h"

#include "jbig2/jbig2result.h"

namespace jbig2 {

void Segment::setType(int t) {
    switch (t) {
    case 0: case 4: case 6: case 7: case 16: case 20: case 22: case 23: case 36: case 38: case 39:
    case 40: case 42: case 43: case 48: case 49: case 50: case 51: case 52: case 53: case 62:
        type = t;
        break;
    default:
        type = -1;
        break;
    }
}

void Segment::setHeader(const Segment& header) {
    number = header.number;
    pageAssociation = header.pageAssociation;
    flags = header.flags;
    dataLength = header.dataLength;
    type = header.type;
    referredSegments = header.referredSegments;
    headerSize = header.headerSize;
}

int Segment::parseHeader(StepDataReader& reader) {
    const std::size_t start = reader.getPosition();
    if (reader.remaining() < 11) throw JBIG2_INVALID_DATA;
    number = reader.getInt();
    flags = reader.getByte();
    setType(flags & 0x3F);
    unsigned int count = reader.getByte();
    if ((count >> 5) == 7) {
        // Long form: the count is taken from the field's last byte only, and
        // the retention flag bytes are not skipped (kept as the code stands).
        reader.getByte();
        reader.getByte();
        count = reader.getByte();
    } else {
        count >>= 5;
    }
    const unsigned int size = number < 257 ? 1 : (number < 65537 ? 2 : 4);
    referredSegments.clear();
    if (static_cast<std::size_t>(count) * size + 11 >= reader.getSize() - start) {
        headerSize = static_cast<uint32_t>(reader.getPosition() - start);
        return JBIG2_INVALID_DATA;
    }
    referredSegments.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        if (size == 1)
            referredSegments.push_back(reader.getByte());
        else if (size == 2)
            referredSegments.push_back(reader.getShort());
        else
            referredSegments.push_back(reader.getInt());
    }
    pageAssociation = (flags & 0x40) ? reader.getInt() : reader.getByte();
    dataLength = static_cast<int32_t>(reader.getInt());
    headerSize = static_cast<uint32_t>(reader.getPosition() - start);
    return JBIG2_SUCCESS;
}

int getPageOp(int op) { return (op >= 1 && op <= 4) ? op : 0; }

void RegionSegmentInfo::parse(StepDataReader& reader) {
    width = reader.getInt();
    height = reader.getInt();
    x = reader.getInt();
    y = reader.getInt();
    flags = reader.getByte();
    op = getPageOp(flags & 7);
}

}  // namespace jbig2
