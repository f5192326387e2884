// File key derivation for reading: the MD5 based key of revisions 2 to 4 and
// the key unwrapped from /OE or /UE for the AES-256 revisions.
#include "PDFKilnPage/crypt/decryptionmanager.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "PDFKilnPage/crypt/keycache.h"
#include "PDFKilnPage/crypt/md5.h"

namespace pcrypt {

namespace {

// MD5 of `input` cut to n bytes, then, when `rounds`, 50 times MD5 of those n
// bytes: one buffer, no allocation per round.
std::string md5Rounds(const std::string& input, int n, bool rounds)
{
    PDFEncryptionMD5 md;
    unsigned char k[16];
    const int len = std::clamp(n, 0, 16);
    MD5_CTX ctx;
    md.MD5Init(&ctx);
    md.MD5Update(&ctx, reinterpret_cast<const unsigned char*>(input.data()), input.size());
    md.MD5Final(k, &ctx);
    if (rounds)
        for (int i = 0; i < 50; ++i) {
            md.MD5Init(&ctx);
            md.MD5Update(&ctx, k, static_cast<size_t>(len));
            md.MD5Final(k, &ctx);
        }
    std::string out(reinterpret_cast<const char*>(k), static_cast<size_t>(len));
    std::memset(k, 0, sizeof k);
    return out;
}

} // namespace

PDFDecryptionManager::PDFDecryptionManager() : m_cache(std::make_shared<DerivedKeyCache>()) {}

PDFDecryptionManager::~PDFDecryptionManager() = default;

DerivedKeyCache& PDFDecryptionManager::cacheFor(const EncryptInfo& info)
{
    return info.derivedKeys ? *info.derivedKeys : *m_cache;
}

std::string PDFDecryptionManager::saltedStart(const EncryptInfo& info, const std::string& utf8Password, bool owner,
                                              bool keySalt)
{
    const size_t salt = keySalt ? 40 : 32;
    if (owner)
        return sha256(utf8Password + info.O.substr(salt, 8) + info.U.substr(0, 48));
    return sha256(utf8Password + info.U.substr(salt, 8));
}

std::string PDFDecryptionManager::hashR6Question(const EncryptInfo& info, const std::string& password,
                                                 const std::string& hash, bool isUser)
{
    // The question as caculateHashR6 sees it: the password cut to 127 bytes,
    // the 32 bytes of the start value and, for the owner, up to 48 bytes of /U.
    std::string question(1, DerivedKeyCache::HashR6);
    question += isUser ? 'u' : 'o';
    question.append(hash, 0, 32);
    if (!isUser)
        question += info.U.substr(0, 48) + std::string(48 - std::min<size_t>(info.U.size(), 48), '\0') +
                    static_cast<char>(std::min<size_t>(info.U.size(), 48));
    question += getUTF8Str(password);
    return question;
}

std::string PDFDecryptionManager::hashR6(const EncryptInfo& info, const std::string& password,
                                         const std::string& hash, bool isUser)
{
    if (hash.size() < 32)
        return caculateHashR6(password, hash, info.U, isUser); // refused there
    return cacheFor(info).get(hashR6Question(info, password, hash, isUser),
                              [&] { return caculateHashR6(password, hash, info.U, isUser); });
}

void PDFDecryptionManager::deriveR6Ahead(const EncryptInfo& info, const std::vector<R6Trial>& trials)
{
    if (info.R != 6 || info.Length != 256 || info.U.size() < 48)
        return;
    std::vector<HashR6Question> questions;
    std::vector<std::string> names;
    for (const R6Trial& trial : trials) {
        // Each trial passes the password already in UTF-8 to hashR6.
        const std::string p = getUTF8Str(trial.password);
        auto ask = [&](const std::string& start, bool isUser) {
            std::string name = hashR6Question(info, p, start, isUser);
            if (cacheFor(info).contains(name) || std::find(names.begin(), names.end(), name) != names.end())
                return;
            questions.push_back(HashR6Question{p, start, info.U, isUser});
            names.push_back(std::move(name));
        };
        if (info.UE.size() >= 32)
            ask(saltedStart(info, p, false, true), true);
        ask(saltedStart(info, p, false, false), true);
        if (trial.withOwner && info.O.size() >= 40)
            ask(saltedStart(info, p, true, false), false);
    }
    if (questions.size() < 2 || questions.size() > kMaxHashR6Together)
        return; // nothing to gain over asking when needed
    const std::vector<std::string> answers = caculateHashesR6(questions);
    for (size_t i = 0; i < answers.size(); ++i)
        cacheFor(info).putAhead(names[i], answers[i]);
}

void PDFDecryptionManager::createKey(EncryptInfo& info, std::string& password, bool keepInPassword,
                                     bool ownerOnly)
{
    if ((info.R == 5 || info.R == 6) && info.Length == 256) {
        createKeyAES256(info, password, keepInPassword, ownerOnly);
        return;
    }
    const int n = keyBytes(info);
    std::string input;
    if (!ownerOnly) {
        input = padPassword(password);
        input += info.O;
        padInteger(input, info.P, 4);
        if (!info.ID.empty())
            input += info.ID;
        if (!info.encryptMetadata)
            input.append(4, '\xff');
    } else {
        input = password;
    }
    const bool rounds = info.R > 2;
    std::string question(1, DerivedKeyCache::KeyMD5);
    question += rounds ? 'r' : '-';
    question += static_cast<char>(n);
    question += input;
    std::string k = cacheFor(info).get(question, [&] { return md5Rounds(input, n, rounds); });
    std::fill(input.begin(), input.end(), '\0');
    std::fill(question.begin(), question.end(), '\0');
    (keepInPassword ? password : info.key) = k;
}

void PDFDecryptionManager::createKeyAES256(EncryptInfo& info, std::string& password, bool keepInPassword,
                                           bool ownerOnly)
{
    std::string& target = keepInPassword ? password : info.key;
    const std::string& wrapped = ownerOnly ? info.OE : info.UE;
    // Without complete /U, /O, /OE or /UE there is nothing to unwrap.
    if (info.U.size() < 48 || (ownerOnly && info.O.size() < 48) || wrapped.size() < 32) {
        target.clear();
        return;
    }
    const std::string p = getUTF8Str(password);
    std::string h = saltedStart(info, p, ownerOnly, true);
    if (info.R == 6)
        h = hashR6(info, p, h, !ownerOnly);

    // A zero block in front of the wrapped key: its output is dropped, which
    // leaves the wrapped key deciphered with a zero vector.
    std::string block(16, '\0');
    block += wrapped.substr(0, 32);
    const std::string plain = aes256CbcNoPad(h, block, false);
    target = plain.size() == 48 ? plain.substr(16, 32) : std::string();
}

int PDFDecryptionManager::createKey(EncryptInfo& info, unsigned char* password, int passwordLength,
                                    bool keepInPassword, bool ownerOnly)
{
    std::string pw;
    if (password != nullptr && passwordLength > 0)
        pw.assign(reinterpret_cast<const char*>(password), static_cast<size_t>(passwordLength));
    createKey(info, pw, keepInPassword, ownerOnly);
    if (!keepInPassword)
        return static_cast<int>(info.key.size());
    if (password != nullptr && !pw.empty())
        std::memcpy(password, pw.data(), std::min<size_t>(pw.size(), 32));
    return static_cast<int>(std::min<size_t>(pw.size(), 32));
}

} // namespace pcrypt
