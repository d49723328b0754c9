// The SKF entry points a vendor module may provide, in the order they are resolved.
#pragma once

#include "skf.h"

// X(name) for each standard function forwarded by name.
#define VOREL_SKF_STANDARD_FUNCTIONS(X)     \
  X(SKF_WaitForDevEvent)                    \
  X(SKF_CancelWaitForDevEvent)              \
  X(SKF_EnumDev)                            \
  X(SKF_ConnectDev)                         \
  X(SKF_DisConnectDev)                      \
  X(SKF_GetDevState)                        \
  X(SKF_SetLabel)                           \
  X(SKF_GetDevInfo)                         \
  X(SKF_LockDev)                            \
  X(SKF_UnlockDev)                          \
  X(SKF_Transmit)                           \
  X(SKF_ChangeDevAuthKey)                   \
  X(SKF_DevAuth)                            \
  X(SKF_ChangePIN)                          \
  X(SKF_GetPINInfo)                         \
  X(SKF_VerifyPIN)                          \
  X(SKF_UnblockPIN)                         \
  X(SKF_ClearSecureState)                   \
  X(SKF_GetSecureState)                     \
  X(SKF_CreateApplication)                  \
  X(SKF_EnumApplication)                    \
  X(SKF_DeleteApplication)                  \
  X(SKF_OpenApplication)                    \
  X(SKF_CloseApplication)                   \
  X(SKF_CreateFile)                         \
  X(SKF_DeleteFile)                         \
  X(SKF_EnumFiles)                          \
  X(SKF_GetFileInfo)                        \
  X(SKF_ReadFile)                           \
  X(SKF_WriteFile)                          \
  X(SKF_CreateContainer)                    \
  X(SKF_DeleteContainer)                    \
  X(SKF_OpenContainer)                      \
  X(SKF_CloseContainer)                     \
  X(SKF_EnumContainer)                      \
  X(SKF_GetContainerType)                   \
  X(SKF_ImportCertificate)                  \
  X(SKF_ExportCertificate)                  \
  X(SKF_GenRandom)                          \
  X(SKF_GenExtRSAKey)                       \
  X(SKF_GenRSAKeyPair)                      \
  X(SKF_ImportRSAKeyPair)                   \
  X(SKF_RSASignData)                        \
  X(SKF_RSAVerify)                          \
  X(SKF_RSAExportSessionKey)                \
  X(SKF_ExtRSAPubKeyOperation)              \
  X(SKF_ExtRSAPriKeyOperation)              \
  X(SKF_GenECCKeyPair)                      \
  X(SKF_ImportECCKeyPair)                   \
  X(SKF_ECCSignData)                        \
  X(SKF_ECCVerify)                          \
  X(SKF_ECCExportSessionKey)                \
  X(SKF_ExtECCEncrypt)                      \
  X(SKF_ExtECCDecrypt)                      \
  X(SKF_ExtECCSign)                         \
  X(SKF_ExtECCVerify)                       \
  X(SKF_GenerateAgreementDataWithECC)       \
  X(SKF_GenerateAgreementDataAndKeyWithECC) \
  X(SKF_GenerateKeyWithECC)                 \
  X(SKF_ExportPublicKey)                    \
  X(SKF_ImportSessionKey)                   \
  X(SKF_SetSymmKey)                         \
  X(SKF_EncryptInit)                        \
  X(SKF_Encrypt)                            \
  X(SKF_EncryptUpdate)                      \
  X(SKF_EncryptFinal)                       \
  X(SKF_DecryptInit)                        \
  X(SKF_Decrypt)                            \
  X(SKF_DecryptUpdate)                      \
  X(SKF_DecryptFinal)                       \
  X(SKF_DigestInit)                         \
  X(SKF_Digest)                             \
  X(SKF_DigestUpdate)                       \
  X(SKF_DigestFinal)                        \
  X(SKF_MacInit)                            \
  X(SKF_Mac)                                \
  X(SKF_MacUpdate)                          \
  X(SKF_MacFinal)                           \
  X(SKF_CloseHandle)                        \
  X(SKF_RSADecrypt)

// The vendors' private-key decryption functions, as each family publishes them: the container's
// vendor handle, the key-pair choice where the function has one, the cipher text, the output.
using VendorEccDecrypt = ULONG(DEVAPI*)(HCONTAINER, BOOL bSignFlag, PECCCIPHERBLOB, BYTE*, ULONG*);
using VendorEccKeySpecDecrypt = ULONG(DEVAPI*)(HCONTAINER, ULONG ulKeySpec, PECCCIPHERBLOB, BYTE*, ULONG*);
using VendorEccDataDecrypt = ULONG(DEVAPI*)(HCONTAINER, BYTE* pbCipher, ULONG ulCipherLen, BYTE*, ULONG*);
using VendorRsaDecrypt = ULONG(DEVAPI*)(HCONTAINER, BOOL bSignFlag, BYTE*, ULONG, BYTE*, ULONG*);

// X(name, signature) for each vendor-specific private-key decryption function, resolved after the
// standard ones.
#define VOREL_SKF_VENDOR_DECRYPT_FUNCTIONS(X)           \
  X(SKF_PrvKeyDecrypt, VendorEccKeySpecDecrypt)         \
  X(SKF_ECCPrvKeyDecrypt, VendorEccDecrypt)             \
  X(SKF_ECCDecrypt, VendorEccDecrypt)                   \
  X(SKF_ECCDecryptData, VendorEccDataDecrypt)           \
  X(SKF_ECCDecryptDataWithSignSK, VendorEccDataDecrypt) \
  X(SKF_RSADecryptDataEx, VendorRsaDecrypt)             \
  X(V_ECCPrvKeyDecrypt, VendorEccDecrypt)               \
  X(V_RSAPrvKeyDecrypt, VendorRsaDecrypt)               \
  X(SKF_ECCDecryptEx, VendorEccDecrypt)
