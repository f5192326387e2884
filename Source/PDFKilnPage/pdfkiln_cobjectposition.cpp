#include "pdfkiln_cobjectposition.h"

#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

CObjectPosition::CObjectPosition(CSourFile* source) {
    // Views over object streams share the file's table; the offset set is
    // built once, in the source that owns the file.
    CSourFile& root = source->root();
    CFileInfo& fi = root.fileInfo;
    table = source->fileInfo.objTable;
    if (fi.offsets.empty()) {
        for (const auto& e : *fi.objTable)
            if (e.second.kind == 1) fi.offsets.insert(static_cast<unsigned long>(e.second.pos));
        for (long long p : fi.positions)
            if (p >= 0) fi.offsets.insert(static_cast<unsigned long>(p));
    }
    offsets = &fi.offsets;
}

int64_t CObjectPosition::getBeginPosition(const SObj& key) const {
    auto it = table->find(key);
    return it == table->end() ? unknownPosition : it->second.pos;
}

int64_t CObjectPosition::getEndPosition(const SObj& key) const {
    int64_t begin = getBeginPosition(key);
    if (begin == unknownPosition || begin < 0) return unknownPosition;
    auto it = offsets->find(static_cast<unsigned long>(begin));
    if (it == offsets->end()) return unknownPosition;
    ++it;
    return it == offsets->end() ? unknownPosition : static_cast<int64_t>(*it);
}

int64_t CObjectPosition::getLength(const SObj& key) const { return getEndPosition(key) - getBeginPosition(key); }

int CObjectPosition::getObjType(const SObj& key) const {
    auto it = table->find(key);
    return it == table->end() ? 0 : it->second.kind;
}

}  // namespace PDF_KILN
