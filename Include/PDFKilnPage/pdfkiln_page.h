// The page facade: the caller's entry for embedding pages of a PDF file.
#ifndef PDFKILN_PAGE_H
#define PDFKILN_PAGE_H

#include <cstdint>
#include <istream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <unicode/unistr.h>

#include "pdfkiln_memsource.h"
#include "pdfkiln_obj.h"
#include "pdfkiln_obj_action.h"
#include "pdfkiln_obj_annot.h"
#include "pdfkiln_obj_page.h"

namespace PDF_KILN {

class CSourFile;
class CDestFile;
class CEncrypt;
class FindingHint;

// A page object's text, and the value of one of its keys cut out of it.
// What getSecurity tells of a file's passwords.
enum PASSWORD_TYPE {
    ePasswordNone = 0,      // no password needed, or the one given opens everything
    ePasswordPartial = 3,   // the password given matched one level only
    ePasswordRequired = 4   // no password given opens the file
};

class CPageInfo {
public:
    explicit CPageInfo(const std::string& text) : text(text) {}
    std::string getValueString(const std::string& key) const;

private:
    const std::string& text;
};

// Merges a page's inline resources (first) with its resource object (second).
class ResourceDictMerger {
public:
    ResourceDictMerger(const std::string& first, const std::string& second) : first(first), second(second) {}
    // Appends key "<<" and the insides of both texts' dictionaries of `key` ">>".
    void dictValMerge(const std::string& key, std::string& merged) const;

private:
    const std::string& first;
    const std::string& second;
};

// The file key of getFileKey: identifier text, size, page count, hash.
struct SFileKey {
    char text[256] = {};
    int32_t size = 0;
    int32_t pageCount = 0;
    int32_t hash = 0;
};

// Text utilities of the facade.
std::string getDicStr(const std::string& text);
std::string getArrayStr(const std::string& text);
unsigned int hashstr(const char* data, unsigned int length);
bool aIncludeB(const std::string& a, const std::string& b);
// 1 when the text holds a dictionary followed by "stream" and, later, "endstream".
int help_function_MatchStreamObject(std::string& text);
// A PDF text string's value as UTF-16 code units (a UnicodeString's content).
icu::UnicodeString getXFString(const std::string& text);

template <typename Char_T, int Digits>
struct GetDataFromHexString {
    // The value of up to `Digits` hexadecimal digits, most significant first.
    static unsigned int axtoi(const char* text);
};

namespace privated {
void getIntersectRect(const RectTD& a, const RectTD& b, RectTD& out);
}

template <typename Tokenizer_T>
int helpFunction_getPageBox(const Tokenizer_T& tokenizer, float& x1, float& y1, float& x2, float& y2);

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
    // Reading options that other readers apply and the default rules do not;
    // both off unless set, and both act from the next init (or password).
    // Literal strings end at the ")" that balances their opener (ISO 32000-1
    // 7.3.4.2) instead of at the first ")".
    void setBalancedStrings(bool on);
    // When the cross-reference chain gives no usable catalog, the object
    // table is rebuilt from the "N G obj" headers in the file's bytes, with
    // the catalog named by the last trailer or found by its /Type.
    void setRebuildObjectTable(bool on);
    // Whether the document in use was opened through that rebuild.
    bool isObjectTableRebuilt() const;
    int SetSourcePassword() const;
    int SetSourcePassword(const std::string& password);
    bool GetSourceFileInfo(SFileInfo& info) const;
    int getPageCount() const;

    enum EBox { eMediaBox = 0, eCropBox = 1, eBleedBox = 2, eTrimBox = 3, eArtBox = 4, eVisibleBox = 5 };
    typedef std::vector<std::pair<std::pair<int, int>, std::pair<int, int>>> Old2NewVector;
    typedef std::map<std::pair<int, int>, std::pair<int, int>> NumberMap;

