// An opened PDF document: the input stream and everything learned about it.
#ifndef PDFKILN_SOURFILE_H
#define PDFKILN_SOURFILE_H

#include <istream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "pdfkiln_memsource.h"
#include "pdfkiln_fileinfo.h"
#include "pdfkiln_obj.h"
#include "pdfkiln_obj_action.h"
#include "pdfkiln_obj_catalog.h"
#include "pdfkiln_obj_page.h"
#include "pdfkiln_reftable.h"

namespace PDF_KILN {

class CSourFile : public std::istream {
public:
    // Binds to the buffer of `in`, which must outlive this object. Reads nothing.
    explicit CSourFile(std::istream& in);
    // Reads from `buf` (a memory source), which must outlive this object.
    explicit CSourFile(std::streambuf* buf);
    // The memory buffer read from, when it is one: the token reader then
    // works on its bytes directly.
    CMemoryBuf* memory() const { return memory_; }
    // tellg(), and `*this >> std::ws`, with the same results and stream
    // states, read off the bytes in memory without the stream machinery.
    std::streampos tell() {
        if (memory_ && !fail()) return std::streampos(memory_->offset());
        return tellg();
    }
    CSourFile& skipWs();
    ~CSourFile() override;
    CSourFile(const CSourFile&) = delete;
    CSourFile& operator=(const CSourFile&) = delete;

    int CheckAndInit();
    // What CheckAndInit would give after the password changed. Where the last
    // full reading took nothing through the file key (no string or stream
    // deciphered, no rebuilt table) only the document information, the
    // /Encrypt dictionary and the key trial depend on the password: those are
    // read again, the cross-reference chain, catalog and page tree are kept.
    // Otherwise, or when the new trial leaves another password state than the
    // page tree was walked with, it is CheckAndInit.
    int ReadAgainWithKey();
    // /Info, /Encrypt and the key trial read again over the kept reading.
    // False, with the state as it was, where that fails or the trial leaves
    // another password state than the page tree walk saw.
    bool ReadInfoAndEncryptAgain();
    int InitOther();
    // Reads one page and enters the objects it reaches into fileObjects.
    void readPageClosure(const SObj& page);
    // Puts an object into fileObjects; an object not reached as content or
    // resources gets the digest of its stream data (if any) as its text.
    void insertFileObject(SObj& o);
    // Lists the leaf pages with a work list, depth first in document order.
    int readPageTree();
    void clearPageTree();
    bool isPage(const SObj& o) const { return pageSet.count(o) != 0; }
    // Takes ownership of `info`, replacing what the page had.
    void setPaperInfo(const SObj& page, CPaperInfo* info);
    void setPaperInfo(const SObj& page, const CPaperInfo& info) { paperInfo.set(page, info); }
    const CPaperInfo* getPaperInfo(const SObj& page) const;
    bool FindStr(const std::string& what);
    // Looks a named destination up in the catalog's /Dests and /Names trees;
    // true for any non-empty name, `dest` holding zeros when it is not found.
    bool getNameDest(const std::string& name, DestTD& dest);

    // A view over one object's text taken out of an object stream, sharing
    // this source's options (and, where asked, its object table).
    void makeView(CSourFile& parent, bool shareTable);
    // The source that owns the real file (this one unless this is a view).
    CSourFile& root() { return viewParent ? viewParent->root() : *this; }

    // Decoded object streams by container number: each is decoded once per
    // opening instead of once per object fetched out of it.
    void cacheObjectStream(int container, std::string data, int first, int count);
    struct DecodedObjStm {
        std::string data;
        int first = 0;
        int count = 0;
        // The (number, offset) pairs of its head, read once on first use up
        // to the first pair that does not read.
        std::vector<std::pair<int, int>> index;
        bool indexed = false;
    };
    const DecodedObjStm* decodedObjStm(int container) const;
    DecodedObjStm* decodedObjStm(int container);
    // Containers being decoded right now, so that a container whose /Length
    // is stored inside itself fails instead of recursing without end.
    std::set<int> objStmDecoding;
    // Object streams whose data did not decode: not decoded again.
    std::set<int> objStmUndecodable;
    // Largest decoded size of one stream, and of all decoded object streams
    // kept at once; 0 for no budget (see CPDFKilnPage::setDecodedBudget).
    std::size_t decodeBudget = 0;

