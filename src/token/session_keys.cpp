#include "token/session_keys.h"

#include <cstring>
#include <vector>

#include "skf/algorithms.h"
#include "skf/blobs.h"

namespace vorel {

namespace {

// A key handle: a new key record of its own over keyLen of the bytes.
ULONG make_key(VOREL_DEVICE* device, int32_t type, uint32_t cipher, const uint8_t* key, uint32_t keyLen, HANDLE* out) {
  auto record = new_record<HandleRecord>(type, kSessionKey);
  auto* payload = static_cast<SymmKeyRecord*>(vorel_malloc(sizeof(SymmKeyRecord)));
  if (!payload) return SAR_MEMORYERR;
  record->payload = payload;  // freed, wiped, with the record from here on
  VorelPKICryptoDupDevice(device, &payload->owner);
  payload->cryptoAlg = cipher;
  payload->keyLen = keyLen;
  std::memcpy(payload->key, key, keyLen);
  return publish_record(record, out);
}

// Key bytes the crypto library handed out: wiped before they are given back.
struct Plain {
  unsigned char* bytes = nullptr;
  std::size_t len = 0;
  ~Plain() {
    vorel_cleanse(bytes, len);
    VorelPKICryptoFreeMemory(bytes);
  }
};

// Unwraps a key with the container's encryption key pair.
ULONG unwrap(Ctx ctx, const ContainerRecord& container, const BYTE* wrapped, ULONG len, Plain& plain) {
  VOREL_KEYPAIR* keypair = container.encKeypair.get();
  int rc;
  if (container.algorithm == VOREL_ALG_RSA) {
    rc =
        VorelPKICryptoPrivateKeyDecrypt(keypair, VOREL_MECH_RSA_PKCS1, nullptr, wrapped, len, &plain.bytes, &plain.len);
  } else if (container.algorithm == VOREL_ALG_SM2) {
    std::vector<uint8_t> text;
    if (!cipher_text_of_bytes(wrapped, len, text, kMaxEccCipherLen)) {
      VLOG_ERROR(ctx.name(), "CipherLen does not fit the wrapped data");
      return SAR_INVALIDPARAMERR;
    }
    rc = VorelPKICryptoPrivateKeyDecrypt(keypair, VOREL_MECH_SM2_ENCRYPT, nullptr, text.data(), text.size(),
                                         &plain.bytes, &plain.len);
  } else {
    VLOG_ERROR(ctx.name(), "hContainer algorithm error");
    return SAR_FAIL;
  }
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoPrivateKeyDecrypt", rc);
  return SAR_OK;
}

}  // namespace

uint32_t CheckSymAlgo(ULONG algId) {
  const SymmetricAlgorithm* a = symmetric_by_sgd(algId);
  if (!a) VLOG_ERROR("CheckSymAlgo", "Error Symm algo");
  return a ? static_cast<uint32_t>(a->vorel) : 0;
}

int32_t ToCryptoSymAlgo(VOREL_DEVICE* device, ULONG algId) {
  const SymmetricAlgorithm* a = symmetric_by_sgd(algId);
  if (!a) return -1;
  uint32_t cipher = static_cast<uint32_t>(a->vorel);
  if (!a->probed) return static_cast<int32_t>(cipher);
  static const unsigned char kProbeIv[16] = {0x56, 0x4F, 0x52, 0x45, 0x4C, 0x50, 0x52, 0x4F,
                                             0x42, 0x45, 0x49, 0x56, 0x00, 0x01, 0x02, 0x03};
  const void* iv = (algId & 0xF) == 2 ? kProbeIv : nullptr;
  int c = static_cast<int>(cipher);
  if (VorelPKICryptoIsSupportedAlgorithm(device, c, 128, VOREL_USAGE_ENCRYPT, iv) != 0 &&
      VorelPKICryptoIsSupportedAlgorithm(device, c, 128, VOREL_USAGE_DECRYPT, iv) != 0)
    return c;
  return -1;
}

ULONG GenSymKey(Ctx ctx, VOREL_DEVICE* device, int32_t type, ULONG algId, const uint8_t key[32], HANDLE* out) {
  int32_t cipher = ToCryptoSymAlgo(device, algId);
  if (cipher < 0) {
    VLOG_ERROR(ctx.name(), "ToCryptoSymAlgo fail, ulAlgId : 0x%08x", algId);
    return SAR_FAIL;
  }
  ULONG rc = make_key(device, type, static_cast<uint32_t>(cipher), key, session_key_length(algId), out);
  if (rc == SAR_OK) VLOG_DEBUG(ctx.name(), "GenSymKey ulAlgId : 0x%08x", algId);
  return rc;
}

ULONG set_symm_key(const DeviceRecord& device, const BYTE* key, ULONG algId, HANDLE* out) {
  uint32_t cipher = CheckSymAlgo(algId);
  if (!cipher) return SAR_INVALIDPARAMERR;
  return make_key(device.cryptoDevice.get(), device.type, cipher, key, session_key_length(algId), out);
}

ULONG import_session_key(Ctx ctx, const ContainerRecord& container, ULONG algId, const BYTE* wrapped, ULONG len,
                         HANDLE* out) {
  if (!container.encKeypair) {
    VLOG_ERROR(ctx.name(), "Enc keypair not exist");
    return SAR_KEYNOTFOUNTERR;
  }
  int32_t cipher = ToCryptoSymAlgo(container.cryptoDevice, algId);
  if (cipher < 0) {
    VLOG_ERROR(ctx.name(), "ulAlgId unsupported");
    return SAR_FAIL;
  }
  Plain plain;
  ULONG rc = unwrap(ctx, container, wrapped, len, plain);
  if (rc != SAR_OK) return rc;
  if (plain.len != 16 && plain.len != 24) {
    VLOG_ERROR(ctx.name(), "clearlen != 16 && clearlen != 24, clearlen : %d", static_cast<int>(plain.len));
    return SAR_FAIL;
  }
  return make_key(container.cryptoDevice, static_cast<int32_t>(container.type), static_cast<uint32_t>(cipher),
                  plain.bytes, static_cast<uint32_t>(plain.len), out);
}

}  // namespace vorel
