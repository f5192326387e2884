// Text utilities of the facade: escapes, text strings, cutting values out of
// object text, file keys, stream lengths in delivered objects, and the
// target encryption.
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "crypt/md5.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"
#include "yard/pdf_rules.h"

namespace PDF_KILN {

namespace {

bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }

// A digit of getXFString and axtoi: '*'..'?' by their low four bits, letters
// a-f and A-F by their low four bits plus 9.
int hexDigitValue(char c) {
    if (c >= 42 && c <= 63) return c & 15;
    if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) return (c & 15) + 9;
    return -1;
}

void skipLiteralString(std::istream& in) {
    int depth = 1;
    char c = 0;
    while (depth > 0 && in.get(c)) {
        if (c == '\\') in.get(c);
        else if (c == '(') ++depth;
        else if (c == ')') --depth;
    }
}

void skipHexString(std::istream& in) {
    char c = 0;
    while (in.get(c) && c != '>') {
    }
}

// The position of the stream's reader, or the text's end once it has ended.
std::size_t positionIn(std::istream& in, std::size_t size) {
    const std::streampos p = in.tellg();
    return p == std::streampos(-1) ? size : static_cast<std::size_t>(p);
}

}  // namespace

// ---------------------------------------------------------------------------
// Escapes

bool CPDFKilnPage::unescapeStringObj(const std::string& in, std::string& out) {
    int depth = 0;
    const std::size_t n = in.size();
    for (std::size_t i = 0; i < n; ++i) {
        const char c = in[i];
        if (c == '\r') {
            out += '\n';
            if (i + 1 < n && in[i + 1] == '\n') ++i;
            continue;
        }
        if (c == '(') {
            ++depth;
            out += c;
            continue;
        }
        if (c == ')') {
            --depth;
            out += c;
            continue;
        }
        if (c != '\\') {
            out += c;
            continue;
        }
        if (i + 1 >= n) break;
        const char e = in[i + 1];
        switch (e) {
            case '(': case ')': case '\\': out += e; ++i; continue;
            case 'b': out += '\b'; ++i; continue;
            case 'f': out += '\f'; ++i; continue;
            case 'n': out += '\n'; ++i; continue;
            case 'r': out += '\r'; ++i; continue;
            case 't': out += '\t'; ++i; continue;
            default: break;
        }
        if (isOctalDigit(e)) {
            int v = 0;
            std::size_t j = i + 1;
            for (int k = 0; k < 3 && j < n && isOctalDigit(in[j]); ++k, ++j) v = v * 8 + (in[j] - '0');
            out += static_cast<char>(v & 0xFF);
            i = j - 1;
            continue;
        }
        // Any other byte: the backslash is dropped, the byte handled as usual.
    }
    return depth == 0;
}

bool CPDFKilnPage::unescapeNameObj(const std::string& in, std::string& out) {
    const std::size_t n = in.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (in[i] != '#') {
            out += in[i];
            continue;
        }
        if (i + 2 >= n) break;
        auto nibble = [](char c) {
            return (c >= '0' && c <= '9') ? c - '0' : ((c - 'A') & 15) + 10;
        };
        out += static_cast<char>((nibble(in[i + 1]) << 4) | nibble(in[i + 2]));
        i += 2;
    }
    return true;
}

bool CPDFKilnPage::unescapeFilseSpecification(const std::string& in, std::string& out) {
    static const char separator[] = "\\/";
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = in.find(separator, from);
        if (at == std::string::npos) break;
        // The piece's length is the separator's position, not its distance
        // from the previous one: from the second separator on, a piece reads
        // on past its own end (bounded by the text).
        out.append(in, from, at);
        out += '/';
        from = at + 2;
    }
    if (from < in.size()) out.append(in, from, std::string::npos);
    return true;
}

template <typename Char_T, int Digits>
unsigned int GetDataFromHexString<Char_T, Digits>::axtoi(const char* text) {
    unsigned int v = 0;
    for (int i = 0; i < Digits && text[i]; ++i) {
        const int d = hexDigitValue(text[i]);
        if (d < 0) break;
        v = v * 16 + static_cast<unsigned int>(d);
    }
    return v;
}

template struct GetDataFromHexString<char16_t, 4>;

