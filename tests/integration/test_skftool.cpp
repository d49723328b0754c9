// skftool end to end: the built tool run as a user runs it, over a software token holding keys
// that openssl made, its answers checked with openssl and the openssl-made test data.
#include <nlohmann/json.hpp>

#include "device_suite.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

using nlohmann::json;

struct Result {
  int code;
  std::string out, err;
};

class Skftool : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    // alice: an SM2 signing pair with its certificate and an encryption pair; carol: RSA.
    make_token(3, "T1", "tool token",
               {{"s1", VOREL_KEYPAIR_SIGN, "alice", nullptr},
                {"s2", VOREL_KEYPAIR_ENCRYPT, "alice", "s2"},
                {"r1", VOREL_KEYPAIR_SIGN, "carol", "r1"}});
    work_ = testsupport::make_temp_dir("skftool");
    config_ = work_ + "vorelskf.json";
    testsupport::write_file(config_, R"({"devices":[{"name":"SOFT","type":3}]})");
  }
  // skftool with the test configuration (ours, not a vendor library's), input on standard input;
  // it must exit with code, its error output holding message.
  Result exits(std::vector<std::string> args, int code, const std::string& message = "",
               const std::string& input = "") {
    if (args[0] != "--lib") args.insert(args.begin(), {"--config", config_});
    Result r;
    r.code = testsupport::run_process(testsupport::module_path(SKFTOOL), args, input, r.out, r.err);
    EXPECT_EQ(r.code, code) << args[2] << ": " << r.err;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    return r;
  }
  Result ok(const std::vector<std::string>& args) { return exits(args, 0); }
  // skftool writes to its --out file exactly the bytes of the test data file.
  void writes(std::vector<std::string> args, const std::string& expected) {
    args.insert(args.end(), {"--out", file("out")});
    ok(args);
    EXPECT_EQ(testsupport::read_file(file("out")), testsupport::read_file(data(expected))) << expected;
  }
  std::string file(const std::string& name) { return work_ + name; }
  std::string data(const std::string& name) { return testsupport::module_path(("testdata/device/" + name).c_str()); }
  std::string work_, config_;
  testsupport::ScopedEnv noPin_{"SKFTOOL_PIN", nullptr}, noSoPin_{"SKFTOOL_SO_PIN", nullptr};
};

