/* SKF smart-token interface (GM/T 0016-2012) as exported by vorelskf. */
#ifndef VORELSKF_SKF_H
#define VORELSKF_SKF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define DEVAPI __stdcall
#else
#define DEVAPI
#endif

typedef uint8_t BYTE;
typedef char CHAR;
typedef int32_t BOOL;
typedef uint32_t ULONG;
typedef uint32_t DWORD;
typedef uint32_t UINT32;
typedef char* LPSTR;
typedef void* HANDLE;
typedef HANDLE DEVHANDLE;
typedef HANDLE HAPPLICATION;
typedef HANDLE HCONTAINER;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define MAX_RSA_MODULUS_LEN 256
#define MAX_RSA_EXPONENT_LEN 4
#define ECC_MAX_XCOORDINATE_BITS_LEN 512
#define ECC_MAX_YCOORDINATE_BITS_LEN 512
#define ECC_MAX_MODULUS_BITS_LEN 512
#define MAX_IV_LEN 32

/* Return codes */
#define SAR_OK 0x00000000
#define SAR_FAIL 0x0A000001
#define SAR_UNKNOWNERR 0x0A000002
#define SAR_NOTSUPPORTYETERR 0x0A000003
#define SAR_FILEERR 0x0A000004
#define SAR_INVALIDHANDLEERR 0x0A000005
#define SAR_INVALIDPARAMERR 0x0A000006
#define SAR_READFILEERR 0x0A000007
#define SAR_WRITEFILEERR 0x0A000008
#define SAR_NAMELENERR 0x0A000009
#define SAR_KEYUSAGEERR 0x0A00000A
#define SAR_MODULUSLENERR 0x0A00000B
#define SAR_NOTINITIALIZEERR 0x0A00000C
#define SAR_OBJERR 0x0A00000D
#define SAR_MEMORYERR 0x0A00000E
#define SAR_TIMEOUTERR 0x0A00000F
#define SAR_INDATALENERR 0x0A000010
#define SAR_INDATAERR 0x0A000011
#define SAR_GENRANDERR 0x0A000012
#define SAR_HASHOBJERR 0x0A000013
#define SAR_HASHERR 0x0A000014
#define SAR_GENRSAKEYERR 0x0A000015
#define SAR_RSAMODULUSLENERR 0x0A000016
#define SAR_CSPIMPRTPUBKEYERR 0x0A000017
#define SAR_RSAENCERR 0x0A000018
#define SAR_RSADECERR 0x0A000019
#define SAR_HASHNOTEQUALERR 0x0A00001A
#define SAR_KEYNOTFOUNTERR 0x0A00001B
#define SAR_CERTNOTFOUNTERR 0x0A00001C
#define SAR_NOTEXPORTERR 0x0A00001D
#define SAR_DECRYPTPADERR 0x0A00001E
#define SAR_MACLENERR 0x0A00001F
#define SAR_BUFFER_TOO_SMALL 0x0A000020
#define SAR_KEYINFOTYPEERR 0x0A000021
#define SAR_NOT_EVENTERR 0x0A000022
#define SAR_DEVICE_REMOVED 0x0A000023
#define SAR_PIN_INCORRECT 0x0A000024
#define SAR_PIN_LOCKED 0x0A000025
#define SAR_PIN_INVALID 0x0A000026
#define SAR_PIN_LEN_RANGE 0x0A000027
#define SAR_USER_ALREADY_LOGGED_IN 0x0A000028
#define SAR_USER_PIN_NOT_INITIALIZED 0x0A000029
#define SAR_USER_TYPE_INVALID 0x0A00002A
#define SAR_APPLICATION_NAME_INVALID 0x0A00002B
#define SAR_APPLICATION_EXISTS 0x0A00002C
#define SAR_USER_NOT_LOGGED_IN 0x0A00002D
#define SAR_APPLICATION_NOT_EXISTS 0x0A00002E
#define SAR_FILE_ALREADY_EXIST 0x0A00002F
#define SAR_NO_ROOM 0x0A000030
#define SAR_FILE_NOT_EXIST 0x0A000031
#define SAR_REACH_MAX_CONTAINER_COUNT 0x0A000032
/* vorelskf's own codes, continuing the standard's numbering */
#define SAR_FILE_NOT_RECORDED 0x0A000033 /* SKF_CreateFile could not record the new file */
#define SAR_NOT_EMULATED 0x0A000034      /* no emulation for crypto-library devices */
#define SAR_FILE_RANGE 0x0A000035        /* read or write beyond the file's size */

