// Password trials, file key derivation and per-object decryption for reading
// documents secured by the standard security handler, revisions 2 to 6.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "encryptionbase.h"
#include "encryptinfo.h"

namespace pcrypt {

class DerivedKeyCache;

// Every derivation from a password (the MD5 key of revisions 2 to 4, the
// revision 6 hash) is made once: in the cache of the record's document where
// saveEncryptInfo gave it one, else in the manager's own, which serves every
// record the manager sees.
class PDFDecryptionManager : public PDFEncryptionBase {
public:
    PDFDecryptionManager();
    ~PDFDecryptionManager() override;

    // Result codes of calPassWordState.
    enum {
        EMPTY_OPENS_GIVEN_IS_OWNER = 2, // the empty password opens the file; the given one is the owner's
        GIVEN_IS_OWNER_ONLY = 3,
        GIVEN_IS_USER_ONLY = 4,
        GIVEN_IS_NEITHER = 5,
        EMPTY_OPENS_GIVEN_NOT_OWNER = 6,
        GIVEN_IS_BOTH = 7
    };

    // The trials run when a document is opened: the empty password, then the
    // given one as user password, then as owner password. On success `key`
    // holds the file key. `emptyWorked` is set when the empty password opened
    // the file, `nonEmptyTried` when the decision fell on the given password
    // (whatever its outcome). Both are cleared on entry.
    bool getFileKey(EncryptInfo& info, const std::string& password, bool& nonEmptyTried, bool& emptyWorked);

    // Classifies the given password; returns one of the codes above and sets
    // passwordRequired, passwordChecked, ownerPassword, userPassword and key.
    int calPassWordState(EncryptInfo& info, const std::string& password);

    // Derives the file key from `password` as a user password (already padded
    // below R5) and checks it against /U. Refuses a key that can't serve the
    // document's cipher.
    bool PdfTryKey(EncryptInfo& info, const std::string& password);

    bool isUserPWD(EncryptInfo& info, const std::string& password);
    // Checks the current `key` against /U (R3, R4); with tryFirst the key is
    // first derived from `password`. Clears userPassword on a match.
    bool isUserPWDR3(EncryptInfo& info, const std::string& password, bool tryFirst);
    bool isUserPWDR5(EncryptInfo& info, const std::string& password);
    bool isUserPWDR6(EncryptInfo& info, const std::string& password);
    bool isOwnerPWD(EncryptInfo& info, const std::string& password);
    bool isOwnerPWD5(EncryptInfo& info, const std::string& password);
    bool isOwnerPWD6(EncryptInfo& info, const std::string& password);

    // The file key from a password: MD5 based up to R4 (also for R5/R6 with a
    // Length other than 256), unwrapped from /OE or /UE for R5/R6 at 256 bits.
    // The result replaces `password` when keepInPassword, else `key`. With
    // ownerOnly the MD5 input is the password alone (the owner key of /O).
    void createKey(EncryptInfo& info, std::string& password, bool keepInPassword, bool ownerOnly);
    void createKeyAES256(EncryptInfo& info, std::string& password, bool keepInPassword, bool ownerOnly);
    // The same on a buffer of `passwordLength` bytes. With keepInPassword the
    // key replaces the first bytes of the buffer, which must then have room
    // for 32 bytes. Returns the key length.
    int createKey(EncryptInfo& info, unsigned char* password, int passwordLength, bool keepInPassword,
                  bool ownerOnly);

    // Deciphers `size` bytes of one object's string or stream in place and
    // updates `size`. AES data loses its leading vector and its padding; data
    // that can't be deciphered (bad length or padding, unusable key) is left
    // as it is.
    void DecryptData(const EncryptInfo& info, int object, int generation, unsigned char* data, int& size);

private:
    // The first hash of a revision 5 or 6 check or key: SHA-256 of the password
    // (in UTF-8), the validation salt (bytes 32 to 39) or the key salt (40 to
    // 47) of /U or, for the owner, of /O followed by the first 48 bytes of /U.
    // The caller has checked that /U (and /O) are long enough.
    static std::string saltedStart(const EncryptInfo& info, const std::string& utf8Password, bool owner,
                                   bool keySalt);
    DerivedKeyCache& cacheFor(const EncryptInfo& info);
    // caculateHashR6 through the cache.
    std::string hashR6(const EncryptInfo& info, const std::string& password, const std::string& hash, bool isUser);
    // The cache's name for that question.
    static std::string hashR6Question(const EncryptInfo& info, const std::string& password, const std::string& hash,
                                      bool isUser);
    // Revision 6 at 256 bits: the hashes that trying a password asks for (its
    // file key, its /U check and, withOwner, its /O check) computed together
    // into the cache, where their inputs are complete and they are not known;
    // those of two passwords together where both will be tried.
    struct R6Trial {
        std::string password;
        bool withOwner;
    };
    void deriveR6Ahead(const EncryptInfo& info, const std::vector<R6Trial>& trials);

    std::shared_ptr<DerivedKeyCache> m_cache;
};

} // namespace pcrypt
