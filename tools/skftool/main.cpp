// skftool: a client for any SKF library, through the standard functions only.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <map>

#include "commands.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

using namespace skftool;

namespace {

// File rights by name or number.
ULONG rights_value(const std::string& text) {
  static const std::map<std::string, ULONG> names = {{"anyone", SECURE_ANYONE_ACCOUNT},
                                                     {"user", SECURE_USER_ACCOUNT},
                                                     {"admin", SECURE_ADM_ACCOUNT},
                                                     {"never", SECURE_NEVER_ACCOUNT}};
  auto it = names.find(text);
  if (it != names.end()) return it->second;
  char* end = nullptr;
  unsigned long value = std::strtoul(text.c_str(), &end, 0);
  if (text.empty() || *end || value > 0xFF) throw Failure("rights are anyone, user, admin, never or 0 to 0xFF", kUsage);
  return static_cast<ULONG>(value);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
  // Signatures, ciphertexts and file contents go to standard output as they are.
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  CLI::App app{
      "skftool drives a smart token through an SKF library (GM/T 0016): lists devices, applications and containers, "
      "checks PINs, signs and verifies with SM2 (SM3 with Z) or RSA, encrypts and decrypts with SM2, hashes, keeps "
      "files on the token and measures throughput. It uses the library's standard functions only, so it works with "
      "VorelSKF (the default) and with a vendor's own library alike.",
      "skftool"};
  app.footer(
      "Devices are named as SKF_EnumDev lists them (skftool list); by default the first device present and its "
      "first application are used.\n"
      "PINs come from --pin / --so-pin / --new-pin, else from SKFTOOL_PIN, SKFTOOL_SO_PIN and SKFTOOL_NEW_PIN, "
      "else they are asked for without echo.\n"
      "Exit codes: 0 done, 1 failed, 2 bad arguments, 3 wrong or locked PIN.\n"
      "Example: skftool sign --container signer --in report.pdf --out report.sig");
  app.require_subcommand(1);
  app.fallthrough();  // the global options may also follow the command
  Options o;
  app.add_option("--lib", o.lib, "SKF library to load (default: VorelSKF beside skftool)");
  app.add_option("--config", o.config, "Configuration file for the VorelSKF library");
  app.add_option("--device", o.device, "Device name (default: the first one present)");
  app.add_option("--app", o.app, "Application name (default: the device's first)");

  auto json = [&](CLI::App* c) { c->add_flag("--json", o.json, "Print JSON"); };
  auto container = [&](CLI::App* c, bool required) {
    auto opt = c->add_option("--container", o.container, "Container name (see: skftool containers)");
    if (required) opt->required();
  };
  auto pin = [&](CLI::App* c) {
    c->add_option("--pin", o.pin, "User PIN");
    c->add_option("--so-pin", o.soPin, "Administrator PIN");
    c->add_flag("--so", o.so, "Verify the administrator PIN instead of the user PIN");
  };
  auto use = [&](CLI::App* c, const char* byDefault) {
    c->add_option("--use", o.use, std::string("Key pair of the container: sign or enc (default ") + byDefault + ")")
        ->check(CLI::IsMember({"sign", "enc"}));
  };
  auto in = [&](CLI::App* c, const char* what) { c->add_option("--in", o.in, what)->required(); };
  auto out = [&](CLI::App* c) { c->add_option("--out", o.out, "Output file (default: standard output)"); };
  auto key = [&](CLI::App* c) {
    c->add_option("--pubkey", o.pubkey, "Public key file (PEM or DER SubjectPublicKeyInfo)");
    c->add_option("--cert", o.cert, "Certificate file (PEM or DER)");
  };
  auto id = [&](CLI::App* c) { c->add_option("--id", o.id, "Signer ID for the SM2 Z value")->capture_default_str(); };
  auto fileName = [&](CLI::App* c) { c->add_option("--name", o.name, "File name on the token")->required(); };

  std::map<CLI::App*, std::function<int(const Options&)>> commands;
  auto command = [&](const char* name, const char* help, int (*run)(const Options&)) {
    CLI::App* c = app.add_subcommand(name, help);
    commands[c] = run;
    return c;
  };

  json(command("list", "List the devices present and configured, with their state", cmd_list));
  json(command("info", "Show the device information, capabilities spelled out", cmd_info));
  json(command("apps", "List the applications of the device", cmd_apps));
  json(command("containers", "List the containers with their key pairs and certificates", cmd_containers));
  CLI::App* random = command("random", "Draw random bytes from the device (hex, or raw to --out)", cmd_random);
  random->add_option("--len", o.length, "How many bytes")->capture_default_str();
  out(random);
  CLI::App* auth = command("auth", "Authenticate the device with its authentication key", cmd_auth);
  auth->add_option("--key", o.key, "Authentication key, 32 hex digits")->required();

  pin(command("login", "Check the user PIN (or with --so the administrator PIN)", cmd_login));
  json(command("pin-info", "Show the tries left of both PINs", cmd_pin_info));
  CLI::App* changePin =
      command("change-pin", "Change the user PIN (or with --so the administrator PIN)", cmd_change_pin);
  pin(changePin);
  changePin->add_option("--new-pin", o.newPin, "The new PIN");
  CLI::App* unblock = command("unblock-pin", "Set a new user PIN with the administrator PIN", cmd_unblock_pin);
  unblock->add_option("--so-pin", o.soPin, "Administrator PIN");
  unblock->add_option("--new-pin", o.newPin, "The new user PIN");

  CLI::App* exportPub = command("export-pubkey", "Write out a container's public key", cmd_export_pubkey);
  container(exportPub, true);
  use(exportPub, "sign");
  out(exportPub);
  exportPub->add_flag("--der", o.der, "DER instead of PEM");
  exportPub->add_flag("--blob", o.blob, "The SKF public key blob as the library gives it");
  CLI::App* exportCert = command("export-cert", "Write out a container's certificate", cmd_export_cert);
  container(exportCert, true);
  use(exportCert, "sign");
  out(exportCert);
  exportCert->add_flag("--der", o.der, "DER instead of PEM");
  CLI::App* importCert = command("import-cert", "Store a certificate with a container's key pair", cmd_import_cert);
  container(importCert, true);
  use(importCert, "sign");
  in(importCert, "Certificate file (PEM or DER)");
  pin(importCert);

  CLI::App* sign = command("sign", "Sign a file: SM2 with SM3 and Z, or RSA PKCS#1 v1.5 with SHA-256", cmd_sign);
  container(sign, true);
  in(sign, "File to sign");
  out(sign);
  id(sign);
  pin(sign);
  CLI::App* verify =
      command("verify", "Verify a signature with a container's key, a public key or a certificate", cmd_verify);
  container(verify, false);
  key(verify);
  in(verify, "Signed file");
  verify->add_option("--sig", o.sig, "Signature file (DER for SM2)")->required();
  id(verify);
  CLI::App* encrypt =
      command("encrypt", "SM2-encrypt a file to a container's key, a public key or a certificate", cmd_encrypt);
  container(encrypt, false);
  use(encrypt, "enc");
  key(encrypt);
  in(encrypt, "File to encrypt");
  out(encrypt);
  CLI::App* decrypt = command("decrypt", "Decrypt an SM2 ciphertext (DER) with a container's key pair", cmd_decrypt);
  container(decrypt, true);
  use(decrypt, "enc");
  in(decrypt, "Ciphertext file");
  out(decrypt);
  pin(decrypt);
  CLI::App* digest = command("digest", "Hash a file through the device (sm3 with Z given a key)", cmd_digest);
  digest->add_option("--alg", o.alg, "sm3, sha1 or sha256")
      ->capture_default_str()
      ->check(CLI::IsMember({"sm3", "sha1", "sha256"}));
  container(digest, false);
  key(digest);
  id(digest);
  in(digest, "File to hash");
  CLI::App* mac = command("mac", "SM4-CBC MAC of a file of whole 16-byte blocks", cmd_mac);
  mac->add_option("--key", o.key, "Key, 32 hex digits")->required();
  mac->add_option("--iv", o.iv, "IV, 32 hex digits (default zeros)");
  in(mac, "File");

  json(command("files", "List the application's files", cmd_files));
  CLI::App* readFile = command("read-file", "Read a file from the token", cmd_read_file);
  fileName(readFile);
  readFile->add_option("--offset", o.offset, "Where to start");
  readFile->add_option("--size", o.size, "How many bytes (default: to the end)");
  out(readFile);
  pin(readFile);
  CLI::App* writeFile = command("write-file", "Write a file on the token", cmd_write_file);
  fileName(writeFile);
  in(writeFile, "What to write");
  writeFile->add_option("--offset", o.offset, "Where to start");
  pin(writeFile);
  std::string readRights = "anyone", writeRights = "user";
  CLI::App* createFile = command("create-file", "Create a file on the token", cmd_create_file);
  fileName(createFile);
  createFile->add_option("--size", o.size, "Size in bytes (at most 65535)")->required();
  createFile->add_option("--read-rights", readRights, "Who may read: anyone, user, admin, never or a number")
      ->capture_default_str();
  createFile->add_option("--write-rights", writeRights, "Who may write: anyone, user, admin, never or a number")
      ->capture_default_str();
  pin(createFile);
  CLI::App* deleteFile = command("delete-file", "Delete a file from the token", cmd_delete_file);
  fileName(deleteFile);
  pin(deleteFile);

  CLI::App* speed = command("speed", "Measure throughput through the library", cmd_speed);
  speed->add_option("--seconds", o.seconds, "Seconds per test")->capture_default_str();
  container(speed, false);
  pin(speed);
  json(speed);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kDone : kUsage;
  }
  try {
    o.sizeGiven = readFile->count("--size") > 0;
    o.readRights = rights_value(readRights);
    o.writeRights = rights_value(writeRights);
    for (const auto& [sub, run] : commands)
      if (sub->parsed()) return run(o);
    return kUsage;
  } catch (const Failure& f) {
    std::fprintf(stderr, "skftool: %s\n", f.what());
    return f.code;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "skftool: %s\n", e.what());
    return kFailed;
  }
}