/* Symmetric algorithm identifiers (GM/T 0006) */
#define SGD_SM1_ECB 0x00000101
#define SGD_SM1_CBC 0x00000102
#define SGD_SSF33_ECB 0x00000201
#define SGD_SSF33_CBC 0x00000202
#define SGD_SMS4_ECB 0x00000401
#define SGD_SMS4_CBC 0x00000402
#define SGD_3DES_ECB 0x00002001
#define SGD_3DES_CBC 0x00002002
#define SGD_AES128_ECB 0x00004001
#define SGD_AES128_CBC 0x00004002
#define SGD_DES_ECB 0x00008001
#define SGD_DES_CBC 0x00008002

/* Asymmetric and hash identifiers */
#define SGD_RSA 0x00010000
#define SGD_SM2_1 0x00020100
#define SGD_SM2_2 0x00020200
#define SGD_SM2_3 0x00020400
#define SGD_SM3 0x00000001
#define SGD_SHA1 0x00000002
#define SGD_SHA256 0x00000004

/* PIN types */
#define ADMIN_TYPE 0
#define USER_TYPE 1

/* File rights */
#define SECURE_NEVER_ACCOUNT 0x00000000
#define SECURE_ADM_ACCOUNT 0x00000001
#define SECURE_USER_ACCOUNT 0x00000010
#define SECURE_ANYONE_ACCOUNT 0x000000FF

/* Device states */
#define DEV_ABSENT_STATE 0x00000000
#define DEV_PRESENT_STATE 0x00000001
#define DEV_UNKNOW_STATE 0x00000002

#pragma pack(push, 1)

typedef struct Struct_Version {
  BYTE major;
  BYTE minor;
} VERSION;

typedef struct Struct_DEVINFO {
  VERSION Version;
  CHAR Manufacturer[64];
  CHAR Issuer[64];
  CHAR Label[32];
  CHAR SerialNumber[32];
  VERSION HWVersion;
  VERSION FirmwareVersion;
  ULONG AlgSymCap;
  ULONG AlgAsymCap;
  ULONG AlgHashCap;
  ULONG DevAuthAlgId;
  ULONG TotalSpace;
  ULONG FreeSpace;
  ULONG MaxECCBufferSize;
  ULONG MaxBufferSize;
  BYTE Reserved[64];
} DEVINFO, *PDEVINFO;

typedef struct Struct_RSAPUBLICKEYBLOB {
  ULONG AlgID;
  ULONG BitLen;
  BYTE Modulus[MAX_RSA_MODULUS_LEN];
  BYTE PublicExponent[MAX_RSA_EXPONENT_LEN];
} RSAPUBLICKEYBLOB, *PRSAPUBLICKEYBLOB;

typedef struct Struct_RSAPRIVATEKEYBLOB {
  ULONG AlgID;
  ULONG BitLen;
  BYTE Modulus[MAX_RSA_MODULUS_LEN];
  BYTE PublicExponent[MAX_RSA_EXPONENT_LEN];
  BYTE PrivateExponent[MAX_RSA_MODULUS_LEN];
  BYTE Prime1[MAX_RSA_MODULUS_LEN / 2];
  BYTE Prime2[MAX_RSA_MODULUS_LEN / 2];
  BYTE Prime1Exponent[MAX_RSA_MODULUS_LEN / 2];
  BYTE Prime2Exponent[MAX_RSA_MODULUS_LEN / 2];
  BYTE Coefficient[MAX_RSA_MODULUS_LEN / 2];
} RSAPRIVATEKEYBLOB, *PRSAPRIVATEKEYBLOB;

