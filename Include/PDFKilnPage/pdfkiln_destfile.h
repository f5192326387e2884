// Destination text: the output of the merge and split engine, and the
// scratch sink in which the facade renders one object's text.
#ifndef PDFKILN_DESTFILE_H
#define PDFKILN_DESTFILE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "pdfkiln_fileinfo.h"
#include "pdfkiln_obj.h"
#include "pdfkiln_obj_catalog.h"

namespace PDF_KILN {

class CSourFile;

// A std::string with number formatting; its content is the output buffer.
class Facade_stringstream : public std::string {
public:
    Facade_stringstream() = default;
    explicit Facade_stringstream(const std::string& s) : std::string(s) {}
    // Both format through a fresh default stream: six significant digits for
    // doubles, so large values come out in exponent form.
    Facade_stringstream& operator<<(int v);
    Facade_stringstream& operator<<(double v);
    Facade_stringstream& operator<<(const std::string& s) {
        append(s);
        return *this;
    }
    Facade_stringstream& operator<<(const char* s) {
        append(s);
        return *this;
    }
    Facade_stringstream& operator<<(char c) {
        push_back(c);
        return *this;
    }
};

// Key of the renumbering table: (0, file, old number, old generation),
// built as NewObjTable{0, file, num, gen} and compared in that order.
struct NewObjTable {
    int reserved;
    int file;
    int num;
    int gen;
    bool operator<(const NewObjTable& o) const {
        if (reserved != o.reserved) return reserved < o.reserved;
        if (file != o.file) return file < o.file;
        if (num != o.num) return num < o.num;
        return gen < o.gen;
    }
};

// (file, page), both 1-based; page 0 means every page, (0, 0) every file.
struct FilePageOrder {
    int file = 0;
    int page = 0;
    FilePageOrder() = default;
    FilePageOrder(int f, int p) : file(f), page(p) {}
    bool operator==(const FilePageOrder& o) const { return file == o.file && page == o.page; }
};

struct FOrdObj {};

class CDestFile : public Facade_stringstream {
public:
    enum : int { kKeepNumbers = 1 };

    explicit CDestFile(std::string name = std::string());
    ~CDestFile();
    CDestFile(const CDestFile&) = delete;
    CDestFile& operator=(const CDestFile&) = delete;

    int Init(std::string name = std::string());
    void getStartObj(int start) { startObj = start; }
    int SetReadFileAndPage(std::string selection);
    int Read();
    int ReadHeader();
    int ReadPageObj();
    int TidyObj();
    int Write();
    int WritePageObj();
    int WritePages();
    CSourFile* GetSourFile();
    CSourFile* GetSourFile(int file);
    void DeleteSour();
    void RecordObjInfo(const SObj& obj);
    void insertNewObjTab(const NewObjTable& key, const SObj& value);

    // Adds a source under the next file number (1, 2, ...); not owned until
    // DeleteSour. Returns its file number.
    int addSource(CSourFile* source);

    // True when references are copied as they stand: in keep-numbers mode,
    // and in a scratch sink whose renumbering table nobody has filled.
    bool keepNumbers() const { return (modeFlags & kKeepNumbers) != 0 || !renumbering; }
    // A sink whose table the caller fills rewrites references through it
    // (and drops what it cannot map) even while the table is still empty.
    void setRenumbering(bool on) { renumbering = on; }
    // Looks a source object up in the renumbering table of the current file,
    // then (for the facade's own sinks) in the numbers source, if one is set.
    const SObj* newNumber(int num, int gen) const;
    const CNumberSource* moreNumbers = nullptr;

    std::string versionText;
    int nextObjNo = 1;
    int modeFlags = 0;
    int curFile = 0;
    int baseOffset = 0;
    int startObj = 0;
    std::map<std::string, FOrdObj> nameOrder;
    std::vector<FilePageOrder> order;
    std::map<int, CSourFile*> sources;
    int sourceCount = 0;
    char headerLiteral[9] = "%PDF-1.4";
    std::map<NewObjTable, SObj> newObjTable;
    std::map<NewObjTable, SObj> linkTable;
    int writtenLength = 0;
    CFileInfo fileInfo;       // its object table is the output's cross-reference map
    CCatalog catalog;
    SObj rootPages;           // the output's root page-tree node
    SObj curObj;              // the object being written: key material of output encryption

    // The open /Length slot of the object being copied: where the blanks
    // stand in the buffer and how many there are.
    bool lengthSlotOpen = false;
    std::size_t lengthSlotPos = 0;
    std::size_t lengthSlotWidth = 0;

    // Where the body of the last stream written stands in the buffer.
    std::size_t streamDataPos = 0;
    std::size_t streamDataSize = 0;

    std::string name;

private:
    bool renumbering = false;
    mutable SObj foundNumber;  // what moreNumbers gave last
};

}  // namespace PDF_KILN

#endif
