// Padding helpers, the per-object key and the revision 6 hash, shared by the
// decryption and encryption managers.
#include "PDFKilnPage/crypt/encryptionbase.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "PDFKilnPage/crypt/md5.h"
#include "PDFKilnPage/crypt/rijndael.h"
#include "PDFKilnPage/crypt/sha256.h"
#include "PDFKilnPage/crypt/sha512.h"

namespace pcrypt {

namespace {

const unsigned char* bytes(const std::string& s)
{
    return reinterpret_cast<const unsigned char*>(s.data());
}

} // namespace

void PDFEncryptionBase::padKey(std::string& s, int len)
{
    const int used = std::clamp(len, 0, 32);
    s.append(reinterpret_cast<const char*>(ori_key), static_cast<size_t>(32 - used));
}

void PDFEncryptionBase::padKey(unsigned char* s, int len)
{
    if (s == nullptr)
        return;
    const int used = std::clamp(len, 0, 32);
    std::memcpy(s + used, ori_key, static_cast<size_t>(32 - used));
}

void PDFEncryptionBase::padInteger(std::string& s, int value, int count)
{
    const uint32_t v = static_cast<uint32_t>(value);
    for (int i = 0; i < count; ++i)
        s.push_back(i < 4 ? static_cast<char>((v >> (8 * i)) & 0xff) : '\0');
}

void PDFEncryptionBase::padInteger(unsigned char* buf, int offset, int value, int count)
{
    if (buf == nullptr || offset < 0)
        return;
    const uint32_t v = static_cast<uint32_t>(value);
    for (int i = 0; i < count; ++i)
        buf[offset + i] = i < 4 ? static_cast<unsigned char>((v >> (8 * i)) & 0xff) : 0;
}

std::string PDFEncryptionBase::padPassword(const std::string& password)
{
    std::string s = password.substr(0, 32);
    padKey(s, static_cast<int>(s.size()));
    return s;
}

int PDFEncryptionBase::keyBytes(const EncryptInfo& info)
{
    return std::clamp(info.Length / 8, 0, 16);
}

std::string PDFEncryptionBase::xorKey(const std::string& key, int value)
{
    std::string k = key;
    for (char& c : k)
        c = static_cast<char>(static_cast<unsigned char>(c) ^ static_cast<unsigned char>(value));
    return k;
}

std::string PDFEncryptionBase::md5(const std::string& data, int outSize)
{
    PDFEncryptionMD5 md;
    std::string out;
    md.MD5(data, out, outSize);
    return out;
}

std::string PDFEncryptionBase::sha256(const std::string& data)
{
    Sha256Calc calc;
    Sha256Calc_init(&calc);
    Sha256Calc_calculate(&calc, data.data(), data.size());
    // The digest stands at the start of the object.
    std::string out(reinterpret_cast<const char*>(&calc), 32);
    Sha256Calc_uninit(&calc);
    return out;
}

std::string PDFEncryptionBase::aes256CbcNoPad(const std::string& key, const std::string& data, bool encrypt)
{
    if (key.size() != 32 || data.size() % 16 != 0 || data.size() > 0x0fffffff)
        return std::string();
    Rijndael aes;
    if (aes.init(Rijndael::CBC, encrypt ? Rijndael::Encrypt : Rijndael::Decrypt, bytes(key),
                 Rijndael::Key32Bytes, nullptr) != 0)
        return std::string();
    std::string out(data.size(), '\0');
    unsigned char* o = reinterpret_cast<unsigned char*>(out.data());
    const int bits = static_cast<int>(data.size() * 8);
    if (encrypt)
        aes.blockEncrypt(bytes(data), bits, o);
    else
        aes.blockDecrypt(bytes(data), bits, o);
    return out;
}

std::string PDFEncryptionBase::aes256Ecb(const std::string& key, const std::string& block, bool encrypt)
{
    if (key.size() != 32 || block.size() != 16)
        return std::string();
    Rijndael aes;
    if (aes.init(Rijndael::ECB, encrypt ? Rijndael::Encrypt : Rijndael::Decrypt, bytes(key),
                 Rijndael::Key32Bytes, nullptr) != 0)
        return std::string();
    std::string out(16, '\0');
    unsigned char* o = reinterpret_cast<unsigned char*>(out.data());
    if (encrypt)
        aes.blockEncrypt(bytes(block), 128, o);
    else
        aes.blockDecrypt(bytes(block), 128, o);
    return out;
}

std::string PDFEncryptionBase::caculateHashR6(const std::string& password, const std::string& hash,
                                              const std::string& U, bool isUser)
{
    if (hash.size() < 32)
        throw std::out_of_range("caculateHashR6: start value shorter than 32 bytes");
    const std::string p = getUTF8Str(password);
    const std::string u = isUser ? std::string() : U.substr(0, 48);
    std::string K = hash.substr(0, 32);
    // One buffer for the whole run: K1 is built in it and enciphered in place,
    // which leaves E there.
    std::string E;
    Rijndael aes;
    for (int round = 0;; ++round) {
        // 64 copies of password, K and (for the owner) U.
        const size_t seqLen = p.size() + K.size() + u.size();
        E.resize(seqLen * 64);
        unsigned char* e = reinterpret_cast<unsigned char*>(E.data());
        std::memcpy(e, p.data(), p.size());
        std::memcpy(e + p.size(), K.data(), K.size());
        if (!u.empty())
            std::memcpy(e + p.size() + K.size(), u.data(), u.size());
        for (int i = 1; i < 64; ++i)
            std::memcpy(e + i * seqLen, e, seqLen);

        aes.init(Rijndael::CBC, Rijndael::Encrypt, bytes(K), Rijndael::Key16Bytes, bytes(K) + 16);
        aes.blockEncrypt(e, static_cast<int>(E.size() * 8), e);

        int sum = 0;
        for (int i = 0; i < 16; ++i)
            sum += static_cast<unsigned char>(E[static_cast<size_t>(i)]) % 3;
        switch (sum % 3) {
        case 0:
            K = sha256(E);
            break;
        case 1: {
            SHA384Context ctx;
            uint8_t d[SHA384_HASH_SIZE];
            SHA384Init(&ctx);
            SHA384Update(&ctx, E.data(), E.size());
            SHA384Final(&ctx, d);
            K.assign(reinterpret_cast<const char*>(d), sizeof d);
            break;
        }
        default: {
            SHA512Context ctx;
            uint8_t d[SHA512_HASH_SIZE];
            SHA512Init(&ctx);
            SHA512Update(&ctx, E.data(), E.size());
            SHA512Final(&ctx, d);
            K.assign(reinterpret_cast<const char*>(d), sizeof d);
            break;
        }
        }
        const int last = static_cast<unsigned char>(E.back());
        if (round >= 63 && last <= round - 31)
            break;
    }
    std::fill(E.begin(), E.end(), '\0');
    return K.substr(0, 32);
}

void PDFEncryptionBase::calculateKey(int object, int generation, const EncryptInfo& info, std::string& out)
{
    if (info.cipherMode < 3 && !info.keyIsObjectKey) {
        std::string in = info.key;
        padInteger(in, object, 3);
        padInteger(in, generation, 2);
        if (info.cipherMode == 2)
            in += "sAlT";
        // With "sAlT" in the input the count is n + 9 for AES-128.
        out = md5(in, static_cast<int>(std::min<size_t>(in.size(), 16)));
    } else {
        out = info.key;
    }
}

} // namespace pcrypt
