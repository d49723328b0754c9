// libFuzzer targets for every decoder of untrusted bytes; FUZZ_TARGET picks one per binary.
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "pseudo.h"
#include "vorel/vorel_crypto.h"

namespace {

void run(const unsigned char* p, std::size_t n) {
  unsigned char *a = nullptr, *b = nullptr;
  [[maybe_unused]] std::size_t aLen = 0, bLen = 0;
#if FUZZ_TARGET == 1
  int curve;
  VorelPKICryptoDecodeECCPubKey(p, n, &curve, &a, &aLen, &b, &bLen);
#elif FUZZ_TARGET == 2
  VorelPKICryptoDecodeECCSignature(p, n, &a, &aLen, &b, &bLen);
#elif FUZZ_TARGET == 3
  VorelPKICryptoDecodeRSAPubKey(p, n, &a, &aLen, &b, &bLen);
#elif FUZZ_TARGET == 4
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  std::size_t lengths[VOREL_RSA_NUMBERS] = {};
  if (VorelPKICryptoDecodeRSAKeyPair(p, n, numbers, lengths) == VOREL_OK)
    for (unsigned char* x : numbers) VorelPKICryptoFreeMemory(x);
#elif FUZZ_TARGET == 5
  VOREL_KEYPAIR* kp = nullptr;
  if (VorelPKICryptoImportKeypair(pseudo(), p, n, VOREL_KEYPAIR_SIGN, &kp) == VOREL_OK) {
    VorelPKICryptoExportKeypair(kp, &a, &aLen);
    VorelPKICryptoFreeKeypair(kp);
  }
#elif FUZZ_TARGET == 6
  VOREL_PUBLICKEY* pub = nullptr;
  if (VorelPKICryptoImportPublicKey(pseudo(), p, n, &pub) == VOREL_OK) {
    VorelPKICryptoExportPublicKey(pub, &a, &aLen);
    VorelPKICryptoFreePublicKey(pub);
  }
#elif FUZZ_TARGET == 7
  VOREL_CERT* cert = VorelPKICertNewCert(p, n);
  if (cert) {
    for (int attr : {VOREL_CERT_ATTR_NOT_BEFORE, VOREL_CERT_ATTR_NOT_AFTER, VOREL_CERT_ATTR_ISSUER,
                     VOREL_CERT_ATTR_SERIAL, VOREL_CERT_ATTR_SUBJECT}) {
      char* text = nullptr;
      if (VorelPKICertGetCertStringAttribute(cert, attr, &text) == VOREL_OK) {
        vorel_time_free(vorel_time_newutctime(text));
        VorelPKICryptoFreeMemory(text);
      }
    }
    VOREL_PUBLICKEY* pub = nullptr;
    if (VorelPKICertGetCertPublicKey(cert, VOREL_CERT_PUBLIC_KEY, &pub) == VOREL_OK) VorelPKICryptoFreePublicKey(pub);
    VorelPKICertFreeCert(cert);
  }
#else
#error "FUZZ_TARGET must be 1 to 7"
#endif
  VorelPKICryptoFreeMemory(a);
  VorelPKICryptoFreeMemory(b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  run(data, size);
  return 0;
}
