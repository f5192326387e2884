// File blocks, tokens, object keys and the primitive value types of the
// reader: the one tokeniser and vocabulary that reader and writer share.
#ifndef PDFKILN_OBJ_H
#define PDFKILN_OBJ_H

#include <climits>
#include <cstdint>
#include <exception>
#include <ios>
#include <istream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "pdfkiln_filter.h"
#include "pdfkiln_memsource.h"
#include "pdfkiln_obj_names.h"

namespace PDF_KILN {

class CSourFile;
class CDestFile;
struct PgCmTD;

// Result codes that the facade returns (and that the layers below it throw as int).
enum EResult {
    kResultOk = 0,
    kResultPasswordRefused = 1,
    kResultNotEncrypted = 8,
    kResultBadFile = 1000,
    kResultBadXRef = 1001,
    kResultBadBox = 1006,
    kResultKeyMismatch = 3001,
    kResultFilterFailed = 5000,
    kResultStdException = 6000,
    kResultBadPage = 8000,
    kResultNotLocalised = 8001,
    kResultBadKeyLength = 8003
};

// Character class of every byte: 1 white space (0, 7-13, 32), 2 delimiter,
// 0 regular. '%' is regular: callers handle comments themselves.
extern const unsigned char tokenArray[256];

inline int charClass(char c) { return tokenArray[static_cast<unsigned char>(c)]; }

// The word an SObj carries beside its key. It is empty in nearly every key of
// every table, so it costs one pointer until something is stored in it: the
// page tree and object tables of a large file hold tens of thousands of keys.
class SObjText {
public:
    SObjText() = default;
    SObjText(const std::string& s) { *this = s; }
    SObjText(const char* s) { *this = std::string(s); }
    SObjText(const SObjText& o) : p_(o.p_ ? new std::string(*o.p_) : nullptr) {}
    SObjText(SObjText&&) noexcept = default;
    SObjText& operator=(const SObjText& o) {
        if (this != &o) p_.reset(o.p_ ? new std::string(*o.p_) : nullptr);
        return *this;
    }
    SObjText& operator=(SObjText&&) noexcept = default;
    SObjText& operator=(const std::string& s) {
        if (s.empty()) p_.reset();
        else if (p_) *p_ = s;
        else p_.reset(new std::string(s));
        return *this;
    }
    const std::string& str() const { return p_ ? *p_ : emptyText(); }
    operator const std::string&() const { return str(); }
    bool empty() const { return !p_ || p_->empty(); }
    std::size_t size() const { return p_ ? p_->size() : 0; }
    const char* data() const { return str().data(); }
    const char* c_str() const { return str().c_str(); }
    void clear() { p_.reset(); }

private:
    static const std::string& emptyText() {
        static const std::string none;
        return none;
    }
    std::unique_ptr<std::string> p_;
};

// Key of an indirect object. Ordered by number, then generation; aux and
// text ride along and take no part in comparisons.
struct SObj {
    int num = 0;
    int gen = 0;
    int aux = 0;
    SObjText text;

    SObj() = default;
    SObj(int n, int g, int a = 0) : num(n), gen(g), aux(a) {}

    bool operator<(const SObj& o) const { return num < o.num || (num == o.num && gen < o.gen); }
    bool operator==(const SObj& o) const { return num == o.num && gen == o.gen; }
    bool operator!=(const SObj& o) const { return !(*this == o); }

    // Appends "num gen obj" to a destination's text buffer.
    template <class Dest>
    void obj(Dest& d) const {
        d += std::to_string(num);
        d += ' ';
        d += std::to_string(gen);
        d += ' ';
        d += kwobj;
    }
};

// Value of the object table: where an object lives.
struct SObjState {
    int pos = 0;              // file offset (header offset included), or the container's number
    int index = 0;            // generation, or the index inside the object stream
    unsigned char flag = 0;
    unsigned char kind = 0;   // 0 free, 1 in use, 2 in an object stream
    char mark = 0;            // 'n' or 'f' for a classic entry, 0 for a stream entry
};

// The object table: where each (number, generation) lives. Object numbers are
// dense in nearly every file, so each number has one slot in a vector indexed
// by it (16 bytes, against about 100 for a tree node); a second generation of
// a number, and numbers far past the table's size, go to an ordered map
// beside it. It reads like the ordered map it replaces: iteration is in key
// order, and an entry shows as a pair of its key and a reference to its state.
class ObjTable {
    template <bool Const>
    class Iter;

public:
    template <bool Const>
    struct Entry {
        SObj first;
        typename std::conditional<Const, const SObjState&, SObjState&>::type second;
    };
    using iterator = Iter<false>;
    using const_iterator = Iter<true>;

