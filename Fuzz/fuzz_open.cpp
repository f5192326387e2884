// Fuzz target: open a document from arbitrary bytes, then fetch every object
// of its table and run the filter chain of every stream object.
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
    CPDFKilnPage doc(in, "");
    doc.init();
    CSourFile* src = doc.getSource();
    if (!src) return 0;
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
    return 0;
}
