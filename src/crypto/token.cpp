// Devices, software tokens, passwords, data objects and the key pairs kept on tokens.
#include "crypto/token.h"

#include <cstring>
#include <new>

#include "crypto/internal.h"
#include "crypto/objects.h"
#include "platform/platform.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

namespace {

using token::Contents;
using token::Login;
using token::PinSlot;
using token::Session;
using token::StoredKey;
using token::Token;

const char kPseudoSerial[] = "PSEUDO";
const char kPseudoLabel[] = "vorelcrypto pseudo device";

Token* token_of(VOREL_DEVICE* device) { return device ? device->token.get() : nullptr; }

bool pin_length_ok(const char* pin) {
  std::size_t n = strnlen(pin, VOREL_PIN_MAX_LEN + 1);
  return n >= VOREL_PIN_MIN_LEN && n <= VOREL_PIN_MAX_LEN;
}

bool valid_pwd_type(int type) { return type == VOREL_PWD_USER || type == VOREL_PWD_SO; }

PinSlot& slot_of(Contents& c, int type) { return type == VOREL_PWD_SO ? c.so : c.user; }

void put_u64(unsigned char* p, std::uint64_t v) {
  for (int i = 7; i >= 0; --i, v >>= 8) p[i] = static_cast<unsigned char>(v);
}

// What a PIN's key is bound to: its token and which PIN it is.
void pin_aad(std::uint64_t instance, int type, unsigned char aad[12]) {
  std::memcpy(aad, "pin", 3);
  aad[3] = static_cast<unsigned char>(type);
  put_u64(aad + 4, instance);
}

// The token key sealed under a key derived from the PIN, with a new salt.
bool wrap(std::uint64_t instance, std::uint32_t iterations, int type, const char* pin, const SecureBytes& tokenKey,
          PinSlot& slot) {
  SecureBytes kek(32);
  unsigned char aad[12];
  pin_aad(instance, type, aad);
  bool ok =
      backend::random_bytes(slot.salt, sizeof slot.salt) && backend::random_bytes(slot.iv, sizeof slot.iv) &&
      backend::pbkdf2_sha256(reinterpret_cast<const unsigned char*>(pin), std::strlen(pin), slot.salt, sizeof slot.salt,
                             iterations, kek.data(), kek.size()) &&
      backend::gcm_seal(kek.data(), slot.iv, aad, sizeof aad, tokenKey.data(), tokenKey.size(), slot.wrapped, slot.tag);
  return ok;
}

// The slow part of a PIN check, run without holding the token: false for a wrong PIN.
bool unwrap(std::uint64_t instance, std::uint32_t iterations, int type, const char* pin, const PinSlot& slot,
            SecureBytes& tokenKey) {
  SecureBytes kek(32);
  tokenKey.assign(32, 0);
  unsigned char aad[12];
  pin_aad(instance, type, aad);
  return backend::pbkdf2_sha256(reinterpret_cast<const unsigned char*>(pin), std::strlen(pin), slot.salt,
                                sizeof slot.salt, iterations, kek.data(), kek.size()) &&
         backend::gcm_open(kek.data(), slot.iv, aad, sizeof aad, slot.wrapped, sizeof slot.wrapped, slot.tag,
                           tokenKey.data());
}

// A PIN proven right: the token key and the token it belongs to.
struct Proof {
  SecureBytes tokenKey;
  std::uint64_t instance = 0;
  std::uint32_t iterations = 0;
};

// Checks a PIN against its try counter, one check at a time per token and across processes, as a
// card does: were checks to overlap, each in flight would hold a spent try and a seventh at once
// would find none left even for the right PIN. The try is spent on the token before the PIN is
// looked at, so that a kill during the check cannot give it back; a right PIN restores the
// counter. The slow derivation holds only the PIN lock: readers and writers of the token go on.
int check_pin(Token& t, int type, const char* pin, unsigned* retries, Proof& proof) {
  token::TokenLock serial(t.pinMu, t.pinLockPath, true);
  if (!serial.exclusive()) return VOREL_ERR_STORE;
  PinSlot slot;
  {
    Session s(t);
    if (s.status() != VOREL_OK) return s.status();
    PinSlot& stored = slot_of(t.c, type);
    if (stored.remaining == 0) {
      if (retries) *retries = 0;
      return VOREL_ERR_PIN_INCORRECT;
    }
    --stored.remaining;
    int rc = s.commit();
    if (rc != VOREL_OK) return rc;
    slot = stored;
    proof.instance = t.c.instance;
    proof.iterations = t.c.iterations;
  }
  bool right = unwrap(proof.instance, proof.iterations, type, pin, slot, proof.tokenKey);
  Session s(t);
  if (s.status() != VOREL_OK) return s.status();
  if (t.c.instance != proof.instance) return VOREL_ERR_DEVICE_REMOVED;
  PinSlot& stored = slot_of(t.c, type);
  if (!right) {
    if (retries) *retries = stored.remaining;
    return VOREL_ERR_PIN_INCORRECT;
  }
  stored.remaining = t.c.maxTries;
  return s.commit();
}

// Seals the token key under a new PIN with all its tries; the token is then logged in as loginAs.
int replace_pin(Token& t, Proof& proof, int type, const char* pin, Login loginAs) {
  PinSlot slot;
  if (!wrap(proof.instance, proof.iterations, type, pin, proof.tokenKey, slot)) return VOREL_ERR_GENERAL;
  Session s(t);
  if (s.status() != VOREL_OK) return s.status();
  if (t.c.instance != proof.instance || t.c.iterations != proof.iterations) return VOREL_ERR_DEVICE_REMOVED;
  slot.remaining = t.c.maxTries;
  slot_of(t.c, type) = slot;
  int rc = s.commit();
  if (rc == VOREL_OK && loginAs != Login::None) {
    t.login = loginAs;
    t.tokenKey.swap(proof.tokenKey);
  }
  return rc;
}

void logout(Token& t) {
  std::lock_guard<std::recursive_mutex> lock(t.mu);
  t.logout();
}

// Proves the PIN of type proven, then seals the token key under newPin as the PIN of type replaced.
int prove_and_replace(VOREL_DEVICE* device, int proven, const char* pin, int replaced, const char* newPin,
                      Login loginAs, unsigned* retries) {
  Token* t = token_of(device);
  if (!device || !pin || !newPin) return fail(VOREL_ERR_PARAM);
  if (!t) return fail(VOREL_ERR_NOT_SUPPORTED);
  logout(*t);
  if (!pin_length_ok(pin) || !pin_length_ok(newPin)) return fail(VOREL_ERR_PIN_LEN_RANGE);
  Proof proof;
  int rc = check_pin(*t, proven, pin, retries, proof);
  if (rc == VOREL_OK) rc = replace_pin(*t, proof, replaced, newPin, loginAs);
  return rc == VOREL_OK ? ok() : fail(rc);
}

bool access_allowed(const Token& t, unsigned char who) {
  return (who & VOREL_ACCESS_ANYONE) || ((who & VOREL_ACCESS_USER) && t.login == Login::User) ||
         ((who & VOREL_ACCESS_SO) && t.login == Login::So);
}

enum Access { kRead = 0, kWrite = 1, kSee = 2, kDelete = 3 };

// Runs op on an existing data object the caller may use that way.
template <class Op>
int with_data(VOREL_DEVICE* device, unsigned id, Access how, bool write, Op op) {
  Token* t = token_of(device);
  if (!t) return device ? VOREL_ERR_NOT_SUPPORTED : VOREL_ERR_PARAM;
  Session s(*t);
  if (s.status() != VOREL_OK) return s.status();
  auto it = t->c.data.find(id);
  if (it == t->c.data.end()) return VOREL_ERR_NOT_FOUND;
  if (!access_allowed(*t, it->second.access[how])) return VOREL_ERR_NOT_LOGGED_IN;
  int rc = op(it->second.data);
  if (rc != VOREL_OK || !write) return rc;
  return s.commit();
}

bool range_ok(std::size_t size, std::size_t offset, std::size_t len) { return offset <= size && len <= size - offset; }

VOREL_DEVICE* new_token_device(int type, const std::string& serial, const std::shared_ptr<Token>& t) {
  auto* d = new (std::nothrow) vorel_device_st;
  if (!d) return nullptr;
  d->type = type;
  d->serial = serial;
  d->token = t;
  return d;
}

// The additional data a sealed private key is bound to: its token, number, algorithm and public key.
std::string key_aad(std::uint64_t instance, const StoredKey& k) {
  unsigned char head[16];
  put_u64(head, instance);
  for (int i = 0; i < 4; ++i) head[8 + i] = static_cast<unsigned char>(k.id >> (24 - 8 * i));
  for (int i = 0; i < 4; ++i) head[12 + i] = static_cast<unsigned char>(k.alg >> (24 - 8 * i));
  return std::string(reinterpret_cast<char*>(head), sizeof head) + k.spki;
}

StoredKey* find_key(Token& t, std::uint32_t id) {
  for (StoredKey& k : t.c.keys)
    if (k.id == id) return &k;
  return nullptr;
}

struct KeyFree {
  void operator()(backend::Key* k) const { backend::key_free(k); }
};

// Runs op on the stored record of a token key pair, with the user logged in when asked.
template <class Op>
int with_key(VOREL_KEYPAIR* kp, bool needUser, bool write, Op op) {
  Token& t = *kp->device->token;
  Session s(t);
  if (s.status() != VOREL_OK) return s.status();
  if (needUser && t.login != Login::User) return VOREL_ERR_NOT_LOGGED_IN;
  StoredKey* k = find_key(t, kp->tokenId);
  if (!k) return VOREL_ERR_NOT_FOUND;
  int rc = op(*k);
  if (rc != VOREL_OK || !write) return rc;
  return s.commit();
}

}  // namespace

