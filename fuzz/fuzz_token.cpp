// libFuzzer target for the token file reader. The input is a token file: its SHA-256 trailer is
// computed afresh so that mutations reach the parser rather than the checksum test, it is
// written into a token folder of its own, and whatever token it makes is listed, opened, logged
// into with the seeds' user PIN, and made to sign, verify, encrypt, decrypt and delete.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vorel/vorel_crypto.h"

namespace {

const char kPin[] = "fuzz-user-pin";  // the seeds' user PIN (see token_seeds.cpp)
// A login derives a key this many times at most here: the reader allows up to 10,000,000.
const std::uint32_t kMaxFuzzIterations = 20000;

// The token folder, in memory where there is one: every run writes and commits.
struct Folder {
  std::string path;
  Folder() {
    char shm[] = "/dev/shm/vorel-fuzz-token-XXXXXX", tmp[] = "/tmp/vorel-fuzz-token-XXXXXX";
    const char* made = mkdtemp(shm);
    path = made ? made : mkdtemp(tmp);
    setenv("VOREL_TOKEN_DIR", path.c_str(), 1);
  }
  ~Folder() {
    if (DIR* d = opendir(path.c_str())) {
      while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') unlink((path + "/" + e->d_name).c_str());
      closedir(d);
    }
    rmdir(path.c_str());
  }
};

std::uint32_t be32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
         static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

// The blob at *at in the file body, advancing past it; false when it runs past the body.
bool blob(const std::string& f, std::size_t body, std::size_t* at, std::string* out) {
  if (*at + 4 > body) return false;
  std::uint32_t n = be32(reinterpret_cast<const unsigned char*>(f.data()) + *at);
  if (n > body - *at - 4) return false;
  if (out) out->assign(f, *at + 4, n);
  *at += 4 + n;
  return true;
}

bool checksum(VOREL_DEVICE* pseudo, std::string& f) {
  VOREL_HASH* h = VorelPKICryptoNewHash(pseudo, VOREL_HASH_SHA256);
  unsigned char* sum = nullptr;
  std::size_t n = 0;
  bool ok = h && VorelPKICryptoHashUpdate(h, reinterpret_cast<const unsigned char*>(f.data()), f.size() - 32) == 1 &&
            VorelPKICryptoHashFinal(h, &sum, &n) == 1 && n == 32;
  if (ok) f.replace(f.size() - 32, 32, reinterpret_cast<char*>(sum), 32);
  VorelPKICryptoFreeMemory(sum);
  VorelPKICryptoFreeHash(h);
  return ok;
}

void free_buffers(std::initializer_list<unsigned char*> buffers) {
  for (unsigned char* b : buffers) VorelPKICryptoFreeMemory(b);
}

// Signs, verifies, encrypts and decrypts with one key pair.
void use(VOREL_KEYPAIR* kp) {
  VOREL_PUBLICKEY* pub = VorelPKICryptoGetPublicKeyFromKeypair(kp);
  if (!pub) return;
  bool sm2 = VorelPKICryptoGetKeypairAlgorithm(kp) == VOREL_ALG_SM2;
  const unsigned char m[32] = {0x5a, 1, 2, 3};
  std::size_t mLen = sm2 ? 32 : 20;
  unsigned char *sig = nullptr, *ct = nullptr, *plain = nullptr;
  std::size_t sigLen = 0, ctLen = 0, plainLen = 0;
  int signMech = sm2 ? VOREL_MECH_SM2_SIGN : VOREL_MECH_RSA_PKCS1_SIGN;
  int encMech = sm2 ? VOREL_MECH_SM2_ENCRYPT : VOREL_MECH_RSA_PKCS1;
  if (VorelPKICryptoSignHash(kp, signMech, nullptr, m, mLen, &sig, &sigLen) == VOREL_OK)
    VorelPKICryptoVerifyHash(pub, signMech, nullptr, m, mLen, sig, sigLen);
  if (VorelPKICryptoPublicKeyEncrypt(pub, encMech, nullptr, m, mLen, &ct, &ctLen) == VOREL_OK)
    VorelPKICryptoPrivateKeyDecrypt(kp, encMech, nullptr, ct, ctLen, &plain, &plainLen);
  VOREL_CERT* cert = nullptr;
  if (VorelPKICryptoGetCertificate(kp, 0, &cert) == VOREL_OK) VorelPKICertFreeCert(cert);
  free_buffers({sig, ct, plain});
  VorelPKICryptoFreePublicKey(pub);
}

void run(const std::uint8_t* data, std::size_t size) {
  static Folder folder;
  static VOREL_DEVICE* pseudo = [] {
    VOREL_DEVICE* d = nullptr;
    VorelPKICryptoGetPseudoDevice(&d);
    return d;
  }();
  static std::uint64_t runs = 0;
  static std::string last;
  const std::size_t kHeader = 28, kSum = 32;
  if (size < kHeader + kSum) return;
  std::string f(reinterpret_cast<const char*>(data), size);
  // A generation of its own each run: a process re-reads a token it holds only when it moved,
  // and commits (a few per run) never reach the next run's.
  std::uint64_t generation = ++runs << 20;
  for (int i = 0; i < 8; ++i) f[20 + i] = static_cast<char>(generation >> (56 - 8 * i));
  if (!checksum(pseudo, f)) return;

  // Named after the token it says it is, so that opening it reaches the parser.
  std::size_t body = size - kSum, at = kHeader + 4;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(f.data());
  std::uint32_t type = be32(p + kHeader);
  std::string serial, label;
  bool named =
      blob(f, body, &at, &serial) && !serial.empty() && serial.size() <= VOREL_SERIAL_MAX_LEN &&
      std::all_of(serial.begin(), serial.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
      });
  if (!named) serial = "F";
  if (type == 0 || type > 0x7FFFFFFF) type = 1;
  std::uint32_t iterations = named && blob(f, body, &at, &label) && at + 4 <= body ? be32(p + at) : 0;
  std::string path = folder.path + "/" + std::to_string(type) + "-" + serial + ".token";
  if (!last.empty() && last != path) unlink(last.c_str());
  last = path;
  if (std::FILE* out = std::fopen(path.c_str(), "wb")) {
    bool written = std::fwrite(f.data(), 1, f.size(), out) == f.size();
    if (std::fclose(out) != 0 || !written) return;
  }

