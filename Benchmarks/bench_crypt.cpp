// Throughput of the security layer's AES-128-CBC and AES-256-CBC decryption,
// SHA-256 and RC4 beside OpenSSL's EVP on the same data, in one run; the
// BM_Ratio_* lines give our time over OpenSSL's. libcrypto, the reference, is loaded at run
// time, so the benchmark needs no link line of its own; without it the OpenSSL
// side is skipped.
#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "PDFKilnPage/crypt/rc4.h"
#include "PDFKilnPage/crypt/rijndael.h"
#include "PDFKilnPage/crypt/sha256.h"

namespace {

constexpr size_t kSize = 1 << 20;

// The libcrypto entry points used here, resolved by name.
struct Crypto {
    decltype(&EVP_CIPHER_CTX_new) ctxNew = nullptr;
    decltype(&EVP_CIPHER_CTX_free) ctxFree = nullptr;
    decltype(&EVP_DecryptInit_ex) decryptInit = nullptr;
    decltype(&EVP_CIPHER_CTX_set_padding) setPadding = nullptr;
    decltype(&EVP_DecryptUpdate) decryptUpdate = nullptr;
    decltype(&EVP_aes_128_cbc) aes128cbc = nullptr;
    decltype(&EVP_aes_256_cbc) aes256cbc = nullptr;
    decltype(&EVP_sha256) sha256 = nullptr;
    decltype(&EVP_Digest) digest = nullptr;
    decltype(&EVP_CIPHER_fetch) fetch = nullptr;
    decltype(&OSSL_PROVIDER_load) loadProvider = nullptr;
    bool ok = false;
};

const Crypto& crypto()
{
    static const Crypto c = [] {
        Crypto r;
        void* h = dlopen("libcrypto.so.3", RTLD_NOW | RTLD_LOCAL);
        if (!h)
            return r;
        auto get = [h](auto& fn, const char* name) { fn = reinterpret_cast<std::decay_t<decltype(fn)>>(dlsym(h, name)); };
        get(r.ctxNew, "EVP_CIPHER_CTX_new");
        get(r.ctxFree, "EVP_CIPHER_CTX_free");
        get(r.decryptInit, "EVP_DecryptInit_ex");
        get(r.setPadding, "EVP_CIPHER_CTX_set_padding");
        get(r.decryptUpdate, "EVP_DecryptUpdate");
        get(r.aes128cbc, "EVP_aes_128_cbc");
        get(r.aes256cbc, "EVP_aes_256_cbc");
        get(r.sha256, "EVP_sha256");
        get(r.digest, "EVP_Digest");
        get(r.fetch, "EVP_CIPHER_fetch");
        get(r.loadProvider, "OSSL_PROVIDER_load");
        r.ok = r.ctxNew && r.ctxFree && r.decryptInit && r.setPadding && r.decryptUpdate && r.aes128cbc &&
               r.aes256cbc && r.sha256 && r.digest && r.fetch && r.loadProvider;
        return r;
    }();
    return c;
}

const EVP_CIPHER* evpAes128Cbc()
{
    return crypto().ok ? crypto().aes128cbc() : nullptr;
}

const std::vector<unsigned char>& data()
{
    static const std::vector<unsigned char> d = [] {
        std::vector<unsigned char> v(kSize);
        std::mt19937 gen(1234);
        for (auto& b : v)
            b = static_cast<unsigned char>(gen());
        return v;
    }();
    return d;
}

const EVP_CIPHER* evpAes256Cbc()
{
    return crypto().ok ? crypto().aes256cbc() : nullptr;
}

// 32 bytes: AES-128 takes the first 16.
const unsigned char kKey[32] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6, 0xab, 0xf7, 0x15,
                                0x88, 0x09, 0xcf, 0x4f, 0x3c, 0x60, 0x3d, 0xeb, 0x10, 0x15, 0xca,
                                0x71, 0xbe, 0x2b, 0x73, 0xae, 0xf0, 0x85, 0x7d, 0x77, 0x81};
