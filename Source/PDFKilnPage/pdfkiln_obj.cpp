// Tokens, file blocks, object fetch and the primitive value types.
#include "pdfkiln_obj.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"

namespace PDF_KILN {

namespace {

constexpr unsigned char makeClass(int c) {
    return (c == 0 || c == 7 || c == 8 || c == 9 || c == 10 || c == 11 || c == 12 || c == 13 || c == 32)
               ? 1
               : (c == '(' || c == ')' || c == '/' || c == '<' || c == '>' || c == '[' || c == ']' ||
                  c == '{' || c == '}')
                     ? 2
                     : 0;
}

struct ClassTable {
    unsigned char v[256];
    constexpr ClassTable() : v() {
        for (int i = 0; i < 256; ++i) v[i] = makeClass(i);
    }
};
constexpr ClassTable kClasses;

// How deep a chain of references may go before it is taken for a cycle.
constexpr int kMaxRefDepth = 32;

bool isOctal(char c) { return c >= '0' && c <= '7'; }

}  // namespace

const unsigned char tokenArray[256] = {
#define R8(i) kClasses.v[i], kClasses.v[i + 1], kClasses.v[i + 2], kClasses.v[i + 3], \
              kClasses.v[i + 4], kClasses.v[i + 5], kClasses.v[i + 6], kClasses.v[i + 7]
#define R64(i) R8(i), R8(i + 8), R8(i + 16), R8(i + 24), R8(i + 32), R8(i + 40), R8(i + 48), R8(i + 56)
    R64(0), R64(64), R64(128), R64(192)
#undef R64
#undef R8
};

// ---------------------------------------------------------------------------
// Token reader
//
// White space is skipped; "<<" and ">>" are tokens of two bytes; every other
// delimiter but '/' is a token of one byte, so the text of a string is never
// absorbed; a regular run (or '/' and a regular run) ends before the next
// white space or delimiter, which is pushed back. A token that runs into the
// end of the input keeps one trailing zero byte, so that it never compares
// equal to a keyword; at the end of input the token is a single zero byte.
std::istream& readPDFString(std::istream& in, std::string& token) {
    char first = 0;
    in.get(first);
    while (charClass(first) == 1 && in.good()) {
        first = 0;
        in.get(first);
    }
    char second = 0;
    bool gotSecond = static_cast<bool>(in.get(second));
    token.assign(1, first);
    if (charClass(first) != 0) {
        if (gotSecond && second == first && (first == '<' || first == '>')) {
            token.push_back(second);
            return in;
        }
        if (first != '/') {
            if (gotSecond) in.unget();
            return in;
        }
    }
    char c = second;
    bool got = gotSecond;
    for (;;) {
        if (!got) {
            token.push_back('\0');
            break;
        }
        if (charClass(c) != 0) {
            in.unget();
            break;
        }
        token.push_back(c);
        got = static_cast<bool>(in.get(c));
    }
    return in;
}

// The reader above, on the bytes of a memory source: the same token, the same
// read position and the same stream state, without a stream call per byte.
std::istream& readPDFString(CSourFile& in, std::string& token) {
    CMemoryBuf* m = in.memory();
    if (!m || !in.good()) return readPDFString(static_cast<std::istream&>(in), token);
    const char* p = m->cursor();
    const char* const e = m->limit();
    // Where the bytes in memory end before the input does, the stream's own
    // reads carry on into what comes next.
    const bool final = m->limitIsEnd();
    auto slow = [&]() -> std::istream& { return readPDFString(static_cast<std::istream&>(in), token); };
    char first = 0;
    for (;;) {
        if (p == e) {
            if (!final) return slow();
            first = 0;
            break;
        }
        first = *p++;
        if (charClass(first) != 1) break;
    }
    if (charClass(first) != 0) {
        // A delimiter (or the end): "<<" and ">>" are two bytes, "/" starts a
        // name, any other is a token of its own. The byte behind it is looked
        // at; at the end of the input that look fails the stream.
        if (p == e && !final) return slow();
        if (first != 0 && p != e && *p == first && (first == '<' || first == '>')) {
            token.assign(p - 1, 2);
            m->moveTo(p + 1);
            return in;
        }
        if (first != '/') {
            token.assign(1, first);
            m->moveTo(p);
            if (p == e) in.setstate(std::ios::eofbit | std::ios::failbit);
            return in;
        }
    }
    // A regular run, or '/' and a regular run.
    const char* const start = p - 1;
    const char* q = p;
    while (q != e && charClass(*q) == 0) ++q;
    if (q == e && !final) return slow();
    token.assign(start, static_cast<std::size_t>(q - start));
    m->moveTo(q);
    if (q == e) {
        token.push_back('\0');
        in.setstate(std::ios::eofbit | std::ios::failbit);
    }
    return in;
}

std::istream& operator>>(std::istream& in, std::string& token) { return readPDFString(in, token); }
std::istream& operator>>(CSourFile& in, std::string& token) { return readPDFString(in, token); }

void ExtStr2Int(const char* buffer, int& position, int width, int& value) {
    value = 0;
    if (width <= 0) return;
    unsigned int v = 0;
    for (int i = 0; i < width; ++i) v = (v << 8) | static_cast<unsigned char>(buffer[position + i]);
    position += width;
    value = static_cast<int>(v);
}

// ---------------------------------------------------------------------------
// CFileBlock

CFileBlock::~CFileBlock() { blockState = 0; }

void CFileBlock::fromStream(CSourFile& in) { Read(in); }

bool CFileBlock::toStream(CDestFile& out) {
    CSourFile* src = out.GetSourFile();
    if (!src) return false;
    return Write(out, *src);
}

bool CFileBlock::FindStr(std::istream& in, const std::string& what) {
    std::string token;
    for (;;) {
        if (!in.good()) throw CFileError();
        readPDFString(in, token);
        if (token == what) return true;
    }
}

bool CFileBlock::FindStrInObj(std::istream& in, const std::string& what) {
    std::string token;
    for (;;) {
        if (!in.good()) return false;
        readPDFString(in, token);
        if (token == what) return true;
        if (tokenIs(token, kwendobj)) return false;
    }
}

bool CFileBlock::IsNum(const std::string& s) {
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

void CFileBlock::skipComment(std::istream& in) {
    char c = 0;
    if (!(in >> std::ws).get(c)) return;
    while (c == '%') {
        char d = 0;
        while (in.get(d) && d != '\n' && d != '\r') {
        }
        if (!in) return;
        c = 0;
        if (!(in >> std::ws).get(c)) return;
    }
    in.unget();
}

void CFileBlock::GetWords(std::istream& in, std::string& word) {
    char buf[1024];
    std::streampos start = in.tellg();
    in >> std::ws;
    std::size_t n = 0;
    char c = 0;
    start = in.tellg();
    while (n < sizeof(buf) - 1 && in.get(c)) {
        if (charClass(c) == 1) {
            in.unget();
            break;
        }
        buf[n++] = c;
    }
    std::string w(buf, n);
    std::size_t cut = std::string::npos;
    std::size_t p;
    if ((p = w.find("<<")) != std::string::npos) cut = p;
    else if ((p = w.find(">>")) != std::string::npos) cut = p;
    else if ((p = w.find('/', 1)) != std::string::npos) cut = p;
    else if ((p = w.find('[')) != std::string::npos) cut = p;
    else if ((p = w.find(']')) != std::string::npos) cut = p;
    if (cut != std::string::npos) {
        w.resize(cut);
        if (start != std::streampos(-1)) {
            in.clear();
            in.seekg(start + std::streamoff(cut));
        }
    }
    word = w;
}

bool CFileBlock::RedHexString(std::stringstream& out, std::istream& in, int& count) {
    count = 0;
    std::string pending;
    char c = 0;
    while (in.get(c)) {
        if (c == '\n' || c == '\r') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) break;
        pending.push_back(c);
        if (pending.size() == 2) {
            unsigned int v = 0;
            std::sscanf(pending.c_str(), "%x", &v);
            out.put(static_cast<char>(v));
            ++count;
            pending.clear();
        }
    }
    if (!pending.empty()) {
        pending.push_back('0');
        unsigned int v = 0;
        std::sscanf(pending.c_str(), "%x", &v);
        out.put(static_cast<char>(v));
        ++count;
    }
    return in.good();
}

// Looks past comments for '[' or "<<" without consuming the opening itself.
bool CFileBlock::isDictStart(std::istream& in) {
    skipComment(in);
    if (!in.good()) return false;
    int c = in.peek();
    if (c == '[') return true;
    if (c != '<') return false;
    char a = 0, b = 0;
    in.get(a);
    bool two = static_cast<bool>(in.get(b)) && b == '<';
    if (in) in.unget();
    else in.clear();
    in.unget();
    return two;
}

SObjState CFileBlock::GetObjState(CSourFile& in, int num, int gen) {
    static SObjState ss{};
    (void)ss;
    return in.fileInfo.GetObjState(num, gen);
}

SObjState CFileBlock::GetObjState(CSourFile& in, const SObj& key) {
    static SObjState ss{};
    (void)ss;
    return in.fileInfo.GetObjState(key);
}

bool CFileBlock::isfeq(float a, float b) { return std::fabs(a - b) < 0.00001f; }

void CFileBlock::wrtNumberFtoStr(std::string& out, float value) {
    // Five decimals with the trailing zeros (and a bare point) taken off, so
    // no value ever takes exponent form; a value that close to zero is 0.
    if (isfeq(value, 0.0f)) {
        out += "0 ";
        return;
    }
    char buf[64];
    std::snprintf(buf, sizeof buf, "%1.*f", 5, static_cast<double>(value));
    std::size_t n = std::strlen(buf);
    while (n > 0 && buf[n - 1] == '0') buf[--n] = 0;
    if (n > 0 && buf[n - 1] == '.') buf[--n] = 0;
    out.append(buf, n);
    out += ' ';
}

// ---------------------------------------------------------------------------
// CObj

CObj::CObj() = default;
CObj::CObj(const SObj& key) : self(key) {}
CObj::CObj(const CObj& o)
    : CFileBlock(o), flags(o.flags), parentStream(o.parentStream), filterProps(o.filterProps),
      self(o.self), outputName(o.outputName), text(o.text.str()) {}
CObj& CObj::operator=(const CObj& o) {
    if (this != &o) {
        CFileBlock::operator=(o);
        flags = o.flags;
        parentStream = o.parentStream;
        filterProps = o.filterProps;
        self = o.self;
        outputName = o.outputName;
        text.str(o.text.str());
    }
    return *this;
}
CObj::~CObj() = default;

bool CObj::Read(CSourFile&) { return true; }


bool CObj::toStream(CDestFile& out) {
    CSourFile* src = out.GetSourFile();
    if (!src) return false;
    src->clear();
    return Write(out, *src);
}

namespace {

// What follows "obj": blanks and comments are read over, and the stream
// stands at the first byte of the value (true also where the input ends).
bool behindObjKeyword(std::istream& in) {
    char c = 0;
    if (!(in >> std::ws).get(c)) {
        in.clear(in.rdstate() & ~std::ios::failbit & ~std::ios::eofbit);
        return true;
    }
    while (c == '%') {
        char d = 0;
        while (in.get(d) && d != '\n' && d != '\r') {
        }
        if (!in) {
            in.clear();
            return true;
        }
        c = 0;
        if (!(in >> std::ws).get(c)) {
            in.clear();
            return true;
        }
    }
    in.unget();
    return true;
}

}  // namespace

bool CObj::IsObjStart(std::istream& in) {
    int num = 0, gen = 0;
    if (!(in >> num)) return false;
    if (!(in >> gen)) return false;
    std::string token;
    readPDFString(in, token);
    if (!tokenIs(token, kwobj)) return false;
    return behindObjKeyword(in);
}

namespace {

// Reads the container's dictionary and body, decodes it and caches the result
// in the source that owns the file. `in` stands at the container's value.
bool decodeObjectStream(CSourFile& in, const SObj& container, const SObj& wanted) {
    CSourFile& root = in.root();
    if (root.decodedObjStm(container.num)) return true;
    if (root.objStmUndecodable.count(container.num)) return false;
    // A /Length that leads back into this same container would decode it
    // again from inside its own decoding: refuse the inner attempt.
    if (!root.objStmDecoding.insert(container.num).second) return false;
    struct Finished {
        CSourFile& source;
        int num;
        ~Finished() { source.objStmDecoding.erase(num); }
    } finished{root, container.num};

    CStreamType stm(container);
    CObjectPosition positions(&in);
    const int64_t end = positions.getEndPosition(wanted);
    const bool boundByEnd = positions.getObjType(wanted) == 1;
    int first = -1, count = -1;
    std::string token;
    bool haveBody = false;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (tokenIs(token, kwendobj)) break;
        if (boundByEnd && static_cast<int64_t>(in.tellg()) > end) break;
        if (tokenIs(token, nmType)) {
            readPDFString(in, token);
            if (!tokenIs(token, nmObjStm)) return false;
        } else if (tokenIs(token, nmLength)) {
            std::streampos p = in.tellg();
            if (!stm.ReadLen(in)) return false;
            in.clear();
            in.seekg(p);
        } else if (tokenIs(token, nmFilter)) {
            if (!stm.ReadFilter(in, 0)) return false;
        } else if (tokenIs(token, nmFirst)) {
            in >> first;
            if (!in.good()) return false;
        } else if (tokenIs(token, nmN)) {
            in >> count;
            if (!in.good()) return false;
        } else if (tokenIs(token, kwstream)) {
            if (!stm.Read(in)) return false;
            stm.isEncryptObject = container == in.root().fileInfo.encrypt.self;
            stm.decodedBudget = root.decodeBudget;
            int len = static_cast<int>(stm.data.size());
            if (stm.filterStreamType(stm.data, len) != 0) {
                // A bomb is decoded once: the same bytes pass the same limit
                // again. Only a bomb: other failures may come from a reading
                // that a later one does not repeat (a key not yet known, a
                // body cut short while the file is being opened).
                const CEncrypt& enc = root.fileInfo.encrypt;
                if (stm.passedLimit && !(enc.passwordState > 0 && enc.V >= 1))
                    root.objStmUndecodable.insert(container.num);
                return false;
            }
            haveBody = true;
            break;
        }
    }
    if (!haveBody) return false;
    root.cacheObjectStream(container.num, std::move(stm.data), first, count);
    return true;
}

}  // namespace

