// The page tree: reading tree nodes and leaf pages, collecting a page's
// closure, and writing pages and group nodes.
#include "pdfkiln_obj_page.h"

#include <cstring>
#include <memory>

#include "pdfkiln_destfile.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_obj_annot.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

// How far a /Parent chain or a chain of /Kids references is followed before
// it is taken for a cycle.
constexpr int kMaxChain = 256;

bool atEnd(const std::istream& in, const std::string& token) {
    return !in.good() && (token.empty() || token.back() == '\0');
}

// Skips a literal string whose "(" was read: nested brackets and escapes.
void skipLiteral(std::istream& in) {
    int depth = 1;
    char c = 0;
    while (depth > 0 && in.get(c)) {
        if (c == '\\') {
            in.get(c);
        } else if (c == '(') {
            ++depth;
        } else if (c == ')') {
            --depth;
        }
    }
}

// Skips a hexadecimal string whose "<" was read.
void skipHex(std::istream& in) {
    char c = 0;
    while (in.get(c) && c != '>') {
    }
}

// Skips one value whose first token `token` was read: dictionaries and arrays
// to their matching closer, strings to their end.
void skipValueFrom(std::istream& in, const std::string& token) {
    if (tokenIs(token, "(")) {
        skipLiteral(in);
        return;
    }
    if (tokenIs(token, "<")) {
        skipHex(in);
        return;
    }
    if (!tokenIs(token, "<<") && !tokenIs(token, "[")) return;
    int depth = 1;
    std::string t;
    while (depth > 0 && in.good()) {
        readPDFString(in, t);
        if (atEnd(in, t)) return;
        if (tokenIs(t, "<<") || tokenIs(t, "[")) ++depth;
        else if (tokenIs(t, ">>") || tokenIs(t, "]")) --depth;
        else if (tokenIs(t, "(")) skipLiteral(in);
        else if (tokenIs(t, "<")) skipHex(in);
        else if (tokenIs(t, kwendobj) || tokenIs(t, kwstream)) return;
    }
}

bool readRect(CSourFile& in, RectTD& r) {
    std::vector<float> v;
    if (!CObj::ReadNumArrayObj(in, v) || v.size() < 4) return false;
    r.left = v[0];
    r.bottom = v[1];
    r.right = v[2];
    r.top = v[3];
    return true;
}

int normaliseRotate(int r) { return r % 90 == 0 ? r : 0; }

const char* const kBoxNames[5] = {nmMediaBox, nmCropBox, nmBleedBox, nmTrimBox, nmArtBox};

}  // namespace

// ---------------------------------------------------------------------------
// CPaperInfo

bool CPaperInfo::ReadRotate(CSourFile& in) {
    int v = 0;
    if (!CObj::ReadIntObj(in, v)) return false;
    rotate = v;
    return in.good();
}

void CPaperInfo::WriteRect(CDestFile& out, const RectTD& r) {
    out << " [" << static_cast<double>(r.left) << ' ' << static_cast<double>(r.bottom) << ' '
        << static_cast<double>(r.right) << ' ' << static_cast<double>(r.top) << " ] ";
}

// ---------------------------------------------------------------------------
// CPages: one node of the tree

void CPages::Init() {
    writtenBoxes = 0;
    kids.clear();
    type.clear();
    count = 0;
    pending.clear();
    sourceNo = 0;
    resourcesRef = SObj();
    directResources.clear();
    parentRef = SObj();
}

bool CPages::ReadKids(CSourFile& in, std::vector<SObj>& out) { return readKids(in, out, 0); }

bool CPages::readKids(CSourFile& in, std::vector<SObj>& out, int depth) {
    CObjRef ref;
    if (ref.Read(in)) {
        if (depth >= kMaxChain) return false;
        CSourFile& root = in.root();
        const std::streampos back = in.tellg();
        CObjReader at(in, SObj(ref.num, ref.gen));
        bool ok = at && readKids(at.stream(), out, depth + 1);
        root.clear();
        in.clear();
        in.seekg(back);
        return ok;
    }
    char c = 0;
    if (!(in >> c) || c != '[') return false;
    for (;;) {
        CObjRef item;
        if (!item.Read(in)) break;
        out.emplace_back(item.num, item.gen);
    }
    c = 0;
    in >> c;
    return c == ']';
}

