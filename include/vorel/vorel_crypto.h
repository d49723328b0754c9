/* vorelcrypto: the PKI crypto library under the emulated SKF route.
 *
 * Conventions
 * - Functions return 1 (VOREL_OK) on success and a negative VOREL_ERR_* code on failure;
 *   functions returning an object return NULL on failure. Either way the code is kept per
 *   thread for VorelPKIGetLastError.
 * - Buffers and texts handed out by the library are freed with VorelPKICryptoFreeMemory;
 *   objects with their own Free function.
 * - Numbers are unsigned big-endian byte strings. Encoded keys and signatures are DER:
 *   SubjectPublicKeyInfo for public keys, PKCS#8 PrivateKeyInfo for key pairs (PKCS#1
 *   RSAPrivateKey and SEC1 ECPrivateKey are accepted too), SEQUENCE { r, s } for SM2
 *   signatures. */
#ifndef VOREL_CRYPTO_H
#define VOREL_CRYPTO_H

#include <stddef.h>

#include "vorel_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes */
#define VOREL_OK 1
#define VOREL_ERR_GENERAL (-1)         /* the cryptographic implementation failed */
#define VOREL_ERR_PARAM (-2)           /* a null or out-of-range argument, or a finished object */
#define VOREL_ERR_MEMORY (-3)          /* allocation failed */
#define VOREL_ERR_NOT_SUPPORTED (-4)   /* algorithm, mechanism, curve or format not offered */
#define VOREL_ERR_PIN_INCORRECT (-5)   /* wrong PIN; the remaining tries are reported */
#define VOREL_ERR_BUFFER_SMALL (-6)    /* output buffer too small */
#define VOREL_ERR_NOT_FOUND (-7)       /* object does not exist */
#define VOREL_ERR_NOT_LOGGED_IN (-8)   /* private-key operation without login */
#define VOREL_ERR_BAD_SIGNATURE (-9)   /* the signature does not verify */
#define VOREL_ERR_BAD_ENCODING (-10)   /* malformed DER, certificate or key value */
#define VOREL_ERR_DECRYPT (-11)        /* ciphertext rejected: padding or integrity check */
#define VOREL_ERR_DATA_LEN (-12)       /* input length not allowed for the key or mechanism */
#define VOREL_ERR_NOT_EXPORTABLE (-13) /* the private key may not leave its device */
#define VOREL_ERR_KEY_MISMATCH (-14)   /* the certificate carries another public key */
#define VOREL_ERR_DEVICE_REMOVED (-15) /* the token no longer exists in the token folder */
#define VOREL_ERR_TOKEN_DAMAGED (-16)  /* the token file cannot be read as a token */
#define VOREL_ERR_EXISTS (-17)         /* a token or data object of that name already exists */
#define VOREL_ERR_STORE (-18)          /* the token folder or file cannot be written */
#define VOREL_ERR_PIN_LEN_RANGE (-19)  /* PIN length out of range */

/* Device types: 0 is the in-memory pseudo device; software tokens take any type from 1 up. */
#define VOREL_DEVICE_PSEUDO 0

/* Flags of VorelPKICryptoGetAllDevices / VorelPKICryptoFindDevice: which devices to list */
#define VOREL_ENUM_TOKENS 0x001   /* software tokens in the token folder */
#define VOREL_ENUM_HARDWARE 0x100 /* tokens behind hardware readers: this library drives none */

/* Passwords */
#define VOREL_PWD_USER 1
#define VOREL_PWD_SO 2
#define VOREL_PIN_MIN_LEN 4 /* bytes */
#define VOREL_PIN_MAX_LEN 64
#define VOREL_PIN_MAX_TRIES 6

/* Data-object access descriptor: four bytes, who may [0] read, [1] write, [2] see (length and
 * existence), [3] delete the object; each byte a combination of these. 0 means nobody. */
