// Message digests: SM3, SHA-1, SHA-256.
#include <new>

#include "crypto/internal.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

using vorel::crypto::fail;
using vorel::crypto::guard;
using vorel::crypto::ok;

extern "C" {

VOREL_HASH* VorelPKICryptoNewHash(VOREL_DEVICE* device, int alg) {
  return guard([&]() -> VOREL_HASH* {
    if (!device) return fail(VOREL_ERR_PARAM), nullptr;
    if (vorel::backend::hash_length(alg) == 0) return fail(VOREL_ERR_NOT_SUPPORTED), nullptr;
    void* ctx = vorel::backend::hash_new(alg);
    if (!ctx) return fail(VOREL_ERR_GENERAL), nullptr;
    auto* h = new (std::nothrow) vorel_hash_st{alg, ctx, false};
    if (!h) {
      vorel::backend::hash_free(ctx);
      return fail(VOREL_ERR_MEMORY), nullptr;
    }
    ok();
    return h;
  });
}

int VorelPKICryptoGetHashLength(VOREL_HASH* hash) {
  return guard([&] {
    if (!hash) return fail(VOREL_ERR_PARAM), -1;
    ok();
    return static_cast<int>(vorel::backend::hash_length(hash->alg));
  });
}

int VorelPKICryptoHashUpdate(VOREL_HASH* hash, const unsigned char* data, size_t len) {
  return guard([&] {
    if (!hash || (!data && len > 0) || hash->finished) return fail(VOREL_ERR_PARAM);
    if (len == 0) return ok();
    return vorel::backend::hash_update(hash->ctx, data, len) ? ok() : fail(VOREL_ERR_GENERAL);
  });
}

int VorelPKICryptoHashFinal(VOREL_HASH* hash, unsigned char** out, size_t* outLen) {
  return guard([&] {
    if (!hash || !out || !outLen || hash->finished) return fail(VOREL_ERR_PARAM);
    unsigned char digest[64];
    if (!vorel::backend::hash_final(hash->ctx, digest)) return fail(VOREL_ERR_GENERAL);
    hash->finished = true;
    return vorel::crypto::hand_out(digest, vorel::backend::hash_length(hash->alg), out, outLen);
  });
}

void VorelPKICryptoFreeHash(VOREL_HASH* hash) {
  return guard([&] {
    if (!hash) return;
    vorel::backend::hash_free(hash->ctx);
    delete hash;
  });
}

}  // extern "C"
