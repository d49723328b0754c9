// Owners for vorelcrypto objects in C++: one deleter line per type, one UniquePtr for all; and
// the holder of the process-wide objects of a module.
#pragma once

#include <memory>
#include <new>

#include "vorel/vorel_crypto.h"

namespace vorel {

template <class T>
struct Free;

#define VOREL_MAKE_FREE(T, fn)             \
  template <>                              \
  struct Free<T> {                         \
    void operator()(T* p) const { fn(p); } \
  };
VOREL_MAKE_FREE(VOREL_DEVICE, VorelPKICryptoFreeDevice)
VOREL_MAKE_FREE(VOREL_DEVICE_LIST, VorelPKICryptoFreeDevices)
VOREL_MAKE_FREE(VOREL_KEYPAIR, VorelPKICryptoFreeKeypair)
VOREL_MAKE_FREE(VOREL_PUBLICKEY, VorelPKICryptoFreePublicKey)
VOREL_MAKE_FREE(VOREL_CERT, VorelPKICertFreeCert)
VOREL_MAKE_FREE(VOREL_HASH, VorelPKICryptoFreeHash)
VOREL_MAKE_FREE(VOREL_CIPHER, VorelPKICryptoFreeCipher)
VOREL_MAKE_FREE(char, VorelPKICryptoFreeMemory)
VOREL_MAKE_FREE(unsigned char, VorelPKICryptoFreeMemory)
#undef VOREL_MAKE_FREE

template <class T>
using UniquePtr = std::unique_ptr<T, Free<T>>;

// An owner filled through an out-parameter: VorelPKICryptoFindDevice(..., out(device)). The
// owner holds the object from the end of that full expression on: read it in the next statement.
template <class T>
class OutPtr {
 public:
  explicit OutPtr(UniquePtr<T>& owner) : owner_(owner) {}
  ~OutPtr() { owner_.reset(raw_); }
  OutPtr(const OutPtr&) = delete;
  OutPtr& operator=(const OutPtr&) = delete;
  operator T**() { return &raw_; }

 private:
  UniquePtr<T>& owner_;
  T* raw_ = nullptr;
};
template <class T>
OutPtr<T> out(UniquePtr<T>& owner) {
  return OutPtr<T>(owner);
}

// The module's one object of type T (one use per type), made on first use and never destroyed,
// so that calls during static destruction still find it. It lives in static storage: a module
// that unloads leaves no heap block of it behind, only what its owner did not release.
template <class T>
T& resident() {
  alignas(T) static unsigned char storage[sizeof(T)];
  static T* object = new (storage) T();
  return *object;
}

}  // namespace vorel
