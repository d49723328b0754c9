/* vorelcrypto: the PKI crypto library under the emulated SKF route.
 *
 * Conventions: functions return 1 on success and a negative VOREL_ERR_* code
 * on failure; the last code is also kept per thread (VorelPKIGetLastError).
 * Buffers handed out by the library are freed with VorelPKICryptoFreeMemory. */
#ifndef VOREL_CRYPTO_H
#define VOREL_CRYPTO_H

#include <stddef.h>

#include "vorel_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes */
#define VOREL_OK 1
#define VOREL_ERR_GENERAL (-1)        /* the cryptographic implementation failed */
#define VOREL_ERR_PARAM (-2)          /* a null or out-of-range argument */
#define VOREL_ERR_MEMORY (-3)         /* allocation failed */
#define VOREL_ERR_NOT_SUPPORTED (-4)  /* algorithm or mechanism not offered */
#define VOREL_ERR_PIN_INCORRECT (-5)  /* wrong PIN; the remaining tries are reported */
#define VOREL_ERR_BUFFER_SMALL (-6)   /* output buffer too small */
#define VOREL_ERR_NOT_FOUND (-7)      /* object does not exist */
#define VOREL_ERR_NOT_LOGGED_IN (-8)  /* private-key operation without login */
#define VOREL_ERR_PIN_LEN_RANGE (-19) /* PIN length out of range */

/* Device types */
#define VOREL_DEVICE_PSEUDO 0 /* the in-memory software device */

typedef struct vorel_device_st VOREL_DEVICE;
typedef struct vorel_hash_st VOREL_HASH;
typedef struct vorel_cipher_st VOREL_CIPHER;

/* Name of the cryptographic implementation underneath: "openssl" or "libgcrypt". */
const char* VorelPKICryptoImplementation(void);

/* Last result code of this thread. */
int VorelPKIGetLastError(void);

/* Frees a buffer the library handed out; accepts NULL. */
void VorelPKICryptoFreeMemory(void* ptr);

/* The process-wide pseudo device. Each call returns a new reference, released
 * with VorelPKICryptoFreeDevice. */
int VorelPKICryptoGetPseudoDevice(VOREL_DEVICE** device);
/* Another reference to the same device. */
int VorelPKICryptoDupDevice(VOREL_DEVICE* device, VOREL_DEVICE** copy);
/* Releases one reference; accepts NULL. */
void VorelPKICryptoFreeDevice(VOREL_DEVICE* device);

/* Fills out with len random bytes from the implementation's CSPRNG. */
int VorelPKICryptoGenerateRandom(VOREL_DEVICE* device, size_t len, unsigned char* out);

/* Hash identifiers */
#define VOREL_HASH_SHA1 0x2000
#define VOREL_HASH_SHA256 0x4000
#define VOREL_HASH_SM3 0x7000

/* Digest length in bytes of a hash identifier, or VOREL_ERR_NOT_SUPPORTED. */
int VorelPKICryptoGetHashLength(int alg);
int VorelPKICryptoNewHash(VOREL_DEVICE* device, int alg, VOREL_HASH** hash);
int VorelPKICryptoHashUpdate(VOREL_HASH* hash, const unsigned char* data, size_t len);
/* With out NULL, *outLen receives the digest length. A hash is finished once. */
int VorelPKICryptoHashFinal(VOREL_HASH* hash, unsigned char* out, size_t* outLen);
void VorelPKICryptoFreeHash(VOREL_HASH* hash);

/* Releases a cipher object; accepts NULL. */
void VorelPKICryptoFreeCipher(VOREL_CIPHER* cipher);

#ifdef __cplusplus
}
#endif

#endif