bool CObj::ReadObjStream(CSourFile& in, std::string& out, SObjState state) {
    const SObj container(state.pos, 0);
    if (!decodeObjectStream(in, container, self)) return false;
    CSourFile::DecodedObjStm* d = in.root().decodedObjStm(container.num);
    if (!d || d->first < 0 || d->count < 0) return false;
    if (state.index < 0 || state.index >= d->count) return false;
    if (!d->indexed) {
        // The head is read as numbers from the start of the data, pair by
        // pair, until a pair does not read or the count is reached.
        // Read in place: a decoded object stream is not copied to index it.
        struct ViewBuf : std::streambuf {
            explicit ViewBuf(std::string& t) {
                char* b = t.empty() ? nullptr : &t[0];
                setg(b, b, b + t.size());
            }
        } view(d->data);
        std::istream idx(&view);
        int num = 0, off = 0;
        while (static_cast<int>(d->index.size()) < d->count && (idx >> num >> off)) d->index.emplace_back(num, off);
        d->indexed = true;
    }
    const std::size_t at = static_cast<std::size_t>(state.index);
    if (d->index.size() <= at || d->index[at].first != self.num) return false;
    const int off = d->index[at].second;
    long long endOff;
    if (state.index != d->count - 1) {
        if (d->index.size() <= at + 1) return false;
        endOff = d->index[at + 1].second;
    } else {
        endOff = static_cast<long long>(d->data.size()) - d->first;
    }
    long long from = static_cast<long long>(d->first) + off;
    long long to = static_cast<long long>(d->first) + endOff;
    const long long total = static_cast<long long>(d->data.size());
    from = std::clamp(from, 0LL, total);
    to = std::clamp(to, from, total);

    out += std::to_string(self.num);
    out += ' ';
    out += std::to_string(self.gen);
    out += ' ';
    out += kwobj;
    out += '\n';
    out.append(d->data, static_cast<std::size_t>(from), static_cast<std::size_t>(to - from));
    out += '\n';
    out += kwendobj;
    out += kw_r_n;
    parentStream = &in;
    return true;
}

