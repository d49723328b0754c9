// X.509 certificates through libksba, and the certificate kept with a key pair.
#include <ksba.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "crypto/der.h"
#include "crypto/internal.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

struct vorel_cert_st {
  ksba_cert_t cert = nullptr;
  std::vector<unsigned char> der;
};

namespace vorel::crypto {

namespace {

// The (name value) pairs of a canonical S-expression such as libksba gives for a public key:
// (10:public-key(3:ecc(5:curve19:1.2.156.10197.1.301)(1:q65:...))). Names the first list
// element of depth 2 as the algorithm.
struct SexpKey {
  std::string algorithm;
  std::vector<std::pair<std::string, std::string>> values;
  const std::string* get(const char* name) const {
    for (const auto& v : values)
      if (v.first == name) return &v.second;
    return nullptr;
  }
};

bool parse_sexp(const unsigned char* p, std::size_t n, SexpKey& out) {
  std::size_t i = 0;
  int depth = 0;
  std::vector<std::string> atoms;  // atoms of the innermost open list
  std::vector<std::vector<std::string>> stack;
  while (i < n) {
    unsigned char c = p[i];
    if (c == '(') {
      stack.push_back(std::move(atoms));
      atoms.clear();
      ++depth;
      ++i;
    } else if (c == ')') {
      if (depth == 0) return false;
      if (atoms.size() == 2) out.values.emplace_back(atoms[0], atoms[1]);
      if (depth == 2 && !atoms.empty()) out.algorithm = atoms[0];
      atoms = std::move(stack.back());
      stack.pop_back();
      if (--depth == 0) return i + 1 == n || p[i + 1] == 0;
      ++i;
    } else if (c >= '0' && c <= '9') {
      std::size_t len = 0;
      while (i < n && p[i] >= '0' && p[i] <= '9') {
        len = len * 10 + (p[i] - '0');
        if (len > n) return false;
        ++i;
      }
      if (i >= n || p[i] != ':' || len > n - i - 1) return false;
      atoms.emplace_back(reinterpret_cast<const char*>(p + i + 1), len);
      // The algorithm's own list holds its name before the parameter lists.
      if (depth == 2 && atoms.size() == 1) out.algorithm = atoms[0];
      i += 1 + len;
    } else {
      return false;
    }
  }
  return false;
}

// ksba_cert_get_public_key's length: canonical S-expressions carry their own.
std::size_t sexp_length(const unsigned char* p) {
  std::size_t i = 0;
  int depth = 0;
  do {
    if (p[i] == '(') {
      ++depth;
      ++i;
    } else if (p[i] == ')') {
      --depth;
      ++i;
    } else {
      std::size_t len = 0;
      while (p[i] >= '0' && p[i] <= '9') len = len * 10 + (p[i++] - '0');
      i += 1 + len;
    }
  } while (depth > 0);
  return i;
}

int decode_cert_key(ksba_cert_t cert, DecodedKey& key) {
  ksba_sexp_t s = ksba_cert_get_public_key(cert);
  if (!s) return VOREL_ERR_BAD_ENCODING;
  SexpKey sk;
  bool parsed = parse_sexp(s, sexp_length(s), sk);
  ksba_free(s);
  if (!parsed) return VOREL_ERR_BAD_ENCODING;
  if (sk.algorithm == "rsa") {
    const std::string *n = sk.get("n"), *e = sk.get("e");
    if (!n || !e) return VOREL_ERR_BAD_ENCODING;
    key.alg = VOREL_ALG_RSA;
    key.rsa.n = strip_zeros(reinterpret_cast<const unsigned char*>(n->data()), n->size());
    key.rsa.e = strip_zeros(reinterpret_cast<const unsigned char*>(e->data()), e->size());
    return VOREL_OK;
  }
  if (sk.algorithm == "ecc") {
    const std::string *curve = sk.get("curve"), *q = sk.get("q");
    if (!curve || !q) return VOREL_ERR_BAD_ENCODING;
    if (*curve != "1.2.156.10197.1.301" && *curve != "sm2p256v1") return VOREL_ERR_NOT_SUPPORTED;
    if (q->size() != 65 || static_cast<unsigned char>((*q)[0]) != 0x04) return VOREL_ERR_NOT_SUPPORTED;
    key.alg = VOREL_ALG_SM2;
    std::memcpy(key.q, q->data(), 65);
    key.hasQ = true;
    return VOREL_OK;
  }
  return VOREL_ERR_NOT_SUPPORTED;
}

// "YYYYMMDDTHHMMSS" to "YYYYMMDDHHMMSSZ".
int validity(ksba_cert_t cert, int which, char** text) {
  ksba_isotime_t t;
  if (ksba_cert_get_validity(cert, which, t) != 0 || std::strlen(t) != 15 || t[8] != 'T')
    return fail(VOREL_ERR_NOT_FOUND);
  char out[16];
  std::memcpy(out, t, 8);
  std::memcpy(out + 8, t + 9, 6);
  out[14] = 'Z';
  out[15] = '\0';
  return hand_out_text(out, 15, text);
}

int name_text(char* name, char** text) {
  if (!name) return fail(VOREL_ERR_NOT_FOUND);
  int rc = hand_out_text(name, std::strlen(name), text);
  ksba_free(name);
  return rc;
}

int serial_text(ksba_cert_t cert, char** text) {
  ksba_sexp_t s = ksba_cert_get_serial(cert);
  if (!s) return fail(VOREL_ERR_NOT_FOUND);
  // (LEN:bytes)
  const unsigned char* p = s + 1;
  std::size_t len = 0;
  while (*p >= '0' && *p <= '9') len = len * 10 + (*p++ - '0');
  std::string hex;
  static const char digits[] = "0123456789ABCDEF";
  for (std::size_t i = 0; i < len; ++i) {
    hex += digits[p[1 + i] >> 4];
    hex += digits[p[1 + i] & 15];
  }
  ksba_free(s);
  return hand_out_text(hex.c_str(), hex.size(), text);
}

}  // namespace

}  // namespace vorel::crypto

