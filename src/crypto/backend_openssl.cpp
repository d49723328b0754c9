#include <openssl/rand.h>

#include <climits>

#include "crypto/backend.h"

namespace vorel::backend {

const char* name() { return "openssl"; }

bool init() { return true; }

bool random_bytes(unsigned char* out, std::size_t len) {
  // RAND_bytes takes an int: feed large requests in pieces.
  while (len > 0) {
    int chunk = len > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(len);
    if (RAND_bytes(out, chunk) != 1) return false;
    out += chunk;
    len -= static_cast<std::size_t>(chunk);
  }
  return true;
}

}  // namespace vorel::backend

#include <openssl/evp.h>

#include "vorel/vorel_crypto.h"

namespace vorel::backend {

namespace {
const EVP_MD* digest_of(int alg) {
  switch (alg) {
    case VOREL_HASH_SM3: return EVP_sm3();
    case VOREL_HASH_SHA1: return EVP_sha1();
    case VOREL_HASH_SHA256: return EVP_sha256();
    default: return nullptr;
  }
}
}  // namespace

std::size_t hash_length(int alg) {
  const EVP_MD* md = digest_of(alg);
  return md ? static_cast<std::size_t>(EVP_MD_get_size(md)) : 0;
}

void* hash_new(int alg) {
  const EVP_MD* md = digest_of(alg);
  if (!md) return nullptr;
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  if (!ctx) return nullptr;
  if (EVP_DigestInit_ex(ctx, md, nullptr) != 1) {
    EVP_MD_CTX_free(ctx);
    return nullptr;
  }
  return ctx;
}

bool hash_update(void* ctx, const unsigned char* data, std::size_t len) {
  return EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(ctx), data, len) == 1;
}

bool hash_final(void* ctx, unsigned char* out) {
  return EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(ctx), out, nullptr) == 1;
}

void hash_free(void* ctx) { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(ctx)); }

void cipher_free(void* ctx) { EVP_CIPHER_CTX_free(static_cast<EVP_CIPHER_CTX*>(ctx)); }

}  // namespace vorel::backend
