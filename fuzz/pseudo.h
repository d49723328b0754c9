// The crypto library's pseudo device, on which the targets import keys; made once per process.
#pragma once

#include "vorel/vorel_crypto.h"

inline VOREL_DEVICE* pseudo() {
  static VOREL_DEVICE* device = [] {
    VOREL_DEVICE* d = nullptr;
    VorelPKICryptoGetPseudoDevice(&d);
    return d;
  }();
  return device;
}
