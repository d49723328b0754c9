// The device suites drive the built library through its exports, as applications do, over
// software tokens made with the crypto library's own API in a fresh token folder per test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "recorder.h"
#include "skf.h"
#include "support.h"

namespace device {

// The log file the library writes (VOREL_SKF_LOG_PATH, set before the library loaded).
extern std::string g_log_path;
inline testsupport::LogFile log_file() { return testsupport::LogFile(g_log_path); }

constexpr ULONG kOk = SAR_OK;
constexpr const char* kUserPin = "12345678";
constexpr const char* kSoPin = "87654321";

// A key pair to put on a token: files of testdata/device, type VOREL_KEYPAIR_SIGN or
// VOREL_KEYPAIR_ENCRYPT, a label, a certificate file or nullptr.
struct KeySpec {
  const char* key;
  int type;
  const char* label;
  const char* cert;
};

// A file of the container test data (keys and certificates made by openssl at build time).
std::string device_data(const std::string& name);

class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Replaces the library's configuration; fails the test when it does not load.
  void configure(const std::string& json);
  // A token of the type with that serial number and label, PINs kSoPin and kUserPin, holding the
  // key pairs in that order.
  void make_token(int type, const std::string& serial, const std::string& label = "token",
                  const std::vector<KeySpec>& keys = {});
  // Connects, failing the test on any other answer.
  DEVHANDLE connect(const std::string& name);
  // The SKF_EnumDev list as names.
  std::vector<std::string> enumerate(bool present);

  std::string tokenDir_;
  std::unique_ptr<testsupport::TokenFolder> tokens_;
  std::vector<DEVHANDLE> connected_;
};

// A configuration entry routing a type to the recording vendor module.
std::string vendor_entry(int type, const std::string& pidvids = R"(["VID_1234"])");
std::string empty_vendor_entry(int type);

std::vector<std::string> split_names(const char* list, ULONG size);

// One of each key and signature blob, zero-filled: arguments for calls that must reach a vendor
// or a handle check whatever the blobs hold.
struct Blobs {
  RSAPUBLICKEYBLOB rsaPub{};
  RSAPRIVATEKEYBLOB rsaPriv{};
  ECCPUBLICKEYBLOB eccPub{};
  ECCPRIVATEKEYBLOB eccPriv{};
  ECCSIGNATUREBLOB sig{};
  ENVELOPEDKEYBLOB envelope{};
};

using Bytes = std::vector<BYTE>;
inline Bytes bytes(const std::string& s) { return Bytes(s.begin(), s.end()); }
Bytes unhex(const std::string& hex);
// Lower-case hex digits of bytes.
std::string hex(const void* data, std::size_t len);
inline std::string hex(const Bytes& b) { return hex(b.data(), b.size()); }
inline std::string hex(const std::string& s) { return hex(s.data(), s.size()); }
// An ECCCIPHERBLOB (with its CipherLen bytes) of the DER SM2 ciphertext openssl writes.
Bytes ecc_cipher_blob(const std::string& der);
// The public key blob of an SM2 SubjectPublicKeyInfo.
ECCPUBLICKEYBLOB ecc_public_blob(const std::string& spki);

// Runs the openssl command in the binaries' folder with a file of input bytes written first;
// its output file is read back. False where the platform has no openssl (the Windows build).
bool openssl(const std::vector<std::string>& args, const std::string& input = "", std::string* output = nullptr);

}  // namespace device
