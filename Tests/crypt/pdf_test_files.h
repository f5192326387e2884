// Helpers for tests that make and read real PDF files: a temporary directory,
// running qpdf, a minimal PDF writer and readers for qpdf's object output.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace crypt_test {

#ifdef PDFKILN_QPDF
inline const char* qpdfPath() { return PDFKILN_QPDF; }
#else
inline const char* qpdfPath() { return ""; }
#endif

inline bool haveQpdf()
{
    return qpdfPath()[0] != '\0' && std::filesystem::exists(qpdfPath());
}

class TempDir {
public:
    TempDir()
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "pdfkiln-crypt-XXXXXX").string();
        if (char* p = mkdtemp(tmpl.data()))
            path_ = p;
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ec);
    }
    std::string file(const std::string& name) const { return (std::filesystem::path(path_) / name).string(); }

private:
    std::string path_;
};

inline std::string shellQuote(const std::string& s)
{
    std::string q = "'";
    for (char c : s) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

// Runs qpdf with the arguments; returns its standard output, and its exit
// status through `status`.
inline std::string runQpdf(const std::vector<std::string>& args, int* status = nullptr)
{
    std::string cmd = shellQuote(qpdfPath());
    for (const auto& a : args)
        cmd += " " + shellQuote(a);
    cmd += " 2>/dev/null";
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) {
        if (status)
            *status = -1;
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    int rc = pclose(p);
    if (status)
        *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void writeFile(const std::string& path, const std::string& data)
{
    std::ofstream out(path, std::ios::binary);
    out << data;
}

// A PDF with the given object bodies (numbered from 1) and trailer entries,
// with a correct cross-reference table.
inline std::string buildPdf(const std::vector<std::string>& objects, const std::string& trailerEntries)
{
    std::string pdf = "%PDF-1.7\n%\xe2\xe3\xcf\xd3\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t off : offsets) {
        char line[32];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", off);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " " + trailerEntries + " >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

// Position just behind `/Key` as a whole name in `text`, or npos.
inline size_t findKey(const std::string& text, const std::string& key, size_t from = 0)
{
    const std::string name = "/" + key;
    for (size_t pos = text.find(name, from); pos != std::string::npos; pos = text.find(name, pos + 1)) {
        const size_t end = pos + name.size();
        if (end >= text.size())
            return std::string::npos;
        const char c = text[end];
        if (c == ' ' || c == '\n' || c == '\r' || c == '<' || c == '(' || c == '/' || c == '[')
            return end;
    }
    return std::string::npos;
}

// A PDF string value (hex or literal) starting at or after `pos`.
inline std::string parseString(const std::string& text, size_t pos)
{
    while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\n' || text[pos] == '\r'))
        ++pos;
    std::string out;
    if (pos >= text.size())
        return out;
    if (text[pos] == '<') {
        size_t end = text.find('>', pos);
        std::string hex = text.substr(pos + 1, end - pos - 1);
        int hi = -1;
        for (char c : hex) {
            int v = std::isxdigit(static_cast<unsigned char>(c)) ? std::stoi(std::string(1, c), nullptr, 16) : -1;
            if (v < 0)
                continue;
            if (hi < 0)
                hi = v;
            else {
                out.push_back(static_cast<char>(hi * 16 + v));
                hi = -1;
            }
        }
        if (hi >= 0)
            out.push_back(static_cast<char>(hi * 16));
        return out;
    }
    if (text[pos] != '(')
        return out;
    int depth = 1;
    for (size_t i = pos + 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\' && i + 1 < text.size()) {
            char e = text[++i];
            switch (e) {
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case '\n': break;
            case '\r': if (i + 1 < text.size() && text[i + 1] == '\n') ++i; break;
            default:
                if (e >= '0' && e <= '7') {
                    int v = e - '0';
                    for (int k = 0; k < 2 && i + 1 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '7'; ++k)
                        v = v * 8 + (text[++i] - '0');
                    out += static_cast<char>(v);
                } else {
                    out += e;
                }
            }
            continue;
        }
        if (c == '(')
            ++depth;
        if (c == ')' && --depth == 0)
            break;
        out += c;
    }
    return out;
}

inline std::string stringValue(const std::string& text, const std::string& key)
{
    const size_t pos = findKey(text, key);
    return pos == std::string::npos ? std::string() : parseString(text, pos);
}

inline long intValue(const std::string& text, const std::string& key, long fallback = 0)
{
    const size_t pos = findKey(text, key);
    if (pos == std::string::npos)
        return fallback;
    return std::strtol(text.c_str() + pos, nullptr, 10);
}

inline std::string nameValue(const std::string& text, const std::string& key)
{
    size_t pos = findKey(text, key);
    if (pos == std::string::npos)
        return std::string();
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    size_t end = pos + 1;
    while (end < text.size() && std::string(" /<>[]()\n\r").find(text[end]) == std::string::npos)
        ++end;
    return text.substr(pos, end - pos);
}

// The raw text of object `num` in a PDF file written without object streams.
inline std::string rawObject(const std::string& pdf, int num)
{
    const std::string head = "\n" + std::to_string(num) + " 0 obj";
    size_t pos = pdf.find(head);
    if (pos == std::string::npos)
        return std::string();
    size_t end = pdf.find("endobj", pos);
    return pdf.substr(pos + 1, end == std::string::npos ? std::string::npos : end - pos - 1);
}

// The raw (still encrypted) bytes of a stream object.
inline std::string rawStreamData(const std::string& objectText)
{
    const long length = intValue(objectText, "Length", -1);
    size_t pos = objectText.find("stream");
    if (length < 0 || pos == std::string::npos)
        return std::string();
    pos += 6;
    if (pos < objectText.size() && objectText[pos] == '\r')
        ++pos;
    if (pos < objectText.size() && objectText[pos] == '\n')
        ++pos;
    return objectText.substr(pos, static_cast<size_t>(length));
}

// The number of the indirect object that `/Key N 0 R` names.
inline int refValue(const std::string& text, const std::string& key)
{
    return static_cast<int>(intValue(text, key, 0));
}

} // namespace crypt_test
