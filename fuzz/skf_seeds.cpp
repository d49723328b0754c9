// Makes the seeds of the SKF targets (fuzz_skf.cpp) in <folder>/<target>/: device names and
// vendor name lists, configurations, master files with names, and one blob of each structure
// made from real keys and ciphertexts.
//   skf_seeds <folder>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "skf/blobs.h"
#include "skf/master_file.h"
#include "vorel/vorel_ptr.h"

namespace {

using Bytes = std::vector<uint8_t>;
std::string g_folder;
bool g_ok = true;

void seed(const char* target, const std::string& name, const void* data, std::size_t len) {
  std::string path = g_folder + "/" + target + "/" + name;
  std::FILE* f = std::fopen(path.c_str(), "wb");
  g_ok = f && std::fwrite(data, 1, len, f) == len && g_ok;
  if (f) g_ok = std::fclose(f) == 0 && g_ok;
}
void seed(const char* target, const std::string& name, const std::string& text) {
  seed(target, name, text.data(), text.size());
}
// A blob seed: the selector byte of its structure, then its bytes.
void blob(const std::string& name, uint8_t kind, const void* data, std::size_t len) {
  Bytes b(1, kind);
  b.insert(b.end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + len);
  seed("fuzz_blobs", name, b.data(), b.size());
}

struct Out {
  unsigned char* p = nullptr;
  std::size_t n = 0;
  ~Out() { VorelPKICryptoFreeMemory(p); }
};

void names() {
  const char* samples[] = {"3#T1", "1000000000#?", "0#A", "3-A", "-7#neg", "99999999999#big", "007#lead", "5#"};
  for (const char* s : samples) seed("fuzz_device_names", s[0] == '-' ? "neg" : s, s);
  // The first byte picks the list's capacity (× 8), the rest is a vendor's list.
  seed("fuzz_device_names", "vendor-list",
       std::string("\x20"
                   "FIXTURE0\0SECOND\0\0",
                   19));
  seed("fuzz_device_names", "vendor-unterminated",
       std::string("\x02"
                   "LONG-NAME-WITHOUT-END",
                   22));
}

void configs() {
  seed("fuzz_config", "documented",
       R"({"devices":[{"name":"ACME","type":7,"isskf":true,"dllpath":"C:\\acme\\acme_skf.dll",
 "pidvids":["VID_096E&PID_0702"]},{"name":"Soft token","type":3,"useMasterFile":true}]})");
  seed("fuzz_config", "conversions",
       R"({"devices":[{"name":5,"type":3.9,"isskf":1,"useMasterFile":0.0,"pidvids":{"a":"VID_1","b":2}},null]})");
  seed("fuzz_config", "devauth", R"({"devices":[{"type":3,"devAuthKey":"00112233445566778899AABBCCDDEEFF"}]})");
  seed("fuzz_config", "refused", R"({"devices":[{"type":"3"},{"type":4294967296}]})");
  seed("fuzz_config", "empty", "{}");
}

void master_files() {
  using namespace vorel;
  MasterFile m{};
  encode_record("doc", 100, 0x10, 0xFF, m.bytes);
  encode_record("two", 10, 0xFF, 0xFF, m.bytes + kRecordSize);
  encode_record("a-name-of-exactly-thirty-two-ch.", 0xFFFF, 1, 1, m.bytes + 3 * kRecordSize);
  std::string table(reinterpret_cast<char*>(m.bytes), kMasterSize);
  seed("fuzz_master_file", "found", table + "two");
  seed("fuzz_master_file", "new", table + "three");
  for (std::size_t slot = 0; slot < kMasterRecords; ++slot)
    encode_record(("f" + std::to_string(slot)).c_str(), 1, 1, 1, m.bytes + slot * kRecordSize);
  seed("fuzz_master_file", "full", std::string(reinterpret_cast<char*>(m.bytes), kMasterSize) + "f9");
  seed("fuzz_master_file", "empty", std::string(kMasterSize, '\0') + "x");
}

