// Session keys, block ciphers, digests, MACs, random bytes and handle release.
#include "exports/frame.h"
#include "token/ciphers.h"
#include "token/device.h"
#include "token/digests.h"
#include "token/mac.h"
#include "token/session_keys.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_GenRandom(DEVHANDLE hDev, BYTE* pbRandom, ULONG ulRandomLen) {
  return run_export("SKF_GenRandom", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbRandom", pbRandom) &&
                             call.length("ulRandomLen", ulRandomLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    ULONG rc;
    if (auto dll = vendor_module(device->type))
      rc = call.vendor(*dll)(&SkfDll::SKF_GenRandom, device->vendorDevice, pbRandom, ulRandomLen);
    else
      rc = gen_random(call, *device, pbRandom, ulRandomLen);
    if (rc != SAR_OK) return call.fail(rc);
    _log("pbRandom", pbRandom, static_cast<long>(ulRandomLen), true);
    return SAR_OK;
  });
}

ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle) {
  return run_export("SKF_CloseHandle", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHandle", hHandle));
    auto handle = find_handle(hHandle);
    if (!handle) return call.invalid_handle("hHandle");
    ULONG rc = close_handle(call, handle->type, &SkfDll::SKF_CloseHandle, handle->vendorHandle, hHandle);
    if (rc != SAR_OK) return call.fail(rc);
    VLOG_DEBUG(call.name(), "handle %p closed", hHandle);
    return SAR_OK;
  });
}

ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE* pbWrapedData, ULONG ulWrapedLen,
                                  HANDLE* phKey) {
  return run_export("SKF_ImportSessionKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                             call.bytes("pbWrapedData", pbWrapedData, "ulWrapedLen", ulWrapedLen) &&
                             call.pointer("phKey", phKey));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    int32_t type = static_cast<int32_t>(container->type);
    if (auto dll = vendor_module(type))
      return call.finish(wrap_vendor_handle(call.vendor(*dll), &SkfDll::SKF_ImportSessionKey, type, kSessionKey, phKey,
                                            container->vendorContainer, ulAlgId, pbWrapedData, ulWrapedLen));
    return call.finish(import_session_key(call, *container, ulAlgId, pbWrapedData, ulWrapedLen, phKey));
  });
}

ULONG DEVAPI SKF_SetSymmKey(DEVHANDLE hDev, BYTE* pbKey, ULONG ulAlgID, HANDLE* phKey) {
  return run_export("SKF_SetSymmKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbKey", pbKey) && call.id("ulAlgID", ulAlgID) &&
                             call.pointer("phKey", phKey));
    _log("pbKey", pbKey, 16, true);
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.finish(wrap_vendor_handle(call.vendor(*dll), &SkfDll::SKF_SetSymmKey, device->type, kSessionKey,
                                            phKey, device->vendorDevice, pbKey, ulAlgID));
    return call.finish(set_symm_key(*device, pbKey, ulAlgID, phKey));
  });
}

// The block-cipher exports answer SAR_INVALIDHANDLEERR for any failed check.

ULONG DEVAPI SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam) {
  return run_export("SKF_EncryptInit", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&EncryptParam", &EncryptParam,
                                                                  "sizeof(EncryptParam)", sizeof(EncryptParam)));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherInit")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_EncryptInit, key->vendorHandle, EncryptParam);
    return call.finish(CipherInit(*key, EncryptParam, 1));
  });
}

ULONG DEVAPI SKF_Encrypt(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData, ULONG* pulEncryptedLen) {
  return run_export("SKF_Encrypt", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("pulEncryptedLen", pulEncryptedLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "Cipher")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_Encrypt, key->vendorHandle, pbData, ulDataLen, pbEncryptedData,
                          pulEncryptedLen);
    return call.finish(Cipher(*key, pbData, ulDataLen, pbEncryptedData, pulEncryptedLen));
  });
}

