#include "token/keys.h"

namespace vorel {

VOREL_KEYPAIR* keypair_of(Ctx ctx, const ContainerRecord& container, bool sign) {
  VOREL_KEYPAIR* pair = sign ? container.signKeypair.get() : container.encKeypair.get();
  if (!pair) VLOG_ERROR(ctx.name(), sign ? "Sign keypair null" : "Enc keypair null");
  return pair;
}

bool public_key_of(const char* who, VOREL_KEYPAIR* pair, LibraryBytes& der) {
  UniquePtr<VOREL_PUBLICKEY> pub(VorelPKICryptoGetPublicKeyFromKeypair(pair));
  if (!pub) {
    VLOG_ERROR(who, "VorelPKICryptoGetPublicKeyFromKeypair fail, error : %d", VorelPKIGetLastError());
    return false;
  }
  int rc = VorelPKICryptoExportPublicKey(pub.get(), &der.bytes, &der.len);
  if (rc != VOREL_OK) {
    VLOG_ERROR(who, "VorelPKICryptoExportPublicKey fail, error : %d", rc);
    return false;
  }
  return true;
}

}  // namespace vorel
