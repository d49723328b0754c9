#include "core/records.h"

#include <cstring>
#include <list>
#include <unordered_map>
#include <vector>

#include "platform/platform.h"
#include "vorel/vorel_util.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOREL_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VOREL_ASAN 1
#endif
#ifdef VOREL_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace vorel {

// ---- locks ----

bool DeviceLock::enter() {
  std::unique_lock<std::mutex> guard(mutex_);
  std::thread::id self = std::this_thread::get_id();
  free_.wait(guard, [&] { return abandoned_ || depth_ == 0 || owner_ == self; });
  if (abandoned_) return false;
  owner_ = self;
  ++depth_;
  return true;
}

void DeviceLock::abandon() {
  {
    std::lock_guard<std::mutex> guard(mutex_);
    abandoned_ = true;
  }
  free_.notify_all();
}

bool DeviceLock::leave() {
  std::lock_guard<std::mutex> guard(mutex_);
  if (depth_ == 0 || owner_ != std::this_thread::get_id()) return false;
  if (--depth_ == 0) {
    owner_ = std::thread::id();
    free_.notify_one();
  }
  return true;
}

DeviceAuth::~DeviceAuth() {
  vorel_cleanse(key, sizeof key);
  vorel_cleanse(challenge, sizeof challenge);
}

ApplicationRecord::~ApplicationRecord() = default;

HandleRecord::~HandleRecord() {
  switch (kind) {
    case kSessionKey:
      if (auto* key = static_cast<SymmKeyRecord*>(payload)) {
        VorelPKICryptoFreeCipher(key->cipher);
        VorelPKICryptoFreeDevice(key->owner);
        vorel_cleanse(key, sizeof *key);
        vorel_free(key);
      }
      break;
    case kHash:
      VorelPKICryptoFreeHash(static_cast<VOREL_HASH*>(payload));
      break;
    case kMac:
      if (auto* mac = static_cast<MacRecord*>(payload)) {
        VorelPKICryptoFreeCipher(mac->cipher);
        vorel_cleanse(mac, sizeof *mac);
        vorel_free(mac);
      }
      break;
    default:
      break;
  }
  payload = nullptr;
}

// ---- record memory ----
//
// Slots are handed out in address order within a page; a page whose slots were all handed out
// and closed gives its memory back at once and joins a queue, from which it is taken again only
// when kAddressCooling records were made since. Address space is reserved in chunks that stay
// until the library unloads; only pages with live records hold memory.

namespace {

constexpr std::size_t kChunkPages = 1024;

struct PageState {
  uint32_t handedOut = 0;
  uint32_t live = 0;
};

struct Cooling {
  char* page;
  uint64_t since;  // records made when the page emptied
};

class RecordArena {
 public:
  void* allocate() {
    std::lock_guard<std::mutex> guard(mutex_);
    if (!current_ || pages_[current_].handedOut == slotsPerPage_) next_page();
    PageState& state = pages_[current_];
    char* slot = current_ + state.handedOut * kRecordSlot;
    ++state.handedOut;
    ++state.live;
    ++made_;
#ifdef VOREL_ASAN
    ASAN_UNPOISON_MEMORY_REGION(slot, kRecordSlot);
#endif
    return slot;
  }

  void release(void* slot) {
    std::lock_guard<std::mutex> guard(mutex_);
    char* page = page_of(static_cast<char*>(slot));
    PageState& state = pages_[page];
    std::memset(slot, 0, kRecordSlot);
#ifdef VOREL_ASAN
    ASAN_POISON_MEMORY_REGION(slot, kRecordSlot);
#endif
    if (--state.live == 0 && state.handedOut == slotsPerPage_) retire_page(page);
  }

  std::size_t committed() {
    std::lock_guard<std::mutex> guard(mutex_);
    return pages_.size();
  }

  // At unload, when no record is left: the address space and the bookkeeping go back.
  void release_all() {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& page : pages_) {
      if (page.second.live) return;
    }
    for (char* chunk : chunks_) {
#ifdef VOREL_ASAN
      __lsan_unregister_root_region(chunk, chunkSize());
#endif
      platform::release_pages(chunk, chunkSize());
    }
    std::unordered_map<char*, PageState>().swap(pages_);
    std::list<Cooling>().swap(cooling_);
    std::vector<char*>().swap(chunks_);
    current_ = nextFresh_ = chunkEnd_ = nullptr;
  }

