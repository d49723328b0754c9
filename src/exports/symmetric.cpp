// Session keys, block ciphers, digests, MACs, random bytes and handle release.
#include "core/device/device.h"
#include "core/frame.h"

using namespace vorel;

// A failed check of the block-cipher exports answers SAR_INVALIDHANDLEERR.

extern "C" {

ULONG DEVAPI SKF_GenRandom(DEVHANDLE hDev, BYTE* pbRandom, ULONG ulRandomLen) {
  return run_export("SKF_GenRandom", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbRandom", pbRandom) &&
                             call.length("ulRandomLen", ulRandomLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    ULONG rc;
    if (auto dll = vendor_module(device->type))
      rc = call.vendor_call(*dll, &SkfDll::SKF_GenRandom, device->vendorDevice, pbRandom, ulRandomLen);
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
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_SetSymmKey(DEVHANDLE hDev, BYTE* pbKey, ULONG ulAlgID, HANDLE* phKey) {
  return run_export("SKF_SetSymmKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.pointer("pbKey", pbKey) && call.id("ulAlgID", ulAlgID) &&
                             call.pointer("phKey", phKey));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam) {
  return run_export("SKF_EncryptInit", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&EncryptParam", &EncryptParam,
                                                                  "sizeof(EncryptParam)", sizeof(EncryptParam)));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_Encrypt(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData, ULONG* pulEncryptedLen) {
  return run_export("SKF_Encrypt", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("pulEncryptedLen", pulEncryptedLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EncryptUpdate(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData,
                               ULONG* pulEncryptedLen) {
  return run_export("SKF_EncryptUpdate", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("pulEncryptedLen", pulEncryptedLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_EncryptFinal(HANDLE hKey, BYTE* pbEncryptedData, ULONG* pulEncryptedDataLen) {
  return run_export("SKF_EncryptFinal", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbEncryptedData", pbEncryptedData) &&
                             call.pointer("ulEncryptedDataLen", pulEncryptedDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam) {
  return run_export("SKF_DecryptInit", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.bytes("(unsigned char*)&DecryptParam", &DecryptParam,
                                                                  "sizeof(DecryptParam)", sizeof(DecryptParam)));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData, ULONG* pulDataLen) {
  return run_export("SKF_Decrypt", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                             call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DecryptUpdate(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData,
                               ULONG* pulDataLen) {
  return run_export("SKF_DecryptUpdate", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedLen", ulEncryptedLen) &&
                             call.pointer("pbData", pbData) && call.pointer("pulDataLen", pulDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DecryptFinal(HANDLE hKey, BYTE* pbDecryptedData, ULONG* pulDecryptedDataLen) {
  return run_export("SKF_DecryptFinal", SAR_INVALIDHANDLEERR, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hKey", hKey) && call.pointer("pbDecryptedData", pbDecryptedData) &&
                             call.pointer("pulDecryptedDataLen", pulDecryptedDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB*, unsigned char*, ULONG, HANDLE* phHash) {
  return run_export("SKF_DigestInit", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) && call.id("ulAlgID", ulAlgID) && call.pointer("phHash", phHash));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_Digest(HANDLE hHash, BYTE* pbData, ULONG ulDataLen, BYTE*, ULONG* pulHashLen) {
  return run_export("SKF_Digest", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulHashLen", pulHashLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DigestUpdate(HANDLE hHash, BYTE* pbData, ULONG ulDataLen) {
  return run_export("SKF_DigestUpdate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_DigestFinal(HANDLE hHash, BYTE*, ULONG* pulHashLen) {
  return run_export("SKF_DigestFinal", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hHash", hHash) && call.pointer("pulHashLen", pulHashLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM* pMacParam, HANDLE* phMac) {
  return run_export("SKF_MacInit", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hKey", hKey) && call.pointer("pMacParam", pMacParam) && call.pointer("phMac", phMac));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_Mac(HANDLE hMac, BYTE* pbData, ULONG ulDataLen, BYTE*, ULONG* pulMacLen) {
  return run_export("SKF_Mac", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulMacLen", pulMacLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_MacUpdate(HANDLE hMac, BYTE* pbData, ULONG ulDataLen) {
  return run_export("SKF_MacUpdate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.bytes("pbData", pbData, "ulDataLen", ulDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_MacFinal(HANDLE hMac, BYTE*, ULONG* pulMacDataLen) {
  return run_export("SKF_MacFinal", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hMac", hMac) && call.pointer("pulMacDataLen", pulMacDataLen));
    return call.not_implemented();
  });
}

}  // extern "C"
