// Session keys, block ciphers, digests, MACs, random bytes and handle release.
#include "core/frame.h"

using namespace vorel;

namespace {
// A failed check of the block-cipher exports answers SAR_INVALIDHANDLEERR.
ExportCall cipher_call(const char* name) { return ExportCall(name, SAR_INVALIDHANDLEERR); }
}  // namespace

extern "C" {

ULONG DEVAPI SKF_GenRandom(DEVHANDLE hDev, BYTE* pbRandom, ULONG ulRandomLen) {
  ExportCall call("SKF_GenRandom");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbRandom", pbRandom) &&
                           call.length("ulRandomLen", ulRandomLen));
  DeviceRecord* device = find_device(hDev);
  if (!device) return call.invalid_handle("hDev");
  if (is_vendor_type(device->type)) {
    ULONG rc = call.forward(device->type, &SkfDll::SKF_GenRandom, device->vendorDevice, pbRandom, ulRandomLen);
    if (rc != SAR_OK) return rc;
  } else {
    int rc = VorelPKICryptoGenerateRandom(device->cryptoDevice, ulRandomLen, pbRandom);
    if (rc != VOREL_OK) {
      VLOG_ERROR(call.name(), "VorelPKICryptoGenerateRandom fail, error : %d", rc);
      return call.fail(SAR_FAIL);
    }
  }
  _log("pbRandom", pbRandom, static_cast<long>(ulRandomLen), true);
  return SAR_OK;
}

ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle) {
  ExportCall call("SKF_CloseHandle");
  VOREL_VALIDATE(call, call.pointer("hHandle", hHandle));
  HandleRecord* handle = find_handle(hHandle);
  if (!handle) return call.invalid_handle("hHandle");
  if (is_vendor_type(handle->type)) {
    // A vendor that refuses to close keeps the record alive, so the caller may try again.
    ULONG rc = call.forward(handle->type, &SkfDll::SKF_CloseHandle, handle->vendorHandle);
    if (rc != SAR_OK) return rc;
  }
  handle_record_free(handle);
  VLOG_DEBUG(call.name(), "handle %p closed", hHandle);
  return SAR_OK;
}

ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE* pbWrapedData, ULONG ulWrapedLen,
                                  HANDLE* phKey) {
  ExportCall call("SKF_ImportSessionKey");
  VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                           call.bytes("pbWrapedData", pbWrapedData, "ulWrapedLen", ulWrapedLen) &&
                           call.pointer("phKey", phKey));
  return call.not_implemented();
}

ULONG DEVAPI SKF_SetSymmKey(DEVHANDLE hDev, BYTE* pbKey, ULONG ulAlgID, HANDLE* phKey) {
  ExportCall call("SKF_SetSymmKey");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbKey", pbKey) && call.id("ulAlgID", ulAlgID) &&
                           call.pointer("phKey", phKey));
  return call.not_implemented();
}

ULONG DEVAPI SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam) {
  ExportCall call = cipher_call("SKF_EncryptInit");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&EncryptParam", &EncryptParam,
                                                                "sizeof(EncryptParam)", sizeof(EncryptParam)));
  return call.not_implemented();
}

ULONG DEVAPI SKF_Encrypt(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData, ULONG* pulEncryptedLen) {
  ExportCall call = cipher_call("SKF_Encrypt");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                           call.pointer("pbEncryptedData", pbEncryptedData) &&
                           call.pointer("pulEncryptedLen", pulEncryptedLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_EncryptUpdate(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData,
                               ULONG* pulEncryptedLen) {
  ExportCall call = cipher_call("SKF_EncryptUpdate");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                           call.pointer("pbEncryptedData", pbEncryptedData) &&
                           call.pointer("pulEncryptedLen", pulEncryptedLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_EncryptFinal(HANDLE hKey, BYTE* pbEncryptedData, ULONG* pulEncryptedDataLen) {
  ExportCall call = cipher_call("SKF_EncryptFinal");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbEncryptedData", pbEncryptedData) &&
                           call.pointer("ulEncryptedDataLen", pulEncryptedDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam) {
  ExportCall call = cipher_call("SKF_DecryptInit");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&DecryptParam", &DecryptParam,
                                                                "sizeof(DecryptParam)", sizeof(DecryptParam)));
  return call.not_implemented();
}

ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData, ULONG* pulDataLen) {
  ExportCall call = cipher_call("SKF_Decrypt");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                           call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                           call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DecryptUpdate(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData,
                               ULONG* pulDataLen) {
  ExportCall call = cipher_call("SKF_DecryptUpdate");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                           call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                           call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DecryptFinal(HANDLE hKey, BYTE* pbDecryptedData, ULONG* pulDecryptedDataLen) {
  ExportCall call = cipher_call("SKF_DecryptFinal");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbDecryptedData", pbDecryptedData) &&
                           call.pointer("pulDecryptedDataLen", pulDecryptedDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB*, unsigned char*, ULONG, HANDLE* phHash) {
  ExportCall call("SKF_DigestInit");
  VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.id("ulAlgID", ulAlgID) && call.pointer("phHash", phHash));
  return call.not_implemented();
}

ULONG DEVAPI SKF_Digest(HANDLE hHash, BYTE* pbData, ULONG ulDataLen, BYTE*, ULONG* pulHashLen) {
  ExportCall call("SKF_Digest");
  VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                           call.pointer("pulHashLen", pulHashLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DigestUpdate(HANDLE hHash, BYTE* pbData, ULONG ulDataLen) {
  ExportCall call("SKF_DigestUpdate");
  VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_DigestFinal(HANDLE hHash, BYTE*, ULONG* pulHashLen) {
  ExportCall call("SKF_DigestFinal");
  VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.pointer("pulHashLen", pulHashLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM* pMacParam, HANDLE* phMac) {
  ExportCall call("SKF_MacInit");
  VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pMacParam", pMacParam) &&
                           call.pointer("phMac", phMac));
  return call.not_implemented();
}

ULONG DEVAPI SKF_Mac(HANDLE hMac, BYTE* pbData, ULONG ulDataLen, BYTE*, ULONG* pulMacLen) {
  ExportCall call("SKF_Mac");
  VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                           call.pointer("pulMacLen", pulMacLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_MacUpdate(HANDLE hMac, BYTE* pbData, ULONG ulDataLen) {
  ExportCall call("SKF_MacUpdate");
  VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
  return call.not_implemented();
}

ULONG DEVAPI SKF_MacFinal(HANDLE hMac, BYTE*, ULONG* pulMacDataLen) {
  ExportCall call("SKF_MacFinal");
  VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.pointer("pulMacDataLen", pulMacDataLen));
  return call.not_implemented();
}

}  // extern "C"
