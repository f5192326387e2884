// Helpers shared by the decryption and encryption managers.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "encryptinfo.h"

namespace pcrypt {

class PDFEncryptionBase {
public:
    PDFEncryptionBase() = default;
    virtual ~PDFEncryptionBase() = default;

    // Appends the first 32 - min(len, 32) bytes of ori_key (a negative len
    // counts as 0), which completes a password of `len` bytes to 32.
    void padKey(std::string& s, int len);
    // The same bytes copied to s + len; `s` must have room for 32 bytes.
    void padKey(unsigned char* s, int len);

    // Appends the `count` low bytes of `value`, least significant first
    // (bytes past the fourth are 0; a count below 1 appends nothing).
    void padInteger(std::string& s, int value, int count);
    // The same bytes written at buf + offset.
    void padInteger(unsigned char* buf, int offset, int value, int count);

    // The iterated hash of the AES-256 revision 6 handler, started from the
    // first 32 bytes of `hash`. `U` (its first 48 bytes) takes part only when
    // isUser is false. Returns 32 bytes.
    std::string caculateHashR6(const std::string& password, const std::string& hash,
                               const std::string& U, bool isUser);

    // One question for caculateHashR6.
    struct HashR6Question {
        std::string password;
        std::string hash;
        std::string U;
        bool isUser = true;
    };
    // caculateHashR6 of each question (at most kMaxHashR6Together), computed
    // side by side: where the CPU has AES instructions the AES chains of the
    // questions run interleaved, which costs little more than one chain.
    static constexpr std::size_t kMaxHashR6Together = 6;
    std::vector<std::string> caculateHashesR6(const std::vector<HashR6Question>& questions);

    // The key for one object: with cipherMode below 3 and keyIsObjectKey false,
    // MD5 of the file key, the 3 low bytes of the object number, the 2 low bytes
    // of the generation and, for AES-128, "sAlT", cut to min(input size, 16)
    // bytes; otherwise the file key itself.
    void calculateKey(int object, int generation, const EncryptInfo& info, std::string& out);

protected:
    // The password cut to 32 bytes and completed with the padding string.
    std::string padPassword(const std::string& password);
    // Key length in bytes for the MD5 based revisions: Length / 8, at most the
    // 16 bytes of an MD5 digest, never negative.
    static int keyBytes(const EncryptInfo& info);
    // `key` with every byte XORed with `value`.
    static std::string xorKey(const std::string& key, int value);
    // MD5 cut to `outSize` bytes.
    static std::string md5(const std::string& data, int outSize);
    static std::string sha256(const std::string& data);
    // AES-256-CBC with a zero vector and no padding, over whole blocks of
    // `data`; `key` must have 32 bytes. Returns an empty string otherwise.
    static std::string aes256CbcNoPad(const std::string& key, const std::string& data, bool encrypt);
    // AES-256-ECB over one 16-byte block; empty on bad sizes.
    static std::string aes256Ecb(const std::string& key, const std::string& block, bool encrypt);
};

} // namespace pcrypt
