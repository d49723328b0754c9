#include "token/mac.h"

#include <cstring>

#include "skf/algorithms.h"

namespace vorel {

namespace {

constexpr ULONG kMacSize = 16;

MacRecord* mac_of(Ctx ctx, HandleRecord& handle) {
  if (handle.kind != kMac) {
    VLOG_ERROR(ctx.name(), "mac_handle->m_flag != 4");
    return nullptr;
  }
  auto* mac = static_cast<MacRecord*>(handle.payload);
  if (!mac) VLOG_ERROR(ctx.name(), "mac_handle->m_handle.m_hMac == NULL");
  return mac;
}

// The last whole block of what the cipher gave out is the MAC so far.
void keep_last_block(MacRecord& mac, const unsigned char* out, std::size_t len) {
  if (len >= kMacSize) std::memcpy(mac.lastBlock, out + len - kMacSize, kMacSize);
}

ULONG absorb(Ctx ctx, MacRecord& mac, const BYTE* data, ULONG len) {
  unsigned char* raw = nullptr;
  std::size_t produced = 0;
  int rc = VorelPKICryptoCipherUpdate(mac.cipher, data, len, &raw, &produced);
  UniquePtr<unsigned char> out(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoCipherUpdate fail, error : %d", rc);
    return SAR_FAIL;
  }
  keep_last_block(mac, raw, produced);
  return SAR_OK;
}

ULONG finish(Ctx ctx, MacRecord& mac, BYTE* out, ULONG* outLen) {
  unsigned char* raw = nullptr;
  std::size_t produced = 0;
  int rc = VorelPKICryptoCipherFinal(mac.cipher, &raw, &produced);
  UniquePtr<unsigned char> last(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoCipherFinal fail, error : %d", rc);
    return SAR_FAIL;
  }
  keep_last_block(mac, raw, produced);
  std::memcpy(out, mac.lastBlock, kMacSize);
  *outLen = kMacSize;
  _log("pbMacData", out, kMacSize, true);
  return SAR_OK;
}

// The size contract, answered before anything is computed.
bool size_answered(BYTE* out, ULONG* outLen, ULONG* rc) {
  if (out && *outLen >= kMacSize) return false;
  *rc = out ? SAR_BUFFER_TOO_SMALL : SAR_OK;
  *outLen = kMacSize;
  return true;
}

}  // namespace

ULONG mac_init(Ctx ctx, HandleRecord& key, const BLOCKCIPHERPARAM& param, HANDLE* out) {
  auto record = new_record<HandleRecord>(key.type, kMac);
  std::lock_guard<std::mutex> guard(key.mutex);
  auto* symm = key.kind == kSessionKey ? static_cast<SymmKeyRecord*>(key.payload) : nullptr;
  if (!symm) {
    VLOG_ERROR(ctx.name(), "key_handle->m_flag != 1");
    return SAR_FAIL;
  }
  if (param.IVLen != 16) {
    VLOG_ERROR(ctx.name(), "pMacParam->IVLen != 16");
    return SAR_FAIL;
  }
  const SymmetricAlgorithm* a = symmetric_by_cipher(symm->cryptoAlg);
  if (!a || !a->macs) {
    VLOG_ERROR(ctx.name(), "Error algo");
    return SAR_FAIL;
  }
  auto* mac = static_cast<MacRecord*>(vorel_malloc(sizeof(MacRecord)));
  if (!mac) return SAR_MEMORYERR;
  record->payload = mac;  // freed with the record on any failure below
  // The key length is 16 for every MAC key.
  mac->cipher = VorelPKICryptoNewCipher(symm->owner, 1, static_cast<int>(symm->cryptoAlg), symm->key, 16, param.IV);
  if (!mac->cipher) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoNewCipher fail, error : %d", VorelPKIGetLastError());
    return SAR_FAIL;
  }
  int rc = VorelPKICryptoCipherSetPadding(mac->cipher, VOREL_PADDING_NONE);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoCipherSetPadding fail, error : %d", rc);
    return SAR_FAIL;
  }
  return publish_record(record, out);
}

ULONG mac_update(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  MacRecord* mac = mac_of(ctx, handle);
  return mac ? absorb(ctx, *mac, data, len) : SAR_FAIL;
}

ULONG mac_final(Ctx ctx, HandleRecord& handle, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  MacRecord* mac = mac_of(ctx, handle);
  if (!mac) return SAR_FAIL;
  ULONG rc;
  if (size_answered(out, outLen, &rc)) return rc;
  return finish(ctx, *mac, out, outLen);
}

ULONG mac(Ctx ctx, HandleRecord& handle, const BYTE* data, ULONG len, BYTE* out, ULONG* outLen) {
  std::lock_guard<std::mutex> guard(handle.mutex);
  MacRecord* mac = mac_of(ctx, handle);
  if (!mac) return SAR_FAIL;
  if (len % kMacSize != 0) {
    VLOG_ERROR(ctx.name(), "ulDataLen %% 16 != 0");
    return SAR_FAIL;
  }
  ULONG rc;
  if (size_answered(out, outLen, &rc)) return rc;
  rc = absorb(ctx, *mac, data, len);
  return rc == SAR_OK ? finish(ctx, *mac, out, outLen) : rc;
}

}  // namespace vorel
