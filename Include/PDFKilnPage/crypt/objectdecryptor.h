// Deciphering the strings and streams of one document, object after object.
#pragma once

#include <string>

#include "encryptinfo.h"
#include "rc4.h"
#include "rijndael.h"

namespace pcrypt {

// PDFDecryptionManager::DecryptData for a series of calls under one exchange
// record: the record is copied once, and the key of the last object, with its
// RC4 state or AES key schedule, is kept for the next string or stream of the
// same object. The results are those of DecryptData, byte for byte, including
// the draws from rand() that AES decryption makes.
class ObjectDecryptor {
public:
    explicit ObjectDecryptor(const EncryptInfo& info);
    ~ObjectDecryptor();
    ObjectDecryptor(const ObjectDecryptor&) = delete;
    ObjectDecryptor& operator=(const ObjectDecryptor&) = delete;

    const EncryptInfo& record() const { return m_info; }

    // As DecryptData.
    void decrypt(int object, int generation, unsigned char* data, int& size);

private:
    void prepare(int object, int generation);

    EncryptInfo m_info;
    bool m_prepared = false;
    int m_object = 0;
    int m_generation = 0;
    std::string m_objectKey;
    RC4_KEY m_rc4{};      // the key schedule of m_objectKey, for RC4
    bool m_aesReady = false;
    Rijndael m_aes;       // CBC decryption under m_objectKey, for AES
};

} // namespace pcrypt
