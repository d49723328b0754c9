// vorel-token: creates and provisions vorelcrypto software tokens.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include "crypto/token.h"
#include "text.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace {

using vorel_tools::Bytes;

enum Exit { kOk = 0, kFailed = 1, kUsage = 2, kWrongPin = 3 };

// Ends the command with a message and an exit code.
struct Failure : std::runtime_error {
  int code;
  Failure(const std::string& what, int c = kFailed) : std::runtime_error(what), code(c) {}
};

std::string describe(int rc) {
  switch (rc) {
    case VOREL_ERR_PIN_INCORRECT:
      return "wrong PIN";
    case VOREL_ERR_PIN_LEN_RANGE:
      return "a PIN must be " + std::to_string(VOREL_PIN_MIN_LEN) + " to " + std::to_string(VOREL_PIN_MAX_LEN) +
             " characters long";
    case VOREL_ERR_NOT_FOUND:
      return "no such object on the token";
    case VOREL_ERR_NOT_LOGGED_IN:
      return "the PIN was not verified";
    case VOREL_ERR_DEVICE_REMOVED:
      return "the token no longer exists";
    case VOREL_ERR_TOKEN_DAMAGED:
      return "the token file is damaged";
    case VOREL_ERR_EXISTS:
      return "a token with that type and serial number already exists";
    case VOREL_ERR_STORE:
      return "the token folder cannot be written";
    case VOREL_ERR_BAD_ENCODING:
      return "the key or certificate is malformed";
    case VOREL_ERR_NOT_SUPPORTED:
      return "not supported";
    case VOREL_ERR_KEY_MISMATCH:
      return "the certificate carries another public key";
    case VOREL_ERR_PARAM:
      return "invalid argument";
    default:
      return "error " + std::to_string(rc);
  }
}

void check(int rc, const std::string& what) {
  if (rc != VOREL_OK) throw Failure(what + ": " + describe(rc));
}

using Device = vorel::UniquePtr<VOREL_DEVICE>;
using Keypair = vorel::UniquePtr<VOREL_KEYPAIR>;
using Cert = vorel::UniquePtr<VOREL_CERT>;
using Text = vorel::UniquePtr<char>;
std::string str(const Text& t) { return t ? t.get() : ""; }

// A PIN from its option, else its environment variable, else the terminal.
std::string pin(const std::string& given, const char* env, const char* prompt, bool confirm = false) {
  if (!given.empty()) return given;
  if (const char* e = std::getenv(env); e && *e) return e;
  std::string first, second;
  if (!vorel_tools::read_secret(prompt, first)) throw Failure(std::string("no ") + prompt + "given", kUsage);
  if (confirm && (!vorel_tools::read_secret("Repeat it: ", second) || second != first))
    throw Failure("the two PINs differ", kUsage);
  return first;
}

// The token of a type with that serial number; with no serial, the only token of the type.
void open_token(int type, const std::string& serial, Device& d) {
  if (!serial.empty()) {
    int rc = VorelPKICryptoFindDevice(type, serial.c_str(), VOREL_ENUM_TOKENS, vorel::out(d));
    if (rc == VOREL_ERR_NOT_FOUND) throw Failure("no token " + std::to_string(type) + "#" + serial);
    check(rc, "opening the token");
    return;
  }
  VOREL_DEVICE_LIST* list = VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS);
  if (!list) throw Failure("cannot list the tokens");
  int n = VorelPKICryptoGetDeviceCount(list);
  if (n == 1) d.reset(VorelPKICryptoGetDevice(list, 0));
  VorelPKICryptoFreeDevices(list);
  if (n == 0) throw Failure("no token of type " + std::to_string(type));
  if (n > 1) throw Failure("several tokens of type " + std::to_string(type) + ": give --serial", kUsage);
}

void verify(VOREL_DEVICE* d, int type, const std::string& value) {
  unsigned retries = 0;
  int rc = VorelPKICryptoVerifyPwd(d, type, value.c_str(), &retries);
  const char* which = type == VOREL_PWD_SO ? "SO PIN" : "user PIN";
  if (rc == VOREL_ERR_PIN_INCORRECT && retries == 0) throw Failure(std::string(which) + " locked", kWrongPin);
  if (rc == VOREL_ERR_PIN_INCORRECT)
    throw Failure(std::string("wrong ") + which + ", " + std::to_string(retries) + " tries left", kWrongPin);
  check(rc, std::string("verifying the ") + which);
}