TEST_F(Skftool, ListingsShowTheTokenAsTheLibrarySeesIt) {
  EXPECT_EQ(json::parse(ok({"list", "--json"}).out)["devices"][0],
            json::parse(R"({"name":"3#T1","present":true,"state":"present"})"));

  json info = json::parse(ok({"info", "--json"}).out);
  EXPECT_EQ(info["label"], "tool token");
  EXPECT_EQ(info["serialNumber"], "T1");
  EXPECT_NE(info["symmetric"].dump().find("SM4-CBC"), std::string::npos);
  EXPECT_NE(info["asymmetric"].dump().find("SM2-sign"), std::string::npos);

  EXPECT_EQ(json::parse(ok({"apps", "--json"}).out)["applications"], json::array({"VOREL"}));
  json containers = json::parse(ok({"containers", "--json"}).out)["containers"];
  ASSERT_EQ(containers.size(), 2u);
  EXPECT_EQ(containers[0], json::parse(R"({"name":"alice","type":"SM2","sign":{"publicKey":true,"certificate":false},
                                          "encrypt":{"publicKey":true,"certificate":true}})"));
  EXPECT_EQ(containers[1]["type"], "RSA");
}

TEST_F(Skftool, KeysAndCertificatesComeOutAsOpenSslWroteThem) {
  writes({"export-pubkey", "--container", "alice"}, "s1.pub.pem");
  writes({"export-pubkey", "--container", "alice", "--der"}, "s1.pub.der");
  writes({"export-pubkey", "--container", "carol"}, "r1.pub.pem");
  writes({"export-cert", "--container", "alice", "--use", "enc", "--der"}, "s2.crt");

  exits({"export-cert", "--container", "alice"}, 1, "alice has no signing certificate");
  ok({"import-cert", "--container", "alice", "--in", data("s1.crt.pem"), "--pin", kUserPin});
  writes({"export-cert", "--container", "alice", "--der"}, "s1.crt");
  // Another key's certificate is refused by the library.
  exits({"import-cert", "--container", "carol", "--in", data("s3.crt"), "--pin", kUserPin}, 1);
}

TEST_F(Skftool, SignaturesVerifyWithOpenSslAndOpenSslSignaturesVerify) {
  testsupport::write_file(file("msg"), "a message to sign\n");
  const struct {
    const char* container;
    const char* pub;
    std::vector<std::string> opensslVerify;
  } signers[] = {
      {"alice", "s1.pub.pem", {"dgst", "-sm3", "-sigopt", "distid:1234567812345678"}},
      {"carol", "r1.pub.pem", {"dgst", "-sha256"}},
  };
  for (const auto& s : signers) {
    SCOPED_TRACE(s.container);
    std::string sig = file(std::string(s.container) + ".sig");
    ok({"sign", "--container", s.container, "--in", file("msg"), "--out", sig, "--pin", kUserPin});
    std::vector<std::string> args = s.opensslVerify;
    args.insert(args.end(), {"-verify", data(s.pub), "-signature", sig, file("msg")});
    openssl(args);
    for (const std::vector<std::string>& key :
         {std::vector<std::string>{"--container", s.container}, std::vector<std::string>{"--pubkey", data(s.pub)}}) {
      std::vector<std::string> verify = {"verify", "--in", file("msg"), "--sig", sig};
      verify.insert(verify.end(), key.begin(), key.end());
      EXPECT_EQ(ok(verify).out, "Signature verified\n");
      verify[2] = data("plain.bin");
      exits(verify, 1, "the signature does not verify");
    }
  }
  // openssl's own signatures: SM2 under another signer ID, RSA over SHA-256.
  ok({"verify", "--cert", data("s1.crt.pem"), "--id", "ALICE123@YAHOO.COM", "--in", data("plain.bin"), "--sig",
      data("plain.alice.sig")});
  exits({"verify", "--pubkey", data("s1.pub.pem"), "--in", data("plain.bin"), "--sig", data("plain.alice.sig")}, 1);
  ok({"verify", "--cert", data("r1.crt"), "--in", data("plain.bin"), "--sig", data("plain.r1.sig")});
}

TEST_F(Skftool, Sm2CiphertextsTravelBetweenOpenSslAndTheToken) {
  // openssl's ciphertext of the 16-byte key, decrypted with the container's encryption pair.
  writes({"decrypt", "--container", "alice", "--in", data("key16.s2.der"), "--pin", kUserPin}, "key16.bin");
  // Ours, to the certificate's key: openssl decrypts it with the private key, and so does the token.
  ok({"encrypt", "--cert", data("s2.crt"), "--in", data("plain.bin"), "--out", file("ct.der")});
  std::string plain;
  if (openssl({"pkeyutl", "-decrypt", "-inkey", data("s2.pem"), "-in", file("ct.der"), "-out", "OUT"}, "", &plain)) {
    EXPECT_EQ(plain, testsupport::read_file(data("plain.bin")));
  }
  writes({"decrypt", "--container", "alice", "--in", file("ct.der"), "--pin", kUserPin}, "plain.bin");
  // The signing pair did not encrypt it.
  exits({"decrypt", "--container", "alice", "--use", "sign", "--in", file("ct.der"), "--pin", kUserPin}, 1);
}

TEST_F(Skftool, DigestsMacsAndRandomBytes) {
  const struct {
    const char* alg;
    const char* expected;
  } digests[] = {{"sm3", "plain.sm3"}, {"sha1", "plain.sha1"}, {"sha256", "plain.sha256"}};
  for (const auto& d : digests) {
    std::string expected = testsupport::read_file(data(d.expected));
    EXPECT_EQ(ok({"digest", "--alg", d.alg, "--in", data("plain.bin")}).out, hex(expected) + "\n") << d.alg;
  }
  // The MAC is the last block of openssl's SM4-CBC encryption without padding.
  std::string cbc = testsupport::read_file(data("sm4-cbc.nopad.bin"));
  EXPECT_EQ(ok({"mac", "--key", "0123456789abcdeffedcba9876543210", "--iv", "000102030405060708090a0b0c0d0e0f", "--in",
                data("plain96.bin")})
                .out,
            hex(cbc.substr(cbc.size() - 16)) + "\n");
  exits({"mac", "--key", "00", "--in", data("plain96.bin")}, 2);
  exits({"mac", "--key", "0123456789abcdeffedcba9876543210", "--in", data("plain.bin")}, 2);

  std::string a = ok({"random", "--len", "16"}).out, b = ok({"random", "--len", "16"}).out;
  EXPECT_EQ(a.size(), 33u);
  EXPECT_NE(a, b);
}

TEST_F(Skftool, PinsFromOptionsEnvironmentOrPromptAndWrongOnesExitThree) {
  exits({"login", "--pin", "00000000"}, 3,
        "verifying the user PIN: SAR_PIN_INCORRECT (0x0A000024): wrong PIN, 5 tries left");
  EXPECT_EQ(ok({"login", "--pin", kUserPin}).out, "User PIN of VOREL verified\n");
  exits({"login"}, 0, "", std::string(kUserPin) + "\n");  // from standard input
  {
    testsupport::ScopedEnv soPin("SKFTOOL_SO_PIN", kSoPin);
    EXPECT_EQ(ok({"login", "--so"}).out, "Administrator PIN of VOREL verified\n");
  }
  EXPECT_EQ(json::parse(ok({"pin-info", "--json"}).out)["pins"]["user"]["retriesLeft"], 6);

  ok({"change-pin", "--pin", kUserPin, "--new-pin", "abcdefgh"});
  exits({"login", "--pin", kUserPin}, 3);
  ok({"unblock-pin", "--so-pin", kSoPin, "--new-pin", kUserPin});
  exits({"login", "--pin", kUserPin}, 0);
  exits({"login"}, 2);  // end of input at the prompt
}

TEST_F(Skftool, FilesOnTheToken) {
  ok({"create-file", "--name", "notes", "--size", "64", "--read-rights", "user", "--pin", kUserPin});
  testsupport::write_file(file("notes"), "kept on the token");
  ok({"write-file", "--name", "notes", "--in", file("notes"), "--offset", "4", "--pin", kUserPin});
  json files = json::parse(ok({"files", "--json"}).out)["files"];
  EXPECT_EQ(files, json::parse(R"([{"name":"notes","size":64,"readRights":"user","writeRights":"user"}])"));
  EXPECT_EQ(ok({"read-file", "--name", "notes", "--offset", "4", "--size", "17", "--pin", kUserPin}).out,
            "kept on the token");
  EXPECT_EQ(ok({"read-file", "--name", "notes", "--pin", kUserPin}).out.size(), 64u);
  exits({"read-file", "--name", "notes"}, 1, "SAR_USER_NOT_LOGGED_IN (0x0A00002D)");
  exits({"create-file", "--name", "notes", "--size", "1", "--pin", kUserPin}, 1);
  ok({"delete-file", "--name", "notes", "--pin", kUserPin});
  EXPECT_EQ(ok({"files"}).out, "No files in VOREL.\n");
}

TEST_F(Skftool, WrongArgumentsExitTwo) {
  const std::vector<std::string> cases[] = {
      {"frobnicate"},
      {"sign", "--in", "x"},  // no container
      {"random", "--len", "0"},
      {"auth", "--key", "xyz"},
      {"create-file", "--name", "f", "--size", "1", "--read-rights", "sometimes"},
      {"verify", "--in", data("plain.bin"), "--sig", data("plain.alice.sig")},  // no key to verify with
  };
  for (const auto& args : cases) exits(args, 2);
  exits({"--lib", file("missing.so"), "list"}, 1);
}

TEST_F(Skftool, DeviceAuthenticationWithTheConfiguredKey) {
  testsupport::write_file(config_,
                          R"({"devices":[{"name":"SOFT","type":3,"devAuthKey":"00112233445566778899aabbccddeeff"}]})");
  EXPECT_EQ(ok({"auth", "--key", "00112233445566778899aabbccddeeff"}).out, "Device 3#T1 authenticated\n");
  exits({"auth", "--key", "00112233445566778899aabbccddeef0"}, 1, "SAR_FAIL");
}

TEST_F(Skftool, SpeedReportsEachTest) {
  json speed = json::parse(
      ok({"speed", "--seconds", "0.05", "--container", "alice", "--pin", kUserPin, "--json"}).out)["results"];
  std::vector<std::string> tests;
  for (const json& r : speed) {
    tests.push_back(r["test"]);
    EXPECT_GT(r["value"].get<double>(), 0) << r["test"];
  }
  EXPECT_EQ(tests, (std::vector<std::string>{"sm3", "sha256", "sm4-cbc", "sm2 sign", "sm2 verify", "sm2 encrypt"}));
}

// Any SKF library: a vendor's, loaded directly, and ours routing a type to it.
TEST_F(Skftool, AVendorLibraryServesTheSameCommands) {
  std::string vendor = testsupport::module_path(VENDOR_FIXTURE);
  EXPECT_EQ(ok({"--lib", vendor, "list"}).out, "FIXTURE0                 present\n");
  EXPECT_NE(ok({"--lib", vendor, "info"}).out.find("Label          FIXTURE LABEL"), std::string::npos);
  testsupport::write_file(config_, R"({"devices":[)" + vendor_entry(7) + "]}");
  EXPECT_NE(ok({"--device", "7#FIXTURE0", "info"}).out.find("Manufacturer   VOREL FIXTURE"), std::string::npos);
}

}  // namespace
}  // namespace device
