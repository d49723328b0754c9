// The records behind the handles the library gives out, and the registry of live ones.
//
// A handle is the address of its record. The registry owns every live record, so a lookup hands
// out a reference that keeps the record alive while a call uses it, even if another thread
// closes the handle meanwhile. Records live in pages of their own whose addresses come back only
// after many more records were made: a closed handle is refused, not taken for a newer record.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "skf.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace vorel {

enum class RecordKind : uint32_t { Device = 1, Application = 2, Container = 3, Handle = 4 };

// Generic handle kinds and the payload each carries on the crypto-library route.
enum HandleKind : uint32_t { kSessionKey = 1, kHash = 2, kMac = 4 };

// A lock that one thread owns at a time and may take again; only the owner releases it.
class DeviceLock {
 public:
  // False, at once or after waiting, once the lock is abandoned.
  bool enter();
  // False when the calling thread does not hold the lock.
  bool leave();
  // Its device is gone: every waiter, now and later, gives up instead of waiting for ever.
  void abandon();

 private:
  std::mutex mutex_;
  std::condition_variable free_;
  std::thread::id owner_;
  unsigned depth_ = 0;
  bool abandoned_ = false;
};

// Device authentication of an emulated device whose type has a configured key: the random
// bytes last drawn on the handle are the challenge, answered once.
struct DeviceAuth {
  std::mutex mutex;
  bool keySet = false;
  uint8_t key[16] = {};
  uint8_t challenge[16] = {};
  uint32_t challengeLen = 0;  // 0: no challenge outstanding
  ~DeviceAuth();
};

struct DeviceRecord {
  static constexpr RecordKind kKind = RecordKind::Device;
  // Taken only by SKF_LockDev / SKF_UnlockDev; dropped by SKF_DisConnectDev.
  std::shared_ptr<DeviceLock> lock;
  int32_t type = 0;
  char name[65] = {};    // serial number on the crypto-library route
  std::mutex infoMutex;  // guards devInfo, which SKF_SetLabel changes
  DEVINFO devInfo = {};
  UniquePtr<VOREL_DEVICE> cryptoDevice;
  DEVHANDLE vendorDevice = nullptr;
  DeviceAuth auth;

  explicit DeviceRecord(int32_t deviceType) : type(deviceType) {}
};

// A device record not yet reachable through any handle, with its lock; null when out of memory.
std::shared_ptr<DeviceRecord> new_device_record(int32_t type);

struct ContainerRecord;

// An open application. On the crypto-library route it owns the containers built from the
// device's key pairs when it was opened; their set stays fixed until it is opened again.
struct ApplicationRecord {
  static constexpr RecordKind kKind = RecordKind::Application;
  UniquePtr<VOREL_DEVICE> cryptoDevice;            // the application's own reference
  std::unique_ptr<ContainerRecord> containers[8];  // filled from the front
  uint32_t type = 0;
  HAPPLICATION vendorApplication = nullptr;
  std::atomic<uint32_t> userPinVerified{0};
  std::atomic<uint32_t> adminPinVerified{0};

  explicit ApplicationRecord(uint32_t deviceType) : type(deviceType) {}
  void clear_pins() {
    userPinVerified = 0;
    adminPinVerified = 0;
  }
  // The PIN of that SKF type was verified through this application.
  void mark_pin(ULONG pinType) { (pinType == ADMIN_TYPE ? adminPinVerified : userPinVerified) = 1; }
  ~ApplicationRecord();
};

// A container: one of an application's (signing and encryption key pairs, their certificates),
// or one handed out by SKF_OpenContainer / SKF_CreateContainer (duplicated key pairs, no
// certificates, the application it belongs to).
struct ContainerRecord {
  static constexpr RecordKind kKind = RecordKind::Container;
  VOREL_DEVICE* cryptoDevice = nullptr;  // the application's
  uint32_t algorithm = 0;                // VOREL_ALG_RSA or VOREL_ALG_SM2
  char name[260] = {};
  UniquePtr<VOREL_KEYPAIR> signKeypair;
  UniquePtr<VOREL_KEYPAIR> encKeypair;
  UniquePtr<VOREL_CERT> signCert;
  UniquePtr<VOREL_CERT> encCert;
  std::shared_ptr<ApplicationRecord> app;  // keeps the application's device alive
  uint32_t type = 0;
  HCONTAINER vendorContainer = nullptr;
};

