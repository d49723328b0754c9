// RSA and SM2 exports: key pairs, signatures, encryption, session-key export and key agreement.
#include "exports/frame.h"
#include "token/ecc.h"
#include "token/rsa.h"
#include "vendor/families.h"

using namespace vorel;

namespace {

// SKF_ECCVerify and SKF_ExtECCVerify are one operation under two names.
ULONG ecc_verify_export(const char* name, decltype(&SkfDll::SKF_ECCVerify) vendorFunction, DEVHANDLE hDev,
                        ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                        PECCSIGNATUREBLOB pSignature) {
  return run_export(name, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPubKeyBlob", pECCPubKeyBlob, "sizeof(*pECCPubKeyBlob)",
                                        sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.bytes("(unsigned char*)pSignature", pSignature, "sizeof(*pSignature)",
                                        sizeof(ECCSIGNATUREBLOB)));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, vendorFunction, device->vendorDevice, pECCPubKeyBlob, pbData, ulDataLen, pSignature);
    return call.finish(ecc_verify(call, *pECCPubKeyBlob, pbData, ulDataLen, *pSignature));
  });
}

}  // namespace

extern "C" {

ULONG DEVAPI SKF_GenExtRSAKey(DEVHANDLE hDev, ULONG ulBitsLen, RSAPRIVATEKEYBLOB* pBlob) {
  return run_export("SKF_GenExtRSAKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hDev", hDev) && call.length("ulBitsLen", ulBitsLen) && call.pointer("pBlob", pBlob));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_GenExtRSAKey, device->vendorDevice, ulBitsLen, pBlob);
    return call.finish(gen_ext_rsa_key(call, ulBitsLen, pBlob));
  });
}

ULONG DEVAPI SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB* pBlob) {
  return run_export("SKF_GenRSAKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pBlob", pBlob));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_GenRSAKeyPair, container->vendorContainer, ulBitsLen, pBlob);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE* pbWrappedKey, ULONG ulWrappedKeyLen,
                                  BYTE* pbEncryptedData, ULONG ulEncryptedDataLen) {
  return run_export("SKF_ImportRSAKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulSymAlgId", ulSymAlgId) &&
                             call.bytes("pbWrappedKey", pbWrappedKey, "ulWrappedKeyLen", ulWrappedKeyLen) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedDataLen", ulEncryptedDataLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_ImportRSAKeyPair, container->vendorContainer, ulSymAlgId, pbWrappedKey,
                          ulWrappedKeyLen, pbEncryptedData, ulEncryptedDataLen);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_RSASignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen, BYTE* pbSignature,
                             ULONG* pulSignLen) {
  return run_export("SKF_RSASignData", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulSignLen", pulSignLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_RSASignData, container->vendorContainer, pbData, ulDataLen, pbSignature,
                          pulSignLen);
    return call.finish(rsa_sign(call, *container, pbData, ulDataLen, pbSignature, pulSignLen));
  });
}

ULONG DEVAPI SKF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB* pRSAPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                           BYTE* pbSignature, ULONG ulSignLen) {
  return run_export("SKF_RSAVerify", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pRSAPubKeyBlob", pRSAPubKeyBlob, "sizeof(*pRSAPubKeyBlob)",
                                        sizeof(RSAPUBLICKEYBLOB)) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.bytes("pbSignature", pbSignature, "ulSignLen", ulSignLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_RSAVerify, device->vendorDevice, pRSAPubKeyBlob, pbData, ulDataLen,
                          pbSignature, ulSignLen);
    return call.finish(rsa_verify(call, *pRSAPubKeyBlob, pbData, ulDataLen, pbSignature, ulSignLen));
  });
}