    // Page selection and geometry.
    int setPageNo(int page);
    int setBoxOption(EBox box);
    int getPageBox(EBox box, float& x1, float& y1, float& x2, float& y2) const;
    int getPageBox(int page, EBox box, float& x1, float& y1, float& x2, float& y2) const;
    int getPageSize(float& w, float& h) const;
    int getPageSize(int page, float& w, float& h, EBox box) const;
    int getPageSizeEx(float& x, float& y, float& w, float& h) const;
    int getPageRotate(int& rotate) const;
    int getPageRotate(int page, int& rotate) const;
    int setPageCm(const PgCmTD& cm);
    void setCurPageObj(int number, int generation);
    // Largest decoded size, in bytes, of a stream the library decodes for this
    // document (cross-reference and object streams, and each stage of any
    // other), and of the content getPageContents collects for a page. 0, the
    // default, leaves the decoders' own cap per stage. While it is set, a
    // decoding that fails or passes it reports kResultFilterFailed (5000).
    // Acts from the next init on for the reading of the file's structure, at
    // once for content.
    void setDecodedBudget(std::size_t bytes);
    // Off unless set. Where it is, init reads the document with the password
    // given to the constructor from the start, where otherwise it reads with
    // the empty password and SetSourcePassword(password) reads again: the
    // document is what init and SetSourcePassword(password) give (a later
    // SetSourcePassword with that password keeps it), from one reading and
    // without trying the empty password as the owner's. Where the empty
    // password's reading would fail and the given one's does not, init
    // succeeds. Acts from the next init.
    void setPasswordAtOpening(bool on);

    // Content and resources of the current page.
    int getPageContents(const std::string** out);
    // The current page's content as stored, for a caller that copies it
    // without decoding it: available when the page has one content stream
    // (not a private /PieceInfo object) whose /Filter and /DecodeParms are
    // written in its dictionary, not behind references. `out` gets the
    // stream's bytes (decrypted, still encoded), `filter` and `parms` the
    // values of those two entries as written (empty when absent). Gives
    // kResultOk, or kResultNotLocalised when the content is not available
    // this way (getPageContents then gives it decoded).
    int getPageContentsEncoded(const std::string** out, std::string& filter, std::string& parms);
    int getPageRes(const std::string** out, int newNumber);
    int getNames(const std::string** out);
    std::string getPageRootString(int newNumber) const;
    std::string getRootString(int newNumber) const;
    const std::string& getPageGroupText() const { return pageGroupText; }

    // Annotations and form fields: the masks act at the next setPageNo.
    void setAnnotsEnable(PDF_KILN_AnnotsEnableE mask);
    void setAcroFormsEnable(PDF_KILN_AcroFormsEnableE mask);
    void setAnnotsCustomSubtype(const std::vector<std::string>& subtypes);
    // The page's annotation entries, without the array's brackets; always 0.
    int getPageAnnots(const std::string** out);
    // The inside of the document's /AcroForm; with the form mask 0, returns 0
    // and leaves *out alone. 8001 when the form cannot be fetched.
    int getAcroFormFields(const std::string** out, int newNumber);
    // The link targets of the current page, one per created object, in the
    // order of their numbers.
    std::vector<DestTD> getDestVector() const;

    // Numbering.
    void setOld2NewObjectVector(const Old2NewVector& v);
    Old2NewVector getOld2NewObjectVector() const;
    void setStreamObjMap(std::map<std::string, std::pair<int, int>>* map);
    int next(iterator& it);
    int next(const_iterator& it) const;
    bool check(iterator it);
    void refObjFilt(iterator it);
    void lengthObjectFilt();
    void lengthObjectFilt_1(iterator it);
    // The bounds of a stream's length value in the text of `where`.
    void findLengthPos(iterator it, char*& begin, char*& end, iterator& where);
    int calcStreamLength(iterator it);
    static bool isStreamObj(const std::string& text, std::string& digest);

    // Text and security accessors.
    static bool unescapeStringObj(const std::string& in, std::string& out);
    static bool unescapeNameObj(const std::string& in, std::string& out);
    static bool unescapeFilseSpecification(const std::string& in, std::string& out);
    SFileKey getFileKey() const;
    int setEncryptKey(const unsigned char* key, int length, int mode);
    // The text of the /Encrypt object; empty when there is none.
    std::string getEncryptString() const;
    // The password situation and the /P permissions (-4 when unencrypted); returns 0.
    int getSecurity(PASSWORD_TYPE& type, int& permissions) const;
    void getEncryptInfo(CEncrypt& encrypt) const;
    int targetCipher() const { return cipherKind; }
    const std::string& getEncryptKey() const { return encryptKey; }

