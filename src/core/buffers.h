// The size contract of every output buffer, answered before any state changes: a null buffer
// asks the size; a short one gets the size and SAR_BUFFER_TOO_SMALL; else the bytes are copied.
#pragma once

#include <cstdint>
#include <cstring>

#include "skf.h"

namespace vorel {

// slack: how many bytes short a buffer may be and still be accepted; what does not fit in the
// caller's buffer is never written, and the length reported is what was written.
inline ULONG put_bytes(const void* data, std::size_t len, void* out, ULONG* outLen, ULONG slack = 0) {
  if (len > UINT32_MAX) return SAR_FAIL;
  ULONG size = static_cast<ULONG>(len);
  if (!out) {
    *outLen = size;
    return SAR_OK;
  }
  ULONG room = *outLen;
  *outLen = size;
  if (room < size && size - room > slack) return SAR_BUFFER_TOO_SMALL;
  ULONG n = room < size ? room : size;
  if (n > 0) std::memcpy(out, data, n);
  *outLen = n;
  return SAR_OK;
}

}  // namespace vorel
