// The document catalog, as far as opening a document needs it.
#include "pdfkiln_obj_catalog.h"

#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

CCatalog::CCatalog() { flags |= kIndirect; }

void CCatalog::Init() {
    type.clear();
    pagesRef = SObj();
    metadataRef = SObj();
    versionName.clear();
    visited.clear();
}

bool CCatalog::Read(CSourFile& in) {
    std::streampos at = in.tellg();
    if (!IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    CObjectPosition positions(&in);
    const int64_t end = positions.getEndPosition(self);
    const bool bounded = !in.objectStreamView && positions.getObjType(self) == 1;
    std::string token;
    int depth = 0;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (token == kwendobj) return true;
        if (bounded && static_cast<int64_t>(in.tellg()) > end) return true;
        if (token == "<<") {
            ++depth;
        } else if (token == ">>") {
            if (--depth <= 0) return true;
        } else if (depth != 1) {
            continue;
        } else if (token == nmType) {
            readPDFString(in, type);
        } else if (token == nmPages) {
            CObjRef ref;
            if (!ref.Read(in)) return false;
            pagesRef = SObj(ref.num, ref.gen);
        } else if (token == nmMetadata) {
            CObjRef ref;
            if (!ref.Read(in)) return false;
            metadataRef = SObj(ref.num, ref.gen);
        } else if (token == nmVersion) {
            readPDFString(in, versionName);
        }
    }
}

}  // namespace PDF_KILN
