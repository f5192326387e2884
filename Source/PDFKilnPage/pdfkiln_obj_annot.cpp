// Annotations: reading a page's /Annots under the caller's masks, collecting
// what the surviving annotations reach, and copying them with every
// coordinate moved by the caller's page matrix.
#include "pdfkiln_obj_annot.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "pdfkiln_destfile.h"
#include "pdfkiln_scan.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

constexpr int kMaxTokens = 1 << 20;   // tokens of one object looked at
constexpr int kMaxClimb = 64;         // /Parent levels climbed for a field's type
constexpr int kMaxDepth = 64;         // dictionary nesting followed

bool ended(const std::istream& in, const std::string& token) {
    return !in.good() && (token.empty() || token.back() == '\0');
}

bool isKeyOf(const std::vector<std::string>& keys, int depth, const char* name) {
    for (int d = 1; d <= depth && d < static_cast<int>(keys.size()); ++d)
        if (keys[static_cast<std::size_t>(d)] == name) return true;
    return false;
}

struct SubtypeBit {
    const char* const* name;
    int bit;
};

// The named subtypes and the bit of the annotation mask that switches each off.
const SubtypeBit kSubtypeBits[] = {
    {&nmLink, 0x1},           {&nmText, 0x2},         {&nmSound, 0x4},       {&nmMovie, 0x8},
    {&nmStamp, 0x10},         {&nmLine, 0x20},        {&nmSquare, 0x40},     {&nmCircle, 0x80},
    {&nmStrikeOut, 0x100},    {&nmHighlight, 0x200},  {&nmUnderline, 0x400}, {&nmInk, 0x800},
    {&nmFileAttachment, 0x1000}, {&nmFreeText, 0x2000}, {&nmPopup, 0x4000},  {&nmSquiggly, 0x8000},
    {&nmPolyLine, 0x10000},   {&nmPolygon, 0x20000},  {&nmCaret, 0x40000},   {&nmScreen, 0x80000},
    {&nmPrinterMark, 0x100000}, {&nmTrapNet, 0x200000}, {&nmWaterMark, 0x400000}, {&nm3D, 0x800000},
    {&nmRichMedia, 0x1000000}};

}  // namespace

// ---------------------------------------------------------------------------
// Geometry

void CAnnot::TransPoint(const PointTD& p, const PgCmTD& m, PointTD& out) {
    float x = m.a * p.x;
    x = x + m.c * p.y;
    x = x + m.e;
    float y = m.b * p.x;
    y = y + m.d * p.y;
    y = y + m.f;
    out.x = x;
    out.y = y;
}

void CAnnot::TransVertices(const VerticesTD& in, const PgCmTD& m, VerticesTD& out) {
    for (const PointTD& p : in) {
        PointTD q;
        TransPoint(p, m, q);
        out.push_back(q);
    }
}

void CAnnot::TransRect(const RectTD& in, const PgCmTD& m, RectTD& out, bool normal) {
    float x1 = m.a * in.left;
    x1 = x1 + m.c * in.bottom;
    x1 = x1 + m.e;
    float y1 = m.b * in.left;
    y1 = y1 + m.d * in.bottom;
    y1 = y1 + m.f;
    // The second corner adds the translation first: in float the sum differs.
    float x2 = m.a * in.right;
    x2 = x2 + m.c * in.top;
    x2 = m.e + x2;
    float y2 = m.b * in.right;
    y2 = y2 + m.d * in.top;
    y2 = m.f + y2;
    for (float* v : {&x1, &x2, &y1, &y2})
        if (std::fabs(static_cast<double>(*v)) < 9.999999747378752e-5) *v = 0;
    if (normal) {
        if (x1 > x2) std::swap(x1, x2);
        if (y1 > y2) std::swap(y1, y2);
    }
    out.left = x1;
    out.bottom = y1;
    out.right = x2;
    out.top = y2;
}

