#include "token/certificates.h"

namespace vorel {

namespace {

VOREL_KEYPAIR* keypair_of(Ctx ctx, const ContainerRecord& container, bool sign) {
  VOREL_KEYPAIR* keypair = sign ? container.signKeypair.get() : container.encKeypair.get();
  if (!keypair) VLOG_ERROR(ctx.name(), "keypair not exist");
  return keypair;
}

}  // namespace

ULONG import_certificate(Ctx ctx, const ContainerRecord& container, bool sign, const BYTE* der, ULONG len) {
  VOREL_KEYPAIR* keypair = keypair_of(ctx, container, sign);
  if (!keypair) return SAR_KEYNOTFOUNTERR;
  UniquePtr<VOREL_CERT> cert(VorelPKICertNewCert(der, len));
  if (!cert) return ctx.crypto_failed("VorelPKICertNewCert", VorelPKIGetLastError());
  VOREL_PUBLICKEY* raw = nullptr;
  int rc = VorelPKICertGetCertPublicKey(cert.get(), VOREL_CERT_PUBLIC_KEY, &raw);
  UniquePtr<VOREL_PUBLICKEY> certKey(raw);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICertGetCertPublicKey", rc);
  UniquePtr<VOREL_PUBLICKEY> pairKey(VorelPKICryptoGetPublicKeyFromKeypair(keypair));
  if (!pairKey) return ctx.crypto_failed("VorelPKICryptoGetPublicKeyFromKeypair", VorelPKIGetLastError());
  // A certificate only ever lands on the key pair whose public key it carries.
  rc = VorelPKICryptoPublicKeyEqual(certKey.get(), pairKey.get());
  if (rc != 1) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoPublicKeyEqual fail, error : %d", rc);
    return SAR_FAIL;
  }
  rc = VorelPKICryptoUpdateCertificate(keypair, cert.get());
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoUpdateCertificate fail, error : %d", rc);
    return SAR_FAIL;
  }
  return SAR_OK;
}

ULONG export_certificate(Ctx ctx, const ContainerRecord& container, bool sign, BYTE* out, ULONG* len) {
  VOREL_KEYPAIR* keypair = keypair_of(ctx, container, sign);
  if (!keypair) return SAR_KEYNOTFOUNTERR;
  VOREL_CERT* raw = nullptr;
  int rc = VorelPKICryptoGetCertificate(keypair, 0, &raw);
  UniquePtr<VOREL_CERT> cert(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICryptoGetCertificate fail, error : %d", rc);
    return SAR_CERTNOTFOUNTERR;
  }
  unsigned char* der = nullptr;
  std::size_t derLen = 0;
  rc = VorelPKICertGetCertEncode(cert.get(), VOREL_CERT_ENCODING_DER, &der, &derLen);
  UniquePtr<unsigned char> encoded(der);
  cert.reset();
  if (rc != VOREL_OK) {
    VLOG_ERROR(ctx.name(), "VorelPKICertGetCertEncode fail, error : %d", rc);
    return SAR_FAIL;
  }
  _log("cert", der, static_cast<long>(derLen), true);
  ULONG result = put_bytes(der, derLen, out, len);
  if (result == SAR_OK && out) _log("pbCert", out, static_cast<long>(*len), true);
  return result;
}

}  // namespace vorel