using namespace vorel::crypto;

extern "C" {

VOREL_CERT* VorelPKICertNewCert(const unsigned char* der, size_t derLen) {
  return guard([&]() -> VOREL_CERT* {
    if (!der || derLen == 0) return fail(VOREL_ERR_PARAM), nullptr;
    // One certificate exactly: no trailing bytes.
    der::Reader top(der, derLen), body;
    if (!top.next(der::kSequence, body) || !top.empty()) return fail(VOREL_ERR_BAD_ENCODING), nullptr;
    auto* cert = new (std::nothrow) vorel_cert_st;
    if (!cert) return fail(VOREL_ERR_MEMORY), nullptr;
    if (ksba_cert_new(&cert->cert) != 0) {
      delete cert;
      return fail(VOREL_ERR_MEMORY), nullptr;
    }
    if (ksba_cert_init_from_mem(cert->cert, der, derLen) != 0) {
      VorelPKICertFreeCert(cert);
      return fail(VOREL_ERR_BAD_ENCODING), nullptr;
    }
    cert->der.assign(der, der + derLen);
    ok();
    return cert;
  });
}

void VorelPKICertFreeCert(VOREL_CERT* cert) {
  return guard([&] {
    if (!cert) return;
    ksba_cert_release(cert->cert);
    delete cert;
  });
}

int VorelPKICertGetCertEncode(VOREL_CERT* cert, int encoding, unsigned char** out, size_t* outLen) {
  return guard([&] {
    if (!cert || !out || !outLen) return fail(VOREL_ERR_PARAM);
    if (encoding != VOREL_CERT_ENCODING_DER) return fail(VOREL_ERR_NOT_SUPPORTED);
    return hand_out(cert->der.data(), cert->der.size(), out, outLen);
  });
}

int VorelPKICertGetCertPublicKey(VOREL_CERT* cert, int what, VOREL_PUBLICKEY** publicKey) {
  return guard([&] {
    if (!cert || !publicKey) return fail(VOREL_ERR_PARAM);
    *publicKey = nullptr;
    if (what != VOREL_CERT_PUBLIC_KEY) return fail(VOREL_ERR_NOT_SUPPORTED);
    DecodedKey decoded;
    int rc = decode_cert_key(cert->cert, decoded);
    if (rc != VOREL_OK) return fail(rc);
    SecureBytes der;
    if (decoded.alg == VOREL_ALG_SM2)
      encode_sm2_public(decoded.q, der);
    else
      encode_rsa_public(decoded.rsa.n, decoded.rsa.e, der);
    VOREL_DEVICE* pseudo = nullptr;
    if ((rc = VorelPKICryptoGetPseudoDevice(&pseudo)) != VOREL_OK) return rc;
    rc = VorelPKICryptoImportPublicKey(pseudo, der.data(), der.size(), publicKey);
    VorelPKICryptoFreeDevice(pseudo);
    return rc;
  });
}

int VorelPKICertGetCertStringAttribute(VOREL_CERT* cert, int attribute, char** text) {
  return guard([&] {
    if (!cert || !text) return fail(VOREL_ERR_PARAM);
    switch (attribute) {
      case VOREL_CERT_ATTR_NOT_BEFORE:
        return validity(cert->cert, 0, text);
      case VOREL_CERT_ATTR_NOT_AFTER:
        return validity(cert->cert, 1, text);
      case VOREL_CERT_ATTR_ISSUER:
        return name_text(ksba_cert_get_issuer(cert->cert, 0), text);
      case VOREL_CERT_ATTR_SUBJECT:
        return name_text(ksba_cert_get_subject(cert->cert, 0), text);
      case VOREL_CERT_ATTR_SERIAL:
        return serial_text(cert->cert, text);
      default:
        return fail(VOREL_ERR_NOT_SUPPORTED);
    }
  });
}

int VorelPKICryptoGetCertificate(VOREL_KEYPAIR* keypair, int index, VOREL_CERT** cert) {
  return guard([&] {
    if (!keypair || !cert) return fail(VOREL_ERR_PARAM);
    *cert = nullptr;
    if (index != 0) return fail(VOREL_ERR_NOT_FOUND);
    std::vector<unsigned char> der;
    if (keypair->device->token) {
      int rc = vorel::crypto::tokens::get_cert(keypair, der);
      if (rc != VOREL_OK) return fail(rc);
    } else {
      std::lock_guard<std::mutex> hold(keypair->lock);
      der = keypair->cert;
    }
    if (der.empty()) return fail(VOREL_ERR_NOT_FOUND);
    *cert = VorelPKICertNewCert(der.data(), der.size());
    return *cert ? ok() : VorelPKIGetLastError();
  });
}

int VorelPKICryptoUpdateCertificate(VOREL_KEYPAIR* keypair, VOREL_CERT* cert) {
  return guard([&] {
    if (!keypair || !cert) return fail(VOREL_ERR_PARAM);
    VOREL_PUBLICKEY* certKey = nullptr;
    int rc = VorelPKICertGetCertPublicKey(cert, VOREL_CERT_PUBLIC_KEY, &certKey);
    if (rc != VOREL_OK) return rc;
    VOREL_PUBLICKEY* pairKey = VorelPKICryptoGetPublicKeyFromKeypair(keypair);
    rc = pairKey ? VorelPKICryptoPublicKeyEqual(certKey, pairKey) : VorelPKIGetLastError();
    VorelPKICryptoFreePublicKey(certKey);
    VorelPKICryptoFreePublicKey(pairKey);
    if (rc == 0) return fail(VOREL_ERR_KEY_MISMATCH);
    if (rc != 1) return fail(rc);
    if (keypair->device->token) {
      rc = vorel::crypto::tokens::set_cert(keypair, cert->der);
      return rc == VOREL_OK ? ok() : fail(rc);
    }
    std::lock_guard<std::mutex> hold(keypair->lock);
    keypair->cert = cert->der;
    return ok();
  });
}

}  // extern "C"
