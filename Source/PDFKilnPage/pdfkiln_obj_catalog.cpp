// The document catalog: two passes over its dictionary, a minimal writer.
#include "pdfkiln_obj_catalog.h"

#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_destfile.h"
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
    pagesRef = SObj();
    visited.clear();
    type.clear();
    versionName.clear();
    minorVersion = -1;
    namesPending = false;
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
    if (!entry.Read(in)) {
        in.clear();
        in.seekg(start);
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
        } else if (tokenIs(token, nmDPartRoot) || tokenIs(token, nmStructTreeRoot)) {
            // Document parts and structure are read where destinations need
            // them; here their value is passed over.
            CObjRef ref;
            if (!ref.Read(in)) {
                std::streampos start = in.tellg();
                if (!skipValue(in)) {
                    in.clear();
                    in.seekg(start);
                }
            }
        } else if (tokenIs(token, nmType) && !namesSeen) {
            readPDFString(in, type);
        } else if (!token.empty() && token[0] == '/' && !namesSeen) {
            if (!skipValue(in)) return false;
        }
    }
    namesPending = namesSeen;
    return true;
}

bool CCatalog::readSecondPass(CSourFile& in) {
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
        } else {
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