typedef struct Struct_ECCPUBLICKEYBLOB {
  ULONG BitLen;
  BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
  BYTE YCoordinate[ECC_MAX_YCOORDINATE_BITS_LEN / 8];
} ECCPUBLICKEYBLOB, *PECCPUBLICKEYBLOB;

typedef struct Struct_ECCPRIVATEKEYBLOB {
  ULONG BitLen;
  BYTE PrivateKey[ECC_MAX_MODULUS_BITS_LEN / 8];
} ECCPRIVATEKEYBLOB, *PECCPRIVATEKEYBLOB;

typedef struct Struct_ECCCIPHERBLOB {
  BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
  BYTE YCoordinate[ECC_MAX_YCOORDINATE_BITS_LEN / 8];
  BYTE HASH[32];
  ULONG CipherLen;
  BYTE Cipher[1];
} ECCCIPHERBLOB, *PECCCIPHERBLOB;

typedef struct Struct_ECCSIGNATUREBLOB {
  BYTE r[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
  BYTE s[ECC_MAX_YCOORDINATE_BITS_LEN / 8];
} ECCSIGNATUREBLOB, *PECCSIGNATUREBLOB;

typedef struct Struct_BLOCKCIPHERPARAM {
  BYTE IV[MAX_IV_LEN];
  ULONG IVLen;
  ULONG PaddingType;
  ULONG FeedBitLen;
} BLOCKCIPHERPARAM, *PBLOCKCIPHERPARAM;

typedef struct SKF_ENVELOPEDKEYBLOB {
  ULONG Version;
  ULONG ulSymmAlgID;
  ULONG ulBits;
  BYTE cbEncryptedPriKey[64];
  ECCPUBLICKEYBLOB PubKey;
  ECCCIPHERBLOB ECCCipherBlob;
} ENVELOPEDKEYBLOB, *PENVELOPEDKEYBLOB;

typedef struct Struct_FILEATTRIBUTE {
  CHAR FileName[32];
  ULONG FileSize;
  ULONG ReadRights;
  ULONG WriteRights;
} FILEATTRIBUTE, *PFILEATTRIBUTE;

#pragma pack(pop)

#ifdef __cplusplus
#define SKF_STATIC_ASSERT static_assert
#else
#define SKF_STATIC_ASSERT _Static_assert
#endif
SKF_STATIC_ASSERT(sizeof(DEVINFO) == 294, "DEVINFO is 294 bytes");
SKF_STATIC_ASSERT(sizeof(RSAPUBLICKEYBLOB) == 268, "RSAPUBLICKEYBLOB is 268 bytes");
SKF_STATIC_ASSERT(sizeof(RSAPRIVATEKEYBLOB) == 1164, "RSAPRIVATEKEYBLOB is 1164 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPUBLICKEYBLOB) == 132, "ECCPUBLICKEYBLOB is 132 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPRIVATEKEYBLOB) == 68, "ECCPRIVATEKEYBLOB is 68 bytes");
SKF_STATIC_ASSERT(sizeof(ECCSIGNATUREBLOB) == 128, "ECCSIGNATUREBLOB is 128 bytes");
SKF_STATIC_ASSERT(sizeof(ECCCIPHERBLOB) == 165, "ECCCIPHERBLOB is 165 bytes");
SKF_STATIC_ASSERT(sizeof(ENVELOPEDKEYBLOB) == 373, "ENVELOPEDKEYBLOB is 373 bytes");
SKF_STATIC_ASSERT(sizeof(BLOCKCIPHERPARAM) == 44, "BLOCKCIPHERPARAM is 44 bytes");
SKF_STATIC_ASSERT(sizeof(FILEATTRIBUTE) == 44, "FILEATTRIBUTE is 44 bytes");
#undef SKF_STATIC_ASSERT