ULONG DEVAPI SKF_EncryptUpdate(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData,
                               ULONG* pulEncryptedLen) {
  return run_export("SKF_EncryptUpdate", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("pulEncryptedLen", pulEncryptedLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherUpdate")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_EncryptUpdate, key->vendorHandle, pbData, ulDataLen, pbEncryptedData,
                          pulEncryptedLen);
    return call.finish(CipherUpdate(*key, pbData, ulDataLen, pbEncryptedData, pulEncryptedLen));
  });
}

ULONG DEVAPI SKF_EncryptFinal(HANDLE hKey, BYTE* pbEncryptedData, ULONG* pulEncryptedDataLen) {
  return run_export("SKF_EncryptFinal", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("ulEncryptedDataLen", pulEncryptedDataLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherFinal")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_EncryptFinal, key->vendorHandle, pbEncryptedData, pulEncryptedDataLen);
    return call.finish(CipherFinal(*key, pbEncryptedData, pulEncryptedDataLen));
  });
}

ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam) {
  return run_export("SKF_DecryptInit", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&DecryptParam", &DecryptParam,
                                                                  "sizeof(DecryptParam)", sizeof(DecryptParam)));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherInit")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_DecryptInit, key->vendorHandle, DecryptParam);
    return call.finish(CipherInit(*key, DecryptParam, 0));
  });
}

ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData, ULONG* pulDataLen) {
  return run_export("SKF_Decrypt", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                             call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "Cipher")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_Decrypt, key->vendorHandle, pbEncryptedData, ulEncryptedLen, pbData,
                          pulDataLen);
    return call.finish(Cipher(*key, pbEncryptedData, ulEncryptedLen, pbData, pulDataLen));
  });
}

ULONG DEVAPI SKF_DecryptUpdate(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData,
                               ULONG* pulDataLen) {
  return run_export("SKF_DecryptUpdate", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                             call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherUpdate")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_DecryptUpdate, key->vendorHandle, pbEncryptedData, ulEncryptedLen, pbData,
                          pulDataLen);
    return call.finish(CipherUpdate(*key, pbEncryptedData, ulEncryptedLen, pbData, pulDataLen));
  });
}

ULONG DEVAPI SKF_DecryptFinal(HANDLE hKey, BYTE* pbDecryptedData, ULONG* pulDecryptedDataLen) {
  return run_export("SKF_DecryptFinal", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbDecryptedData", pbDecryptedData) &&
                             call.pointer("pulDecryptedDataLen", pulDecryptedDataLen));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key, "CipherFinal")) return refused;
    if (auto dll = vendor_module(key->type))
      return call.forward(*dll, &SkfDll::SKF_DecryptFinal, key->vendorHandle, pbDecryptedData, pulDecryptedDataLen);
    return call.finish(CipherFinal(*key, pbDecryptedData, pulDecryptedDataLen));
  });
}

ULONG DEVAPI SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB* pPubKey, unsigned char* pucID,
                            ULONG ulIDLen, HANDLE* phHash) {
  return run_export("SKF_DigestInit", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.id("ulAlgID", ulAlgID) && call.pointer("phHash", phHash));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.finish(wrap_vendor_handle(call.vendor(*dll), &SkfDll::SKF_DigestInit, device->type, kHash, phHash,
                                            device->vendorDevice, ulAlgID, pPubKey, pucID, ulIDLen));
    return call.finish(digest_init(call, *device, ulAlgID, pPubKey, pucID, ulIDLen, phHash));
  });
}

ULONG DEVAPI SKF_Digest(HANDLE hHash, BYTE* pbData, ULONG ulDataLen, BYTE* pbHashData, ULONG* pulHashLen) {
  return run_export("SKF_Digest", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulHashLen", pulHashLen));
    std::shared_ptr<HandleRecord> hash;
    if (ULONG refused = find_handle(call, hHash, "hHash", kHash, hash)) return refused;
    if (auto dll = vendor_module(hash->type))
      return call.forward(*dll, &SkfDll::SKF_Digest, hash->vendorHandle, pbData, ulDataLen, pbHashData, pulHashLen);
    return call.finish(digest(call, *hash, pbData, ulDataLen, pbHashData, pulHashLen));
  });
}

