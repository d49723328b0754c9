// A small strict DER reader and writer: just what the key, signature and ciphertext
// encodings need (single-byte tags, definite lengths, unsigned integers).
#pragma once

#include <cstddef>

#include "crypto/secure.h"

namespace vorel::crypto::der {

enum Tag : unsigned char {
  kInteger = 0x02,
  kBitString = 0x03,
  kOctetString = 0x04,
  kNull = 0x05,
  kOid = 0x06,
  kSequence = 0x30,
  kContext0 = 0xA0,
  kContext1 = 0xA1,
};

// Object identifiers as their DER content bytes.
struct Oid {
  const unsigned char* bytes;
  std::size_t len;
  bool operator==(const Oid& other) const;
};
extern const Oid kOidRsaEncryption;  // 1.2.840.113549.1.1.1
extern const Oid kOidEcPublicKey;    // 1.2.840.10045.2.1
extern const Oid kOidSm2Curve;       // 1.2.156.10197.1.301

class Writer {
 public:
  // An unsigned big-endian number: leading zeros dropped, a zero byte added when the top bit is set.
  void integer(const unsigned char* p, std::size_t n);
  void small_integer(unsigned value);
  void octet_string(const unsigned char* p, std::size_t n) { tlv(kOctetString, p, n); }
  // A bit string without unused bits.
  void bit_string(const unsigned char* p, std::size_t n);
  void null() { tlv(kNull, nullptr, 0); }
  void oid(const Oid& oid) { tlv(kOid, oid.bytes, oid.len); }
  template <class Body>
  void constructed(unsigned char tag, Body body) {
    Writer inner;
    body(inner);
    tlv(tag, inner.out_.data(), inner.out_.size());
  }
  template <class Body>
  void sequence(Body body) {
    constructed(kSequence, body);
  }
  void tlv(unsigned char tag, const unsigned char* p, std::size_t n);
  SecureBytes& bytes() { return out_; }

 private:
  SecureBytes out_;
};

class Reader {
 public:
  Reader() = default;
  Reader(const unsigned char* p, std::size_t n) : p_(p), n_(n) {}

  bool empty() const { return n_ == 0; }
  bool peek(unsigned char tag) const { return n_ > 0 && *p_ == tag; }
  // Reads the next element, which must carry tag; false when it does not or is malformed.
  bool next(unsigned char tag, const unsigned char** content, std::size_t* len);
  bool next(unsigned char tag, Reader& content);
  // A non-negative integer, its magnitude without leading zeros (empty for zero).
  bool integer(const unsigned char** p, std::size_t* n);
  bool small_integer(unsigned* value);
  bool oid(Oid* oid);
  // A bit string without unused bits.
  bool bit_string(const unsigned char** p, std::size_t* n);

 private:
  const unsigned char* p_ = nullptr;
  std::size_t n_ = 0;
};

}  // namespace vorel::crypto::der