#ifndef SKF_API
#if defined(VORELSKF_BUILD) && !defined(_WIN32)
#define SKF_API __attribute__((visibility("default")))
#else
#define SKF_API
#endif
#endif

/* Device management */
SKF_API ULONG DEVAPI SKF_WaitForDevEvent(LPSTR szDevName, ULONG* pulDevNameLen, ULONG* pulEvent);
SKF_API ULONG DEVAPI SKF_CancelWaitForDevEvent(void);
SKF_API ULONG DEVAPI SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG* pulSize);
SKF_API ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE* phDev);
SKF_API ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev);
SKF_API ULONG DEVAPI SKF_GetDevState(LPSTR szDevName, ULONG* pulDevState);
SKF_API ULONG DEVAPI SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel);
SKF_API ULONG DEVAPI SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO* pDevInfo);
SKF_API ULONG DEVAPI SKF_LockDev(DEVHANDLE hDev, ULONG ulTimeOut);
SKF_API ULONG DEVAPI SKF_UnlockDev(DEVHANDLE hDev);
SKF_API ULONG DEVAPI SKF_Transmit(DEVHANDLE hDev, BYTE* pbCommand, ULONG ulCommandLen, BYTE* pbData,
                                  ULONG* pulDataLen);

/* Access control */
SKF_API ULONG DEVAPI SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE* pbKeyValue, ULONG ulKeyLen);
SKF_API ULONG DEVAPI SKF_DevAuth(DEVHANDLE hDev, BYTE* pbAuthData, ULONG ulLen);
SKF_API ULONG DEVAPI SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin,
                                   ULONG* pulRetryCount);
SKF_API ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG* pulMaxRetryCount,
                                    ULONG* pulRemainRetryCount, BOOL* pbDefaultPin);
SKF_API ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN, ULONG* pulRetryCount);
SKF_API ULONG DEVAPI SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN,
                                    ULONG* pulRetryCount);
SKF_API ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication);
SKF_API ULONG DEVAPI SKF_GetSecureState(HAPPLICATION hApplication, ULONG* pulState);

/* Applications */
SKF_API ULONG DEVAPI SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin,
                                           DWORD dwAdminPinRetryCount, LPSTR szUserPin, DWORD dwUserPinRetryCount,
                                           DWORD dwCreateFileRights, HAPPLICATION* phApplication);
SKF_API ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG* pulSize);
SKF_API ULONG DEVAPI SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName);
SKF_API ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION* phApplication);
SKF_API ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication);

/* Files */
SKF_API ULONG DEVAPI SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize,
                                    ULONG ulReadRights, ULONG ulWriteRights);
SKF_API ULONG DEVAPI SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName);
SKF_API ULONG DEVAPI SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG* pulSize);
SKF_API ULONG DEVAPI SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE* pFileInfo);
SKF_API ULONG DEVAPI SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, ULONG ulSize,
                                  BYTE* pbOutData, ULONG* pulOutLen);
SKF_API ULONG DEVAPI SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE* pbData,
                                   ULONG ulSize);

/* Containers and certificates */
SKF_API ULONG DEVAPI SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer);
SKF_API ULONG DEVAPI SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName);
SKF_API ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer);
SKF_API ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer);
SKF_API ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG* pulSize);
SKF_API ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG* pulContainerType);
SKF_API ULONG DEVAPI SKF_ImportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbCert, ULONG ulCertLen);
SKF_API ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbCert, ULONG* pulCertLen);

/* Cryptographic services */
SKF_API ULONG DEVAPI SKF_GenRandom(DEVHANDLE hDev, BYTE* pbRandom, ULONG ulRandomLen);
SKF_API ULONG DEVAPI SKF_GenExtRSAKey(DEVHANDLE hDev, ULONG ulBitsLen, RSAPRIVATEKEYBLOB* pBlob);
SKF_API ULONG DEVAPI SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB* pBlob);
SKF_API ULONG DEVAPI SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE* pbWrappedKey,
                                          ULONG ulWrappedKeyLen, BYTE* pbEncryptedData, ULONG ulEncryptedDataLen);