std::string name_of(VOREL_DEVICE* d) {
  Text serial;
  check(VorelPKICryptoGetSerialNumber(d, vorel::out(serial)), "reading the serial number");
  return std::to_string(VorelPKICryptoGetDeviceType(d)) + "#" + str(serial);
}

std::string describe_keypair(VOREL_KEYPAIR* kp) {
  Text label, subject;
  VorelPKICryptoGetKeypairLabel(kp, vorel::out(label));
  std::string alg = VorelPKICryptoGetKeypairAlgorithm(kp) == VOREL_ALG_SM2 ? "SM2" : "RSA";
  std::string line = std::string(VorelPKICryptoGetKeypairType(kp) == VOREL_KEYPAIR_SIGN ? "sign" : "enc ") + "  " +
                     alg + "-" + std::to_string(VorelPKICryptoGetKeypairBits(kp)) + "  label \"" + str(label) + "\"";
  Cert cert;
  if (VorelPKICryptoGetCertificate(kp, 0, vorel::out(cert)) != VOREL_OK) return line + "  no certificate";
  if (VorelPKICertGetCertStringAttribute(cert.get(), VOREL_CERT_ATTR_SUBJECT, vorel::out(subject)) != VOREL_OK)
    return line + "  no certificate";
  return line + "  certificate \"" + str(subject) + "\"";
}

void list_tokens(int type) {
  std::vector<vorel::token::Problem> problems;
  auto found = vorel::token::scan(type, &problems);
  std::printf("Token folder: %s\n", vorel::token::token_dir().c_str());
  Text warning;
  int warned = VorelPKICryptoGetStoreWarning(vorel::out(warning));
  if (warned == VOREL_OK && warning) std::printf("warning: %s\n", warning.get());
  if (found.empty()) std::printf("No tokens.\n");
  for (const auto& t : found) {
    Device d;
    if (VorelPKICryptoFindDevice(t.type, t.serial.c_str(), VOREL_ENUM_TOKENS, vorel::out(d)) != VOREL_OK) continue;
    Text label;
    VorelPKICryptoGetLabel(d.get(), vorel::out(label));
    unsigned user = 0, so = 0;
    VorelPKICryptoGetPwdRetryNum(d.get(), VOREL_PWD_USER, &user);
    VorelPKICryptoGetPwdRetryNum(d.get(), VOREL_PWD_SO, &so);
    std::printf("%s  type %d  serial %s  label \"%s\"\n", name_of(d.get()).c_str(), t.type, t.serial.c_str(),
                str(label).c_str());
    std::printf("  user PIN %u of %d tries left, SO PIN %u of %d\n", user, VOREL_PIN_MAX_TRIES, so,
                VOREL_PIN_MAX_TRIES);
    int n = VorelPKICryptoGetKeypairCount(d.get());
    for (int i = 0; i < n; ++i) {
      Keypair kp;
      kp.reset(VorelPKICryptoGetKeypair(d.get(), i));
      if (kp.get()) std::printf("  key pair %d: %s\n", i, describe_keypair(kp.get()).c_str());
    }
  }
  for (const auto& p : problems) std::printf("skipped %s: %s\n", p.file.c_str(), p.why.c_str());
}

// The DER of a key or certificate file written as DER or PEM.
Bytes load(const std::string& path, const std::vector<std::string>& labels, const char* what) {
  Bytes raw, der;
  if (!vorel_tools::read_file(path, raw)) throw Failure("cannot read " + path);
  if (!vorel_tools::is_pem(raw)) return raw;
  std::string found;
  if (vorel_tools::pem_decode(raw, labels, der, found)) return der;
  if (found == "ENCRYPTED PRIVATE KEY")
    throw Failure(path + " is encrypted: write it unencrypted first (openssl pkcs8 -topk8 -nocrypt)");
  throw Failure(path + " holds no " + what);
}

int keypair_type(const std::string& use) { return use == "sign" ? VOREL_KEYPAIR_SIGN : VOREL_KEYPAIR_ENCRYPT; }