bool CPages::Read(CSourFile& in) {
    CSourFile& owner = in.root();
    bool hasBox[5] = {false, false, false, false, false};
    RectTD boxes[5];
    bool hasRotate = false, hasResources = false, hasFont = false, hasXObject = false;
    int rotate = 0;
    SObj font, xobject;
    int dictDepth = 0, arrayDepth = 0;
    bool ok = true;
    std::string token;

    for (;;) {
        if (!in.good()) break;
        readPDFString(in, token);
        if (atEnd(in, token)) break;
        if (tokenIs(token, kwendobj) || tokenIs(token, kwstream)) break;
        if (tokenIs(token, "<<")) {
            ++dictDepth;
            continue;
        }
        if (tokenIs(token, ">>")) {
            if (--dictDepth <= 0) break;
            continue;
        }
        if (tokenIs(token, "[")) {
            ++arrayDepth;
            continue;
        }
        if (tokenIs(token, "]")) {
            if (arrayDepth > 0) --arrayDepth;
            continue;
        }
        if (tokenIs(token, "(") || tokenIs(token, "<")) {
            skipValueFrom(in, token);
            continue;
        }
        // Only the node's own keys count: names inside nested dictionaries
        // and arrays (a /Group's /Type, say) are values of other keys.
        if (dictDepth != 1 || arrayDepth != 0 || token[0] != '/') continue;

        if (tokenIs(token, nmType)) {
            readPDFString(in, type);
            if (!tokenIs(type, nmPages) && !tokenIs(type, nmPage)) break;
        } else if (tokenIs(token, nmParent)) {
            CObjRef ref;
            if (ref.Read(in)) {
                parentRef = SObj(ref.num, ref.gen, kClassParent);
                owner.parentMap[self] = parentRef;
            }
        } else if (tokenIs(token, nmResources)) {
            CObjRef ref;
            if (ref.Read(in)) {
                resourcesRef = SObj(ref.num, ref.gen, kClassResources);
                owner.ownerMap[resourcesRef] = self;
                hasResources = true;
            } else {
                std::string open;
                readPDFString(in, open);
                if (!tokenIs(open, "<<")) {
                    skipValueFrom(in, open);
                    continue;
                }
                int depth = 1;
                while (depth >= 1 && in.good()) {
                    CObjRef inner;
                    if (inner.Read(in)) {
                        directResources.emplace_back(inner.num, inner.gen);
                        continue;
                    }
                    std::string t;
                    readPDFString(in, t);
                    if (atEnd(in, t) || tokenIs(t, kwendobj)) break;
                    if (tokenIs(t, "(") || tokenIs(t, "<")) skipValueFrom(in, t);
                    else if (tokenIs(t, "<<")) ++depth;
                    else if (tokenIs(t, ">>")) --depth;
                }
            }
        } else if (tokenIs(token, nmFont) || tokenIs(token, nmXObject)) {
            CObjRef ref;
            if (ref.Read(in)) {
                const bool isFont = tokenIs(token, nmFont);
                SObj r(ref.num, ref.gen, isFont ? kClassFont : kClassXObject);
                owner.ownerMap[r] = self;
                (isFont ? font : xobject) = r;
                (isFont ? hasFont : hasXObject) = true;
            }
        } else if (tokenIs(token, nmContents)) {
            CObjRef ref;
            if (ref.Read(in)) owner.ownerMap[SObj(ref.num, ref.gen, kClassContents)] = self;
        } else if (tokenIs(token, nmRotate)) {
            int v = 0;
            if (ReadIntObj(in, v)) {
                rotate = normaliseRotate(v);
                hasRotate = true;
            }
            in.clear(in.rdstate() & ~std::ios::failbit);
        } else if (tokenIs(token, nmKids)) {
            kids.clear();
            if (!ReadKids(in, kids)) {
                ok = false;
                break;
            }
        } else if (tokenIs(token, nmCount)) {
            if (!ReadIntObj(in, count) || in.fail()) {
                ok = false;
                break;
            }
        } else {
            bool isBox = false;
            for (int b = 0; b < 5; ++b) {
                if (token == kBoxNames[b]) {
                    isBox = true;
                    if (readRect(in, boxes[b])) hasBox[b] = true;
                    in.clear(in.rdstate() & ~std::ios::failbit);
                    break;
                }
            }
            (void)isBox;
        }
    }
    if (!ok) return false;

    if (tokenIs(type, nmPages)) {
        const bool any = hasBox[0] || hasBox[1] || hasBox[2] || hasBox[3] || hasBox[4] || hasRotate ||
                         hasResources || hasFont || hasXObject;
        if (any) {
            // One running set of inherited values per source, not a stack:
            // a later sibling subtree sees what an earlier one stated.
            for (int b = 0; b < 5; ++b)
                if (hasBox[b]) owner.inheritedBox[b] = boxes[b];
            if (hasRotate) owner.inheritedRotate = rotate;
            if (hasResources) owner.inheritedResources = resourcesRef;
            if (hasFont) owner.inheritedFont = font;
            if (hasXObject) owner.inheritedXObject = xobject;
        }
        return true;
    }
    if (tokenIs(type, nmPage)) {
        CPaperInfo info;
        for (int b = 0; b < 5; ++b) info.box[b] = hasBox[b] ? boxes[b] : owner.inheritedBox[b];
        info.rotate = hasRotate ? rotate : owner.inheritedRotate;
        owner.pageRotate = info.rotate;
        info.resources = hasResources ? resourcesRef : owner.inheritedResources;
        info.font = hasFont ? font : owner.inheritedFont;
        info.xobject = hasXObject ? xobject : owner.inheritedXObject;
        if (!hasResources && info.resources.num) owner.ownerMap[info.resources] = self;
        if (!hasFont && info.font.num) owner.ownerMap[info.font] = self;
        if (!hasXObject && info.xobject.num) owner.ownerMap[info.xobject] = self;
        owner.setPaperInfo(self, info);
        return true;
    }
    return false;
}