bool CObj::ReadObjStream(CSourFile& in, std::stringstream& out, SObjState state) {
    std::string text;
    if (!ReadObjStream(in, text, state)) return false;
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    return true;
}

CObjReader::CObjReader(CSourFile& in, const SObj& key) {
    // Lookups and positions always refer to the file itself: inside a view
    // the parent is where the object table and the offsets belong.
    CSourFile& root = in.root();
    const SObjState st = CObj::GetObjState(root, key);
    if (st.kind == 2) {
        CObj tmp(key);
        tmp.flags |= CObj::kFromObjectStream;
        root.clear();
        const SObjState container = CObj::GetObjState(root, st.pos, 0);
        root.seekg(container.pos);
        if (!root.good() || !CObj::IsObjStart(root) || !CObj::isDictStart(root) ||
            !tmp.ReadObjStream(root, text_, st)) {
            root.clear();
            return;
        }
        buf_.reset(text_.data(), text_.size());
        view_.reset(new CSourFile(&buf_));
        view_->makeView(root, true);
        if (!CObj::IsObjStart(*view_)) {
            view_->clear();
            root.clear();
            return;
        }
        at_ = view_.get();
        return;
    }
    if (st.pos > 0) {
        root.clear();
        root.seekg(st.pos);
        if (!root.good() || !CObj::IsObjStart(root)) {
            root.clear();
            return;
        }
        at_ = &root;
    }
}

