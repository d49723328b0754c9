// Session keys: key handles (kind 1) over key bytes given, unwrapped or drawn, and the map from
// the SKF symmetric algorithms to the crypto library's ciphers. Each function answers an SKF code.
#pragma once

#include "token/common.h"

namespace vorel {

// The crypto library's cipher of an SKF algorithm, or 0 with "Error Symm algo" logged.
uint32_t CheckSymAlgo(ULONG algId);
// The same, but SM1 and SSF33 only when the device offers them both ways; -1 otherwise.
int32_t ToCryptoSymAlgo(VOREL_DEVICE* device, ULONG algId);
// A key handle holding 16 of the 32 key bytes (24 for 0x2002) for ciphers on device.
ULONG GenSymKey(Ctx ctx, VOREL_DEVICE* device, int32_t type, ULONG algId, const uint8_t key[32], HANDLE* out);
// A key handle on the device over the caller's key bytes.
ULONG set_symm_key(const DeviceRecord& device, const BYTE* key, ULONG algId, HANDLE* out);
// A key handle over a key wrapped for the container's encryption key pair: RSA PKCS#1 v1.5, or an
// ECCCIPHERBLOB of len bytes for SM2. The unwrapped key is 16 or 24 bytes.
ULONG import_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const BYTE* wrapped, ULONG len,
                         HANDLE* out);

}  // namespace vorel