    CCatalog catalog;
    CFileInfo fileInfo;
    std::set<SObj> fileObjects;
    // Entries of fileObjects added or changed since the facade last numbered
    // them: a page's numbering works on these, not on the whole closure.
    std::vector<SObj> freshObjects;
    std::set<SObj> writtenObjects;
    std::set<SObj> formObjects;
    std::string version;
    std::vector<SObj> pages;
    int headerOffset = 0;
    std::set<SObj> xrefStreamObjects;
    bool objectStreamView = false;
    float pageCm[6] = {1, 0, 0, 1, 0, 0};
    int pageRotate = 0;
    int curPageNo = 0;
    int annotsEnable = 0;
    std::vector<std::string> annotSubtypes;
    int acroFormsEnable = 0;
    // Reading options beyond the default rules, off unless the caller asks:
    // literal strings end at the ")" that balances their opener, and a file
    // whose cross-reference chain gives no usable catalog gets its object
    // table rebuilt from the "N G obj" headers in its bytes.
    bool nestedStrings = false;
    bool rebuildTable = false;
    // Set when the object table in use was rebuilt by that scan.
    bool tableRebuilt = false;
    // Whether the last full reading deciphered anything or rebuilt the table,
    // and the password state its page tree walk saw (ReadAgainWithKey).
    bool readingUsedKey = true;
    int32_t readingPasswordState = 0;
    // The scan: fills the object table, the catalog reference and the trailer
    // values from the bytes of the file. False when no catalog is found.
    bool rebuildObjectTable();

    CSourFile* viewParent = nullptr;

    // The page tree (filled by readPageTree and CPages::Read).
    RefSet pageSet;                  // the pages, for the page guard
    RefMap<SKey> ownerMap;           // object -> node or page that pulled it in
    RefMap<SKey> parentMap;          // node -> its /Parent
    PaperTable paperInfo;            // page -> geometry
    // The running inherited attributes of the tree walk: one set per source.
    RectTD inheritedBox[5];
    int inheritedRotate = 0;
    SObj inheritedResources, inheritedFont, inheritedXObject;

    // What a tree node says about resources, learnt once per opening.
    struct NodeResources {
        SObj resources;             // its /Resources reference, if any
        std::vector<SObj> direct;   // references inside a direct /Resources
        SObj parent;                // its /Parent
    };
    std::map<SObj, NodeResources> nodeResources;

    // The current page's lists (CPage::Read starts them empty).
    std::set<SObj> contentsSet;
    std::vector<SObj> contentsVector;
    std::set<SObj> resourcesSet;
    std::vector<SObj> resourcesVector;
    std::set<SObj> annotsSet;
    // Objects that PieceInfoSelector marked private, and its three marks.
    std::set<SObj> pieceSet;
    std::string pieceMarks[3];
    // Objects created while reading, with the identifier they are given:
    // one per link target of the current page, keyed by its annotation
    // (aux holds the target's ordinal).
    std::map<SObj, SObj> createdObjects;
    // Link targets by (ordinal, annotation), and the actions that hold them
    // with the annotation each belongs to.
    std::map<SDestObjKey, SDestInfo> destMap;
    std::map<SObj, SObj> linkSet;
    // Annotations already met, and form fields (with their flags) of the document.
    std::set<SObj> annotsMet;
    std::set<SObj> fieldSet;
    // The current page's annotation array as it stands (empty when /Annots
    // is a reference), and the annotations it lists, in order.
    std::vector<SObj> annotsVector;
    // Structure elements and document parts with the page each names.
    std::map<SObj, SObj> tagPages;
    std::map<SObj, SObj> partPages;

    // Output: this source's group node in a merged page tree.
    std::unique_ptr<CPages> groupNode;
    SObj groupNo;

private:
    // The whole of CheckAndInit's reading.
    int readWhole();
    std::map<int, DecodedObjStm> objStmCache;
    CMemoryBuf* memory_ = nullptr;
};

}  // namespace PDF_KILN

#endif
