// Conversions between the SKF key, signature and ciphertext structures and the crypto library's
// forms. Pure functions: no record, no log; anything that does not fit is refused (false).
// Numbers are big-endian and right-aligned in their fields, shorter ones too, the bytes before
// them zero; the structures' own 32-bit fields (BitLen, CipherLen, AlgID) are native integers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "skf.h"

namespace vorel {

// The largest CipherLen of a wrapped session key (a 262-byte ciphertext).
constexpr ULONG kMaxEccCipherLen = 165;
// The largest CipherLen taken for decryption: a bound on what a caller's length field can make
// the library read.
constexpr ULONG kMaxEccDataLen = 1u << 16;
// Where the CipherLen bytes of an ECCCIPHERBLOB begin.
constexpr std::size_t kEccCipherOffset = offsetof(ECCCIPHERBLOB, Cipher);

// A number of n bytes right-aligned in a field of width bytes; false when its significant bytes
// do not fit.
bool put_number(const uint8_t* number, std::size_t n, uint8_t* field, std::size_t width);
// The bytes of a field from its first non-zero one (nothing for zero).
std::vector<uint8_t> strip_number(const uint8_t* field, std::size_t width);

// ---- RSA ----

// 1024 or 2048: the bit lengths RSA blobs may carry (BitLen - 1024 with the bit 1024 cleared is 0).
bool rsa_bits_accepted(ULONG bits);
// A public key's blob: AlgID SGD_RSA, BitLen the modulus length × 8.
bool rsa_public_to_blob(const std::vector<uint8_t>& n, const std::vector<uint8_t>& e, RSAPUBLICKEYBLOB& blob);
// The modulus a blob of BitLen bits carries: its last BitLen / 8 bytes; false unless 1 to 256.
bool rsa_blob_modulus(const RSAPUBLICKEYBLOB& blob, std::vector<uint8_t>& n);
// A private key's blob from its eight numbers (VOREL_RSA_* order).
bool rsa_private_to_blob(const std::vector<uint8_t> numbers[8], ULONG bits, RSAPRIVATEKEYBLOB& blob);
// The eight numbers of a private key blob, leading zero bytes stripped.
void rsa_blob_private_numbers(const RSAPRIVATEKEYBLOB& blob, std::vector<uint8_t> numbers[8]);

// ---- SM2 ----

// A public point's blob: BitLen 256, x and y right-aligned in the low halves of their fields.
bool ecc_point_to_blob(const uint8_t* x, std::size_t xLen, const uint8_t* y, std::size_t yLen, ECCPUBLICKEYBLOB& blob);
// r and s right-aligned at the ends of their 64-byte fields, every other byte zero.
bool ecc_signature_to_blob(const uint8_t* r, std::size_t rLen, const uint8_t* s, std::size_t sLen,
                           ECCSIGNATUREBLOB& blob);
// 04 || x || y || C2 || C3 of an ECCCIPHERBLOB whose CipherLen bytes follow it in memory: the low
// 32 bytes of each coordinate field. False when CipherLen is above maxCipherLen.
bool ConvertCipherText(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out, ULONG maxCipherLen);
// The same of an ECCCIPHERBLOB handed over as len bytes (a wrapped key with its length): false
// when they do not hold the blob's fixed part and the CipherLen bytes it announces.
bool cipher_text_of_bytes(const uint8_t* data, std::size_t len, std::vector<uint8_t>& out, ULONG maxCipherLen);
// The inverse: 04 || x || y || C2 || C3 of len bytes (at least 97) into blob, whose memory must
// hold len - 97 bytes from Cipher on; the upper halves of the coordinate fields are zeroed.
bool cipher_text_to_blob(const uint8_t* text, std::size_t len, ECCCIPHERBLOB* blob);
// The same ciphertext in the order C1 || C3 || C2.
bool cipher_text_c1c3c2(const ECCCIPHERBLOB& blob, std::vector<uint8_t>& out, ULONG maxCipherLen);

}  // namespace vorel
