// RC4 stream cipher.
#pragma once

#include <string>

namespace pcrypt {

// Cipher state: the permutation of the 256 byte values and the two indices.
struct RC4_KEY {
    unsigned char state[256];
    unsigned char x;
    unsigned char y;
};

// RC4 as published. Enciphering and deciphering are the same operation.
// A key of no bytes (null pointer or size 0 or less) leaves the data as it is:
// the key schedule is not defined for it.
class PDFEncryptionRC4 {
public:
    PDFEncryptionRC4();
    PDFEncryptionRC4(unsigned char* key, int size);
    virtual ~PDFEncryptionRC4();

    // Stores a copy of the key for newRC4.
    void SetEncryptionKey(unsigned char* key, int size);
    // Enciphers `size` bytes in place with the stored key.
    void newRC4(unsigned char* data, int size);

    // Enciphers `size` bytes in place with the given key.
    void RC4(unsigned char* data, int size, unsigned char* key, int keySize);
    // Enciphers the first `size` bytes of the string and replaces the string
    // by exactly `size` bytes: a shorter string is first extended with zero
    // bytes, a longer one is cut.
    void RC4(std::string& data, int size, const std::string& key);

    // The two halves: the key schedule and the keystream XOR.
    static void PrepareKey(const unsigned char* key, int keySize, RC4_KEY* state);
    static void RC4Imp(unsigned char* data, int size, RC4_KEY* state);

private:
    std::string m_key;
};

} // namespace pcrypt