SKF_API ULONG DEVAPI SKF_RSASignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen, BYTE* pbSignature,
                                     ULONG* pulSignLen);
SKF_API ULONG DEVAPI SKF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB* pRSAPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                                   BYTE* pbSignature, ULONG ulSignLen);
SKF_API ULONG DEVAPI SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB* pPubKey,
                                             BYTE* pbData, ULONG* pulDataLen, HANDLE* phSessionKey);
SKF_API ULONG DEVAPI SKF_ExtRSAPubKeyOperation(DEVHANDLE hDev, RSAPUBLICKEYBLOB* pRSAPubKeyBlob, BYTE* pbInput,
                                               ULONG ulInputLen, BYTE* pbOutput, ULONG* pulOutputLen);
SKF_API ULONG DEVAPI SKF_ExtRSAPriKeyOperation(DEVHANDLE hDev, RSAPRIVATEKEYBLOB* pRSAPriKeyBlob, BYTE* pbInput,
                                               ULONG ulInputLen, BYTE* pbOutput, ULONG* pulOutputLen);
SKF_API ULONG DEVAPI SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pBlob);
SKF_API ULONG DEVAPI SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob);
SKF_API ULONG DEVAPI SKF_ECCSignData(HCONTAINER hContainer, BYTE* pbData, ULONG ulDataLen,
                                     PECCSIGNATUREBLOB pSignature);
SKF_API ULONG DEVAPI SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData, ULONG ulDataLen,
                                   PECCSIGNATUREBLOB pSignature);
SKF_API ULONG DEVAPI SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pPubKey,
                                             PECCCIPHERBLOB pData, HANDLE* phSessionKey);
SKF_API ULONG DEVAPI SKF_ExtECCEncrypt(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbPlainText,
                                       ULONG ulPlainTextLen, PECCCIPHERBLOB pCipherText);
SKF_API ULONG DEVAPI SKF_ExtECCDecrypt(DEVHANDLE hDev, ECCPRIVATEKEYBLOB* pECCPriKeyBlob, PECCCIPHERBLOB pCipherText,
                                       BYTE* pbPlainText, ULONG* pulPlainTextLen);
SKF_API ULONG DEVAPI SKF_ExtECCSign(DEVHANDLE hDev, ECCPRIVATEKEYBLOB* pECCPriKeyBlob, BYTE* pbData, ULONG ulDataLen,
                                    PECCSIGNATUREBLOB pSignature);
SKF_API ULONG DEVAPI SKF_ExtECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB* pECCPubKeyBlob, BYTE* pbData,
                                      ULONG ulDataLen, PECCSIGNATUREBLOB pSignature);
SKF_API ULONG DEVAPI SKF_GenerateAgreementDataWithECC(HCONTAINER hContainer, ULONG ulAlgId,
                                                      ECCPUBLICKEYBLOB* pTempECCPubKeyBlob, BYTE* pbID,
                                                      ULONG ulIDLen, HANDLE* phAgreementHandle);
SKF_API ULONG DEVAPI SKF_GenerateAgreementDataAndKeyWithECC(
    HANDLE hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB* pSponsorECCPubKeyBlob,
    ECCPUBLICKEYBLOB* pSponsorTempECCPubKeyBlob, ECCPUBLICKEYBLOB* pTempECCPubKeyBlob, BYTE* pbID, ULONG ulIDLen,
    BYTE* pbSponsorID, ULONG ulSponsorIDLen, HANDLE* phKeyHandle);
SKF_API ULONG DEVAPI SKF_GenerateKeyWithECC(HANDLE hAgreementHandle, ECCPUBLICKEYBLOB* pECCPubKeyBlob,
                                            ECCPUBLICKEYBLOB* pTempECCPubKeyBlob, BYTE* pbID, ULONG ulIDLen,
                                            HANDLE* phKeyHandle);
