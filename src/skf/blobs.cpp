#include "skf/blobs.h"

#include <algorithm>
#include <cstring>

#include "vorel/vorel_util.h"

namespace vorel {

namespace {

// The field widths of the eight numbers of RSAPRIVATEKEYBLOB, in VOREL_RSA_* order.
struct Field {
  std::size_t offset, width;
};
const Field kPrivateFields[8] = {
    {offsetof(RSAPRIVATEKEYBLOB, Modulus), MAX_RSA_MODULUS_LEN},
    {offsetof(RSAPRIVATEKEYBLOB, PublicExponent), MAX_RSA_EXPONENT_LEN},
    {offsetof(RSAPRIVATEKEYBLOB, PrivateExponent), MAX_RSA_MODULUS_LEN},
    {offsetof(RSAPRIVATEKEYBLOB, Prime1), MAX_RSA_MODULUS_LEN / 2},
    {offsetof(RSAPRIVATEKEYBLOB, Prime2), MAX_RSA_MODULUS_LEN / 2},
    {offsetof(RSAPRIVATEKEYBLOB, Prime1Exponent), MAX_RSA_MODULUS_LEN / 2},
    {offsetof(RSAPRIVATEKEYBLOB, Prime2Exponent), MAX_RSA_MODULUS_LEN / 2},
    {offsetof(RSAPRIVATEKEYBLOB, Coefficient), MAX_RSA_MODULUS_LEN / 2},
};

constexpr std::size_t kCoordinate = 32;  // an SM2 value, in the low half of a 64-byte field

}  // namespace

bool put_number(const uint8_t* number, std::size_t n, uint8_t* field, std::size_t width) {
  while (n > width && *number == 0) {
    ++number;
    --n;
  }
  if (n > width) return false;
  std::memset(field, 0, width - n);
  if (n) std::memcpy(field + width - n, number, n);
  return true;
}

std::vector<uint8_t> strip_number(const uint8_t* field, std::size_t width) {
  std::size_t i = 0;
  while (i < width && field[i] == 0) ++i;
  return std::vector<uint8_t>(field + i, field + width);
}

bool rsa_bits_accepted(ULONG bits) { return ((bits - 1024) & ~1024u) == 0; }

bool rsa_public_to_blob(const std::vector<uint8_t>& n, const std::vector<uint8_t>& e, RSAPUBLICKEYBLOB& blob) {
  RSAPUBLICKEYBLOB out;
  std::memset(&out, 0, sizeof out);
  if (!put_number(n.data(), n.size(), out.Modulus, sizeof out.Modulus) ||
      !put_number(e.data(), e.size(), out.PublicExponent, sizeof out.PublicExponent))
    return false;
  out.AlgID = SGD_RSA;
  out.BitLen = static_cast<ULONG>(n.size() * 8);
  blob = out;
  return true;
}

bool rsa_blob_modulus(const RSAPUBLICKEYBLOB& blob, std::vector<uint8_t>& n) {
  ULONG bytes = blob.BitLen / 8;
  if (bytes == 0 || bytes > sizeof blob.Modulus) return false;
  n.assign(blob.Modulus + sizeof blob.Modulus - bytes, blob.Modulus + sizeof blob.Modulus);
  return true;
}

bool rsa_private_to_blob(const std::vector<uint8_t> numbers[8], ULONG bits, RSAPRIVATEKEYBLOB& blob) {
  RSAPRIVATEKEYBLOB out;
  std::memset(&out, 0, sizeof out);
  out.AlgID = SGD_RSA;
  out.BitLen = bits;
  auto* base = reinterpret_cast<uint8_t*>(&out);
  for (int i = 0; i < 8; ++i) {
    const Field& f = kPrivateFields[i];
    if (!put_number(numbers[i].data(), numbers[i].size(), base + f.offset, f.width)) {
      vorel_cleanse(&out, sizeof out);
      return false;
    }
  }
  std::memcpy(&blob, &out, sizeof out);
  vorel_cleanse(&out, sizeof out);
  return true;
}

void rsa_blob_private_numbers(const RSAPRIVATEKEYBLOB& blob, std::vector<uint8_t> numbers[8]) {
  const auto* base = reinterpret_cast<const uint8_t*>(&blob);
  for (int i = 0; i < 8; ++i) numbers[i] = strip_number(base + kPrivateFields[i].offset, kPrivateFields[i].width);
}

bool ecc_point_to_blob(const uint8_t* x, std::size_t xLen, const uint8_t* y, std::size_t yLen, ECCPUBLICKEYBLOB& blob) {
  ECCPUBLICKEYBLOB out;
  std::memset(&out, 0, sizeof out);
  out.BitLen = 256;
  if (!put_number(x, xLen, out.XCoordinate + kCoordinate, kCoordinate) ||
      !put_number(y, yLen, out.YCoordinate + kCoordinate, kCoordinate))
    return false;
  blob = out;
  return true;
}

bool ecc_signature_to_blob(const uint8_t* r, std::size_t rLen, const uint8_t* s, std::size_t sLen,
                           ECCSIGNATUREBLOB& blob) {
  ECCSIGNATUREBLOB out;
  std::memset(&out, 0, sizeof out);
  if (!put_number(r, rLen, out.r + kCoordinate, kCoordinate) || !put_number(s, sLen, out.s + kCoordinate, kCoordinate))
    return false;
  blob = out;
  return true;
}

bool ConvertCipherText(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out, ULONG maxCipherLen) {
  if (blob.CipherLen > maxCipherLen) return false;
  out.assign(1 + 2 * kCoordinate + blob.CipherLen + 32, 0);
  out[0] = 0x04;
  std::memcpy(&out[1], blob.XCoordinate + kCoordinate, kCoordinate);
  std::memcpy(&out[33], blob.YCoordinate + kCoordinate, kCoordinate);
  std::memcpy(&out[65], blob.Cipher, blob.CipherLen);
  std::memcpy(&out[65 + blob.CipherLen], blob.HASH, 32);
  return true;
}

bool cipher_text_of_bytes(const uint8_t* data, std::size_t len, std::vector<uint8_t>& out, ULONG maxCipherLen) {
  if (len < kEccCipherOffset) return false;
  const auto* blob = reinterpret_cast<const ECCCIPHERBLOB*>(data);
  return blob->CipherLen <= len - kEccCipherOffset && ConvertCipherText(*blob, out, maxCipherLen);
}

bool cipher_text_to_blob(const uint8_t* text, std::size_t len, ECCCIPHERBLOB* blob) {
  if (len < 97 || text[0] != 0x04 || len - 97 > UINT32_MAX) return false;
  std::size_t c2 = len - 97;
  std::memset(blob, 0, kEccCipherOffset);
  std::memcpy(blob->XCoordinate + kCoordinate, text + 1, kCoordinate);
  std::memcpy(blob->YCoordinate + kCoordinate, text + 33, kCoordinate);
  std::memcpy(blob->HASH, text + len - 32, 32);
  blob->CipherLen = static_cast<ULONG>(c2);
  std::memcpy(reinterpret_cast<uint8_t*>(blob) + kEccCipherOffset, text + 65, c2);
  return true;
}

bool cipher_text_c1c3c2(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out, ULONG maxCipherLen) {
  if (!ConvertCipherText(blob, out, maxCipherLen)) return false;
  // C1 stays; C3 (the last 32 bytes) moves in front of C2.
  std::rotate(out.begin() + 65, out.end() - 32, out.end());
  return true;
}

}  // namespace vorel
