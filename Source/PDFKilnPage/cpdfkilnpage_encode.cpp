// The ASCII85 re-encoding facade.
#include "cpdfkilnpage_encode.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "yard/pdf_rules.h"

namespace PDF_KILN {

namespace {

using namespace PDF_RULES;
using ZQGraphicService_NS::FilterMemBlock;

const char* stageName(int kind) {
    switch (kind) {
        case 1: return "/FlateDecode";
        case 2: return "/LZWDecode";
        case 3: return "/ASCIIHexDecode";
        case 4: return "/ASCII85Decode";
        case 5: return "/RunLengthDecode";
        case 6: return "/CCITTFaxDecode";
        case 7: return "/DCTDecode";
        default: return "";
    }
}

// The names of a text: '/' and the ASCII letters and digits behind it.
std::vector<std::string> filterNames(const char* p, const char* end) {
    std::vector<std::string> names;
    while (p < end) {
        if (*p != '/') {
            ++p;
            continue;
        }
        const char* q = p + 1;
        while (q < end && ((*q >= 'a' && *q <= 'z') || (*q >= 'A' && *q <= 'Z') || (*q >= '0' && *q <= '9'))) ++q;
        names.emplace_back(p, q);
        p = q;
    }
    return names;
}

bool isStreamSpace(char c) { return c == 0 || c == 9 || c == 10 || c == 12 || c == 13 || c == 32; }

// The first /Filter entry in [begin, end), as offsets into `text`.
bool filterEntry(const std::string& text, std::size_t limit, std::size_t& start, std::size_t& stop) {
    OneTokenizer<MatchFilterEntry> entry;
    entry.Tokenize(text.data(), text.data() + limit);
    if (entry.empty()) return false;
    start = static_cast<std::size_t>(entry.GetTokens().front().first - text.data());
    stop = static_cast<std::size_t>(entry.GetTokens().front().second - text.data());
    return true;
}

// The number of decimal digits of a length, as the text must make room for.
std::size_t digitCount(long value) {
    return value <= 0 ? 1 : static_cast<std::size_t>(std::log10(static_cast<double>(value))) + 1;
}

}  // namespace

CPDFKilnPage_Encode::CPDFKilnPage_Encode(std::istream& in, const std::string& password)
    : CPDFKilnPage(in, password), filterProp() {
    filterProp.type = ZQGraphicService_NS::FILTER_ASCII85;
}

CPDFKilnPage_Encode::CPDFKilnPage_Encode(const char* fileName, const std::string& password)
    : CPDFKilnPage(fileName, password), filterProp() {
    filterProp.type = ZQGraphicService_NS::FILTER_ASCII85;
}

std::size_t CPDFKilnPage_Encode::dictionaryEnd(const std::string& text) {
    const std::size_t at = text.find(kwstream);
    return at == std::string::npos ? text.size() : at;
}

bool CPDFKilnPage_Encode::lengthValue(iterator it, iterator& where, std::size_t& begin, std::size_t& end,
                                      long& length) {
    char* b = nullptr;
    char* e = nullptr;
    where = this->end();
    findLengthPos(it, b, e, where);
    length = 0;
    if (!b || !e || e <= b || where == this->end()) return false;
    const std::string& t = where->second;
    begin = static_cast<std::size_t>(b - t.data());
    end = static_cast<std::size_t>(e - t.data());
    if (end > t.size()) return false;
    length = std::strtol(t.substr(begin, end - begin).c_str(), nullptr, 10);
    if (length < 0) length = 0;
    return true;
}

void CPDFKilnPage_Encode::findStreamPos(iterator it, std::string*& text, std::size_t& first, std::size_t& last) {
    text = &it->second;
    first = last = 0;
    const std::size_t keyword = text->find(kwstream);
    if (keyword == std::string::npos) return;
    first = keyword + std::strlen(kwstream);
    while (first < text->size() && isStreamSpace((*text)[first])) ++first;
    iterator where;
    std::size_t b = 0, e = 0;
    long length = 0;
    lengthValue(it, where, b, e, length);
    // The data never runs past the text, whatever /Length says.
    const std::size_t available = text->size() - first;
    const std::size_t count = std::min(static_cast<std::size_t>(length), available);
    if (count == 0) {
        last = first == 0 ? 0 : first - 1;
        return;
    }
    last = first + count - 1;
}

bool CPDFKilnPage_Encode::checkStreamIsASCII(iterator it) {
    iterator where;
    std::size_t b = 0, e = 0;
    long length = 0;
    lengthValue(it, where, b, e, length);
    std::cout << "stream length old" << length << std::endl;
    std::string* text = nullptr;
    std::size_t first = 0, last = 0;
    findStreamPos(it, text, first, last);
    if (last < first) return true;
    for (std::size_t i = first; i <= last; ++i)
        if (static_cast<unsigned char>((*text)[i]) & 0x80) return false;
    return true;
}

bool CPDFKilnPage_Encode::checkNeedASCII85Encode(iterator it) {
    const std::string& text = it->second;
    if (text.find(kwstream) == std::string::npos) return false;
    std::size_t start = 0, stop = 0;
    if (!filterEntry(text, dictionaryEnd(text), start, stop)) return false;
    const std::vector<std::string> names = filterNames(text.data() + start, text.data() + stop);
    if (names.empty()) return false;
    // Only the first filter counts: one that is already ASCII85 is done.
    if (names.size() > 1 && names[1].find("/ASCII85Decode") != std::string::npos) return false;
    return !checkStreamIsASCII(it);
}

void CPDFKilnPage_Encode::findFilterPos(iterator it, std::string*& text, std::size_t& start, std::size_t& end) {
    text = &it->second;
    if (filterEntry(*text, dictionaryEnd(*text), start, end)) return;
    start = end = dictionaryEnd(*text);
}

std::string CPDFKilnPage_Encode::constructFilterEntity(const std::string& oldEntry) const {
    const std::string added = stageName(filterProp.type);
    const std::vector<std::string> names = filterNames(oldEntry.data(), oldEntry.data() + oldEntry.size());
    if (names.empty()) return "/Filter /ASCII85Decode ";
    std::string entry;
    for (std::size_t i = 0; i < names.size(); ++i) {
        entry += names[i] + " ";
        if (i == 0 && names.size() > 1) entry += " [" + added;
    }
    if (names.size() > 1) entry += "]";
    return entry;
}

void CPDFKilnPage_Encode::encodeStream(iterator it, bool unfiltered) {
    iterator where;
    std::size_t lengthBegin = 0, lengthEnd = 0;
    long length = 0;
    const bool hasLength = lengthValue(it, where, lengthBegin, lengthEnd, length);

    std::string* text = nullptr;
    std::size_t first = 0, last = 0;
    findStreamPos(it, text, first, last);
    std::size_t count = last < first ? 0 : last - first + 1;
    if (unfiltered || exactStreamStart) {
        // Data may well start with a blank or a NUL (raw samples, run
        // lengths): it starts behind the keyword's own line end.
        first = text->find(kwstream) + std::strlen(kwstream);
        if (first < text->size() && (*text)[first] == '\r') ++first;
        if (first < text->size() && (*text)[first] == '\n') ++first;
        count = std::min(static_cast<std::size_t>(length), text->size() - first);
    }

    FilterMemBlock in, out;
    Zq_MemInit(&in);
    Zq_MemInit(&out);
    in.data = count ? reinterpret_cast<unsigned char*>(&(*text)[first]) : nullptr;
    in.length = static_cast<int32_t>(count);
    in.capacity = in.length;
    Zq_DeflateStream(&in, &out, &filterProp, 2);
    const std::string encoded = out.data ? std::string(reinterpret_cast<const char*>(out.data),
                                                       static_cast<std::size_t>(std::max(out.length, 0)))
                                         : std::string();
    Zq_MemClear(&out);
    text->replace(first, count, encoded);

    // The new length, cut and filled to its own width. The data stands
    // behind the /Length value, so the offsets of the value still hold.
    if (hasLength) {
        const long newLength = static_cast<long>(encoded.size());
        std::string digits = std::to_string(newLength);
        digits.resize(digitCount(newLength));
        where->second.replace(lengthBegin, lengthEnd - lengthBegin, digits);
    }

    std::size_t start = 0, stop = 0;
    if (unfiltered) {
        // Inside the dictionary, in front of the ">>" that the stream follows.
        OneTokenizer<MatchStreamBegin> begin;
        begin.Tokenize(text->data(), text->data() + text->size());
        if (begin.empty()) return;
        start = static_cast<std::size_t>(begin.GetTokens().front().first - text->data());
        text->insert(start, constructFilterEntity(std::string()));
        return;
    }
    findFilterPos(it, text, start, stop);
    const std::string entry = constructFilterEntity(text->substr(start, stop - start));
    text->replace(start, stop - start, entry);

    if (decodeParmsFollow) {
        // The parameters of the old first filter stay with it: a null for
        // the new stage in front.
        const std::size_t limit = dictionaryEnd(*text);
        const std::size_t key = text->find("/DecodeParms");
        if (key == std::string::npos || key >= limit) return;
        std::size_t v = key + std::strlen("/DecodeParms");
        while (v < limit && isStreamSpace((*text)[v])) ++v;
        if (v >= limit) return;
        if ((*text)[v] == '[') {
            // An empty array gives no parameters to any filter.
            std::size_t inside = v + 1;
            while (inside < limit && isStreamSpace((*text)[inside])) ++inside;
            if (inside < limit && (*text)[inside] != ']') text->insert(v + 1, "null ");
            return;
        }
        yard::TextStream s(text->data() + v, text->data() + limit);
        if (MatchDictionaryObject::Accept(s) || (s.SetPos(text->data() + v), MatchIndirectObject::Accept(s))) {
            const std::size_t e = static_cast<std::size_t>(s.GetPos() - text->data());
            text->insert(e, "]");
            text->insert(v, "[null ");
        }
    }
}

int CPDFKilnPage_Encode::setStartObjNo(int startNo) {
    CPDFKilnPage::setStartObjNo(startNo);
    for (iterator it = begin(); it != end(); ++it) {
        if (checkNeedASCII85Encode(it)) {
            encodeStream(it, false);
        } else if (encodeUnfiltered && it->second.find(kwstream) != std::string::npos) {
            std::size_t start = 0, stop = 0;
            if (!filterEntry(it->second, dictionaryEnd(it->second), start, stop) && !checkStreamIsASCII(it))
                encodeStream(it, true);
        }
    }
    return 0;
}

}  // namespace PDF_KILN
