// Logical structure and document parts: walked only for the pages
// that structure elements and document parts name, so that a destination
// naming one finds its page. Nothing of them is written.
#ifndef PDFKILN_OBJ_STRUCT_H
#define PDFKILN_OBJ_STRUCT_H

#include <map>
#include <vector>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

// A structure element: the elements below it (/K) and its page (/Pg).
class CTag : public CObj {
public:
    CTag() { flags |= kIndirect; }
    explicit CTag(const SObj& key) : CObj(key) { flags |= kIndirect; }
    // Reads this element's dictionary (not its children); enters it in the
    // source's tagPages when it names a page. Nonzero when the dictionary's
    // end was reached.
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }

    std::vector<SObj> children;
    SObj page;
};

// A document part: the parts below it (/DParts) and its first page (/Start).
class CDPart : public CObj {
public:
    CDPart() { flags |= kIndirect; }
    explicit CDPart(const SObj& key) : CObj(key) { flags |= kIndirect; }
    // Reads this part's dictionary; enters it in the source's partPages when
    // it names a first page.
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }

    std::vector<SObj> children;
    SObj page;
};

// The structure tree root: walks every element below /K. The walk keeps a
// set of the elements read, so a /K that leads back to an ancestor, or an
// element reached twice, is read once; it needs no stack, whatever the depth.
class CStructTreeRoot : public CObj {
public:
    CStructTreeRoot() { flags |= kIndirect; }
    explicit CStructTreeRoot(const SObj& key) : CObj(key) { flags |= kIndirect; }
    // Nonzero when the root and every element read to their ends.
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }
    int nodesRead = 0;
};

// The document part root: walks the part hierarchy from /DPartRootNode, as
// the structure tree root walks its elements.
class CDPartRoot : public CObj {
public:
    CDPartRoot() { flags |= kIndirect; }
    explicit CDPartRoot(const SObj& key) : CObj(key) { flags |= kIndirect; }
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }
    int nodesRead = 0;
};

}  // namespace PDF_KILN

#endif
