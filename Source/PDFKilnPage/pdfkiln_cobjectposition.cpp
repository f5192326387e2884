#include "pdfkiln_cobjectposition.h"

#include <algorithm>

#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

CObjectPosition::CObjectPosition(CSourFile* source) {
    // Views over object streams share the file's table; the offset set is
    // built once, in the source that owns the file.
    CSourFile& root = source->root();
    CFileInfo& fi = root.fileInfo;
    table = source->fileInfo.objTable;
    if (fi.offsets.empty()) {
        // Built once: a sorted vector holds the same set in an eighth of the
        // memory of a tree, and is searched by halving.
        std::vector<unsigned long>& o = fi.offsets;
        o.reserve(fi.objTable->size() + fi.positions.size());
        for (const auto& e : *fi.objTable)
            if (e.second.kind == 1) o.push_back(static_cast<unsigned long>(e.second.pos));
        for (long long p : fi.positions)
            if (p >= 0) o.push_back(static_cast<unsigned long>(p));
        std::sort(o.begin(), o.end());
        o.erase(std::unique(o.begin(), o.end()), o.end());
        o.shrink_to_fit();
    }
    offsets = &fi.offsets;
}

int64_t CObjectPosition::getBeginPosition(const SObj& key) const {
    const SObjState* st = table->state(key.num, key.gen);
    return st ? st->pos : unknownPosition;
}

int64_t CObjectPosition::getEndPosition(const SObj& key) const {
    int64_t begin = getBeginPosition(key);
    if (begin == unknownPosition || begin < 0) return unknownPosition;
    const unsigned long at = static_cast<unsigned long>(begin);
    auto it = std::lower_bound(offsets->begin(), offsets->end(), at);
    if (it == offsets->end() || *it != at) return unknownPosition;
    ++it;
    return it == offsets->end() ? unknownPosition : static_cast<int64_t>(*it);
}

int64_t CObjectPosition::getLength(const SObj& key) const { return getEndPosition(key) - getBeginPosition(key); }

int CObjectPosition::getObjType(const SObj& key) const {
    const SObjState* st = table->state(key.num, key.gen);
    return st ? st->kind : 0;
}

}  // namespace PDF_KILN
