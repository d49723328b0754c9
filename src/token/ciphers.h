// Block ciphers with a key handle: the four steps behind the eight encrypt and decrypt exports.
// Each takes the key handle and answers an SKF code; a handle that is not a key answers SAR_FAIL.
#pragma once

#include "token/common.h"

namespace vorel {

// Starts an operation (encrypt 1, or 0 to decrypt) with the parameter's IV and padding, replacing
// any earlier one. CBC forms need an IV length (DES-CBC excepted).
ULONG CipherInit(HandleRecord& handle, const BLOCKCIPHERPARAM& param, int encrypt);
// Update and final in one step.
ULONG Cipher(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen);
// Whole blocks out; on a short buffer the input is consumed and its output lost.
ULONG CipherUpdate(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen);
// The last block; kept, so that it can be asked for again after a size query or a short buffer.
ULONG CipherFinal(HandleRecord& handle, BYTE* out, ULONG* outLen);

}  // namespace vorel
