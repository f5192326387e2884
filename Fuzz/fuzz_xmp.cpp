// Fuzz target: the pull XML parser over arbitrary bytes (every node and
// attribute walked), and the same bytes as a document's /Metadata stream
// read by getVersion in both XMP forms. A packet that is not well formed
// ends in ZQXmlException; nothing may crash, hang or grow without bound.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace {

void walk(const uint8_t* data, size_t size) {
    ZQRef<ZQMemStream> memory(new ZQMemStream(data, size, 8192));
    ZQRef<ZQXmlParser> parser = ZQXmlUtil::getRootParser(memory);
    if (!parser) return;
    try {
        std::size_t seen = 0;
        while (ZQRef<ZQNode> node = parser->next()) {
            seen += node->value().size() + node->name().qualified().size();
            for (auto a = node->attributes().rbegin(); a != node->attributes().rend(); ++a)
                seen += (*a)->value().size();
        }
        if (seen > size * 64 + 4096) __builtin_trap();  // no amplification
    } catch (const ZQXmlException&) {
    }
}

std::string document(const uint8_t* data, size_t size) {
    const std::string packet(reinterpret_cast<const char*>(data), size);
    std::string pdf = "%PDF-1.7\n";
    std::string offsets[4];
    auto object = [&](int n, const std::string& body) {
        char b[16];
        std::snprintf(b, sizeof b, "%010zu", pdf.size());
        offsets[n] = b;
        pdf += std::to_string(n) + " 0 obj\n" + body + "\nendobj\n";
    };
    object(1, "<< /Type /Catalog /Pages 2 0 R /Metadata 3 0 R /OutputIntents [<< /S /GTS_PDFA1 >>] >>");
    object(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    object(3, "<< /Type /Metadata /Subtype /XML /Length " + std::to_string(size) + " >>\nstream\n" + packet +
                  "\nendstream");
    const std::size_t xref = pdf.size();
    pdf += "xref\n0 4\n0000000000 65535 f \n";
    for (int n = 1; n < 4; ++n) pdf += offsets[n] + " 00000 n \n";
    pdf += "trailer\n<< /Size 4 /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    walk(data, size);
    std::istringstream in(document(data, size));
    CPDFKilnPage doc(in, "");
    if (doc.init() != 0) return 0;
    for (bool attributes : {false, true}) {
        doc.setReadXmpAttributes(attributes);
        try {
            const unsigned int code = doc.getVersion();
            if (code > 0xFFFF) __builtin_trap();
        } catch (const ZQXmlException&) {
        } catch (const std::exception&) {
        }
    }
    return 0;
}
