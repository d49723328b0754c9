// The one seam between vorelcrypto and the cryptographic implementation underneath.
// Everything above it (objects, encodings, error codes) is written once.
#pragma once

#include <cstddef>

namespace vorel::backend {

// "openssl" or "libgcrypt".
const char* name();

// One-time initialisation of the implementation; false when it cannot be used.
bool init();

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

// Symmetric cipher contexts (created by the cipher layer); releases what the backend allocated.
void cipher_free(void* ctx);

}  // namespace vorel::backend
