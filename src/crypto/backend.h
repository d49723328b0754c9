// The one seam between vorelcrypto and the cryptographic implementation underneath.
// Everything above it (objects, encodings, buffering, padding of ciphers, error codes) is
// written once. Numbers cross the seam as unsigned big-endian bytes.
#pragma once

#include <cstddef>

#include "crypto/secure.h"

// The test suites link the other implementation too, under another namespace, so that each
// can be checked against the other.
#ifndef VOREL_BACKEND_NS
#define VOREL_BACKEND_NS backend
#endif

namespace vorel::VOREL_BACKEND_NS {

using crypto::SecureBytes;

// "openssl" or "libgcrypt".
const char* name();

// One-time initialisation of the implementation; false when it cannot be used.
bool init();
// Frees what init() made, for a module that unloads; no key or context of the implementation
// may be used afterwards. The next use initialises it afresh.
void cleanup();

// Cryptographically strong random bytes; false on failure.
bool random_bytes(unsigned char* out, std::size_t len);

// Message digests by the library's hash identifiers (VOREL_HASH_*). hash_new returns
// nullptr for an unknown identifier; the context is released with hash_free.
std::size_t hash_length(int alg);
void* hash_new(int alg);
bool hash_update(void* ctx, const unsigned char* data, std::size_t len);
// Writes hash_length(alg) bytes; the context cannot be updated afterwards.
bool hash_final(void* ctx, unsigned char* out);
void hash_free(void* ctx);

// Block ciphers over whole blocks, no padding. Des3 always takes a 24-byte key.
enum class BlockCipher { Sm4, Aes128, Des, Des3 };
bool cipher_available(BlockCipher cipher);
void* cipher_new(BlockCipher cipher, bool cbc, bool encrypt, const unsigned char* key, const unsigned char* iv);
// len is a multiple of the block size; in and out may be the same buffer.
bool cipher_blocks(void* ctx, const unsigned char* in, std::size_t len, unsigned char* out);
void cipher_free(void* ctx);

// PBKDF2 with HMAC-SHA-256 (RFC 8018); out receives outLen bytes.
bool pbkdf2_sha256(const unsigned char* pass, std::size_t passLen, const unsigned char* salt, std::size_t saltLen,
                   unsigned iterations, unsigned char* out, std::size_t outLen);

// AES-256-GCM with a 12-byte nonce and a 16-byte tag, in and out may be the same buffer.
// Sealing writes tag; opening checks it and is false when it does not authenticate the input.
bool gcm(bool seal, const unsigned char* key, const unsigned char* iv, const unsigned char* aad, std::size_t aadLen,
         const unsigned char* in, std::size_t len, unsigned char* out, unsigned char* tag);

inline bool gcm_seal(const unsigned char* key, const unsigned char* iv, const unsigned char* aad, std::size_t aadLen,
                     const unsigned char* in, std::size_t len, unsigned char* out, unsigned char* tag) {
  return gcm(true, key, iv, aad, aadLen, in, len, out, tag);
}
// out is wiped when the input is refused.
inline bool gcm_open(const unsigned char* key, const unsigned char* iv, const unsigned char* aad, std::size_t aadLen,
                     const unsigned char* in, std::size_t len, const unsigned char* tag, unsigned char* out) {
  if (gcm(false, key, iv, aad, aadLen, in, len, out, const_cast<unsigned char*>(tag))) return true;
  crypto::wipe(out, len);
  return false;
}

// Asymmetric keys: an RSA or SM2 key, public or with its private half.
struct Key;

struct RsaNumbers {
  SecureBytes n, e, d, p, q, dp, dq, qinv;
};

// Results of the key operations below: 1, or a negative VOREL_ERR_* code.
Key* rsa_generate(unsigned bits, unsigned long exponent);
// n and e, and with priv the other six numbers; nullptr when the numbers are not a key.
Key* rsa_import(const RsaNumbers& numbers, bool priv);
bool rsa_export(const Key* key, RsaNumbers& numbers, bool priv);
// The modulus length in bits of an RSA key; 0 for any other key.
unsigned rsa_bits(const Key* key);
Key* sm2_generate();
// q: 65 bytes 04 || x || y (may be nullptr when d is given); d: 32 bytes or nullptr.
// nullptr when the point is not on the curve or d is out of range.
Key* sm2_import(const unsigned char* q, const unsigned char* d);
// q: 65 bytes; d (32 bytes) only when not nullptr and the key is private.
bool sm2_export(const Key* key, unsigned char* q, unsigned char* d);
void key_free(Key* key);

// k is the modulus length in bytes; in of raw operations is k bytes.
int rsa_encrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out);
int rsa_decrypt(const Key* key, bool pkcs1, const unsigned char* in, std::size_t inLen, unsigned char* out,
                std::size_t* outLen);
int rsa_sign_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, unsigned char* out);
int rsa_verify_pkcs1(const Key* key, const unsigned char* in, std::size_t inLen, const unsigned char* sig);

// e, r and s are 32 bytes.
int sm2_sign(const Key* key, const unsigned char* e, unsigned char* r, unsigned char* s);
int sm2_verify(const Key* key, const unsigned char* e, const unsigned char* r, const unsigned char* s);
// out: len + 97 bytes, 04 || x1 || y1 || C2 || C3 with C3 = SM3(x2 || M || y2).
int sm2_encrypt(const Key* key, const unsigned char* m, std::size_t len, unsigned char* out);
// out: len - 97 bytes.
int sm2_decrypt(const Key* key, const unsigned char* c, std::size_t len, unsigned char* out);

}  // namespace vorel::VOREL_BACKEND_NS