    iterator begin() { return iterator(this, nextUsed(0), extra_.begin()); }
    iterator end() { return iterator(this, flat_.size(), extra_.end()); }
    const_iterator begin() const { return const_iterator(this, nextUsed(0), extra_.begin()); }
    const_iterator end() const { return const_iterator(this, flat_.size(), extra_.end()); }

    iterator find(const SObj& key);
    const_iterator find(const SObj& key) const { return const_cast<ObjTable*>(this)->find(key); }
    std::size_t count(const SObj& key) const { return state(key.num, key.gen) ? 1 : 0; }
    // The state of (num, gen), or null when the table has no such entry.
    const SObjState* state(int num, int gen) const;
    SObjState* state(int num, int gen) {
        return const_cast<SObjState*>(static_cast<const ObjTable*>(this)->state(num, gen));
    }
    // Enters the entry unless its key is present; true when entered.
    std::pair<iterator, bool> insert(const std::pair<SObj, SObjState>& entry);
    SObjState& operator[](const SObj& key);
    // The state of `key`; throws std::out_of_range when it is absent.
    const SObjState& at(const SObj& key) const;
    void erase(const SObj& key);
    // The entry of `num` with the lowest generation, or null.
    SObjState* lowestOf(int num, int* gen = nullptr);
    // The highest object number present, or -1 for an empty table.
    int highestNumber() const;
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    void clear();
    // Gives back the slack of the vector once reading is over.
    void shrink() { flat_.shrink_to_fit(); }

private:
    static constexpr int kNoEntry = INT32_MIN;
    struct Slot {
        SObjState st;
        int gen = kNoEntry;
    };
    using Extra = std::map<std::pair<int, int>, SObjState>;

    std::size_t nextUsed(std::size_t from) const {
        while (from < flat_.size() && flat_[from].gen == kNoEntry) ++from;
        return from < flat_.size() ? from : flat_.size();
    }
    // Whether (num, gen) may take a slot of the vector.
    bool slotFor(int num, int gen);

    std::vector<Slot> flat_;
    Extra extra_;
    std::size_t size_ = 0;

    template <bool Const>
    class Iter {
        using Table = typename std::conditional<Const, const ObjTable, ObjTable>::type;
        using ExtraIt = typename std::conditional<Const, Extra::const_iterator, Extra::iterator>::type;

    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry<Const>;
        using difference_type = std::ptrdiff_t;
        using reference = Entry<Const>;
        struct Arrow {
            Entry<Const> e;
            Entry<Const>* operator->() { return &e; }
        };
        using pointer = Arrow;

        Iter() = default;
        Iter(Table* t, std::size_t f, ExtraIt x) : t_(t), f_(f), x_(x) {}
        operator Iter<true>() const { return Iter<true>(t_, f_, x_); }

        Entry<Const> operator*() const {
            if (flatFirst()) return Entry<Const>{SObj(static_cast<int>(f_), t_->flat_[f_].gen), t_->flat_[f_].st};
            return Entry<Const>{SObj(x_->first.first, x_->first.second), x_->second};
        }
        Arrow operator->() const { return Arrow{**this}; }
        Iter& operator++() {
            if (flatFirst()) f_ = t_->nextUsed(f_ + 1);
            else ++x_;
            return *this;
        }
        Iter operator++(int) {
            Iter was = *this;
            ++*this;
            return was;
        }
        bool operator==(const Iter& o) const { return f_ == o.f_ && x_ == o.x_; }
        bool operator!=(const Iter& o) const { return !(*this == o); }

    private:
        friend class ObjTable;
        // Whether the vector's entry comes before the map's.
        bool flatFirst() const {
            if (f_ >= t_->flat_.size()) return false;
            if (x_ == t_->extra_.end()) return true;
            const int n = static_cast<int>(f_);
            return n < x_->first.first || (n == x_->first.first && t_->flat_[f_].gen < x_->first.second);
        }
        Table* t_ = nullptr;
        std::size_t f_ = 0;
        ExtraIt x_{};
    };
};

// A growable char vector whose index 0 always exists.
class charVector : public std::vector<char> {
public:
    char& operator[](unsigned const& i) {
        if (empty()) push_back(0);
        return std::vector<char>::operator[](i);
    }
};

// The stream ran out. Thrown only by CFileBlock::FindStr.
class CFileError : public std::exception {};

// Reads one token. See the token rules in pdfkiln_obj.cpp.
std::istream& readPDFString(std::istream& in, std::string& token);
std::istream& operator>>(std::istream& in, std::string& token);
std::istream& operator>>(CSourFile& in, std::string& token);
// The same reader on a source: straight from its bytes when it reads memory.
std::istream& readPDFString(CSourFile& in, std::string& token);

// token == text, with the first two bytes compared inline: in the readers'
// loops most tokens differ from most names and keywords right there, which
// spares the length count and the library call. (A string's byte at size()
// is its terminating zero, so t[1] is readable for a one-byte token.)
inline bool tokenIs(const std::string& t, const char* text) {
    return t[0] == text[0] && (text[0] == 0 || t[1] == text[1]) && t.compare(text) == 0;
}

// Reads `width` bytes at `position` as a big-endian unsigned number.
void ExtStr2Int(const char* buffer, int& position, int width, int& value);

// Numbers a sink may take from beyond its own table: the facade's mappings,
// which last across the pages of a run.
class CNumberSource {
public:
    virtual ~CNumberSource() = default;
    // True with the new identifier of source object (num, gen).
    virtual bool findNumber(int num, int gen, SObj& out) const = 0;
};

class CFileBlock {
public:
    CFileBlock() = default;
    CFileBlock(const CFileBlock&) = default;
    CFileBlock& operator=(const CFileBlock&) = default;
    virtual bool Read(CSourFile& in) = 0;
    virtual bool Write(CDestFile& out, CSourFile& in) = 0;
    virtual void fromStream(CSourFile& in);
    virtual bool toStream(CDestFile& out);
    virtual ~CFileBlock();

