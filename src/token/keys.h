// Helpers shared by the RSA and SM2 functions: library buffers, a container's key pairs, the
// encoded public key of a key pair.
#pragma once

#include "token/common.h"

namespace vorel {

// Bytes the crypto library handed out, wiped before they are given back.
struct LibraryBytes {
  unsigned char* bytes = nullptr;
  std::size_t len = 0;
  LibraryBytes() = default;
  LibraryBytes(const LibraryBytes&) = delete;
  LibraryBytes& operator=(const LibraryBytes&) = delete;
  ~LibraryBytes() {
    vorel_cleanse(bytes, len);
    VorelPKICryptoFreeMemory(bytes);
  }
};

// The container's signing (sign) or encryption key pair; null, logged, when it has none.
VOREL_KEYPAIR* keypair_of(Ctx ctx, const ContainerRecord& container, bool sign);
// The public key of a key pair as the library encodes it; false, logged under who.
bool public_key_of(const char* who, VOREL_KEYPAIR* pair, LibraryBytes& der);

}  // namespace vorel