#define VOREL_ACCESS_USER 0x01   /* after the user PIN was verified in this process */
#define VOREL_ACCESS_SO 0x02     /* after the SO PIN was verified in this process */
#define VOREL_ACCESS_ANYONE 0x04 /* without login */
#define VOREL_DATA_MAX_SIZE (1u << 20)

/* Limits of token names, in bytes */
#define VOREL_SERIAL_MAX_LEN 31 /* letters, digits, '-' and '_' */
#define VOREL_LABEL_MAX_LEN 31
#define VOREL_KEYPAIR_LABEL_MAX_LEN 128

/* Key-pair algorithms */
#define VOREL_ALG_RSA 1
#define VOREL_ALG_SM2 4

/* Curves */
#define VOREL_CURVE_SM2 7 /* sm2p256v1, GM/T 0003.5 */

/* Key-pair types (the use a key pair was made for) */
#define VOREL_KEYPAIR_ENCRYPT 1
#define VOREL_KEYPAIR_SIGN 2

/* Mechanisms of SignHash / VerifyHash / PublicKeyEncrypt / PrivateKeyDecrypt */
#define VOREL_MECH_RSA_PKCS1 16        /* RSA PKCS#1 v1.5 encryption (block type 2) */
#define VOREL_MECH_SM2_SIGN 25         /* SM2 signature of a given 32-byte value e */
#define VOREL_MECH_RSA_PKCS1_SIGN 32   /* PKCS#1 v1.5 block type 1 over the given bytes, no hashing */
#define VOREL_MECH_RSA_RAW 48          /* raw RSA, no padding */
#define VOREL_MECH_SM2_ENCRYPT 64      /* SM2 encryption; ciphertext 04 || x || y || C2 || C3 */
#define VOREL_MECH_SM2_SM3_SIGN 0x1000 /* SM2 over a message: e = SM3(Z || M), default identity */

/* Hash identifiers */
#define VOREL_HASH_SHA1 0x2000
#define VOREL_HASH_SHA256 0x4000
#define VOREL_HASH_SM3 0x7000

/* Cipher identifiers */
#define VOREL_CIPHER_DES_ECB 0x400000
#define VOREL_CIPHER_DES_CBC 0x800000
#define VOREL_CIPHER_3DES_ECB 0xC00000 /* 16-byte key: two-key, 24-byte key: three-key */
#define VOREL_CIPHER_3DES_CBC 0x1000000
#define VOREL_CIPHER_AES128_ECB 0x2400000
#define VOREL_CIPHER_AES128_CBC 0x2800000
#define VOREL_CIPHER_SSF33_ECB 0x3000000 /* hardware only: never supported in software */
#define VOREL_CIPHER_SSF33_CBC 0x3400000
#define VOREL_CIPHER_SM1_ECB 0x3C00000 /* hardware only: never supported in software */
#define VOREL_CIPHER_SM1_CBC 0x4000000
#define VOREL_CIPHER_SM4_ECB 0x4800000
#define VOREL_CIPHER_SM4_CBC 0x4C00000

/* Cipher padding modes */
#define VOREL_PADDING_NONE 1
#define VOREL_PADDING_PKCS7 2

/* Usages asked of VorelPKICryptoIsSupportedAlgorithm */
#define VOREL_USAGE_ENCRYPT 1
#define VOREL_USAGE_DECRYPT 2
#define VOREL_USAGE_WRAP 3
#define VOREL_USAGE_UNWRAP 4
#define VOREL_USAGE_SIGN 5
#define VOREL_USAGE_VERIFY 6

/* Certificates */
#define VOREL_CERT_ENCODING_DER 1
#define VOREL_CERT_PUBLIC_KEY 0x10000002 /* the subject public key as a public-key object */
#define VOREL_CERT_ATTR_NOT_BEFORE 30    /* "YYYYMMDDHHMMSSZ" */
#define VOREL_CERT_ATTR_NOT_AFTER 31     /* "YYYYMMDDHHMMSSZ" */
#define VOREL_CERT_ATTR_ISSUER 50        /* RFC 2253 text */
#define VOREL_CERT_ATTR_SERIAL 51        /* upper-case hexadecimal */
#define VOREL_CERT_ATTR_SUBJECT 52       /* RFC 2253 text */

