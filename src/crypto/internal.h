// Helpers shared by the library's source files; not part of the contract.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "crypto/backend.h"
#include "crypto/secure.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

// Records code as this thread's last error and returns it, so failures read `return fail(CODE);`.
int fail(int code);
// Records success and returns 1.
int ok();

// What a guarded function answers when its body threw: the code for int functions, NULL for
// those answering an object, nothing for void ones; the code is the thread's last error.
template <class R>
R refused(int code) {
  fail(code);
  if constexpr (std::is_pointer_v<R>) {
    return nullptr;
  } else if constexpr (!std::is_void_v<R>) {
    return static_cast<R>(code);
  }
}

// The body of every extern "C" function of the library runs inside this: no C++ exception
// (SecureBytes and std::string allocate) crosses into C. bad_alloc is VOREL_ERR_MEMORY,
// anything else VOREL_ERR_GENERAL.
template <class Body>
auto guard(Body&& body) noexcept -> decltype(body()) {
  using R = decltype(body());
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return refused<R>(VOREL_ERR_MEMORY);
  } catch (...) {
    return refused<R>(VOREL_ERR_GENERAL);
  }
}

// Copies n bytes into a new library buffer for the caller (freed with VorelPKICryptoFreeMemory).
int hand_out(const unsigned char* p, std::size_t n, unsigned char** out, std::size_t* outLen);
// The same for a text, zero-terminated.
int hand_out_text(const char* text, std::size_t n, char** out);

// 1 when the cipher identifier is one this library can run.
bool cipher_supported(int alg);

// SM2 curve parameters (GM/T 0003.5), 32 bytes each.
extern const unsigned char kSm2A[32], kSm2B[32], kSm2Gx[32], kSm2Gy[32], kSm2N[32];

// A key decoded from DER, as numbers.
struct DecodedKey {
  int alg = 0;  // VOREL_ALG_RSA or VOREL_ALG_SM2
  backend::RsaNumbers rsa;
  bool hasQ = false, hasD = false;
  unsigned char q[65] = {};
  unsigned char d[32] = {};
  ~DecodedKey() { wipe(d, sizeof d); }
};

// SubjectPublicKeyInfo (or a bare RSAPublicKey); results are VOREL_OK or an error code.
int decode_public(const unsigned char* der, std::size_t len, DecodedKey& key);
// PKCS#8, PKCS#1 RSAPrivateKey or SEC1 ECPrivateKey.
int decode_private(const unsigned char* der, std::size_t len, DecodedKey& key);
void encode_rsa_public(const SecureBytes& n, const SecureBytes& e, SecureBytes& out);
void encode_sm2_public(const unsigned char* q, SecureBytes& out);
void encode_rsa_private(const backend::RsaNumbers& k, SecureBytes& out);
// q may be nullptr.
void encode_sm2_private(const unsigned char* d, const unsigned char* q, SecureBytes& out);

// The checks a decoded key passes before it becomes a key (RSA moduli of 1024 to 4096 bits with
// an odd exponent, SM2 private values in range), and its size in bits; VOREL_OK or an error code.
int decoded_bits(const DecodedKey& decoded, bool priv, int* bits);
// The algorithm and size of a DER public key that passes those checks; VOREL_OK or an error code.
int public_key_size(const unsigned char* der, std::size_t len, int* alg, int* bits);
// Builds a backend key from decoded numbers after checking them; VOREL_OK or an error code.
int key_from_decoded(const DecodedKey& decoded, bool priv, backend::Key** key);
// A key's size as the key itself has it: RSA modulus bits, 256 for SM2.
int key_bits(const backend::Key* key, int alg);
// The public half of a backend key as a key of its own.
backend::Key* public_copy(const backend::Key* key, int alg);
// A key-pair object that owns key, its size taken from the key; VOREL_OK or an error code.
int keypair_object(VOREL_DEVICE* device, int alg, int type, backend::Key* key, VOREL_KEYPAIR** keypair);
// SubjectPublicKeyInfo of a key's public half.
bool encode_public(const backend::Key* key, int alg, SecureBytes& spki);
// PKCS#8 of a private key and SubjectPublicKeyInfo of its public half.
bool encode_key(const backend::Key* key, int alg, SecureBytes& pkcs8, SecureBytes& spki);

// Key pairs kept on software tokens.
namespace tokens {
// Fails with VOREL_ERR_NOT_LOGGED_IN unless the user PIN was verified for the device's token.
int require_user(VOREL_DEVICE* device);
// Stores a private key on the device's token and hands out its key-pair object; takes key.
int store_keypair(VOREL_DEVICE* device, backend::Key* key, int alg, int type, VOREL_KEYPAIR** keypair);
// The private half, unsealed once per login; nullptr with *rc set when it cannot be had.
std::shared_ptr<backend::Key> private_key(VOREL_KEYPAIR* keypair, int* rc);
int delete_keypair(VOREL_KEYPAIR* keypair);
int set_label(VOREL_KEYPAIR* keypair, const char* label);
int get_cert(VOREL_KEYPAIR* keypair, std::vector<unsigned char>& der);
int set_cert(VOREL_KEYPAIR* keypair, const std::vector<unsigned char>& der);
}  // namespace tokens

}  // namespace vorel::crypto