void report_new_keypair(VOREL_DEVICE* d, VOREL_KEYPAIR* kp) {
  std::printf("Key pair %d on %s: %s\n", VorelPKICryptoGetKeypairCount(d) - 1, name_of(d).c_str(),
              describe_keypair(kp).c_str());
}

void set_env(const char* name, const std::string& value) {
#ifdef _WIN32
  _putenv_s(name, value.c_str());
#else
  setenv(name, value.c_str(), 1);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "vorel-token creates and provisions software tokens: the devices that the VorelSKF library emulates SKF "
      "tokens over. A token has a device type (the number the SKF configuration routes by), a serial number, a "
      "label, an SO PIN and a user PIN, key pairs with certificates, and data objects.",
      "vorel-token"};
  app.footer(
      "PINs come from their options, else from VOREL_TOKEN_PIN, VOREL_TOKEN_SO_PIN and VOREL_TOKEN_NEW_PIN, else "
      "they are asked for without echo.\nA PIN is " +
      std::to_string(VOREL_PIN_MIN_LEN) + " to " + std::to_string(VOREL_PIN_MAX_LEN) + " characters; " +
      std::to_string(VOREL_PIN_MAX_TRIES) +
      " wrong tries lock it (the SO PIN unblocks the user PIN).\n"
      "Exit codes: 0 done, 1 failed, 2 bad arguments, 3 wrong or locked PIN.\n"
      "Example: vorel-token init --type 3 --label \"My token\" && vorel-token keygen --type 3 --alg sm2 --use sign "
      "--label signer");
  app.require_subcommand(1);
  std::string dir, serial, label, userPin, soPin, newPin, alg = "sm2", use = "sign", file, out;
  int type = 0, index = -1;
  unsigned iterations = 0;
  bool der = false, so = false;
  app.add_option("--token-dir", dir, "Token folder (default: $VOREL_TOKEN_DIR, else the per-user data folder)");

  auto typeOpt = [&](CLI::App* c) {
    c->add_option("--type", type, "Device type of the token")->required()->check(CLI::Range(1, 1 << 30));
  };
  auto serialOpt = [&](CLI::App* c) {
    c->add_option("--serial", serial,
                  "Serial number of the token (may be left out when it is the only one of its type)");
  };
  auto pinOpt = [&](CLI::App* c) { c->add_option("--pin", userPin, "User PIN"); };
  auto soOpt = [&](CLI::App* c) { c->add_option("--so-pin", soPin, "SO PIN"); };

  CLI::App* init = app.add_subcommand("init", "Create a token");
  typeOpt(init);
  init->add_option("--label", label, "Label, at most 31 characters")->required();
  init->add_option("--serial", serial, "Serial number: letters, digits, - and _, at most 31 (default: generated)");
  soOpt(init);
  pinOpt(init);
  init->add_option("--kdf-iterations", iterations, "PBKDF2 iterations of the PIN keys (default 150000)")
      ->check(CLI::Range(vorel::token::kMinIterations, vorel::token::kMaxIterations));

  CLI::App* list = app.add_subcommand("list", "List the tokens with their key pairs");
  list->add_option("--type", type, "Only tokens of this device type");

  CLI::App* del = app.add_subcommand("delete", "Delete a token (needs the SO PIN)");
  typeOpt(del);
  serialOpt(del);
  soOpt(del);

  CLI::App* keygen = app.add_subcommand("keygen", "Generate a key pair on a token");
  typeOpt(keygen);
  serialOpt(keygen);
  keygen->add_option("--alg", alg, "sm2, rsa1024 or rsa2048")->check(CLI::IsMember({"sm2", "rsa1024", "rsa2048"}));
  keygen->add_option("--use", use, "sign or enc")->check(CLI::IsMember({"sign", "enc"}));
  keygen->add_option("--label", label, "Label of the key pair");
  pinOpt(keygen);

  CLI::App* importKey = app.add_subcommand("import-key", "Import an SM2 or RSA private key (PKCS#8, PEM or DER)");
  typeOpt(importKey);
  serialOpt(importKey);
  importKey->add_option("--file", file, "Key file as OpenSSL writes it")->required();
  importKey->add_option("--use", use, "sign or enc")->check(CLI::IsMember({"sign", "enc"}));
  importKey->add_option("--label", label, "Label of the key pair");
  pinOpt(importKey);

  CLI::App* importCert =
      app.add_subcommand("import-cert", "Put a certificate (PEM or DER) on the key pair it belongs to");
  typeOpt(importCert);
  serialOpt(importCert);
  importCert->add_option("--file", file, "Certificate file")->required();
  pinOpt(importCert);

  CLI::App* exportCert = app.add_subcommand("export-cert", "Write out the certificate of a key pair");
  typeOpt(exportCert);
  serialOpt(exportCert);
  exportCert->add_option("--index", index, "Key pair number, as list shows it")->required();
  exportCert->add_option("--out", out, "Output file (default: standard output)");
  exportCert->add_flag("--der", der, "DER instead of PEM");

  CLI::App* changePin = app.add_subcommand("change-pin", "Change the user PIN (or with --so the SO PIN)");
  typeOpt(changePin);
  serialOpt(changePin);
  changePin->add_flag("--so", so, "Change the SO PIN");
  pinOpt(changePin);
  soOpt(changePin);
  changePin->add_option("--new-pin", newPin, "The new PIN");

  CLI::App* unblock =
      app.add_subcommand("unblock-pin", "Set a new user PIN with the SO PIN and give it all its tries back");
  typeOpt(unblock);
  serialOpt(unblock);
  soOpt(unblock);
  unblock->add_option("--new-pin", newPin, "The new user PIN");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kOk : kUsage;
  }
  if (!dir.empty()) set_env("VOREL_TOKEN_DIR", dir);

  try {
    if (init->parsed()) {
      std::string s = pin(soPin, "VOREL_TOKEN_SO_PIN", "New SO PIN: ", true);
      std::string u = pin(userPin, "VOREL_TOKEN_PIN", "New user PIN: ", true);
      Device d;
      check(VorelPKICryptoCreateToken(type, serial.empty() ? nullptr : serial.c_str(), label.c_str(), s.c_str(),
                                      u.c_str(), iterations, vorel::out(d)),
            "creating the token");
      std::printf("Created token %s \"%s\" in %s\n", name_of(d.get()).c_str(), label.c_str(),
                  vorel::token::token_dir().c_str());
      return kOk;
    }
    if (list->parsed()) {
      list_tokens(list->count("--type") ? type : -1);
      return kOk;
    }
    Device d;
    open_token(type, serial, d);
    if (del->parsed()) {
      verify(d.get(), VOREL_PWD_SO, pin(soPin, "VOREL_TOKEN_SO_PIN", "SO PIN: "));
      std::string name = name_of(d.get());
      check(VorelPKICryptoDeleteToken(d.get()), "deleting the token");
      std::printf("Deleted token %s\n", name.c_str());
    } else if (keygen->parsed() || importKey->parsed()) {
      Bytes key;
      // SEC1 comes as "EC PRIVATE KEY", and from OpenSSL 3.0 for SM2 keys as "SM2 PRIVATE KEY".
      if (importKey->parsed())
        key = load(file, {"PRIVATE KEY", "EC PRIVATE KEY", "SM2 PRIVATE KEY", "RSA PRIVATE KEY"}, "private key");
      verify(d.get(), VOREL_PWD_USER, pin(userPin, "VOREL_TOKEN_PIN", "User PIN: "));
      Keypair kp;
      if (keygen->parsed()) {
        int bits = alg == "sm2" ? 256 : alg == "rsa1024" ? 1024 : 2048;
        check(VorelPKICryptoGenerateKeypair(d.get(), alg == "sm2" ? VOREL_ALG_SM2 : VOREL_ALG_RSA, bits, 0,
                                            keypair_type(use), vorel::out(kp)),
              "generating the key pair");
      } else {
        check(VorelPKICryptoImportKeypair(d.get(), key.data(), key.size(), keypair_type(use), vorel::out(kp)),
              "importing " + file);
      }
      if (!label.empty()) check(VorelPKICryptoSetKeypairLabel(kp.get(), label.c_str()), "labelling the key pair");
      report_new_keypair(d.get(), kp.get());
    } else if (importCert->parsed()) {
      Bytes bytes = load(file, {"CERTIFICATE"}, "certificate");
      Cert cert;
      cert.reset(VorelPKICertNewCert(bytes.data(), bytes.size()));
      if (!cert.get()) throw Failure(file + " is not an X.509 certificate");
      verify(d.get(), VOREL_PWD_USER, pin(userPin, "VOREL_TOKEN_PIN", "User PIN: "));
      int n = VorelPKICryptoGetKeypairCount(d.get());
      for (int i = 0; i < n; ++i) {
        Keypair kp;
        kp.reset(VorelPKICryptoGetKeypair(d.get(), i));
        int rc = kp.get() ? VorelPKICryptoUpdateCertificate(kp.get(), cert.get()) : VOREL_ERR_NOT_FOUND;
        if (rc == VOREL_ERR_KEY_MISMATCH) continue;
        check(rc, "storing the certificate");
        std::printf("Certificate stored on key pair %d: %s\n", i, describe_keypair(kp.get()).c_str());
        return kOk;
      }
      throw Failure("no key pair on " + name_of(d.get()) + " has the public key of " + file);
    } else if (exportCert->parsed()) {
      Keypair kp;
      kp.reset(VorelPKICryptoGetKeypair(d.get(), index));
      if (!kp.get()) throw Failure("no key pair " + std::to_string(index) + " on " + name_of(d.get()));
      Cert cert;
      int rc = VorelPKICryptoGetCertificate(kp.get(), 0, vorel::out(cert));
      if (rc == VOREL_ERR_NOT_FOUND) throw Failure("key pair " + std::to_string(index) + " has no certificate");
      check(rc, "reading the certificate");
      unsigned char* enc = nullptr;
      size_t encLen = 0;
      check(VorelPKICertGetCertEncode(cert.get(), VOREL_CERT_ENCODING_DER, &enc, &encLen), "encoding the certificate");
      Bytes bytes(enc, enc + encLen);
      VorelPKICryptoFreeMemory(enc);
      if (!der) {
        std::string pem = vorel_tools::pem_encode("CERTIFICATE", bytes);
        bytes.assign(pem.begin(), pem.end());
      }
      if (out.empty()) {
#ifdef _WIN32
        _setmode(_fileno(stdout), _O_BINARY);  // DER must pass unchanged
#endif
        std::fwrite(bytes.data(), 1, bytes.size(), stdout);
      } else if (!vorel_tools::write_file(out, bytes)) {
        throw Failure("cannot write " + out);
      }
    } else if (changePin->parsed()) {
      int which = so ? VOREL_PWD_SO : VOREL_PWD_USER;
      std::string old = so ? pin(soPin, "VOREL_TOKEN_SO_PIN", "Current SO PIN: ")
                           : pin(userPin, "VOREL_TOKEN_PIN", "Current user PIN: ");
      std::string fresh = pin(newPin, "VOREL_TOKEN_NEW_PIN", "New PIN: ", true);
      unsigned retries = 0;
      int rc = VorelPKICryptoChangePwd(d.get(), which, old.c_str(), fresh.c_str(), &retries);
      if (rc == VOREL_ERR_PIN_INCORRECT)
        throw Failure("wrong PIN, " + std::to_string(retries) + " tries left", kWrongPin);
      check(rc, "changing the PIN");
      std::printf("%s PIN of %s changed\n", so ? "SO" : "User", name_of(d.get()).c_str());
    } else if (unblock->parsed()) {
      std::string s = pin(soPin, "VOREL_TOKEN_SO_PIN", "SO PIN: ");
      std::string fresh = pin(newPin, "VOREL_TOKEN_NEW_PIN", "New user PIN: ", true);
      unsigned retries = 0;
      int rc = VorelPKICryptoUnlockPwd(d.get(), VOREL_PWD_USER, s.c_str(), fresh.c_str(), &retries);
      if (rc == VOREL_ERR_PIN_INCORRECT)
        throw Failure("wrong SO PIN, " + std::to_string(retries) + " tries left", kWrongPin);
      check(rc, "unblocking the user PIN");
      std::printf("User PIN of %s set and unblocked\n", name_of(d.get()).c_str());
    }
    return kOk;
  } catch (const Failure& f) {
    std::fprintf(stderr, "vorel-token: %s\n", f.what());
    return f.code;
  }
}
