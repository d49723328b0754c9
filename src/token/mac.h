// MACs: CBC-MAC handles (kind 4) made from a key handle; the MAC is the last ciphertext block of
// a CBC encryption without padding. Each function answers an SKF code.
#pragma once

#include "token/common.h"

namespace vorel {

// A MAC handle for an SM1, SSF33 or SMS4 CBC key and a 16-byte IV; it does not depend on the key
// handle afterwards.
ULONG mac_init(Ctx ctx, HandleRecord& key, const BLOCKCIPHERPARAM& param, HANDLE* out);
ULONG mac_update(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len);
// The MAC of everything so far (the zero block when nothing was given).
ULONG mac_final(Ctx ctx, HandleRecord& handle, BYTE* out, ULONG* outLen);
// Update and final in one step, for whole blocks only.
ULONG mac(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len, BYTE* out, ULONG* outLen);

}  // namespace vorel
