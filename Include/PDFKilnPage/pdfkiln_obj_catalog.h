// The document catalog and the dictionaries it holds directly.
#ifndef PDFKILN_OBJ_CATALOG_H
#define PDFKILN_OBJ_CATALOG_H

#include <set>
#include <string>
#include <vector>

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

// The name dictionary. Its objects (the trees' nodes and what their values
// reach, pages apart) join the closure, so that the text getNames hands out
// names delivered objects. Read once the page list stands (the catalog's
// second pass), and walked once per opening.
class CNames : public CCatalogEntry {
public:
    bool Read(CSourFile& in) override;
    void Init() {
        CCatalogEntry::Init();
        walked = false;
    }
    bool walked = false;
};

// The interactive form. Reading keeps its field list (/Fields, the form's
// set, also entered in the source's field set) and notes every other
// reference it holds (/DR and its fonts, /XFA ...); those join the closure on
// the catalog's second pass, once the pages are known and can be kept out.
// Writing makes a new dictionary with only the merged /Fields of all sources.
class CAcroForm : public CCatalogEntry {
public:
    bool Read(CSourFile& in) override;
    bool Write(CDestFile& out, CSourFile& in) override;
    void Init() {
        CCatalogEntry::Init();
        fields.clear();
        calculationOrder.clear();
        pending.clear();
    }
    // Enters the noted references and what they reach into the closure.
    void ReadOthers(CSourFile& in);

    std::vector<SObj> fields;            // /Fields, in order, each once
    std::vector<SObj> calculationOrder;  // /CO: fields too, so never followed
    std::vector<SObj> pending;           // other references, for the closure
};

// /MarkInfo: the value of its /Marked key, false when absent or not "true".
class CMarkInfo : public CCatalogEntry {
public:
    bool Read(CSourFile& in) override;
    bool marked = false;
};

// Optional content properties: the /OCGs list and the default
// configuration's /ON, /OFF and /Order lists (references only; the labels
// and nesting of /Order are not kept) and its /BaseState. Writing makes a
// new dictionary with only /D << /OFF [...] /ON [...] >>, renumbered.
class COCProperties : public CCatalogEntry {
public:
    // The dictionary at the stream's position (behind an optional "n g obj").
    bool Read(CSourFile& in) override;
    // The default configuration: a dictionary, or a reference to one.
    bool ReadD(CSourFile& in);
    // An array of references (nested arrays flattened), or a reference to one.
    bool ReadArray(CSourFile& in, std::vector<SObj>& out);
    bool Write(CDestFile& out, CSourFile& in) override;
    void Init() {
        CCatalogEntry::Init();
        off.clear();
        on.clear();
        ocgs.clear();
        order.clear();
        baseState.clear();
    }

    std::vector<SObj> off;
    std::vector<SObj> on;
    std::vector<SObj> ocgs;
    std::vector<SObj> order;
    std::string baseState;  // the /BaseState name as read ("/ON", "/OFF", "/Unchanged"); empty when absent
};

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
    // A second pass is wanted: /Names is to be read, or what the form
    // reaches is to join the closure, once the page list stands.
    bool namesPending = false;
    COCProperties ocProperties;
    int minorVersion = -1;  // from /Version: 0..7 for 1.0..1.7, 10 for 2.0; -1 when absent
    std::string versionName;  // the /Version token as read
    std::string type;         // the /Type name as read; empty until a catalog was read

    // Walks the structure tree and the document parts (once per opening) so
    // that the source's tagPages and partPages name the page of each element
    // and part. Destinations call it when they meet a reference that is no page.
    void readStructure(CSourFile& in);
    SObj structTreeRootRef;  // /StructTreeRoot, /DPartRoot as read in the first pass
    SObj dPartRootRef;
    bool structureRead = false;

private:
    bool readOk = true;
    bool readFirstPass(CSourFile& in);
    bool readSecondPass(CSourFile& in);
    bool readVersion(CSourFile& in);
    void readEntry(CSourFile& in, CCatalogEntry& entry);
    template <class Root>
    void readTreeRoot(CSourFile& in, SObj& noted, bool mapFilled);
    bool namesSeen = false;  // the first pass met /Names
};

}  // namespace PDF_KILN

#endif
