// SM2 and RSA exports against the crypto-library calls they wrap, in one run, with DEBUG off:
// SKF_ECCSignData with a logged-in token key, SKF_ECCVerify (which imports the public key on
// every call) against a verify with a key imported once, SKF_RSASignData with RSA-2048, and
// SKF_ExtECCEncrypt of 32 bytes.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "exports/frame.h"
#include "exports/lifecycle.h"
#include "ratio.h"
#include "scratch.h"

namespace {

DEVHANDLE g_dev = nullptr;
HCONTAINER g_sm2 = nullptr, g_rsa = nullptr;
VOREL_KEYPAIR *g_sm2Pair = nullptr, *g_rsaPair = nullptr;  // the same token keys, straight
VOREL_PUBLICKEY* g_sm2Pub = nullptr;
ECCPUBLICKEYBLOB g_pubBlob{};
ECCSIGNATUREBLOB g_sig{};
unsigned char g_e[32] = {1, 2, 3}, g_sigDer[80];
std::size_t g_sigDerLen = 0;

void Raw_ECCSign(benchmark::State& state) {
  for (auto _ : state) {
    unsigned char* sig = nullptr;
    std::size_t len = 0;
    if (VorelPKICryptoSignHash(g_sm2Pair, VOREL_MECH_SM2_SIGN, nullptr, g_e, 32, &sig, &len) != VOREL_OK)
      state.SkipWithError("sign");
    VorelPKICryptoFreeMemory(sig);
  }
}
BENCHMARK(Raw_ECCSign);

void Ours_ECCSign(benchmark::State& state) {
  for (auto _ : state) {
    ECCSIGNATUREBLOB sig;
    if (SKF_ECCSignData(g_sm2, g_e, 32, &sig) != SAR_OK) state.SkipWithError("sign");
  }
}
BENCHMARK(Ours_ECCSign);

void Raw_ECCVerify(benchmark::State& state) {
  for (auto _ : state)
    if (VorelPKICryptoVerifyHash(g_sm2Pub, VOREL_MECH_SM2_SIGN, nullptr, g_e, 32, g_sigDer, g_sigDerLen) != VOREL_OK)
      state.SkipWithError("verify");
}
BENCHMARK(Raw_ECCVerify);

void Ours_ECCVerify(benchmark::State& state) {
  for (auto _ : state)
    if (SKF_ECCVerify(g_dev, &g_pubBlob, g_e, 32, &g_sig) != SAR_OK) state.SkipWithError("verify");
}
BENCHMARK(Ours_ECCVerify);

void Raw_RSASign2048(benchmark::State& state) {
  unsigned char data[51] = {7};
  for (auto _ : state) {
    unsigned char* sig = nullptr;
    std::size_t len = 0;
    if (VorelPKICryptoSignHash(g_rsaPair, VOREL_MECH_RSA_PKCS1_SIGN, nullptr, data, sizeof data, &sig, &len) !=
        VOREL_OK)
      state.SkipWithError("sign");
    VorelPKICryptoFreeMemory(sig);
  }
}
BENCHMARK(Raw_RSASign2048)->Unit(benchmark::kMicrosecond);

void Ours_RSASign2048(benchmark::State& state) {
  BYTE data[51] = {7}, sig[256];
  for (auto _ : state) {
    ULONG len = sizeof sig;
    if (SKF_RSASignData(g_rsa, data, sizeof data, sig, &len) != SAR_OK) state.SkipWithError("sign");
  }
}
BENCHMARK(Ours_RSASign2048)->Unit(benchmark::kMicrosecond);

void Raw_ExtECCEncrypt32(benchmark::State& state) {
  for (auto _ : state) {
    unsigned char* ct = nullptr;
    std::size_t len = 0;
    if (VorelPKICryptoPublicKeyEncrypt(g_sm2Pub, VOREL_MECH_SM2_ENCRYPT, nullptr, g_e, 32, &ct, &len) != VOREL_OK)
      state.SkipWithError("encrypt");
    VorelPKICryptoFreeMemory(ct);
  }
}
BENCHMARK(Raw_ExtECCEncrypt32);

void Ours_ExtECCEncrypt32(benchmark::State& state) {
  unsigned char memory[sizeof(ECCCIPHERBLOB) + 32];
  for (auto _ : state)
    if (SKF_ExtECCEncrypt(g_dev, &g_pubBlob, g_e, 32, reinterpret_cast<ECCCIPHERBLOB*>(memory)) != SAR_OK)
      state.SkipWithError("encrypt");
}
BENCHMARK(Ours_ExtECCEncrypt32);

}  // namespace

int main(int argc, char** argv) {
  ScratchTokens scratch;
  if (!scratch.ok()) return 1;
  vorel::library_attach();
  VOREL_DEVICE* token = nullptr;
  unsigned retries = 0;
  if (VorelPKICryptoCreateToken(3, "K00", "bench", "12345678", "12345678", 1000, &token) != VOREL_OK ||
      VorelPKICryptoVerifyPwd(token, VOREL_PWD_USER, "12345678", &retries) != VOREL_OK ||
      VorelPKICryptoGenerateKeypair(token, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &g_sm2Pair) != VOREL_OK ||
      VorelPKICryptoSetKeypairLabel(g_sm2Pair, "SM2") != VOREL_OK ||
      VorelPKICryptoGenerateKeypair(token, VOREL_ALG_RSA, 2048, 0, VOREL_KEYPAIR_SIGN, &g_rsaPair) != VOREL_OK ||
      VorelPKICryptoSetKeypairLabel(g_rsaPair, "RSA") != VOREL_OK)
    return 1;
  char config[] = R"({"devices":[{"type":3}]})", name[] = "3#K00", app[] = "VOREL", pin[] = "12345678", sm2[] = "SM2",
       rsa[] = "RSA";
  SKF_LoadConfigurationWithContent(config);
  HAPPLICATION application = nullptr;
  ULONG left = 0, len = sizeof g_pubBlob;
  if (SKF_ConnectDev(name, &g_dev) != SAR_OK || SKF_OpenApplication(g_dev, app, &application) != SAR_OK ||
      SKF_VerifyPIN(application, USER_TYPE, pin, &left) != SAR_OK ||
      SKF_OpenContainer(application, sm2, &g_sm2) != SAR_OK || SKF_OpenContainer(application, rsa, &g_rsa) != SAR_OK ||
      SKF_ExportPublicKey(g_sm2, TRUE, reinterpret_cast<BYTE*>(&g_pubBlob), &len) != SAR_OK ||
      SKF_ECCSignData(g_sm2, g_e, 32, &g_sig) != SAR_OK)
    return 1;
  g_sm2Pub = VorelPKICryptoGetPublicKeyFromKeypair(g_sm2Pair);
  unsigned char* der = nullptr;
  VorelPKICryptoEncodeECCSignature(g_sig.r + 32, 32, g_sig.s + 32, 32, &der, &g_sigDerLen);
  std::memcpy(g_sigDer, der, g_sigDerLen);
  VorelPKICryptoFreeMemory(der);
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  VorelPKICryptoFreePublicKey(g_sm2Pub);
  VorelPKICryptoFreeKeypair(g_sm2Pair);
  VorelPKICryptoFreeKeypair(g_rsaPair);
  SKF_DisConnectDev(g_dev);
  VorelPKICryptoFreeDevice(token);
  vorel::library_detach();
  return 0;
}
