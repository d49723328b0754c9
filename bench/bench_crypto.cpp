// vorelcrypto against the raw call of the implementation it is built on, in one run:
// SM2 sign and verify, RSA-2048 sign, SM3 and SM4-CBC over 64 KiB.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "ratio.h"
#include "vorel/vorel_crypto.h"

#ifdef VOREL_BENCH_OPENSSL
#include <openssl/evp.h>
#include <openssl/rsa.h>
#else
#include <gcrypt.h>
#endif

namespace {

VOREL_DEVICE* g_device = nullptr;
VOREL_KEYPAIR* g_sm2 = nullptr;
VOREL_KEYPAIR* g_rsa = nullptr;
VOREL_PUBLICKEY* g_sm2pub = nullptr;
std::vector<unsigned char> g_sm2sig;
const unsigned char kDigest[32] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                   17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};
std::vector<unsigned char> g_data(64 * 1024, 0x5A);
const unsigned char kKey[16] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                                0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54, 0x32, 0x10};

void sign_with(benchmark::State& state, VOREL_KEYPAIR* kp, int mech) {
  for (auto _ : state) {
    unsigned char* sig = nullptr;
    size_t len = 0;
    if (VorelPKICryptoSignHash(kp, mech, nullptr, kDigest, sizeof kDigest, &sig, &len) != VOREL_OK)
      state.SkipWithError("sign");
    VorelPKICryptoFreeMemory(sig);
  }
}

void Ours_SM2Sign(benchmark::State& state) { sign_with(state, g_sm2, VOREL_MECH_SM2_SIGN); }
void Ours_RSA2048Sign(benchmark::State& state) { sign_with(state, g_rsa, VOREL_MECH_RSA_PKCS1_SIGN); }

void Ours_SM2Verify(benchmark::State& state) {
  for (auto _ : state) {
    if (VorelPKICryptoVerifyHash(g_sm2pub, VOREL_MECH_SM2_SIGN, nullptr, kDigest, 32, g_sm2sig.data(),
                                 g_sm2sig.size()) != VOREL_OK)
      state.SkipWithError("verify");
  }
}

