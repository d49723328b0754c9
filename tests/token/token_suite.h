// The ground of the token suites: a token folder of the suite's own, the PINs its tokens are made
// with, and the PIN calls every test makes.
#pragma once

#include "crypto_support.h"
#include "support.h"

namespace crypto_test {

class TokenSuite : public ::testing::Test {
 protected:
  explicit TokenSuite(const char* folder) : folder_(folder) {}

  static constexpr char kUser[] = "user-1234";
  static constexpr char kSo[] = "so-98765";
  // The default count is slow on purpose; these tests need no brute-force margin.
  static constexpr unsigned kIterations = 1000;

  int create(int type, const char* serial, const char* label, Dev& d, unsigned iterations = kIterations) {
    return VorelPKICryptoCreateToken(type, serial, label, kSo, kUser, iterations, vorel::out(d));
  }
  int verify_pin(int type, const char* pin, VOREL_DEVICE* d = nullptr) {
    unsigned retries = 0;
    return VorelPKICryptoVerifyPwd(d ? d : token_.get(), type, pin, &retries);
  }
  unsigned tries(int type = VOREL_PWD_USER, VOREL_DEVICE* d = nullptr) {
    unsigned n = 99;
    EXPECT_EQ(VorelPKICryptoGetPwdRetryNum(d ? d : token_.get(), type, &n), VOREL_OK);
    return n;
  }

  testsupport::TokenFolder folder_;
  const std::string& dir_ = folder_.dir;
  Dev token_;
};

}  // namespace crypto_test
