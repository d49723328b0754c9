// What a wing below the door knows of the call it serves: the export's name, for its log lines
// and for the mapping of crypto-library codes. Nothing else of the export's frame.
#pragma once

#include "core/errors.h"
#include "core/log.h"
#include "skf.h"

namespace vorel {

class Ctx {
 public:
  explicit constexpr Ctx(const char* exportName) : name_(exportName) {}
  const char* name() const { return name_; }
  // Logs "<function> fail, error : <rc>" and answers the SKF code for a crypto-library failure.
  ULONG crypto_failed(const char* function, int rc) const {
    VLOG_ERROR(name_, "%s fail, error : %d", function, rc);
    return sar_from_vorel(rc, name_);
  }

 private:
  const char* name_;
};

}  // namespace vorel
