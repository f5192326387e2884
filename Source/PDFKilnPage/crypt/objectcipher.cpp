// Deciphering the strings and streams of one object.
#include "PDFKilnPage/crypt/decryptionmanager.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "PDFKilnPage/crypt/rc4.h"
#include "PDFKilnPage/crypt/rijndael.h"

namespace pcrypt {

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
    const bool aes256 = info.cipherMode >= 3;
    if (key.size() < (aes256 ? 32u : 16u))
        return; // no usable key: the data stays as it is

    // The whole data, vector included, is run through CBC with a throw-away
    // vector; the first output block is spoilt by it and dropped, and every
    // later block is chained on the real vector.
    unsigned char iv[16];
    for (unsigned char& b : iv) {
        const int r = std::rand() % 255;
        b = static_cast<unsigned char>(r == 0 ? 1 : r);
    }
    Rijndael aes;
    if (aes.init(Rijndael::CBC, Rijndael::Decrypt, reinterpret_cast<const unsigned char*>(key.data()),
                 aes256 ? Rijndael::Key32Bytes : Rijndael::Key16Bytes, iv) != Rijndael::RIJNDAEL_SUCCESS)
        return;
    std::vector<unsigned char> out(static_cast<size_t>(size));
    const int result = aes.padDecrypt(data, size, out.data());
    if (result > 15) {
        std::memcpy(data, out.data() + 16, static_cast<size_t>(result - 16));
        size = result - 16;
    }
    std::fill(out.begin(), out.end(), 0);
}

} // namespace pcrypt
