#include "crypto/der.h"

#include <cstring>

namespace vorel::crypto::der {

namespace {
const unsigned char kRsaEncryption[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const unsigned char kEcPublicKey[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
const unsigned char kSm2Curve[] = {0x2A, 0x81, 0x1C, 0xCF, 0x55, 0x01, 0x82, 0x2D};
}  // namespace

const Oid kOidRsaEncryption{kRsaEncryption, sizeof kRsaEncryption};
const Oid kOidEcPublicKey{kEcPublicKey, sizeof kEcPublicKey};
const Oid kOidSm2Curve{kSm2Curve, sizeof kSm2Curve};

bool Oid::operator==(const Oid& other) const { return len == other.len && std::memcmp(bytes, other.bytes, len) == 0; }

void Writer::tlv(unsigned char tag, const unsigned char* p, std::size_t n) {
  out_.push_back(tag);
  if (n < 0x80) {
    out_.push_back(static_cast<unsigned char>(n));
  } else {
    unsigned char len[sizeof(std::size_t)];
    std::size_t count = 0;
    for (std::size_t v = n; v > 0; v >>= 8) len[count++] = static_cast<unsigned char>(v & 0xFF);
    out_.push_back(static_cast<unsigned char>(0x80 | count));
    while (count > 0) out_.push_back(len[--count]);
  }
  if (n > 0) out_.insert(out_.end(), p, p + n);
}

void Writer::integer(const unsigned char* p, std::size_t n) {
  while (n > 0 && *p == 0) {
    ++p;
    --n;
  }
  SecureBytes content;
  content.reserve(n + 1);
  if (n == 0 || (p[0] & 0x80)) content.push_back(0);
  content.insert(content.end(), p, p + n);
  tlv(kInteger, content.data(), content.size());
}

void Writer::small_integer(unsigned value) {
  unsigned char be[4] = {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
                         static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
  integer(be, sizeof be);
}

void Writer::bit_string(const unsigned char* p, std::size_t n) {
  SecureBytes content;
  content.reserve(n + 1);
  content.push_back(0);
  content.insert(content.end(), p, p + n);
  tlv(kBitString, content.data(), content.size());
}

bool Reader::next(unsigned char tag, const unsigned char** content, std::size_t* len) {
  if (n_ < 2 || p_[0] != tag) return false;
  std::size_t pos = 2;
  std::size_t length = p_[1];
  if (length & 0x80) {
    std::size_t count = length & 0x7F;
    // Indefinite lengths and lengths beyond 4 bytes have no place in our objects.
    if (count == 0 || count > 4 || n_ < 2 + count) return false;
    length = 0;
    for (std::size_t i = 0; i < count; ++i) length = (length << 8) | p_[2 + i];
    // DER: the shortest form only.
    if (length < 0x80 || p_[2] == 0) return false;
    pos += count;
  }
  if (length > n_ - pos) return false;
  *content = p_ + pos;
  *len = length;
  p_ += pos + length;
  n_ -= pos + length;
  return true;
}

bool Reader::next(unsigned char tag, Reader& content) {
  const unsigned char* p;
  std::size_t n;
  if (!next(tag, &p, &n)) return false;
  content = Reader(p, n);
  return true;
}

bool Reader::integer(const unsigned char** p, std::size_t* n) {
  const unsigned char* c;
  std::size_t len;
  if (!next(kInteger, &c, &len) || len == 0) return false;
  if (c[0] & 0x80) return false;                             // negative
  if (len > 1 && c[0] == 0 && !(c[1] & 0x80)) return false;  // not minimal
  if (c[0] == 0) {
    ++c;
    --len;
  }
  *p = c;
  *n = len;
  return true;
}

bool Reader::small_integer(unsigned* value) {
  const unsigned char* p;
  std::size_t n;
  if (!integer(&p, &n) || n > 4) return false;
  unsigned v = 0;
  for (std::size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
  *value = v;
  return true;
}

bool Reader::oid(Oid* oid) {
  const unsigned char* p;
  std::size_t n;
  if (!next(kOid, &p, &n) || n == 0) return false;
  *oid = Oid{p, n};
  return true;
}

bool Reader::bit_string(const unsigned char** p, std::size_t* n) {
  const unsigned char* c;
  std::size_t len;
  if (!next(kBitString, &c, &len) || len == 0 || c[0] != 0) return false;
  *p = c + 1;
  *n = len - 1;
  return true;
}

}  // namespace vorel::crypto::der