void CAnnot::RestoreRect(const RectTD& in, int rotate, RectTD& out) {
    const float w = in.right - in.left;
    const float h = in.top - in.bottom;
    switch ((rotate / 90) % 4) {
        case 1:
            out.left = in.right - w;
            out.bottom = in.bottom + h;
            out.right = in.left + h;
            out.top = w + in.top;
            break;
        case 2:
            out.left = in.right - (w + w);
            out.bottom = in.top;
            out.right = in.left;
            out.top = in.bottom + (h + h);
            break;
        case 3:
            out.left = in.left - h;
            out.bottom = in.top - w;
            out.right = in.right - w;
            out.top = in.bottom + h;
            break;
        default:
            out = in;
            break;
    }
}

// The linear part only: the translation belongs to the placement, not to an
// appearance drawn inside the annotation's rectangle.
void CAnnot::outputCm(std::string& s, const PgCmTD& m) {
    wrtNumberFtoStr(s, m.a);
    wrtNumberFtoStr(s, m.b);
    wrtNumberFtoStr(s, m.c);
    wrtNumberFtoStr(s, m.d);
    s += "0 0 cm ";
}

PgCmTD CAnnot::sourceCm(const CSourFile& in) {
    PgCmTD m;
    m.a = in.pageCm[0];
    m.b = in.pageCm[1];
    m.c = in.pageCm[2];
    m.d = in.pageCm[3];
    m.e = in.pageCm[4];
    m.f = in.pageCm[5];
    return m;
}

void CStringType::Translate4Annot(const PgCmTD& m) {
    float scale = 1;
    for (float v : {m.a, m.d, m.b, m.c}) {
        if (v != 0) {
            scale = std::fabs(v);
            break;
        }
    }
    if (scale == 1 || text.find("Tf") == std::string::npos) return;
    auto white = [](char c) { return c == ' ' || c == 0 || c == '\t' || c == '\n' || c == '\f' || c == '\r'; };
    std::string result;
    std::size_t copied = 0;
    std::size_t at = 0;
    while ((at = text.find("Tf", at)) != std::string::npos) {
        std::size_t numEnd = at;
        while (numEnd > copied && white(text[numEnd - 1])) --numEnd;
        std::size_t numStart = numEnd;
        while (numStart > copied && (std::isdigit(static_cast<unsigned char>(text[numStart - 1])) ||
                                     text[numStart - 1] == '.' || text[numStart - 1] == '-' ||
                                     text[numStart - 1] == '+'))
            --numStart;
        if (numStart == numEnd) {
            at += 2;
            continue;
        }
        result.append(text, copied, numStart - copied);
        const std::string number = text.substr(numStart, numEnd - numStart);
        const float size = static_cast<float>(std::strtod(number.c_str(), nullptr)) * scale;
        wrtNumberFtoStr(result, size);
        copied = at;
        at += 2;
    }
    result.append(text, copied, std::string::npos);
    text = result;
    length = static_cast<int>(text.size());
}

// ---------------------------------------------------------------------------
// Masks

int CAnnot::getFieldType(int ff, const std::string& ft) {
    if (ft == "/Btn") {
        if (ff & 0x10000) return 0;
        if (ff & 0x8000) return 1;
        return 2;
    }
    if (ft == "/Ch") return (ff & 0x20000) ? 4 : 3;
    if (ft == nmTx) return 5;
    if (ft == "/Sig") return 6;
    return -1;
}

void CAnnot::checkEnableAnnots(const std::string& subtype, PDF_KILN_AnnotsEnableE mask, int& objFlags,
                               const std::vector<std::string>& custom) {
    if ((objFlags & kAnnotDisabled) || mask == 0) return;
    for (const SubtypeBit& s : kSubtypeBits) {
        if (subtype == *s.name) {
            if (mask & s.bit) objFlags |= kAnnotDisabled;
            return;
        }
    }
    if (mask & 0x40000000) {
        objFlags |= kAnnotDisabled;
        return;
    }
    if (mask & static_cast<int>(0x80000000u)) {
        const std::string bare = subtype.size() > 1 && subtype[0] == '/' ? subtype.substr(1) : subtype;
        for (const std::string& c : custom) {
            if (c == subtype || c == bare) {
                objFlags |= kAnnotDisabled;
                return;
            }
        }
    }
}