// Payload of a session key handle (kind 1).
struct SymmKeyRecord {
  VOREL_DEVICE* owner;  // a reference of the key's own to its device
  VOREL_CIPHER* cipher;
  uint8_t key[32];
  uint32_t keyLen;
  uint32_t cryptoAlg;
  uint32_t finalDone;
  uint8_t finalBlock[16];
  uint32_t finalLen;
};

// Payload of a MAC handle (kind 4). A hash handle (kind 2) carries the VOREL_HASH itself.
struct MacRecord {
  VOREL_CIPHER* cipher;
  uint8_t lastBlock[16];
};

struct HandleRecord {
  static constexpr RecordKind kKind = RecordKind::Handle;
  int32_t type;         // device type at creation; routes every later use
  HANDLE vendorHandle;  // vendor route
  uint32_t kind;        // HandleKind
  void* payload;        // crypto-library route; freed by kind with the record
  std::mutex mutex;     // one operation at a time on the handle's state

  HandleRecord(int32_t deviceType, uint32_t handleKind)
      : type(deviceType), vendorHandle(nullptr), kind(handleKind), payload(nullptr) {}
  ~HandleRecord();
  HandleRecord(const HandleRecord&) = delete;
  HandleRecord& operator=(const HandleRecord&) = delete;
};

// ---- record memory ----

constexpr std::size_t kRecordSlot = 1024;
// A closed record's address is not handed out again before this many further records were made.
constexpr std::uint64_t kAddressCooling = 1u << 17;

// A slot of kRecordSlot zero-filled bytes; throws std::bad_alloc.
void* record_slot_allocate();
void record_slot_release(void* slot);
// Pages that hold memory now (live records and the page being filled).
std::size_t record_pages_committed();

// ---- the registry ----

// A new record, not yet reachable through its handle. Throws std::bad_alloc.
template <class T, class... Args>
std::shared_ptr<T> new_record(Args&&... args) {
  static_assert(sizeof(T) <= kRecordSlot, "record larger than its slot");
  void* slot = record_slot_allocate();
  T* record;
  try {
    record = new (slot) T(std::forward<Args>(args)...);
  } catch (...) {
    record_slot_release(slot);
    throw;
  }
  // Should the control block fail to allocate, shared_ptr runs the deleter before throwing.
  return std::shared_ptr<T>(record, [](T* p) {
    p->~T();
    record_slot_release(p);
  });
}

// Throws std::bad_alloc, with nothing published.
void registry_publish(const void* handle, RecordKind kind, std::shared_ptr<void> record);
std::shared_ptr<void> registry_find(const void* handle, RecordKind kind);
// Takes the record out of the registry.
void registry_retire(const void* handle);
// At unload: every handle the caller left open is closed and the record memory goes back.
void records_release();

// Makes the record reachable through its address, the caller's handle. Every record lives until
// its own handle is closed: a child keeps what it needs of its parent. Throws std::bad_alloc.
template <class T>
void publish(const std::shared_ptr<T>& record) {
  registry_publish(record.get(), T::kKind, record);
}

// Publishes a new record and writes its handle to *out. When it cannot be published (no memory:
// the exception goes on), undo() runs first, so that a handle a vendor just gave out does not stay
// open on the token.
template <class T, class Undo>
ULONG publish_record(const std::shared_ptr<T>& record, HANDLE* out, Undo undo) {
  try {
    publish(record);
  } catch (...) {
    undo();
    throw;
  }
  *out = record.get();
  return SAR_OK;
}

template <class T>
ULONG publish_record(const std::shared_ptr<T>& record, HANDLE* out) {
  return publish_record(record, out, [] {});
}

// The live record of that kind behind a handle, or null: unknown, closed and other kinds alike.
template <class T>
std::shared_ptr<T> find_record(const void* handle) {
  return std::static_pointer_cast<T>(registry_find(handle, T::kKind));
}

inline std::shared_ptr<DeviceRecord> find_device(DEVHANDLE handle) { return find_record<DeviceRecord>(handle); }
inline std::shared_ptr<HandleRecord> find_handle(HANDLE handle) { return find_record<HandleRecord>(handle); }

// Closes a handle: the registry lets go of its record, whose memory goes with the last reference.
inline void retire(const void* handle) { registry_retire(handle); }

}  // namespace vorel
