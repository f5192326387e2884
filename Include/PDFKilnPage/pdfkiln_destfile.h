// Destination text: the output of the merge engine, and the scratch sink in
// which an object's text is rendered.
#ifndef PDFKILN_DESTFILE_H
#define PDFKILN_DESTFILE_H

#include <map>
#include <string>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

class CSourFile;

// A std::string with number formatting; its content is the output buffer.
class Facade_stringstream : public std::string {
public:
    Facade_stringstream() = default;
    explicit Facade_stringstream(const std::string& s) : std::string(s) {}
    Facade_stringstream& operator<<(int v);
    Facade_stringstream& operator<<(double v);
};

class CDestFile : public Facade_stringstream {
public:
    explicit CDestFile(std::string name = std::string());
    CSourFile* GetSourFile();
    CSourFile* GetSourFile(int file);

    std::string name;
    int curFile = 0;
    std::map<int, CSourFile*> sources;
};

}  // namespace PDF_KILN

#endif
