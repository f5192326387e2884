// Object-text utilities and the property finder.
#include "pdfkiln_findingvalue.h"

#include <exception>
#include <sstream>

#include "pdfkiln_destfile.h"
#include "pdfkiln_filter.h"
#include "pdfkiln_obj.h"
#include "pdfkiln_sourfile.h"
#include "yard/pdf_rules.h"

namespace PDF_KILN {

namespace {

using namespace PDF_RULES;

// The one exception type of this unit. Its message names the error, an
// optional value, and the file and line of the statement that threw.
class BaseException : public std::exception {
public:
    BaseException(const std::string& message, const char* file, int line)
        : text(message + "\nException in file: " + file + " at line: " + utility::toString(line)) {}
    BaseException(const std::string& message, const std::string& value, const char* file, int line)
        : text(message + " error value: " + value + "\nException in file: " + file +
               " at line: " + utility::toString(line)) {}
    const char* what() const noexcept override { return text.c_str(); }

private:
    std::string text;
};

#define PDFKILN_THROW(message) throw BaseException((message), __FILE__, __LINE__)
#define PDFKILN_THROW_VALUE(message, value) throw BaseException((message), (value), __FILE__, __LINE__)

const char* const kLocalObjErr = "PDF_KILN_LocalObjErr";
const char* const kDecompressErr = "Decomress error";
const char* const kNotFound = "Not Found. input param is: ";

std::string keyText(const char* key) { return key ? std::string(key) : std::string(); }

// Position of the first hit of Rule_T in [begin, end), or nullptr.
template <typename Rule_T>
const char* firstHit(const char* begin, const char* end) {
    OneTokenizer<Rule_T> scan;
    scan.Tokenize(begin, end);
    return scan.empty() ? nullptr : scan.GetTokens().front().first;
}

// Object number and generation of a reference token ("n g R").
bool readReference(const Token& ref, int& number, int& generation) {
    std::istringstream in(ref.str());
    in >> number >> generation;
    return !in.fail();
}

// Renders object (number, generation) of `source` into a scratch sink whose
// renumbering table stays empty, so the text keeps its own references.
bool fetchObjectText(CSourFile* source, int number, int generation, std::string& text) {
    if (!source) return false;
    CDestFile sink{std::string()};
    CObj obj(SObj(number, generation));
    if (!obj.LocalObj(sink, *source)) return false;
    text.assign(sink.data(), sink.size());
    return true;
}

bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

}  // namespace

// ---------------------------------------------------------------------------
// utility

std::string utility::toString(int value) { return std::to_string(value); }

std::string utility::getValue(const char* begin, const char* end, EPDFType type) {
    switch (type) {
        case ePDFBoolean: return parseValue(OneTokenizer<MatchBooleanObject>(), begin, end);
        case ePDFNumber: return parseValue(OneTokenizer<MatchNumberObject>(), begin, end);
        case ePDFString: return parseValue(OneTokenizer<MatchStringObject>(), begin, end);
        case ePDFName: return parseValue(OneTokenizer<MatchNameObject>(), begin, end);
        case ePDFArray: return parseValue(OneTokenizer<MatchArrayObject>(), begin, end);
        case ePDFDictionary: return parseValue(OneTokenizer<MatchDictionaryObject>(), begin, end);
        case ePDFNull: return parseValue(OneTokenizer<MatchString<null_string>>(), begin, end);
        case ePDFIndirect: return parseValue(OneTokenizer<MatchIndirectObject>(), begin, end);
        case ePDFStream:
            if (!begin || !end || begin >= end) return getDecompressStream(std::string());
            return getDecompressStream(std::string(begin, end));
        case ePDFNone:
        default:
            return std::string();
    }
}

EPDFType utility::getType(const char* begin, const char* end) {
    if (!begin || !end || begin >= end) return ePDFNone;
    EPDFType best = ePDFNone;
    const char* bestAt = nullptr;
    // Later searches win ties, so `<=`: "12 0 R" is a reference although the
    // number rule hits at the same byte.
    auto consider = [&](const char* at, EPDFType type) {
        if (at && (!bestAt || at <= bestAt)) {
            bestAt = at;
            best = type;
        }
    };
    consider(firstHit<MatchBooleanObject>(begin, end), ePDFBoolean);
    consider(firstHit<MatchNumberObject>(begin, end), ePDFNumber);
    consider(firstHit<MatchStringObject>(begin, end), ePDFString);
    consider(firstHit<MatchNameObject>(begin, end), ePDFName);
    consider(firstHit<MatchArrayObject>(begin, end), ePDFArray);
    consider(firstHit<MatchDictionaryObject>(begin, end), ePDFDictionary);
    consider(firstHit<MatchStreamBegin>(begin, end), ePDFStream);
    consider(firstHit<MatchString<null_string>>(begin, end), ePDFNull);
    consider(firstHit<MatchIndirectObject>(begin, end), ePDFIndirect);
    return best;
}

EPDFType utility::getType(const std::string& text) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    // Classify only up to the ">>" of a stream begin: stream data is never
    // looked at, and a stream object reads as its dictionary.
    if (const char* stream = firstHit<MatchStreamBegin>(begin, end)) end = stream + 2;
    return getType(begin, end);
}