void CAnnot::checkEnableAcroForms(int fieldType, const std::string&, PDF_KILN_AcroFormsEnableE mask, int& objFlags) {
    static const int bits[] = {2, 1, 4, 8, 16, 32, 64};
    if (mask == 0 || fieldType < 0 || fieldType > 6) return;
    if (mask & bits[fieldType]) objFlags |= kAnnotDisabled | kFieldDisabled;
}

int CAnnot::getFieldInfo(CSourFile& in, const SObj& key, std::string& ft, int& ff, SObj& parent) {
    CSourFile& root = in.root();
    const std::streampos back = root.tellg();
    int result = 0;
    {
        CObjReader at(root, key);
        if (at) {
            CSourFile& s = at.stream();
            std::string token;
            int depth = 0;
            result = 1;
            for (int n = 0; n < kMaxTokens && s.good(); ++n) {
                CObjRef ref;
                if (ref.Read(s)) continue;
                readPDFString(s, token);
                if (ended(s, token) || token == kwstream || token == kwendobj) break;
                if (token == "<<") {
                    ++depth;
                } else if (token == ">>") {
                    if (--depth <= 0) break;
                } else if (token == "(" || token == "<") {
                    CStringType skipped;
                    skipped.isHex = token == "<";
                    skipped.Read(s);
                } else if (depth == 1 && token == nmFT && ft.empty()) {
                    readPDFString(s, ft);
                } else if (depth == 1 && token == nmFf) {
                    int v = 0;
                    if (ReadIntObj(s, v)) ff = v;
                    s.clear(s.rdstate() & ~std::ios::failbit);
                } else if (depth == 1 && token == nmParent) {
                    CObjRef p;
                    if (p.Read(s)) parent = SObj(p.num, p.gen);
                }
            }
            if (s.bad()) result = 0;
        }
    }
    root.clear();
    root.seekg(back);
    return result;
}

bool CAnnot::ReadParent(CSourFile& in, SObj start, std::string& ft, int& ff) {
    std::set<SObj> seen;
    SObj at = start;
    bool any = false;
    for (int step = 0; step < kMaxClimb && at.num > 0 && seen.insert(at).second; ++step) {
        std::string t;
        int f = -1;
        SObj parent;
        if (!getFieldInfo(in, at, t, f, parent)) break;
        any = true;
        if (ft.empty() && !t.empty()) ft = t;
        if (ff < 0 && f >= 0) ff = f;
        if (!ft.empty() && ff >= 0) break;
        at = parent;
    }
    return any;
}

// ---------------------------------------------------------------------------
// Reading

void CAnnot::enter(CSourFile& owner, SObj ref, std::list<SObj>& work, std::list<SObj>& plain) {
    if (ref.num <= 0 || owner.isPage(ref)) return;
    if (owner.fileObjects.count(ref)) return;
    owner.insertFileObject(ref);
    if (ref.aux & kClassAnnotArray) work.push_back(ref);
    else plain.push_back(ref);
}

