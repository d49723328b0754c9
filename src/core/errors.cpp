#include "core/errors.h"

#include <array>
#include <cstring>

#include "vorel/vorel_crypto.h"

namespace vorel {

namespace {

// Exports that answer a library code differently from the common mapping get a row here.
struct Override {
  const char* exportName;
  int vorel;
  ULONG sar;
};
constexpr std::array<Override, 0> kOverrides{};

}  // namespace

ULONG sar_from_vorel(int rc, const char* exportName) {
  for (const Override& o : kOverrides)
    if (o.vorel == rc && std::strcmp(o.exportName, exportName) == 0) return o.sar;
  switch (rc) {
    case VOREL_ERR_PIN_INCORRECT:
      return SAR_PIN_INCORRECT;
    case VOREL_ERR_PIN_LEN_RANGE:
      return SAR_PIN_LEN_RANGE;
    case VOREL_ERR_NOT_LOGGED_IN:
      return SAR_USER_NOT_LOGGED_IN;
    default:
      return SAR_FAIL;
  }
}

}  // namespace vorel