CObjReader::~CObjReader() = default;

void CObj::fromStream(CSourFile& in) {
    if (!(flags & kIndirect)) {
        Read(in);
        return;
    }
    SObjState st = GetObjState(in.root(), self);
    CSourFile& root = in.root();
    if (st.kind != 2) {
        root.clear();
        root.seekg(st.pos);
        std::streampos at = root.tellg();
        if (IsObjStart(root) && isDictStart(root)) {
            root.seekg(at);
            Read(root);
        }
        return;
    }
    flags |= kFromObjectStream;
    std::stringstream buf;
    root.clear();
    SObjState container = GetObjState(root, st.pos, 0);
    root.seekg(container.pos);
    if (!(IsObjStart(root) && isDictStart(root))) {
        root.clear();
        return;
    }
    if (!ReadObjStream(root, buf, st)) {
        // An object stream that does not decode (for instance one encrypted
        // under a key not known yet) leaves the object empty, not the file failed.
        root.clear();
        return;
    }
    CSourFile view(buf);
    view.makeView(root, true);
    if (!Read(view)) root.clear();
}

bool CObj::LocalObj(CDestFile& out, CSourFile& in) {
    CSourFile& root = in.root();
    SObjState st = GetObjState(root, self);
    if (!root.good()) root.clear();
    if (st.kind != 2) {
        root.seekg(st.pos);
        if (IsObjStart(root)) return WriteObj(out, root);
        root.clear();
        root.seekg(st.pos);
        std::string token;
        readPDFString(root, token);
        return false;
    }
    std::stringstream buf;
    SObjState container = GetObjState(root, st.pos, 0);
    root.seekg(container.pos);
    if (!(IsObjStart(root) && isDictStart(root))) {
        root.clear();
        return false;
    }
    if (!ReadObjStream(root, buf, st)) return false;
    if (!IsObjStart(buf)) return false;
    CSourFile view(buf);
    view.makeView(root, false);
    return WriteObj(out, view);
}

