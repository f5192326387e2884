// The shared dictionary readers of the structure classes (see pdfkiln_scan.h).
#include "pdfkiln_scan.h"

#include <functional>

namespace PDF_KILN {
namespace scan {

namespace {

// References followed to reach an array that stands in an object of its own.
constexpr int kMaxFollow = 4;

void skipString(CSourFile& in, const std::string& opener) {
    CStringType s;
    s.isHex = opener == "<";
    s.noDecrypt = true;
    s.Read(in);
}

// Reads up to the closer of the value opened by `opener`; every reference on
// the way goes to `refs` when one is given (only those at the value's own
// level with `flat` false).
bool readOpened(CSourFile& in, const std::string& opener, std::vector<SObj>* refs, bool flat) {
    if (opener == "(" || opener == "<") {
        skipString(in, opener);
        return in.good() || in.eof();
    }
    int depth = 1;
    std::string token;
    while (depth > 0) {
        CObjRef ref;
        if (ref.Read(in)) {
            if (refs && (flat || depth == 1)) refs->push_back(SObj(ref.num, ref.gen));
            continue;
        }
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) return false;
        if (token == "<<" || token == "[") ++depth;
        else if (token == ">>" || token == "]") --depth;
        else if (token == "(" || token == "<") skipString(in, token);
    }
    return true;
}

}  // namespace

bool ended(const std::istream& in, const std::string& token) {
    return !in.good() && (token.empty() || token.back() == '\0');
}

bool openDict(CSourFile& in) {
    const std::streampos at = in.tellg();
    if (!CObj::IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    std::string token;
    readPDFString(in, token);
    return token == "<<";
}

bool skipOpened(CSourFile& in, const std::string& opener) { return readOpened(in, opener, nullptr, true); }

bool skipValue(CSourFile& in) {
    CObjRef ref;
    if (ref.Read(in)) return true;
    std::string token;
    readPDFString(in, token);
    if (ended(in, token) || token == kwendobj || token == kwstream) return false;
    if (token == "<<" || token == "[" || token == "(" || token == "<") return readOpened(in, token, nullptr, true);
    return true;
}

bool collectRefs(CSourFile& in, std::vector<SObj>& out) {
    CObjRef ref;
    if (ref.Read(in)) {
        out.push_back(SObj(ref.num, ref.gen));
        return true;
    }
    std::string token;
    readPDFString(in, token);
    if (ended(in, token) || token == kwendobj || token == kwstream) return false;
    if (token == "<<" || token == "[" || token == "(" || token == "<") return readOpened(in, token, &out, true);
    return true;
}

bool readRefArray(CSourFile& in, std::vector<SObj>& out, bool flat) {
    std::function<bool(CSourFile&, int)> read = [&](CSourFile& at, int follow) -> bool {
        CObjRef ref;
        if (ref.Read(at)) {
            if (follow >= kMaxFollow) return false;
            return atObject(at, SObj(ref.num, ref.gen), [&](CSourFile& s) { return read(s, follow + 1); });
        }
        std::string token;
        readPDFString(at, token);
        if (token != "[") {
            if (token == "<<" || token == "(" || token == "<") skipOpened(at, token);
            return false;
        }
        return readOpened(at, token, &out, flat);
    };
    return read(in, 0);
}

}  // namespace scan
}  // namespace PDF_KILN
