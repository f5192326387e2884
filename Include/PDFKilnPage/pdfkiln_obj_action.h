// Link targets: explicit and named destinations, actions, and the name
// trees that hold named destinations.
#ifndef PDFKILN_OBJ_ACTION_H
#define PDFKILN_OBJ_ACTION_H

#include <set>
#include <string>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

// Key of the source's destination map: the ordinal of the target within its
// annotation (0 for the first), then the annotation's number and generation.
struct SDestObjKey {
    int ordinal = 0;
    int num = 0;
    int gen = 0;
    bool operator<(const SDestObjKey& o) const {
        if (ordinal != o.ordinal) return ordinal < o.ordinal;
        if (num != o.num) return num < o.num;
        return gen < o.gen;
    }
};

// Where a link leads: a page of the source (1-based, 0 when unknown), the
// fit style with its parameters, or a name still to be resolved.
struct SDestInfo {
    int page = 0;
    int style = 2;
    float pos[4] = {0, 0, 0, 0};
    std::string name;
};

// One link target as the facade hands it out: the number the created object
// took, the target page (1-based in the source, 0 when not found), 1 when it
// came from a named destination, the fit style, and its four parameters.
struct DestTD {
    int number = 0;
    int page = 0;
    int named = 0;
    int style = 2;
    float pos[4] = {0, 0, 0, 0};
};

// An explicit destination: [page /Style params...], or a name to look up.
class CDest : public CObj {
public:
    enum : int { kXYZ = 1, kFit = 2, kFitH = 3, kFitV = 4, kFitR = 5, kFitB = 6, kFitBH = 7, kFitBV = 8 };

    CDest() = default;
    explicit CDest(const SObj& key) : CObj(key) {}
    // Sets the style from its name; 1, or 0 for an unknown name.
    int GetDestStyle(const std::string& name);
    // Reads the parameters of the style just set.
    bool GetFit(CSourFile& in);
    // Reads a destination value at the stream's position: an array, a
    // reference to one, a name or a string (named destination).
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }

    int style = 0;
    float pos[4] = {0, 0, 0, 0};
    int page = 0;
    std::string name;
    int depth = 0;  // references followed to reach the array
};

// An action dictionary: its type (0 for /GoTo and /GoToDp, 8 otherwise) and,
// for a go-to, its destination.
class CAction : public CObj {
public:
    CAction() = default;
    explicit CAction(const SObj& key) : CObj(key) {}
    static int getActionType(const std::string& name);
    // Reads the dictionary (or a reference to it) at the stream's position.
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }

    int type = 0;
    bool remote = false;  // /GoToR: its destination lies in another file
    bool hasDest = false;
    SDestInfo dest;
    int depth = 0;  // /Next actions followed
};

// The named destinations of a document: the catalog's /Dests dictionary and
// the /Dests name tree of its /Names. Looks one name up.
class CDests : public CObj {
public:
    CDests() = default;
    bool Read(CSourFile& in) override;
    bool Write(CDestFile&, CSourFile&) override { return true; }

    std::string name;   // the name looked for (bytes of the string or the name without '/')
    bool found = false;
    CDest dest;

private:
    bool readNode(CSourFile& root, const SObj& node, int depth, std::set<SObj>& seen);
    bool readNodeAt(CSourFile& root, CSourFile& in, int depth, std::set<SObj>& seen);
    bool readValue(CSourFile& root, CSourFile& in);
};

}  // namespace PDF_KILN

#endif
