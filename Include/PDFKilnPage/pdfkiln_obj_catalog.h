// The document catalog as the reader sees it: the references the engine needs.
#ifndef PDFKILN_OBJ_CATALOG_H
#define PDFKILN_OBJ_CATALOG_H

#include <set>
#include <string>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

class CCatalog : public CObj {
public:
    CCatalog();
    bool Read(CSourFile& in) override;
    void Init();

    std::string type;       // the /Type name as read; empty when the read failed
    SObj pagesRef;          // /Pages
    std::set<SObj> visited;
    SObj metadataRef;       // /Metadata
    std::string versionName;  // /Version, with its slash
};

}  // namespace PDF_KILN

#endif
