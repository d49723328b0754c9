// The commands of skftool, each over the options the command line filled in.
#pragma once

#include <memory>
#include <string>

#include "skf_library.h"

namespace skftool {

struct Options {
  std::string lib, config, device, app, container;
  bool json = false;
  std::string pin, soPin, newPin;
  bool so = false;  // the administrator PIN instead of the user PIN
  std::string in, out, sig, pubkey, cert, id = "1234567812345678", alg = "sm3", key, iv, name,
                                          use;  // use: "sign" or "enc", empty for the command's default
  bool der = false, blob = false;
  ULONG size = 0, offset = 0, readRights = SECURE_ANYONE_ACCOUNT, writeRights = SECURE_USER_ACCOUNT, length = 32;
  bool sizeGiven = false;
  double seconds = 2;
};

// The library of --lib (ours by default), with the configuration of --config loaded into it.
std::unique_ptr<SkfLibrary> open_library(const Options& o);
// A PIN from its option, else the environment variable, else a prompt without echo.
std::string pin_from(const std::string& given, const char* env, const char* prompt);
// The user PIN, or the administrator PIN with --so.
void login(const Application& app, const Options& o);
// Whether a PIN was given by option or environment (no prompt needed).
bool pin_at_hand(const Options& o);

// What most commands open first: the library, the device and the application of the options,
// with the PIN verified when the command needs it (or may use one that was given).
enum class Pin { None, IfGiven, Required };
struct Session {
  Session(const Options& o, Pin pin);
  std::unique_ptr<SkfLibrary> lib;
  Device dev;
  Application app;
};

// Devices and applications.
int cmd_list(const Options& o);
int cmd_info(const Options& o);
int cmd_apps(const Options& o);
int cmd_containers(const Options& o);
int cmd_random(const Options& o);
int cmd_auth(const Options& o);
// PINs.
int cmd_login(const Options& o);
int cmd_pin_info(const Options& o);
int cmd_change_pin(const Options& o);
int cmd_unblock_pin(const Options& o);
// Keys, certificates, signatures and encryption.
int cmd_export_pubkey(const Options& o);
int cmd_export_cert(const Options& o);
int cmd_import_cert(const Options& o);
int cmd_sign(const Options& o);
int cmd_verify(const Options& o);
int cmd_encrypt(const Options& o);
int cmd_decrypt(const Options& o);
int cmd_digest(const Options& o);
int cmd_mac(const Options& o);
// Files.
int cmd_files(const Options& o);
int cmd_read_file(const Options& o);
int cmd_write_file(const Options& o);
int cmd_create_file(const Options& o);
int cmd_delete_file(const Options& o);
// Throughput.
int cmd_speed(const Options& o);

}  // namespace skftool