bool CAnnot::Read(CSourFile& in) {
    CSourFile& owner = in.root();
    std::list<SObj> work;
    std::list<SObj> plain;
    const int holder = self.aux;
    int depth = 0;
    std::string token, prev;
    for (int n = 0; n < kMaxTokens && in.good(); ++n) {
        CObjRef ref;
        if (ref.Read(in)) {
            if (depth != 1 || prev == nmParent) {
                prev = kwR;
                continue;
            }
            SObj r(ref.num, ref.gen, kClassAnnotArray | (holder & (kAnnotDisabled | kFieldDisabled)));
            if (owner.isPage(r)) throw static_cast<int>(kResultBadFile);
            owner.annotsVector.push_back(SObj(r.num, r.gen, r.aux));
            owner.annotsMet.insert(SObj(r.num, r.gen));
            if (!owner.fileObjects.count(r)) {
                owner.insertFileObject(r);
                work.push_back(r);
            }
            prev = kwR;
            continue;
        }
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) break;
        if (token == "[") {
            ++depth;
        } else if (token == "]") {
            if (--depth <= 0) break;
        } else if (token == "<<" && depth == 1) {
            // An annotation dictionary standing in the array itself: read for
            // what it reaches, then stepped over as a whole.
            const std::streampos dictStart = in.tellg();
            CAnnot inner(self);
            inner.flags &= ~kIndirect;
            inner.self.aux = kClassAnnotArray;
            inner.ReadObjs(&owner, in, work);
            for (const SObj& p : inner.plainWork) plain.push_back(p);
            in.clear();
            in.seekg(dictStart);
            int inner_depth = 1;
            for (; n < kMaxTokens && inner_depth > 0 && in.good(); ++n) {
                if (ref.Read(in)) continue;
                readPDFString(in, token);
                if (ended(in, token) || token == kwendobj || token == kwstream) break;
                if (token == "<<") ++inner_depth;
                else if (token == ">>") --inner_depth;
                else if (token == "(" || token == "<") {
                    CStringType skipped(self);
                    skipped.isHex = token == "<";
                    skipped.Read(in);
                }
            }
        } else if (token == "(" || token == "<") {
            CStringType skipped(self);
            skipped.isHex = token == "<";
            skipped.Read(in);
        } else if (depth == 0 && token != "[") {
            break;
        }
        prev = token;
    }
    in.clear();
    const std::streampos behind = in.tellg();
    const bool ok = ReadOthers(in, work);
    for (const SObj& p : plainWork) plain.push_back(p);
    plainWork.clear();
    if (!plain.empty()) {
        // What the appearances use (fonts, images, forms) is closure of the
        // ordinary kind: copied as the page's resources are.
        CPage reader(self);
        reader.ReadOthers(owner, plain);
    }
    in.clear();
    if (behind != std::streampos(-1)) in.seekg(behind);
    return ok;
}

bool CAnnot::ReadOthers(CSourFile& in, std::list<SObj>& work) {
    CSourFile& root = in.root();
    StreamRecover<CSourFile> keep(root);
    const SObj saved = self;
    while (!work.empty()) {
        const SObj entry = work.front();
        work.pop_front();
        self = entry;
        {
            CObjReader at(root, SObj(entry.num, entry.gen));
            if (at) ReadObjs(&root, at.stream(), work);
        }
        root.clear();
    }
    self = saved;
    return true;
}

