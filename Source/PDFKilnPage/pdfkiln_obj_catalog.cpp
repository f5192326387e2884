// The document catalog: two passes over its dictionary, a minimal writer.
#include "pdfkiln_obj_catalog.h"

#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_obj_struct.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

// Steps over an optional "N G obj" header and the dictionary's "<<".
bool openObjectDict(CSourFile& in) {
    std::streampos at = in.tellg();
    if (!CObj::IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    std::string token;
    readPDFString(in, token);
    return tokenIs(token, "<<");
}

}  // namespace

bool skipValue(CSourFile& in) {
    int dicts = 0, arrays = 0;
    std::string token;
    do {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (tokenIs(token, "<<")) {
            ++dicts;
        } else if (tokenIs(token, ">>")) {
            if (dicts == 0) return false;
            --dicts;
        } else if (tokenIs(token, "[")) {
            ++arrays;
        } else if (tokenIs(token, "]")) {
            if (arrays == 0) return false;
            --arrays;
        } else if (tokenIs(token, "(")) {
            int depth = 1;
            while (depth > 0) {
                readPDFString(in, token);
                if (!in.good()) return false;
                if (token == "\\") {
                    readPDFString(in, token);  // the escaped byte
                    if (!in.good()) return false;
                } else if (tokenIs(token, "(")) {
                    ++depth;
                } else if (tokenIs(token, ")")) {
                    --depth;
                }
            }
        }
    } while (dicts != 0 || arrays != 0);
    return true;
}

bool CCatalogEntry::Read(CSourFile& in) {
    std::streampos at = in.tellg();
    if (!IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    readOk = skipValue(in);
    return readOk;
}

bool CMarkInfo::Read(CSourFile& in) {
    std::streampos at = in.tellg();
    if (!IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    marked = false;
    readOk = false;
    std::string token;
    readPDFString(in, token);
    if (token != "<<") return false;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (token == ">>") break;
        if (token == "/Marked") {
            readPDFString(in, token);
            if (!in.good()) return false;
            marked = token == "true";
        } else if (!token.empty() && token[0] == '/') {
            if (!skipValue(in)) return false;
        } else {
            return false;
        }
    }
    readOk = true;
    return true;
}

CCatalog::CCatalog() { flags |= kIndirect; }

void CCatalog::Init() {
    names.Init();
    acroForm.Init();
    ocProperties.Init();
    pagesRef = SObj();
    visited.clear();
    type.clear();
    versionName.clear();
    minorVersion = -1;
    namesPending = false;
    namesSeen = false;
    structTreeRootRef = dPartRootRef = SObj();
    structureRead = false;
}

bool CCatalog::Read(CSourFile& in) {
    readOk = namesPending ? readSecondPass(in) : readFirstPass(in);
    return readOk;
}

// Opening looks at the stream, not at a result: a catalog whose read fails
// leaves the file's stream failed, wherever the catalog itself was stored.
void CCatalog::fromStream(CSourFile& in) {
    readOk = true;
    CObj::fromStream(in);
    if (!readOk) in.root().setstate(std::ios::failbit);
}

// Reads the entry's dictionary: by number when it is a reference (the
// catalog then goes on behind the reference), in place when it is direct
// (and the catalog goes on behind the dictionary). Its errors stay its own.
void CCatalog::readEntry(CSourFile& in, CCatalogEntry& entry) {
    CObjRef ref;
    if (ref.Read(in)) {
        std::streampos behind = in.tellg();
        entry.self = SObj(ref.num, ref.gen);
        entry.heldByReference = true;
        entry.flags |= kIndirect;
        entry.fromStream(in);
        in.clear();
        in.seekg(behind);
        return;
    }
    entry.heldByReference = false;
    std::streampos start = in.tellg();
    if (entry.Read(in)) return;
    in.clear();
    in.seekg(start);
    if (!skipValue(in)) {
        in.clear();
        in.seekg(start);
    }
}

// Logical structure and document parts are walked for the pages their nodes
// name, once per source, and only when a destination first asks
// (readStructure): a tagged file does not pay for its tree at every opening.
// A root held by reference is noted here; one standing in the catalog (which
// the standard does not allow) is walked in place now. The walk's errors are
// its own: the catalog goes on behind the value.
template <class Root>
void CCatalog::readTreeRoot(CSourFile& in, SObj& noted, bool mapFilled) {
    const std::streampos start = in.tellg();
    CObjRef ref;
    if (ref.Read(in)) {
        noted = SObj(ref.num, ref.gen);
        return;
    }
    if (!mapFilled) {
        Root root;
        root.flags &= ~CObj::kIndirect;
        if (root.Read(in)) return;
    }
    in.clear();
    in.seekg(start);
    if (!skipValue(in)) {
        in.clear();
        in.seekg(start);
    }
}

void CCatalog::readStructure(CSourFile& in) {
    if (structureRead) return;
    structureRead = true;
    CSourFile& root = in.root();
    StreamRecover<CSourFile> keep(root);
    // A map that is filled already (the catalog read again) is not walked again.
    if (structTreeRootRef.num > 0 && root.tagPages.empty()) {
        CStructTreeRoot tree(structTreeRootRef);
        tree.fromStream(root);
        root.clear();
    }
    if (dPartRootRef.num > 0 && root.partPages.empty()) {
        CDPartRoot parts(dPartRootRef);
        parts.fromStream(root);
        root.clear();
    }
}

bool CCatalog::readVersion(CSourFile& in) {
    std::string token;
    CObjRef ref;
    if (ref.Read(in)) {
        CObj value(SObj(ref.num, ref.gen));
        CDestFile sink;
        std::streampos behind = in.tellg();
        CSourFile& root = in.root();
        if (!value.LocalObj(sink, root)) return false;
        root.clear();
        if (&in == &root) in.seekg(behind);
        std::istringstream body(sink);
        readPDFString(body, token);
    } else {
        readPDFString(in, token);
    }
    versionName = token;
    if (token.size() != 4 || token[0] != '/') return false;
    if (token[1] == '1' && token[3] >= '0' && token[3] <= '7') minorVersion = token[3] - '0';
    else if (token[1] == '2' && token[3] == '0') minorVersion = 10;
    else return false;
    return true;
}

bool CCatalog::readFirstPass(CSourFile& in) {
    if (!openObjectDict(in)) return false;
    CObjectPosition positions(&in);
    const bool bounded = !in.objectStreamView && positions.getObjType(self) == 1;
    const int64_t end = bounded ? positions.getEndPosition(self) : CObjectPosition::unknownPosition;
    bool namesSeen = false;
    std::string token;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (tokenIs(token, kwendobj)) break;
        if (bounded && static_cast<int64_t>(in.tellg()) > end) break;
        if (tokenIs(token, nmPages) || tokenIs(token, nmMetadata)) {
            CObjRef ref;
            if (!ref.Read(in)) return false;
            (tokenIs(token, nmPages) ? pagesRef : metadataRef) = SObj(ref.num, ref.gen);
        } else if (tokenIs(token, nmAcroForm)) {
            readEntry(in, acroForm);
        } else if (tokenIs(token, nmMarkInfo)) {
            // A direct /MarkInfo (the common case) is read in place and never
            // fails the catalog; a referenced one is fetched by number.
            readEntry(in, markInfo);
            if (!in.good()) return false;
        } else if (tokenIs(token, nmVersion)) {
            if (!readVersion(in)) return false;
        } else if (tokenIs(token, nmNames) && !namesSeen) {
            namesSeen = true;  // read on the second pass, once the pages stand
        } else if (tokenIs(token, nmOCProperties)) {
            readEntry(in, ocProperties);
        } else if (tokenIs(token, nmDPartRoot)) {
            readTreeRoot<CDPartRoot>(in, dPartRootRef, !in.root().partPages.empty());
        } else if (tokenIs(token, nmStructTreeRoot)) {
            readTreeRoot<CStructTreeRoot>(in, structTreeRootRef, !in.root().tagPages.empty());
        } else if (tokenIs(token, nmType) && !namesSeen) {
            readPDFString(in, type);
        } else if (!token.empty() && token[0] == '/' && !namesSeen) {
            if (!skipValue(in)) return false;
        }
    }
    // The second pass reads /Names, and enters what the form reaches, once
    // the pages are known.
    this->namesSeen = namesSeen;
    namesPending = namesSeen || !acroForm.pending.empty();
    return true;
}