std::string utility::getDecompressStream(const std::string& objectText) {
    std::size_t dataStart = objectText.find(kwstream);
    dataStart = dataStart == std::string::npos ? objectText.size() : dataStart + std::string(kwstream).size();
    std::size_t dataEnd = objectText.rfind(kwendstream);
    // With no "endstream", or one that stands before the data (the first
    // "stream" found may be its own tail), there is no data.
    if (dataEnd == std::string::npos || dataEnd < dataStart) dataEnd = dataStart;

    std::size_t filterAt = objectText.find(nmFilter);
    CFilter filter;
    if (filterAt != std::string::npos) {
        // The filter reader stops where it must; it gets the text behind
        // "/Filter", as many bytes as the data start's offset.
        std::stringstream in(objectText.substr(filterAt + std::string(nmFilter).size(), dataStart));
        filter.ReadFilter(in, 0);
    }

    // Line ends around the data are dropped by byte value; /Length is not used.
    while (dataStart < dataEnd && isLineEnd(objectText[dataStart])) ++dataStart;
    while (dataEnd > dataStart && isLineEnd(objectText[dataEnd - 1])) --dataEnd;
    std::string data = objectText.substr(dataStart, dataEnd - dataStart);
    if (filterAt == std::string::npos) return data;

    int size = static_cast<int>(data.size());
    if (filter.filterStreamType(data, size) != 0) PDFKILN_THROW(kDecompressErr);
    return data;
}

std::string trimParenthes(const std::string& text) {
    std::size_t first = text.find_first_not_of('(');
    if (first == std::string::npos) return std::string();
    std::size_t last = text.find_last_not_of(')');
    if (last == std::string::npos || last < first) return std::string();
    return text.substr(first, last - first + 1);
}

// ---------------------------------------------------------------------------
// FindingHint

bool FindingHint::myLess::operator()(const std::string& a, const std::string& b) const {
    std::size_t ab = 0, ae = a.size(), bb = 0, be = b.size();
    while (ab < ae && a[ab] == ' ') ++ab;
    while (ae > ab && a[ae - 1] == ' ') --ae;
    while (bb < be && b[bb] == ' ') ++bb;
    while (be > bb && b[be - 1] == ' ') --be;
    for (; ab < ae && bb < be; ++ab, ++bb) {
        signed char ca = static_cast<signed char>(a[ab]);
        signed char cb = static_cast<signed char>(b[bb]);
        if (ca != cb) return ca < cb;
    }
    return ab == ae && bb != be;
}

FindingHint::FindingHint(const FindingHint& other) : hintTable(other.hintTable) {}

FindingHint& FindingHint::operator=(const FindingHint& other) {
    if (this != &other) {
        hintTable = other.hintTable;
        valueTable.clear();
    }
    return *this;
}

bool FindingHint::insertHintInfo(const char* key, EPDFType type) {
    return hintTable.emplace(keyText(key), type).second;
}

bool FindingHint::keyExist(const char* key) const { return hintTable.count(keyText(key)) != 0; }

EPDFType FindingHint::getPropertyType(const char* key) const {
    auto it = hintTable.find(keyText(key));
    if (it == hintTable.end()) PDFKILN_THROW_VALUE(kNotFound, keyText(key));
    return it->second;
}

void FindingHint::insertPropertyValue(const char* key, const std::string& value) {
    valueTable.emplace(keyText(key), value);
}

std::string FindingHint::getPropertyValue(const char* key) const {
    // Equal keys stand in order of insertion, so the lower bound is the first.
    auto it = valueTable.lower_bound(keyText(key));
    if (it == valueTable.end() || valueTable.key_comp()(keyText(key), it->first)) return std::string();
    return it->second;
}

int FindingHint::getPropertyValueCount(const char* key) const {
    return static_cast<int>(valueTable.count(keyText(key)));
}

void FindingHint::outPutValue(std::ostream& out) const {
    for (const auto& entry : valueTable) out << entry.first << std::endl << entry.second << std::endl;
}

// ---------------------------------------------------------------------------
// FindingValue

FindingValue::FindingValue(FindingHint& hint, CSourFile* source, const std::string& objectText)
    : source(source), hint(&hint) {
    textQueue.push_back(objectText);
}

FindingValue::FindingValue(FindingHint& hint, CSourFile* source, int number, int generation)
    : source(source), hint(&hint) {
    refQueue.push_back(std::make_pair(number, generation));
}

FindingValue::FindingValue(FindingHint& hint, CSourFile* source) : source(source), hint(&hint) {
    if (!source) PDFKILN_THROW(kLocalObjErr);
    const SObj& root = source->fileInfo.rootRef;
    std::string text;
    if (!fetchObjectText(source, root.num, root.gen, text)) PDFKILN_THROW(kLocalObjErr);
    visited.insert(std::make_pair(root.num, root.gen));
    textQueue.push_back(text);
}

