// Devices and the objects every device serves: the process-wide pseudo device,
// random bytes, result codes and library-owned memory.
#include <atomic>
#include <cstdlib>
#include <new>

#include "crypto/backend.h"
#include "crypto/error.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

namespace {
thread_local int t_last_error = VOREL_OK;

// Never destroyed: references may outlive static destruction at process exit.
vorel_device_st* pseudo_device() {
  static vorel_device_st* device = new (std::nothrow) vorel_device_st{VOREL_DEVICE_PSEUDO, {1}};
  return device;
}
}  // namespace

int fail(int code) {
  t_last_error = code;
  return code;
}

int ok() {
  t_last_error = VOREL_OK;
  return VOREL_OK;
}

}  // namespace vorel::crypto

using vorel::crypto::fail;
using vorel::crypto::ok;

extern "C" {

const char* VorelPKICryptoImplementation(void) { return vorel::backend::name(); }

int VorelPKIGetLastError(void) { return vorel::crypto::t_last_error; }

void VorelPKICryptoFreeMemory(void* ptr) { std::free(ptr); }

int VorelPKICryptoGetPseudoDevice(VOREL_DEVICE** device) {
  if (!device) return fail(VOREL_ERR_PARAM);
  *device = nullptr;
  if (!vorel::backend::init()) return fail(VOREL_ERR_GENERAL);
  vorel_device_st* pseudo = vorel::crypto::pseudo_device();
  if (!pseudo) return fail(VOREL_ERR_MEMORY);
  pseudo->refs.fetch_add(1, std::memory_order_relaxed);
  *device = pseudo;
  return ok();
}

int VorelPKICryptoDupDevice(VOREL_DEVICE* device, VOREL_DEVICE** copy) {
  if (!device || !copy) return fail(VOREL_ERR_PARAM);
  device->refs.fetch_add(1, std::memory_order_relaxed);
  *copy = device;
  return ok();
}

void VorelPKICryptoFreeDevice(VOREL_DEVICE* device) {
  if (!device) return;
  // The pseudo device keeps the reference held by the library itself.
  if (device->refs.fetch_sub(1, std::memory_order_acq_rel) == 1 && device->type != VOREL_DEVICE_PSEUDO) {
    delete device;
  }
}

int VorelPKICryptoGenerateRandom(VOREL_DEVICE* device, std::size_t len, unsigned char* out) {
  if (!device || (!out && len > 0)) return fail(VOREL_ERR_PARAM);
  if (len == 0) return ok();
  if (!vorel::backend::random_bytes(out, len)) return fail(VOREL_ERR_GENERAL);
  return ok();
}

}  // extern "C"
