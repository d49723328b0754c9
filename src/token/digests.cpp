#include "token/digests.h"

#include <vector>

namespace vorel {

namespace {

int hash_of(ULONG algId) {
  switch (algId) {
    case SGD_SM3:
      return VOREL_HASH_SM3;
    case SGD_SHA1:
      return VOREL_HASH_SHA1;
    case SGD_SHA256:
      return VOREL_HASH_SHA256;
    default:
      return 0;
  }
}

// The hash of a hash handle, or null (logged) for a handle of another kind.
VOREL_HASH* hash_in(Ctx ctx, HandleRecord& handle) {
  auto* hash = handle.kind == kHash ? static_cast<VOREL_HASH*>(handle.payload) : nullptr;
  if (!hash) VLOG_ERROR(ctx.name(), "hHash is not a hash handle");
  return hash;
}

// Hands the digest out; a size query or a short buffer leaves the hash as it was.
ULONG finish_digest(Ctx ctx, VOREL_HASH* hash, const BYTE* data, ULONG len, BYTE* out, ULONG* outLen,
                    const char* label) {
  int length = VorelPKICryptoGetHashLength(hash);
  if (length < 0) return SAR_FAIL;
  ULONG size = static_cast<ULONG>(length);
  if (!out) {
    *outLen = size;
    return SAR_OK;
  }
  if (*outLen < size) {
    *outLen = size;
    return SAR_BUFFER_TOO_SMALL;
  }
  int rc = data ? VorelPKICryptoHashUpdate(hash, data, len) : VOREL_OK;
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoHashUpdate fail, error : %d", rc);
    return SAR_HASHERR;
  }
  unsigned char* raw = nullptr;
  std::size_t produced = 0;
  rc = VorelPKICryptoHashFinal(hash, &raw, &produced);
  UniquePtr<unsigned char> value(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoHashFinal fail, error : %d", rc);
    return SAR_HASHERR;
  }
  ULONG result = put_bytes(raw, produced, out, outLen);
  if (result == SAR_OK) _log(label, out, static_cast<long>(*outLen), true);
  return result;
}

}  // namespace

bool ComputeZ(VOREL_DEVICE* device, const ECCPUBLICKEYBLOB& publicKey, const BYTE* id, ULONG idLen,
              UniquePtr<unsigned char>& z, std::size_t& zLen) {
  unsigned char* enc = nullptr;
  std::size_t encLen = 0;
  int rc = VorelPKICryptoEncodeECCPubKey(VOREL_CURVE_SM2, publicKey.XCoordinate + 32, 32, publicKey.YCoordinate + 32,
                                         32, &enc, &encLen);
  UniquePtr<unsigned char> encoded(enc);
  if (rc != VOREL_OK) {
    VLOG_ERROR("ComputeZ", "VorelPKICryptoEncodeECCPubKey fail, error : %d", rc);
    return false;
  }
  VOREL_PUBLICKEY* raw = nullptr;
  rc = VorelPKICryptoImportPublicKey(device, enc, encLen, &raw);
  UniquePtr<VOREL_PUBLICKEY> pub(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR("ComputeZ", "VorelPKICryptoImportPublicKey fail, error : %d", rc);
    return false;
  }
  std::vector<unsigned char> identity(id, id + idLen);
  VOREL_SM2_ID sm2Id{identity.data(), static_cast<std::size_t>(idLen) * 8};
  unsigned char* value = nullptr;
  rc = VorelPKIComputeSM2Z(pub.get(), VOREL_HASH_SM3, &sm2Id, &value, &zLen);
  z.reset(value);
  if (rc != VOREL_OK) {
    VLOG_ERROR("ComputeZ", "VorelPKIComputeSM2Z fail, error : %d", rc);
    return false;
  }
  return true;
}

ULONG digest_init(Ctx ctx, const DeviceRecord& device, ULONG algId, const ECCPUBLICKEYBLOB* publicKey, const BYTE* id,
                  ULONG idLen, HANDLE* out) {
  auto record = new_record<HandleRecord>(device.type, kHash);
  int alg = hash_of(algId);
  if (!alg) {
    VLOG_ERROR(ctx.name(), "ulAlgID 0x%08x is no hash algorithm", algId);
    return SAR_FAIL;
  }
  auto* hash = VorelPKICryptoNewHash(pseudo_device(), alg);
  if (!hash) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoNewHash fail, error : %d", VorelPKIGetLastError());
    return SAR_FAIL;
  }
  record->payload = hash;  // freed with the record on any failure below
  if (algId == SGD_SM3 && publicKey) {
    if (idLen == 0 || !id) {
      VLOG_ERROR(ctx.name(), "an SM3 hash with a public key needs the signer's identity");
      return SAR_FAIL;
    }
    UniquePtr<unsigned char> z;
    std::size_t zLen = 0;
    if (!ComputeZ(device.cryptoDevice.get(), *publicKey, id, idLen, z, zLen)) return SAR_FAIL;
    int rc = VorelPKICryptoHashUpdate(hash, z.get(), zLen);
    if (rc != VOREL_OK) {
      VLOG_ERROR(ctx.name(), "VorelPKICryptoHashUpdate fail, error : %d", rc);
      return SAR_FAIL;
    }
  }
  return publish_record(record, out);
}

ULONG digest_update(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  VOREL_HASH* hash = hash_in(ctx, handle);
  if (!hash) return SAR_FAIL;
  int rc = VorelPKICryptoHashUpdate(hash, data, len);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoHashUpdate fail, error : %d", rc);
    return SAR_HASHERR;
  }
  return SAR_OK;
}

ULONG digest_final(Ctx ctx, HandleRecord& handle, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  VOREL_HASH* hash = hash_in(ctx, handle);
  if (!hash) return SAR_FAIL;
  return finish_digest(ctx, hash, nullptr, 0, out, outLen, "pHashData");
}

ULONG digest(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  VOREL_HASH* hash = hash_in(ctx, handle);
  if (!hash) return SAR_FAIL;
  return finish_digest(ctx, hash, data, len, out, outLen, "pbHashData");
}

}  // namespace vorel
