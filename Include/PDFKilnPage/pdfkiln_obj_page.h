// The page tree: tree nodes (CPages), leaf pages in depth (CPage), and each
// page's geometry (CPaperInfo).
#ifndef PDFKILN_OBJ_PAGE_H
#define PDFKILN_OBJ_PAGE_H

#include <list>
#include <set>
#include <string>
#include <vector>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

// A rectangle: left, bottom, right, top.
struct RectTD {
    float left = 0;
    float bottom = 0;
    float right = 0;
    float top = 0;
};

struct PointTD {
    float x = 0;
    float y = 0;
};

using VerticesTD = std::vector<PointTD>;

// The caller's page matrix [a b c d e f].
struct PgCmTD {
    float a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
};

// Flags of an SObj: the key through which a reference was reached.
enum EObjClass : int {
    kClassAnnots = 2,
    kClassThumb = 8,
    kClassContents = 16,
    kClassResources = 32,
    kClassFont = 64,
    kClassXObject = 128,
    kClassParent = 0x400,
    kClassAnnotArray = 0x1000,
    kClassIllustrator = 0x2000
};

// One page's geometry: the five boxes in EBox order (media, crop, bleed,
// trim, art), the rotation, and the resource references it inherits.
class CPaperInfo {
public:
    RectTD box[5];
    int rotate = 0;
    SObj resources;
    SObj font;
    SObj xobject;

    // Reads an integer (following a reference); true when the stream stays good.
    bool ReadRotate(CSourFile& in);
    // Appends " [", the four numbers separated by blanks, " ] ".
    static void WriteRect(CDestFile& out, const RectTD& r);
};

// One node of the page tree, intermediate or leaf, as the tree walk reads it;
// on output, a group node of the merged tree.
class CPages : public CObj {
public:
    enum : int { kWroteMediaBox = 1, kWroteCropBox = 2, kWroteRotate = 4 };

    CPages() { flags |= kIndirect; }
    explicit CPages(const SObj& key) : CObj(key) { flags |= kIndirect; }

    bool Read(CSourFile& in) override;
    // Fills `out` with the references of /Kids (following a reference to the array).
    bool ReadKids(CSourFile& in, std::vector<SObj>& out);
    void Init();
    bool Write(CDestFile& out, CSourFile& in) override;
    int WriteOther(CDestFile& out);
    bool WriteOtherInfo(CDestFile& out, CSourFile& in);

    int writtenBoxes = 0;
    std::vector<SObj> kids;
    std::string type;
    int count = 0;
    std::list<SObj> pending;
    int sourceNo = 0;
    SObj resourcesRef;
    std::vector<SObj> directResources;
    SObj parentRef;

private:
    bool readKids(CSourFile& in, std::vector<SObj>& out, int depth);
};

// One leaf page read in depth: the objects it needs enter the owning
// source's used set, and its content, resource and annotation lists.
class CPage : public CObj {
public:
    CPage() { flags |= kIndirect; }
    explicit CPage(const SObj& key) : CObj(key) { flags |= kIndirect; }

    // Reads the page; throws int 1000 when an entry leads back to a page.
    bool Read(CSourFile& in) override;
    // Flattens a /Contents value into `seen` and, in first-seen order, `order`.
    int ReadTree(CSourFile& in, SObj start, std::set<SObj>& seen, std::vector<SObj>* order);
    // Drains the work list: every object on it is scanned for references.
    bool ReadOthers(CSourFile& in, std::list<SObj>& work);
    // Scans one object body (up to endobj or stream) for references.
    bool ReadObjs(CSourFile* owner, CSourFile& in, std::list<SObj>& work);
    // The resources a page inherits: `found` gets the nearest /Resources
    // reference up the /Parent chain from `start`, or `direct` the references
    // of the nearest direct /Resources dictionary. False when neither exists.
    bool getParentResource(CSourFile& in, SObj& start, SObj& found, std::vector<SObj>& direct);

    bool Write(CDestFile& out, CSourFile& in) override;
    bool WriteObj(CDestFile& out, CSourFile& in) override;

    // The raw text of the page's /Group dictionary, if it has one.
    std::string groupText;

private:
    void enterReference(CSourFile& owner, SObj ref, std::list<SObj>& work);
};

}  // namespace PDF_KILN

#endif