bool CAnnot::ReadObjs(CSourFile* owner, CSourFile& in, std::list<SObj>& work) {
    CSourFile& own = owner ? *owner : in.root();
    const std::streampos start = in.tellg();
    const bool listed = own.annotsMet.count(self) != 0 || !(flags & kIndirect);
    const bool inlineDict = !(flags & kIndirect);
    int holder = self.aux;
    std::string token;

    // Mask pass: the subtype, the field type and flags, and the parent.
    std::string subtype, ft;
    int ff = -1;
    SObj parent;
    {
        int depth = inlineDict ? 1 : 0;
        for (int n = 0; n < kMaxTokens && in.good(); ++n) {
            CObjRef ref;
            if (ref.Read(in)) continue;
            readPDFString(in, token);
            if (ended(in, token) || token == kwstream || token == kwendobj) break;
            if (token == "<<") {
                ++depth;
            } else if (token == ">>") {
                if (--depth <= 0) break;
            } else if (token == "(" || token == "<") {
                CStringType skipped(self);
                skipped.isHex = token == "<";
                skipped.Read(in);
            } else if (depth == 1 && token == nmSubtype) {
                readPDFString(in, subtype);
            } else if (depth == 1 && token == nmFT) {
                readPDFString(in, ft);
            } else if (depth == 1 && token == nmFf) {
                int v = 0;
                if (ReadIntObj(in, v)) ff = v;
                in.clear(in.rdstate() & ~std::ios::failbit);
            } else if (depth == 1 && token == nmParent) {
                CObjRef p;
                if (p.Read(in)) parent = SObj(p.num, p.gen);
            }
        }
        in.clear();
        in.seekg(start);
    }
    const bool isWidget = subtype == nmWidget;
    const bool isLink = subtype == nmLink;
    if (listed && (own.annotsEnable || own.acroFormsEnable)) {
        if (isWidget) {
            if (parent.num && (ft.empty() || ff < 0)) ReadParent(own, parent, ft, ff);
            if (!ft.empty()) checkEnableAcroForms(getFieldType(ff < 0 ? 0 : ff, ft), ft, own.acroFormsEnable, holder);
        } else if (!subtype.empty()) {
            checkEnableAnnots(subtype, own.annotsEnable, holder, own.annotSubtypes);
            if (!ft.empty()) checkEnableAcroForms(getFieldType(ff < 0 ? 0 : ff, ft), ft, own.acroFormsEnable, holder);
        }
        if (holder & (kAnnotDisabled | kFieldDisabled)) {
            // Switched off: it leaves the closure and nothing it reaches enters.
            if (!inlineDict) {
                own.fileObjects.erase(self);
                for (SObj& a : own.annotsVector)
                    if (a == self) a.aux |= holder & (kAnnotDisabled | kFieldDisabled);
            }
            return true;
        }
    }
    if (listed && !ft.empty()) own.fieldSet.insert(SObj(self.num, self.gen, holder));
    if (listed && isWidget && parent.num) own.fieldSet.insert(SObj(parent.num, parent.gen, kAnnotFieldParent));

    // Reference pass.
    std::vector<std::string> keys(1);
    std::vector<bool> keyNext(1, true);  // the next name at this level is a key
    std::vector<int> arrays(1, 0);
    int depth = 0;
    if (inlineDict) {
        depth = 1;
        keys.assign(2, std::string());
        keyNext.assign(2, true);
        arrays.assign(2, 0);
    }
    int ordinal = 0;
    auto recordTarget = [&](const SDestInfo& info) {
        const SObj annot = (holder & kAnnotLink) && own.linkSet.count(self) ? own.linkSet[self] : self;
        SDestObjKey k{ordinal, annot.num, annot.gen};
        own.destMap[k] = info;
        own.createdObjects.emplace(SObj(annot.num, annot.gen, ordinal), SObj());
    };
    for (int n = 0; n < kMaxTokens && in.good(); ++n) {
        CObjRef ref;
        if (ref.Read(in)) {
            const std::size_t d = static_cast<std::size_t>(std::max(depth, 0));
            if (d < keyNext.size() && arrays[d] == 0) keyNext[d] = true;
            SObj r(ref.num, ref.gen);
            if (depth < 1 || own.isPage(r)) continue;
            const std::string& key = keys[d];
            const bool inA = isKeyOf(keys, depth - 1, nmA) || key == nmA;
            if (key == nmDest || ((key == nmD || key == nmSD) && (inA || (holder & kAnnotLink))) ||
                key == nmDp || key == nmP)
                continue;  // link targets are written as the caller's own objects
            if (isKeyOf(keys, depth, nmResources) || isKeyOf(keys, depth, nmDR)) {
                r.aux = 0;
                plainWork.push_back(r);
                if (!own.fileObjects.count(r) && !own.isPage(r)) own.insertFileObject(r);
                else plainWork.pop_back();
                continue;
            }
            r.aux = kClassAnnotArray | (holder & (kAnnotDisabled | kFieldDisabled));
            if (depth == 1 && key == nmParent) r.aux |= kAnnotFieldParent;
            if (depth == 1 && key == nmKids) r.aux |= kAnnotKid;
            if (key == nmA || key == nmAA || inA || key == nmNext) {
                r.aux |= kAnnotLink;
                if (!own.linkSet.count(r)) {
                    const SObj annot =
                        (holder & kAnnotLink) && own.linkSet.count(self) ? own.linkSet[self] : self;
                    own.linkSet[r] = SObj(annot.num, annot.gen);
                }
            }
            std::list<SObj> dummy;
            enter(own, r, work, dummy);
            continue;
        }
        readPDFString(in, token);
        if (ended(in, token) || token == kwstream || token == kwendobj) break;
        if (token == "<<") {
            ++depth;
            if (depth > kMaxDepth) break;
            keys.resize(static_cast<std::size_t>(depth) + 1);
            keyNext.resize(static_cast<std::size_t>(depth) + 1);
            arrays.resize(static_cast<std::size_t>(depth) + 1);
            keys[static_cast<std::size_t>(depth)].clear();
            keyNext[static_cast<std::size_t>(depth)] = true;
            arrays[static_cast<std::size_t>(depth)] = 0;
            continue;
        }
        if (token == ">>") {
            if (inlineDict && depth == 1) break;
            if (--depth <= 0) break;
            const std::size_t d = static_cast<std::size_t>(depth);
            if (arrays[d] == 0) keyNext[d] = true;
            continue;
        }
        if (depth < 1) continue;
        const std::size_t d = static_cast<std::size_t>(depth);
        if (token == "[") {
            ++arrays[d];
            continue;
        }
        if (token == "]") {
            if (arrays[d] > 0 && --arrays[d] == 0) keyNext[d] = true;
            continue;
        }
        if (token == "(" || token == "<") {
            CStringType skipped(self);
            skipped.isHex = token == "<";
            skipped.noDecrypt = true;
            skipped.Read(in);
            if (arrays[d] == 0) keyNext[d] = true;
            continue;
        }
        if (token[0] == '/' && arrays[d] == 0 && keyNext[d]) {
            keys[d] = token;
            keyNext[d] = false;
            // Link targets: read now, so that the copy can put the caller's
            // object in their place.
            const bool inA = isKeyOf(keys, depth - 1, nmA);
            if ((depth == 1 && token == nmDest) ||
                ((token == nmD || token == nmSD) && (inA || (holder & kAnnotLink)) && depth <= 2)) {
                StreamRecover<CSourFile> back(in);
                CDest dest;
                if (dest.Read(in)) {
                    SDestInfo info;
                    info.page = dest.page;
                    info.style = dest.style ? dest.style : CDest::kFit;
                    std::copy(dest.pos, dest.pos + 4, info.pos);
                    info.name = dest.name;
                    recordTarget(info);
                }
            } else if ((depth == 1 && token == nmA) || (depth == 1 && (holder & kAnnotLink) && token == nmNext)) {
                StreamRecover<CSourFile> back(in);
                CAction action;
                if (action.Read(in) && action.hasDest && !action.remote) recordTarget(action.dest);
            }
            continue;
        }
        if (arrays[d] == 0) keyNext[d] = true;
    }
    (void)isLink;
    return true;
}