bool CPages::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<";
    out.curObj = SObj(self.num, self.gen);
    out << nmType << nmPages << nmCount << ' ' << count << nmKids << '[';
    for (const SObj& k : kids) out << k.num << ' ' << k.gen << " R ";
    out << ']' << kw_n;
    if (sourceNo >= 1 && !pending.empty()) {
        WriteOther(out);
        out << nmParent << ' ' << out.rootPages.num << ' ' << out.rootPages.gen << " R ";
    } else if (sourceNo >= 1) {
        out << nmParent << ' ' << out.rootPages.num << ' ' << out.rootPages.gen << " R ";
    }
    out << ">>" << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

int CPages::WriteOther(CDestFile& out) {
    if (pending.empty() || writtenBoxes != 0) return 0;
    int guard = 0;
    while (!pending.empty() && guard++ < kMaxChain) {
        const SObj node = pending.front();
        pending.pop_front();
        CSourFile* src = out.GetSourFile(sourceNo);
        if (!src) break;
        const std::streampos back = src->tellg();
        CPages tmp(node);
        tmp.flags |= kIndirect;
        tmp.sourceNo = sourceNo;
        tmp.writtenBoxes = writtenBoxes;
        CObjReader at(*src, node);
        bool ok = at && tmp.WriteOtherInfo(out, at.stream());
        writtenBoxes = tmp.writtenBoxes;
        for (const SObj& p : tmp.pending) pending.push_back(p);
        src->clear();
        src->seekg(back);
        if (!ok) break;
    }
    return 1;
}

