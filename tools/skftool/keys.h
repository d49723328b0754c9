// Public keys, signatures and SM2 ciphertexts between the SKF blobs and the DER / PEM forms
// openssl reads and writes. Only encodings: no cryptography is done here.
#pragma once

#include <string>

#include "skf_library.h"

namespace skftool {

struct PublicKey {
  ULONG type = 0;  // 1 RSA, 2 SM2, as SKF_GetContainerType says
  ECCPUBLICKEYBLOB ecc{};
  RSAPUBLICKEYBLOB rsa{};
};

// A blob as SKF_ExportPublicKey gives it.
PublicKey public_key_from_blob(const Bytes& blob);
// A file holding a SubjectPublicKeyInfo ("PUBLIC KEY") or a certificate, as PEM or DER.
PublicKey public_key_from_file(const std::string& path);
// A DER certificate's public key.
PublicKey public_key_from_certificate(const Bytes& der);
// The SubjectPublicKeyInfo.
Bytes spki_of(const PublicKey& key);

Bytes ecc_signature_der(const ECCSIGNATUREBLOB& sig);
ECCSIGNATUREBLOB ecc_signature_blob(const Bytes& der);

// An ECCCIPHERBLOB with its CipherLen bytes of C2, from and to the DER openssl uses.
Bytes sm2_cipher_der(const ECCCIPHERBLOB& blob);
Bytes sm2_cipher_blob(const Bytes& der);

// The DigestInfo of a SHA-256 hash, as PKCS#1 v1.5 signs it.
Bytes sha256_digest_info(const Bytes& hash);

// File bytes; the DER inside a PEM file with one of the labels, else the file as it is.
Bytes read_input(const std::string& path);
Bytes read_der(const std::string& path, const std::vector<std::string>& pemLabels, const char* what);
// Writes to the file, or to standard output for "" or "-".
void write_output(const std::string& path, const Bytes& data);
void write_output(const std::string& path, const std::string& text);

std::string to_hex(const Bytes& data);
// Hex digits (blanks allowed between bytes) as bytes; throws a usage Failure naming what.
Bytes from_hex(const std::string& hex, const char* what);

}  // namespace skftool