namespace tokens {

int require_user(VOREL_DEVICE* device) {
  Token& t = *device->token;
  std::lock_guard<std::recursive_mutex> lock(t.mu);
  return t.login == Login::User ? VOREL_OK : VOREL_ERR_NOT_LOGGED_IN;
}

int store_keypair(VOREL_DEVICE* device, backend::Key* key, int alg, int type, VOREL_KEYPAIR** keypair) {
  std::shared_ptr<backend::Key> priv(key, KeyFree());
  Token& t = *device->token;
  SecureBytes pkcs8, spki;
  if (!encode_key(key, alg, pkcs8, spki)) return VOREL_ERR_GENERAL;
  backend::Key* pub = public_copy(key, alg);
  if (!pub) return VOREL_ERR_GENERAL;
  std::uint32_t id = 0;
  int rc;
  {
    Session s(t);
    rc = s.status();
    if (rc == VOREL_OK && t.login != Login::User) rc = VOREL_ERR_NOT_LOGGED_IN;
    // Numbers are never given twice: a token that has used them all takes no more key pairs.
    if (rc == VOREL_OK && t.c.nextKeyId == UINT32_MAX) rc = VOREL_ERR_STORE;
    if (rc == VOREL_OK) {
      StoredKey k;
      k.id = id = t.c.nextKeyId++;
      k.type = static_cast<std::uint32_t>(type);
      k.alg = static_cast<std::uint32_t>(alg);
      k.bits = static_cast<std::uint32_t>(key_bits(key, alg));
      k.spki.assign(spki.begin(), spki.end());
      k.sealed.resize(pkcs8.size());
      std::string aad = key_aad(t.c.instance, k);
      if (!backend::random_bytes(k.iv, sizeof k.iv) ||
          !backend::gcm_seal(t.tokenKey.data(), k.iv, reinterpret_cast<const unsigned char*>(aad.data()), aad.size(),
                             pkcs8.data(), pkcs8.size(), reinterpret_cast<unsigned char*>(&k.sealed[0]), k.tag)) {
        rc = VOREL_ERR_GENERAL;
      } else {
        t.c.keys.push_back(std::move(k));
        rc = s.commit();
        if (rc == VOREL_OK) t.keys[id] = priv;
      }
    }
  }
  if (rc != VOREL_OK) {
    backend::key_free(pub);
    return rc;
  }
  rc = keypair_object(device, alg, type, pub, keypair);
  if (rc == VOREL_OK) (*keypair)->tokenId = id;
  return rc;
}

std::shared_ptr<backend::Key> private_key(VOREL_KEYPAIR* kp, int* rc) {
  Token& t = *kp->device->token;
  {
    std::lock_guard<std::recursive_mutex> lock(t.mu);
    if (t.login != Login::User) {
      *rc = VOREL_ERR_NOT_LOGGED_IN;
      return nullptr;
    }
    auto it = t.keys.find(kp->tokenId);
    if (it != t.keys.end()) return it->second;
  }
  std::shared_ptr<backend::Key> key;
  *rc = with_key(kp, true, false, [&](StoredKey& k) {
    SecureBytes pkcs8(k.sealed.size());
    std::string aad = key_aad(t.c.instance, k);
    if (!backend::gcm_open(t.tokenKey.data(), k.iv, reinterpret_cast<const unsigned char*>(aad.data()), aad.size(),
                           reinterpret_cast<const unsigned char*>(k.sealed.data()), k.sealed.size(), k.tag,
                           pkcs8.data()))
      return VOREL_ERR_TOKEN_DAMAGED;
    DecodedKey decoded;
    backend::Key* raw = nullptr;
    int r = decode_private(pkcs8.data(), pkcs8.size(), decoded);
    if (r == VOREL_OK) r = key_from_decoded(decoded, true, &raw);
    if (r != VOREL_OK) return VOREL_ERR_TOKEN_DAMAGED;
    key.reset(raw, KeyFree());
    // The private half must be the one of the public key the pair is known by: every size comes from that.
    SecureBytes spki;
    if (!encode_public(raw, decoded.alg, spki) || k.spki != std::string(spki.begin(), spki.end()))
      return VOREL_ERR_TOKEN_DAMAGED;
    t.keys[k.id] = key;
    return VOREL_OK;
  });
  return *rc == VOREL_OK ? key : nullptr;
}

int delete_keypair(VOREL_KEYPAIR* kp) {
  Token& t = *kp->device->token;
  return with_key(kp, true, true, [&](StoredKey& k) {
    t.keys.erase(k.id);
    t.c.keys.erase(t.c.keys.begin() + (&k - t.c.keys.data()));
    return VOREL_OK;
  });
}

int set_label(VOREL_KEYPAIR* kp, const char* label) {
  return with_key(kp, true, true, [&](StoredKey& k) {
    k.label = label;
    return VOREL_OK;
  });
}

int get_cert(VOREL_KEYPAIR* kp, std::vector<unsigned char>& der) {
  return with_key(kp, false, false, [&](StoredKey& k) {
    der.assign(k.cert.begin(), k.cert.end());
    return VOREL_OK;
  });
}

int set_cert(VOREL_KEYPAIR* kp, const std::vector<unsigned char>& der) {
  return with_key(kp, true, true, [&](StoredKey& k) {
    k.cert.assign(der.begin(), der.end());
    return VOREL_OK;
  });
}

}  // namespace tokens
}  // namespace vorel::crypto

