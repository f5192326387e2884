// Annotations: which of a page's annotations survive the caller's masks, the
// objects they reach, and their copy moved into the page's new position.
#ifndef PDFKILN_OBJ_ANNOT_H
#define PDFKILN_OBJ_ANNOT_H

#include <list>
#include <string>
#include <vector>

#include "pdfkiln_obj.h"
#include "pdfkiln_obj_page.h"

namespace PDF_KILN {

// Subtypes of annotations to switch off, one bit each; 0 keeps all, -1 none.
// Bit 30 switches off every subtype not named, bit 31 those of the custom list.
typedef int PDF_KILN_AnnotsEnableE;
// Kinds of form fields to switch off: 1 radio, 2 push button, 4 check box,
// 8 list box, 16 combo box, 32 text, 64 signature.
typedef int PDF_KILN_AcroFormsEnableE;

enum EAnnotFlags : int {
    kAnnotRotateMK = 0x10000,     // a disabled holder met /MK: /R follows the page
    kAnnotFieldParent = 0x20000,  // reached behind /Parent
    kAnnotKid = 0x40000,          // a /Kids entry of a field
    kAnnotDisabled = 0x80000,     // switched off by the annotation mask
    kFieldDisabled = 0x100000,    // switched off by the form mask
    kAnnotLink = 0x200000         // an action of a link: its /D is a link target
};

class CAnnot : public CObj {
public:
    CAnnot() { flags |= kIndirect; }
    explicit CAnnot(const SObj& key) : CObj(key) { flags |= kIndirect; }

    // Reads the value of a page's /Annots (an array, at the stream's position
    // or in the object `self`) and everything its annotations reach.
    bool Read(CSourFile& in) override;
    bool ReadOthers(CSourFile& in, std::list<SObj>& work);
    // One annotation or an object it reaches: the mask pass, then its references.
    bool ReadObjs(CSourFile* owner, CSourFile& in, std::list<SObj>& work);
    // Climbs /Parent from `start` for a field's /FT and /Ff (what is still empty).
    static bool ReadParent(CSourFile& in, SObj start, std::string& ft, int& ff);
    // Reads /FT, /Ff and /Parent of one object; 0 when it cannot be read.
    static int getFieldInfo(CSourFile& in, const SObj& key, std::string& ft, int& ff, SObj& parent);
    static int getFieldType(int ff, const std::string& ft);
    static void checkEnableAnnots(const std::string& subtype, PDF_KILN_AnnotsEnableE mask, int& objFlags,
                                  const std::vector<std::string>& custom);
    static void checkEnableAcroForms(int fieldType, const std::string& ft, PDF_KILN_AcroFormsEnableE mask,
                                     int& objFlags);
    void setCurPageObj(int number, int generation) {
        curPage[0] = number;
        curPage[1] = generation;
    }

    bool WriteObj(CDestFile& out, CSourFile& in) override;

    // The geometry chain, all in 32-bit floats.
    static void TransPoint(const PointTD& p, const PgCmTD& m, PointTD& out);
    static void TransVertices(const VerticesTD& in, const PgCmTD& m, VerticesTD& out);
    static void TransRect(const RectTD& in, const PgCmTD& m, RectTD& out, bool normal);
    static void RestoreRect(const RectTD& in, int rotate, RectTD& out);
    static void outputCm(std::string& s, const PgCmTD& m);
    static PgCmTD sourceCm(const CSourFile& in);

    bool direct = false;  // the array stands in the page itself
    int curPage[2] = {0, 0};

protected:
    int rewriteAnnotValue(CDestFile& out, CSourFile& in, const std::string& key, int dictDepth) override;
    void annotDictEvent(int dictDepth, bool opened) override;
    bool rewriteAnnotRef(CDestFile& out, const std::string& key, int num, int gen) override;

private:
    void enter(CSourFile& owner, SObj ref, std::list<SObj>& work, std::list<SObj>& plain);
    bool scanDirect(CSourFile& in, std::list<SObj>& work, std::list<SObj>& plain);
    std::list<SObj> plainWork;

    // State of one copy.
    int annotFlagsF = 0;
    bool remoteAction = false;
    bool isAnnotType = true;
    int mkDepth = 0, aDepth = 0, a3dDepth = 0;
    int ordinal = 0;
};

}  // namespace PDF_KILN

#endif
