#include <gcrypt.h>

#include <cstring>
#include <mutex>

#include "crypto/backend.h"

namespace vorel::backend {

const char* name() { return "libgcrypt"; }

bool init() {
  static bool ok = false;
  static std::once_flag once;
  std::call_once(once, [] {
    // Another component of the process may have initialised libgcrypt already.
    if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) {
      ok = true;
      return;
    }
    if (!gcry_check_version(GCRYPT_VERSION)) return;
    gcry_control(GCRYCTL_INIT_SECMEM, 65536, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    ok = true;
  });
  return ok;
}

bool random_bytes(unsigned char* out, std::size_t len) {
  if (!init()) return false;
  gcry_randomize(out, len, GCRY_STRONG_RANDOM);
  return true;
}

}  // namespace vorel::backend

#include "vorel/vorel_crypto.h"

namespace vorel::backend {

namespace {
int md_of(int alg) {
  switch (alg) {
    case VOREL_HASH_SM3: return GCRY_MD_SM3;
    case VOREL_HASH_SHA1: return GCRY_MD_SHA1;
    case VOREL_HASH_SHA256: return GCRY_MD_SHA256;
    default: return GCRY_MD_NONE;
  }
}
}  // namespace

std::size_t hash_length(int alg) {
  int md = md_of(alg);
  return md == GCRY_MD_NONE ? 0 : gcry_md_get_algo_dlen(md);
}

void* hash_new(int alg) {
  int md = md_of(alg);
  if (md == GCRY_MD_NONE || !init()) return nullptr;
  gcry_md_hd_t hd = nullptr;
  if (gcry_md_open(&hd, md, 0) != 0) return nullptr;
  return hd;
}

bool hash_update(void* ctx, const unsigned char* data, std::size_t len) {
  gcry_md_write(static_cast<gcry_md_hd_t>(ctx), data, len);
  return true;
}

bool hash_final(void* ctx, unsigned char* out) {
  auto hd = static_cast<gcry_md_hd_t>(ctx);
  int md = gcry_md_get_algo(hd);
  const unsigned char* digest = gcry_md_read(hd, md);
  if (!digest) return false;
  std::memcpy(out, digest, gcry_md_get_algo_dlen(md));
  return true;
}

void hash_free(void* ctx) { gcry_md_close(static_cast<gcry_md_hd_t>(ctx)); }

void cipher_free(void* ctx) { gcry_cipher_close(static_cast<gcry_cipher_hd_t>(ctx)); }

}  // namespace vorel::backend