bool CObj::ParseObj(CSourFile& in, CSourFile*& view, std::stringstream& text, const SObj& key) {
    // Lookups and positions always refer to the file itself: inside a view
    // the parent is where the object table and the offsets belong.
    CSourFile& root = in.root();
    SObjState st = GetObjState(root, key);
    if (st.kind == 2) {
        CObj tmp(key);
        tmp.flags |= kFromObjectStream;
        root.clear();
        SObjState container = GetObjState(root, st.pos, 0);
        root.seekg(container.pos);
        if (!root.good() || !IsObjStart(root) || !isDictStart(root)) {
            root.clear();
            return false;
        }
        if (!tmp.ReadObjStream(root, text, st)) {
            root.clear();
            return false;
        }
        if (!view) return false;
        view->makeView(root, true);
        if (!IsObjStart(*view)) {
            view->clear();
            root.clear();
            return false;
        }
        return true;
    }
    if (st.pos > 0) {
        root.clear();
        root.seekg(st.pos);
        if (!root.good() || !IsObjStart(root)) {
            root.clear();
            return false;
        }
        // The caller keeps ownership of the view it passed in.
        view = &root;
        return true;
    }
    return false;
}

bool CObj::ReadIntObj(CSourFile& in, int& value) { return readIntObj(in, value, 0); }

bool CObj::readIntObj(CSourFile& in, int& value, int depth) {
    CObjRef ref;
    if (!ref.Read(in)) {
        in >> value;
        return true;
    }
    if (depth >= kMaxRefDepth) return false;
    CSourFile& root = in.root();
    std::streampos back = root.tellg();
    bool ok = false;
    {
        CObjReader at(in, SObj(ref.num, ref.gen));
        if (at) ok = readIntObj(at.stream(), value, depth + 1) && !at.stream().bad() && !root.bad();
    }
    root.clear();
    root.seekg(back);
    if (&in != &root) in.clear();
    return ok;
}

