// Symmetric exports against the crypto-library calls they wrap, in one run, with DEBUG off:
// SKF_Encrypt SM4-CBC of 64 KiB, SKF_EncryptUpdate in 4 KiB pieces, SKF_Digest SM3 of 64 KiB,
// SKF_Mac of 64 KiB, and SKF_DigestInit SM3 with a public key beside VorelPKIComputeSM2Z.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "exports/frame.h"
#include "exports/lifecycle.h"
#include "ratio.h"
#include "scratch.h"
#include "token/common.h"

namespace {

constexpr std::size_t kData = 64 * 1024, kPiece = 4096;
std::vector<unsigned char> g_in(kData, 0x5A), g_out(kData + 32);
const unsigned char kKey[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
DEVHANDLE g_dev = nullptr;
VOREL_DEVICE* g_raw = nullptr;  // the device's crypto-library device
HANDLE g_key = nullptr;
BLOCKCIPHERPARAM g_param{};
ECCPUBLICKEYBLOB g_pub{};
VOREL_PUBLICKEY* g_pubRaw = nullptr;

void drain(unsigned char* p) { VorelPKICryptoFreeMemory(p); }

VOREL_CIPHER* raw_cipher() {
  VOREL_CIPHER* c = VorelPKICryptoNewCipher(g_raw, 1, VOREL_CIPHER_SM4_CBC, kKey, 16, g_param.IV);
  VorelPKICryptoCipherSetPadding(c, VOREL_PADDING_PKCS7);
  return c;
}

void Raw_Encrypt64K(benchmark::State& state) {
  for (auto _ : state) {
    VOREL_CIPHER* c = raw_cipher();
    unsigned char *a = nullptr, *b = nullptr;
    std::size_t an = 0, bn = 0;
    VorelPKICryptoCipherUpdate(c, g_in.data(), kData, &a, &an);
    VorelPKICryptoCipherFinal(c, &b, &bn);
    std::memcpy(g_out.data(), a, an);
    std::memcpy(g_out.data() + an, b, bn);
    drain(a);
    drain(b);
    VorelPKICryptoFreeCipher(c);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Raw_Encrypt64K);

void Ours_Encrypt64K(benchmark::State& state) {
  for (auto _ : state) {
    ULONG len = static_cast<ULONG>(g_out.size());
    if (SKF_EncryptInit(g_key, g_param) != SAR_OK ||
        SKF_Encrypt(g_key, g_in.data(), kData, g_out.data(), &len) != SAR_OK)
      state.SkipWithError("encrypt");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Ours_Encrypt64K);

void Raw_EncryptUpdate4K(benchmark::State& state) {
  VOREL_CIPHER* c = raw_cipher();
  for (auto _ : state) {
    for (std::size_t at = 0; at < kData; at += kPiece) {
      unsigned char* a = nullptr;
      std::size_t an = 0;
      VorelPKICryptoCipherUpdate(c, g_in.data() + at, kPiece, &a, &an);
      std::memcpy(g_out.data(), a, an);
      drain(a);
    }
  }
  VorelPKICryptoFreeCipher(c);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Raw_EncryptUpdate4K);

void Ours_EncryptUpdate4K(benchmark::State& state) {
  SKF_EncryptInit(g_key, g_param);
  for (auto _ : state) {
    for (std::size_t at = 0; at < kData; at += kPiece) {
      ULONG len = static_cast<ULONG>(g_out.size());
      if (SKF_EncryptUpdate(g_key, g_in.data() + at, kPiece, g_out.data(), &len) != SAR_OK)
        state.SkipWithError("update");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Ours_EncryptUpdate4K);

void Raw_DigestSM3(benchmark::State& state) {
  VOREL_DEVICE* pseudo = vorel::pseudo_device();
  for (auto _ : state) {
    VOREL_HASH* h = VorelPKICryptoNewHash(pseudo, VOREL_HASH_SM3);
    unsigned char* d = nullptr;
    std::size_t dn = 0;
    VorelPKICryptoHashUpdate(h, g_in.data(), kData);
    VorelPKICryptoHashFinal(h, &d, &dn);
    std::memcpy(g_out.data(), d, dn);
    drain(d);
    VorelPKICryptoFreeHash(h);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Raw_DigestSM3);

void Ours_DigestSM3(benchmark::State& state) {
  for (auto _ : state) {
    HANDLE h = nullptr;
    ULONG len = 32;
    if (SKF_DigestInit(g_dev, SGD_SM3, nullptr, nullptr, 0, &h) != SAR_OK ||
        SKF_Digest(h, g_in.data(), kData, g_out.data(), &len) != SAR_OK || SKF_CloseHandle(h) != SAR_OK)
      state.SkipWithError("digest");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Ours_DigestSM3);

void Raw_Mac64K(benchmark::State& state) {
  for (auto _ : state) {
    VOREL_CIPHER* c = VorelPKICryptoNewCipher(g_raw, 1, VOREL_CIPHER_SM4_CBC, kKey, 16, g_param.IV);
    unsigned char *a = nullptr, *b = nullptr;
    std::size_t an = 0, bn = 0;
    VorelPKICryptoCipherUpdate(c, g_in.data(), kData, &a, &an);
    VorelPKICryptoCipherFinal(c, &b, &bn);
    std::memcpy(g_out.data(), a + an - 16, 16);
    drain(a);
    drain(b);
    VorelPKICryptoFreeCipher(c);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Raw_Mac64K);

void Ours_Mac64K(benchmark::State& state) {
  for (auto _ : state) {
    HANDLE m = nullptr;
    ULONG len = 16;
    if (SKF_MacInit(g_key, &g_param, &m) != SAR_OK || SKF_Mac(m, g_in.data(), kData, g_out.data(), &len) != SAR_OK ||
        SKF_CloseHandle(m) != SAR_OK)
      state.SkipWithError("mac");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kData));
}
BENCHMARK(Ours_Mac64K);

// The Z computation: SKF_DigestInit SM3 with a public key, and the raw call beside it.
void Raw_DigestInitZ(benchmark::State& state) {
  VOREL_SM2_ID id{reinterpret_cast<const unsigned char*>("1234567812345678"), 128};
  for (auto _ : state) {
    unsigned char* z = nullptr;
    std::size_t zn = 0;
    VorelPKIComputeSM2Z(g_pubRaw, VOREL_HASH_SM3, &id, &z, &zn);
    drain(z);
  }
}
BENCHMARK(Raw_DigestInitZ);

void Ours_DigestInitZ(benchmark::State& state) {
  BYTE id[] = "1234567812345678";
  for (auto _ : state) {
    HANDLE h = nullptr;
    if (SKF_DigestInit(g_dev, SGD_SM3, &g_pub, id, 16, &h) != SAR_OK || SKF_CloseHandle(h) != SAR_OK)
      state.SkipWithError("digest init");
  }
}
BENCHMARK(Ours_DigestInitZ);

}  // namespace

int main(int argc, char** argv) {
  ScratchTokens scratch;
  if (!scratch.ok()) return 1;
  VOREL_DEVICE* token = nullptr;
  if (VorelPKICryptoCreateToken(3, "S00", "bench", "12345678", "12345678", 1000, &token) != VOREL_OK) return 1;
  vorel::library_attach();
  char config[] = R"({"devices":[{"type":3}]})", name[] = "3#S00";
  SKF_LoadConfigurationWithContent(config);
  if (SKF_ConnectDev(name, &g_dev) != SAR_OK) return 1;
  g_raw = vorel::find_device(g_dev)->cryptoDevice.get();
  g_param.IVLen = 16;
  g_param.PaddingType = 1;
  if (SKF_SetSymmKey(g_dev, const_cast<unsigned char*>(kKey), SGD_SMS4_CBC, &g_key) != SAR_OK) return 1;
  // A public key for the Z computation.
  VOREL_KEYPAIR* kp = nullptr;
  VorelPKICryptoGenerateKeypair(vorel::pseudo_device(), VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &kp);
  g_pubRaw = VorelPKICryptoGetPublicKeyFromKeypair(kp);
  unsigned char *der = nullptr, *x = nullptr, *y = nullptr;
  std::size_t derLen = 0, xn = 0, yn = 0;
  int curve = 0;
  VorelPKICryptoExportPublicKey(g_pubRaw, &der, &derLen);
  VorelPKICryptoDecodeECCPubKey(der, derLen, &curve, &x, &xn, &y, &yn);
  g_pub.BitLen = 256;
  std::memcpy(g_pub.XCoordinate + 32, x, 32);
  std::memcpy(g_pub.YCoordinate + 32, y, 32);
  drain(der);
  drain(x);
  drain(y);
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  VorelPKICryptoFreePublicKey(g_pubRaw);
  VorelPKICryptoFreeKeypair(kp);
  SKF_CloseHandle(g_key);
  SKF_DisConnectDev(g_dev);
  vorel::library_detach();
  VorelPKICryptoFreeDevice(token);
  return 0;
}
