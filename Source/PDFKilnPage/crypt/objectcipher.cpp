// Deciphering the strings and streams of one object.
#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "PDFKilnPage/crypt/objectdecryptor.h"

#include <cstdlib>
#include <cstring>

#include "PDFKilnPage/crypt/rc4.h"
#include "PDFKilnPage/crypt/rijndael.h"

namespace pcrypt {

namespace {

bool aesKeyUsable(const EncryptInfo& info, const std::string& key)
{
    return key.size() >= (info.cipherMode >= 3 ? 32u : 16u);
}

bool initAes(Rijndael& aes, const EncryptInfo& info, const std::string& key)
{
    return aes.init(Rijndael::CBC, Rijndael::Decrypt, reinterpret_cast<const unsigned char*>(key.data()),
                    info.cipherMode >= 3 ? Rijndael::Key32Bytes : Rijndael::Key16Bytes,
                    nullptr) == Rijndael::RIJNDAEL_SUCCESS;
}

// AES-CBC data in place: the first 16 bytes are the vector, the last block
// carries the padding. `aes` holds the object's key for CBC decryption; data
// that is no whole number of blocks or whose padding is not valid stays as it
// is. `size` is above 0 and not 16.
void aesInPlace(Rijndael& aes, unsigned char* data, int& size)
{
    // A vector of random bytes, as the cipher has always been started with:
    // the one block it would spoil is dropped anyway, but the draws from rand()
    // are kept, so that the sequence other users of the generator see (the
    // output vectors of encryptAES) stays what it was.
    unsigned char unused[16];
    for (unsigned char& b : unused) {
        const int r = std::rand() % 255;
        b = static_cast<unsigned char>(r == 0 ? 1 : r);
    }
    (void)unused;
    if (size % 16 != 0)
        return;

    // The padding first, from the last block alone, so that nothing is
    // touched when it is not valid.
    unsigned char last[16];
    aes.setInitVector(data + size - 32);
    aes.blockDecrypt(data + size - 16, 128, last);
    const unsigned pad = last[15];
    bool good = pad >= 1 && pad <= 16;
    for (unsigned i = 16 - (good ? pad : 0); i < 16; ++i)
        good = good && last[i] == pad;
    std::memset(last, 0, sizeof last);
    if (!good)
        return;

    // Every block after the vector, chained on it, written one block down: the
    // plain text ends up at the start of the buffer.
    aes.setInitVector(data);
    const int chunk = 1 << 24; // bytes per call, so that the bit count fits an int
    for (int done = 16; done < size;) {
        const int n = size - done < chunk ? size - done : chunk;
        aes.blockDecrypt(data + done, n * 8, data + done - 16);
        done += n;
    }
    size = size - 16 - static_cast<int>(pad);
}

} // namespace

void PDFDecryptionManager::DecryptData(const EncryptInfo& info, int object, int generation, unsigned char* data,
                                       int& size)
{
    if (data == nullptr || size <= 0)
        return;
    std::string key;
    calculateKey(object, generation, info, key);

    if (info.cipherMode < 2) {
        PDFEncryptionRC4 cipher;
        cipher.RC4(data, size, reinterpret_cast<unsigned char*>(key.data()), static_cast<int>(key.size()));
        return;
    }
    // AES: the first 16 bytes are the vector. The vector alone is an empty text.
    if (size == 16) {
        data[0] = 0;
        size = 0;
        return;
    }
    if (!aesKeyUsable(info, key))
        return; // no usable key: the data stays as it is
    Rijndael aes;
    if (initAes(aes, info, key))
        aesInPlace(aes, data, size);
    std::fill(key.begin(), key.end(), '\0');
}

ObjectDecryptor::ObjectDecryptor(const EncryptInfo& info) : m_info(info)
{
    // The password trials' cache has no use here.
    m_info.derivedKeys.reset();
}

ObjectDecryptor::~ObjectDecryptor()
{
    std::fill(m_info.key.begin(), m_info.key.end(), '\0');
    std::fill(m_objectKey.begin(), m_objectKey.end(), '\0');
    std::memset(&m_rc4, 0, sizeof m_rc4);
}

void ObjectDecryptor::prepare(int object, int generation)
{
    if (m_prepared && object == m_object && generation == m_generation)
        return;
    std::string key;
    PDFEncryptionBase().calculateKey(object, generation, m_info, key);
    m_object = object;
    m_generation = generation;
    m_prepared = true;
    // AES-256 takes the file key for every object: its schedule stays (each
    // use sets its own vector).
    if (m_aesReady && m_info.cipherMode >= 2 && key == m_objectKey) {
        std::fill(key.begin(), key.end(), '\0');
        return;
    }
    std::fill(m_objectKey.begin(), m_objectKey.end(), '\0');
    m_objectKey.swap(key);
    m_aesReady = false;
    if (m_info.cipherMode < 2) {
        if (!m_objectKey.empty())
            PDFEncryptionRC4::PrepareKey(reinterpret_cast<const unsigned char*>(m_objectKey.data()),
                                         static_cast<int>(m_objectKey.size()), &m_rc4);
    } else if (aesKeyUsable(m_info, m_objectKey)) {
        m_aesReady = initAes(m_aes, m_info, m_objectKey);
    }
}

void ObjectDecryptor::decrypt(int object, int generation, unsigned char* data, int& size)
{
    if (data == nullptr || size <= 0)
        return;
    prepare(object, generation);
    if (m_info.cipherMode < 2) {
        if (m_objectKey.empty())
            return; // RC4 has no key schedule for an empty key: the data stays
        RC4_KEY state = m_rc4;
        PDFEncryptionRC4::RC4Imp(data, size, &state);
        std::memset(&state, 0, sizeof state);
        return;
    }
    if (size == 16) {
        data[0] = 0;
        size = 0;
        return;
    }
    if (m_aesReady)
        aesInPlace(m_aes, data, size);
}

} // namespace pcrypt