// ---------------------------------------------------------------------------
// Writing

bool CAnnot::WriteObj(CDestFile& out, CSourFile& in) {
    CSourFile& root = in.root();
    const std::streampos start = in.tellg();
    // What decides the copy: the object's type, its flags, a remote action.
    annotFlagsF = 0;
    remoteAction = false;
    isAnnotType = true;
    mkDepth = aDepth = a3dDepth = 0;
    ordinal = 0;
    {
        int depth = 0;
        std::string token;
        for (int n = 0; n < kMaxTokens && in.good(); ++n) {
            CObjRef ref;
            if (ref.Read(in)) continue;
            readPDFString(in, token);
            if (ended(in, token) || token == kwstream || token == kwendobj) break;
            if (token == "<<") {
                ++depth;
            } else if (token == ">>") {
                if (--depth <= 0) break;
            } else if (token == "(" || token == "<") {
                CStringType skipped(self);
                skipped.isHex = token == "<";
                skipped.noDecrypt = true;
                skipped.Read(in);
            } else if (depth == 1 && token == nmType) {
                std::string t;
                readPDFString(in, t);
                isAnnotType = t == "/Annot";
            } else if (depth == 1 && token == nmF) {
                int v = 0;
                const std::streampos at = in.tellg();
                if (in >> v) annotFlagsF = v;
                else {
                    in.clear();
                    in.seekg(at);
                }
            } else if (token == nmGoToR) {
                remoteAction = true;
            }
        }
        in.clear();
        in.seekg(start);
    }
    if ((self.aux & kClassAnnots) && !(self.aux & kClassAnnotArray)) {
        // The page's annotation array: switched-off entries are dropped.
        return CopyBody(out, in, CopyRules::Object);
    }
    (void)root;
    return CopyBody(out, in, CopyRules::Annot);
}