/* Indexes of the eight numbers of an RSA key pair (PKCS#1 order) */
#define VOREL_RSA_N 0
#define VOREL_RSA_E 1
#define VOREL_RSA_D 2
#define VOREL_RSA_P 3
#define VOREL_RSA_Q 4
#define VOREL_RSA_DP 5
#define VOREL_RSA_DQ 6
#define VOREL_RSA_QINV 7
#define VOREL_RSA_NUMBERS 8

typedef struct vorel_device_st VOREL_DEVICE;
typedef struct vorel_device_list_st VOREL_DEVICE_LIST;
typedef struct vorel_keypair_st VOREL_KEYPAIR;
typedef struct vorel_publickey_st VOREL_PUBLICKEY;
typedef struct vorel_cert_st VOREL_CERT;
typedef struct vorel_hash_st VOREL_HASH;
typedef struct vorel_cipher_st VOREL_CIPHER;

/* An SM2 signer identity: bits is its length in bits, a multiple of 8 below 65536. */
typedef struct {
  const unsigned char* data;
  size_t bits;
} VOREL_SM2_ID;

/* ---- Library ---- */

/* Name of the cryptographic implementation underneath: "openssl" or "libgcrypt". */
const char* VorelPKICryptoImplementation(void);
/* Last result code of this thread. */
int VorelPKIGetLastError(void);
/* Frees a buffer the library handed out; accepts NULL. */
void VorelPKICryptoFreeMemory(void* ptr);

/* ---- Devices ---- */

/* Releases what the library keeps for the whole process: every token's login state (wiping
 * its keys) and the implementation's context. For the unloading of a module that holds the
 * library: no object of the library may be used after it, and a later call sets the library up
 * afresh. */
void VorelPKICryptoCleanup(void);
/* The process-wide pseudo device. Each call returns a new reference. */
int VorelPKICryptoGetPseudoDevice(VOREL_DEVICE** device);
/* Another reference to the same device. */
int VorelPKICryptoDupDevice(VOREL_DEVICE* device, VOREL_DEVICE** copy);
/* Releases one reference; accepts NULL. */
void VorelPKICryptoFreeDevice(VOREL_DEVICE* device);
/* 1 when the device offers alg (a cipher, mechanism, hash or key-pair algorithm) with keys of
 * bits for usage, else 0. param: the IV for ciphers (may be NULL), for VOREL_MECH_SM2_ENCRYPT
 * a pointer to the int hash identifier of C3 (NULL or VOREL_HASH_SM3), otherwise NULL. */
int VorelPKICryptoIsSupportedAlgorithm(VOREL_DEVICE* device, int alg, int bits, int usage, const void* param);
/* Fills out with len random bytes from the implementation's CSPRNG. */
int VorelPKICryptoGenerateRandom(VOREL_DEVICE* device, size_t len, unsigned char* out);

/* The devices of a type, in a stable order (tokens by serial number). Type 0 lists the pseudo
 * device. NULL on failure; an empty list is a list. Reads only the head of each token file, so
 * its cost does not grow with what tokens hold; a damaged token is found at its first use. */
VOREL_DEVICE_LIST* VorelPKICryptoGetAllDevices(int type, int flags);
int VorelPKICryptoGetDeviceCount(VOREL_DEVICE_LIST* list);
/* A new device reference (freed with VorelPKICryptoFreeDevice), or NULL for a bad index. */
VOREL_DEVICE* VorelPKICryptoGetDevice(VOREL_DEVICE_LIST* list, int index);
void VorelPKICryptoFreeDevices(VOREL_DEVICE_LIST* list);
/* The device of a type with that serial number; VOREL_ERR_NOT_FOUND when there is none. */
int VorelPKICryptoFindDevice(int type, const char* serial, int flags, VOREL_DEVICE** device);
/* Device type, or -1. */
int VorelPKICryptoGetDeviceType(VOREL_DEVICE* device);
/* A token's serial number is its name: answered without reading the token. */
int VorelPKICryptoGetSerialNumber(VOREL_DEVICE* device, char** serial);
int VorelPKICryptoGetLabel(VOREL_DEVICE* device, char** label);

