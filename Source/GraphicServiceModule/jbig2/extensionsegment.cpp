// Extension segments, ISO/IEC 14492 7.4.14. Only the ASCII comment is kept;
// nothing in the decoder reads it.
#include "jbig2/extensionsegment.h"

namespace jbig2 {

namespace {

// A NUL-terminated string; the end of the view ends it too.
bool readString(StepDataReader& reader, std::string& out) {
    out.clear();
    while (reader.remaining() > 0) {
        const char c = static_cast<char>(reader.getByte());
        if (c == '\0') return true;
        out.push_back(c);
    }
    return false;
}

}  // namespace

void ExtensionSegment::decode(StepDataReader& reader) {
    extensionType = reader.getInt();
    if (extensionType == 0x20000000u) {
        // Pairs of name and value until an empty name (a leading 0 byte).
        while (reader.remaining() > 0 && reader.peekByte() != 0) {
            std::string name, value;
            if (!readString(reader, name)) break;
            if (!readString(reader, value)) break;
            comments.emplace_back(name, value);
        }
    }
    reader.setPosition(reader.getSize());
}

}  // namespace jbig2