using namespace vorel::crypto;
using vorel::token::Login;
using vorel::token::Session;
using vorel::token::Token;

extern "C" {

// ---- devices ----

VOREL_DEVICE_LIST* VorelPKICryptoGetAllDevices(int type, int flags) {
  return guard([&]() -> VOREL_DEVICE_LIST* {
    if (type < 0 || (flags & ~(VOREL_ENUM_TOKENS | VOREL_ENUM_HARDWARE)) != 0) return fail(VOREL_ERR_PARAM), nullptr;
    auto* list = new (std::nothrow) vorel_device_list_st;
    if (!list) return fail(VOREL_ERR_MEMORY), nullptr;
    if (type == VOREL_DEVICE_PSEUDO) {
      VOREL_DEVICE* pseudo = nullptr;
      if (VorelPKICryptoGetPseudoDevice(&pseudo) == VOREL_OK) list->devices.push_back(pseudo);
    } else if (flags & VOREL_ENUM_TOKENS) {
      for (const auto& listed : vorel::token::scan(type, nullptr)) {
        VOREL_DEVICE* d = new_token_device(listed.type, listed.serial, listed.token);
        if (d) list->devices.push_back(d);
      }
    }
    ok();
    return list;
  });
}

int VorelPKICryptoGetDeviceCount(VOREL_DEVICE_LIST* list) {
  return guard([&] {
    if (!list) return fail(VOREL_ERR_PARAM);
    ok();
    return static_cast<int>(list->devices.size());
  });
}

VOREL_DEVICE* VorelPKICryptoGetDevice(VOREL_DEVICE_LIST* list, int index) {
  return guard([&]() -> VOREL_DEVICE* {
    if (!list || index < 0 || static_cast<std::size_t>(index) >= list->devices.size())
      return fail(VOREL_ERR_PARAM), nullptr;
    VOREL_DEVICE* copy = nullptr;
    VorelPKICryptoDupDevice(list->devices[static_cast<std::size_t>(index)], &copy);
    return copy;
  });
}

void VorelPKICryptoFreeDevices(VOREL_DEVICE_LIST* list) {
  return guard([&] {
    if (!list) return;
    for (VOREL_DEVICE* d : list->devices) VorelPKICryptoFreeDevice(d);
    delete list;
  });
}

int VorelPKICryptoFindDevice(int type, const char* serial, int flags, VOREL_DEVICE** device) {
  return guard([&] {
    if (type < 0 || !serial || !device || (flags & ~(VOREL_ENUM_TOKENS | VOREL_ENUM_HARDWARE)) != 0)
      return fail(VOREL_ERR_PARAM);
    *device = nullptr;
    if (type == VOREL_DEVICE_PSEUDO)
      return std::strcmp(serial, kPseudoSerial) == 0 ? VorelPKICryptoGetPseudoDevice(device)
                                                     : fail(VOREL_ERR_NOT_FOUND);
    std::string dir = vorel::token::token_dir();
    if (!(flags & VOREL_ENUM_TOKENS) || !vorel::token::valid_serial(serial) || dir.empty())
      return fail(VOREL_ERR_NOT_FOUND);
    std::string path = dir + vorel::platform::path_separator() + vorel::token::file_name(type, serial);
    std::string head;
    // Asking after a token that is not there leaves nothing behind in the folder.
    if (!vorel::platform::read_file(path, head, 1)) return fail(VOREL_ERR_NOT_FOUND);
    std::shared_ptr<Token> t = vorel::token::token_at(path);
    std::string label;
    {
      Session s(*t);
      if (s.status() == VOREL_ERR_DEVICE_REMOVED) return fail(VOREL_ERR_NOT_FOUND);
      if (s.status() != VOREL_OK) return fail(s.status());
      if (t->c.type != static_cast<std::uint32_t>(type) || t->c.serial != serial) return fail(VOREL_ERR_TOKEN_DAMAGED);
      label = t->c.label;
    }
    *device = new_token_device(type, serial, t);
    if (!*device) return fail(VOREL_ERR_MEMORY);
    // A token keeps the label it was made with: the device answers it without reading again.
    (*device)->label = label;
    (*device)->labelKnown = true;
    return ok();
  });
}

int VorelPKICryptoGetDeviceType(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM), -1;
    ok();
    return device->type;
  });
}

