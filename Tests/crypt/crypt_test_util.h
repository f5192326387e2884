// Helpers of the security layer tests: hex, random data, OpenSSL references, encryption records and qpdf.
#pragma once

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/rc4.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "PDFKilnPage/crypt/encryptionmanager.h"
#include "pdf_builder.h"
#include "pfdecrypt.h"
#include "test_util.h"

namespace crypt_test {

inline std::string fromHex(const std::string& hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return out;
}

inline std::string toHex(const std::string& s) {
    static const char* d = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s) out += {d[c >> 4], d[c & 15]};
    return out;
}

inline std::string toHex(const void* p, size_t n) { return toHex(std::string(static_cast<const char*>(p), n)); }

inline unsigned char* ub(std::string& s) { return reinterpret_cast<unsigned char*>(s.data()); }
inline const unsigned char* ub(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }

// Deterministic pseudo-random bytes: failures can be reproduced.
struct Rng {
    std::mt19937_64 gen;
    explicit Rng(uint64_t seed) : gen(seed) {}
    int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
    std::string bytes(size_t n) {
        std::string s(n, '\0');
        for (auto& c : s) c = static_cast<char>(gen() & 0xff);
        return s;
    }
};

// One-shot EVP cipher: the reference for AES.
inline std::string evpCipher(const EVP_CIPHER* cipher, const std::string& key, const std::string& iv,
                             const std::string& data, bool encrypt, bool padding) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    if (!ctx || !cipher) throw std::runtime_error("EVP unavailable");
    std::string out(data.size() + 32, '\0');
    int len1 = 0, len2 = 0;
    bool ok = EVP_CipherInit_ex(ctx, cipher, nullptr, nullptr, nullptr, encrypt ? 1 : 0) == 1;
    ok = ok && EVP_CIPHER_CTX_set_key_length(ctx, static_cast<int>(key.size())) == 1;
    ok = ok && EVP_CipherInit_ex(ctx, nullptr, nullptr, ub(key), iv.empty() ? nullptr : ub(iv), -1) == 1;
    EVP_CIPHER_CTX_set_padding(ctx, padding ? 1 : 0);
    ok = ok && EVP_CipherUpdate(ctx, ub(out), &len1, ub(data), static_cast<int>(data.size())) == 1;
    ok = ok && EVP_CipherFinal_ex(ctx, ub(out) + len1, &len2) == 1;
    EVP_CIPHER_CTX_free(ctx);
    if (!ok) throw std::runtime_error("EVP cipher failed");
    out.resize(static_cast<size_t>(len1 + len2));
    return out;
}

// libcrypto's low-level RC4 (EVP's lives in the legacy provider): the reference for RC4.
inline std::string sslRc4(const std::string& key, std::string data) {
    RC4_KEY k;
    RC4_set_key(&k, static_cast<int>(key.size()), ub(key));
    RC4(&k, data.size(), ub(data), ub(data));
    return data;
}

inline std::string evpDigest(const EVP_MD* md, const std::string& data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (EVP_Digest(data.data(), data.size(), out, &len, md, nullptr) != 1)
        throw std::runtime_error("EVP digest failed");
    return std::string(reinterpret_cast<char*>(out), len);
}

// A record as the encryption manager writes it; `key` is the file key it chose (the record's own is cleared).
struct Made {
    pcrypt::EncryptInfo info;
    std::string key;
};

inline Made make(int R, int length, const std::string& user, const std::string& owner, bool metadata = true,
                 int P = -3904, const std::string& id = "0123456789abcdef") {
    pcrypt::EncryptInfo info;
    info.R = R;
    info.V = R == 2 ? 1 : R == 3 ? 2 : R == 4 ? 4 : 5;
    info.Length = length;
    info.cipherMode = R < 4 ? 1 : R == 4 ? 2 : 3;
    info.ID = id;
    info.P = P;
    info.encryptMetadata = metadata;
    pcrypt::EncryptOption opt;
    opt.saveUPW(user.c_str());
    opt.saveOPW(owner.c_str());
    opt.P = P;
    opt.encryptMetadata = metadata;
    pcrypt::PDFEncryptionManager w;
    if (R < 5) w.calculateOKey(opt, info);  // /O first below R5, last from R5 on
    w.createKey(info, user);
    w.calculateUKey(opt, info);
    if (R >= 5) w.calculateOKey(opt, info);
    w.calculatePerms(opt, info);  // nothing below R5
    Made m{info, info.key};
    m.info.key.clear();
    return m;
}

// getFileKey on a fresh copy of the record.
struct Trial {
    bool ok, nonEmpty, empty;
    pcrypt::EncryptInfo info;
};
inline Trial tryKey(const pcrypt::EncryptInfo& record, const std::string& pw) {
    Trial t{false, false, false, record};
    t.ok = pcrypt::PDFDecryptionManager().getFileKey(t.info, pw, t.nonEmpty, t.empty);
    return t;
}

// DecryptData on a copy of `data`, cut to the size it leaves.
inline std::string decrypt(const pcrypt::EncryptInfo& info, int obj, int gen, const std::string& data) {
    std::string buf = data + std::string(32, '\0');
    int size = static_cast<int>(data.size());
    pcrypt::PDFDecryptionManager().DecryptData(info, obj, gen, ub(buf), size);
    return buf.substr(0, static_cast<size_t>(std::max(size, 0)));
}

// calPassWordState on a fresh copy of the record.
inline int passwordState(const pcrypt::EncryptInfo& record, const std::string& pw) {
    pcrypt::EncryptInfo info = record;
    return pcrypt::PDFDecryptionManager().calPassWordState(info, pw);
}

// The key getFileKey finds, or "refused".
inline std::string openedKey(const pcrypt::EncryptInfo& record, const std::string& pw) {
    const Trial t = tryKey(record, pw);
    return t.ok ? t.info.key : "refused";
}

// qpdf (PDFKILN_QPDF, found by the build): its standard output, and its exit status through `status`.
inline bool haveQpdf() { return testutil::exists(PDFKILN_QPDF); }

inline std::string runQpdf(const std::vector<std::string>& args, int* status = nullptr) {
    std::string cmd = testutil::quote(PDFKILN_QPDF), out;
    for (const auto& a : args) cmd += " " + testutil::quote(a);
    const int rc = testutil::run(cmd, &out);
    if (status) *status = rc;
    return out;
}

// The file key qpdf reports for `path` opened with `password`.
inline std::string qpdfKey(const std::string& path, const std::string& password) {
    const std::string out = runQpdf({"--show-encryption-key", "--show-encryption", "--password=" + password, path});
    const size_t pos = out.find("Encryption key = ");
    return pos == std::string::npos ? std::string() : fromHex(out.substr(pos + 17, out.find('\n', pos) - pos - 17));
}

// The record as the reader fills it from the /Encrypt dictionary and the trailer, before any password is tried.
inline pcrypt::EncryptInfo readInfo(const std::string& path) {
    pdftest::Source src(testutil::readFile(path));
    src.file.CheckAndInit();
    pcrypt::EncryptInfo info;
    PDF_KILN::saveEncryptInfo(src.file.fileInfo.encrypt, info);
    info.key.clear();
    info.derivedKeys.reset();
    return info;
}

// A PDF of the given object bodies, numbered from 1, and trailer entries.
inline std::string buildPdf(const std::vector<std::string>& objects, const std::string& trailer) {
    pdftest::PdfBuilder b("%PDF-1.7");
    int n = 0;
    for (const auto& o : objects) b.object(++n, o);
    b.startxref(b.xrefTable(trailer));
    return b.str();
}

}  // namespace crypt_test
