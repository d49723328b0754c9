// One row per export: the handle it looks up first, a call valid in everything but that handle,
// and what the export does on the vendor route. The forwarding, not-supported and bad-handle
// suites loop over these rows.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device_suite.h"

namespace device {

// What an export looks up first; kAnyGeneric takes a session key, hash or MAC, kNone no handle.
enum Slot { kDevice, kApplication, kContainer, kKey, kHash, kMac, kKinds, kAnyGeneric, kNone };
extern const char* const kSlotNames[kKinds];
inline bool generic(int slot) { return slot == kKey || slot == kHash || slot == kMac; }

// What the vendor route does with the call.
enum Route {
  kForwarded,  // the vendor's function gets the vendor's handle, then the caller's arguments
  kWraps,      // the same, but the new handle it writes goes into a record of ours
  kCloses,     // forwarded; on success our handle is closed too
  kFamily,     // forwarded to the function of the container's decryption family
  kOwn,        // answered without the vendor's function of that name
};

struct ExportRow {
  const char* name;
  Slot slot;
  Route route;
  std::function<ULONG(HANDLE)> call;
  // The arguments the vendor must record, given its handle; kWraps rows leave out the last one.
  std::function<std::vector<uint64_t>(uint64_t)> vendorSees;
  ULONG fixed = 0;  // kNone rows: their answer to the catalogue's arguments
};

// Arguments valid in everything but the handle, so that each call gets past its validation.
struct Args : Blobs {
  BYTE in[256] = {}, out[4096] = {};
  ULONG len = 0, a = 0, b = 0;
  BOOL flag = FALSE;
  HANDLE made = nullptr;
  DEVINFO info{};
  FILEATTRIBUTE attr{};
  BLOCKCIPHERPARAM param{};
  BYTE cipherBlob[sizeof(ECCCIPHERBLOB) + 64] = {};
  char text[64] = "f", pin[16] = "12345678", other[16] = "87654321", app[8] = "VOREL", container[4] = "C";
  char badName[16] = "nonsense", badPath[32] = "/nonexistent/vorelskf.json", badJson[16] = "{not json";
  Args() {
    rsaPub.BitLen = 1024;
    eccPub.BitLen = 256;
    param.IVLen = 16;
    ct()->CipherLen = 16;
  }
  ECCCIPHERBLOB* ct() { return reinterpret_cast<ECCCIPHERBLOB*>(cipherBlob); }
};

// All 85 exports over one set of arguments; rows point into args, so the catalogue stays put.
class Catalogue {
 public:
  Catalogue();
  Catalogue(const Catalogue&) = delete;
  Catalogue& operator=(const Catalogue&) = delete;
  Args args;
  std::vector<ExportRow> rows;
};

// One live handle of each kind under a device, and the vendor's handle behind each (0 on the
// emulated route; rec is the recording module when the device is the vendor's).
struct HandleSet {
  HANDLE h[kKinds] = {};
  uint64_t vendor[kKinds] = {};
  HANDLE of(Slot slot) const { return h[slot == kAnyGeneric ? kHash : slot]; }
};
HandleSet open_under(DEVHANDLE dev, const testsupport::Recorder* rec = nullptr);
// Closes a handle of whatever kind it is; a set children first.
void close_any(HANDLE h);
void close_set(const HandleSet& s);

}  // namespace device