void CAnnot::annotDictEvent(int dictDepth, bool opened) {
    if (opened) return;
    if (dictDepth == mkDepth) mkDepth = 0;
    if (dictDepth == a3dDepth) a3dDepth = 0;
    if (dictDepth == aDepth) {
        aDepth = 0;
        ++ordinal;
    }
}

bool CAnnot::rewriteAnnotRef(CDestFile& out, const std::string& key, int, int) {
    if (key == nmP && isAnnotType && curPage[0] > 0) {
        out << ' ' << curPage[0] << ' ' << curPage[1] << ' ' << kwR;
        return true;
    }
    return false;
}

int CAnnot::rewriteAnnotValue(CDestFile& out, CSourFile& in, const std::string& key, int dictDepth) {
    CSourFile& root = in.root();
    const PgCmTD m = sourceCm(root);
    const int rotate = root.pageRotate;
    const bool turned = ((rotate / 90) & 3) != 0;
    auto writeNums = [&](const std::vector<float>& v) {
        out << " [";
        for (std::size_t i = 0; i < v.size(); ++i) {
            if (i) out << ' ';
            out << static_cast<double>(v[i]);
        }
        out << "] ";
    };
    auto peekIsDict = [&]() {
        const std::streampos at = in.tellg();
        std::string t;
        readPDFString(in, t);
        in.clear();
        in.seekg(at);
        return t == "<<";
    };

    if (key == nmRect && dictDepth == 1) {
        std::vector<float> v;
        if (!ReadNumArrayObj(in, v) || v.size() < 4) return -1;
        RectTD r{v[0], v[1], v[2], v[3]};
        if ((annotFlagsF & 16) && turned) {
            RectTD back;
            RestoreRect(r, rotate, back);
            r = back;
        }
        RectTD t;
        TransRect(r, m, t, true);
        writeNums({t.left, t.bottom, t.right, t.top});
        return 1;
    }
    if (key == nmL && dictDepth == 1 && a3dDepth == 0) {
        std::vector<float> v;
        if (!ReadNumArrayObj(in, v) || v.size() < 4) return -1;
        RectTD t;
        TransRect(RectTD{v[0], v[1], v[2], v[3]}, m, t, false);
        writeNums({t.left, t.bottom, t.right, t.top});
        return 1;
    }
    if (key == nmRD && dictDepth == 1) {
        std::vector<float> v;
        if (!ReadNumArrayObj(in, v) || v.size() < 4) return -1;
        PgCmTD lin = m;
        lin.e = lin.f = 0;
        PointTD p0, p1, p2, p3;
        TransPoint(PointTD{v[0], 0}, lin, p0);
        TransPoint(PointTD{0, v[1]}, lin, p1);
        TransPoint(PointTD{v[2], 0}, lin, p2);
        TransPoint(PointTD{0, v[3]}, lin, p3);
        writeNums({p0.x, p1.y, p2.x, p3.y});
        return 1;
    }
    if ((key == nmQuadPoints || key == nmVertices || key == nmCL) && dictDepth == 1) {
        std::vector<float> v;
        if (!ReadNumArrayObj(in, v) || v.size() % 2) return -1;
        VerticesTD pts, moved;
        for (std::size_t i = 0; i + 1 < v.size(); i += 2) pts.push_back(PointTD{v[i], v[i + 1]});
        TransVertices(pts, m, moved);
        std::vector<float> flat;
        for (const PointTD& p : moved) {
            flat.push_back(p.x);
            flat.push_back(p.y);
        }
        writeNums(flat);
        return 1;
    }
    if (key == nmInkList && dictDepth == 1) {
        std::string t;
        readPDFString(in, t);
        if (t != "[") return -1;
        out << " [";
        for (int n = 0; n < kMaxTokens; ++n) {
            in >> std::ws;
            if (in.peek() == ']') {
                in.get();
                break;
            }
            std::vector<float> v;
            if (!ReadNumArrayObj(in, v) || v.size() % 2) return -1;
            VerticesTD pts, moved;
            for (std::size_t i = 0; i + 1 < v.size(); i += 2) pts.push_back(PointTD{v[i], v[i + 1]});
            TransVertices(pts, m, moved);
            std::vector<float> flat;
            for (const PointTD& p : moved) {
                flat.push_back(p.x);
                flat.push_back(p.y);
            }
            writeNums(flat);
        }
        out << "] ";
        return 1;
    }
    if (key == nmMatrix && dictDepth == 1) {
        std::vector<float> v;
        if (!ReadNumArrayObj(in, v) || v.size() < 6) return -1;
        const float n0 = m.a * v[0] + m.b * v[2];
        const float n1 = m.a * v[1] + m.b * v[3];
        const float n2 = m.c * v[0] + m.d * v[2];
        const float n3 = m.c * v[1] + m.d * v[3];
        writeNums({n0, n1, n2, n3, v[4], v[5]});
        return 1;
    }
    if (key == nmDA) {
        const std::streampos at = in.tellg();
        std::string t;
        readPDFString(in, t);
        if (t != "(" && t != "<") {
            in.clear();
            in.seekg(at);
            return 0;
        }
        CStringType s(self);
        s.isHex = t == "<";
        s.Read(in);
        s.Translate4Annot(m);
        out << ' ';
        s.Write(out, in);
        return 1;
    }
    if (key == nmMK) {
        if (peekIsDict()) mkDepth = dictDepth + 1;
        return 0;
    }
    if (key == nm3DA) {
        if (peekIsDict()) a3dDepth = dictDepth + 1;
        return 0;
    }
    if (key == nmA) {
        if (peekIsDict()) aDepth = dictDepth + 1;
        return 0;
    }
    if (key == nmR && turned && ((mkDepth && dictDepth == mkDepth) || (self.aux & kAnnotRotateMK))) {
        int r = 0;
        if (!ReadIntObj(in, r)) return -1;
        out << ' ' << ((r + 360 - rotate) % 360) << ' ';
        return 1;
    }
    // A go-to of a document part becomes a plain go-to of the page the part
    // starts on: "/S/GoTo", and /Dp becomes /D with the link's target.
    const bool inAction = (aDepth && dictDepth == aDepth) || ((self.aux & kAnnotLink) && dictDepth == 1);
    if (key == nmS && inAction) {
        const std::streampos at = in.tellg();
        std::string t;
        readPDFString(in, t);
        if (t == nmGoToDp) {
            out << nmGoTo << ' ';
            return 1;
        }
        in.clear();
        in.seekg(at);
        return 0;
    }
    if (key == nmDp && inAction && !remoteAction) {
        out.resize(out.size() - std::strlen(nmDp));
        out << nmD;
    }
    const bool targetKey = (key == nmDest && dictDepth == 1) || (key == nmDp && inAction && !remoteAction) ||
                           ((key == nmD || key == nmSD) &&
                            ((aDepth && dictDepth == aDepth) || ((self.aux & kAnnotLink) && dictDepth == 1)));
    if (targetKey) {
        if (remoteAction) return 0;
        SObj annot = self;
        auto owner = root.linkSet.find(self);
        if ((self.aux & kAnnotLink) && owner != root.linkSet.end()) annot = owner->second;
        auto it = out.linkTable.find(NewObjTable{ordinal, 0, annot.num, annot.gen});
        if (it != out.linkTable.end()) out << ' ' << it->second.num << ' ' << it->second.gen << ' ' << kwR << ' ';
        else out << " null ";
        scan::skipValue(in);
        return 1;
    }
    if (key == nmAnnots) {
        out.resize(out.size() - std::strlen(nmAnnots));
        scan::skipValue(in);
        return 1;
    }
    return 0;
}

}  // namespace PDF_KILN
