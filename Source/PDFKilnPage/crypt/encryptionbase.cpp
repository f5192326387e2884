// Padding helpers, the per-object key and the revision 6 hash, shared by the
// decryption and encryption managers.
#include "PDFKilnPage/crypt/encryptionbase.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "PDFKilnPage/crypt/md5.h"
#include "PDFKilnPage/crypt/rijndael.h"
#include "PDFKilnPage/crypt/sha256.h"
#include "PDFKilnPage/crypt/sha512.h"
#include "aes_hw.h"

namespace pcrypt {

namespace {

const unsigned char* bytes(const std::string& s)
{
    return reinterpret_cast<const unsigned char*>(s.data());
}

void wipeBytes(void* p, size_t n)
{
    volatile unsigned char* v = static_cast<volatile unsigned char*>(p);
    for (size_t i = 0; i < n; ++i)
        v[i] = 0;
}

std::string sha256Of(const std::string& data)
{
    Sha256Calc calc;
    Sha256Calc_init(&calc);
    Sha256Calc_calculate(&calc, data.data(), data.size());
    // The digest stands at the start of the object.
    std::string out(reinterpret_cast<const char*>(&calc), 32);
    Sha256Calc_uninit(&calc);
    return out;
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
    return sha256Of(data);
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

namespace {

// One question of the revision 6 hash on its way: the password (UTF-8, cut),
// the /U part (owner questions only), the running value K and the buffer E.
struct HashR6Run {
    std::string p, u, K, E;
    bool done = false;
};

// E = 64 copies of password, K and (for the owner) U, ready to be enciphered
// in place.
void fillRound(HashR6Run& r)
{
    const size_t seqLen = r.p.size() + r.K.size() + r.u.size();
    r.E.resize(seqLen * 64);
    unsigned char* e = reinterpret_cast<unsigned char*>(r.E.data());
    std::memcpy(e, r.p.data(), r.p.size());
    std::memcpy(e + r.p.size(), r.K.data(), r.K.size());
    if (!r.u.empty())
        std::memcpy(e + r.p.size() + r.K.size(), r.u.data(), r.u.size());
    for (int i = 1; i < 64; ++i)
        std::memcpy(e + i * seqLen, e, seqLen);
}

// Which hash the round takes: the sum of E's first 16 bytes modulo 3, where
// 0 is SHA-256, 1 SHA-384 and 2 SHA-512.
int hashKind(const HashR6Run& r)
{
    int sum = 0;
    for (int i = 0; i < 16; ++i)
        sum += static_cast<unsigned char>(r.E[static_cast<size_t>(i)]) % 3;
    return sum % 3;
}

// The hashes of the runs' E become their K: SHA-256 one at a time (on the SHA
// instructions where there are some), SHA-384 and SHA-512 side by side.
// The hashes of the runs' E become their K: SHA-256 one at a time (on the SHA
// instructions where there are some), SHA-384 and SHA-512 side by side, at
// most kSha512Lanes at once.
void hashRound(HashR6Run* const runs[], int count)
{
    const uint8_t* in[PDFEncryptionBase::kMaxHashR6Together];
    size_t lengths[PDFEncryptionBase::kMaxHashR6Together];
    bool is384[PDFEncryptionBase::kMaxHashR6Together];
    uint8_t digests[PDFEncryptionBase::kMaxHashR6Together][SHA512_HASH_SIZE];
    uint8_t* out[PDFEncryptionBase::kMaxHashR6Together];
    HashR6Run* wide[PDFEncryptionBase::kMaxHashR6Together];
    int n = 0;
    for (int j = 0; j < count; ++j) {
        HashR6Run& r = *runs[j];
        const int kind = hashKind(r);
        if (kind == 0) {
            r.K = sha256Of(r.E);
            continue;
        }
        wide[n] = &r;
        in[n] = reinterpret_cast<const uint8_t*>(r.E.data());
        lengths[n] = r.E.size();
        is384[n] = kind == 1;
        out[n] = digests[n];
        ++n;
    }
    // Groups as even as the lanes allow: five as three and two, say.
    const int groups = (n + kSha512Lanes - 1) / kSha512Lanes;
    for (int g = 0, first = 0; g < groups; ++g) {
        const int size = (n - first) / (groups - g);
        SHA512Lanes(in + first, lengths + first, is384 + first, out + first, size);
        first += size;
    }
    for (int j = 0; j < n; ++j)
        wide[j]->K.assign(reinterpret_cast<const char*>(digests[j]), is384[j] ? SHA384_HASH_SIZE : SHA512_HASH_SIZE);
    wipeBytes(digests, sizeof digests);
}

} // namespace

std::string PDFEncryptionBase::caculateHashR6(const std::string& password, const std::string& hash,
                                              const std::string& U, bool isUser)
{
    return caculateHashesR6({HashR6Question{password, hash, U, isUser}}).front();
}

static_assert(PDFEncryptionBase::kMaxHashR6Together <= static_cast<std::size_t>(aes_hw::kMaxCbcChains),
              "every run of a round has its AES chain");

std::vector<std::string> PDFEncryptionBase::caculateHashesR6(const std::vector<HashR6Question>& questions)
{
    if (questions.size() > kMaxHashR6Together)
        throw std::out_of_range("caculateHashesR6: too many questions at once");
    std::vector<HashR6Run> runs(questions.size());
    for (size_t i = 0; i < questions.size(); ++i) {
        const HashR6Question& q = questions[i];
        if (q.hash.size() < 32)
            throw std::out_of_range("caculateHashR6: start value shorter than 32 bytes");
        runs[i].p = getUTF8Str(q.password);
        runs[i].u = q.isUser ? std::string() : q.U.substr(0, 48);
        runs[i].K = q.hash.substr(0, 32);
    }
    const bool hardware = aesHardwareUsable(cpuFeatures());
    Rijndael aes;
    for (int round = 0;; ++round) {
        // Each run still going enciphers its E with AES-128-CBC: the key is
        // K's first 16 bytes, the vector the next 16.
        HashR6Run* active[kMaxHashR6Together];
        int count = 0;
        for (HashR6Run& r : runs)
            if (!r.done) {
                fillRound(r);
                active[count++] = &r;
            }
        if (count == 0)
            break;
        if (hardware) {
            unsigned char keys[kMaxHashR6Together][176];
            unsigned char vectors[kMaxHashR6Together][16];
            const unsigned char* keyPtrs[kMaxHashR6Together];
            unsigned char* vectorPtrs[kMaxHashR6Together];
            unsigned char* data[kMaxHashR6Together];
            size_t blocks[kMaxHashR6Together];
            for (int j = 0; j < count; ++j) {
                aes_hw::expandKey128(bytes(active[j]->K), keys[j]);
                std::memcpy(vectors[j], active[j]->K.data() + 16, 16);
                keyPtrs[j] = keys[j];
                vectorPtrs[j] = vectors[j];
                data[j] = reinterpret_cast<unsigned char*>(active[j]->E.data());
                blocks[j] = active[j]->E.size() / 16;
            }
            aes_hw::encryptCbc128Chains(keyPtrs, vectorPtrs, data, blocks, count);
            wipeBytes(keys, sizeof keys);
            wipeBytes(vectors, sizeof vectors);
        } else {
            for (int j = 0; j < count; ++j) {
                unsigned char* e = reinterpret_cast<unsigned char*>(active[j]->E.data());
                aes.init(Rijndael::CBC, Rijndael::Encrypt, bytes(active[j]->K), Rijndael::Key16Bytes,
                         bytes(active[j]->K) + 16);
                aes.blockEncrypt(e, static_cast<int>(active[j]->E.size() * 8), e);
            }
        }
        // The run ends after round 63 once E's last byte is at most round - 32.
        hashRound(active, count);
        for (int j = 0; j < count; ++j)
            active[j]->done = round >= 63 && static_cast<unsigned char>(active[j]->E.back()) <= round - 31;
    }
    std::vector<std::string> out;
    out.reserve(runs.size());
    for (HashR6Run& r : runs) {
        std::fill(r.E.begin(), r.E.end(), '\0');
        out.push_back(r.K.substr(0, 32));
    }
    return out;
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
