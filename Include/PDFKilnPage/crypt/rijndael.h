// AES (Rijndael with a 128-bit block) in ECB, CBC and CFB1 modes, with PKCS#7
// padding for the byte-oriented calls. The block operations run on the AES
// instructions where the processor has them (see cpufeatures.h) and on the
// table-driven form elsewhere; both give the same bytes.
#pragma once

#include <cstdint>

namespace pcrypt {

class Rijndael {
public:
    enum Mode { ECB = 0, CBC = 1, CFB1 = 2 };
    enum Direction { Encrypt = 0, Decrypt = 1 };
    enum KeyLength { Key16Bytes = 0, Key24Bytes = 1, Key32Bytes = 2 };

    // Result codes. Success is 0; the byte and bit counting calls return
    // a non-negative length on success.
    enum {
        RIJNDAEL_SUCCESS = 0,
        RIJNDAEL_UNSUPPORTED_MODE = -1,
        RIJNDAEL_UNSUPPORTED_DIRECTION = -2,
        RIJNDAEL_UNSUPPORTED_KEY_LENGTH = -3,
        RIJNDAEL_BAD_KEY = -4,
        RIJNDAEL_NOT_INITIALIZED = -5,
        RIJNDAEL_BAD_DIRECTION = -6,
        RIJNDAEL_CORRUPTED_DATA = -7
    };

    static const int BLOCK_SIZE = 16;

    Rijndael();
    ~Rijndael();
    Rijndael(const Rijndael&) = delete;
    Rijndael& operator=(const Rijndael&) = delete;

    // Sets mode, direction and key (16, 24 or 32 bytes by keyLen). `initVector`
    // is the 16-byte chaining start for CBC and CFB1; null means zeros. Until a
    // call succeeds, every processing call returns RIJNDAEL_NOT_INITIALIZED.
    int init(Mode mode, Direction dir, const unsigned char* key, KeyLength keyLen,
             const unsigned char* initVector = nullptr);

    // Whole 16-byte blocks, no padding. `inputLen` is in bits; the bits of a
    // trailing partial block are ignored. Returns the number of bits processed.
    int blockEncrypt(const unsigned char* input, int inputLen, unsigned char* outBuffer);
    int blockDecrypt(const unsigned char* input, int inputLen, unsigned char* outBuffer);

    // PKCS#7 padded forms; lengths in bytes.
    // padEncrypt writes (inputOctets / 16 + 1) * 16 bytes and returns that
    // count; an empty input gives one block of padding.
    int padEncrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer);
    // padDecrypt returns the length without padding: 0 for a null input or a
    // length below 1, RIJNDAEL_CORRUPTED_DATA for a length that is no multiple of
    // 16 or for invalid padding. outBuffer needs room for inputOctets bytes.
    int padDecrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer);

    // Streaming CBC: pdfEncrypt/pdfDecrypt take whole blocks (a trailing partial
    // block is left for the caller) and return the bytes written; the *End calls
    // take the last part and add or remove the padding, as padEncrypt and
    // padDecrypt. For decryption the caller keeps at least the last block back
    // for pdfDecryptEnd. Other modes give RIJNDAEL_UNSUPPORTED_MODE.
    int pdfEncrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer);
    int pdfEncryptEnd(const unsigned char* input, int inputOctets, unsigned char* outBuffer);
    int pdfDecrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer);
    int pdfDecryptEnd(const unsigned char* input, int inputOctets, unsigned char* outBuffer);

    // Restarts the chaining of CBC and CFB1 from `initVector` (null means
    // zeros) and keeps the key schedule: the cheap way to run many messages
    // under one key.
    void setInitVector(const unsigned char* initVector);

    // Chooses the AES-NI form (the default wherever the processor has it) or
    // the table form, at any time; returns whether the AES-NI form is now in
    // use, which it can't be on a processor without it.
    bool setHardware(bool wanted);
    bool usesHardware() const { return m_hardware; }

protected:
    void keySched(const unsigned char* key);
    void keyEncToDec();
    void encrypt(const unsigned char a[16], unsigned char b[16]) const;
    void decrypt(const unsigned char a[16], unsigned char b[16]) const;

private:
    enum State { Valid, Invalid };

    int checkUse(Direction wanted) const;
    // Runs `blocks` whole blocks through the cipher in the current mode and
    // direction, carrying the chaining value in m_initVector.
    void processBlocks(const unsigned char* input, int blocks, unsigned char* output);
    void wipe();

    State m_state;
    Mode m_mode;
    Direction m_direction;
    int m_keyWords;        // Nk: 4, 6 or 8
    int m_rounds;          // Nr: 10, 12 or 14
    // The round keys as the AES instructions take them: the words of
    // m_expandedKey as bytes, most significant first.
    void makeRoundKeyBytes();

    unsigned char m_initVector[16];
    uint32_t m_expandedKey[60];
    unsigned char m_roundKeys[15 * 16];
    bool m_hardware;
};

} // namespace pcrypt
