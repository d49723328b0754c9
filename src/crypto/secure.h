// Memory for secrets: wiped before it is given back.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace vorel::crypto {

// Overwrites n bytes in a way the compiler may not drop.
void wipe(void* p, std::size_t n);

template <class T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) {}
  T* allocate(std::size_t n) {
    void* p = std::malloc(n * sizeof(T));
    if (!p) throw std::bad_alloc();
    return static_cast<T*>(p);
  }
  void deallocate(T* p, std::size_t n) {
    wipe(p, n * sizeof(T));
    std::free(p);
  }
  template <class U>
  bool operator==(const WipingAllocator<U>&) const {
    return true;
  }
  template <class U>
  bool operator!=(const WipingAllocator<U>&) const {
    return false;
  }
};

using SecureBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

// The bytes from the first non-zero one on (an empty result for zero).
inline SecureBytes strip_zeros(const unsigned char* p, std::size_t n) {
  std::size_t i = 0;
  while (i < n && p[i] == 0) ++i;
  return SecureBytes(p + i, p + n);
}

// Right-aligns a number of at most width significant bytes into out[width]; false if it does not fit.
inline bool right_align(const unsigned char* p, std::size_t n, unsigned char* out, std::size_t width) {
  while (n > width && *p == 0) {
    ++p;
    --n;
  }
  if (n > width) return false;
  for (std::size_t i = 0; i < width - n; ++i) out[i] = 0;
  for (std::size_t i = 0; i < n; ++i) out[width - n + i] = p[i];
  return true;
}

// Compares in time independent of where the buffers differ.
inline bool equal_ct(const unsigned char* a, const unsigned char* b, std::size_t n) {
  unsigned char diff = 0;
  for (std::size_t i = 0; i < n; ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  return diff == 0;
}

}  // namespace vorel::crypto
