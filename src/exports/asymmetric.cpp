// RSA and SM2 exports: key pairs, signatures, encryption, session-key export and key agreement.
#include "core/frame.h"

using namespace vorel;

extern "C" {

ULONG DEVAPI SKF_GenExtRSAKey(DEVHANDLE hDev, ULONG ulBitsLen, RSAPRIVATEKEYBLOB* pBlob) {
  return run_export("SKF_GenExtRSAKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hDev", hDev) && call.length("ulBitsLen", ulBitsLen) && call.pointer("pBlob", pBlob));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG, RSAPUBLICKEYBLOB* pBlob) {
  return run_export("SKF_GenRSAKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pBlob", pBlob));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE* pbWrappedKey, ULONG ulWrappedKeyLen,
                                  BYTE* pbEncryptedData, ULONG ulEncryptedDataLen) {
  return run_export("SKF_ImportRSAKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulSymAlgId", ulSymAlgId) &&
                             call.bytes("pbWrappedKey", pbWrappedKey, "ulWrappedKeyLen", ulWrappedKeyLen) &&
                             call.bytes("pbEncryptedData", pbEncryptedData, "ulEncryptedDataLen", ulEncryptedDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_RSASignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen, BYTE*, ULONG* pulSignLen) {
  return run_export("SKF_RSASignData", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pulSignLen", pulSignLen));
    return call.not_implemented();
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
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB* pPubKey, BYTE*,
                                     ULONG* pulDataLen, HANDLE* phSessionKey) {
  return run_export("SKF_RSAExportSessionKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                       call.bytes("(unsigned char*)pPubKey", pPubKey, "sizeof(*pPubKey)", sizeof(RSAPUBLICKEYBLOB)) &&
                       call.pointer("pulDataLen", pulDataLen) && call.pointer("phSessionKey", phSessionKey));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExtRSAPubKeyOperation(DEVHANDLE hDev, RSAPUBLICKEYBLOB* pRSAPubKeyBlob, BYTE* pbInput,
                                       ULONG ulInputLen, BYTE*, ULONG* pulOutputLen) {
  return run_export("SKF_ExtRSAPubKeyOperation", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pRSAPubKeyBlob", pRSAPubKeyBlob, "sizeof(*pRSAPubKeyBlob)",
                                        sizeof(RSAPUBLICKEYBLOB)) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExtRSAPriKeyOperation(DEVHANDLE hDev, RSAPRIVATEKEYBLOB* pRSAPriKeyBlob, BYTE* pbInput,
                                       ULONG ulInputLen, BYTE*, ULONG* pulOutputLen) {
  return run_export("SKF_ExtRSAPriKeyOperation", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pRSAPriKeyBlob", pRSAPriKeyBlob, "sizeof(*pRSAPriKeyBlob)",
                                        sizeof(RSAPRIVATEKEYBLOB)) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_RSADecrypt(HCONTAINER hContainer, BOOL, BYTE* pbInput, ULONG ulInputLen, BYTE*, ULONG* pulOutputLen) {
  return run_export("SKF_RSADecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbInput", pbInput, "ulInputLen", ulInputLen) &&
                             call.pointer("pulOutputLen", pulOutputLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG, ECCPUBLICKEYBLOB* pBlob) {
  return run_export("SKF_GenECCKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pBlob", pBlob));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob) {
  return run_export("SKF_ImportECCKeyPair", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("(unsigned char*)pEnvelopedKeyBlob", pEnvelopedKeyBlob,
                                        "sizeof(*pEnvelopedKeyBlob)", sizeof(ENVELOPEDKEYBLOB)));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ECCSignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen, PECCSIGNATUREBLOB pSignature) {
  return run_export("SKF_ECCSignData", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.pointer("pSignature", pSignature));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                           PECCSIGNATUREBLOB pSignature) {
  return run_export("SKF_ECCVerify", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPubKeyBlob", pECCPubKeyBlob, "sizeof(*pECCPubKeyBlob)",
                                        sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.bytes("(unsigned char*)pSignature", pSignature, "sizeof(*pSignature)",
                                        sizeof(ECCSIGNATUREBLOB)));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pPubKey, PECCCIPHERBLOB,
                                     HANDLE*) {
  return run_export("SKF_ECCExportSessionKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.id("ulAlgId", ulAlgId) &&
                             call.pointer("pPubKey", pPubKey));
    return call.not_implemented();
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
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExtECCDecrypt(DEVHANDLE hDev, ECCPRIVATEKEYBLOB* pECCPriKeyBlob, PECCCIPHERBLOB pCipherText, BYTE*,
                               ULONG* pulPlainTextLen) {
  return run_export("SKF_ExtECCDecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPriKeyBlob", pECCPriKeyBlob, "sizeof(*pECCPriKeyBlob)",
                                        sizeof(ECCPRIVATEKEYBLOB)) &&
                             call.pointer("pCipherText", pCipherText) &&
                             call.pointer("pulPlainTextLen", pulPlainTextLen));
    return call.not_implemented();
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
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExtECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                              PECCSIGNATUREBLOB pSignature) {
  return run_export("SKF_ExtECCVerify", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hDev", hDev) &&
                             call.bytes("(unsigned char*)pECCPubKeyBlob", pECCPubKeyBlob, "sizeof(*pECCPubKeyBlob)",
                                        sizeof(ECCPUBLICKEYBLOB)) &&
                             call.bytes("pbData", pbData, "ulDataLen", ulDataLen) &&
                             call.bytes("(unsigned char*)pSignature", pSignature, "sizeof(*pSignature)",
                                        sizeof(ECCSIGNATUREBLOB)));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ECCDecrypt(HCONTAINER hContainer, BOOL, PECCCIPHERBLOB pCipherText, BYTE* pbData, ULONG* pdwDataLen) {
  return run_export("SKF_ECCDecrypt", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pCipherText", pCipherText) &&
                             call.pointer("pbData", pbData) && call.pointer("pdwDataLen", pdwDataLen));
    return call.not_implemented();
  });
}

ULONG DEVAPI SKF_ExportPublicKey(HCONTAINER hContainer, BOOL, BYTE* pbBlob, ULONG* pulBlobLen) {
  return run_export("SKF_ExportPublicKey", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pbBlob", pbBlob) &&
                             call.pointer("pulBlobLen", pulBlobLen));
    return call.not_implemented();
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
    return call.not_implemented();
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
    return call.not_implemented();
  });
}

// The sponsor's second agreement step is offered on neither route.
ULONG DEVAPI SKF_GenerateKeyWithECC(HANDLE, ECCPUBLICKEYBLOB*, ECCPUBLICKEYBLOB*, BYTE*, ULONG, HANDLE*) {
  return run_export("SKF_GenerateKeyWithECC", [&](ExportCall& call) -> ULONG { return call.not_emulated(); });
}

}  // extern "C"
