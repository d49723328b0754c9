// libFuzzer targets for the SKF library's own readers of bytes that come from a caller, a vendor
// module or a file; FUZZ_TARGET picks one per binary. Each target also checks what its reader
// promises, and traps when a promise breaks: surviving the input is not enough.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/config.h"
#include "pseudo.h"
#include "skf/blobs.h"
#include "skf/master_file.h"
#include "skf/names.h"
#include "token/ecc.h"
#include "token/rsa.h"

namespace {

#define CHECK(condition)                \
  do {                                  \
    if (!(condition)) __builtin_trap(); \
  } while (0)

using Bytes = std::vector<uint8_t>;

// The input as a caller's C string: it ends at the first zero byte, or at the end.
[[maybe_unused]] std::string text_of(const uint8_t* p, std::size_t n) {
  return std::string(reinterpret_cast<const char*>(p), strnlen(reinterpret_cast<const char*>(p), n));
}

// Library buffers, freed at the end of the scope.
struct Out {
  unsigned char* p = nullptr;
  std::size_t n = 0;
  ~Out() { VorelPKICryptoFreeMemory(p); }
  Bytes bytes() const { return Bytes(p, p + n); }
};

#if FUZZ_TARGET == 1
// A caller's device name, then the same bytes as a vendor's SKF_EnumDev list.
void run(const uint8_t* p, std::size_t n) {
  std::string name = text_of(p, n);
  int32_t type = -1;
  std::string own;
  if (vorel::is_valid_name(name.c_str(), &type, &own)) {
    std::size_t digits = std::strspn(name.c_str(), "0123456789");
    CHECK(type > 0 && digits > 0 && name[digits] == '#' && own == name.substr(digits + 1));
    CHECK(std::strtol(name.c_str(), nullptr, 10) == type);
  }
  if (n == 0) return;
  std::size_t capacity = static_cast<std::size_t>(p[0]) * 8;
  vorel::NameList list("fuzz", capacity);
  vorel::add_all(list, 7, reinterpret_cast<const char*>(p + 1), n - 1);
  CHECK(list.length() <= capacity);
  if (list.empty()) return;
  const char* text = list.data();
  CHECK(list.length() >= 2 && text[list.length() - 1] == '\0' && text[list.length() - 2] == '\0');
  for (std::size_t at = 0; at + 1 < list.length(); at += std::strlen(text + at) + 1)
    CHECK(std::strncmp(text + at, "7#", 2) == 0);
}

#elif FUZZ_TARGET == 2
// A configuration from content: a failed load keeps the entries there were.
void run(const uint8_t* p, std::size_t n) {
  vorel::VorelSKFConfig config;
  CHECK(config.LoadWithContent(R"({"devices":[{"name":"KNOWN","type":5,"pidvids":["VID_1234"]}]})"));
  std::string text = text_of(p, n);
  if (!config.LoadWithContent(text.c_str())) {
    auto kept = config.devices();
    CHECK(kept->size() == 1 && (*kept)[0].name == "KNOWN" && (*kept)[0].type == 5);
    return;
  }
  for (const vorel::DeviceConfig& d : *config.devices()) {
    auto found = config.find(d.type);
    CHECK(found && found->type == d.type);
  }
}

#elif FUZZ_TARGET == 3
// A master file of 304 arbitrary bytes and an arbitrary file name: its records and both searches.
void run(const uint8_t* p, std::size_t n) {
  using namespace vorel;
  if (n < kMasterSize) return;
  MasterFile master;
  std::memcpy(master.bytes, p, kMasterSize);
  std::string name = text_of(p + kMasterSize, n - kMasterSize);
  bool full = true;
  for (int slot = 0; slot < static_cast<int>(kMasterRecords); ++slot) {
    FileRecord r = record_at(master, slot);
    CHECK(std::strlen(r.name) <= 32 && r.size <= 0xFFFF && r.readRights <= 0xFFFF && r.writeRights <= 0xFFFF);
    CHECK((r.name[0] == '\0') == (master.bytes[slot * kRecordSize] == 0));
    full = full && r.name[0] != '\0';
    // A record encoded again reads back the same.
    MasterFile again{};
    encode_record(r.name, r.size, r.readRights, r.writeRights, again.bytes);
    FileRecord back = record_at(again, 0);
    CHECK(std::strcmp(back.name, r.name) == 0 && back.size == r.size && back.readRights == r.readRights &&
          back.writeRights == r.writeRights);
  }
  int exist = GetExistFileIndex(master, name.c_str());
  int empty = GetEmptyFileIndex(master, name.c_str());
  CHECK(exist >= -1 && exist < static_cast<int>(kMasterRecords));
  CHECK((exist >= 0) == (empty == -1));
  if (exist >= 0) CHECK(name == record_at(master, exist).name);
  if (empty >= 0) CHECK(master.bytes[empty * kRecordSize] == 0);
  if (exist < 0) CHECK((empty == -2) == full);
}

#elif FUZZ_TARGET == 4
// The blob conversions. The first byte picks the structure; the rest is the caller's memory.

// An SM2 public key blob: a key made from it gives back the same coordinates.
void public_blob(const ECCPUBLICKEYBLOB& blob) {
  vorel::UniquePtr<VOREL_PUBLICKEY> pub = vorel::GetECCPublicKey(pseudo(), blob);
  if (!pub) return;
  Out der, x, y;
  int curve = 0;
  CHECK(VorelPKICryptoExportPublicKey(pub.get(), &der.p, &der.n) == VOREL_OK);
  CHECK(VorelPKICryptoDecodeECCPubKey(der.p, der.n, &curve, &x.p, &x.n, &y.p, &y.n) == VOREL_OK);
  ECCPUBLICKEYBLOB back;
  CHECK(vorel::ecc_point_to_blob(x.p, x.n, y.p, y.n, back));
  CHECK(std::memcmp(back.XCoordinate + 32, blob.XCoordinate + 32, 32) == 0 &&
        std::memcmp(back.YCoordinate + 32, blob.YCoordinate + 32, 32) == 0);
}

// An ECCCIPHERBLOB handed over as len bytes whose CipherLen says anything: read within them or
// refused; a ciphertext taken goes back into a blob unchanged. The blob-pointer readers (the DEBUG
// dump, the conversion) read CipherLen bytes only when they are there or refuse a larger one.
void cipher_blob(const uint8_t* data, std::size_t len) {
  Bytes text;
  if (!vorel::cipher_text_of_bytes(data, len, text, vorel::kMaxEccDataLen)) {
    if (len >= vorel::kEccCipherOffset) {
      const auto& blob = *reinterpret_cast<const ECCCIPHERBLOB*>(data);
      if (blob.CipherLen > vorel::kMaxEccDataLen) {
        vorel::log_cipher_blob(blob);
        CHECK(!vorel::ConvertCipherText(blob, text, vorel::kMaxEccDataLen));
      }
    }
    return;
  }
  const auto& blob = *reinterpret_cast<const ECCCIPHERBLOB*>(data);
  vorel::log_cipher_blob(blob);
  CHECK(text.size() == 97 + static_cast<std::size_t>(blob.CipherLen) && text[0] == 0x04);
  Bytes memory(vorel::kEccCipherOffset + blob.CipherLen);
  auto* again = reinterpret_cast<ECCCIPHERBLOB*>(memory.data());
  CHECK(vorel::cipher_text_to_blob(text.data(), text.size(), again));
  CHECK(again->CipherLen == blob.CipherLen && std::memcmp(again->HASH, blob.HASH, 32) == 0 &&
        std::memcmp(again->XCoordinate + 32, blob.XCoordinate + 32, 32) == 0 &&
        std::memcmp(again->YCoordinate + 32, blob.YCoordinate + 32, 32) == 0 &&
        std::memcmp(memory.data() + vorel::kEccCipherOffset, data + vorel::kEccCipherOffset, blob.CipherLen) == 0);
  Bytes c1c3c2;
  CHECK(vorel::cipher_text_c1c3c2(blob, c1c3c2, vorel::kMaxEccDataLen) && c1c3c2.size() == text.size());
  CHECK(std::equal(text.end() - 32, text.end(), c1c3c2.begin() + 65));
}

template <class T>
bool whole(const uint8_t* data, std::size_t len, T& out) {
  if (len < sizeof out) return false;
  std::memcpy(&out, data, sizeof out);
  return true;
}

void run(const uint8_t* p, std::size_t n) {
  if (n == 0) return;
  const uint8_t* data = p + 1;
  std::size_t len = n - 1;
  switch (p[0] % 7) {
    case 0: {
      ECCPUBLICKEYBLOB blob;
      if (whole(data, len, blob)) public_blob(blob);
      break;
    }
    case 1: {
      RSAPUBLICKEYBLOB blob;
      if (!whole(data, len, blob)) break;
      Bytes modulus;
      bool taken = vorel::rsa_bits_accepted(blob.BitLen) && vorel::rsa_blob_modulus(blob, modulus);
      vorel::UniquePtr<VOREL_PUBLICKEY> pub = vorel::GetRSAPublicKey(pseudo(), blob);
      CHECK(!pub || taken);
      if (!pub) break;
      Out der, m, e;
      CHECK(VorelPKICryptoExportPublicKey(pub.get(), &der.p, &der.n) == VOREL_OK);
      CHECK(VorelPKICryptoDecodeRSAPubKey(der.p, der.n, &m.p, &m.n, &e.p, &e.n) == VOREL_OK);
      CHECK(m.bytes() == vorel::strip_number(modulus.data(), modulus.size()));
      RSAPUBLICKEYBLOB back;
      CHECK(vorel::rsa_public_to_blob(m.bytes(), e.bytes(), back));
      break;
    }
    case 2: {
      // The eight numbers fit their fields again, byte for byte.
      RSAPRIVATEKEYBLOB blob;
      if (!whole(data, len, blob)) break;
      Bytes numbers[VOREL_RSA_NUMBERS];
      vorel::rsa_blob_private_numbers(blob, numbers);
      RSAPRIVATEKEYBLOB back;
      CHECK(vorel::rsa_private_to_blob(numbers, blob.BitLen, back));
      CHECK(std::memcmp(back.Modulus, blob.Modulus, sizeof blob - offsetof(RSAPRIVATEKEYBLOB, Modulus)) == 0);
      break;
    }
    case 3: {
      // No key pair is ever made from a caller's private key.
      ECCPRIVATEKEYBLOB blob;
      if (whole(data, len, blob)) CHECK(!vorel::ToSM2Keyapir(blob.PrivateKey + 32, 32));
      break;
    }
    case 4:
      cipher_blob(data, len);
      break;
    case 5: {
      // r and s of a signature blob survive the DER form the library verifies; only a zero,
      // which no signature holds, is refused on the way back.
      ECCSIGNATUREBLOB blob, back;
      if (!whole(data, len, blob)) break;
      Out der, r, s;
      if (VorelPKICryptoEncodeECCSignature(blob.r + 32, 32, blob.s + 32, 32, &der.p, &der.n) != VOREL_OK) break;
      const uint8_t zero[32] = {};
      if (VorelPKICryptoDecodeECCSignature(der.p, der.n, &r.p, &r.n, &s.p, &s.n) != VOREL_OK) {
        CHECK(std::memcmp(blob.r + 32, zero, 32) == 0 || std::memcmp(blob.s + 32, zero, 32) == 0);
        break;
      }
      CHECK(vorel::ecc_signature_to_blob(r.p, r.n, s.p, s.n, back));
      CHECK(std::memcmp(back.r + 32, blob.r + 32, 32) == 0 && std::memcmp(back.s + 32, blob.s + 32, 32) == 0);
      break;
    }
    case 6: {
      // An ENVELOPEDKEYBLOB: its public key, and its cipher blob with whatever follows it.
      constexpr std::size_t kCipherAt = offsetof(ENVELOPEDKEYBLOB, ECCCipherBlob);
      ENVELOPEDKEYBLOB envelope;
      if (!whole(data, len, envelope)) break;
      public_blob(envelope.PubKey);
      cipher_blob(data + kCipherAt, len - kCipherAt);
      break;
    }
  }
}

#else
#error "FUZZ_TARGET must be 1 to 4"
#endif

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Every line is formatted, as at DEBUG, and goes nowhere.
  setenv("VOREL_SKF_LOG_PATH", "/dev/null", 1);
  setenv("VOREL_SKF_LOG_LEVEL", "4", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  run(data, size);
  return 0;
}