    static bool FindStr(std::istream& in, const std::string& what);
    static bool FindStrInObj(std::istream& in, const std::string& what);
    static bool IsNum(const std::string& s);
    static void skipComment(std::istream& in);
    static void GetWords(std::istream& in, std::string& word);
    static bool RedHexString(std::stringstream& out, std::istream& in, int& count);
    static bool isDictStart(std::istream& in);
    static SObjState GetObjState(CSourFile& in, int num, int gen);
    static SObjState GetObjState(CSourFile& in, const SObj& key);
    static bool isfeq(float a, float b);
    static void wrtNumberFtoStr(std::string& out, float value);

protected:
    int blockState = 0;
};

// An object's own text stream, made on first use: most objects never need
// one, and a stream is costly to build.
class CObjText {
public:
    CObjText() = default;
    explicit CObjText(const std::string& s) {
        if (!s.empty()) stream().str(s);
    }
    CObjText(const CObjText& o) : CObjText(o.str()) {}
    CObjText& operator=(const CObjText& o) {
        if (this != &o) str(o.str());
        return *this;
    }
    std::stringstream& stream() {
        if (!s_) s_.reset(new std::stringstream);
        return *s_;
    }
    std::string str() const { return s_ ? s_->str() : std::string(); }
    void str(const std::string& v) {
        if (s_ || !v.empty()) stream().str(v);
    }

private:
    std::unique_ptr<std::stringstream> s_;
};

class CObj : public CFileBlock {
public:
    enum : int {
        kIndirect = 16,          // located by key through the object table
        kFromObjectStream = 32   // last read came out of an object stream
    };

    CObj();
    explicit CObj(const SObj& key);
    CObj(const CObj& o);
    CObj& operator=(const CObj& o);

    bool Read(CSourFile& in) override;
    bool Write(CDestFile& out, CSourFile& in) override;
    void fromStream(CSourFile& in) override;
    bool toStream(CDestFile& out) override;
    ~CObj() override;
    virtual bool WriteObj(CDestFile& out, CSourFile& in);

    // Locates this object and renders it into `out` through WriteObj.
    bool LocalObj(CDestFile& out, CSourFile& in);

    // How the span copier treats a page's dictionary (see CPage::WriteObj).
    enum class CopyRules { Object, Page, Annot };
    // The span copier behind WriteObj: copies the body as it stands and
    // rewrites only references, lengths, strings and streams.
    bool CopyBody(CDestFile& out, CSourFile& in, CopyRules rules);
    // Under the annotation rules the copier hands every key to the object:
    // 1 when it wrote the key's value itself (the stream stands behind the
    // value), -1 when the copy fails there, 0 to copy the value as usual.
    virtual int rewriteAnnotValue(CDestFile& out, CSourFile& in, const std::string& key, int dictDepth);
    // Under the annotation rules: a dictionary opened or closed at `dictDepth`.
    virtual void annotDictEvent(int dictDepth, bool opened);
    // Under the annotation rules: what a reference behind `key` becomes when
    // the object wants it written otherwise (true when it wrote it).
    virtual bool rewriteAnnotRef(CDestFile& out, const std::string& key, int num, int gen);

    static bool IsObjStart(std::istream& in);
    // The same, with the numbers read off the bytes in memory.
    static bool IsObjStart(CSourFile& in);
    // Positions a stream at the value of object `key`; *view is the stream to
    // read from afterwards (a view over `text` for a compressed object).
    static bool ParseObj(CSourFile& in, CSourFile*& view, std::stringstream& text, const SObj& key);
    // Writes the text of `self` out of its object stream into `out`.
    bool ReadObjStream(CSourFile& in, std::stringstream& out, SObjState state);
    bool ReadObjStream(CSourFile& in, std::string& out, SObjState state);
    static bool ReadIntObj(CSourFile& in, int& value);
    static bool ReadNumArrayObj(CSourFile& in, std::vector<float>& out);

