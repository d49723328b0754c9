// Device and generic handle records, and the registry of live records that handles are checked against.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "skf.h"
#include "vorel/vorel_crypto.h"

namespace vorel {

enum class RecordKind : uint32_t { Device = 1, Application = 2, Container = 3, Handle = 4 };

// Generic handle kinds and the payload each carries on the crypto-library route.
enum HandleKind : uint32_t { kSessionKey = 1, kHash = 2, kMac = 4 };

struct DeviceRecord {
  platform::RecursiveLock* lock;  // taken only by SKF_LockDev / SKF_UnlockDev
  int32_t type;
  char name[65];  // serial number on the crypto-library route
  DEVINFO devInfo;
  VOREL_DEVICE* cryptoDevice;
  DEVHANDLE vendorDevice;
};

struct HandleRecord {
  int32_t type;         // device type at creation; routes every later use
  HANDLE vendorHandle;  // vendor route
  uint32_t kind;        // HandleKind
  void* payload;        // crypto-library route
};

// Payload of a session key handle.
struct SymmKeyRecord {
  VOREL_DEVICE* owner;
  VOREL_CIPHER* cipher;
  uint8_t key[32];
  uint32_t keyLen;
  uint32_t cryptoAlg;
  uint32_t finalDone;
  uint8_t finalBlock[16];
  uint32_t finalLen;
};

// Payload of a MAC handle.
struct MacRecord {
  VOREL_CIPHER* cipher;
  uint8_t lastBlock[16];
};

// Registry of live records. A handle is used only when it is registered with the expected kind.
void registry_add(const void* record, RecordKind kind);
void registry_remove(const void* record);
bool registry_contains(const void* record, RecordKind kind);

// Typed lookups: nullptr unless the handle is a live record of that kind.
DeviceRecord* find_device(DEVHANDLE handle);
HandleRecord* find_handle(HANDLE handle);

// Creation registers the record; release unregisters it first, then frees what it owns.
DeviceRecord* device_record_new(int32_t type);
void device_record_free(DeviceRecord* device);
HandleRecord* handle_record_new(int32_t type, uint32_t kind);
// Frees the crypto-library payload by kind, then the record.
void handle_record_free(HandleRecord* handle);

}  // namespace vorel