bool CObj::ReadNumArrayObj(CSourFile& in, std::vector<float>& out) { return readNumArrayObj(in, out, 0); }

bool CObj::readNumArrayObj(CSourFile& in, std::vector<float>& out, int depth) {
    CSourFile& root = in.root();
    std::streampos start = in.tellg();
    auto failBack = [&]() {
        in.clear();
        in.seekg(start);
        return false;
    };
    CObjRef ref;
    if (ref.Read(in)) {
        if (depth >= kMaxRefDepth) return failBack();
        std::streampos back = root.tellg();
        bool ok;
        {
            CObjReader at(in, SObj(ref.num, ref.gen));
            ok = at && readNumArrayObj(at.stream(), out, depth + 1);
        }
        root.clear();
        root.seekg(back);
        if (&in != &root) {
            in.clear();
        }
        return ok;
    }
    char c = 0;
    if (!(in >> c) || c != '[') return failBack();
    for (;;) {
        if (!(in >> c)) return failBack();
        if (c == ']') return true;
        in.unget();
        CObjRef elem;
        if (elem.Read(in)) {
            if (depth >= kMaxRefDepth) return failBack();
            std::streampos back = in.tellg();
            float v = 0;
            bool ok;
            {
                CObjReader at(in, SObj(elem.num, elem.gen));
                ok = at && static_cast<bool>(at.stream() >> v);
            }
            root.clear();
            if (&in != &root) in.clear();
            in.seekg(back);
            if (!ok) return failBack();
            out.push_back(v);
        } else {
            float v = 0;
            if (!(in >> v)) return failBack();
            out.push_back(v);
        }
    }
}

// ---------------------------------------------------------------------------
// Value types

const CStringType::EscPair CStringType::EscTab[8] = {{'n', 10}, {'r', 13}, {'t', 9},  {'b', 8},
                                                    {'f', 12}, {'\\', 92}, {'(', 40}, {')', 41}};

bool CStringType::Read(CSourFile& in) {
    in.unsetf(std::ios::skipws);
    text.clear();
    if (isHex) {
        RedHexString(in);
    } else {
        char c = 0;
        int depth = 0;
        const bool nested = in.root().nestedStrings;
        while (in.get(c)) {
            if (literalStringEnds(c, depth, nested)) break;
            if (c != '\\') {
                text.push_back(c);
                continue;
            }
            char e = 0;
            if (!in.get(e)) break;
            if (e == '\r') continue;
            if (e == '\n') {
                if (in.peek() == '\r') in.get(e);
                continue;
            }
            if (isOctal(e)) {
                int v = (e - '0') * 64;
                char d2 = 0, d3 = 0;
                bool g2 = static_cast<bool>(in.get(d2));
                bool g3 = g2 && static_cast<bool>(in.get(d3));
                if (g2 && isOctal(d2)) v += (d2 - '0') * 8;
                if (g3 && isOctal(d3)) v += d3 - '0';
                text.push_back(static_cast<char>(v & 0xFF));
                continue;
            }
            bool mapped = false;
            for (const EscPair& p : EscTab) {
                if (p.letter == e) {
                    text.push_back(p.byte);
                    mapped = true;
                    break;
                }
            }
            if (!mapped) text.push_back(e);
        }
    }
    length = static_cast<int>(text.size());
    in.setf(std::ios::skipws);
    const CEncrypt& enc = in.fileInfo.encrypt;
    if (enc.passwordState > 0 && enc.Length >= 1 && length != 0 && !noDecrypt) {
        if (DecryptString(enc, &self, text) != 0) return false;
        length = static_cast<int>(text.size());
    }
    return true;
}

bool CStringType::RedHexString(std::istream& in) {
    std::string pending;
    char c = 0;
    for (;;) {
        if (!(in >> std::ws).get(c)) break;
        if (c == '>') break;
        if (c == '\n' || c == '\r') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) continue;
        pending.push_back(c);
        if (pending.size() == 2) {
            unsigned int v = 0;
            std::sscanf(pending.c_str(), "%x", &v);
            text.push_back(static_cast<char>(v));
            pending.clear();
        }
    }
    if (!pending.empty()) {
        pending.push_back('0');
        unsigned int v = 0;
        std::sscanf(pending.c_str(), "%x", &v);
        text.push_back(static_cast<char>(v));
    }
    length = static_cast<int>(text.size());
    return true;
}