namespace {
// A text of the token's header, or of the pseudo device. A token's serial number is its name:
// it needs no read of the token, so that naming the listed devices stays as cheap as listing.
int device_text(VOREL_DEVICE* device, char** out, bool serial) {
  if (!device || !out) return fail(VOREL_ERR_PARAM);
  Token* t = token_of(device);
  if (!t) {
    const char* text = serial ? kPseudoSerial : kPseudoLabel;
    return hand_out_text(text, std::strlen(text), out);
  }
  if (serial) return hand_out_text(device->serial.data(), device->serial.size(), out);
  if (device->labelKnown) return hand_out_text(device->label.data(), device->label.size(), out);
  std::string text;
  {
    Session s(*t);
    if (s.status() != VOREL_OK) return fail(s.status());
    text = t->c.label;
  }
  return hand_out_text(text.data(), text.size(), out);
}
}  // namespace

int VorelPKICryptoGetSerialNumber(VOREL_DEVICE* device, char** serial) {
  return guard([&] { return device_text(device, serial, true); });
}

int VorelPKICryptoGetLabel(VOREL_DEVICE* device, char** label) {
  return guard([&] { return device_text(device, label, false); });
}

// ---- tokens ----

int VorelPKICryptoCreateToken(int type, const char* serial, const char* label, const char* soPin, const char* userPin,
                              unsigned iterations, VOREL_DEVICE** device) {
  return guard([&] {
    if (type <= 0 || !soPin || !userPin || !device) return fail(VOREL_ERR_PARAM);
    *device = nullptr;
    if (!label) label = "";
    if (std::strlen(label) > VOREL_LABEL_MAX_LEN) return fail(VOREL_ERR_PARAM);
    if (iterations != 0 && (iterations < vorel::token::kMinIterations || iterations > vorel::token::kMaxIterations))
      return fail(VOREL_ERR_PARAM);
    if (!pin_length_ok(soPin) || !pin_length_ok(userPin)) return fail(VOREL_ERR_PIN_LEN_RANGE);
    if (!vorel::backend::init()) return fail(VOREL_ERR_GENERAL);
    vorel::token::Contents c;
    unsigned char random[8];
    if (!vorel::backend::random_bytes(random, sizeof random)) return fail(VOREL_ERR_GENERAL);
    for (unsigned char b : random) c.instance = c.instance << 8 | b;
    if (serial) {
      c.serial = serial;
    } else {
      static const char hex[] = "0123456789ABCDEF";
      for (unsigned char b : random) {
        c.serial += hex[b >> 4];
        c.serial += hex[b & 15];
      }
    }
    if (!vorel::token::valid_serial(c.serial)) return fail(VOREL_ERR_PARAM);
    c.type = static_cast<std::uint32_t>(type);
    c.label = label;
    c.iterations = iterations ? iterations : vorel::token::kDefaultIterations;
    c.maxTries = VOREL_PIN_MAX_TRIES;
    c.user.remaining = c.so.remaining = c.maxTries;
    SecureBytes tokenKey(32);
    if (!vorel::backend::random_bytes(tokenKey.data(), tokenKey.size()) ||
        !wrap(c.instance, c.iterations, VOREL_PWD_SO, soPin, tokenKey, c.so) ||
        !wrap(c.instance, c.iterations, VOREL_PWD_USER, userPin, tokenKey, c.user))
      return fail(VOREL_ERR_GENERAL);
    std::string dir = vorel::token::token_dir();
    if (dir.empty() || !vorel::platform::make_dirs(dir)) return fail(VOREL_ERR_STORE);
    const std::string name = c.serial;
    std::shared_ptr<Token> t =
        vorel::token::token_at(dir + vorel::platform::path_separator() + vorel::token::file_name(type, name));
    {
      Session s(*t);
      int rc = s.create(std::move(c));
      if (rc != VOREL_OK) return fail(rc);
    }
    *device = new_token_device(type, name, t);
    return *device ? ok() : fail(VOREL_ERR_MEMORY);
  });
}

