// Typed values out of object text, and the property finder that collects the
// values of wanted keys across the objects that references lead to.
#ifndef PDFKILN_FINDINGVALUE_H
#define PDFKILN_FINDINGVALUE_H

#include <deque>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "yard/yard_tokenizer.h"

namespace PDF_KILN {

class CSourFile;

// Kinds of PDF object: what a search asks for and what a classification says.
enum EPDFType {
    ePDFNone = 0,        // nothing found; in a hint: follow references, collect nothing
    ePDFBoolean = 1,
    ePDFNumber = 2,
    ePDFString = 3,      // literal or hexadecimal
    ePDFName = 4,        // with its slash
    ePDFArray = 5,
    ePDFDictionary = 6,
    ePDFNull = 7,
    ePDFStream = 8,
    ePDFIndirect = 9     // a reference "n g R"
};

// Runs a copy of `tokenizer` over [begin, end) and returns the text of its
// first token, or "" when nothing was found. A search: the hit need not
// stand at `begin`.
template <typename Tokenizer_T>
std::string parseValue(const Tokenizer_T& tokenizer, const char* begin, const char* end) {
    Tokenizer_T scan(tokenizer);
    scan.Tokenize(begin, end);
    if (scan.empty()) return std::string();
    return scan.GetTokens().front().str();
}

class utility {
public:
    // The text of the first value of `type` in the range; for ePDFStream the
    // decoded stream of the range (an object text); "" for ePDFNone, for
    // values above ePDFIndirect and for a miss.
    static std::string getValue(const char* begin, const char* end, EPDFType type);
    // The type whose first hit starts earliest in the range; on a tie at one
    // byte the type tried later wins (order: boolean, number, string, name,
    // array, dictionary, stream begin, null, reference). ePDFNone on no hit.
    static EPDFType getType(const char* begin, const char* end);
    // As above, over the text up to the ">>" of its first stream begin, so a
    // stream object is a dictionary and its data is never classified.
    static EPDFType getType(const std::string& text);
    // The decoded data of the stream in an object text. Throws
    // "Decomress error" (as std::exception) when a filter stage fails.
    static std::string getDecompressStream(const std::string& objectText);
    static std::string toString(int value);
};

// Cuts every leading "(" and every trailing ")". Escapes are left alone.
std::string trimParenthes(const std::string& text);

// Request and result of a property search: the wanted keys with the type
// expected of each, and the values found.
class FindingHint {
public:
    // Orders keys as if blanks (byte 32) around them were not there; bytes
    // compare as signed chars, and a prefix is less.
    struct myLess {
        bool operator()(const std::string& a, const std::string& b) const;
    };

    typedef std::map<std::string, EPDFType, myLess> HintTable;
    typedef std::multimap<std::string, std::string, myLess> ValueTable;

    FindingHint() = default;
    // A copy takes the wanted keys and starts with no values.
    FindingHint(const FindingHint& other);
    FindingHint& operator=(const FindingHint& other);

    bool insertHintInfo(const char* key, EPDFType type);
    bool keyExist(const char* key) const;
    // Throws "Not Found. input param is: " (as std::exception) for an unknown key.
    EPDFType getPropertyType(const char* key) const;
    void insertPropertyValue(const char* key, const std::string& value);
    std::string getPropertyValue(const char* key) const;
    int getPropertyValueCount(const char* key) const;
    // "key\nvalue\n" for every value, in table order.
    void outPutValue(std::ostream& out) const;

    const HintTable& hints() const { return hintTable; }
    const ValueTable& values() const { return valueTable; }

private:
    HintTable hintTable;
    ValueTable valueTable;
};

// One property search over object texts and the objects they refer to.
class FindingValue {
public:
    FindingValue(FindingHint& hint, CSourFile* source, const std::string& objectText);
    FindingValue(FindingHint& hint, CSourFile* source, int number, int generation);
    // Starts at the document catalog; throws "PDF_KILN_LocalObjErr" if it
    // cannot be fetched.
    FindingValue(FindingHint& hint, CSourFile* source);

    // deep == false: one fetch and one examination. deep == true: both are
    // repeated until nothing is left to fetch or to examine.
    void find(bool deep);
    // Fetches the most recently queued reference (depth first).
    void findParsedString();
    // Examines the most recently queued object text.
    void FindingReference();

private:
    std::deque<std::pair<int, int>> refQueue;
    // Objects fetched so far: each is fetched once per search, which also
    // ends a search over a reference cycle.
    std::set<std::pair<int, int>> visited;
    CSourFile* source;
    std::deque<std::string> textQueue;
    FindingHint* hint;
};

// Resolves the first reference in a text to the text of the object.
class Linkage {
public:
    Linkage(EPDFType type, CSourFile* source) : type(type), source(source) {}
    // The text unchanged if it holds no reference; otherwise the referenced
    // object's text, cut behind the ">>" of its stream begin unless a stream
    // was asked for. Throws "PDF_KILN_LocalObjErr" when the fetch fails.
    std::string linkImpl(const std::string& text) const;
    std::string operator()(const std::string& text) const { return linkImpl(text); }

private:
    EPDFType type;
    CSourFile* source;
};

// Decides whether an object's /PieceInfo carries three marks.
class PieceInfoSelector {
public:
    PieceInfoSelector(CSourFile* source, const char* a, const char* b, const char* c, int number,
                      int generation);
    // A character-set test: each mark counts as present when any one of its
    // bytes occurs in the collected /PieceInfo text.
    bool match();

private:
    std::string markA;
    std::string markB;
    std::string markC;
    int number;
    int generation;
    CSourFile* source;
};

}  // namespace PDF_KILN

#endif