namespace {

std::u16string xfUnits(const std::string& text) {
    std::u16string out;
    const std::size_t n = text.size();
    if (n >= 2 && static_cast<unsigned char>(text[0]) == 0xFE && static_cast<unsigned char>(text[1]) == 0xFF) {
        for (std::size_t u = 0; u < (n - 2) / 2; ++u) {
            const unsigned char hi = static_cast<unsigned char>(text[2 + 2 * u]);
            const unsigned char lo = static_cast<unsigned char>(text[3 + 2 * u]);
            out += static_cast<char16_t>((hi << 8) | lo);
        }
        return out;
    }
    if (n >= 1 && static_cast<unsigned char>(text[0]) == 0xFF) {
        for (std::size_t u = 0; n >= 2 && u < (n - 2) / 2; ++u) {
            const unsigned char a = static_cast<unsigned char>(text[2 + 2 * u]);
            const unsigned char b = static_cast<unsigned char>(text[3 + 2 * u]);
            out += static_cast<char16_t>(a | (b << 8));
        }
        return out;
    }
    if (n >= 1 && text[0] == '<') {
        auto unit = [&](std::size_t at, int digits) {
            unsigned int v = 0;
            for (int i = 0; i < digits && at + i < n; ++i) {
                const int d = hexDigitValue(text[at + i]);
                if (d < 0) break;
                v = v * 16 + static_cast<unsigned int>(d);
            }
            return v;
        };
        const unsigned int mark = GetDataFromHexString<char16_t, 4>::axtoi(text.c_str() + 1);
        if (mark == 65534 || mark == 65279) {
            for (std::size_t u = 0; n >= 6 && u < (n - 6) / 4; ++u) {
                unsigned int v = unit(5 + 4 * u, 4);
                if (mark == 65534) v = ((v & 0xFF) << 8) | (v >> 8);
                out += static_cast<char16_t>(v);
            }
        } else {
            for (std::size_t u = 0; n >= 2 && u < (n - 2) / 2; ++u) out += static_cast<char16_t>(unit(1 + 2 * u, 2));
        }
        return out;
    }
    for (unsigned char c : text) out += static_cast<char16_t>(c);
    return out;
}

}  // namespace

icu::UnicodeString getXFString(const std::string& text) {
    const std::u16string units = xfUnits(text);
    return icu::UnicodeString(units.data(), static_cast<int32_t>(units.size()));
}

// ---------------------------------------------------------------------------
// Cutting values out of object text

std::string getDicStr(const std::string& text) {
    std::istringstream in(text);
    in.unsetf(std::ios::skipws);
    std::string token;
    int depth = 0;
    std::size_t start = std::string::npos, stop = std::string::npos;
    bool wantR = false;
    for (;;) {
        in >> std::ws;
        const std::size_t before = positionIn(in, text.size());
        if (!in.good()) break;
        readPDFString(in, token);
        if (!token.empty() && token.back() == '\0' && !in.good()) break;
        if (tokenIs(token, kwendobj)) break;
        if (tokenIs(token, "(")) {
            skipLiteralString(in);
            continue;
        }
        if (tokenIs(token, "<")) {
            skipHexString(in);
            continue;
        }
        if (tokenIs(token, "<<")) {
            if (depth == 0 && start == std::string::npos) start = before;
            ++depth;
            continue;
        }
        if (tokenIs(token, ">>")) {
            --depth;
            if (depth == 0 && start != std::string::npos) {
                stop = positionIn(in, text.size());
                break;
            }
            continue;
        }
        if (depth == 0 && !token.empty() && token[0] >= '0' && token[0] <= '9') {
            if (start == std::string::npos || !wantR) {
                start = before;
                wantR = true;
            }
            continue;
        }
        if (depth == 0 && wantR && tokenIs(token, kwR)) {
            stop = positionIn(in, text.size());
            break;
        }
        if (depth == 0 && wantR) {
            start = std::string::npos;
            wantR = false;
        }
    }
    if (start == std::string::npos || stop == std::string::npos || stop < start) return std::string();
    return text.substr(start, stop - start);
}

std::string getArrayStr(const std::string& text) {
    std::istringstream in(text);
    in.unsetf(std::ios::skipws);
    std::string token;
    int arrays = 0, dicts = 0;
    std::size_t start = std::string::npos;
    std::size_t destAt = std::string::npos;
    for (;;) {
        in >> std::ws;
        const std::size_t before = positionIn(in, text.size());
        if (!in.good()) break;
        readPDFString(in, token);
        if (!token.empty() && token.back() == '\0' && !in.good()) break;
        if (tokenIs(token, kwendobj)) break;
        if (tokenIs(token, "(")) skipLiteralString(in);
        else if (tokenIs(token, "<")) skipHexString(in);
        else if (tokenIs(token, "<<")) ++dicts;
        else if (tokenIs(token, ">>")) --dicts;
        else if (tokenIs(token, nmDest)) destAt = before;
        else if (tokenIs(token, "[")) {
            if (arrays == 0 && start == std::string::npos) start = before;
            ++arrays;
        } else if (tokenIs(token, "]")) {
            --arrays;
            if (arrays == 0 && start != std::string::npos)
                return text.substr(start, positionIn(in, text.size()) - start);
        }
    }
    (void)destAt;
    return std::string();
}

