// vorel-token from the command line, checked through the library and against openssl's files.
#include <memory>
#include <string>

#include "crypto_support.h"
#include "support.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

using namespace crypto_test;

class VorelTokenTool : public ::testing::Test {
 protected:
  // Runs the tool on the test's token folder; returns its exit code, its output in out_.
  int tool(std::vector<std::string> args) {
    args.insert(args.begin(), {"--token-dir", dir_});
    return testsupport::run_process(testsupport::module_path(VOREL_TOKEN_TOOL), args, out_);
  }
  std::vector<std::string> on_token(std::vector<std::string> args) {
    args.insert(args.begin() + 1, {"--type", "7", "--serial", "E2E"});
    return args;
  }
  // Makes token 7#E2E with the user PIN user-pin and the SO PIN so-pin-1.
  int init(const char* label) {
    return tool(
        on_token({"init", "--label", label, "--so-pin", "so-pin-1", "--pin", "user-pin", "--kdf-iterations", "1000"}));
  }
  // The library's view of the token, logged in with pin when given.
  Dev found(const char* pin = nullptr) {
    Dev d;
    unsigned retries = 0;
    EXPECT_EQ(VorelPKICryptoFindDevice(7, "E2E", VOREL_ENUM_TOKENS, vorel::out(d)), VOREL_OK);
    if (pin) {
      EXPECT_EQ(VorelPKICryptoVerifyPwd(d.get(), VOREL_PWD_USER, pin, &retries), VOREL_OK);
    }
    return d;
  }

  testsupport::TokenFolder folder_{"tool"};
  const std::string& dir_ = folder_.dir;
  const std::string testdata_ = testsupport::module_path("testdata") + "/";
  std::string out_;
};

TEST_F(VorelTokenTool, ProvisionsATokenThatTheLibraryServes) {
  ASSERT_EQ(init("End to end"), 0);
  EXPECT_NE(out_.find("Created token 7#E2E \"End to end\""), std::string::npos) << out_;
  EXPECT_EQ(tool(on_token({"import-cert", "--file", testdata_ + "sm2.crt.pem", "--pin", "user-pin"})), 1)
      << "no key pair carries its key yet";
  ASSERT_EQ(tool(on_token({"keygen", "--alg", "sm2", "--use", "sign", "--label", "signer", "--pin", "user-pin"})), 0);
  ASSERT_EQ(tool(on_token({"import-key", "--file", testdata_ + "rsa.key.pem", "--use", "enc", "--label", "rsa", "--pin",
                           "user-pin"})),
            0);
  ASSERT_EQ(tool(on_token({"import-key", "--file", testdata_ + "sm2.key.der", "--use", "sign", "--label", "sm2",
                           "--pin", "user-pin"})),
            0);
  EXPECT_EQ(tool(on_token({"import-key", "--file", testdata_ + "sm2.key.enc.pem", "--pin", "user-pin"})), 1);
  ASSERT_EQ(tool(on_token({"import-cert", "--file", testdata_ + "rsa.crt.der", "--pin", "user-pin"})), 0);
  ASSERT_EQ(tool(on_token({"import-cert", "--file", testdata_ + "sm2.crt.pem", "--pin", "user-pin"})), 0);

  ASSERT_EQ(tool({"list"}), 0);
  for (const char* line : {"7#E2E  type 7  serial E2E  label \"End to end\"",
                           "key pair 0: sign  SM2-256  label \"signer\"  no certificate",
                           "key pair 1: enc   RSA-2048  label \"rsa\"  certificate \"CN=Vorel RSA Test,O=Vorel,C=CN\"",
                           "key pair 2: sign  SM2-256  label \"sm2\"  certificate \"CN=Vorel SM2 Test,O=Vorel,C=CN\""})
    EXPECT_NE(out_.find(line), std::string::npos) << line << "\n" << out_;
  EXPECT_EQ(out_.find("warning:"), std::string::npos) << "the folder is its owner's alone\n" << out_;

  // Certificates come back as openssl wrote them, DER to a file and PEM to the output.
  std::string der = dir_ + "rsa.der";
  ASSERT_EQ(tool(on_token({"export-cert", "--index", "1", "--der", "--out", der})), 0);
  EXPECT_EQ(testsupport::read_file(der), testsupport::read_file(testdata_ + "rsa.crt.der"));
  ASSERT_EQ(tool(on_token({"export-cert", "--index", "2"})), 0);
  EXPECT_EQ(out_, testsupport::read_file(testdata_ + "sm2.crt.pem"));
  EXPECT_EQ(tool(on_token({"export-cert", "--index", "0"})), 1);

  // The library sees the same token: the generated key signs after the user PIN.
  Dev d = found("user-pin");
  EXPECT_EQ(sign(Pair(VorelPKICryptoGetKeypair(d.get(), 0)).get(), VOREL_MECH_SM2_SIGN, Bytes(32, 7)), VOREL_OK);
}