bool CPages::WriteOtherInfo(CDestFile& out, CSourFile& in) {
    CSourFile& owner = in.root();
    std::string token;
    int dictDepth = 0;
    for (;;) {
        readPDFString(in, token);
        if (atEnd(in, token) || tokenIs(token, kwendobj) || tokenIs(token, kwstream)) break;
        if (tokenIs(token, "<<")) {
            ++dictDepth;
            continue;
        }
        if (tokenIs(token, ">>")) {
            if (--dictDepth <= 0) break;
            continue;
        }
        if (tokenIs(token, "(") || tokenIs(token, "<") || tokenIs(token, "[")) {
            skipValueFrom(in, token);
            continue;
        }
        if (dictDepth != 1) continue;
        if (tokenIs(token, nmParent)) {
            CObjRef ref;
            if (ref.Read(in)) {
                SObj p(ref.num, ref.gen);
                pending.push_back(p);
                owner.parentMap[self] = p;
            }
        } else if ((tokenIs(token, nmMediaBox) && !(writtenBoxes & kWroteMediaBox)) ||
                   (tokenIs(token, nmCropBox) && !(writtenBoxes & kWroteCropBox))) {
            RectTD r;
            if (readRect(in, r)) {
                out << token;
                CPaperInfo::WriteRect(out, r);
                writtenBoxes |= tokenIs(token, nmMediaBox) ? kWroteMediaBox : kWroteCropBox;
            }
            in.clear(in.rdstate() & ~std::ios::failbit);
        } else if (tokenIs(token, nmRotate) && !(writtenBoxes & kWroteRotate)) {
            int v = 0;
            if (ReadIntObj(in, v)) {
                out << nmRotate << ' ' << v << ' ';
                writtenBoxes |= kWroteRotate;
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// CPage: one page in depth

void CPage::enterReference(CSourFile& owner, SObj ref, std::list<SObj>& work) {
    if (owner.fileObjects.count(ref)) return;
    owner.insertFileObject(ref);
    if ((ref.aux & (kClassAnnots | kClassContents)) || ref.num == 0) return;
    StreamRecover<CSourFile> keep(owner);
    PieceInfoSelector selector(&owner, owner.pieceMarks[0].c_str(), owner.pieceMarks[1].c_str(),
                               owner.pieceMarks[2].c_str(), ref.num, ref.gen);
    bool marked = false;
    try {
        marked = selector.match();
    } catch (const std::exception&) {
        marked = false;
    }
    if (marked) owner.pieceSet.insert(ref);
    else work.push_back(ref);
}

bool CPage::Read(CSourFile& in) {
    CSourFile& owner = in.root();
    // Each page starts its own lists; the used set grows across pages.
    owner.contentsSet.clear();
    owner.contentsVector.clear();
    owner.resourcesSet.clear();
    owner.resourcesVector.clear();
    owner.annotsSet.clear();
    owner.annotsVector.clear();
    owner.annotsMet.clear();
    owner.createdObjects.clear();
    owner.destMap.clear();
    groupText.clear();

    std::list<SObj> work;
    SObj parent;
    bool ownResources = false;
    int dictDepth = 0, arrayDepth = 0;
    int cls = 0;
    bool skipDest = false;
    int destDepth = 0;
    std::string token, prev;

    auto guard = [&](const SObj& r) {
        if (owner.isPage(r)) throw static_cast<int>(kResultBadFile);
    };

    for (;;) {
        if (!in.good()) break;
        CObjRef ref;
        if (ref.Read(in)) {
            prev = kwR;
            if (skipDest || (cls & (kClassThumb | kClassIllustrator))) continue;
            const bool pageLevel = dictDepth == 1;
            int c = pageLevel ? cls : 0;
            SObj r(ref.num, ref.gen, c);
            if (pageLevel && (c & (kClassParent | kClassAnnotArray))) {
                if (c & kClassParent) {
                    owner.parentMap[self] = SObj(ref.num, ref.gen);
                    parent = SObj(ref.num, ref.gen);
                }
                continue;
            }
            guard(r);
            enterReference(owner, r, work);
            if (c & kClassContents) {
                if (owner.contentsSet.insert(r).second) {
                    owner.contentsVector.push_back(r);
                    ReadTree(in, r, owner.contentsSet, &owner.contentsVector);
                }
            } else if (c & kClassResources) {
                if (owner.resourcesSet.insert(r).second) owner.resourcesVector.push_back(r);
                ownResources = true;
            } else if (c & kClassAnnots) {
                // The array object: its annotations and what they reach
                // enter the closure under the caller's masks.
                if (owner.annotsSet.insert(r).second) {
                    StreamRecover<CSourFile> keep(owner);
                    CAnnot annot(SObj(r.num, r.gen, kClassAnnots));
                    CObjReader at(owner, SObj(r.num, r.gen));
                    if (at) annot.Read(at.stream());
                    owner.clear();
                }
            }
            continue;
        }
        readPDFString(in, token);
        if (atEnd(in, token)) break;
        if (tokenIs(token, kwendobj)) break;
        if (tokenIs(token, kwstream)) {
            owner.FindStr(kwendstream);
            continue;
        }
        if (tokenIs(token, "<<")) {
            ++dictDepth;
            cls = 0;
            prev = token;
            continue;
        }
        if (tokenIs(token, ">>")) {
            --dictDepth;
            cls = 0;
            prev = token;
            if (dictDepth <= 0) break;
            continue;
        }
        if (tokenIs(token, "(") || tokenIs(token, "<")) {
            skipValueFrom(in, token);
            prev = token;
            continue;
        }
        if (tokenIs(token, "[")) {
            if (dictDepth == 1 && arrayDepth == 0 && tokenIs(prev, nmAnnots)) {
                // A direct annotation array: its dictionaries and references
                // belong to the annotation classes (their /P and /Dest lead
                // back to pages); the scan goes on behind its "]".
                const std::streampos open = in.tellg();
                CAnnot annot(SObj(self.num, self.gen, kClassAnnotArray));
                annot.direct = true;
                in.clear();
                in.seekg(open - std::streamoff(1));
                annot.Read(in);
                in.clear();
                in.seekg(open);
                skipValueFrom(in, token);
                cls = 0;
                prev = "]";
                continue;
            }
            ++arrayDepth;
            prev = token;
            continue;
        }
        if (tokenIs(token, "]")) {
            if (arrayDepth > 0) --arrayDepth;
            if (skipDest && arrayDepth < destDepth) skipDest = false;
            prev = token;
            continue;
        }
        if (tokenIs(token, nmDest)) {
            // Destinations name pages: their references are not the page's.
            const std::streampos at = in.tellg();
            std::string next;
            readPDFString(in, next);
            if (tokenIs(next, "[")) {
                ++arrayDepth;
                skipDest = true;
                destDepth = arrayDepth;
            } else {
                in.clear();
                in.seekg(at);
            }
            prev = token;
            continue;
        }
        if (token[0] == '/' && dictDepth == 1 && arrayDepth == 0) {
            if (token.find(nmResources) != std::string::npos) cls = kClassResources;
            else if (token.find(nmContents) != std::string::npos) cls = kClassContents;
            else if (token.find(nmParent) != std::string::npos) cls = kClassParent;
            else if (token.find(nmAnnots) != std::string::npos) cls = kClassAnnots;
            else if (token.find(nmThumb) != std::string::npos) cls = kClassThumb;
            else if (token.find(nmIllustrator) != std::string::npos) cls = kClassIllustrator;
            else cls = 0;
            if (tokenIs(token, nmRotate)) {
                int v = 0;
                if (ReadIntObj(in, v)) owner.pageRotate = normaliseRotate(v);
                in.clear(in.rdstate() & ~std::ios::failbit);
            } else if (tokenIs(token, nmGroup)) {
                const std::streampos at = in.tellg();
                std::string next;
                readPDFString(in, next);
                if (tokenIs(next, "<<")) {
                    const std::streampos from = in.tellg();
                    skipValueFrom(in, next);
                    std::streampos to = in.tellg();
                    in.clear();
                    if (to == std::streampos(-1)) {
                        in.seekg(0, std::ios::end);
                        to = in.tellg();
                    }
                    const std::size_t n = static_cast<std::size_t>(to - from);
                    groupText.assign("<<");
                    std::string raw(n, '\0');
                    in.seekg(from);
                    in.read(&raw[0], static_cast<std::streamsize>(n));
                    raw.resize(static_cast<std::size_t>(in.gcount()));
                    groupText += raw;
                    in.clear();
                    in.seekg(to);
                } else {
                    in.clear();
                    in.seekg(at);
                }
            }
        }
        prev = token;
    }

    if (!ownResources && parent.num) {
        SObj found;
        std::vector<SObj> direct;
        SObj start = parent;
        getParentResource(in, start, found, direct);
        if (found.num) {
            found.aux = kClassResources;
            guard(found);
            enterReference(owner, found, work);
            if (owner.resourcesSet.insert(found).second) owner.resourcesVector.push_back(found);
        }
        for (const SObj& d : direct) {
            if (owner.isPage(d) || owner.fileObjects.count(d)) continue;
            SObj o(d.num, d.gen);
            owner.insertFileObject(o);
            work.push_back(o);
        }
    }
    in.clear();
    return ReadOthers(in, work);
}

bool CPage::getParentResource(CSourFile& in, SObj& start, SObj& found, std::vector<SObj>& direct) {
    CSourFile& owner = in.root();
    std::set<SObj> seen;
    SObj at = start;
    found = SObj();
    direct.clear();
    while (at.num > 0 && seen.insert(at).second && static_cast<int>(seen.size()) <= kMaxChain) {
        // Each tree node is read once per opening: what it says about
        // resources and its parent is kept for every later page under it.
        auto known = owner.nodeResources.find(SObj(at.num, at.gen));
        if (known == owner.nodeResources.end()) {
            StreamRecover<CSourFile> keep(owner);
            CPages node(SObj(at.num, at.gen));
            node.fromStream(owner);
            CSourFile::NodeResources learnt;
            learnt.resources = SObj(node.resourcesRef.num, node.resourcesRef.gen);
            learnt.direct = node.directResources;
            learnt.parent = node.parentRef;
            known = owner.nodeResources.emplace(SObj(at.num, at.gen), std::move(learnt)).first;
        }
        const CSourFile::NodeResources& node = known->second;
        if (node.resources.num) {
            found = node.resources;
            return true;
        }
        if (!node.direct.empty()) {
            direct = node.direct;
            return true;
        }
        at = node.parent;
    }
    return false;
}

int CPage::ReadTree(CSourFile& in, SObj start, std::set<SObj>& seen, std::vector<SObj>* order) {
    CSourFile& root = in.root();
    StreamRecover<CSourFile> keepRoot(root);
    std::list<SObj> work{start};
    while (!work.empty()) {
        const SObj entry = work.front();
        work.pop_front();
        CObjReader reader(root, SObj(entry.num, entry.gen));
        if (!reader) {
            root.clear();
            continue;
        }
        CSourFile& s = reader.stream();
        s >> std::ws;
        const int first = s.peek();
        CObjRef probe;
        const std::streampos at = s.tellg();
        const bool startsWithRef = probe.Read(s);
        s.clear();
        s.seekg(at);
        if (!startsWithRef && first != '[') return 1;
        std::string token;
        int items = 0;
        for (;;) {
            if (!s.good()) break;
            CObjRef ref;
            if (ref.Read(s)) {
                SObj r(ref.num, ref.gen, kClassContents);
                if (seen.insert(r).second) {
                    if (order) order->push_back(r);
                    work.push_back(r);
                }
                if (++items > 1 << 20) break;
                continue;
            }
            readPDFString(s, token);
            if (atEnd(s, token) || tokenIs(token, kwendobj) || tokenIs(token, kwstream)) break;
        }
        root.clear();
    }
    return 1;
}

bool CPage::ReadObjs(CSourFile* owner, CSourFile& in, std::list<SObj>& work) {
    CSourFile& own = owner ? *owner : in.root();
    std::string token;
    for (;;) {
        if (!in.good()) break;
        CObjRef ref;
        if (ref.Read(in)) {
            SObj r(ref.num, ref.gen);
            if (own.isPage(r)) continue;
            auto it = own.fileObjects.find(r);
            if (it != own.fileObjects.end()) {
                // An object that so far came only as the page's content or
                // resources is also an object of its own here (a form that
                // shares the page's resource dictionary): deliver it too.
                if (it->aux & (kClassContents | kClassResources)) {
                    SObj copy = *it;
                    copy.aux &= ~(kClassContents | kClassResources);
                    own.fileObjects.erase(it);
                    own.fileObjects.insert(copy);
                    own.freshObjects.push_back(copy);
                }
                continue;
            }
            enterReference(own, r, work);
            continue;
        }
        readPDFString(in, token);
        if (atEnd(in, token) || tokenIs(token, kwendobj) || tokenIs(token, kwstream)) break;
        if (tokenIs(token, "(") || tokenIs(token, "<")) skipValueFrom(in, token);
    }
    return true;
}

bool CPage::ReadOthers(CSourFile& in, std::list<SObj>& work) {
    CSourFile& root = in.root();
    StreamRecover<CSourFile> keep(root);
    const SObj saved = self;
    bool ok = true;
    while (!work.empty()) {
        const SObj entry = work.front();
        work.pop_front();
        self = entry;
        const SObjState st = GetObjState(root, entry);
        if (st.kind == 2 || st.pos > 0) {
            CObjReader at(root, SObj(entry.num, entry.gen));
            if (at) ReadObjs(&root, at.stream(), work);
            else if (!(entry.aux & (kClassAnnots | kClassAnnotArray))) ok = false;
        } else if (!(entry.aux & (kClassAnnots | kClassAnnotArray))) {
            ok = false;
        }
        root.clear();
    }
    self = saved;
    return ok;
}

bool CPage::Write(CDestFile& out, CSourFile& in) {
    if (out.keepNumbers()) {
        out << self.num << ' ' << self.gen << ' ' << kwobj << ' ';
        LocalObj(out, in);
        return true;
    }
    const SObj* mapped = out.newNumber(self.num, self.gen);
    if (!mapped) return false;
    const SObj target(mapped->num, mapped->gen);
    out.RecordObjInfo(target);
    // The group node of this source collects its pages; the root node's
    // /Count is the sum of the groups' counts (see CDestFile::WritePages).
    CSourFile& src = in.root();
    if (!src.groupNode) {
        src.groupNode.reset(new CPages);
        src.groupNode->type = nmPages;
        src.groupNode->sourceNo = out.curFile;
        src.groupNode->self = src.groupNo;
    }
    src.groupNode->kids.push_back(target);
    ++src.groupNode->count;
    out << target.num << ' ' << target.gen << ' ' << kwobj << ' ';
    out.curObj = target;
    LocalObj(out, in);
    return true;
}

// The page's span copier: as CObj::WriteObj, but /Contents, /Annots,
// /MediaBox and /CropBox never reach the output (the embedding program
// supplies them), and a reference that cannot be mapped becomes null while
// its key stays.
bool CPage::WriteObj(CDestFile& out, CSourFile& in) { return CopyBody(out, in, CopyRules::Page); }

// ---------------------------------------------------------------------------
// The source's page tree and closure

void CSourFile::setPaperInfo(const SObj& page, CPaperInfo* info) {
    std::unique_ptr<CPaperInfo> own(info);
    if (info) paperInfo.set(page, *info);
}

const CPaperInfo* CSourFile::getPaperInfo(const SObj& page) const { return paperInfo.get(page); }

bool PaperTable::Record::operator==(const Record& o) const {
    auto same = [](const SRef& a, const SRef& b) { return a.num == b.num && a.gen == b.gen && a.aux == b.aux; };
    return std::memcmp(box, o.box, sizeof box) == 0 && rotate == o.rotate && same(resources, o.resources) &&
           same(font, o.font) && same(xobject, o.xobject);
}

void PaperTable::fill(const Record& rec, CPaperInfo& info) {
    for (int b = 0; b < 5; ++b) info.box[b] = rec.box[b];
    info.rotate = rec.rotate;
    info.resources = rec.resources;
    info.font = rec.font;
    info.xobject = rec.xobject;
}

void PaperTable::set(const SObj& page, const CPaperInfo& info) {
    Record rec;
    for (int b = 0; b < 5; ++b) rec.box[b] = info.box[b];
    rec.rotate = info.rotate;
    rec.resources = info.resources;
    rec.font = info.font;
    rec.xobject = info.xobject;
    std::size_t at = records_.size();
    for (std::size_t back = 1; back <= 8 && back <= records_.size(); ++back) {
        if (records_[records_.size() - back] == rec) {
            at = records_.size() - back;
            break;
        }
    }
    if (at == records_.size()) records_.push_back(rec);
    index_[page] = static_cast<std::uint32_t>(at);
    if (auto shown = shown_.find(page); shown != shown_.end()) fill(rec, *shown->second);
}

const CPaperInfo* PaperTable::get(const SObj& page) const {
    if (const auto* shown = shown_.get(page)) return shown->get();
    const std::uint32_t* at = index_.get(page);
    if (!at) return nullptr;
    auto info = std::make_unique<CPaperInfo>();
    fill(records_[*at], *info);
    return (shown_[page] = std::move(info)).get();
}

void PaperTable::clear() {
    index_.clear();
    std::vector<Record>().swap(records_);
    shown_.clear();
}

void CSourFile::clearPageTree() {
    paperInfo.clear();
    ownerMap.clear();
    parentMap.clear();
    pages.clear();
    pageSet.clear();
    for (RectTD& r : inheritedBox) r = RectTD();
    inheritedRotate = 0;
    inheritedResources = inheritedFont = inheritedXObject = SObj();
    nodeResources.clear();
}

int CSourFile::readPageTree() {
    clearPageTree();
    if (catalog.pagesRef.num <= 0) return kResultOk;
    std::list<SObj> work{SObj(catalog.pagesRef.num, catalog.pagesRef.gen)};
    std::set<SObj> nodesSeen;
    while (!work.empty()) {
        const SObj head = work.front();
        CPages node(head);
        clear();
        node.fromStream(*this);
        clear();
        if (tokenIs(node.type, nmPages)) {
            // A node met twice (a /Kids cycle, or a shared subtree) is
            // walked once.
            if (nodesSeen.insert(head).second) {
                auto at = std::next(work.begin());
                for (const SObj& k : node.kids) work.insert(at, SObj(k.num, k.gen));
            }
        } else if (tokenIs(node.type, nmPage)) {
            pages.push_back(head);
            pageSet.insert(head);
        } else if (fileInfo.encrypt.passwordState != 3) {
            return kResultBadFile;
        }
        work.pop_front();
    }
    return kResultOk;
}

// The digest of a stream object (its text) is what a caller's stream map is
// matched against; the numbering computes it when a map is set, so the
// closure is not rendered twice here.
void CSourFile::insertFileObject(SObj& o) {
    if (fileObjects.insert(o).second) freshObjects.push_back(o);
}

void CSourFile::readPageClosure(const SObj& page) {
    CPage p(page);
    try {
        p.fromStream(*this);
    } catch (int) {
    }
    clear();
}

}  // namespace PDF_KILN
