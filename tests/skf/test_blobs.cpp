// The conversions between the SKF structures and the crypto library's forms, byte for byte.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "skf/blobs.h"

using namespace vorel;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes range(const void* base, std::size_t from, std::size_t to) {
  const auto* p = static_cast<const uint8_t*>(base);
  return Bytes(p + from, p + to);
}

TEST(Blobs, NumbersAreRightAlignedInTheirFields) {
  Bytes x(31, 0xAB), y(33, 0xCD);
  y[0] = 0;  // a leading zero beyond the field is no part of the number
  ECCPUBLICKEYBLOB pub;
  std::memset(&pub, 0xEE, sizeof pub);
  ASSERT_TRUE(ecc_point_to_blob(x.data(), x.size(), y.data(), y.size(), pub));
  EXPECT_EQ(pub.BitLen, 256u);
  EXPECT_EQ(range(&pub, 4, 37), Bytes(33, 0));
  EXPECT_EQ(range(&pub, 37, 68), x);
  EXPECT_EQ(range(&pub, 68, 100), Bytes(32, 0));
  EXPECT_EQ(range(&pub, 100, 132), Bytes(y.begin() + 1, y.end()));
  Bytes tooLong(33, 0x01);
  EXPECT_FALSE(ecc_point_to_blob(tooLong.data(), 33, x.data(), 31, pub));

  RSAPUBLICKEYBLOB rsa;
  ASSERT_TRUE(rsa_public_to_blob(Bytes(128, 0x99), Bytes{0x01, 0x00, 0x01}, rsa));
  EXPECT_EQ(rsa.AlgID, static_cast<ULONG>(SGD_RSA));
  EXPECT_EQ(rsa.BitLen, 1024u);
  EXPECT_EQ(range(&rsa, 8, 136), Bytes(128, 0));
  EXPECT_EQ(range(&rsa, 136, 264), Bytes(128, 0x99));
  EXPECT_EQ(range(&rsa, 264, 268), (Bytes{0, 1, 0, 1}));
  Bytes modulus;
  ASSERT_TRUE(rsa_blob_modulus(rsa, modulus));
  EXPECT_EQ(modulus, Bytes(128, 0x99));
  EXPECT_FALSE(rsa_public_to_blob(Bytes(257, 0x99), Bytes{3}, rsa));
  rsa.BitLen = 4096;
  EXPECT_FALSE(rsa_blob_modulus(rsa, modulus));
  for (ULONG bits : {1024u, 2048u}) EXPECT_TRUE(rsa_bits_accepted(bits)) << bits;
  for (ULONG bits : {0u, 512u, 1023u, 1536u, 3072u, 4096u}) EXPECT_FALSE(rsa_bits_accepted(bits)) << bits;

  Bytes numbers[8] = {Bytes(128, 1), {1, 0, 1},    Bytes(128, 2), Bytes(64, 3),
                      Bytes(64, 4),  Bytes(64, 5), Bytes(64, 6),  Bytes(63, 7)};
  RSAPRIVATEKEYBLOB priv;
  ASSERT_TRUE(rsa_private_to_blob(numbers, 1024, priv));
  EXPECT_EQ(range(&priv, offsetof(RSAPRIVATEKEYBLOB, Coefficient), offsetof(RSAPRIVATEKEYBLOB, Coefficient) + 65),
            Bytes(65, 0));
  Bytes back[8];
  rsa_blob_private_numbers(priv, back);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(back[i], numbers[i]) << i;
  numbers[3] = Bytes(129, 3);  // a prime longer than its field
  EXPECT_FALSE(rsa_private_to_blob(numbers, 1024, priv));
}

TEST(Blobs, Sm2CiphertextsBothWays) {
  Bytes text(1 + 64 + 16 + 32);
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<uint8_t>(i);
  text[0] = 0x04;
  Bytes memory(sizeof(ECCCIPHERBLOB) + 16, 0xEE);
  auto* blob = reinterpret_cast<ECCCIPHERBLOB*>(memory.data());
  ASSERT_TRUE(cipher_text_to_blob(text.data(), text.size(), blob));
  EXPECT_EQ(blob->CipherLen, 16u);
  EXPECT_EQ(range(blob, 0, 32), Bytes(32, 0));  // upper halves zeroed
  EXPECT_EQ(range(blob, 32, 64), Bytes(text.begin() + 1, text.begin() + 33));
  EXPECT_EQ(range(blob, 64, 96), Bytes(32, 0));
  EXPECT_EQ(range(blob, 128, 160), Bytes(text.end() - 32, text.end()));
  EXPECT_EQ(range(blob, 164, 180), Bytes(text.begin() + 65, text.begin() + 81));

  Bytes again;
  ASSERT_TRUE(ConvertCipherText(*blob, again, kMaxEccCipherLen));
  EXPECT_EQ(again, text);  // 113 bytes, the hash last
  Bytes c1c3c2;
  ASSERT_TRUE(cipher_text_c1c3c2(*blob, c1c3c2, kMaxEccCipherLen));
  EXPECT_EQ(range(c1c3c2.data(), 65, 97), Bytes(text.end() - 32, text.end()));
  EXPECT_EQ(range(c1c3c2.data(), 97, 113), Bytes(text.begin() + 65, text.begin() + 81));

  // Handed over with a length, the blob must hold the CipherLen bytes it announces.
  const std::size_t whole = kEccCipherOffset + 16;
  const struct {
    std::size_t len;
    ULONG cipherLen;
    bool taken;
  } lengths[] = {{whole, 16, true},           {whole - 1, 16, false},      {kEccCipherOffset - 1, 0, false},
                 {kEccCipherOffset, 0, true}, {whole, 0xFFFFFFFFu, false}, {whole, 0x80000000u, false}};
  for (const auto& l : lengths) {
    blob->CipherLen = l.cipherLen;
    EXPECT_EQ(cipher_text_of_bytes(memory.data(), l.len, again, kMaxEccCipherLen), l.taken) << l.len;
    if (l.taken) {
      EXPECT_EQ(again.size(), 97u + l.cipherLen);
    }
  }

  blob->CipherLen = kMaxEccCipherLen + 1;
  EXPECT_FALSE(ConvertCipherText(*blob, again, kMaxEccCipherLen));
  EXPECT_FALSE(cipher_text_to_blob(text.data(), 96, blob));
}

}  // namespace