/* ---- Software tokens ----
 * Kept in the folder named by VOREL_TOKEN_DIR, else <user data folder>/vorel/tokens.
 * serial NULL: one is generated. iterations: of the PIN key derivation, 0 for the default. */
int VorelPKICryptoCreateToken(int type, const char* serial, const char* label, const char* soPin, const char* userPin,
                              unsigned iterations, VOREL_DEVICE** device);
/* Removes the token from the folder; needs the SO PIN verified in this process. */
int VorelPKICryptoDeleteToken(VOREL_DEVICE* device);
/* What a caller should log about the token folder: VOREL_OK with *text NULL when there is
 * nothing to say, else VOREL_OK and a text (freed with VorelPKICryptoFreeMemory) such as the
 * folder and its mode when other users may reach it (group or other permission bits, as SSH
 * warns for its keys). On Windows *text is always NULL. */
int VorelPKICryptoGetStoreWarning(char** text);

/* ---- Passwords (VOREL_PWD_USER, VOREL_PWD_SO) ----
 * Every attempt first logs the token out in this process. A wrong PIN answers
 * VOREL_ERR_PIN_INCORRECT with the remaining tries in *retries; a PIN with no tries left is
 * refused even when right. */
int VorelPKICryptoVerifyPwd(VOREL_DEVICE* device, int type, const char* pin, unsigned* retries);
int VorelPKICryptoChangePwd(VOREL_DEVICE* device, int type, const char* oldPin, const char* newPin, unsigned* retries);
/* With the SO PIN, sets a new user PIN and gives it all its tries back (type VOREL_PWD_USER).
 * On a wrong SO PIN *retries holds the SO PIN's remaining tries. */
int VorelPKICryptoUnlockPwd(VOREL_DEVICE* device, int type, const char* soPin, const char* newUserPin,
                            unsigned* retries);
int VorelPKICryptoGetPwdRetryNum(VOREL_DEVICE* device, int type, unsigned* retries);
/* Logs the token out in this process and wipes what the login kept. */
int VorelPKICryptoClearPwdCache(VOREL_DEVICE* device);

/* Keeps the device's token locked, across processes, for the calling thread until
 * VorelPKICryptoUnlockDevice: a sequence of data-object calls is then one step for every other
 * thread and process. Holds nest. No password call may run inside a hold. The pseudo device has
 * nothing to lock. VOREL_ERR_STORE when the lock cannot be had; unlocking without a hold of this
 * thread answers VOREL_ERR_PARAM. */
int VorelPKICryptoLockDevice(VOREL_DEVICE* device);
int VorelPKICryptoUnlockDevice(VOREL_DEVICE* device);

/* ---- Data objects ---- */

int VorelPKICryptoCreateData(VOREL_DEVICE* device, unsigned id, const unsigned char access[4], size_t size);
/* The whole object; VOREL_ERR_BUFFER_SMALL with *outLen set when bufLen is below its size. */
int VorelPKICryptoReadData(VOREL_DEVICE* device, unsigned id, unsigned char* buf, size_t bufLen, size_t* outLen);
/* len bytes from offset; VOREL_ERR_DATA_LEN when the range passes the object's end. */
int VorelPKICryptoReadDataEx(VOREL_DEVICE* device, unsigned id, size_t offset, unsigned char* buf, size_t len,
                             size_t* outLen);