int VorelPKICryptoDeleteToken(VOREL_DEVICE* device) {
  return guard([&] {
    Token* t = token_of(device);
    if (!t) return fail(device ? VOREL_ERR_NOT_SUPPORTED : VOREL_ERR_PARAM);
    Session s(*t);
    if (s.status() != VOREL_OK) return fail(s.status());
    if (t->login != Login::So) return fail(VOREL_ERR_NOT_LOGGED_IN);
    int rc = s.remove();
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoGetStoreWarning(char** text) {
  return guard([&] {
    if (!text) return fail(VOREL_ERR_PARAM);
    *text = nullptr;
    std::string warning = vorel::token::store_warning();
    return warning.empty() ? ok() : hand_out_text(warning.data(), warning.size(), text);
  });
}

// ---- passwords ----

int VorelPKICryptoVerifyPwd(VOREL_DEVICE* device, int type, const char* pin, unsigned* retries) {
  return guard([&] {
    Token* t = token_of(device);
    if (!device || !pin || !valid_pwd_type(type)) return fail(VOREL_ERR_PARAM);
    if (!t) return fail(VOREL_ERR_NOT_SUPPORTED);
    logout(*t);
    if (!pin_length_ok(pin)) return fail(VOREL_ERR_PIN_LEN_RANGE);
    Proof proof;
    int rc = check_pin(*t, type, pin, retries, proof);
    if (rc != VOREL_OK) return fail(rc);
    std::lock_guard<std::recursive_mutex> lock(t->mu);
    if (t->c.instance != proof.instance) return fail(VOREL_ERR_DEVICE_REMOVED);
    t->login = type == VOREL_PWD_SO ? Login::So : Login::User;
    t->tokenKey.swap(proof.tokenKey);
    return ok();
  });
}

int VorelPKICryptoChangePwd(VOREL_DEVICE* device, int type, const char* oldPin, const char* newPin, unsigned* retries) {
  return guard([&] {
    if (!valid_pwd_type(type)) return fail(VOREL_ERR_PARAM);
    return prove_and_replace(device, type, oldPin, type, newPin, Login::None, retries);
  });
}

int VorelPKICryptoUnlockPwd(VOREL_DEVICE* device, int type, const char* soPin, const char* newUserPin,
                            unsigned* retries) {
  return guard([&] {
    if (type != VOREL_PWD_USER) return fail(VOREL_ERR_PARAM);
    // The SO PIN was proven: the token stays logged in as SO.
    return prove_and_replace(device, VOREL_PWD_SO, soPin, VOREL_PWD_USER, newUserPin, Login::So, retries);
  });
}

int VorelPKICryptoGetPwdRetryNum(VOREL_DEVICE* device, int type, unsigned* retries) {
  return guard([&] {
    Token* t = token_of(device);
    if (!device || !retries || !valid_pwd_type(type)) return fail(VOREL_ERR_PARAM);
    if (!t) return fail(VOREL_ERR_NOT_SUPPORTED);
    Session s(*t);
    if (s.status() != VOREL_OK) return fail(s.status());
    *retries = slot_of(t->c, type).remaining;
    return ok();
  });
}

int VorelPKICryptoClearPwdCache(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM);
    if (Token* t = token_of(device)) logout(*t);
    return ok();
  });
}

