#include "keys.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "text.h"
#include "vorel/vorel_crypto.h"

namespace skftool {

namespace {

// Memory the crypto library hands out.
struct Out {
  unsigned char* p = nullptr;
  size_t n = 0;
  ~Out() { VorelPKICryptoFreeMemory(p); }
  Bytes bytes() const { return Bytes(p, p + n); }
};

void encoded(int rc, const char* what) {
  if (rc != VOREL_OK) throw Failure(std::string("cannot encode ") + what + " (error " + std::to_string(rc) + ")");
}

// A number right-aligned in a field of width bytes.
void put_number(const unsigned char* p, size_t n, BYTE* field, size_t width) {
  while (n > width && *p == 0) {
    ++p;
    --n;
  }
  if (n > width) throw Failure("number too long for its field");
  std::memset(field, 0, width);
  std::memcpy(field + width - n, p, n);
}

PublicKey public_key_from_spki(const Bytes& der) {
  PublicKey key;
  int curve = 0;
  Out x, y;
  if (VorelPKICryptoDecodeECCPubKey(der.data(), der.size(), &curve, &x.p, &x.n, &y.p, &y.n) == VOREL_OK) {
    key.type = 2;
    key.ecc.BitLen = 256;
    put_number(x.p, x.n, key.ecc.XCoordinate, sizeof key.ecc.XCoordinate);
    put_number(y.p, y.n, key.ecc.YCoordinate, sizeof key.ecc.YCoordinate);
    return key;
  }
  Out n, e;
  if (VorelPKICryptoDecodeRSAPubKey(der.data(), der.size(), &n.p, &n.n, &e.p, &e.n) == VOREL_OK) {
    key.type = 1;
    key.rsa.AlgID = SGD_RSA;
    key.rsa.BitLen = static_cast<ULONG>(n.n * 8);
    put_number(n.p, n.n, key.rsa.Modulus, sizeof key.rsa.Modulus);
    put_number(e.p, e.n, key.rsa.PublicExponent, sizeof key.rsa.PublicExponent);
    return key;
  }
  throw Failure("not an SM2 or RSA public key");
}

}  // namespace

PublicKey public_key_from_blob(const Bytes& blob) {
  PublicKey key;
  if (blob.size() == sizeof(ECCPUBLICKEYBLOB)) {
    key.type = 2;
    std::memcpy(&key.ecc, blob.data(), sizeof key.ecc);
  } else if (blob.size() == sizeof(RSAPUBLICKEYBLOB)) {
    key.type = 1;
    std::memcpy(&key.rsa, blob.data(), sizeof key.rsa);
  } else {
    throw Failure("a public key blob of " + std::to_string(blob.size()) + " bytes");
  }
  return key;
}

PublicKey public_key_from_certificate(const Bytes& der) {
  VOREL_CERT* cert = VorelPKICertNewCert(der.data(), der.size());
  if (!cert) throw Failure("not an X.509 certificate");
  VOREL_PUBLICKEY* pub = nullptr;
  Out spki;
  int rc = VorelPKICertGetCertPublicKey(cert, VOREL_CERT_PUBLIC_KEY, &pub);
  if (rc == VOREL_OK) rc = VorelPKICryptoExportPublicKey(pub, &spki.p, &spki.n);
  VorelPKICryptoFreePublicKey(pub);
  VorelPKICertFreeCert(cert);
  if (rc != VOREL_OK) throw Failure("the certificate's public key is neither SM2 nor RSA");
  return public_key_from_spki(spki.bytes());
}

PublicKey public_key_from_file(const std::string& path) {
  Bytes raw = read_input(path), der;
  std::string found;
  if (vorel_tools::is_pem(raw)) {
    if (!vorel_tools::pem_decode(raw, {"PUBLIC KEY", "CERTIFICATE"}, der, found))
      throw Failure(path + " holds no public key or certificate");
    return found == "CERTIFICATE" ? public_key_from_certificate(der) : public_key_from_spki(der);
  }
  VOREL_CERT* cert = VorelPKICertNewCert(raw.data(), raw.size());
  if (cert) {
    VorelPKICertFreeCert(cert);
    return public_key_from_certificate(raw);
  }
  return public_key_from_spki(raw);
}

Bytes spki_of(const PublicKey& key) {
  Out der;
  if (key.type == 2) {
    encoded(VorelPKICryptoEncodeECCPubKey(VOREL_CURVE_SM2, key.ecc.XCoordinate + 32, 32, key.ecc.YCoordinate + 32, 32,
                                          &der.p, &der.n),
            "the SM2 public key");
  } else {
    // The modulus sits right-aligned in its field, or (some vendors) left-aligned: BitLen tells.
    std::size_t n = key.rsa.BitLen / 8;
    if (n == 0 || n > sizeof key.rsa.Modulus)
      throw Failure("an RSA key of " + std::to_string(key.rsa.BitLen) + " bits");
    const BYTE* m = key.rsa.Modulus + sizeof key.rsa.Modulus - n;
    for (std::size_t i = 0; i < sizeof key.rsa.Modulus - n; ++i)
      if (key.rsa.Modulus[i] != 0) m = key.rsa.Modulus;
    encoded(VorelPKICryptoEncodeRSAPubKey(m, n, key.rsa.PublicExponent, sizeof key.rsa.PublicExponent, &der.p, &der.n),
            "the RSA public key");
  }
  return der.bytes();
}

Bytes ecc_signature_der(const ECCSIGNATUREBLOB& sig) {
  Out der;
  encoded(VorelPKICryptoEncodeECCSignature(sig.r + 32, 32, sig.s + 32, 32, &der.p, &der.n), "the signature");
  return der.bytes();
}

ECCSIGNATUREBLOB ecc_signature_blob(const Bytes& der) {
  Out r, s;
  if (VorelPKICryptoDecodeECCSignature(der.data(), der.size(), &r.p, &r.n, &s.p, &s.n) != VOREL_OK)
    throw Failure("not a DER SM2 signature");
  ECCSIGNATUREBLOB sig{};
  put_number(r.p, r.n, sig.r, sizeof sig.r);
  put_number(s.p, s.n, sig.s, sizeof sig.s);
  return sig;
}

Bytes sm2_cipher_der(const ECCCIPHERBLOB& blob) {
  // 04 || x || y || C2 || C3, the form the encoder takes.
  Bytes raw(1, 0x04);
  raw.insert(raw.end(), blob.XCoordinate + 32, blob.XCoordinate + 64);
  raw.insert(raw.end(), blob.YCoordinate + 32, blob.YCoordinate + 64);
  raw.insert(raw.end(), blob.Cipher, blob.Cipher + blob.CipherLen);
  raw.insert(raw.end(), blob.HASH, blob.HASH + 32);
  Out der;
  encoded(VorelPKICryptoEncodeSM2Cipher(raw.data(), raw.size(), &der.p, &der.n), "the ciphertext");
  return der.bytes();
}

Bytes sm2_cipher_blob(const Bytes& der) {
  Out raw;
  if (VorelPKICryptoDecodeSM2Cipher(der.data(), der.size(), &raw.p, &raw.n) != VOREL_OK)
    throw Failure("not a DER SM2 ciphertext");
  std::size_t c2 = raw.n - 97;
  Bytes out(offsetof(ECCCIPHERBLOB, Cipher) + c2, 0);
  ULONG cipherLen = static_cast<ULONG>(c2);
  std::memcpy(out.data() + offsetof(ECCCIPHERBLOB, XCoordinate) + 32, raw.p + 1, 32);
  std::memcpy(out.data() + offsetof(ECCCIPHERBLOB, YCoordinate) + 32, raw.p + 33, 32);
  std::memcpy(out.data() + offsetof(ECCCIPHERBLOB, HASH), raw.p + 65 + c2, 32);
  std::memcpy(out.data() + offsetof(ECCCIPHERBLOB, CipherLen), &cipherLen, sizeof cipherLen);
  std::memcpy(out.data() + offsetof(ECCCIPHERBLOB, Cipher), raw.p + 65, c2);
  return out;
}

Bytes sha256_digest_info(const Bytes& hash) {
  static const unsigned char prefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                         0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Bytes out(sizeof prefix + hash.size());
  std::memcpy(out.data(), prefix, sizeof prefix);
  std::memcpy(out.data() + sizeof prefix, hash.data(), hash.size());
  return out;
}

Bytes read_input(const std::string& path) {
  Bytes data;
  if (!vorel_tools::read_file(path, data)) throw Failure("cannot read " + path);
  return data;
}

Bytes read_der(const std::string& path, const std::vector<std::string>& pemLabels, const char* what) {
  Bytes raw = read_input(path), der;
  if (!vorel_tools::is_pem(raw)) return raw;
  std::string found;
  if (!vorel_tools::pem_decode(raw, pemLabels, der, found)) throw Failure(path + " holds no " + what);
  return der;
}

void write_output(const std::string& path, const Bytes& data) {
  if (path.empty() || path == "-") {
    std::fwrite(data.data(), 1, data.size(), stdout);
    std::fflush(stdout);
    return;
  }
  if (!vorel_tools::write_file(path, data)) throw Failure("cannot write " + path);
}

void write_output(const std::string& path, const std::string& text) {
  write_output(path, Bytes(text.begin(), text.end()));
}

std::string to_hex(const Bytes& data) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : data) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

Bytes from_hex(const std::string& hex, const char* what) {
  Bytes out;
  int high = -1;
  for (char c : hex) {
    if (c == ' ' || c == ':') continue;
    int v = c >= '0' && c <= '9'   ? c - '0'
            : c >= 'a' && c <= 'f' ? c - 'a' + 10
            : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                   : -1;
    if (v < 0) throw Failure(std::string(what) + ": not hexadecimal", kUsage);
    if (high < 0) {
      high = v;
    } else {
      out.push_back(static_cast<unsigned char>(high << 4 | v));
      high = -1;
    }
  }
  if (high >= 0) throw Failure(std::string(what) + ": an odd number of hex digits", kUsage);
  return out;
}

}  // namespace skftool
