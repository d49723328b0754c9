#include "token/ciphers.h"

#include <cstring>

#include "skf/algorithms.h"

namespace vorel {

namespace {

// The key of a key handle, or null.
SymmKeyRecord* key_of(HandleRecord& handle) {
  return handle.kind == kSessionKey ? static_cast<SymmKeyRecord*>(handle.payload) : nullptr;
}

// Each helper writes its own return line for any failure, as the export writes its own.
ULONG logged(const char* helper, ULONG rc) {
  if (rc != SAR_OK) VLOG_ERROR(helper, "%s return: 0x%08x", helper, rc);
  return rc;
}

// The size reported before anything is processed: whole blocks of the input and one more.
ULONG size_bound(ULONG inLen) { return (inLen & ~0xFu) + 16; }

ULONG cipher_init(HandleRecord& handle, const BLOCKCIPHERPARAM& param, int encrypt) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  SymmKeyRecord* key = key_of(handle);
  if (!key) return SAR_FAIL;
  key->finalDone = 0;
  key->finalLen = 0;
  const SymmetricAlgorithm* a = symmetric_by_cipher(key->cryptoAlg);
  if (a && a->needsIv && param.IVLen == 0) {
    VLOG_ERROR("CipherInit", "IVLen is 0 for a CBC key");
    return SAR_FAIL;
  }
  VOREL_CIPHER* cipher =
      VorelPKICryptoNewCipher(key->owner, encrypt, static_cast<int>(key->cryptoAlg), key->key, key->keyLen, param.IV);
  if (!cipher) {
    VLOG_ERROR("CipherInit", "VorelPKICryptoNewCipher fail, error : %d", VorelPKIGetLastError());
    return SAR_FAIL;
  }
  VorelPKICryptoFreeCipher(key->cipher);
  key->cipher = cipher;
  int rc = VorelPKICryptoCipherSetPadding(cipher, param.PaddingType == 0 ? VOREL_PADDING_NONE : VOREL_PADDING_PKCS7);
  if (rc != VOREL_OK) {
    VLOG_ERROR("CipherInit", "VorelPKICryptoCipherSetPadding fail, error : %d", rc);
    return SAR_FAIL;
  }
  return SAR_OK;
}

ULONG cipher_update(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  SymmKeyRecord* key = key_of(handle);
  if (!key) return SAR_FAIL;
  if (!out) {
    *outLen = size_bound(inLen);
    return SAR_OK;
  }
  unsigned char* raw = nullptr;
  std::size_t produced = 0;
  int rc = VorelPKICryptoCipherUpdate(key->cipher, in, inLen, &raw, &produced);
  UniquePtr<unsigned char> buf(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR("CipherUpdate", "VorelPKICryptoCipherUpdate fail, error : %d", rc);
    return SAR_FAIL;
  }
  ULONG room = *outLen;
  *outLen = static_cast<ULONG>(produced);
  if (room < produced) return SAR_BUFFER_TOO_SMALL;
  if (produced) std::memcpy(out, raw, produced);
  return SAR_OK;
}

ULONG cipher_once(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  SymmKeyRecord* key = key_of(handle);
  if (!key) return SAR_FAIL;
  if (!in) return SAR_INVALIDPARAMERR;
  if (!out) {
    *outLen = size_bound(inLen);
    return SAR_OK;
  }
  unsigned char *rawUpdate = nullptr, *rawFinal = nullptr;
  std::size_t updateLen = 0, finalLen = 0;
  int rc = VorelPKICryptoCipherUpdate(key->cipher, in, inLen, &rawUpdate, &updateLen);
  UniquePtr<unsigned char> update(rawUpdate);
  if (rc != VOREL_OK) {
    VLOG_ERROR("Cipher", "VorelPKICryptoCipherUpdate fail, error : %d", rc);
    return SAR_FAIL;
  }
  rc = VorelPKICryptoCipherFinal(key->cipher, &rawFinal, &finalLen);
  UniquePtr<unsigned char> last(rawFinal);
  if (rc != VOREL_OK) {
    VLOG_ERROR("Cipher", "VorelPKICryptoCipherFinal fail, error : %d", rc);
    return SAR_FAIL;
  }
  ULONG room = *outLen;
  *outLen = static_cast<ULONG>(updateLen + finalLen);
  if (room < updateLen + finalLen) return SAR_BUFFER_TOO_SMALL;
  if (updateLen) std::memcpy(out, rawUpdate, updateLen);
  if (finalLen) std::memcpy(out + updateLen, rawFinal, finalLen);
  return SAR_OK;
}

ULONG cipher_final(HandleRecord& handle, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  SymmKeyRecord* key = key_of(handle);
  if (!key) return SAR_FAIL;
  if (!key->finalDone) {
    unsigned char* raw = nullptr;
    std::size_t produced = 0;
    int rc = VorelPKICryptoCipherFinal(key->cipher, &raw, &produced);
    UniquePtr<unsigned char> buf(raw);
    if (rc != VOREL_OK) {
      VLOG_ERROR("CipherFinal", "VorelPKICryptoCipherFinal fail, error : %d", rc);
      return SAR_FAIL;
    }
    // The final step yields at most one block.
    if (produced > sizeof key->finalBlock) produced = sizeof key->finalBlock;
    if (produced) std::memcpy(key->finalBlock, raw, produced);
    key->finalLen = static_cast<uint32_t>(produced);
    key->finalDone = 1;
  }
  return put_bytes(key->finalBlock, key->finalLen, out, outLen);
}

}  // namespace

ULONG CipherInit(HandleRecord& handle, const BLOCKCIPHERPARAM& param, int encrypt) {
  return logged("CipherInit", cipher_init(handle, param, encrypt));
}

ULONG CipherUpdate(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen) {
  return logged("CipherUpdate", cipher_update(handle, in, inLen, out, outLen));
}

ULONG Cipher(HandleRecord& handle, const BYTE* in, ULONG inLen, BYTE* out, ULONG* outLen) {
  return logged("Cipher", cipher_once(handle, in, inLen, out, outLen));
}

ULONG CipherFinal(HandleRecord& handle, BYTE* out, ULONG* outLen) {
  return logged("CipherFinal", cipher_final(handle, out, outLen));
}

}  // namespace vorel