unsigned int hashstr(const char* data, unsigned int length) {
    unsigned int h = 0;
    for (unsigned int i = 0; i < length; ++i) {
        h = (h << 4) + static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(data[i])));
        const unsigned int g = h & 0xF0000000u;
        if (g != 0) h = h ^ g ^ (g >> 24);
    }
    return h;
}

bool aIncludeB(const std::string& a, const std::string& b) { return a.find(b) != std::string::npos; }

std::string CPageInfo::getValueString(const std::string& key) const {
    const std::size_t at = text.find(key);
    if (at == std::string::npos) return std::string();
    const std::size_t value = at + key.size();
    if (tokenIs(key, "/P")) {
        const std::size_t slash = text.find('/', value);
        std::size_t close = text.find(']', value);
        if (close != std::string::npos) ++close;
        const std::size_t stop = std::min(slash, close);
        return text.substr(value, stop == std::string::npos ? std::string::npos : stop - value);
    }
    if (tokenIs(key, "Resources") || tokenIs(key, "AcroForm") || tokenIs(key, "Group") || tokenIs(key, "Names"))
        return getDicStr(text.substr(value));
    if (tokenIs(key, "Annots")) return getArrayStr(text.substr(value ? value - 1 : 0));
    return std::string();
}

void ResourceDictMerger::dictValMerge(const std::string& key, std::string& merged) const {
    const std::size_t a = first.find(key);
    const std::size_t b = second.find(key);
    if (a == std::string::npos && b == std::string::npos) return;
    merged += key;
    merged += "<<";
    auto inside = [&merged](const std::string& t, std::size_t at) {
        if (at == std::string::npos) return;
        const std::size_t open = t.find("<<", at);
        if (open == std::string::npos) return;
        const std::size_t close = t.find(">>", open + 2);
        if (close == std::string::npos) return;
        merged.append(t, open + 2, close - open - 2);
    };
    inside(first, a);
    inside(second, b);
    merged += ">>";
}

// ---------------------------------------------------------------------------
// Delivered objects: streams, their lengths and digests

bool CPDFKilnPage::isStreamObj(const std::string& text, std::string& digest) {
    if (text.find("/Resource") != std::string::npos) return false;
    const std::size_t s = text.find(kwstream);
    const std::size_t e = text.find(kwendstream);
    if (s == std::string::npos || e == std::string::npos) return false;
    const std::size_t from = s + std::strlen(kwstream);
    if (e <= from) return false;
    std::string data = text.substr(from, e - from);
    if (text.find("/Form") != std::string::npos || text.find("/Matrix") != std::string::npos ||
        text.find("/ColorSpace") != std::string::npos || text.find("/Subtype") == std::string::npos)
        data = text.substr(0, e);
    pcrypt::PDFEncryptionMD5 md5;
    md5.MD5(data, digest, 16);
    return true;
}

int help_function_MatchStreamObject(std::string& text) {
    using namespace PDF_RULES;
    OneTokenizer<MatchDictionaryObject> dict;
    const char* b = text.data();
    const char* e = b + text.size();
    for (const char* at = b; at < e;) {
        dict.clear();
        dict.Tokenize(at, e);
        if (dict.empty()) return 0;
        const char* p = dict.GetTokens().front().second;
        while (p < e && charClass(*p) == 1) ++p;
        if (static_cast<std::size_t>(e - p) >= 6 && std::memcmp(p, "stream", 6) == 0) {
            const std::string rest(p + 6, e);
            if (rest.find(kwendstream) != std::string::npos) return 1;
        }
        at = dict.GetTokens().front().first + 1;
    }
    return 0;
}

int CPDFKilnPage::calcStreamLength(iterator it) {
    const std::string& t = it->second;
    std::size_t at = t.find(kwstream);
    if (at == std::string::npos) return 0;
    std::size_t from = at + std::strlen(kwstream);
    while (from < t.size() && charClass(t[from]) == 1) ++from;
    std::size_t end = t.rfind(kwendstream);
    if (end == std::string::npos) end = t.size();
    while (end > 0 && (t[end - 1] == '\r' || t[end - 1] == '\n')) --end;
    return end > from ? static_cast<int>(end - from) : 0;
}

