#include "core/device/blobs.h"

#include <cstring>

namespace vorel {

bool ConvertCipherText(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out) {
  if (blob.CipherLen > kMaxEccCipherLen) return false;
  out.assign(1 + 64 + blob.CipherLen + 32, 0);
  out[0] = 0x04;
  std::memcpy(&out[1], blob.XCoordinate + 32, 32);
  std::memcpy(&out[33], blob.YCoordinate + 32, 32);
  std::memcpy(&out[65], blob.Cipher, blob.CipherLen);
  std::memcpy(&out[65 + blob.CipherLen], blob.HASH, 32);
  return true;
}

}  // namespace vorel