namespace {

// What `in >> value` for an int does on the bytes [p, e): 0 failed with the
// value untouched (nothing left to read), 1 failed with the value assigned,
// 2 read, 3 read with the digits running to the end (the stream then stands
// at its end, so the next extraction fails).
int scanInt(const char*& p, const char* e, bool skipws, int& value, bool& hitLimit) {
    if (skipws)
        p = skipStreamBlanks(p, e);
    if (p == e) {
        hitLimit = true;
        return 0;
    }
    const char* q = p;
    const bool negative = *q == '-';
    if (*q == '+' || *q == '-') ++q;
    const char* const digits = q;
    long long magnitude = 0;
    bool huge = false;
    for (; q != e && *q >= '0' && *q <= '9'; ++q) {
        if (!huge) {
            magnitude = magnitude * 10 + (*q - '0');
            huge = magnitude > (1LL << 40);
        }
    }
    if (q == e) hitLimit = true;
    if (q == digits) {
        value = 0;
        return 1;
    }
    const long long v = negative ? -magnitude : magnitude;
    if (huge || v > INT_MAX || v < INT_MIN) {
        value = negative ? INT_MIN : INT_MAX;
        return 1;
    }
    value = static_cast<int>(v);
    p = q;
    return q == e ? 3 : 2;
}

}  // namespace

bool CObj::IsObjStart(CSourFile& in) {
    CMemoryBuf* m = in.memory();
    if (!m || !in.good() || !(in.flags() & std::ios::skipws))
        return IsObjStart(static_cast<std::istream&>(in));
    // "num gen" from the bytes; anything but two plain numbers followed by
    // more bytes in memory is read by the stream from the same place.
    const char* p = m->cursor();
    const char* const e = m->limit();
    bool hitLimit = false;
    int num = 0, gen = 0;
    if (scanInt(p, e, true, num, hitLimit) != 2 || scanInt(p, e, true, gen, hitLimit) != 2 || hitLimit)
        return IsObjStart(static_cast<std::istream&>(in));
    m->moveTo(p);
    std::string token;
    readPDFString(in, token);
    if (!tokenIs(token, kwobj)) return false;
    return behindObjKeyword(in);
}

bool CObjRef::Read(CSourFile& in) {
    if (CMemoryBuf* m = in.memory(); m && in.good()) {
        // "num gen R" straight from the bytes; on failure the stream stays
        // as it was, with the values that the extractions would have left.
        // Where the bytes in memory end before the input does, the stream's
        // own extractions decide.
        const bool skipws = (in.flags() & std::ios::skipws) != 0;
        const char* p = m->cursor();
        const char* const e = m->limit();
        bool hitLimit = false;
        int n = num, g = gen;
        bool ok = scanInt(p, e, skipws, n, hitLimit) == 2 && scanInt(p, e, skipws, g, hitLimit) == 2;
        if (ok && skipws)
            p = skipStreamBlanks(p, e);
        if (ok && p == e) hitLimit = true;
        if (!hitLimit || m->limitIsEnd()) {
            isRef = false;
            num = n;
            gen = g;
            if (!ok || p == e || *p != 'R') return false;
            m->moveTo(p + 1);
            isRef = true;
            return true;
        }
    }
    std::streampos start = in.tellg();
    isRef = false;
    char c = 0;
    if ((in >> num) && (in >> gen) && (in >> c) && c == 'R') {
        isRef = true;
        return true;
    }
    in.clear();
    in.seekg(start);
    return false;
}

bool CLength::ReadLen(CSourFile& in) { return ReadIntObj(in, length); }

CStreamType::~CStreamType() = default;

void CStreamType::addStr(const std::string& s, bool atEnd) {
    if (atEnd) data += s;
    else data.insert(0, s);
}

namespace {

// Reads up to `count` bytes; the string keeps what could be read.
void readBytes(std::istream& in, std::string& into, long long count) {
    into.resize(static_cast<std::size_t>(count));
    in.read(&into[0], count);
    into.resize(static_cast<std::size_t>(in.gcount()));
}

long long remainingBytes(std::istream& in) {
    std::streampos here = in.tellg();
    if (here == std::streampos(-1)) return 0;
    in.seekg(0, std::ios::end);
    std::streampos end = in.tellg();
    in.seekg(here);
    return end > here ? static_cast<long long>(end - here) : 0;
}

}  // namespace

