// The /Encrypt dictionary of a document and the per-document security state.
#ifndef PDFKILN_PFDECRYPT_H
#define PDFKILN_PFDECRYPT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "pdfkiln_obj.h"

namespace pcrypt {
struct EncryptInfo;
class DerivedKeyCache;
class ObjectDecryptor;
}

namespace PDF_KILN {

class CEncrypt : public CObj {
public:
    CEncrypt();
    bool Read(CSourFile& in) override;
    bool Write(CDestFile& out, CSourFile& in) override;

    // Kept for callers of the older interface; they do nothing and return 1.
    int EncrptStream(std::string& data, int& length);
    int EncryptString(std::string& data, int& length);

    // The version text of output; "%PDF-1.3" unless a writer says otherwise.
    std::string versionText = "%PDF-1.3";

    unsigned char O[256];
    unsigned char U[256];
    unsigned char OE[256];
    unsigned char UE[256];
    unsigned char Perms[256];
    char Filter[96];
    int32_t P = 0;
    int32_t Length = 0;
    int32_t R = 0;
    int32_t V = 0;
    unsigned char ID[256];
    std::size_t IDLength = 0;
    bool EncryptMetadata = true;
    char suppliedPassword[33];
    int32_t passwordState = 0;
    bool passwordFlagOwner = false;
    bool passwordFlagUser = false;
    unsigned char fileKey[256];
    unsigned char ownerPasswordText[32];
    unsigned char userPasswordText[32];
    int32_t cipherMode = 0;
    int32_t handlerKind = 0;

    // Lengths of the string values as read.
    int OLength = 0, ULength = 0, OELength = 0, UELength = 0, PermsLength = 0;

    bool encrypted() const { return passwordState > 0 && Length >= 1; }

    // How many strings and streams DecryptString has deciphered with this
    // record: a reading that leaves it unchanged did not depend on the key.
    mutable std::size_t decryptCount = 0;

    // Key derivations made for this document, handed to every exchange record
    // saveEncryptInfo makes from it, so that each password is worked out once
    // however often the trials run. Copies of a CEncrypt share it.
    std::shared_ptr<pcrypt::DerivedKeyCache> derivedKeys;

    // Drops the record DecryptString works from. The security layer does so
    // whenever it changes the key or the state; a change made to the fields
    // directly (a caller's key, say) is noticed by DecryptString itself.
    void invalidateDecryptRecord() const;

private:
    friend int DecryptString(const CEncrypt& enc, SObj* object, std::string& data);

    // The record of DecryptString, made once from this CEncrypt, with the
    // fields it was made from. A copy of the CEncrypt starts without one.
    struct DecryptRecord {
        DecryptRecord();
        DecryptRecord(const DecryptRecord&);
        DecryptRecord& operator=(const DecryptRecord&);
        ~DecryptRecord();
        std::unique_ptr<pcrypt::ObjectDecryptor> decryptor;
        int32_t Length = 0, R = 0, V = 0, cipherMode = 0, passwordState = 0;
    };
    mutable DecryptRecord decryptRecord;
};

// Copies the security state into a fresh exchange record, and back.
void saveEncryptInfo(const CEncrypt& enc, pcrypt::EncryptInfo& info);
void resaveEncryptInfo(const pcrypt::EncryptInfo& info, CEncrypt& enc);

// Decrypts a string or stream body of `object` in place. Always returns 0.
int DecryptString(const CEncrypt& enc, SObj* object, std::string& data);
// Encrypts a string or stream body of the output object `object` in place.
int encryptString(const CEncrypt& enc, SObj* object, std::string& data);
// AES-CBC with a random vector in front; the key has 32 bytes for V 5, else 16.
int encryptAES(std::string& data, unsigned char* key, int V);

}  // namespace PDF_KILN

#endif
