// Devices, applications, containers, PINs, random bytes and device authentication.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "keys.h"
#include "skf/algorithms.h"
#include "text.h"

namespace skftool {

using nlohmann::json;

namespace {

std::vector<std::string> device_names(const SkfLibrary& lib, BOOL present) {
  return read_list([&](LPSTR list, ULONG* size) { return lib.SKF_EnumDev(present, list, size); },
                   "listing the devices");
}

const char* state_name(ULONG state) {
  switch (state) {
    case DEV_PRESENT_STATE:
      return "present";
    case DEV_ABSENT_STATE:
      return "absent";
    default:
      return "unknown";
  }
}

// A fixed-size text field of a structure, which need not end with a zero.
std::string field(const char* text, std::size_t size) { return std::string(text, strnlen(text, size)); }

struct Bit {
  ULONG id;
  const char* name;
};
const Bit kAsymmetric[] = {
    {SGD_RSA, "RSA"}, {SGD_SM2_1, "SM2-sign"}, {SGD_SM2_2, "SM2-exchange"}, {SGD_SM2_3, "SM2-encrypt"}};
const Bit kHashes[] = {{SGD_SM3, "SM3"}, {SGD_SHA1, "SHA-1"}, {SGD_SHA256, "SHA-256"}};

// The algorithms whose whole identifier is set in a capability word.
template <std::size_t N>
std::vector<std::string> spelled(ULONG caps, const Bit (&bits)[N]) {
  std::vector<std::string> names;
  for (const Bit& b : bits)
    if ((caps & b.id) == b.id) names.push_back(b.name);
  return names;
}
std::vector<std::string> spelled_symmetric(ULONG caps) {
  std::vector<std::string> names;
  for (const vorel::SymmetricAlgorithm& a : vorel::kSymmetricAlgorithms)
    if ((caps & a.sgd) == a.sgd) names.push_back(a.name);
  return names;
}

std::string joined(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& n : names) out += (out.empty() ? "" : " ") + n;
  return out.empty() ? "none" : out;
}

std::string version(const VERSION& v) { return std::to_string(v.major) + "." + std::to_string(v.minor); }

const char* container_type(ULONG type) { return type == 1 ? "RSA" : type == 2 ? "SM2" : "empty"; }

void print_json(const json& j) { std::printf("%s\n", j.dump(2).c_str()); }

}  // namespace

std::unique_ptr<SkfLibrary> open_library(const Options& o) {
  auto lib = std::make_unique<SkfLibrary>(o.lib.empty() ? default_library() : o.lib);
  if (!o.config.empty()) {
    if (!lib->has("SKF_LoadConfigurationWithPath"))
      throw Failure(lib->path() + " takes no configuration file (--config is for the VorelSKF library)", kUsage);
    std::string path = o.config;
    check(lib->SKF_LoadConfigurationWithPath(&path[0]), "loading " + o.config);
  }
  return lib;
}

std::string pin_from(const std::string& given, const char* env, const char* prompt) {
  if (!given.empty()) return given;
  if (const char* e = std::getenv(env); e && *e) return e;
  std::string value;
  if (!vorel_tools::read_secret(prompt, value)) throw Failure(std::string("no PIN given (") + env + ")", kUsage);
  return value;
}

void login(const Application& app, const Options& o) {
  app.login(
      o.so ? pin_from(o.soPin, "SKFTOOL_SO_PIN", "Administrator PIN: ") : pin_from(o.pin, "SKFTOOL_PIN", "User PIN: "),
      o.so);
}

bool pin_at_hand(const Options& o) {
  const char* env = std::getenv(o.so ? "SKFTOOL_SO_PIN" : "SKFTOOL_PIN");
  return !(o.so ? o.soPin : o.pin).empty() || (env && *env);
}

Session::Session(const Options& o, Pin pin) : lib(open_library(o)), dev(*lib, o.device), app(dev, o.app) {
  if (pin == Pin::Required || (pin == Pin::IfGiven && pin_at_hand(o))) login(app, o);
}

int cmd_list(const Options& o) {
  auto lib = open_library(o);
  std::vector<std::string> present = device_names(*lib, TRUE), names = present;
  for (const std::string& n : device_names(*lib, FALSE))
    if (std::find(names.begin(), names.end(), n) == names.end()) names.push_back(n);
  json devices = json::array();
  for (const std::string& name : names) {
    std::string copy = name;
    ULONG state = DEV_UNKNOW_STATE;
    if (lib->SKF_GetDevState(&copy[0], &state) != SAR_OK) state = DEV_UNKNOW_STATE;
    bool isPresent = std::find(present.begin(), present.end(), name) != present.end();
    devices.push_back({{"name", name}, {"present", isPresent}, {"state", state_name(state)}});
  }
  if (o.json) {
    print_json({{"devices", devices}});
  } else if (devices.empty()) {
    std::printf("No devices.\n");
  } else {
    for (const json& d : devices)
      std::printf("%-24s %s\n", d["name"].get<std::string>().c_str(),
                  d["present"].get<bool>() ? d["state"].get<std::string>().c_str() : "configured");
  }
  return kDone;
}

