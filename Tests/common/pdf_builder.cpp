#include "pdf_builder.h"

#include <cstdio>

namespace pdftest {

PdfBuilder::PdfBuilder(const std::string& header, const std::string& junk)
    : text_(junk + header + "\n%\xE2\xE3\xCF\xD3\n"), base_(static_cast<long>(junk.size())) {}

void PdfBuilder::raw(const std::string& s) { text_ += s; }

long PdfBuilder::object(int num, const std::string& body, int gen) {
    const long at = here();
    text_ += std::to_string(num) + " " + std::to_string(gen) + " obj\n" + body + "\nendobj\n";
    pending_[{num, gen}] = Entry{1, at, gen};
    offsets_[num] = at;
    if (num > maxNum_) maxNum_ = num;
    return at;
}

long PdfBuilder::stream(int num, const std::string& dict, const std::string& data, const std::string& lengthValue) {
    const std::string len = lengthValue.empty() ? std::to_string(data.size()) : lengthValue;
    return object(num, "<< " + dict + " /Length " + len + " >>\nstream\n" + data + "\nendstream");
}

std::string PdfBuilder::objectStreamData(const std::vector<std::pair<int, std::string>>& objs, int* first) {
    std::string head, bodies;
    for (const auto& o : objs) {
        head += std::to_string(o.first) + " " + std::to_string(bodies.size()) + " ";
        bodies += o.second + "\n";
    }
    if (first) *first = static_cast<int>(head.size());
    return head + bodies;
}

long PdfBuilder::objectStream(int num, const std::vector<std::pair<int, std::string>>& objs,
                              const std::string& filter, const std::string& lengthValue) {
    int first = 0;
    std::string data = objectStreamData(objs, &first);
    std::string dict = "/Type /ObjStm /N " + std::to_string(objs.size()) + " /First " + std::to_string(first);
    if (filter == "/AHx") {
        data = hexEncode(data);
        dict += " /Filter /AHx";
    }
    const long at = stream(num, dict, data, lengthValue);
    int index = 0;
    for (const auto& o : objs) {
        pending_[{o.first, 0}] = Entry{2, num, index++};
        if (o.first > maxNum_) maxNum_ = o.first;
    }
    return at;
}

std::vector<std::pair<int, std::vector<PdfBuilder::Entry>>> PdfBuilder::takeSections() {
    if (firstSection_) pending_[{0, 65535}] = Entry{0, 0, 65535};
    firstSection_ = false;
    std::vector<std::pair<int, std::vector<Entry>>> runs;
    int last = -2;
    for (const auto& e : pending_) {
        if (e.first.first != last + 1) runs.push_back({e.first.first, {}});
        runs.back().second.push_back(e.second);
        last = e.first.first;
    }
    pending_.clear();
    return runs;
}

long PdfBuilder::xrefTable(const std::string& trailer) {
    const long at = here();
    text_ += "xref\n";
    for (const auto& run : takeSections()) {
        text_ += std::to_string(run.first) + " " + std::to_string(run.second.size()) + "\n";
        for (const Entry& e : run.second) {
            char line[32];
            std::snprintf(line, sizeof line, "%010ld %05d %c\r\n", e.f2, e.f3, e.type == 0 ? 'f' : 'n');
            text_ += line;
        }
    }
    text_ += "trailer\n<< ";
    if (trailer.find("/Size") == std::string::npos) text_ += "/Size " + std::to_string(maxNum_ + 1) + " ";
    text_ += trailer + " >>\n";
    return at;
}

long PdfBuilder::xrefStream(int num, const std::string& dict, const std::string& filter, const std::string& indexText) {
    const long at = here();
    if (num > maxNum_) maxNum_ = num;
    pending_[{num, 0}] = Entry{1, at, 0};
    std::string data, index;
    for (const auto& run : takeSections()) {
        index += std::to_string(run.first) + " " + std::to_string(run.second.size()) + " ";
        for (const Entry& e : run.second) {
            data += static_cast<char>(e.type);
            for (int s = 24; s >= 0; s -= 8) data += static_cast<char>((e.f2 >> s) & 0xFF);
            data += static_cast<char>((e.f3 >> 8) & 0xFF);
            data += static_cast<char>(e.f3 & 0xFF);
        }
    }
    std::string d = "/Type /XRef /W [1 4 2]";
    if (indexText.empty()) d += " /Index [" + index + "]";
    else if (indexText != "none") d += " /Index " + indexText;
    if (dict.find("/Size") == std::string::npos) d += " /Size " + std::to_string(maxNum_ + 1);
    if (filter == "/AHx") {
        data = hexEncode(data);
        d += " /Filter /AHx";
    }
    d += " " + dict;
    text_ += std::to_string(num) + " 0 obj\n<< " + d + " /Length " + std::to_string(data.size()) +
             " >>\nstream\n" + data + "\nendstream\nendobj\n";
    offsets_[num] = at;
    return at;
}

void PdfBuilder::startxref(long value) { startxref(std::to_string(value)); }

void PdfBuilder::startxref(const std::string& value) { text_ += "startxref\n" + value + "\n%%EOF\n"; }

long PdfBuilder::offsetOf(int num) const {
    auto it = offsets_.find(num);
    return it == offsets_.end() ? -1 : it->second;
}

std::string hexEncode(const std::string& data) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : data) out += {digits[c >> 4], digits[c & 15]};
    return out + ">";
}

std::string minimalPdf(const std::string& header, const std::string& junk) {
    PdfBuilder b(header, junk);
    b.catalog();
    b.startxref(b.xrefTable("/Root 1 0 R"));
    return b.str();
}

std::string buildPdf(std::map<int, std::string> objects, const std::string& trailer, const std::string& header) {
    objects.emplace(1, "<< /Type /Catalog /Pages 2 0 R >>");
    objects.emplace(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    PdfBuilder b(header);
    for (const auto& o : objects) {
        const std::size_t cut = o.second.find("stream:");
        if (cut != std::string::npos) b.stream(o.first, o.second.substr(0, cut), o.second.substr(cut + 7));
        else b.object(o.first, o.second);
    }
    b.startxref(b.xrefTable(trailer));
    return b.str();
}

}  // namespace pdftest
