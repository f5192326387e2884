// The page facade: the caller's entry for embedding pages of a PDF file.
#ifndef PDFKILN_PAGE_H
#define PDFKILN_PAGE_H

#include <istream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

class CSourFile;
class FindingHint;

struct SFileInfo {
    int pageCount = 0;
    int securityVersion = 0;
    bool keyOpenWithEmpty = false;
    bool passwordNeeded = false;
    char versionName[256] = {};
};

class CPDFKilnPage : public std::map<std::pair<int, int>, std::string> {
public:
    CPDFKilnPage(std::istream& in, const std::string& password);
    CPDFKilnPage(const char* fileName, const std::string& password);
    virtual ~CPDFKilnPage();
    virtual int setStartObjNo(int startNo);

    CPDFKilnPage(const CPDFKilnPage&) = delete;
    CPDFKilnPage& operator=(const CPDFKilnPage&) = delete;

    int init();
    int SetSourcePassword() const;
    int SetSourcePassword(const std::string& password);
    bool GetSourceFileInfo(SFileInfo& info) const;
    int getPageCount() const;

    // Read access for tools and tests.
    CSourFile* getSource() const { return source; }
    const std::string& getCatalogText() const { return catalogText; }
    const std::string& getVersionText() const { return versionText; }
    const std::string& getFileIdText() const { return fileIdText; }

protected:
    void findValue();
    int readCatalogText();

    std::string pageText;
    std::string fileName;
    std::istream* stream = nullptr;
    bool ownsStream = false;
    int startObjNo = 0;
    int curPage = 0;
    CSourFile* source = nullptr;
    std::string contentsText, resourcesText, annotsText, formFieldsText, namesText;
    std::string catalogText;
    std::string versionText;
    std::string encryptKey;
    int encryptVersion = 0;
    int encryptMethod = 0;
    int boxOption = 5;
    std::string password;
    std::vector<FindingHint*> hints;
    int hintState = 0;
    std::map<std::pair<int, int>, int> old2newMap;
    std::map<std::pair<int, int>, int> streamObjMap;
    std::map<std::pair<int, int>, int> deliveredSet;
    std::string pageBoxText, pageAttrText, pageExtraText;
    std::vector<int> old2newVector;
    std::string fileIdText;
    int curPageObj[2] = {0, 0};
    std::string resourceText;
};

}  // namespace PDF_KILN

#endif
