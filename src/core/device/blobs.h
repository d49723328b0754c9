// Conversions between the SKF key and ciphertext structures and the crypto library's forms.
// Pure functions: no record, no log; anything that does not fit is refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "skf.h"

namespace vorel {

// The largest CipherLen an SM2 ciphertext of the SKF structures carries (a 262-byte ciphertext).
constexpr ULONG kMaxEccCipherLen = 165;
// Where the CipherLen bytes of an ECCCIPHERBLOB begin.
constexpr std::size_t kEccCipherOffset = offsetof(ECCCIPHERBLOB, Cipher);

// 04 || x || y || C2 || C3 of an ECCCIPHERBLOB whose CipherLen bytes follow it in memory: the low
// 32 bytes of each coordinate field. False when CipherLen is above kMaxEccCipherLen.
bool ConvertCipherText(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out);

}  // namespace vorel