void FindingValue::find(bool deep) {
    if (!deep) {
        findParsedString();
        FindingReference();
        return;
    }
    // Ends: every pass takes a reference or a text off its queue, texts come
    // only from fetches, and each object is fetched at most once.
    while (!refQueue.empty() || !textQueue.empty()) {
        findParsedString();
        FindingReference();
    }
}

void FindingValue::findParsedString() {
    if (refQueue.empty()) return;
    std::pair<int, int> ref = refQueue.back();
    refQueue.pop_back();
    // An object already examined in this search is not examined again: that
    // ends the search on reference cycles and keeps shared objects from
    // entering their values twice.
    if (!visited.insert(ref).second) return;
    std::string text;
    if (!fetchObjectText(source, ref.first, ref.second, text)) PDFKILN_THROW(kLocalObjErr);
    textQueue.push_back(text);
}

void FindingValue::FindingReference() {
    if (textQueue.empty()) return;
    const std::string text = textQueue.back();
    textQueue.pop_back();

    OneTokenizer<MatchDictionaryObject> dict;
    dict.Tokenize(text.data(), text.data() + text.size());
    if (dict.empty()) return;
    const char* rangeEnd = dict.GetTokens().front().second;

    Tokenizer<MatchNameObject> names;
    names.Tokenize(dict.GetTokens().front().first, rangeEnd);
    for (const Token& name : names) {
        const std::string key = name.str();
        if (!hint->keyExist(key.c_str())) continue;
        const EPDFType expected = hint->getPropertyType(key.c_str());

        const EPDFType found = utility::getType(name.second, rangeEnd);
        std::string value;
        try {
            value = utility::getValue(name.second, rangeEnd, found);
        } catch (const BaseException&) {
            // A stream begin inside a dictionary whose data will not decode
            // is bad object text: no value, no error.
            value.clear();
        }
        const EPDFType actual = utility::getType(value);

        if (actual == expected) {
            hint->insertPropertyValue(key.c_str(), expected == ePDFString ? trimParenthes(value) : value);
            continue;
        }

        Tokenizer<MatchIndirectObject> refs;
        refs.Tokenize(value.data(), value.data() + value.size());
        if (expected == ePDFNone) {
            // A key that only leads the search on: its references are
            // examined later for the other keys.
            for (const Token& ref : refs) {
                int number = 0, generation = 0;
                if (readReference(ref, number, generation))
                    refQueue.push_back(std::make_pair(number, generation));
            }
            continue;
        }

        const Linkage link(expected, source);
        for (const Token& ref : refs) {
            std::string resolved = ref.str();
            // Follow a chain of references to its end. A chain that comes back
            // to a text it already met is a cycle and yields no value.
            std::set<std::string> seen;
            bool cycle = false;
            while (utility::getType(resolved) == ePDFIndirect) {
                if (!seen.insert(resolved).second) {
                    cycle = true;
                    break;
                }
                resolved = link.linkImpl(resolved);
            }
            if (cycle) continue;
            hint->insertPropertyValue(
                key.c_str(), utility::getValue(resolved.data(), resolved.data() + resolved.size(), expected));
        }
    }
}

// ---------------------------------------------------------------------------
// Linkage

std::string Linkage::linkImpl(const std::string& text) const {
    Tokenizer<MatchIndirectObject> refs;
    refs.Tokenize(text.data(), text.data() + text.size());
    if (refs.empty()) return text;

    const Token& ref = refs.GetTokens().front();
    int number = 0, generation = 0;
    std::string object;
    if (!readReference(ref, number, generation) || !fetchObjectText(source, number, generation, object))
        PDFKILN_THROW_VALUE(kLocalObjErr, ref.str());
    if (type == ePDFStream) return object;

    // Stream bodies travel through a search only when a stream was asked for.
    const char* begin = object.data();
    if (const char* stream = firstHit<MatchStreamBegin>(begin, begin + object.size()))
        return std::string(begin, stream + 2);
    return object;
}

// ---------------------------------------------------------------------------
// PieceInfoSelector

PieceInfoSelector::PieceInfoSelector(CSourFile* source, const char* a, const char* b, const char* c, int number,
                                     int generation)
    : markA(keyText(a)), markB(keyText(b)), markC(keyText(c)), number(number), generation(generation),
      source(source) {}

bool PieceInfoSelector::match() {
    if (markA.empty() || markB.empty() || markC.empty()) return false;
    FindingHint hint;
    hint.insertHintInfo(nmPieceInfo, ePDFDictionary);
    FindingValue finder(hint, source, number, generation);
    finder.find(false);
    std::ostringstream out;
    hint.outPutValue(out);
    const std::string text = out.str();
    // A character-set test, kept as it is: any one byte of a mark suffices.
    return text.find_first_of(markA) != std::string::npos && text.find_first_of(markB) != std::string::npos &&
           text.find_first_of(markC) != std::string::npos;
}

}  // namespace PDF_KILN
