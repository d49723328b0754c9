// Makes the seed token files of fuzz_token in a folder: an empty token, and one with an SM2
// signing pair (with its certificate, given the test data), an RSA-1024 encryption pair and a
// data object. User PIN "fuzz-user-pin", 1,000 iterations.
//   token_seeds <folder> [sm2.key.der sm2.crt.der]
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vorel/vorel_crypto.h"

namespace {

const char kPin[] = "fuzz-user-pin";
const char kSo[] = "fuzz-so-pin";

std::vector<unsigned char> read(const char* path) {
  std::vector<unsigned char> out;
  if (std::FILE* f = std::fopen(path, "rb")) {
    unsigned char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
  }
  return out;
}

// The whole provisioning of the fuller seed; false at the first refusal.
bool fill(VOREL_DEVICE* d, int argc, char** argv) {
  unsigned retries = 0;
  VOREL_KEYPAIR *sm2 = nullptr, *rsa = nullptr;
  const unsigned char access[4] = {0x04, 0x03, 0x07, 0x03};
  bool ok = VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, kPin, &retries) == VOREL_OK &&
            VorelPKICryptoGenerateKeypair(d, VOREL_ALG_RSA, 1024, 0, VOREL_KEYPAIR_ENCRYPT, &rsa) == VOREL_OK &&
            VorelPKICryptoSetKeypairLabel(rsa, "rsa") == VOREL_OK &&
            VorelPKICryptoCreateData(d, 1, access, 64) == VOREL_OK;
  if (ok && argc == 4) {
    std::vector<unsigned char> key = read(argv[2]), der = read(argv[3]);
    VOREL_CERT* cert = der.empty() ? nullptr : VorelPKICertNewCert(der.data(), der.size());
    ok = !key.empty() && cert &&
         VorelPKICryptoImportKeypair(d, key.data(), key.size(), VOREL_KEYPAIR_SIGN, &sm2) == VOREL_OK &&
         VorelPKICryptoUpdateCertificate(sm2, cert) == VOREL_OK;
    VorelPKICertFreeCert(cert);
  } else if (ok) {
    ok = VorelPKICryptoGenerateKeypair(d, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &sm2) == VOREL_OK;
  }
  VorelPKICryptoFreeKeypair(sm2);
  VorelPKICryptoFreeKeypair(rsa);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) {
    std::fprintf(stderr, "usage: token_seeds <folder> [sm2.key.der sm2.crt.der]\n");
    return 2;
  }
  setenv("VOREL_TOKEN_DIR", argv[1], 1);
  VOREL_DEVICE *empty = nullptr, *full = nullptr;
  bool ok = VorelPKICryptoCreateToken(1, "EMPTY", "empty", kSo, kPin, 1000, &empty) == VOREL_OK &&
            VorelPKICryptoCreateToken(1, "FULL", "full", kSo, kPin, 1000, &full) == VOREL_OK && fill(full, argc, argv);
  VorelPKICryptoFreeDevice(empty);
  VorelPKICryptoFreeDevice(full);
  if (!ok) std::fprintf(stderr, "token_seeds: cannot make the seeds (%d)\n", VorelPKIGetLastError());
  return ok ? 0 : 1;
}
