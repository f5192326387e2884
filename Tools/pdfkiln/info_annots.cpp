// pdfkiln info --page N: the annotations a page lists in /Annots, each with
// its subtype and rectangle as the file has them (no placement applied), read
// straight from the source: an annotation the library would switch off or
// fail to copy is listed all the same.
#include "info_annots.h"

#include <cstdio>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace {

constexpr int kMaxTokens = 1 << 20;  // tokens of one dictionary or array looked at

struct Annot {
    std::string object;  // "n g R", or "inline"
    std::string subtype;
    std::vector<float> rect;
};

bool endOfInput(const std::istream& in, const std::string& token) {
    return !in.good() && (token.empty() || token.back() == '\0');
}

void skipString(CSourFile& in, const std::string& opener) {
    CStringType s;
    s.isHex = opener == "<";
    s.noDecrypt = true;
    s.Read(in);
}

// The annotation dictionary whose "<<" was just read: /Subtype and /Rect at
// its own level; the stream stops behind its ">>".
void readAnnot(CSourFile& in, Annot& a) {
    int depth = 1;
    std::string token;
    for (int n = 0; n < kMaxTokens && depth > 0; ++n) {
        CObjRef ref;
        if (ref.Read(in)) continue;
        readPDFString(in, token);
        if (endOfInput(in, token) || token == kwendobj || token == kwstream) return;
        if (token == "<<") ++depth;
        else if (token == ">>") --depth;
        else if (token == "(" || token == "<") skipString(in, token);
        else if (depth == 1 && token == nmSubtype) readPDFString(in, a.subtype);
        else if (depth == 1 && token == nmRect) {
            if (!CObj::ReadNumArrayObj(in, a.rect) || a.rect.size() < 4) a.rect.clear();
            in.clear(in.rdstate() & ~std::ios::failbit);
        }
    }
}

// Runs `f` on the text of object `key`, behind its "n g obj".
template <class F>
void atObject(CSourFile& src, const SObj& key, F f) {
    const std::streampos back = src.tellg();
    {
        CObjReader at(src, key);
        if (at) f(at.stream());
    }
    src.clear();
    src.seekg(back);
}

// The /Annots array whose "[" was just read: references and inline dictionaries.
void readArray(CSourFile& src, CSourFile& in, std::vector<Annot>& out) {
    std::string token;
    for (int n = 0; n < kMaxTokens; ++n) {
        CObjRef ref;
        if (ref.Read(in)) {
            Annot a;
            a.object = std::to_string(ref.num) + " " + std::to_string(ref.gen) + " R";
            atObject(src, SObj(ref.num, ref.gen), [&](CSourFile& s) {
                std::string t;
                readPDFString(s, t);
                if (t == "<<") readAnnot(s, a);
            });
            out.push_back(a);
            continue;
        }
        readPDFString(in, token);
        if (endOfInput(in, token) || token == "]" || token == kwendobj) return;
        if (token == "<<") {
            Annot a;
            a.object = "inline";
            readAnnot(in, a);
            out.push_back(a);
        } else if (token == "(" || token == "<") {
            skipString(in, token);
        }
    }
}

// The page's /Annots: an array in the page, or a reference to one.
std::vector<Annot> pageAnnots(CSourFile& src, const SObj& page) {
    std::vector<Annot> out;
    atObject(src, page, [&](CSourFile& s) {
        std::string token;
        readPDFString(s, token);
        if (token != "<<") return;
        int depth = 1;
        for (int n = 0; n < kMaxTokens && depth > 0; ++n) {
            CObjRef ref;
            if (ref.Read(s)) continue;
            readPDFString(s, token);
            if (endOfInput(s, token) || token == kwendobj || token == kwstream) return;
            if (token == "<<") ++depth;
            else if (token == ">>") --depth;
            else if (token == "(" || token == "<") skipString(s, token);
            else if (depth == 1 && token == nmAnnots) {
                if (ref.Read(s)) {
                    atObject(src, SObj(ref.num, ref.gen), [&](CSourFile& a) {
                        std::string t;
                        readPDFString(a, t);
                        if (t == "[") readArray(src, a, out);
                    });
                } else {
                    readPDFString(s, token);
                    if (token == "[") readArray(src, s, out);
                }
                return;
            }
        }
    });
    return out;
}

std::string jsonText(const std::string& v) {
    std::string s = "\"";
    for (unsigned char c : v) {
        if (c == '"' || c == '\\') s += '\\';
        if (c < 0x20 || c >= 0x7f) {
            char b[8];
            std::snprintf(b, sizeof b, "\\u%04x", c);
            s += b;
        } else {
            s += static_cast<char>(c);
        }
    }
    return s + "\"";
}

std::string rectText(const std::vector<float>& r, bool json) {
    if (r.size() < 4) return json ? "null" : "(no /Rect)";
    char b[160];
    std::snprintf(b, sizeof b, json ? "[%g, %g, %g, %g]" : "[%g %g %g %g]", r[0], r[1], r[2], r[3]);
    return b;
}

}  // namespace

void printPageAnnots(CPDFKilnPage& doc, int page, bool json) {
    CSourFile* src = doc.getSource();
    if (!src || page < 1 || page > static_cast<int>(src->pages.size())) return;
    const std::vector<Annot> list = pageAnnots(*src, src->pages[static_cast<std::size_t>(page - 1)]);
    if (json) {
        std::printf("  \"annotations\": {\"page\": %d, \"count\": %zu, \"items\": [", page, list.size());
        for (std::size_t i = 0; i < list.size(); ++i)
            std::printf("%s\n    {\"object\": %s, \"subtype\": %s, \"rect\": %s}", i ? "," : "",
                        jsonText(list[i].object).c_str(),
                        list[i].subtype.empty() ? "null" : jsonText(list[i].subtype).c_str(),
                        rectText(list[i].rect, true).c_str());
        std::printf("%s]},\n", list.empty() ? "" : "\n  ");
        return;
    }
    std::printf("annotations of page %d: %zu\n", page, list.size());
    for (const Annot& a : list)
        std::printf("  %-10s %-14s %s\n", a.object.c_str(), a.subtype.empty() ? "(no /Subtype)" : a.subtype.c_str(),
                    rectText(a.rect, false).c_str());
}
