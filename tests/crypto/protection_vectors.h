// Published vectors of the primitives that protect token keys, for either implementation.
#pragma once

#include <gtest/gtest.h>

#include "crypto_support.h"

namespace crypto_test {

// PBKDF2-HMAC-SHA-256 (RFC 7914 section 11) and AES-256-GCM (McGrew and Viega, test cases 14
// and 16), then a tampered tag, nonce or additional data refused.
template <class Pbkdf2, class Seal, class Open>
void check_protection_vectors(Pbkdf2 pbkdf2, Seal seal, Open open) {
  struct {
    const char *pass, *salt;
    unsigned iterations;
    const char* dk;
  } kdf[] = {{"passwd", "salt", 1,
              "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc49ca9cccf179b645991664b39d77ef317c71b8"
              "45b1e30bd509112041d3a19783"},
             {"Password", "NaCl", 80000,
              "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56a1d425a1225833549adb841b51c9b3176a272bd"
              "ebba1d078478f62b397f33c8d"}};
  for (const auto& v : kdf) {
    Bytes out(64);
    ASSERT_TRUE(pbkdf2(reinterpret_cast<const unsigned char*>(v.pass), std::strlen(v.pass),
                       reinterpret_cast<const unsigned char*>(v.salt), std::strlen(v.salt), v.iterations, out.data(),
                       out.size()));
    EXPECT_EQ(hex(out), v.dk) << v.pass;
  }

  struct {
    const char *key, *iv, *aad, *plain, *cipher, *tag;
  } gcm[] = {
      {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000", "",
       "00000000000000000000000000000000", "cea7403d4d606b6e074ec5d3baf39d18", "d0d1c8a799996bf0265b98b5d48ab919"},
      {"feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
       "feedfacedeadbeeffeedfacedeadbeefabaddad2",
       "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5"
       "aa0de657ba637b39",
       "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e63"
       "93ba7a0abcc9f662",
       "76fc6ece0f4e1768cddf8853bb2d551b"}};
  for (const auto& v : gcm) {
    Bytes key = unhex(v.key), iv = unhex(v.iv), aad = unhex(v.aad), plain = unhex(v.plain);
    Bytes out(plain.size()), tag(16), back(plain.size());
    ASSERT_TRUE(
        seal(key.data(), iv.data(), aad.data(), aad.size(), plain.data(), plain.size(), out.data(), tag.data()));
    EXPECT_EQ(hex(out), v.cipher);
    EXPECT_EQ(hex(tag), v.tag);
    auto opens = [&](const Bytes& n, const Bytes& a, const Bytes& t) {
      return open(key.data(), n.data(), a.data(), a.size(), out.data(), out.size(), t.data(), back.data());
    };
    ASSERT_TRUE(opens(iv, aad, tag));
    EXPECT_EQ(back, plain);
    Bytes badTag = tag, badIv = iv, badAad = aad;
    badTag[15] ^= 1;
    badIv[0] ^= 1;
    badAad.push_back(0);
    EXPECT_FALSE(opens(iv, aad, badTag));
    EXPECT_EQ(back, Bytes(plain.size(), 0)) << "a refused opening leaves nothing behind";
    EXPECT_FALSE(opens(badIv, aad, tag));
    EXPECT_FALSE(opens(iv, badAad, tag));
  }
}

}  // namespace crypto_test