bool CStreamType::Read(CSourFile& in) {
    in.unsetf(std::ios::skipws);
    char c = 0;
    if (!in.get(c) || (c != '\r' && c != '\n')) {
        in.setf(std::ios::skipws);
        return false;
    }
    if (c == '\r') {
        char d = 0;
        if (in.get(d)) {
            if (d != '\n') in.unget();
        } else {
            in.clear();
        }
    }
    const std::streampos bodyStart = in.tellg();
    dataOffset = static_cast<long long>(bodyStart);
    if (length < 0) throw std::length_error("negative stream length");
    const long long available = remainingBytes(in);
    data.clear();
    std::streampos position;
    bool oneTooLong = false;
    if (length >= 1 && length - 1 <= available) {
        readBytes(in, data, length - 1);
        position = in.tellg();
        std::string token;
        if (in.peek() == 'e') {
            in.setf(std::ios::skipws);
            readPDFString(in, token);
            in.unsetf(std::ios::skipws);
        }
        if (tokenIs(token, kwendstream)) {
            data.push_back('\n');
            in.clear();
            in.seekg(position);
            oneTooLong = true;
        } else {
            in.clear();
            in.seekg(bodyStart);
        }
    }
    if (!oneTooLong) {
        readBytes(in, data, std::min<long long>(length, available));
        in.clear();
        position = in.tellg();
    }

    // The keyword must follow the data; repair a /Length that says otherwise.
    in.setf(std::ios::skipws);
    std::string token;
    readPDFString(in, token);
    if (tokenIs(token, kwendstream)) {
        in.clear();
        in.seekg(position);
    } else if (data.rfind(kwendstream) != std::string::npos) {
        // The declared length runs over the keyword; the data keep it.
        in.clear();
    } else {
        std::string joined = data + token;
        const std::size_t oldSize = data.size();
        std::size_t from = oldSize >= 9 ? oldSize - 9 : 0;
        std::size_t p = joined.find(kwendstream, from);
        in.clear();
        if (p != std::string::npos) {
            data = joined.substr(0, p);
            length = static_cast<int>(data.size());
            in.seekg(position + std::streamoff(static_cast<long long>(p) - static_cast<long long>(oldSize)));
        } else {
            // Read on block by block until the keyword shows up.
            in.seekg(position);
            in.unsetf(std::ios::skipws);
            std::string more;
            const std::size_t kwLen = std::strlen(kwendstream);
            char block[1024];
            std::size_t found = std::string::npos;
            while (found == std::string::npos) {
                in.read(block, sizeof block);
                std::streamsize got = in.gcount();
                if (got <= 0) break;
                std::size_t searchFrom = more.size() >= kwLen ? more.size() - kwLen + 1 : 0;
                more.append(block, static_cast<std::size_t>(got));
                found = more.find(kwendstream, searchFrom);
                if (!in) break;
            }
            in.clear();
            if (found == std::string::npos) {
                in.setf(std::ios::skipws);
                in.setstate(std::ios::failbit);
                return false;
            }
            length += static_cast<int>(found);
            data.append(more, 0, found);
            in.seekg(position + std::streamoff(found));
        }
    }

    in.setf(std::ios::skipws);
    const CEncrypt& enc = in.fileInfo.encrypt;
    if (enc.passwordState > 0 && enc.Length >= 1 && length != 0 && !isEncryptObject) {
        if (DecryptString(enc, &self, data) != 0) return false;
        length = static_cast<int>(data.size());
    }
    return in.good();
}

std::istream& CArrayType::operator>>(std::istream& in) {
    std::streampos start = in.tellg();
    if (FindStr(in, "]")) {
        std::streamoff dist = in.tellg() - start;
        if (dist > 0) {
            raw.resize(static_cast<std::size_t>(dist));
            in.read(&raw[0], dist);
            raw.resize(static_cast<std::size_t>(in.gcount()));
        } else {
            raw.clear();
        }
    } else {
        in.seekg(start);
    }
    return in;
}

std::istream& operator>>(std::istream& in, CDictType&) { return in; }
std::istream& operator>>(std::istream& in, CObjType&) { return in; }

}  // namespace PDF_KILN
