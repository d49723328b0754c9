#include "skf_library.h"

#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace skftool {

namespace {

struct CodeText {
  ULONG code;
  const char* name;
  const char* meaning;
};

const CodeText kCodes[] = {
    {SAR_OK, "SAR_OK", "success"},
    {SAR_FAIL, "SAR_FAIL", "the operation failed"},
    {SAR_UNKNOWNERR, "SAR_UNKNOWNERR", "unknown error"},
    {SAR_NOTSUPPORTYETERR, "SAR_NOTSUPPORTYETERR", "not supported by this library or device"},
    {SAR_FILEERR, "SAR_FILEERR", "file error"},
    {SAR_INVALIDHANDLEERR, "SAR_INVALIDHANDLEERR", "invalid handle"},
    {SAR_INVALIDPARAMERR, "SAR_INVALIDPARAMERR", "invalid argument"},
    {SAR_READFILEERR, "SAR_READFILEERR", "cannot read the file"},
    {SAR_WRITEFILEERR, "SAR_WRITEFILEERR", "cannot write the file"},
    {SAR_NAMELENERR, "SAR_NAMELENERR", "name too long or reserved"},
    {SAR_KEYUSAGEERR, "SAR_KEYUSAGEERR", "the key cannot be used so"},
    {SAR_MODULUSLENERR, "SAR_MODULUSLENERR", "unsupported modulus length"},
    {SAR_NOTINITIALIZEERR, "SAR_NOTINITIALIZEERR", "not initialized"},
    {SAR_OBJERR, "SAR_OBJERR", "object error"},
    {SAR_MEMORYERR, "SAR_MEMORYERR", "out of memory"},
    {SAR_TIMEOUTERR, "SAR_TIMEOUTERR", "timed out"},
    {SAR_INDATALENERR, "SAR_INDATALENERR", "input of the wrong length"},
    {SAR_INDATAERR, "SAR_INDATAERR", "invalid input"},
    {SAR_GENRANDERR, "SAR_GENRANDERR", "random generation failed"},
    {SAR_HASHOBJERR, "SAR_HASHOBJERR", "hash object error"},
    {SAR_HASHERR, "SAR_HASHERR", "hash error"},
    {SAR_GENRSAKEYERR, "SAR_GENRSAKEYERR", "RSA key generation failed"},
    {SAR_RSAMODULUSLENERR, "SAR_RSAMODULUSLENERR", "unsupported RSA modulus length"},
    {SAR_CSPIMPRTPUBKEYERR, "SAR_CSPIMPRTPUBKEYERR", "cannot import the public key"},
    {SAR_RSAENCERR, "SAR_RSAENCERR", "RSA encryption failed"},
    {SAR_RSADECERR, "SAR_RSADECERR", "RSA decryption failed"},
    {SAR_HASHNOTEQUALERR, "SAR_HASHNOTEQUALERR", "hashes differ"},
    {SAR_KEYNOTFOUNTERR, "SAR_KEYNOTFOUNTERR", "key not found"},
    {SAR_CERTNOTFOUNTERR, "SAR_CERTNOTFOUNTERR", "certificate not found"},
    {SAR_NOTEXPORTERR, "SAR_NOTEXPORTERR", "cannot be exported"},
    {SAR_DECRYPTPADERR, "SAR_DECRYPTPADERR", "wrong padding after decryption"},
    {SAR_MACLENERR, "SAR_MACLENERR", "MAC of the wrong length"},
    {SAR_BUFFER_TOO_SMALL, "SAR_BUFFER_TOO_SMALL", "buffer too small"},
    {SAR_KEYINFOTYPEERR, "SAR_KEYINFOTYPEERR", "wrong key type"},
    {SAR_NOT_EVENTERR, "SAR_NOT_EVENTERR", "no event"},
    {SAR_DEVICE_REMOVED, "SAR_DEVICE_REMOVED", "the device was removed"},
    {SAR_PIN_INCORRECT, "SAR_PIN_INCORRECT", "wrong PIN"},
    {SAR_PIN_LOCKED, "SAR_PIN_LOCKED", "the PIN is locked"},
    {SAR_PIN_INVALID, "SAR_PIN_INVALID", "invalid PIN"},
    {SAR_PIN_LEN_RANGE, "SAR_PIN_LEN_RANGE", "PIN of the wrong length"},
    {SAR_USER_ALREADY_LOGGED_IN, "SAR_USER_ALREADY_LOGGED_IN", "already logged in"},
    {SAR_USER_PIN_NOT_INITIALIZED, "SAR_USER_PIN_NOT_INITIALIZED", "the user PIN is not set"},
    {SAR_USER_TYPE_INVALID, "SAR_USER_TYPE_INVALID", "invalid PIN type"},
    {SAR_APPLICATION_NAME_INVALID, "SAR_APPLICATION_NAME_INVALID", "invalid application name"},
    {SAR_APPLICATION_EXISTS, "SAR_APPLICATION_EXISTS", "the application exists already"},
    {SAR_USER_NOT_LOGGED_IN, "SAR_USER_NOT_LOGGED_IN", "a PIN must be verified first"},
    {SAR_APPLICATION_NOT_EXISTS, "SAR_APPLICATION_NOT_EXISTS", "no such application"},
    {SAR_FILE_ALREADY_EXIST, "SAR_FILE_ALREADY_EXIST", "the file exists already"},
    {SAR_NO_ROOM, "SAR_NO_ROOM", "no room on the device"},
    {SAR_FILE_NOT_EXIST, "SAR_FILE_NOT_EXIST", "no such file"},
    {SAR_REACH_MAX_CONTAINER_COUNT, "SAR_REACH_MAX_CONTAINER_COUNT", "no more containers fit"},
    {SAR_FILE_NOT_RECORDED, "SAR_FILE_NOT_RECORDED", "no room for another file (8 at most)"},
    {SAR_NOT_EMULATED, "SAR_NOT_EMULATED", "not available on an emulated device"},
    {SAR_FILE_RANGE, "SAR_FILE_RANGE", "beyond the end of the file"},
};

}  // namespace