ULONG DEVAPI SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB* pPubKey, BYTE* pbData,
                                     ULONG* pulDataLen, HANDLE* phSessionKey) {
  return run_export("SKF_RSAExportSessionKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                       call.bytes("(unsigned char*)pPubKey", pPubKey, "sizeof(*pPubKey)", sizeof(RSAPUBLICKEYBLOB)) &&
                       call.pointer("pulDataLen", pulDataLen) && call.pointer("phSessionKey", phSessionKey));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_RSAExportSessionKey, container->vendorContainer, ulAlgId, pPubKey, pbData,
                          pulDataLen, phSessionKey);
    return call.finish(rsa_export_session_key(call, *container, ulAlgId, *pPubKey, pbData, pulDataLen, phSessionKey));
  });
}

ULONG DEVAPI SKF_ExtRSAPubKeyOperation(DEVHANDLE hDev, RSAPUBLICKEYBLOB* pRSAPubKeyBlob, BYTE* pbInput,
                                       ULONG ulInputLen, BYTE* pbOutput, ULONG* pulOutputLen) {
  return run_export("SKF_ExtRSAPubKeyOperation", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pRSAPubKeyBlob", pRSAPubKeyBlob, "sizeof(*pRSAPubKeyBlob)",
                                        sizeof(RSAPUBLICKEYBLOB)) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ExtRSAPubKeyOperation, device->vendorDevice, pRSAPubKeyBlob, pbInput,
                          ulInputLen, pbOutput, pulOutputLen);
    return call.finish(rsa_public_operation(call, *pRSAPubKeyBlob, pbInput, ulInputLen, pbOutput, pulOutputLen));
  });
}

ULONG DEVAPI SKF_ExtRSAPriKeyOperation(DEVHANDLE hDev, RSAPRIVATEKEYBLOB* pRSAPriKeyBlob, BYTE* pbInput,
                                       ULONG ulInputLen, BYTE* pbOutput, ULONG* pulOutputLen) {
  return run_export("SKF_ExtRSAPriKeyOperation", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pRSAPriKeyBlob", pRSAPriKeyBlob, "sizeof(*pRSAPriKeyBlob)",
                                        sizeof(RSAPRIVATEKEYBLOB)) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ExtRSAPriKeyOperation, device->vendorDevice, pRSAPriKeyBlob, pbInput,
                          ulInputLen, pbOutput, pulOutputLen);
    return call.finish(rsa_private_operation(call, *pRSAPriKeyBlob, pbInput, ulInputLen, pbOutput, pulOutputLen));
  });
}

ULONG DEVAPI SKF_RSADecrypt(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbInput, ULONG ulInputLen, BYTE* pbOutput,
                            ULONG* pulOutputLen) {
  return run_export("SKF_RSADecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.finish(
          family_rsa_decrypt(call.vendor(*dll), *container, bSignFlag, pbInput, ulInputLen, pbOutput, pulOutputLen));
    return call.finish(rsa_decrypt(call, *container, pbInput, ulInputLen, pbOutput, pulOutputLen));
  });
}

ULONG DEVAPI SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pBlob) {
  return run_export("SKF_GenECCKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pBlob", pBlob));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_GenECCKeyPair, container->vendorContainer, ulAlgId, pBlob);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob) {
  return run_export("SKF_ImportECCKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("(unsigned char*)pEnvelopedKeyBlob", pEnvelopedKeyBlob,
                                        "sizeof(*pEnvelopedKeyBlob)", sizeof(ENVELOPEDKEYBLOB)));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_ImportECCKeyPair, container->vendorContainer, pEnvelopedKeyBlob);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_ECCSignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen, PECCSIGNATUREBLOB pSignature) {
  return run_export("SKF_ECCSignData", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pSignature", pSignature));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_ECCSignData, container->vendorContainer, pbData, ulDataLen, pSignature);
    return call.finish(ecc_sign(call, *container, pbData, ulDataLen, pSignature));
  });
}

ULONG DEVAPI SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                           PECCSIGNATUREBLOB pSignature) {
  return ecc_verify_export("SKF_ECCVerify", &SkfDll::SKF_ECCVerify, hDev, pECCPubKeyBlob, pbData, ulDataLen,
                           pSignature);
}

