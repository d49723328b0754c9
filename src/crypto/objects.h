// Object layouts behind the library's opaque handles.
#pragma once

#include <atomic>

#include "vorel/vorel_crypto.h"

struct vorel_device_st {
  int type;
  std::atomic<int> refs;
};

struct vorel_hash_st {
  int alg;
  void* ctx;  // backend digest context
  bool finished;
};

struct vorel_cipher_st {
  void* ctx;  // backend cipher context
};