 private:
  char* page_of(char* p) const {
    return reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(p) & ~(pageSize_ - 1));
  }

  // The oldest cooled page, else a page never used; nothing changes unless it succeeds.
  void next_page() {
    bool cooled = !cooling_.empty() && made_ - cooling_.front().since >= kAddressCooling;
    if (!cooled && nextFresh_ == chunkEnd_) reserve_chunk();
    char* page = cooled ? cooling_.front().page : nextFresh_;
    pages_[page] = PageState();
    if (!platform::commit_pages(page, pageSize_)) {
      pages_.erase(page);
      throw std::bad_alloc();
    }
#ifdef VOREL_ASAN
    ASAN_POISON_MEMORY_REGION(page, pageSize_);
#endif
    if (cooled) {
      cooling_.pop_front();
    } else {
      nextFresh_ += pageSize_;
    }
    current_ = page;
  }

  std::size_t chunkSize() const { return kChunkPages * pageSize_; }

  void reserve_chunk() {
    std::size_t size = chunkSize();
    auto* chunk = static_cast<char*>(platform::reserve_pages(size));
    if (!chunk) throw std::bad_alloc();
    try {
      chunks_.push_back(chunk);
    } catch (const std::bad_alloc&) {
      platform::release_pages(chunk, size);
      throw;
    }
#ifdef VOREL_ASAN
    // Records hold the only references to what they own: the leak checker must look inside.
    __lsan_register_root_region(chunk, size);
#endif
    nextFresh_ = chunk;
    chunkEnd_ = chunk + size;
  }

  void retire_page(char* page) {
    pages_.erase(page);
    if (page == current_) current_ = nullptr;
    platform::decommit_pages(page, pageSize_);
    try {
      cooling_.push_back({page, made_});
    } catch (const std::bad_alloc&) {
      // Out of memory while closing: the page is simply not used again.
    }
  }

  std::mutex mutex_;
  const std::size_t pageSize_ = platform::page_size();
  const uint32_t slotsPerPage_ = static_cast<uint32_t>(platform::page_size() / kRecordSlot);
  std::unordered_map<char*, PageState> pages_;  // committed pages
  std::list<Cooling> cooling_;
  std::vector<char*> chunks_;  // reserved address space
  char* current_ = nullptr;
  char* nextFresh_ = nullptr;
  char* chunkEnd_ = nullptr;
  uint64_t made_ = 0;
};

RecordArena& arena() {
  // Never destroyed: records may be released during process teardown.
  return resident<RecordArena>();
}

struct Registry {
  std::mutex mutex;
  struct Entry {
    RecordKind kind;
    std::shared_ptr<void> record;
  };
  std::unordered_map<const void*, Entry> live;
};

Registry& registry() { return resident<Registry>(); }

}  // namespace

std::shared_ptr<DeviceRecord> new_device_record(int32_t type) {
  try {
    auto record = new_record<DeviceRecord>(type);
    record->lock = std::make_shared<DeviceLock>();
    return record;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* record_slot_allocate() { return arena().allocate(); }

void record_slot_release(void* slot) {
  if (slot) arena().release(slot);
}

std::size_t record_pages_committed() { return arena().committed(); }

void registry_publish(const void* handle, RecordKind kind, std::shared_ptr<void> record) {
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.mutex);
  r.live[handle] = Registry::Entry{kind, std::move(record)};
}

void records_release() {
  Registry& r = registry();
  std::unordered_map<const void*, Registry::Entry> live;
  {
    std::lock_guard<std::mutex> guard(r.mutex);
    live.swap(r.live);
  }
  live.clear();  // records destroyed outside the lock
  arena().release_all();
}

std::shared_ptr<void> registry_find(const void* handle, RecordKind kind) {
  if (!handle) return nullptr;
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.mutex);
  auto it = r.live.find(handle);
  if (it == r.live.end() || it->second.kind != kind) return nullptr;
  return it->second.record;
}

void registry_retire(const void* handle) {
  Registry& r = registry();
  std::shared_ptr<void> dying;
  {
    std::lock_guard<std::mutex> guard(r.mutex);
    auto it = r.live.find(handle);
    if (it == r.live.end()) return;
    dying = std::move(it->second.record);
    r.live.erase(it);
  }
  // The record is destroyed here, outside the registry's lock, unless a call still holds it.
}

}  // namespace vorel