int cmd_info(const Options& o) {
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  DEVINFO info{};
  check(lib->SKF_GetDevInfo(dev.handle(), &info), "reading the device information");
  // DEVINFO is packed: its numbers go in as copies, never as references.
  json j = {{"device", dev.name()},
            {"version", version(info.Version)},
            {"manufacturer", field(info.Manufacturer, sizeof info.Manufacturer)},
            {"issuer", field(info.Issuer, sizeof info.Issuer)},
            {"label", field(info.Label, sizeof info.Label)},
            {"serialNumber", field(info.SerialNumber, sizeof info.SerialNumber)},
            {"hardwareVersion", version(info.HWVersion)},
            {"firmwareVersion", version(info.FirmwareVersion)},
            {"symmetric", spelled_symmetric(info.AlgSymCap)},
            {"asymmetric", spelled(info.AlgAsymCap, kAsymmetric)},
            {"hashes", spelled(info.AlgHashCap, kHashes)},
            {"devAuthAlgId", ULONG{info.DevAuthAlgId}},
            {"totalSpace", ULONG{info.TotalSpace}},
            {"freeSpace", ULONG{info.FreeSpace}},
            {"maxEccBufferSize", ULONG{info.MaxECCBufferSize}},
            {"maxBufferSize", ULONG{info.MaxBufferSize}}};
  if (o.json) {
    print_json(j);
    return kDone;
  }
  std::printf("Device         %s\n", dev.name().c_str());
  std::printf("Label          %s\n", j["label"].get<std::string>().c_str());
  std::printf("Manufacturer   %s\n", j["manufacturer"].get<std::string>().c_str());
  std::printf("Issuer         %s\n", j["issuer"].get<std::string>().c_str());
  std::printf("Serial number  %s\n", j["serialNumber"].get<std::string>().c_str());
  std::printf("Versions       %s, hardware %s, firmware %s\n", version(info.Version).c_str(),
              version(info.HWVersion).c_str(), version(info.FirmwareVersion).c_str());
  std::printf("Symmetric      %s\n", joined(spelled_symmetric(info.AlgSymCap)).c_str());
  std::printf("Asymmetric     %s\n", joined(spelled(info.AlgAsymCap, kAsymmetric)).c_str());
  std::printf("Hashes         %s\n", joined(spelled(info.AlgHashCap, kHashes)).c_str());
  std::string auth = info.DevAuthAlgId == 0 ? "none" : joined(spelled_symmetric(info.DevAuthAlgId));
  std::printf("Device auth    %s\n", auth.c_str());
  std::printf("Space          %lu bytes free of %lu\n", static_cast<unsigned long>(info.FreeSpace),
              static_cast<unsigned long>(info.TotalSpace));
  std::printf("Buffers        %lu bytes, SM2 %lu bytes\n", static_cast<unsigned long>(info.MaxBufferSize),
              static_cast<unsigned long>(info.MaxECCBufferSize));
  return kDone;
}

int cmd_apps(const Options& o) {
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  std::vector<std::string> apps =
      read_list([&](LPSTR list, ULONG* size) { return lib->SKF_EnumApplication(dev.handle(), list, size); },
                "listing the applications");
  if (o.json) {
    print_json({{"device", dev.name()}, {"applications", apps}});
  } else {
    for (const std::string& a : apps) std::printf("%s\n", a.c_str());
    if (apps.empty()) std::printf("No applications.\n");
  }
  return kDone;
}

int cmd_containers(const Options& o) {
  Session s(o, Pin::None);
  json list = json::array();
  for (const std::string& name :
       read_list([&](LPSTR l, ULONG*size) { return s.lib->SKF_EnumContainer(s.app.handle(), l, size); },
                 "listing the containers")) {
    Container c(s.app, name);
    json entry = {{"name", name}, {"type", container_type(c.type())}};
    for (bool sign : {true, false}) {
      json pair = {{"publicKey", !c.public_blob(sign).empty()}, {"certificate", !c.certificate(sign).empty()}};
      entry[sign ? "sign" : "encrypt"] = pair;
    }
    list.push_back(entry);
  }
  if (o.json) {
    print_json({{"device", s.dev.name()}, {"application", s.app.name()}, {"containers", list}});
    return kDone;
  }
  if (list.empty()) std::printf("No containers in %s.\n", s.app.name().c_str());
  for (const json& c : list) {
    std::printf("%s  %s\n", c["name"].get<std::string>().c_str(), c["type"].get<std::string>().c_str());
    for (const char* use : {"sign", "encrypt"}) {
      const json& p = c[use];
      if (!p["publicKey"].get<bool>()) continue;
      std::printf("  %-8s key pair, %s\n", use, p["certificate"].get<bool>() ? "certificate" : "no certificate");
    }
  }
  return kDone;
}