/* Writes from the start; the object's size is fixed when it is created. */
int VorelPKICryptoWriteData(VOREL_DEVICE* device, unsigned id, const unsigned char* data, size_t len);
int VorelPKICryptoWriteDataEx(VOREL_DEVICE* device, unsigned id, size_t offset, const unsigned char* data, size_t len);
int VorelPKICryptoDeleteData(VOREL_DEVICE* device, unsigned id);
int VorelPKICryptoGetDataLength(VOREL_DEVICE* device, unsigned id, size_t* len);

/* ---- Key pairs ---- */

/* Key pairs stored on a device, in creation order (the pseudo device stores none). */
int VorelPKICryptoGetKeypairCount(VOREL_DEVICE* device);
VOREL_KEYPAIR* VorelPKICryptoGetKeypair(VOREL_DEVICE* device, int index);

/* alg VOREL_ALG_RSA with bits 1024, 2048, 3072 or 4096 and param the public exponent
 * (0: 65537); alg VOREL_ALG_SM2 with bits 256 and param 0 or VOREL_CURVE_SM2.
 * type is VOREL_KEYPAIR_SIGN or VOREL_KEYPAIR_ENCRYPT. */
int VorelPKICryptoGenerateKeypair(VOREL_DEVICE* device, int alg, int bits, int param, int type,
                                  VOREL_KEYPAIR** keypair);
/* From an encoded key pair (PKCS#8, PKCS#1 or SEC1 DER). */
int VorelPKICryptoImportKeypair(VOREL_DEVICE* device, const unsigned char* der, size_t derLen, int type,
                                VOREL_KEYPAIR** keypair);
/* PKCS#8 DER of a pseudo-device key pair; token key pairs answer VOREL_ERR_NOT_EXPORTABLE.
 * On a token, generating, importing and deleting key pairs and changing their labels and
 * certificates need the user PIN verified in this process, as do their private-key
 * operations (VOREL_ERR_NOT_LOGGED_IN otherwise). */
int VorelPKICryptoExportKeypair(VOREL_KEYPAIR* keypair, unsigned char** der, size_t* derLen);
/* Another reference to the same key pair. */
int VorelPKICryptoDupKeypair(VOREL_KEYPAIR* keypair, VOREL_KEYPAIR** copy);
/* Releases one reference; accepts NULL. */
void VorelPKICryptoFreeKeypair(VOREL_KEYPAIR* keypair);
/* Removes the key pair from its device; the object stays to be freed. */
int VorelPKICryptoDeleteKeypair(VOREL_KEYPAIR* keypair);
/* Type, algorithm and bit length, or -1 on failure. */
int VorelPKICryptoGetKeypairType(VOREL_KEYPAIR* keypair);
int VorelPKICryptoGetKeypairAlgorithm(VOREL_KEYPAIR* keypair);
int VorelPKICryptoGetKeypairBits(VOREL_KEYPAIR* keypair);
/* The label as a zero-terminated text ("" when none was set). */
int VorelPKICryptoGetKeypairLabel(VOREL_KEYPAIR* keypair, char** label);
int VorelPKICryptoSetKeypairLabel(VOREL_KEYPAIR* keypair, const char* label);

/* ---- Public keys ---- */

VOREL_PUBLICKEY* VorelPKICryptoGetPublicKeyFromKeypair(VOREL_KEYPAIR* keypair);
/* From SubjectPublicKeyInfo DER (or a bare PKCS#1 RSAPublicKey). */
int VorelPKICryptoImportPublicKey(VOREL_DEVICE* device, const unsigned char* der, size_t derLen,
                                  VOREL_PUBLICKEY** publicKey);
/* SubjectPublicKeyInfo DER. */
int VorelPKICryptoExportPublicKey(VOREL_PUBLICKEY* publicKey, unsigned char** der, size_t* derLen);
void VorelPKICryptoFreePublicKey(VOREL_PUBLICKEY* publicKey);
/* 1 when both are the same key, 0 when not, negative on error. */
int VorelPKICryptoPublicKeyEqual(VOREL_PUBLICKEY* a, VOREL_PUBLICKEY* b);