void blobs() {
  using namespace vorel;
  VOREL_DEVICE* device = nullptr;
  VOREL_KEYPAIR *sm2 = nullptr, *rsa = nullptr;
  g_ok = VorelPKICryptoGetPseudoDevice(&device) == VOREL_OK &&
         VorelPKICryptoGenerateKeypair(device, VOREL_ALG_SM2, 256, 0, VOREL_KEYPAIR_SIGN, &sm2) == VOREL_OK &&
         VorelPKICryptoGenerateKeypair(device, VOREL_ALG_RSA, 1024, 0, VOREL_KEYPAIR_SIGN, &rsa) == VOREL_OK && g_ok;
  UniquePtr<VOREL_DEVICE> deviceOwner(device);
  UniquePtr<VOREL_KEYPAIR> sm2Owner(sm2), rsaOwner(rsa);
  if (!g_ok) return;
  UniquePtr<VOREL_PUBLICKEY> sm2Pub(VorelPKICryptoGetPublicKeyFromKeypair(sm2));
  UniquePtr<VOREL_PUBLICKEY> rsaPub(VorelPKICryptoGetPublicKeyFromKeypair(rsa));

  Out spki, x, y;
  int curve = 0;
  ECCPUBLICKEYBLOB eccPub;
  g_ok = VorelPKICryptoExportPublicKey(sm2Pub.get(), &spki.p, &spki.n) == VOREL_OK &&
         VorelPKICryptoDecodeECCPubKey(spki.p, spki.n, &curve, &x.p, &x.n, &y.p, &y.n) == VOREL_OK &&
         ecc_point_to_blob(x.p, x.n, y.p, y.n, eccPub) && g_ok;
  blob("ecc-public", 0, &eccPub, sizeof eccPub);

  Out rsaSpki, n, e;
  RSAPUBLICKEYBLOB rsaBlob;
  g_ok = VorelPKICryptoExportPublicKey(rsaPub.get(), &rsaSpki.p, &rsaSpki.n) == VOREL_OK &&
         VorelPKICryptoDecodeRSAPubKey(rsaSpki.p, rsaSpki.n, &n.p, &n.n, &e.p, &e.n) == VOREL_OK &&
         rsa_public_to_blob(Bytes(n.p, n.p + n.n), Bytes(e.p, e.p + e.n), rsaBlob) && g_ok;
  blob("rsa-public", 1, &rsaBlob, sizeof rsaBlob);

  Out pkcs8;
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  std::size_t lengths[VOREL_RSA_NUMBERS] = {};
  Bytes values[VOREL_RSA_NUMBERS];
  RSAPRIVATEKEYBLOB rsaPrivate;
  g_ok = VorelPKICryptoExportKeypair(rsa, &pkcs8.p, &pkcs8.n) == VOREL_OK &&
         VorelPKICryptoDecodeRSAKeyPair(pkcs8.p, pkcs8.n, numbers, lengths) == VOREL_OK && g_ok;
  for (int i = 0; i < VOREL_RSA_NUMBERS; ++i) {
    if (numbers[i]) values[i].assign(numbers[i], numbers[i] + lengths[i]);
    VorelPKICryptoFreeMemory(numbers[i]);
  }
  g_ok = rsa_private_to_blob(values, 1024, rsaPrivate) && g_ok;
  blob("rsa-private", 2, &rsaPrivate, sizeof rsaPrivate);

  ECCPRIVATEKEYBLOB eccPrivate{};
  eccPrivate.BitLen = 256;
  g_ok = VorelPKICryptoGenerateRandom(device, 32, eccPrivate.PrivateKey + 32) == VOREL_OK && g_ok;
  blob("ecc-private", 3, &eccPrivate, sizeof eccPrivate);

  // Ciphertexts of 16 and 32 bytes: a wrapped session key, and one longer than the structure.
  Bytes envelopeCipher;
  for (std::size_t plain : {16u, 32u}) {
    const unsigned char message[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    Out ct;
    g_ok = VorelPKICryptoPublicKeyEncrypt(sm2Pub.get(), VOREL_MECH_SM2_ENCRYPT, nullptr, message, plain, &ct.p,
                                          &ct.n) == VOREL_OK &&
           g_ok;
    Bytes memory(kEccCipherOffset + (ct.n > 97 ? ct.n - 97 : 0));
    g_ok = cipher_text_to_blob(ct.p, ct.n, reinterpret_cast<ECCCIPHERBLOB*>(memory.data())) && g_ok;
    blob("ecc-cipher-" + std::to_string(plain), 4, memory.data(), memory.size());
    envelopeCipher = memory;
  }

  Out sig, r, s;
  const unsigned char digest[32] = {0x5a};
  ECCSIGNATUREBLOB signature;
  g_ok = VorelPKICryptoSignHash(sm2, VOREL_MECH_SM2_SIGN, nullptr, digest, 32, &sig.p, &sig.n) == VOREL_OK &&
         VorelPKICryptoDecodeECCSignature(sig.p, sig.n, &r.p, &r.n, &s.p, &s.n) == VOREL_OK &&
         ecc_signature_to_blob(r.p, r.n, s.p, s.n, signature) && g_ok;
  blob("ecc-signature", 5, &signature, sizeof signature);

  // The envelope's cipher blob runs past the structure by the ciphertext's extra bytes.
  Bytes envelope(offsetof(ENVELOPEDKEYBLOB, ECCCipherBlob) + envelopeCipher.size());
  auto* head = reinterpret_cast<ENVELOPEDKEYBLOB*>(envelope.data());
  head->Version = 1;
  head->ulSymmAlgID = SGD_SMS4_ECB;
  head->ulBits = 256;
  std::memset(head->cbEncryptedPriKey + 32, 0xA5, 32);
  std::memcpy(&head->PubKey, &eccPub, sizeof eccPub);
  std::memcpy(envelope.data() + offsetof(ENVELOPEDKEYBLOB, ECCCipherBlob), envelopeCipher.data(),
              envelopeCipher.size());
  blob("enveloped-key", 6, envelope.data(), envelope.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: skf_seeds <folder with fuzz_device_names, fuzz_config, ...>\n");
    return 2;
  }
  g_folder = argv[1];
  for (const char* target : {"fuzz_device_names", "fuzz_config", "fuzz_master_file", "fuzz_blobs"})
    mkdir((g_folder + "/" + target).c_str(), 0700);
  names();
  configs();
  master_files();
  blobs();
  if (!g_ok) std::fprintf(stderr, "skf_seeds: cannot make every seed (%d)\n", VorelPKIGetLastError());
  return g_ok ? 0 : 1;
}
