// The cross-reference chain, the trailer values, /Info and /ID of a file.
#ifndef PDFKILN_FILEINFO_H
#define PDFKILN_FILEINFO_H

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "pdfkiln_obj.h"
#include "pfdecrypt.h"

namespace PDF_KILN {

extern const char* const FORMATDATE;

struct InfoDate {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    char zoneSign = 'Z';
    int zoneHour = 0, zoneMinute = 0;
};

struct InfoDic {
    char author[256] = {};
    InfoDate creationDate;
    InfoDate modDate;
    char creator[256] = {};
    char producer[256] = {};
    char title[256] = {};
    char subject[256] = {};
    char keywords[256] = {};
    char trapped[256] = {};
};

class CFileInfo : public CObj {
public:
    class CInfo : public CObj {
    public:
        CInfo();
        bool Read(CSourFile& in) override;
        bool Write(CDestFile& out, CSourFile& in) override;
        bool ReadInfo(CSourFile& in, const std::string& key);
        void SetInfo(InfoDic info);
        static void createdate(std::string& out);

        std::string title, author, subject, keywords, creator, producer, trapped,
            creationDate, modDate, lastString;

    private:
        bool readInfo(CSourFile& in, const std::string& key, int depth);
    };

    class CFileID : public CFileBlock {
    public:
        CFileID();
        bool Read(CSourFile&) override { return true; }
        bool Write(CDestFile& out, CSourFile& in) override;
        void WriteID(CDestFile& out);
        unsigned char id1[256];
        unsigned char id2[256];
        std::size_t id1Length = 0;
        std::size_t id2Length = 0;
    };

    CFileInfo();
    CFileInfo(const CFileInfo&) = delete;
    CFileInfo& operator=(const CFileInfo&) = delete;
    bool Read(CSourFile& in) override;
    bool Write(CDestFile& out, CSourFile& in) override;
    void WriteXRef(CDestFile& out);
    // After the table is known: reads /Info and /Encrypt and tries the
    // empty password. What Read does behind the chain walk.
    bool ReadInfoAndEncrypt(CSourFile& in);
    int GetPrev(CSourFile& in, bool expectTrailer);
    bool ReadCrt(CSourFile& in);
    bool ReadXRefObj(CSourFile& in, int& inOut);
    SObjState GetObjState(const int& num, const int& gen) const;
    SObjState GetObjState(const SObj& key) const;
    void Tidy();
    void Init();

    ObjTable* objTable;
    ObjTable ownTable;
    // Where objects begin (classic in-use entries, the end of the last
    // section, headers found by a rebuild), in the order they were met.
    std::vector<long long> positions;
    // The sorted, distinct object positions CObjectPosition ends objects at.
    std::vector<unsigned long> offsets;
    CEncrypt encrypt;
    int size = 0;
    SObj rootRef;
    CFileID fileId;
    CInfo info;

    // What the chain walk met, for diagnostics: classic sections and
    // cross-reference streams read, in the order read.
    int classicSections = 0;
    int xrefStreams = 0;

private:
    bool openDict(CSourFile& in);
    void readTrailerRoot(CSourFile& in);
    bool readTrailerEncrypt(CSourFile& in);
    bool readTrailerID(CSourFile& in);
    bool readIDString(CSourFile& in, const std::string& opener, unsigned char* dst, std::size_t& len);
};

}  // namespace PDF_KILN

#endif