bool CCatalog::readSecondPass(CSourFile& in) {
    if (!acroForm.pending.empty()) {
        StreamRecover<CSourFile> keep(in);
        acroForm.ReadOthers(in);
    }
    if (!namesSeen) return true;
    if (!openObjectDict(in)) return false;
    std::string token;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (tokenIs(token, kwendobj)) return true;
        if (!tokenIs(token, nmNames)) continue;
        if (names.self.num != 0) return true;
        CObjRef ref;
        const bool isRef = ref.Read(in);
        std::streampos behind = in.tellg();
        if (isRef) {
            names.self = SObj(ref.num, ref.gen);
            names.heldByReference = true;
            names.fromStream(in);
        } else if (!names.walked) {
            names.Read(in);
        }
        if (!in.good()) return false;
        in.seekg(behind);
        return true;
    }
}

bool CCatalog::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<";
    out.curObj = SObj(self.num, self.gen);
    out << "/Type/Catalog/Pages " << out.rootPages.num << ' ' << out.rootPages.gen << " R ";
    if (acroForm.self.num > 0) out << "/AcroForm " << acroForm.self.num << ' ' << acroForm.self.gen << " R ";
    if (ocProperties.self.num > 0)
        out << "/OCProperties " << ocProperties.self.num << ' ' << ocProperties.self.gen << " R ";
    if (names.self.num > 0) out << "/Names " << names.self.num << ' ' << names.self.gen << " R ";
    out << ">>" << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

}  // namespace PDF_KILN
