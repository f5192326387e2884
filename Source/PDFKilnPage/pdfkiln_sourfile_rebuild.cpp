// The last resort of opening, when asked for: an object table made from the
// "N G obj" headers that stand in the file's bytes, with the trailer (or the
// catalog) found the same way. Used when the cross-reference chain gives no
// usable catalog, as other readers do for a missing or wrong "startxref".
#include <climits>
#include <cstring>
#include <vector>

#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\0'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
// A byte that may stand behind a keyword: white space, a delimiter, the end.
bool endsWord(const std::string& b, std::size_t at) {
    return at >= b.size() || isSpace(b[at]) || charClass(b[at]) == 2 || b[at] == '%';
}

// The keyword at `at` stands alone: a word boundary on both sides.
bool wordAt(const std::string& b, std::size_t at, std::size_t len) {
    return (at == 0 || isSpace(b[at - 1]) || charClass(b[at - 1]) == 2) && endsWord(b, at + len);
}

// Reads the digits that end just before `end` (white space skipped first);
// the start of the digits, or npos.
std::size_t digitsBefore(const std::string& b, std::size_t end, long long& value) {
    std::size_t p = end;
    while (p > 0 && isSpace(b[p - 1])) --p;
    if (p == end) return std::string::npos;  // a separator is needed
    const std::size_t last = p;
    while (p > 0 && isDigit(b[p - 1]) && last - p < 10) --p;
    if (p == last || (p > 0 && isDigit(b[p - 1]))) return std::string::npos;
    value = 0;
    for (std::size_t i = p; i < last; ++i) value = value * 10 + (b[i] - '0');
    return p;
}

// What a dictionary at `from` (up to `to`) says its /Type is, when it is one
// of the two that matter here.
bool typeIs(const std::string& b, std::size_t from, std::size_t to, const char* type) {
    static const char key[] = "/Type";
    const std::size_t len = std::strlen(type);
    for (std::size_t p = b.find(key, from); p != std::string::npos && p < to; p = b.find(key, p + 1)) {
        std::size_t q = p + sizeof key - 1;
        while (q < to && isSpace(b[q])) ++q;
        if (q + len <= to && b.compare(q, len, type) == 0 && endsWord(b, q + len)) return true;
    }
    return false;
}

}  // namespace

bool CSourFile::rebuildObjectTable() {
    // The whole file, from its first byte: offsets in the table count from
    // there, as the chain's do once the header offset is added.
    std::string bytes;
    clear();
    seekg(0, std::ios::end);
    const std::streamoff size = tellg();
    if (size <= 0 || size > static_cast<std::streamoff>(INT_MAX)) return false;
    bytes.resize(static_cast<std::size_t>(size));
    seekg(0);
    read(&bytes[0], size);
    bytes.resize(static_cast<std::size_t>(gcount()));
    clear();

    CFileInfo& fi = fileInfo;
    fi.ownTable.clear();
    fi.positions.clear();
    fi.offsets.clear();
    fi.objTable = &fi.ownTable;
    fi.rootRef = SObj();
    fi.info.self = SObj();
    xrefStreamObjects.clear();

    struct Header {
        std::size_t at;       // where the object number starts
        std::size_t body;     // behind "obj"
        int num, gen;
    };
    std::vector<Header> headers;
    std::vector<std::size_t> trailers;
    const std::size_t objLen = std::strlen(kwobj);
    for (std::size_t p = bytes.find(kwobj); p != std::string::npos; p = bytes.find(kwobj, p + objLen)) {
        if (!endsWord(bytes, p + objLen) || p == 0 || !isSpace(bytes[p - 1])) continue;
        long long gen = 0, num = 0;
        const std::size_t g = digitsBefore(bytes, p, gen);
        if (g == std::string::npos) continue;
        const std::size_t n = digitsBefore(bytes, g, num);
        if (n == std::string::npos || num > INT_MAX || gen > 65535) continue;
        if (n > 0 && !isSpace(bytes[n - 1]) && charClass(bytes[n - 1]) != 2) continue;
        headers.push_back(Header{n, p + objLen, static_cast<int>(num), static_cast<int>(gen)});
    }
    const std::size_t trailerLen = std::strlen(kwtrailer);
    for (std::size_t p = bytes.find(kwtrailer); p != std::string::npos; p = bytes.find(kwtrailer, p + trailerLen))
        if (wordAt(bytes, p, trailerLen)) trailers.push_back(p);

    // A later header of the same number is a later revision: it wins.
    for (const Header& h : headers) {
        SObjState st;
        st.pos = static_cast<int>(h.at);
        st.index = h.gen;
        st.kind = 1;
        st.mark = 'n';
        fi.ownTable[SObj(h.num, h.gen)] = st;
        fi.positions.push_back(static_cast<long long>(h.at));
    }
    for (std::size_t t : trailers) fi.positions.push_back(static_cast<long long>(t));
    for (const char* kw : {kwxref, kwstartxref}) {
        const std::size_t len = std::strlen(kw);
        for (std::size_t p = bytes.find(kw); p != std::string::npos; p = bytes.find(kw, p + len))
            if (wordAt(bytes, p, len)) fi.positions.push_back(static_cast<long long>(p));
    }

    // The dictionary of header i is looked at up to the next header, and
    // no further than a few kilobytes.
    auto spanEnd = [&](std::size_t i) {
        const std::size_t limit = i + 1 < headers.size() ? headers[i + 1].at : bytes.size();
        return std::min(limit, headers[i].body + 4096);
    };

    // Cross-reference streams, newest first, add what lies in object
    // streams; the objects found in the bytes keep their places.
    for (std::size_t i = headers.size(); i-- > 0;) {
        if (!typeIs(bytes, headers[i].body, spanEnd(i), nmXRef)) continue;
        clear();
        seekg(static_cast<std::streamoff>(headers[i].at));
        int num = 0;
        if (!(*this >> num)) continue;
        int inOut = num;
        const SObj keep = fi.rootRef;
        fi.ReadXRefObj(*this, inOut);
        if (keep.num != 0) fi.rootRef = keep;
    }
    clear();

    // The newest classic trailer names the catalog; failing that, a
    // cross-reference stream did; failing that, the last catalog object.
    for (auto t = trailers.rbegin(); t != trailers.rend() && fi.rootRef.num == 0; ++t) {
        clear();
        seekg(static_cast<std::streamoff>(*t));
        fi.GetPrev(*this, true);
    }
    clear();
    if (fi.rootRef.num == 0 || !fi.ownTable.count(fi.rootRef)) {
        fi.rootRef = SObj();
        for (std::size_t i = headers.size(); i-- > 0;) {
            if (typeIs(bytes, headers[i].body, spanEnd(i), nmCatalog)) {
                fi.rootRef = SObj(headers[i].num, headers[i].gen);
                break;
            }
        }
    }
    if (fi.rootRef.num == 0) return false;
    const bool ok = fi.ReadInfoAndEncrypt(*this);
    clear();
    return ok || fi.encrypt.handlerKind > 0;
}

}  // namespace PDF_KILN
