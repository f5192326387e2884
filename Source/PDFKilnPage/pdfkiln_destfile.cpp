// Destination text buffers.
#include "pdfkiln_destfile.h"

#include <sstream>

namespace PDF_KILN {

Facade_stringstream& Facade_stringstream::operator<<(int v) {
    std::ostringstream s;
    s << v;
    append(s.str());
    return *this;
}

Facade_stringstream& Facade_stringstream::operator<<(double v) {
    std::ostringstream s;
    s << v;
    append(s.str());
    return *this;
}

CDestFile::CDestFile(std::string n) : name(std::move(n)) {}

CSourFile* CDestFile::GetSourFile() { return GetSourFile(curFile); }

CSourFile* CDestFile::GetSourFile(int file) {
    auto it = sources.find(file);
    return it == sources.end() ? nullptr : it->second;
}

}  // namespace PDF_KILN