void CPDFKilnPage::findLengthPos(iterator it, char*& begin, char*& end, iterator& where) {
    using namespace PDF_RULES;
    std::set<std::pair<int, int>> followed;
    for (int depth = 0; depth < 64; ++depth) {
        where = it;
        std::string& t = it->second;
        if (t.empty()) return;
        OneTokenizer<MatchLengthEntry> entry;
        entry.Tokenize(t.data(), t.data() + t.size());
        if (!entry.empty()) {
            const yard::Token& hit = entry.GetTokens().front();
            Tokenizer<MatchIndirectObject> refs;
            refs.Tokenize(hit.first, hit.second);
            if (refs.size() == 1) {
                std::istringstream s(refs.GetTokens().front().str());
                int n = 0, g = 0;
                s >> n >> g;
                auto next = find({n, g});
                if (next == this->end() || !followed.insert({n, g}).second) return;
                it = next;
                continue;
            }
            Tokenizer<MatchInteger> ints;
            const char* valueStart = hit.first + std::strlen(nmLength);
            ints.Tokenize(valueStart, hit.second);
            if (ints.size() == 1) {
                begin = &t[0] + (ints.GetTokens().front().first - t.data());
                end = &t[0] + (ints.GetTokens().front().second - t.data());
                return;
            }
        }
        std::istringstream s(t);
        long v = 0;
        if (s >> v) {
            std::size_t b = t.find_first_not_of(" \t\r\n\f");
            std::size_t e = t.find_first_of(" \t\r\n\f", b);
            if (b == std::string::npos) return;
            if (e == std::string::npos) e = t.size();
            begin = &t[0] + b;
            end = &t[0] + e;
        }
        return;
    }
}

void CPDFKilnPage::refObjFilt(iterator it) {
    using namespace PDF_RULES;
    // The chain is followed as long as it leads to objects not met before.
    for (int depth = 0; it != end() && depth < 1024; ++depth) {
        Tokenizer<MatchIndirectObject> refs;
        refs.Tokenize(it->second.data(), it->second.data() + it->second.size());
        if (refs.empty()) return;
        std::istringstream s(refs.GetTokens().front().str());
        int n = 0, g = 0;
        s >> n >> g;
        if (!lengthObjects.insert({n, g}).second) return;
        it = find({n, g});
    }
}

void CPDFKilnPage::lengthObjectFilt_1(iterator it) {
    using namespace PDF_RULES;
    OneTokenizer<MatchLengthEntry> entry;
    entry.Tokenize(it->second.data(), it->second.data() + it->second.size());
    if (entry.empty()) return;
    Tokenizer<MatchIndirectObject> refs;
    refs.Tokenize(entry.GetTokens().front().first, entry.GetTokens().front().second);
    if (refs.empty()) return;
    std::istringstream s(refs.GetTokens().front().str());
    int n = 0, g = 0;
    s >> n >> g;
    lengthObjects.insert({n, g});
    refObjFilt(find({n, g}));
}

void CPDFKilnPage::lengthObjectFilt() {
    // Built once for the facade's life: a later page's length objects are
    // not added.
    if (lengthFilterDone) return;
    for (iterator it = begin(); it != end(); ++it) lengthObjectFilt_1(it);
    lengthFilterDone = true;
}

bool CPDFKilnPage::check(iterator it) {
    if (help_function_MatchStreamObject(it->second)) return false;
    lengthObjectFilt();
    if (lengthObjects.count(it->first)) return false;
    return it->first.second == 0;
}

// ---------------------------------------------------------------------------
// File key and target encryption

SFileKey CPDFKilnPage::getFileKey() const {
    SFileKey k;
    std::string hex;
    static const char digits[] = "0123456789abcdef";
    std::size_t count = 0;
    for (unsigned char c : fileIdText) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
        if (++count % 80 == 0) hex += kw_n;
    }
    std::strncpy(k.text, hex.c_str(), sizeof k.text);
    k.text[sizeof k.text - 1] = '\0';

    std::istream& in = *stream;
    in.clear();
    const std::streampos back = in.tellg();
    in.seekg(0, std::ios::end);
    k.size = static_cast<int32_t>(in.tellg());
    k.pageCount = getPageCount();
    if (!fileIdText.empty() && source) {
        const CFileInfo::CInfo& i = source->fileInfo.info;
        const std::string joined = i.title + i.author + i.subject + i.keywords + i.creator + i.producer;
        k.hash = static_cast<int32_t>(hashstr(joined.data(), static_cast<unsigned int>(joined.size())));
    } else {
        in.clear();
        in.seekg(0);
        uLong crc = crc32(0L, Z_NULL, 0);
        char block[1024];
        for (;;) {
            in.read(block, sizeof block);
            const std::streamsize got = in.gcount();
            if (got <= 0) break;
            crc = crc32(crc, reinterpret_cast<const Bytef*>(block), static_cast<uInt>(got));
            if (!in) break;
        }
        k.hash = static_cast<int32_t>(crc);
    }
    in.clear();
    in.seekg(back);
    return k;
}