std::string describe_code(ULONG code) {
  char number[16];
  std::snprintf(number, sizeof number, "0x%08lX", static_cast<unsigned long>(code));
  for (const CodeText& c : kCodes)
    if (c.code == code) return std::string(c.name) + " (" + number + "): " + c.meaning;
  return std::string("error ") + number;
}

void check(ULONG rc, const std::string& what) {
  if (rc == SAR_OK) return;
  bool pin = rc == SAR_PIN_INCORRECT || rc == SAR_PIN_LOCKED || rc == SAR_PIN_LEN_RANGE || rc == SAR_PIN_INVALID;
  throw Failure(what + ": " + describe_code(rc), pin ? kWrongPin : kFailed);
}

SkfLibrary::SkfLibrary(const std::string& path) : path_(path) {
  module_ = vorel::platform::dso_open(path.c_str());
  if (!module_) throw Failure("cannot load " + path + ": " + vorel::platform::dso_error_text());
#define SKFTOOL_RESOLVE(name) \
  name##_ = reinterpret_cast<decltype(name##_)>(vorel::platform::dso_symbol(module_, #name));
  SKFTOOL_FUNCTIONS(SKFTOOL_RESOLVE)
#undef SKFTOOL_RESOLVE
}

SkfLibrary::~SkfLibrary() { vorel::platform::dso_close(module_); }

bool SkfLibrary::has(const char* name) const { return vorel::platform::dso_symbol(module_, name) != nullptr; }

std::string default_library() {
#ifdef _WIN32
  const char* file = "vorelskf.dll";
#else
  const char* file = "libvorelskf.so";
#endif
  std::string self = vorel::platform::executable_path();
  std::size_t slash = self.find_last_of("/\\");
  return slash == std::string::npos ? file : self.substr(0, slash + 1) + file;
}