const unsigned char kIv[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

template <pcrypt::Rijndael::KeyLength Length>
void oursAes(std::vector<unsigned char>& out)
{
    pcrypt::Rijndael aes;
    aes.init(pcrypt::Rijndael::CBC, pcrypt::Rijndael::Decrypt, kKey, Length, kIv);
    aes.blockDecrypt(data().data(), static_cast<int>(kSize * 8), out.data());
}

// The portable forms, as a processor without AES-NI or the SHA extensions
// runs them.
void oursAes128Table(std::vector<unsigned char>& out)
{
    pcrypt::Rijndael aes;
    aes.setHardware(false);
    aes.init(pcrypt::Rijndael::CBC, pcrypt::Rijndael::Decrypt, kKey, pcrypt::Rijndael::Key16Bytes, kIv);
    aes.blockDecrypt(data().data(), static_cast<int>(kSize * 8), out.data());
}

void oursSha256Portable(std::vector<unsigned char>& out)
{
    // The data is whole blocks; the padding block is left out on both sides'
    // scale of 16384 blocks.
    uint32_t h[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    pcrypt::Sha256Calc_compressPortable(h, data().data(), kSize / 64);
    std::memcpy(out.data(), h, sizeof h);
}

void oursSha256(std::vector<unsigned char>& out)
{
    pcrypt::Sha256Calc calc;
    pcrypt::Sha256Calc_init(&calc);
    pcrypt::Sha256Calc_calculate(&calc, data().data(), kSize);
    std::memcpy(out.data(), calc.Value, 32);
}

bool opensslSha256(std::vector<unsigned char>& out)
{
    const Crypto& c = crypto();
    unsigned int len = 0;
    return c.ok && c.digest(data().data(), kSize, out.data(), &len, c.sha256(), nullptr) == 1;
}

bool opensslCipher(const EVP_CIPHER* cipher, std::vector<unsigned char>& out)
{
    const Crypto& c = crypto();
    if (!c.ok || !cipher)
        return false;
    EVP_CIPHER_CTX* ctx = c.ctxNew();
    int len = 0;
    bool ok = ctx && c.decryptInit(ctx, cipher, nullptr, kKey, kIv) == 1;
    if (ok) {
        c.setPadding(ctx, 0);
        ok = c.decryptUpdate(ctx, out.data(), &len, data().data(), static_cast<int>(kSize)) == 1;
    }
    c.ctxFree(ctx);
    return ok;
}

void oursRc4(std::vector<unsigned char>& out)
{
    out = data();
    pcrypt::PDFEncryptionRC4 rc4;
    rc4.RC4(out.data(), static_cast<int>(kSize), const_cast<unsigned char*>(kKey), 16);
}

const EVP_CIPHER* evpRc4()
{
    // RC4 sits in OpenSSL 3's legacy provider.
    static const EVP_CIPHER* c = []() -> const EVP_CIPHER* {
        const Crypto& cr = crypto();
        if (!cr.ok)
            return nullptr;
        cr.loadProvider(nullptr, "legacy");
        cr.loadProvider(nullptr, "default");
        return cr.fetch(nullptr, "RC4", nullptr);
    }();
    return c;
}

void BM_Aes128CbcDecrypt_Ours(benchmark::State& state)
{
    std::vector<unsigned char> out(kSize);
    for (auto _ : state) {
        oursAes<pcrypt::Rijndael::Key16Bytes>(out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_Aes128CbcDecrypt_OpenSSL(benchmark::State& state)
{
    std::vector<unsigned char> out(kSize);
    for (auto _ : state) {
        if (!opensslCipher(evpAes128Cbc(), out)) {
            state.SkipWithError("libcrypto not available");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_Rc4_Ours(benchmark::State& state)
{
    std::vector<unsigned char> out(kSize);
    for (auto _ : state) {
        oursRc4(out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_Rc4_OpenSSL(benchmark::State& state)
{
    std::vector<unsigned char> out(kSize);
    if (!evpRc4()) {
        state.SkipWithError("RC4 not available (legacy provider)");
        return;
    }
    for (auto _ : state) {
        // A copy as in ours, so both sides do the same work.
        out = data();
        if (!opensslCipher(evpRc4(), out)) {
            state.SkipWithError("EVP failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

// Both sides timed in the same loop over the same data; reports the ratio of
// our time to OpenSSL's (1.0 = as fast; 3.0 = three times slower).
template <typename Ours, typename Theirs>
void compare(benchmark::State& state, Ours ours, Theirs theirs)
{
    std::vector<unsigned char> a(kSize), b(kSize);
    double tOurs = 0, tTheirs = 0;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        ours(a);
        auto t1 = std::chrono::steady_clock::now();
        if (!theirs(b)) {
            state.SkipWithError("EVP failed");
            return;
        }
        auto t2 = std::chrono::steady_clock::now();
        tOurs += std::chrono::duration<double>(t1 - t0).count();
        tTheirs += std::chrono::duration<double>(t2 - t1).count();
        benchmark::DoNotOptimize(a.data());
        benchmark::DoNotOptimize(b.data());
    }
    const double mb = static_cast<double>(state.iterations()) * kSize / 1e6;
    state.counters["ours_MBps"] = mb / tOurs;
    state.counters["openssl_MBps"] = mb / tTheirs;
    state.counters["time_ratio_ours_to_openssl"] = tOurs / tTheirs;
}

void BM_Ratio_Aes128CbcDecrypt(benchmark::State& state)
{
    compare(state, oursAes<pcrypt::Rijndael::Key16Bytes>,
            [](std::vector<unsigned char>& out) { return opensslCipher(evpAes128Cbc(), out); });
}

void BM_Ratio_Aes256CbcDecrypt(benchmark::State& state)
{
    compare(state, oursAes<pcrypt::Rijndael::Key32Bytes>,
            [](std::vector<unsigned char>& out) { return opensslCipher(evpAes256Cbc(), out); });
}

void BM_Ratio_Sha256(benchmark::State& state)
{
    compare(state, oursSha256, opensslSha256);
}

void BM_Ratio_Aes128CbcDecryptTableForm(benchmark::State& state)
{
    compare(state, oursAes128Table,
            [](std::vector<unsigned char>& out) { return opensslCipher(evpAes128Cbc(), out); });
}

void BM_Ratio_Sha256PortableForm(benchmark::State& state)
{
    compare(state, oursSha256Portable, opensslSha256);
}

void BM_Ratio_Rc4(benchmark::State& state)
{
    if (!evpRc4()) {
        state.SkipWithError("RC4 not available (legacy provider)");
        return;
    }
    compare(state, oursRc4, [](std::vector<unsigned char>& out) {
        out = data();
        return opensslCipher(evpRc4(), out);
    });
}

} // namespace

BENCHMARK(BM_Aes128CbcDecrypt_Ours);
BENCHMARK(BM_Aes128CbcDecrypt_OpenSSL);
BENCHMARK(BM_Rc4_Ours);
BENCHMARK(BM_Rc4_OpenSSL);
BENCHMARK(BM_Ratio_Aes128CbcDecrypt);
BENCHMARK(BM_Ratio_Aes256CbcDecrypt);
BENCHMARK(BM_Ratio_Sha256);
BENCHMARK(BM_Ratio_Aes128CbcDecryptTableForm);
BENCHMARK(BM_Ratio_Sha256PortableForm);
BENCHMARK(BM_Ratio_Rc4);

BENCHMARK_MAIN();