TEST_F(VorelTokenTool, ImportsAnSm2KeyInEveryFormOpensslWritesIt) {
  ASSERT_EQ(init("forms"), 0);
  const char* forms[] = {"sm2.key.pem", "sm2.key.der", "sm2.sec1.pem", "sm2.sec1.ec.pem", "sm2.sec1.der"};
  for (const char* form : forms)
    EXPECT_EQ(tool(on_token({"import-key", "--file", testdata_ + form, "--pin", "user-pin"})), 0) << form;
  Dev d = found();
  ASSERT_EQ(VorelPKICryptoGetKeypairCount(d.get()), 5);
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(der_of(public_of(Pair(VorelPKICryptoGetKeypair(d.get(), i))).get()), data("sm2.pub.der")) << forms[i];
}

TEST_F(VorelTokenTool, PinAdministrationAndExitCodes) {
  ASSERT_EQ(init("pins"), 0);
  EXPECT_EQ(init("again"), 1);
  EXPECT_EQ(tool({"keygen", "--alg", "sm2"}), 2) << "no --type";
  EXPECT_EQ(tool(on_token({"keygen", "--alg", "dsa", "--pin", "user-pin"})), 2);
  EXPECT_EQ(tool(on_token({"keygen", "--pin", "wrong-pin"})), 3);
  EXPECT_EQ(tool(on_token({"change-pin", "--pin", "user-pin", "--new-pin", "123"})), 1) << "too short";
  {
    // PINs from the environment.
    testsupport::ScopedEnv current("VOREL_TOKEN_PIN", "user-pin"), fresh("VOREL_TOKEN_NEW_PIN", "user-pin-2");
    ASSERT_EQ(tool(on_token({"change-pin"})), 0);
  }
  EXPECT_EQ(tool({"keygen", "--type", "7", "--pin", "user-pin-2"}), 0) << "the only token of its type";
  for (int i = 0; i < 6; ++i) EXPECT_EQ(tool(on_token({"keygen", "--pin", "user-pin"})), 3);
  EXPECT_EQ(tool(on_token({"keygen", "--pin", "user-pin-2"})), 3) << "locked";
  EXPECT_EQ(tool(on_token({"unblock-pin", "--so-pin", "so-pin-1", "--new-pin", "user-pin-3"})), 0);
  EXPECT_EQ(tool(on_token({"keygen", "--pin", "user-pin-3"})), 0);
  EXPECT_EQ(tool(on_token({"delete", "--so-pin", "wrong-so"})), 3);
  EXPECT_EQ(tool(on_token({"delete", "--so-pin", "so-pin-1"})), 0);
  ASSERT_EQ(tool({"list"}), 0);
  EXPECT_NE(out_.find("No tokens."), std::string::npos) << out_;
}

TEST_F(VorelTokenTool, ListSaysWhatIsWrongWithTheFolderAndItsFiles) {
  ASSERT_EQ(init("fine"), 0);
  testsupport::write_file(dir_ + "7-BAD.token", "not a token at all, but named like one");
#ifndef _WIN32
  ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
#endif
  ASSERT_EQ(tool({"list"}), 0);
  EXPECT_NE(out_.find("7#E2E  type 7  serial E2E  label \"fine\""), std::string::npos) << out_;
  EXPECT_NE(out_.find("skipped 7-BAD.token: not a token file"), std::string::npos) << out_;
#ifndef _WIN32
  EXPECT_NE(out_.find("warning: token folder " + dir_.substr(0, dir_.size() - 1) + " has mode 0755"), std::string::npos)
      << out_;
#else
  EXPECT_EQ(out_.find("warning:"), std::string::npos) << out_;
#endif
}

}  // namespace