int cmd_random(const Options& o) {
  if (o.length == 0 || o.length > 65536) throw Failure("--len must be 1 to 65536", kUsage);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  Bytes data(o.length);
  check(lib->SKF_GenRandom(dev.handle(), data.data(), o.length), "drawing random bytes");
  if (o.out.empty())
    std::printf("%s\n", to_hex(data).c_str());
  else
    write_output(o.out, data);
  return kDone;
}

int cmd_auth(const Options& o) {
  Bytes key = from_hex(o.key, "--key");
  if (key.size() != 16) throw Failure("--key must be 16 bytes (32 hex digits)", kUsage);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  DEVINFO info{};
  check(lib->SKF_GetDevInfo(dev.handle(), &info), "reading the device information");
  if (info.DevAuthAlgId == 0) throw Failure(dev.name() + " offers no device authentication");
  // The device's challenge, encrypted under the authentication key with its algorithm.
  BYTE challenge[16] = {};
  check(lib->SKF_GenRandom(dev.handle(), challenge, 8), "drawing the challenge");
  Handle k(*lib);
  check(lib->SKF_SetSymmKey(dev.handle(), key.data(), info.DevAuthAlgId, k.out()), "setting the key");
  BLOCKCIPHERPARAM param{};
  check(lib->SKF_EncryptInit(k.get(), param), "starting the encryption");
  BYTE answer[32];
  ULONG len = sizeof answer;
  check(lib->SKF_Encrypt(k.get(), challenge, 16, answer, &len), "encrypting the challenge");
  check(lib->SKF_DevAuth(dev.handle(), answer, len), "authenticating " + dev.name());
  std::printf("Device %s authenticated\n", dev.name().c_str());
  return kDone;
}

int cmd_login(const Options& o) {
  Session s(o, Pin::Required);
  std::printf("%s PIN of %s verified\n", o.so ? "Administrator" : "User", s.app.name().c_str());
  return kDone;
}

int cmd_pin_info(const Options& o) {
  Session s(o, Pin::None);
  json pins = json::object();
  for (ULONG type : {static_cast<ULONG>(USER_TYPE), static_cast<ULONG>(ADMIN_TYPE)}) {
    ULONG max = 0, left = 0;
    BOOL isDefault = FALSE;
    check(s.lib->SKF_GetPINInfo(s.app.handle(), type, &max, &left, &isDefault), "reading the PIN information");
    pins[type == USER_TYPE ? "user" : "admin"] = {
        {"maxRetries", max}, {"retriesLeft", left}, {"default", isDefault != FALSE}};
  }
  if (o.json) {
    print_json({{"application", s.app.name()}, {"pins", pins}});
    return kDone;
  }
  for (const char* which : {"user", "admin"}) {
    const json& p = pins[which];
    std::printf("%-5s PIN  %u of %u tries left%s\n", which, p["retriesLeft"].get<unsigned>(),
                p["maxRetries"].get<unsigned>(), p["default"].get<bool>() ? ", still the default PIN" : "");
  }
  return kDone;
}

int cmd_change_pin(const Options& o) {
  Session s(o, Pin::None);
  std::string old = o.so ? pin_from(o.soPin, "SKFTOOL_SO_PIN", "Current administrator PIN: ")
                         : pin_from(o.pin, "SKFTOOL_PIN", "Current user PIN: ");
  std::string fresh = pin_from(o.newPin, "SKFTOOL_NEW_PIN", "New PIN: ");
  ULONG retries = 0;
  ULONG rc = s.lib->SKF_ChangePIN(s.app.handle(), o.so ? ADMIN_TYPE : USER_TYPE, &old[0], &fresh[0], &retries);
  if (rc == SAR_PIN_INCORRECT)
    throw Failure("changing the PIN: " + describe_code(rc) + ", " + std::to_string(retries) + " tries left", kWrongPin);
  check(rc, "changing the PIN");
  std::printf("%s PIN of %s changed\n", o.so ? "Administrator" : "User", s.app.name().c_str());
  return kDone;
}

int cmd_unblock_pin(const Options& o) {
  Session s(o, Pin::None);
  std::string so = pin_from(o.soPin, "SKFTOOL_SO_PIN", "Administrator PIN: ");
  std::string fresh = pin_from(o.newPin, "SKFTOOL_NEW_PIN", "New user PIN: ");
  ULONG retries = 0;
  ULONG rc = s.lib->SKF_UnblockPIN(s.app.handle(), &so[0], &fresh[0], &retries);
  if (rc == SAR_PIN_INCORRECT)
    throw Failure("unblocking the user PIN: " + describe_code(rc) + ", " + std::to_string(retries) + " tries left",
                  kWrongPin);
  check(rc, "unblocking the user PIN");
  std::printf("User PIN of %s set and unblocked\n", s.app.name().c_str());
  return kDone;
}

}  // namespace skftool
