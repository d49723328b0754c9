// Devices and the objects every device serves: the process-wide pseudo device,
// random bytes, result codes and library-owned memory.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "crypto/backend.h"
#include "crypto/internal.h"
#include "crypto/objects.h"
#include "crypto/token.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace vorel::crypto {

namespace {
thread_local int t_last_error = VOREL_OK;

// Never destroyed: references may outlive static destruction at process exit.
vorel_device_st* pseudo_device() { return &vorel::resident<vorel_device_st>(); }
}  // namespace

int fail(int code) {
  t_last_error = code;
  return code;
}

int ok() {
  t_last_error = VOREL_OK;
  return VOREL_OK;
}

int hand_out(const unsigned char* p, std::size_t n, unsigned char** out, std::size_t* outLen) {
  // Never a null buffer for an empty result: callers copy from it unconditionally.
  auto* buf = static_cast<unsigned char*>(std::malloc(n > 0 ? n : 1));
  if (!buf) return fail(VOREL_ERR_MEMORY);
  if (n > 0) std::memcpy(buf, p, n);
  *out = buf;
  *outLen = n;
  return ok();
}

int hand_out_text(const char* text, std::size_t n, char** out) {
  auto* buf = static_cast<char*>(std::malloc(n + 1));
  if (!buf) return fail(VOREL_ERR_MEMORY);
  if (n > 0) std::memcpy(buf, text, n);
  buf[n] = '\0';
  *out = buf;
  return ok();
}

namespace {
bool rsa_bits_ok(int bits) { return bits == 1024 || bits == 2048 || bits == 3072 || bits == 4096; }
bool asymmetric_usage(int usage) { return usage >= VOREL_USAGE_ENCRYPT && usage <= VOREL_USAGE_VERIFY; }
bool encryption_usage(int usage) { return usage >= VOREL_USAGE_ENCRYPT && usage <= VOREL_USAGE_UNWRAP; }
bool signing_usage(int usage) { return usage == VOREL_USAGE_SIGN || usage == VOREL_USAGE_VERIFY; }

// What this library can really do; SM1 and SSF33 exist only in hardware.
bool supported(int alg, int bits, int usage, const void* param) {
  switch (alg) {
    case VOREL_ALG_RSA:
      return rsa_bits_ok(bits) && asymmetric_usage(usage);
    case VOREL_ALG_SM2:
      return bits == 256 && asymmetric_usage(usage);
    case VOREL_MECH_RSA_PKCS1:
    case VOREL_MECH_RSA_RAW:
      return rsa_bits_ok(bits) && encryption_usage(usage);
    case VOREL_MECH_RSA_PKCS1_SIGN:
      return rsa_bits_ok(bits) && signing_usage(usage);
    case VOREL_MECH_SM2_SIGN:
    case VOREL_MECH_SM2_SM3_SIGN:
      return bits == 256 && signing_usage(usage);
    case VOREL_MECH_SM2_ENCRYPT:
      return bits == 256 && encryption_usage(usage) && (!param || *static_cast<const int*>(param) == VOREL_HASH_SM3);
    case VOREL_HASH_SM3:
    case VOREL_HASH_SHA1:
    case VOREL_HASH_SHA256:
      return true;
    default:
      break;
  }
  if (!cipher_supported(alg)) return false;
  if (usage != VOREL_USAGE_ENCRYPT && usage != VOREL_USAGE_DECRYPT) return false;
  switch (alg) {
    case VOREL_CIPHER_DES_ECB:
    case VOREL_CIPHER_DES_CBC:
      return bits == 64 || bits == 56;
    case VOREL_CIPHER_3DES_ECB:
    case VOREL_CIPHER_3DES_CBC:
      return bits == 112 || bits == 128 || bits == 168 || bits == 192;
    default:
      return bits == 128;
  }
}
}  // namespace

}  // namespace vorel::crypto

using vorel::crypto::fail;
using vorel::crypto::guard;
using vorel::crypto::ok;

extern "C" {

const char* VorelPKICryptoImplementation(void) {
  return guard([&]() -> const char* { return vorel::backend::name(); });
}

int VorelPKIGetLastError(void) {
  return guard([&] { return vorel::crypto::t_last_error; });
}

void VorelPKICryptoFreeMemory(void* ptr) {
  return guard([&] { std::free(ptr); });
}

void VorelPKICryptoCleanup(void) {
  return guard([&] {
    // Keys first: they belong to the implementation's context.
    vorel::token::release_tokens();
    vorel::backend::cleanup();
  });
}

int VorelPKICryptoGetPseudoDevice(VOREL_DEVICE** device) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM);
    *device = nullptr;
    if (!vorel::backend::init()) return fail(VOREL_ERR_GENERAL);
    vorel_device_st* pseudo = vorel::crypto::pseudo_device();
    pseudo->refs.fetch_add(1, std::memory_order_relaxed);
    *device = pseudo;
    return ok();
  });
}

int VorelPKICryptoDupDevice(VOREL_DEVICE* device, VOREL_DEVICE** copy) {
  return guard([&] {
    if (!device || !copy) return fail(VOREL_ERR_PARAM);
    device->refs.fetch_add(1, std::memory_order_relaxed);
    *copy = device;
    return ok();
  });
}

void VorelPKICryptoFreeDevice(VOREL_DEVICE* device) {
  return guard([&] {
    if (!device) return;
    // The pseudo device keeps the reference held by the library itself.
    if (device->refs.fetch_sub(1, std::memory_order_acq_rel) == 1 && device->type != VOREL_DEVICE_PSEUDO) {
      delete device;
    }
  });
}

int VorelPKICryptoIsSupportedAlgorithm(VOREL_DEVICE* device, int alg, int bits, int usage, const void* param) {
  return guard([&] {
    if (!device) return fail(VOREL_ERR_PARAM), 0;
    ok();
    return vorel::crypto::supported(alg, bits, usage, param) ? 1 : 0;
  });
}

int VorelPKICryptoGenerateRandom(VOREL_DEVICE* device, std::size_t len, unsigned char* out) {
  return guard([&] {
    if (!device || (!out && len > 0)) return fail(VOREL_ERR_PARAM);
    if (len == 0) return ok();
    if (!vorel::backend::random_bytes(out, len)) return fail(VOREL_ERR_GENERAL);
    return ok();
  });
}

}  // extern "C"
