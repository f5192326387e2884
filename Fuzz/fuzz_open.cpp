// Fuzz target: open a document from arbitrary bytes, fetch every object of
// its table and run the filter chain of every stream object, then walk every
// page as an embedding program does: select it, number its closure, and take
// its content, resources, annotations (moved by a turning matrix) with their
// link targets, the form's fields and the name dictionary. The input's last
// byte picks the masks, so that switched-off annotations and fields are
// fuzzed too, and whether the document is opened with a password from the
// start or gets one after opening.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace {

// Reads the dictionary of the stream object the view stands at, then its
// body, and decodes it. Bounded by a token budget.
void decodeStream(CSourFile& in, const SObj& key) {
    CStreamType stm(key);
    std::string token;
    long dictStart = static_cast<long>(in.tellg());
    for (int budget = 0; budget < 4096 && in.good(); ++budget) {
        readPDFString(in, token);
        if (token == kwendobj) return;
        if (token == nmLength) {
            std::streampos p = in.tellg();
            if (!stm.ReadLen(in)) return;
            in.clear();
            in.seekg(p);
        } else if (token == nmFilter) {
            stm.ReadFilter(in, dictStart);
        } else if (token == kwstream) {
            if (stm.Read(in)) {
                int len = static_cast<int>(stm.data.size());
                stm.filterStreamType(stm.data, len);
            }
            return;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    const unsigned last = size ? data[size - 1] : 0;
    CPDFKilnPage doc(in, (last & 4) ? "user" : "");
    doc.setPasswordAtOpening((last & 4) != 0);
    doc.init();
    CSourFile* src = doc.getSource();
    if (!src) return 0;
    if (last & 8) {
        try {
            (void)doc.SetSourcePassword(std::string("owner"));
        } catch (int) {
        }
    }
    try { (void)doc.getVersion(); } catch (const std::exception&) {}  // the XMP and /Info claims
    try {
        // Copy the keys: fetching must not change the table, but be safe.
        std::vector<SObj> keys;
        for (const auto& e : *src->fileInfo.objTable)
            if (e.second.kind != 0) keys.push_back(e.first);
        int fetched = 0;
        for (const SObj& k : keys) {
            if (++fetched > 2000) break;
            CDestFile sink{std::string()};
            CObj obj(k);
            obj.LocalObj(sink, *src);
            std::stringstream text;
            CSourFile* owned = new CSourFile(text);
            CSourFile* view = owned;
            src->clear();
            if (CObj::ParseObj(*src, view, text, k)) decodeStream(*view, k);
            delete owned;
            src->clear();
        }
    } catch (const CFileError&) {
    } catch (const std::exception&) {
    } catch (int) {
    }
    try {
        doc.setAnnotsEnable((last & 1) ? static_cast<int>(0x80000000u | 0x2) : 0);
        doc.setAnnotsCustomSubtype({"/Square", "Stamp"});
        doc.setAcroFormsEnable((last & 2) ? 32 : 0x100);
        int next = 1;
        const int pages = std::min(doc.getPageCount(), 64);
        for (int p = 1; p <= pages; ++p) {
            if (doc.setPageNo(p) != 0) continue;
            doc.setPageCm(PgCmTD{0, 0.5f, -0.5f, 0, 300, 10});
            doc.setCurPageObj(next++, 0);
            doc.setStartObjNo(next);
            for (auto it = doc.begin(); it != doc.end(); doc.next(it)) next = std::max(next, it->first.first + 1);
            for (const DestTD& d : doc.getDestVector()) next = std::max(next, d.number + 1);
            const std::string* out = nullptr;
            doc.getPageContents(&out);
            doc.getPageRes(&out, next);
            doc.getPageAnnots(&out);
            out = nullptr;
            doc.getAcroFormFields(&out, next);
            doc.getNames(&out);
            float w = 0, h = 0;
            doc.getPageSize(w, h);
        }
    } catch (const CFileError&) {
    } catch (const std::exception&) {
    } catch (int) {
    }
    return 0;
}