// ---- data objects ----

int VorelPKICryptoLockDevice(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM);
    Token* t = token_of(device);
    int rc = t ? vorel::token::hold(*t) : VOREL_OK;
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoUnlockDevice(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM);
    Token* t = token_of(device);
    int rc = t ? vorel::token::release(*t) : VOREL_OK;
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoCreateData(VOREL_DEVICE* device, unsigned id, const unsigned char access[4], size_t size) {
  return guard([&] {
    Token* t = token_of(device);
    if (!device || !access || size > VOREL_DATA_MAX_SIZE) return fail(VOREL_ERR_PARAM);
    if (!t) return fail(VOREL_ERR_NOT_SUPPORTED);
    Session s(*t);
    if (s.status() != VOREL_OK) return fail(s.status());
    if (t->login == Login::None) return fail(VOREL_ERR_NOT_LOGGED_IN);
    vorel::token::DataObject d;
    std::memcpy(d.access, access, sizeof d.access);
    d.data.assign(size, '\0');
    if (!t->c.data.emplace(id, std::move(d)).second) return fail(VOREL_ERR_EXISTS);
    int rc = s.commit();
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoReadData(VOREL_DEVICE* device, unsigned id, unsigned char* buf, size_t bufLen, size_t* outLen) {
  return guard([&] {
    if (!outLen) return fail(VOREL_ERR_PARAM);
    int rc = with_data(device, id, kRead, false, [&](std::string& data) {
      *outLen = data.size();
      if (!buf) return VOREL_OK;
      if (bufLen < data.size()) return VOREL_ERR_BUFFER_SMALL;
      std::memcpy(buf, data.data(), data.size());
      return VOREL_OK;
    });
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoReadDataEx(VOREL_DEVICE* device, unsigned id, size_t offset, unsigned char* buf, size_t len,
                             size_t* outLen) {
  return guard([&] {
    if ((!buf && len > 0) || !outLen) return fail(VOREL_ERR_PARAM);
    int rc = with_data(device, id, kRead, false, [&](std::string& data) {
      if (!range_ok(data.size(), offset, len)) return VOREL_ERR_DATA_LEN;
      if (len > 0) std::memcpy(buf, data.data() + offset, len);
      *outLen = len;
      return VOREL_OK;
    });
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoWriteDataEx(VOREL_DEVICE* device, unsigned id, size_t offset, const unsigned char* data, size_t len) {
  return guard([&] {
    if (!data && len > 0) return fail(VOREL_ERR_PARAM);
    int rc = with_data(device, id, kWrite, true, [&](std::string& contents) {
      if (!range_ok(contents.size(), offset, len)) return VOREL_ERR_DATA_LEN;
      if (len > 0) std::memcpy(&contents[offset], data, len);
      return VOREL_OK;
    });
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoWriteData(VOREL_DEVICE* device, unsigned id, const unsigned char* data, size_t len) {
  return guard([&] { return VorelPKICryptoWriteDataEx(device, id, 0, data, len); });
}

int VorelPKICryptoDeleteData(VOREL_DEVICE* device, unsigned id) {
  return guard([&] {
    Token* t = token_of(device);
    int rc = with_data(device, id, kDelete, true, [&](std::string&) {
      t->c.data.erase(id);
      return VOREL_OK;
    });
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

int VorelPKICryptoGetDataLength(VOREL_DEVICE* device, unsigned id, size_t* len) {
  return guard([&] {
    if (!len) return fail(VOREL_ERR_PARAM);
    int rc = with_data(device, id, kSee, false, [&](std::string& data) {
      *len = data.size();
      return VOREL_OK;
    });
    return rc == VOREL_OK ? ok() : fail(rc);
  });
}

// ---- key pairs on a device ----

int VorelPKICryptoGetKeypairCount(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM);
    Token* t = token_of(device);
    if (!t) return ok(), 0;
    Session s(*t);
    if (s.status() != VOREL_OK) return fail(s.status());
    ok();
    return static_cast<int>(t->c.keys.size());
  });
}

VOREL_KEYPAIR* VorelPKICryptoGetKeypair(VOREL_DEVICE* device, int index) {
  return guard([&]() -> VOREL_KEYPAIR* {
    Token* t = token_of(device);
    if (!t || index < 0) return fail(VOREL_ERR_PARAM), nullptr;
    StoredKey k;
    {
      Session s(*t);
      if (s.status() != VOREL_OK) return fail(s.status()), nullptr;
      if (static_cast<std::size_t>(index) >= t->c.keys.size()) return fail(VOREL_ERR_PARAM), nullptr;
      k = t->c.keys[static_cast<std::size_t>(index)];
    }
    // Algorithm and size come from the public key itself, never from the record beside it.
    DecodedKey decoded;
    vorel::backend::Key* pub = nullptr;
    int rc = decode_public(reinterpret_cast<const unsigned char*>(k.spki.data()), k.spki.size(), decoded);
    if (rc == VOREL_OK) rc = key_from_decoded(decoded, false, &pub);
    if (rc != VOREL_OK) return fail(VOREL_ERR_TOKEN_DAMAGED), nullptr;
    VOREL_KEYPAIR* kp = nullptr;
    rc = keypair_object(device, decoded.alg, static_cast<int>(k.type), pub, &kp);
    if (rc != VOREL_OK) return fail(rc), nullptr;
    kp->tokenId = k.id;
    kp->label = k.label;
    ok();
    return kp;
  });
}

}  // extern "C"