int CPDFKilnPage::setEncryptKey(const unsigned char* key, int length, int mode) {
    if (length < 5 || length > 32 || !key) return kResultBadKeyLength;
    encryptKey.assign(reinterpret_cast<const char*>(key), static_cast<std::size_t>(length));
    encryptMethod = mode;
    if (length == 16 && mode == 4) cipherKind = 2;
    else if (length == 32 && mode == 5) cipherKind = 3;
    else cipherKind = 1;
    encryptVersion = cipherKind ? 4 : 0;
    return kResultOk;
}

std::string CPDFKilnPage::getEncryptString() const {
    if (!source || source->fileInfo.encrypt.self.num <= 0) return std::string();
    CDestFile sink;
    CObj obj(source->fileInfo.encrypt.self);
    source->clear();
    if (!obj.LocalObj(sink, *source)) return std::string();
    return sink;
}

int CPDFKilnPage::getSecurity(PASSWORD_TYPE& type, int& permissions) const {
    type = ePasswordNone;
    permissions = -4;
    const std::string text = getEncryptString();
    if (text.empty()) return 0;
    permissions = static_cast<int>(std::strtol(CPageInfo(text).getValueString("/P").c_str(), nullptr, 10));
    switch (SetSourcePassword()) {
        case 1:
        case 5:
        case 6: type = ePasswordRequired; break;
        case 3:
        case 4: type = ePasswordPartial; break;
        default: type = ePasswordNone; break;
    }
    return 0;
}

void CPDFKilnPage::getEncryptInfo(CEncrypt& enc) const {
    if (encryptKey.empty()) return;
    enc.Length = static_cast<int32_t>(encryptKey.size() * 8);
    std::memset(enc.fileKey, 0, sizeof enc.fileKey);
    std::memcpy(enc.fileKey, encryptKey.data(), encryptKey.size());
    enc.R = encryptMethod;
    enc.cipherMode = cipherKind;
    if (cipherKind != 0) {
        enc.V = 4;
        enc.passwordState = 2;
    }
}

std::string CPDFKilnPage::decryptObject(const std::string& text, int number, int generation) const {
    if (cipherKind == 0 || text.find(kwendobj) == std::string::npos) return text;
    CEncrypt enc;
    getEncryptInfo(enc);
    std::istringstream in(text);
    in.unsetf(std::ios::skipws);
    std::string out, token;
    std::size_t copied = 0;
    for (;;) {
        in >> std::ws;
        if (!in.good()) break;
        const std::size_t before = positionIn(in, text.size());
        readPDFString(in, token);
        if (tokenIs(token, kwstream) || tokenIs(token, kwendobj) || (!token.empty() && token.back() == '\0' && !in.good())) break;
        if (!tokenIs(token, "(") && !tokenIs(token, "<")) continue;
        out.append(text, copied, before - copied);
        std::string bytes;
        if (tokenIs(token, "(")) {
            int depth = 1;
            char c = 0;
            while (in.get(c)) {
                if (c == '\\') {
                    char e = 0;
                    if (!in.get(e)) break;
                    const CStringType::EscPair* hit = nullptr;
                    for (const auto& p : CStringType::EscTab)
                        if (p.letter == e) hit = &p;
                    if (hit) bytes += hit->byte;
                    else if (isOctalDigit(e)) {
                        int v = e - '0';
                        for (int k = 0; k < 2 && isOctalDigit(static_cast<char>(in.peek())); ++k)
                            v = v * 8 + (in.get() - '0');
                        bytes += static_cast<char>(v & 0xFF);
                    } else if (e != '\r' && e != '\n') {
                        bytes += e;
                    }
                    continue;
                }
                if (c == '(') ++depth;
                if (c == ')' && --depth == 0) break;
                bytes += c;
            }
        } else {
            std::string digits;
            char c = 0;
            while (in.get(c) && c != '>')
                if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
            if (digits.size() % 2) digits += '0';
            for (std::size_t i = 0; i < digits.size(); i += 2)
                bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
        }
        SObj key(number, generation);
        DecryptString(enc, &key, bytes);
        if (tokenIs(token, "(")) {
            out += '(';
            CStringType::WrtString(out, bytes);
        } else {
            out += '<';
            CStringType::WrtHexString(out, bytes);
        }
        copied = positionIn(in, text.size());
    }
    out.append(text, copied, std::string::npos);
    return out;
}

}  // namespace PDF_KILN
