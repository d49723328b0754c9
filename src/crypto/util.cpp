#include <cstdlib>
#include <cstring>

#include "crypto/internal.h"
#include "crypto/secure.h"
#include "platform/platform.h"
#include "vorel/vorel_util.h"

struct vorel_ustring_st {
  std::size_t len;
  char text[1];  // len bytes and a terminating zero
};

struct vorel_dso_st {
  void* module;
};

using vorel::crypto::guard;

extern "C" {

void* vorel_malloc(std::size_t size) {
  return guard([&]() -> void* {
    if (size == 0) return nullptr;
    return std::calloc(1, size);
  });
}

void vorel_free(void* ptr) {
  return guard([&] { std::free(ptr); });
}

void vorel_cleanse(void* ptr, std::size_t len) {
  if (ptr) vorel::crypto::wipe(ptr, len);
}

int vorel_memequal(const void* a, const void* b, std::size_t len) {
  return vorel::crypto::equal_ct(static_cast<const unsigned char*>(a), static_cast<const unsigned char*>(b), len) ? 1
                                                                                                                    : 0;
}

vorel_ustring* vorel_ustring_newascii(const char* text, std::size_t len) {
  return guard([&]() -> vorel_ustring* {
    if (!text) return nullptr;
    auto* str = static_cast<vorel_ustring*>(vorel_malloc(sizeof(vorel_ustring) + len));
    if (!str) return nullptr;
    str->len = len;
    std::memcpy(str->text, text, len);
    str->text[len] = '\0';
    return str;
  });
}

const char* vorel_ustring_text(const vorel_ustring* str) {
  return guard([&]() -> const char* { return str ? str->text : nullptr; });
}

void vorel_ustring_free(vorel_ustring* str) {
  return guard([&] { vorel_free(str); });
}

vorel_dso* vorel_dso_load(const vorel_ustring* path) {
  return guard([&]() -> vorel_dso* {
    if (!path) return nullptr;
    void* module = vorel::platform::dso_open(path->text);
    if (!module) return nullptr;
    auto* dso = static_cast<vorel_dso*>(vorel_malloc(sizeof(vorel_dso)));
    if (!dso) {
      vorel::platform::dso_close(module);
      return nullptr;
    }
    dso->module = module;
    return dso;
  });
}

vorel_fnptr vorel_dso_getfunction(vorel_dso* dso, const char* name) {
  return guard([&]() -> vorel_fnptr {
    if (!dso) return nullptr;
    return vorel::platform::dso_symbol(dso->module, name);
  });
}

void vorel_dso_free(vorel_dso* dso) {
  return guard([&] {
    if (!dso) return;
    vorel::platform::dso_close(dso->module);
    vorel_free(dso);
  });
}

}  // extern "C"

// ---- time ----

struct vorel_time_st {
  long long seconds;  // since 1970-01-01T00:00:00Z
};

namespace {

// Days from 1970-01-01 to a civil date (proleptic Gregorian).
long long days_from_civil(int y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

bool digits(const char* p, int n, int* value) {
  int v = 0;
  for (int i = 0; i < n; ++i) {
    if (p[i] < '0' || p[i] > '9') return false;
    v = v * 10 + (p[i] - '0');
  }
  *value = v;
  return true;
}

}  // namespace

extern "C" {

vorel_time* vorel_time_newutctime(const char* text) {
  return guard([&]() -> vorel_time* {
    if (!text) return nullptr;
    std::size_t len = std::strlen(text);
    int year, month, day, hour, minute, second;
    const char* p = text;
    if (len == 15) {
      if (!digits(p, 4, &year)) return nullptr;
      p += 4;
    } else if (len == 13) {
      // UTCTime: years 50-99 are 19xx (RFC 5280).
      if (!digits(p, 2, &year)) return nullptr;
      year += year < 50 ? 2000 : 1900;
      p += 2;
    } else {
      return nullptr;
    }
    if (!digits(p, 2, &month) || !digits(p + 2, 2, &day) || !digits(p + 4, 2, &hour) || !digits(p + 6, 2, &minute) ||
        !digits(p + 8, 2, &second) || p[10] != 'Z')
      return nullptr;
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (month < 1 || month > 12 || day < 1 || day > kDays[month - 1] || (month == 2 && day == 29 && !leap) ||
        hour > 23 || minute > 59 || second > 59)
      return nullptr;
    auto* t = static_cast<vorel_time*>(vorel_malloc(sizeof(vorel_time)));
    if (!t) return nullptr;
    t->seconds = days_from_civil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 + hour * 3600 +
                 minute * 60 + second;
    return t;
  });
}

int vorel_time_cmp(const vorel_time* a, const vorel_time* b) {
  return guard([&] {
    if (!a || !b) return 0;
    return a->seconds < b->seconds ? -1 : a->seconds > b->seconds ? 1 : 0;
  });
}

void vorel_time_free(vorel_time* t) {
  return guard([&] { vorel_free(t); });
}

}  // extern "C"