std::vector<std::string> split_list(const char* list, std::size_t size) {
  std::vector<std::string> names;
  std::size_t at = 0;
  while (at < size && list[at]) {
    std::size_t len = strnlen(list + at, size - at);
    names.emplace_back(list + at, len);
    at += len + 1;
  }
  return names;
}

Device::Device(const SkfLibrary& lib, const std::string& name) : lib_(lib), name_(name) {
  if (name_.empty()) {
    auto present =
        read_list([&](LPSTR list, ULONG* size) { return lib.SKF_EnumDev(TRUE, list, size); }, "listing the devices");
    if (present.empty()) throw Failure("no device present");
    name_ = present.front();
  }
  std::string copy = name_;
  check(lib.SKF_ConnectDev(&copy[0], &h_), "connecting to " + name_);
}

Device::~Device() {
  if (h_) lib_.SKF_DisConnectDev(h_);
}

Application::Application(const Device& dev, const std::string& name) : dev_(dev), name_(name) {
  const SkfLibrary& lib = dev.lib();
  if (name_.empty()) {
    auto apps = read_list([&](LPSTR list, ULONG* size) { return lib.SKF_EnumApplication(dev.handle(), list, size); },
                          "listing the applications");
    if (apps.empty()) throw Failure(dev.name() + " has no application");
    name_ = apps.front();
  }
  std::string copy = name_;
  check(lib.SKF_OpenApplication(dev.handle(), &copy[0], &h_), "opening application " + name_);
}

Application::~Application() {
  if (h_) dev_.lib().SKF_CloseApplication(h_);
}

void Application::login(const std::string& pin, bool so) const {
  std::string copy = pin;
  ULONG retries = 0;
  ULONG rc = dev_.lib().SKF_VerifyPIN(h_, so ? ADMIN_TYPE : USER_TYPE, &copy[0], &retries);
  const char* which = so ? "administrator PIN" : "user PIN";
  if (rc == SAR_PIN_INCORRECT)
    throw Failure(std::string("verifying the ") + which + ": " + describe_code(rc) + ", " + std::to_string(retries) +
                      (retries == 1 ? " try left" : " tries left"),
                  kWrongPin);
  check(rc, std::string("verifying the ") + which);
}

Container::Container(const Application& app, const std::string& name) : lib_(app.device().lib()), name_(name) {
  if (name_.empty()) throw Failure("give the container with --container (see: skftool containers)", kUsage);
  std::string copy = name_;
  check(lib_.SKF_OpenContainer(app.handle(), &copy[0], &h_), "opening container " + name_);
}

Container::~Container() {
  if (h_) lib_.SKF_CloseContainer(h_);
}

ULONG Container::type() const {
  ULONG type = 0;
  check(lib_.SKF_GetContainerType(h_, &type), "reading the type of " + name_);
  return type;
}

// Libraries differ on asking the size with a null buffer: a buffer big enough for any blob is
// handed over instead, and a larger one when the library says it is short.
Bytes Container::public_blob(bool sign) const {
  Bytes blob(sizeof(RSAPUBLICKEYBLOB));
  ULONG len = static_cast<ULONG>(blob.size());
  if (lib_.SKF_ExportPublicKey(h_, sign ? TRUE : FALSE, blob.data(), &len) != SAR_OK) return {};
  blob.resize(len < blob.size() ? len : blob.size());
  return blob;
}

Bytes Container::certificate(bool sign) const {
  Bytes der(8192);
  ULONG len = static_cast<ULONG>(der.size());
  ULONG rc = lib_.SKF_ExportCertificate(h_, sign ? TRUE : FALSE, der.data(), &len);
  if (rc == SAR_BUFFER_TOO_SMALL && len > der.size()) {
    der.resize(len);
    rc = lib_.SKF_ExportCertificate(h_, sign ? TRUE : FALSE, der.data(), &len);
  }
  if (rc != SAR_OK) return {};
  der.resize(len < der.size() ? len : der.size());
  return der;
}

}  // namespace skftool
