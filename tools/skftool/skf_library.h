// An SKF library loaded by path, the standard functions skftool calls through it, and the
// objects it opens (device, application, container, key and hash handles), each closed by its
// destructor.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "skf.h"

namespace skftool {

using Bytes = std::vector<unsigned char>;

enum Exit { kDone = 0, kFailed = 1, kUsage = 2, kWrongPin = 3 };

// Ends a command: the message for standard error, and the exit code.
struct Failure : std::runtime_error {
  int code;
  explicit Failure(const std::string& what, int c = kFailed) : std::runtime_error(what), code(c) {}
};

// The name and meaning of an SKF code: "SAR_PIN_INCORRECT (0x0A000024): wrong PIN".
std::string describe_code(ULONG code);
// Throws a Failure for what failed when rc is not SAR_OK; wrong and locked PINs exit with kWrongPin.
void check(ULONG rc, const std::string& what);

#define SKFTOOL_FUNCTIONS(X)                                                                                         \
  X(SKF_EnumDev)                                                                                                     \
  X(SKF_ConnectDev)                                                                                                  \
  X(SKF_DisConnectDev)                                                                                               \
  X(SKF_GetDevState) X(SKF_GetDevInfo) X(SKF_GenRandom) X(SKF_DevAuth) X(SKF_EnumApplication) X(SKF_OpenApplication) \
      X(SKF_CloseApplication) X(SKF_VerifyPIN) X(SKF_ChangePIN) X(SKF_UnblockPIN) X(SKF_GetPINInfo)                  \
          X(SKF_EnumContainer) X(SKF_OpenContainer) X(SKF_CloseContainer) X(SKF_GetContainerType)                    \
              X(SKF_ImportCertificate) X(SKF_ExportCertificate) X(SKF_ExportPublicKey) X(SKF_ECCSignData)            \
                  X(SKF_ECCVerify) X(SKF_ExtECCEncrypt) X(SKF_ECCDecrypt) X(SKF_RSASignData) X(SKF_RSAVerify)        \
                      X(SKF_DigestInit) X(SKF_Digest) X(SKF_DigestUpdate) X(SKF_DigestFinal) X(SKF_SetSymmKey)       \
                          X(SKF_EncryptInit) X(SKF_Encrypt) X(SKF_EncryptUpdate) X(SKF_MacInit) X(SKF_MacUpdate)     \
                              X(SKF_MacFinal) X(SKF_CloseHandle) X(SKF_EnumFiles) X(SKF_GetFileInfo) X(SKF_ReadFile) \
                                  X(SKF_WriteFile) X(SKF_CreateFile) X(SKF_DeleteFile)                               \
                                      X(SKF_LoadConfigurationWithPath)

// The functions resolved by name; one the library lacks fails when it is called, naming it.
class SkfLibrary {
 public:
  explicit SkfLibrary(const std::string& path);
  ~SkfLibrary();
  SkfLibrary(const SkfLibrary&) = delete;
  SkfLibrary& operator=(const SkfLibrary&) = delete;

  const std::string& path() const { return path_; }
  bool has(const char* name) const;

#define SKFTOOL_MEMBER(name)                               \
  template <class... A>                                    \
  ULONG name(A... a) const {                               \
    if (!name##_) throw Failure(path_ + " has no " #name); \
    return name##_(a...);                                  \
  }
  SKFTOOL_FUNCTIONS(SKFTOOL_MEMBER)
#undef SKFTOOL_MEMBER

 private:
  std::string path_;
  void* module_ = nullptr;
#define SKFTOOL_POINTER(name) decltype(&::name) name##_ = nullptr;
  SKFTOOL_FUNCTIONS(SKFTOOL_POINTER)
#undef SKFTOOL_POINTER
};

// The library beside the tool's own executable (ours), for --lib's default.
std::string default_library();

// A multi-string (names each ended by a zero, one more zero at the end) as names.
std::vector<std::string> split_list(const char* list, std::size_t size);

// The size-then-fill of SKF outputs: fill(nullptr, &size) asks the size, then fill(buffer, &size)
// fills a buffer of it; what names the step in a failure.
template <class Fill>
Bytes size_then_fill(Fill fill, const std::string& what) {
  ULONG size = 0;
  check(fill(nullptr, &size), what);
  Bytes buf(static_cast<std::size_t>(size) + 2, 0);  // room for a list's two final zeros
  check(fill(buf.data(), &size), what);
  buf.resize(size < buf.size() ? size : buf.size());
  return buf;
}

// An SKF name list, asked for by size and then filled: fill(LPSTR, ULONG*).
template <class Fill>
std::vector<std::string> read_list(Fill fill, const std::string& what) {
  Bytes buf = size_then_fill([&](BYTE* b, ULONG* n) { return fill(reinterpret_cast<LPSTR>(b), n); }, what);
  return split_list(reinterpret_cast<const char*>(buf.data()), buf.size());
}

class Device {
 public:
  // The named device, or the first one present.
  Device(const SkfLibrary& lib, const std::string& name);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  DEVHANDLE handle() const { return h_; }
  const std::string& name() const { return name_; }
  const SkfLibrary& lib() const { return lib_; }

 private:
  const SkfLibrary& lib_;
  std::string name_;
  DEVHANDLE h_ = nullptr;
};

class Application {
 public:
  // The named application, or the first one the device lists.
  Application(const Device& dev, const std::string& name);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  HAPPLICATION handle() const { return h_; }
  const std::string& name() const { return name_; }
  const Device& device() const { return dev_; }
  // Verifies the user PIN, or the administrator's with so; a wrong PIN says how many tries are left.
  void login(const std::string& pin, bool so) const;

 private:
  const Device& dev_;
  std::string name_;
  HAPPLICATION h_ = nullptr;
};

class Container {
 public:
  Container(const Application& app, const std::string& name);
  ~Container();
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;
  HCONTAINER handle() const { return h_; }
  const std::string& name() const { return name_; }
  // 0 empty, 1 RSA, 2 SM2.
  ULONG type() const;
  // The public key blob of the signing or the encryption key pair; empty when there is none.
  Bytes public_blob(bool sign) const;
  // The DER certificate of the signing or encryption key pair; empty when there is none.
  Bytes certificate(bool sign) const;

 private:
  const SkfLibrary& lib_;
  std::string name_;
  HCONTAINER h_ = nullptr;
};

// A key, hash or MAC handle, closed with SKF_CloseHandle.
class Handle {
 public:
  explicit Handle(const SkfLibrary& lib) : lib_(lib) {}
  ~Handle() {
    if (h_) lib_.SKF_CloseHandle(h_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  HANDLE* out() { return &h_; }
  HANDLE get() const { return h_; }

 private:
  const SkfLibrary& lib_;
  HANDLE h_ = nullptr;
};

}  // namespace skftool