ULONG DEVAPI SKF_DigestUpdate(HANDLE hHash, BYTE* pbData, ULONG ulDataLen) {
  return run_export("SKF_DigestUpdate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
    std::shared_ptr<HandleRecord> hash;
    if (ULONG refused = find_handle(call, hHash, "hHash", kHash, hash)) return refused;
    if (auto dll = vendor_module(hash->type))
      return call.forward(*dll, &SkfDll::SKF_DigestUpdate, hash->vendorHandle, pbData, ulDataLen);
    return call.finish(digest_update(call, *hash, pbData, ulDataLen));
  });
}

ULONG DEVAPI SKF_DigestFinal(HANDLE hHash, BYTE* pHashData, ULONG* pulHashLen) {
  return run_export("SKF_DigestFinal", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.pointer("pulHashLen", pulHashLen));
    std::shared_ptr<HandleRecord> hash;
    if (ULONG refused = find_handle(call, hHash, "hHash", kHash, hash)) return refused;
    if (auto dll = vendor_module(hash->type))
      return call.forward(*dll, &SkfDll::SKF_DigestFinal, hash->vendorHandle, pHashData, pulHashLen);
    return call.finish(digest_final(call, *hash, pHashData, pulHashLen));
  });
}

ULONG DEVAPI SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM* pMacParam, HANDLE* phMac) {
  return run_export("SKF_MacInit", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hKey", hKey) && call.pointer("pMacParam", pMacParam) && call.pointer("phMac", phMac));
    std::shared_ptr<HandleRecord> key;
    if (ULONG refused = find_handle(call, hKey, "hKey", kSessionKey, key)) return refused;
    if (auto dll = vendor_module(key->type))
      return call.finish(wrap_vendor_handle(call.vendor(*dll), &SkfDll::SKF_MacInit, key->type, kMac, phMac,
                                            key->vendorHandle, pMacParam));
    return call.finish(mac_init(call, *key, *pMacParam, phMac));
  });
}

ULONG DEVAPI SKF_Mac(HANDLE hMac, BYTE* pbData, ULONG ulDataLen, BYTE* pbMacData, ULONG* pulMacLen) {
  return run_export("SKF_Mac", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulMacLen", pulMacLen));
    std::shared_ptr<HandleRecord> handle;
    if (ULONG refused = find_handle(call, hMac, "hMac", kMac, handle)) return refused;
    if (auto dll = vendor_module(handle->type))
      return call.forward(*dll, &SkfDll::SKF_Mac, handle->vendorHandle, pbData, ulDataLen, pbMacData, pulMacLen);
    return call.finish(mac(call, *handle, pbData, ulDataLen, pbMacData, pulMacLen));
  });
}

ULONG DEVAPI SKF_MacUpdate(HANDLE hMac, BYTE* pbData, ULONG ulDataLen) {
  return run_export("SKF_MacUpdate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
    std::shared_ptr<HandleRecord> handle;
    if (ULONG refused = find_handle(call, hMac, "hMac", kMac, handle)) return refused;
    if (auto dll = vendor_module(handle->type))
      return call.forward(*dll, &SkfDll::SKF_MacUpdate, handle->vendorHandle, pbData, ulDataLen);
    return call.finish(mac_update(call, *handle, pbData, ulDataLen));
  });
}

ULONG DEVAPI SKF_MacFinal(HANDLE hMac, BYTE* pbMacData, ULONG* pulMacDataLen) {
  return run_export("SKF_MacFinal", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.pointer("pulMacDataLen", pulMacDataLen));
    std::shared_ptr<HandleRecord> handle;
    if (ULONG refused = find_handle(call, hMac, "hMac", kMac, handle)) return refused;
    if (auto dll = vendor_module(handle->type))
      return call.forward(*dll, &SkfDll::SKF_MacFinal, handle->vendorHandle, pbMacData, pulMacDataLen);
    return call.finish(mac_final(call, *handle, pbMacData, pulMacDataLen));
  });
}

}  // extern "C"