ULONG DEVAPI SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pPubKey,
                                     PECCCIPHERBLOB pData, HANDLE* phSessionKey) {
  return run_export("SKF_ECCExportSessionKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                             call.pointer("pPubKey", pPubKey));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_ECCExportSessionKey, container->vendorContainer, ulAlgId, pPubKey, pData,
                          phSessionKey);
    return call.finish(ecc_export_session_key(call, *container, ulAlgId, *pPubKey, pData, phSessionKey));
  });
}

ULONG DEVAPI SKF_ExtECCEncrypt(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbPlainText,
                               ULONG ulPlainTextLen, PECCCIPHERBLOB pCipherText) {
  return run_export("SKF_ExtECCEncrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPubKeyBlob", pECCPubKeyBlob, "sizeof(*pECCPubKeyBlob)",
                                        sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("pbPlainText", pbPlainText, "ulPlainTextLen", ulPlainTextLen) &&
                             call.pointer("pCipherText", pCipherText));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ExtECCEncrypt, device->vendorDevice, pECCPubKeyBlob, pbPlainText,
                          ulPlainTextLen, pCipherText);
    return call.finish(ecc_encrypt(call, *pECCPubKeyBlob, pbPlainText, ulPlainTextLen, pCipherText));
  });
}

ULONG DEVAPI SKF_ExtECCDecrypt(DEVHANDLE hDev, ECCPRIVATEKEYBLOB* pECCPriKeyBlob, PECCCIPHERBLOB pCipherText,
                               BYTE* pbPlainText, ULONG* pulPlainTextLen) {
  return run_export("SKF_ExtECCDecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPriKeyBlob", pECCPriKeyBlob, "sizeof(*pECCPriKeyBlob)",
                                        sizeof(ECCPRIVATEKEYBLOB)) &&
                             call.pointer("pCipherText", pCipherText) &&
                             call.pointer("pulPlainTextLen", pulPlainTextLen));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    log_cipher_blob(*pCipherText);
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ExtECCDecrypt, device->vendorDevice, pECCPriKeyBlob, pCipherText,
                          pbPlainText, pulPlainTextLen);
    return call.finish(ext_ecc_private(call, *pECCPriKeyBlob));
  });
}

ULONG DEVAPI SKF_ExtECCSign(DEVHANDLE hDev, ECCPRIVATEKEYBLOB* pECCPriKeyBlob, BYTE* pbData, ULONG ulDataLen,
                            PECCSIGNATUREBLOB pSignature) {
  return run_export("SKF_ExtECCSign", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPriKeyBlob", pECCPriKeyBlob, "sizeof(*pECCPriKeyBlob)",
                                        sizeof(ECCPRIVATEKEYBLOB)) &&
                             call.bytes("(unsigned char*)pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pSignature", pSignature));
    auto device = find_device(hDev);
    if (!device) return call.invalid_handle("hDev");
    if (auto dll = vendor_module(device->type))
      return call.forward(*dll, &SkfDll::SKF_ExtECCSign, device->vendorDevice, pECCPriKeyBlob, pbData, ulDataLen,
                          pSignature);
    return call.finish(ext_ecc_private(call, *pECCPriKeyBlob));
  });
}

ULONG DEVAPI SKF_ExtECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                              PECCSIGNATUREBLOB pSignature) {
  return ecc_verify_export("SKF_ExtECCVerify", &SkfDll::SKF_ExtECCVerify, hDev, pECCPubKeyBlob, pbData, ulDataLen,
                           pSignature);
}

ULONG DEVAPI SKF_ECCDecrypt(HCONTAINER hContainer, BOOL bSignFlag, PECCCIPHERBLOB pCipherText, BYTE* pbData,
                            ULONG* pdwDataLen) {
  return run_export("SKF_ECCDecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pCipherText", pCipherText) &&
                             call.pointer("pbData", pbData) && call.pointer("pdwDataLen", pdwDataLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    log_cipher_blob(*pCipherText);
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.finish(family_ecc_decrypt(call.vendor(*dll), *container, bSignFlag, pCipherText, pbData, pdwDataLen));
    return call.finish(ecc_decrypt(call, *container, bSignFlag != 0, *pCipherText, pbData, pdwDataLen));
  });
}