    int flags = 0;
    CSourFile* parentStream = nullptr;
    std::map<int, ZQGraphicService_NS::FilterPropTD> filterProps;
    SObj self;
    std::string outputName;
    CObjText text;

private:
    static bool readIntObj(CSourFile& in, int& value, int depth);
    static bool readNumArrayObj(CSourFile& in, std::vector<float>& out, int depth);
};
// Where one object's text is read: the file itself, positioned behind the
// object's "n g obj", or, for an object kept in an object stream, a view over
// its text made only then. Nothing is built to read an object of the file.
class CObjReader {
public:
    CObjReader(CSourFile& in, const SObj& key);
    ~CObjReader();
    CObjReader(const CObjReader&) = delete;
    CObjReader& operator=(const CObjReader&) = delete;
    explicit operator bool() const { return at_ != nullptr; }
    CSourFile& stream() const { return *at_; }

private:
    std::string text_;
    CMemoryBuf buf_;
    std::unique_ptr<CSourFile> view_;
    CSourFile* at_ = nullptr;
};


// Whether the unescaped parenthesis `c` ends a literal string. By default the
// first ")" ends it; with `nested` set, "(" opens a level and the ")" that
// balances the opener ends it, as ISO 32000-1 7.3.4.2 reads strings. `depth`
// counts the open levels inside the string and starts at 0. Every reader of
// literal string bodies asks this one question.
inline bool literalStringEnds(char c, int& depth, bool nested) {
    if (c == '(') {
        if (nested) ++depth;
        return false;
    }
    if (c != ')') return false;
    if (!nested || depth == 0) return true;
    --depth;
    return false;
}

// A literal or hexadecimal string, decoded and (where the file is encrypted) decrypted.
class CStringType : public CObj {
public:
    CStringType() = default;
    explicit CStringType(const SObj& key) : CObj(key) {}
    bool Read(CSourFile& in) override;
    bool RedHexString(std::istream& in);
    // Writes the opener, the (encrypted) bytes and the closer to the destination.
    bool Write(CDestFile& out, CSourFile& in) override;
    // Escaped literal body and ')' / hexadecimal body and '>', without the opener.
    static void WrtString(std::string& out, const std::string& bytes);
    static void WrtHexString(std::string& out, const std::string& bytes);
    // Rescales the font sizes of a default-appearance string by the matrix.
    void Translate4Annot(const PgCmTD& m);

    struct EscPair { char letter; char byte; };
    static const EscPair EscTab[8];

    int length = 0;
    std::string text;
    bool isHex = false;
    bool noDecrypt = false;
    bool noEncrypt = false;
};

class CLength : public CObj {
public:
    CLength() = default;
    explicit CLength(const SObj& key) : CObj(key) {}
    bool ReadLen(CSourFile& in);
    int length = 0;
};

// "num gen R", or nothing (the stream is then set back).
class CObjRef : public CObj {
public:
    bool Read(CSourFile& in) override;
    int num = 0;
    int gen = 0;
    bool isRef = false;
    std::string text;
};

// The body of a stream object, with the /Length repairs of damaged files.
class CStreamType : public virtual CLength, public CFilter {
public:
    CStreamType() = default;
    explicit CStreamType(const SObj& key) : CLength(key) {}
    bool Read(CSourFile& in) override;
    // Appends CR LF and the (encrypted) body, and patches the destination's
    // open /Length slot with the body's size.
    bool Write(CDestFile& out, CSourFile& in) override;
    ~CStreamType() override;
    void addStr(const std::string& s, bool atEnd = true);

    std::string data;
    long long dataOffset = 0;
    bool isEncryptObject = false;
};

class CArrayType : public CObj {
public:
    std::istream& operator>>(std::istream& in);
    std::string raw;
};

class CDictType : public CObj {
public:
    std::string raw;
};

class CObjType : public CObj {};

std::istream& operator>>(std::istream& in, CDictType&);
std::istream& operator>>(std::istream& in, CObjType&);

// Scope guard that restores a stream's position and format flags.
template <class Stream>
class StreamRecover {
public:
    StreamRecover(Stream& s, bool restore = true)
        : flags(s.flags()), position(s.tellg()), stream(s), restore(restore) {}
    ~StreamRecover() {
        if (!restore) return;
        stream.clear();
        stream.seekg(position);
        stream.flags(flags);
    }
    StreamRecover(const StreamRecover&) = delete;
    StreamRecover& operator=(const StreamRecover&) = delete;

    std::ios_base::fmtflags flags;
    std::streampos position;
    Stream& stream;
    bool restore;
};

}  // namespace PDF_KILN

#endif