/* ---- Encodings ---- */

/* SubjectPublicKeyInfo of an SM2 point; x and y of at most 32 significant bytes. */
int VorelPKICryptoEncodeECCPubKey(int curve, const unsigned char* x, size_t xLen, const unsigned char* y, size_t yLen,
                                  unsigned char** der, size_t* derLen);
/* x and y come out as 32 bytes each. */
int VorelPKICryptoDecodeECCPubKey(const unsigned char* der, size_t derLen, int* curve, unsigned char** x, size_t* xLen,
                                  unsigned char** y, size_t* yLen);
/* PKCS#8 of an SM2 key pair; x and y may both be NULL (the point is then left out). */
int VorelPKICryptoEncodeECCKeyPair(int curve, const unsigned char* x, size_t xLen, const unsigned char* y, size_t yLen,
                                   const unsigned char* d, size_t dLen, unsigned char** der, size_t* derLen);
int VorelPKICryptoEncodeECCSignature(const unsigned char* r, size_t rLen, const unsigned char* s, size_t sLen,
                                     unsigned char** der, size_t* derLen);
/* r and s without leading zero bytes. */
int VorelPKICryptoDecodeECCSignature(const unsigned char* der, size_t derLen, unsigned char** r, size_t* rLen,
                                     unsigned char** s, size_t* sLen);
/* The DER SM2 ciphertext that openssl reads and writes, SEQUENCE { x, y INTEGER, C3 OCTET STRING
 * (32 bytes), C2 OCTET STRING }, from the form VOREL_MECH_SM2_ENCRYPT gives
 * (04 || x || y || C2 || C3, at least 98 bytes), and back. */
int VorelPKICryptoEncodeSM2Cipher(const unsigned char* raw, size_t rawLen, unsigned char** der, size_t* derLen);
int VorelPKICryptoDecodeSM2Cipher(const unsigned char* der, size_t derLen, unsigned char** raw, size_t* rawLen);
/* SubjectPublicKeyInfo of an RSA key. */
int VorelPKICryptoEncodeRSAPubKey(const unsigned char* n, size_t nLen, const unsigned char* e, size_t eLen,
                                  unsigned char** der, size_t* derLen);
/* n and e without leading zero bytes. */
int VorelPKICryptoDecodeRSAPubKey(const unsigned char* der, size_t derLen, unsigned char** n, size_t* nLen,
                                  unsigned char** e, size_t* eLen);
/* PKCS#8 of an RSA key pair from its eight numbers, indexed by VOREL_RSA_*. */
int VorelPKICryptoEncodeRSAKeyPair(const unsigned char* const numbers[VOREL_RSA_NUMBERS],
                                   const size_t lengths[VOREL_RSA_NUMBERS], unsigned char** der, size_t* derLen);
/* The eight numbers, each freed with VorelPKICryptoFreeMemory. */
int VorelPKICryptoDecodeRSAKeyPair(const unsigned char* der, size_t derLen, unsigned char* numbers[VOREL_RSA_NUMBERS],
                                   size_t lengths[VOREL_RSA_NUMBERS]);

/* ---- Signatures and public-key encryption ----
 * param is NULL for every mechanism except VOREL_MECH_SM2_ENCRYPT, where it may point to
 * the int hash identifier of C3 (VOREL_HASH_SM3 only). Signatures of SM2 are DER; of RSA
 * the modulus length. */
int VorelPKICryptoSignHash(VOREL_KEYPAIR* keypair, int mechanism, const void* param, const unsigned char* data,
                           size_t dataLen, unsigned char** signature, size_t* signatureLen);
/* 1 when the signature verifies, VOREL_ERR_BAD_SIGNATURE when it does not. */
int VorelPKICryptoVerifyHash(VOREL_PUBLICKEY* publicKey, int mechanism, const void* param, const unsigned char* data,
                             size_t dataLen, const unsigned char* signature, size_t signatureLen);
