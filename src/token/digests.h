// Digests: hash handles (kind 2) over the pseudo device, with the SM2 value Z absorbed first when
// SM3 is asked with a signer's public key. Each function answers an SKF code.
#pragma once

#include "token/common.h"

namespace vorel {

// Z of an SM2 public key blob and an identity of idLen bytes (the caller's, never a default).
bool ComputeZ(VOREL_DEVICE* device, const ECCPUBLICKEYBLOB& publicKey, const BYTE* id, ULONG idLen,
              UniquePtr<unsigned char>& z, std::size_t& zLen);
// A hash handle under the device; SM3 with a public key starts with Z of it and the identity.
ULONG digest_init(Ctx ctx, const DeviceRecord& device, ULONG algId, const ECCPUBLICKEYBLOB* publicKey, const BYTE* id,
                  ULONG idLen, HANDLE* out);
ULONG digest_update(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len);
// The digest of what was hashed, with the size contract answered before anything is hashed.
ULONG digest_final(Ctx ctx, HandleRecord& handle, BYTE* out, ULONG* outLen);
// Update and final in one step.
ULONG digest(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len, BYTE* out, ULONG* outLen);

}  // namespace vorel
