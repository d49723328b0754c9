// Message digests: SM3, SHA-1, SHA-256.
#include <new>

#include "crypto/backend.h"
#include "crypto/error.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

using vorel::crypto::fail;
using vorel::crypto::ok;

extern "C" {

int VorelPKICryptoNewHash(VOREL_DEVICE* device, int alg, VOREL_HASH** hash) {
  if (!device || !hash) return fail(VOREL_ERR_PARAM);
  *hash = nullptr;
  if (vorel::backend::hash_length(alg) == 0) return fail(VOREL_ERR_NOT_SUPPORTED);
  void* ctx = vorel::backend::hash_new(alg);
  if (!ctx) return fail(VOREL_ERR_GENERAL);
  auto* h = new (std::nothrow) vorel_hash_st{alg, ctx, false};
  if (!h) {
    vorel::backend::hash_free(ctx);
    return fail(VOREL_ERR_MEMORY);
  }
  *hash = h;
  return ok();
}

int VorelPKICryptoGetHashLength(int alg) {
  std::size_t len = vorel::backend::hash_length(alg);
  return len ? static_cast<int>(len) : fail(VOREL_ERR_NOT_SUPPORTED);
}

int VorelPKICryptoHashUpdate(VOREL_HASH* hash, const unsigned char* data, size_t len) {
  if (!hash || (!data && len > 0)) return fail(VOREL_ERR_PARAM);
  if (hash->finished) return fail(VOREL_ERR_PARAM);
  if (len == 0) return ok();
  return vorel::backend::hash_update(hash->ctx, data, len) ? ok() : fail(VOREL_ERR_GENERAL);
}

int VorelPKICryptoHashFinal(VOREL_HASH* hash, unsigned char* out, size_t* outLen) {
  if (!hash || !outLen) return fail(VOREL_ERR_PARAM);
  std::size_t need = vorel::backend::hash_length(hash->alg);
  if (!out) {
    *outLen = need;
    return ok();
  }
  if (*outLen < need) {
    *outLen = need;
    return fail(VOREL_ERR_BUFFER_SMALL);
  }
  if (hash->finished) return fail(VOREL_ERR_PARAM);
  if (!vorel::backend::hash_final(hash->ctx, out)) return fail(VOREL_ERR_GENERAL);
  hash->finished = true;
  *outLen = need;
  return ok();
}

void VorelPKICryptoFreeHash(VOREL_HASH* hash) {
  if (!hash) return;
  vorel::backend::hash_free(hash->ctx);
  delete hash;
}

void VorelPKICryptoFreeCipher(VOREL_CIPHER* cipher) {
  if (!cipher) return;
  vorel::backend::cipher_free(cipher->ctx);
  delete cipher;
}

}  // extern "C"