void Ours_SM3_64KiB(benchmark::State& state) {
  for (auto _ : state) {
    VOREL_HASH* h = VorelPKICryptoNewHash(g_device, VOREL_HASH_SM3);
    VorelPKICryptoHashUpdate(h, g_data.data(), g_data.size());
    unsigned char* out = nullptr;
    size_t len = 0;
    VorelPKICryptoHashFinal(h, &out, &len);
    VorelPKICryptoFreeMemory(out);
    VorelPKICryptoFreeHash(h);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

void Ours_SM4CBC_64KiB(benchmark::State& state) {
  for (auto _ : state) {
    VOREL_CIPHER* c = VorelPKICryptoNewCipher(g_device, 1, VOREL_CIPHER_SM4_CBC, kKey, 16, kKey);
    unsigned char* out = nullptr;
    size_t len = 0;
    VorelPKICryptoCipherUpdate(c, g_data.data(), g_data.size(), &out, &len);
    VorelPKICryptoFreeMemory(out);
    VorelPKICryptoCipherFinal(c, &out, &len);
    VorelPKICryptoFreeMemory(out);
    VorelPKICryptoFreeCipher(c);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

#ifdef VOREL_BENCH_OPENSSL

EVP_PKEY* g_rawSm2 = nullptr;
EVP_PKEY* g_rawRsa = nullptr;
std::vector<unsigned char> g_rawSm2Sig;

void raw_sign(benchmark::State& state, EVP_PKEY* key, bool rsa) {
  unsigned char sig[512];
  for (auto _ : state) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    size_t len = sizeof sig;
    EVP_PKEY_sign_init(ctx);
    if (rsa) EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING);
    if (EVP_PKEY_sign(ctx, sig, &len, kDigest, sizeof kDigest) != 1) state.SkipWithError("sign");
    EVP_PKEY_CTX_free(ctx);
  }
}
void Raw_SM2Sign(benchmark::State& state) { raw_sign(state, g_rawSm2, false); }
void Raw_RSA2048Sign(benchmark::State& state) { raw_sign(state, g_rawRsa, true); }

void Raw_SM2Verify(benchmark::State& state) {
  for (auto _ : state) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(g_rawSm2, nullptr);
    EVP_PKEY_verify_init(ctx);
    if (EVP_PKEY_verify(ctx, g_rawSm2Sig.data(), g_rawSm2Sig.size(), kDigest, 32) != 1) state.SkipWithError("verify");
    EVP_PKEY_CTX_free(ctx);
  }
}

void Raw_SM3_64KiB(benchmark::State& state) {
  unsigned char out[32];
  for (auto _ : state) EVP_Digest(g_data.data(), g_data.size(), out, nullptr, EVP_sm3(), nullptr);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

void Raw_SM4CBC_64KiB(benchmark::State& state) {
  std::vector<unsigned char> out(g_data.size() + 16);
  for (auto _ : state) {
    EVP_CIPHER_CTX* c = EVP_CIPHER_CTX_new();
    int len = 0;
    EVP_EncryptInit_ex(c, EVP_sm4_cbc(), nullptr, kKey, kKey);
    EVP_EncryptUpdate(c, out.data(), &len, g_data.data(), static_cast<int>(g_data.size()));
    EVP_EncryptFinal_ex(c, out.data() + len, &len);
    EVP_CIPHER_CTX_free(c);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

void raw_setup() {
  g_rawSm2 = EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2");
  g_rawRsa = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(2048));
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(g_rawSm2, nullptr);
  size_t len = 80;
  g_rawSm2Sig.resize(len);
  EVP_PKEY_sign_init(ctx);
  EVP_PKEY_sign(ctx, g_rawSm2Sig.data(), &len, kDigest, 32);
  g_rawSm2Sig.resize(len);
  EVP_PKEY_CTX_free(ctx);
}

#else

gcry_sexp_t g_rawSm2 = nullptr, g_rawSm2Pub = nullptr, g_rawRsa = nullptr, g_rawSm2Sig = nullptr;
gcry_sexp_t g_sm2Data = nullptr, g_rsaData = nullptr;

void raw_sign(benchmark::State& state, gcry_sexp_t data, gcry_sexp_t key) {
  for (auto _ : state) {
    gcry_sexp_t sig = nullptr;
    if (gcry_pk_sign(&sig, data, key) != 0) state.SkipWithError("sign");
    gcry_sexp_release(sig);
  }
}
void Raw_SM2Sign(benchmark::State& state) { raw_sign(state, g_sm2Data, g_rawSm2); }
void Raw_RSA2048Sign(benchmark::State& state) { raw_sign(state, g_rsaData, g_rawRsa); }

void Raw_SM2Verify(benchmark::State& state) {
  for (auto _ : state)
    if (gcry_pk_verify(g_rawSm2Sig, g_sm2Data, g_rawSm2Pub) != 0) state.SkipWithError("verify");
}

void Raw_SM3_64KiB(benchmark::State& state) {
  unsigned char out[32];
  for (auto _ : state) gcry_md_hash_buffer(GCRY_MD_SM3, out, g_data.data(), g_data.size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

void Raw_SM4CBC_64KiB(benchmark::State& state) {
  std::vector<unsigned char> out(g_data.size());
  for (auto _ : state) {
    gcry_cipher_hd_t hd = nullptr;
    gcry_cipher_open(&hd, GCRY_CIPHER_SM4, GCRY_CIPHER_MODE_CBC, 0);
    gcry_cipher_setkey(hd, kKey, 16);
    gcry_cipher_setiv(hd, kKey, 16);
    gcry_cipher_encrypt(hd, out.data(), out.size(), g_data.data(), g_data.size());
    gcry_cipher_close(hd);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_data.size()));
}

gcry_sexp_t keygen(const char* genkey, const char* which) {
  gcry_sexp_t parms = nullptr, pair = nullptr;
  gcry_sexp_build(&parms, nullptr, genkey);
  gcry_pk_genkey(&pair, parms);
  gcry_sexp_t key = gcry_sexp_find_token(pair, which, 0);
  gcry_sexp_release(parms);
  gcry_sexp_release(pair);
  return key;
}

void raw_setup() {
  // The same calls our implementation makes: deterministic k for SM2, no hashing for RSA.
  g_rawSm2 = keygen("(genkey (ecc (curve sm2p256v1)))", "private-key");
  g_rawRsa = keygen("(genkey (rsa (nbits 4:2048)))", "private-key");
  gcry_sexp_build(&g_sm2Data, nullptr, "(data (flags sm2 rfc6979)(hash sm3 %b))", 32, kDigest);
  gcry_sexp_build(&g_rsaData, nullptr, "(data (flags pkcs1-raw)(value %b))", 32, kDigest);
  gcry_pk_sign(&g_rawSm2Sig, g_sm2Data, g_rawSm2);
  gcry_sexp_t q = gcry_sexp_find_token(g_rawSm2, "q", 0);
  size_t qLen = 0;
  const char* qData = gcry_sexp_nth_data(q, 1, &qLen);
  gcry_sexp_build(&g_rawSm2Pub, nullptr, "(public-key (ecc (curve sm2p256v1)(q %b)))", static_cast<int>(qLen), qData);
  gcry_sexp_release(q);
}

#endif

BENCHMARK(Raw_SM2Sign);
BENCHMARK(Ours_SM2Sign);
BENCHMARK(Raw_SM2Verify);
BENCHMARK(Ours_SM2Verify);
BENCHMARK(Raw_RSA2048Sign);
BENCHMARK(Ours_RSA2048Sign);
BENCHMARK(Raw_SM3_64KiB);
BENCHMARK(Ours_SM3_64KiB);
BENCHMARK(Raw_SM4CBC_64KiB);
BENCHMARK(Ours_SM4CBC_64KiB);

}  // namespace

int main(int argc, char** argv) {
  VorelPKICryptoGetPseudoDevice(&g_device);
  VorelPKICryptoGenerateKeypair(g_device, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &g_sm2);
  VorelPKICryptoGenerateKeypair(g_device, VOREL_ALG_RSA, 2048, 0, VOREL_KEYPAIR_SIGN, &g_rsa);
  g_sm2pub = VorelPKICryptoGetPublicKeyFromKeypair(g_sm2);
  unsigned char* sig = nullptr;
  size_t len = 0;
  VorelPKICryptoSignHash(g_sm2, VOREL_MECH_SM2_SIGN, nullptr, kDigest, 32, &sig, &len);
  g_sm2sig.assign(sig, sig + len);
  VorelPKICryptoFreeMemory(sig);
  raw_setup();
  std::printf("implementation: %s\n", VorelPKICryptoImplementation());
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  VorelPKICryptoFreePublicKey(g_sm2pub);
  VorelPKICryptoFreeKeypair(g_sm2);
  VorelPKICryptoFreeKeypair(g_rsa);
  VorelPKICryptoFreeDevice(g_device);
  return 0;
}