ULONG DEVAPI SKF_ExportPublicKey(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbBlob, ULONG* pulBlobLen) {
  return run_export("SKF_ExportPublicKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pbBlob", pbBlob) &&
                             call.pointer("pulBlobLen", pulBlobLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_ExportPublicKey, container->vendorContainer, bSignFlag, pbBlob,
                          pulBlobLen);
    return call.finish(export_public_key(call, *container, bSignFlag != 0, pbBlob, pulBlobLen));
  });
}

ULONG DEVAPI SKF_GenerateAgreementDataWithECC(HCONTAINER hContainer, ULONG ulAlgId,
                                              ECCPUBLICKEYBLOB* pTempECCPubKeyBlob, BYTE* pbID, ULONG ulIDLen,
                                              HANDLE* phAgreementHandle) {
  return run_export("SKF_GenerateAgreementDataWithECC", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                             call.bytes("(unsigned char*)pTempECCPubKeyBlob", pTempECCPubKeyBlob,
                                        "sizeof(*pTempECCPubKeyBlob)", sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("pbID", pbID, "ulIDLen", ulIDLen) &&
                             call.pointer("phAgreementHandle", phAgreementHandle));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    // The vendor's agreement handle goes to the caller as the vendor gave it.
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_GenerateAgreementDataWithECC, container->vendorContainer, ulAlgId,
                          pTempECCPubKeyBlob, pbID, ulIDLen, phAgreementHandle);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_GenerateAgreementDataAndKeyWithECC(HANDLE hContainer, ULONG ulAlgId,
                                                    ECCPUBLICKEYBLOB* pSponsorECCPubKeyBlob,
                                                    ECCPUBLICKEYBLOB* pSponsorTempECCPubKeyBlob,
                                                    ECCPUBLICKEYBLOB* pTempECCPubKeyBlob, BYTE* pbID, ULONG ulIDLen,
                                                    BYTE* pbSponsorID, ULONG ulSponsorIDLen, HANDLE* phKeyHandle) {
  return run_export("SKF_GenerateAgreementDataAndKeyWithECC", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                             call.bytes("(unsigned char*)pSponsorECCPubKeyBlob", pSponsorECCPubKeyBlob,
                                        "sizeof(*pSponsorECCPubKeyBlob)", sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("(unsigned char*)pSponsorTempECCPubKeyBlob", pSponsorTempECCPubKeyBlob,
                                        "sizeof(*pSponsorTempECCPubKeyBlob)", sizeof(ECCPUBLICKEYBLOB)) &&
                             call.pointer("pTempECCPubKeyBlob", pTempECCPubKeyBlob) &&
                             call.bytes("pbID", pbID, "ulIDLen", ulIDLen) &&
                             call.bytes("pbSponsorID", pbSponsorID, "ulSponsorIDLen", ulSponsorIDLen) &&
                             call.pointer("phKeyHandle", phKeyHandle));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    // The vendor's key handle goes to the caller as the vendor gave it.
    if (auto dll = vendor_module(static_cast<int32_t>(container->type)))
      return call.forward(*dll, &SkfDll::SKF_GenerateAgreementDataAndKeyWithECC, container->vendorContainer, ulAlgId,
                          pSponsorECCPubKeyBlob, pSponsorTempECCPubKeyBlob, pTempECCPubKeyBlob, pbID, ulIDLen,
                          pbSponsorID, ulSponsorIDLen, phKeyHandle);
    return call.not_emulated();
  });
}

// The sponsor's second agreement step is offered on neither route.
ULONG DEVAPI SKF_GenerateKeyWithECC(HANDLE, ECCPUBLICKEYBLOB*, ECCPUBLICKEYBLOB*, BYTE*, ULONG, HANDLE*) {
  return run_export("SKF_GenerateKeyWithECC", [&](ExportCall& call) -> ULONG { return call.not_emulated(); });
}

}  // extern "C"