int VorelPKICryptoPublicKeyEncrypt(VOREL_PUBLICKEY* publicKey, int mechanism, const void* param,
                                   const unsigned char* in, size_t inLen, unsigned char** out, size_t* outLen);
int VorelPKICryptoPrivateKeyDecrypt(VOREL_KEYPAIR* keypair, int mechanism, const void* param, const unsigned char* in,
                                    size_t inLen, unsigned char** out, size_t* outLen);
/* Z = H(ENTL || ID || a || b || xG || yG || xA || yA) of an SM2 public key (hash: VOREL_HASH_SM3). */
int VorelPKIComputeSM2Z(VOREL_PUBLICKEY* publicKey, int hashAlg, const VOREL_SM2_ID* id, unsigned char** z,
                        size_t* zLen);

/* ---- Hashes ---- */

VOREL_HASH* VorelPKICryptoNewHash(VOREL_DEVICE* device, int alg);
/* Digest length in bytes, or -1. */
int VorelPKICryptoGetHashLength(VOREL_HASH* hash);
int VorelPKICryptoHashUpdate(VOREL_HASH* hash, const unsigned char* data, size_t len);
/* The digest; a hash is finished once. */
int VorelPKICryptoHashFinal(VOREL_HASH* hash, unsigned char** out, size_t* outLen);
void VorelPKICryptoFreeHash(VOREL_HASH* hash);

/* ---- Ciphers ----
 * encrypt: 1 to encrypt, 0 to decrypt. key: 16 bytes (SM4, AES-128), 8 or more (DES: the first
 * 8 are used), 16 or 24 (3DES). iv: one block, read for CBC only. Padding starts as
 * VOREL_PADDING_NONE. */
VOREL_CIPHER* VorelPKICryptoNewCipher(VOREL_DEVICE* device, int encrypt, int alg, const unsigned char* key,
                                      size_t keyLen, const unsigned char* iv);
int VorelPKICryptoCipherSetPadding(VOREL_CIPHER* cipher, int mode);
/* Whole blocks out; an incomplete block, and when decrypting with padding the last full block,
 * are held back for the next call. */
int VorelPKICryptoCipherUpdate(VOREL_CIPHER* cipher, const unsigned char* in, size_t inLen, unsigned char** out,
                               size_t* outLen);
/* The rest: at most one block. Without padding the input must have been whole blocks. */
int VorelPKICryptoCipherFinal(VOREL_CIPHER* cipher, unsigned char** out, size_t* outLen);
/* Releases a cipher object; accepts NULL. */
void VorelPKICryptoFreeCipher(VOREL_CIPHER* cipher);

/* ---- Certificates ---- */

/* Parses a DER X.509 certificate. */
VOREL_CERT* VorelPKICertNewCert(const unsigned char* der, size_t derLen);
void VorelPKICertFreeCert(VOREL_CERT* cert);
int VorelPKICertGetCertEncode(VOREL_CERT* cert, int encoding, unsigned char** out, size_t* outLen);
int VorelPKICertGetCertPublicKey(VOREL_CERT* cert, int what, VOREL_PUBLICKEY** publicKey);
/* A VOREL_CERT_ATTR_* value as zero-terminated text. */
int VorelPKICertGetCertStringAttribute(VOREL_CERT* cert, int attribute, char** text);

/* The certificate kept with a key pair (index 0; VOREL_ERR_NOT_FOUND when there is none). */
int VorelPKICryptoGetCertificate(VOREL_KEYPAIR* keypair, int index, VOREL_CERT** cert);
/* Keeps cert with the key pair, replacing any earlier one; its public key must be the pair's. */
int VorelPKICryptoUpdateCertificate(VOREL_KEYPAIR* keypair, VOREL_CERT* cert);

#ifdef __cplusplus
}
#endif

#endif