SKF_API ULONG DEVAPI SKF_ExportPublicKey(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbBlob, ULONG* pulBlobLen);
SKF_API ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE* pbWrapedData,
                                          ULONG ulWrapedLen, HANDLE* phKey);
SKF_API ULONG DEVAPI SKF_SetSymmKey(DEVHANDLE hDev, BYTE* pbKey, ULONG ulAlgID, HANDLE* phKey);
SKF_API ULONG DEVAPI SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam);
SKF_API ULONG DEVAPI SKF_Encrypt(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData,
                                 ULONG* pulEncryptedLen);
SKF_API ULONG DEVAPI SKF_EncryptUpdate(HANDLE hKey, BYTE* pbData, ULONG ulDataLen, BYTE* pbEncryptedData,
                                       ULONG* pulEncryptedLen);
SKF_API ULONG DEVAPI SKF_EncryptFinal(HANDLE hKey, BYTE* pbEncryptedData, ULONG* pulEncryptedDataLen);
SKF_API ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam);
SKF_API ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData,
                                 ULONG* pulDataLen);
SKF_API ULONG DEVAPI SKF_DecryptUpdate(HANDLE hKey, BYTE* pbEncryptedData, ULONG ulEncryptedLen, BYTE* pbData,
                                       ULONG* pulDataLen);
SKF_API ULONG DEVAPI SKF_DecryptFinal(HANDLE hKey, BYTE* pbDecryptedData, ULONG* pulDecryptedDataLen);
SKF_API ULONG DEVAPI SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB* pPubKey, unsigned char* pucID,
                                    ULONG ulIDLen, HANDLE* phHash);
SKF_API ULONG DEVAPI SKF_Digest(HANDLE hHash, BYTE* pbData, ULONG ulDataLen, BYTE* pbHashData, ULONG* pulHashLen);
SKF_API ULONG DEVAPI SKF_DigestUpdate(HANDLE hHash, BYTE* pbData, ULONG ulDataLen);
SKF_API ULONG DEVAPI SKF_DigestFinal(HANDLE hHash, BYTE* pHashData, ULONG* pulHashLen);
SKF_API ULONG DEVAPI SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM* pMacParam, HANDLE* phMac);
SKF_API ULONG DEVAPI SKF_Mac(HANDLE hMac, BYTE* pbData, ULONG ulDataLen, BYTE* pbMacData, ULONG* pulMacLen);
SKF_API ULONG DEVAPI SKF_MacUpdate(HANDLE hMac, BYTE* pbData, ULONG ulDataLen);
SKF_API ULONG DEVAPI SKF_MacFinal(HANDLE hMac, BYTE* pbMacData, ULONG* pulMacDataLen);
SKF_API ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle);

/* Private-key decryption with a container key (not in the standard, offered by every vendor in some form) */
SKF_API ULONG DEVAPI SKF_ECCDecrypt(HCONTAINER hContainer, BOOL bSignFlag, PECCCIPHERBLOB pCipherText, BYTE* pbData,
                                    ULONG* pdwDataLen);
SKF_API ULONG DEVAPI SKF_RSADecrypt(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbInput, ULONG ulInputLen,
                                    BYTE* pbOutput, ULONG* pulOutputLen);

/* vorelskf extensions */
SKF_API ULONG DEVAPI SKFEX_ECCDecrypt(HCONTAINER hContainer, int32_t keySpec, PECCCIPHERBLOB pCipherText,
                                      BYTE* pbData, ULONG* pulDataLen);
SKF_API ULONG DEVAPI SKFEX_RSADecrypt(HCONTAINER hContainer, BYTE* pbInput, ULONG ulInputLen, BYTE* pbOutput,
                                      ULONG* pulOutputLen, int32_t keySpec);
SKF_API ULONG DEVAPI SKF_LoadConfigurationWithPath(LPSTR path);
SKF_API ULONG DEVAPI SKF_LoadConfigurationWithContent(LPSTR content);

#ifdef __cplusplus
}
#endif

#endif