    // Output intents, version and conformance. The intents are read once
    // at opening; an index out of range, or a key without value, gives "".
    int getOutputIntentsCount() const;
    std::string getOPIOutputConditionIdentifier(unsigned short index) const;
    std::string getOPIS(unsigned short index) const;
    std::string getOPIRegistryName(unsigned short index) const;
    // The decoded ICC profile.
    std::string getOPIDestOutputProfile(unsigned short index) const;
    std::string getOPIProfileName(unsigned short index) const;
    std::string getOPIF(unsigned short index) const;
    std::string getOPIFS(unsigned short index) const;
    std::string getOPIProfileCS(unsigned short index) const;
    std::string getOPICheckSum(unsigned short index) const;
    std::string getOPIICCVersion(unsigned short index) const;
    // /Info and /OutputCondition as Unicode; cleared first.
    void getOPIInfo(unsigned short index, icu::UnicodeString& out) const;
    void getOPIOutputCondition(unsigned short index, icu::UnicodeString& out) const;
    // Bits 0-7 the PDF version (0..7 for 1.0..1.7, 10 for 2.0), bits 8-11
    // the PDF/X kind, bits 12-15 the PDF/A kind. Reads the XMP metadata on
    // every call; a metadata packet that is not well-formed XML throws the
    // parser's exception (ZQXmlException, a std::exception).
    unsigned int getVersion() const;
    // Off by default: getVersion reads pdfaid:part and pdfaid:conformance
    // in element form only. On, their attribute form on the rdf:Description
    // that declares the schema counts as well.
    void setReadXmpAttributes(bool on) { readXmpAttributes = on; }
    // The /Marked value of the catalog's /MarkInfo.
    bool isMarked() const;
    // The default optional-content configuration in the caller's numbering:
    // /ON groups with true, then /OFF groups with false (a group met twice
    // keeps its first value), and /Order appended to `order`; only the
    // groups that were numbered or delivered for the caller appear.
    void getCatalogOCProperties(std::map<std::pair<int, int>, bool>& state,
                                std::vector<std::pair<int, int>>& order) const;

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
    CMemSource input;  // the document's bytes, parsed from memory
    int startObjNo = 0;
    int curPage = 0;
    // True from a successful init until a page is selected or an option that
    // the reading depends on changes: SetSourcePassword may then keep the
    // reading when the password gives the same key.
    bool openedAsIs = false;
    bool passwordAtOpening = false;
    // After a reading made with the given password: the state SetSourcePassword
    // after a reading with the empty one would leave.
    int settleGivenPassword();
    // The reading again after a new key (keeping the structure where the last
    // reading allows, else in full), then the catalog text.
    int readAgain(bool keepStructure);
    static void supplyPassword(CEncrypt& enc, const std::string& pwd);
    // The key and password state of the last full reading (keyState).
    std::string readingKeyState;
    static std::string keyState(const CEncrypt& enc);
    CSourFile* source = nullptr;
    std::size_t decodedBudget = 0;
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
    NumberMap old2newMap;
    NumberMap deliveredMap;
    std::map<std::string, std::pair<int, int>>* streamObjMap = nullptr;
    std::string pageBoxText, pageAttrText, pageExtraText;
    Old2NewVector old2newVector;
    std::string fileIdText;
    int curPageObj[2] = {0, 0};
    std::string resourceText;
    std::string pageGroupText;
    std::set<std::pair<int, int>> lengthObjects;
    bool lengthFilterDone = false;
    int cipherKind = 0;  // target cipher: 0 none, 1 RC4, 2 AES-128, 3 AES-256
    int outputIntentsCount = 0;
    bool readXmpAttributes = false;
    std::string outputIntentValue(unsigned short index, const char* key) const;
    bool balancedStrings = false;
    bool rebuildObjectTable = false;

    // The renumbering of getPageRootString and its kin: known mappings
    // first, then numbers counted up from the start number.
    void fillRenumbering(CDestFile& dest) const;
    bool renderObject(CDestFile& dest, const SObj& key, int newNumber) const;
    // Closure entries in neither map, in key order: the objects of the
    // pages read since the last numbering.
    std::vector<SObj> unnumberedObjects() const;

    // The mappings of the old-to-new and delivered maps, for closure entries
    // that are not left out: what every sink of this facade consults.
    class KnownNumbers : public CNumberSource {
    public:
        explicit KnownNumbers(const CPDFKilnPage& f) : facade(f) {}
        bool findNumber(int num, int gen, SObj& out) const override;

    private:
        const CPDFKilnPage& facade;
    };
    KnownNumbers knownNumbers{*this};
    std::string decryptObject(const std::string& text, int number, int generation) const;
    void rewriteInlineAnnots();
};

}  // namespace PDF_KILN

#endif