  VorelPKICryptoFreeDevices(VorelPKICryptoGetAllDevices(static_cast<int>(type), VOREL_ENUM_TOKENS));
  VOREL_DEVICE* d = nullptr;
  if (VorelPKICryptoFindDevice(static_cast<int>(type), serial.c_str(), VOREL_ENUM_TOKENS, &d) != VOREL_OK) return;
  char* text = nullptr;
  if (VorelPKICryptoGetLabel(d, &text) == VOREL_OK) VorelPKICryptoFreeMemory(text);
  unsigned retries = 0;
  VorelPKICryptoGetPwdRetryNum(d, VOREL_PWD_SO, &retries);
  std::size_t len = 0;
  unsigned char buf[64];
  VorelPKICryptoReadDataEx(d, 1, 0, buf, sizeof buf, &len);
  if (iterations <= kMaxFuzzIterations) VorelPKICryptoVerifyPwd(d, VOREL_PWD_USER, kPin, &retries);
  int n = std::min(VorelPKICryptoGetKeypairCount(d), 4);
  for (int i = 0; i < n; ++i) {
    VOREL_KEYPAIR* kp = VorelPKICryptoGetKeypair(d, i);
    if (!kp) continue;
    use(kp);
    if (i == n - 1) VorelPKICryptoDeleteKeypair(kp);
    VorelPKICryptoFreeKeypair(kp);
  }
  VorelPKICryptoClearPwdCache(d);
  VorelPKICryptoFreeDevice(d);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  run(data, size);
  return 0;
}
