#include "crypto/secure.h"

namespace vorel::crypto {

void wipe(void* p, std::size_t n) {
  // Writes through a volatile pointer are never elided as dead stores.
  volatile unsigned char* v = static_cast<volatile unsigned char*>(p);
  while (n-- > 0) *v++ = 0;
}

}  // namespace vorel::crypto
