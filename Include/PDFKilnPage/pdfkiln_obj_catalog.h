// The document catalog and the dictionaries it holds directly.
#ifndef PDFKILN_OBJ_CATALOG_H
#define PDFKILN_OBJ_CATALOG_H

#include <set>
#include <string>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

// Discards the value that follows a key: balanced dictionaries and arrays,
// literal strings to their closing parenthesis, or one token. False on an
// unbalanced closer or when the input ends inside the value.
bool skipValue(CSourFile& in);

// A dictionary the catalog names, read for the references it holds. The
// classes of the interactive form, names and optional content read their
// subtrees themselves; until then they pass over their dictionary.
class CCatalogEntry : public CObj {
public:
    CCatalogEntry() { flags |= kIndirect; }
    bool Read(CSourFile& in) override;
    void Init() {
        self = SObj();
        heldByReference = false;
        readOk = false;
    }
    bool heldByReference = false;
    bool readOk = false;
};

class CNames : public CCatalogEntry {};
class CAcroForm : public CCatalogEntry {};
// /MarkInfo: the value of its /Marked key, false when absent or not "true".
class CMarkInfo : public CCatalogEntry {
public:
    bool Read(CSourFile& in) override;
    bool marked = false;
};
class COCProperties : public CCatalogEntry {};

class CCatalog : public CObj {
public:
    CCatalog();
    // First call: the catalog's keys; a call with names pending reads /Names.
    bool Read(CSourFile& in) override;
    // As CObj::fromStream; a failed read leaves the file's stream failed.
    void fromStream(CSourFile& in) override;
    bool Write(CDestFile& out, CSourFile& in) override;
    void Init();

    SObj pagesRef;
    std::set<SObj> visited;
    SObj metadataRef;
    CNames names;
    CAcroForm acroForm;
    CMarkInfo markInfo;
    bool namesPending = false;
    COCProperties ocProperties;
    int minorVersion = -1;  // from /Version: 0..7 for 1.0..1.7, 10 for 2.0; -1 when absent
    std::string versionName;  // the /Version token as read
    std::string type;         // the /Type name as read; empty until a catalog was read

private:
    bool readOk = true;
    bool readFirstPass(CSourFile& in);
    bool readSecondPass(CSourFile& in);
    bool readVersion(CSourFile& in);
    void readEntry(CSourFile& in, CCatalogEntry& entry);
};

}  // namespace PDF_KILN

#endif
