// The SKF symmetric algorithms, once: every SGD identifier with the crypto library's cipher, its
// key and block sizes and its name. Session keys, ciphers, MACs, DEVINFO capabilities and skftool
// read this table; a new algorithm is one row.
#pragma once

#include <cstdint>

#include "skf.h"
#include "vorel/vorel_crypto.h"

namespace vorel {

struct SymmetricAlgorithm {
  ULONG sgd;          // the SGD identifier, also its bits in DEVINFO.AlgSymCap
  int vorel;          // the crypto library's cipher
  uint32_t keyLen;    // bytes of a session key (three-key 3DES CBC is the only 24-byte key)
  uint32_t keyBits;   // the key size the crypto library is asked about
  uint32_t blockLen;  // bytes of a block
  bool needsIv;       // an init without IVLen is refused (DES CBC is left out of that test)
  bool macs;          // may key a MAC
  bool probed;        // offered only where the device answers for it both ways (SM1, SSF33)
  const char* name;
};

inline constexpr SymmetricAlgorithm kSymmetricAlgorithms[] = {
    {SGD_SM1_ECB, VOREL_CIPHER_SM1_ECB, 16, 128, 16, false, false, true, "SM1-ECB"},
    {SGD_SM1_CBC, VOREL_CIPHER_SM1_CBC, 16, 128, 16, true, true, true, "SM1-CBC"},
    {SGD_SSF33_ECB, VOREL_CIPHER_SSF33_ECB, 16, 128, 16, false, false, true, "SSF33-ECB"},
    {SGD_SSF33_CBC, VOREL_CIPHER_SSF33_CBC, 16, 128, 16, true, true, true, "SSF33-CBC"},
    {SGD_SMS4_ECB, VOREL_CIPHER_SM4_ECB, 16, 128, 16, false, false, false, "SM4-ECB"},
    {SGD_SMS4_CBC, VOREL_CIPHER_SM4_CBC, 16, 128, 16, true, true, false, "SM4-CBC"},
    {SGD_3DES_ECB, VOREL_CIPHER_3DES_ECB, 16, 168, 8, false, false, false, "3DES-ECB"},
    {SGD_3DES_CBC, VOREL_CIPHER_3DES_CBC, 24, 168, 8, true, false, false, "3DES-CBC"},
    {SGD_AES128_ECB, VOREL_CIPHER_AES128_ECB, 16, 128, 16, false, false, false, "AES128-ECB"},
    {SGD_AES128_CBC, VOREL_CIPHER_AES128_CBC, 16, 128, 16, true, false, false, "AES128-CBC"},
    {SGD_DES_ECB, VOREL_CIPHER_DES_ECB, 16, 64, 8, false, false, false, "DES-ECB"},
    {SGD_DES_CBC, VOREL_CIPHER_DES_CBC, 16, 64, 8, false, false, false, "DES-CBC"},
};

// The row of an SGD identifier, or null: not an algorithm we know.
inline const SymmetricAlgorithm* symmetric_by_sgd(ULONG sgd) {
  for (const SymmetricAlgorithm& a : kSymmetricAlgorithms)
    if (a.sgd == sgd) return &a;
  return nullptr;
}

// Bytes of a session key of the algorithm: 24 for three-key 3DES CBC, else 16 (an unknown one too).
inline uint32_t session_key_length(ULONG sgd) {
  const SymmetricAlgorithm* a = symmetric_by_sgd(sgd);
  return a ? a->keyLen : 16;
}

// The row of a crypto-library cipher, or null.
inline const SymmetricAlgorithm* symmetric_by_cipher(uint32_t cipher) {
  for (const SymmetricAlgorithm& a : kSymmetricAlgorithms)
    if (static_cast<uint32_t>(a.vorel) == cipher) return &a;
  return nullptr;
}

}  // namespace vorel
