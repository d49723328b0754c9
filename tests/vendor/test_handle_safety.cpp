// Every export against handles that are not what it expects: random values, closed handles of
// every kind, and live handles of every other kind, on the emulated and the vendor route. Each
// must get the export's documented answer and nothing may crash; the live handles must come out
// of it untouched. VOREL_HANDLE_CALLS sets how many random calls each route makes (docs/handles.md).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include "export_catalogue.h"
#include "vorel/vorel_crypto.h"

namespace device {
namespace {

// A handle to pass, and what it is.
struct Bad {
  HANDLE h;
  int kind;  // kKinds: a random value; else the kind of a live (or closed) handle
  bool closed;
};

// The answer an export gives a handle that is not a live one of its kind: a live generic handle
// (session key, hash, MAC) of another generic kind is SAR_FAIL, anything else
// SAR_INVALIDHANDLEERR (docs/handles.md).
ULONG expected(const ExportRow& row, const Bad& bad) {
  if (row.slot == kNone) return row.fixed;
  if (!bad.closed && generic(row.slot) && generic(bad.kind) && bad.kind != row.slot) return SAR_FAIL;
  return SAR_INVALIDHANDLEERR;
}

class HandleSafety : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    configure(R"({"devices":[{"name":"EMULATED","type":3},)" + vendor_entry(7) + "]}");
    make_token(3, "H1", "token", {{"s1", VOREL_KEYPAIR_SIGN, "C", "s1"}, {"s2", VOREL_KEYPAIR_ENCRYPT, "C", "s2"}});
    vendor_ = std::make_unique<testsupport::Recorder>(testsupport::module_path(VENDOR_FIXTURE));
  }
  // A device of the route and one handle of each kind under it.
  HandleSet open_set(bool vendor) { return open_under(connect(vendor ? "7#FIXTURE0" : "3#H1")); }

  // Failures are counted, the first few described.
  struct Tally {
    uint64_t calls = 0, wrong = 0;
    std::string first;
  };
  // The row answers the bad handle as documented, and the vendor never sees the call.
  void check(const ExportRow& row, const Bad& bad, bool vendor, Tally& t) {
    int before = vendor ? vendor_->calls(row.name) : 0;
    ULONG got = row.call(bad.h);
    ++t.calls;
    ULONG want = expected(row, bad);
    bool reached = vendor && row.slot != kNone && vendor_->calls(row.name) != before;
    if ((got == want && !reached) || ++t.wrong > 20) return;
    char what[256];
    std::snprintf(what, sizeof what, "%s(%s%s %p): 0x%08lx, expected 0x%08lx%s\n", row.name,
                  bad.closed ? "closed " : "", bad.kind < kKinds ? kSlotNames[bad.kind] : "random", bad.h,
                  static_cast<unsigned long>(got), static_cast<unsigned long>(want),
                  reached ? ", and the vendor was called" : "");
    t.first += what;
  }

  // A random value that is no live handle: anywhere, small, near a live record, or one of the
  // vendor's own handle values.
  HANDLE random_handle(std::mt19937_64& rng, const std::vector<HANDLE>& near, const std::set<HANDLE>& live) {
    for (;;) {
      uint64_t v = rng();
      if (v % 4 == 1) v = (v >> 8) % 0x10000;
      if (v % 4 == 2) v = reinterpret_cast<uintptr_t>(near[(v >> 8) % near.size()]) + ((v >> 24) % 0x20000) - 0x10000;
      if (v % 4 == 3) v = 0x7E000000u + (v >> 8) % 0x400;  // the recording module's handle values
      HANDLE h = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(v));
      if (h && !live.count(h)) return h;
    }
  }

  void run_route(bool vendor) {
    Catalogue cat;
    ASSERT_EQ(cat.rows.size(), 85u);
    HandleSet live = open_set(vendor), closed = open_set(vendor);
    std::vector<Bad> bad;
    std::set<HANDLE> liveSet;
    std::vector<HANDLE> near;
    close_set(closed);  // each handle by its own export, children first
    for (int k = kDevice; k < kKinds; ++k) {
      bad.push_back({closed.h[k], k, true});
      bad.push_back({live.h[k], k, false});
      liveSet.insert(live.h[k]);
      near.insert(near.end(), {live.h[k], closed.h[k]});
    }
    auto fits = [&](const ExportRow& row, const Bad& b) {
      // A live handle of the row's own kind is no bad handle; SKF_CloseHandle takes every generic kind.
      if (b.closed || b.kind >= kKinds) return true;
      return !(b.kind == row.slot || (row.slot == kAnyGeneric && generic(b.kind)));
    };

    // Every row against every closed and wrong-kind handle, at the suite's log level.
    Tally t;
    for (const ExportRow& row : cat.rows)
      for (const Bad& b : bad)
        if (fits(row, b)) check(row, b, vendor, t);

    // Then random rows and handles in bulk, unlogged so that the count stays affordable.
    const char* env = std::getenv("VOREL_HANDLE_CALLS");
    uint64_t count = env ? std::strtoull(env, nullptr, 10) : 100000;
    const char* seedEnv = std::getenv("VOREL_HANDLE_SEED");
    uint64_t seed = seedEnv ? std::strtoull(seedEnv, nullptr, 10) : std::random_device()();
    std::printf("%s route: %llu random calls, VOREL_HANDLE_SEED=%llu\n", vendor ? "vendor" : "emulated",
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(seed));
    std::mt19937_64 rng(seed);
    {
      testsupport::ScopedEnv quiet("VOREL_SKF_LOG_LEVEL", "0");
      for (uint64_t i = 0; i < count; ++i) {
        const ExportRow& row = cat.rows[rng() % cat.rows.size()];
        Bad b = rng() % 2 ? bad[rng() % bad.size()] : Bad{nullptr, kKinds, false};
        if (!b.h || !fits(row, b)) b = Bad{random_handle(rng, near, liveSet), kKinds, false};
        check(row, b, vendor, t);
      }
    }
    std::printf("%llu calls, %llu wrong answers\n", static_cast<unsigned long long>(t.calls),
                static_cast<unsigned long long>(t.wrong));
    EXPECT_EQ(t.wrong, 0u) << t.first;

    // The live handles came through untouched.
    DEVINFO info;
    ULONG state = 0, type = 0;
    EXPECT_EQ(SKF_GetDevInfo(live.h[kDevice], &info), kOk);
    EXPECT_EQ(SKF_GetSecureState(live.h[kApplication], &state), kOk);
    EXPECT_EQ(SKF_GetContainerType(live.h[kContainer], &type), kOk);
    EXPECT_EQ(SKF_EncryptInit(live.h[kKey], cat.args.param), kOk);
    EXPECT_EQ(SKF_DigestUpdate(live.h[kHash], cat.args.in, 16), kOk);
    EXPECT_EQ(SKF_MacUpdate(live.h[kMac], cat.args.in, 16), kOk);
    close_set(live);
  }

  std::unique_ptr<testsupport::Recorder> vendor_;
};

TEST_F(HandleSafety, EveryRowGetsAsFarAsItsHandleCheck) {
  // With a live handle of its own kind no row is refused for its handle: the arguments of the
  // catalogue are good, so the refusals above are the handles' doing.
  for (bool vendor : {false, true}) {
    Catalogue cat;
    for (const ExportRow& row : cat.rows) {
      if (row.slot == kNone) {
        EXPECT_EQ(row.call(nullptr), row.fixed) << row.name;
        continue;
      }
      HandleSet s = open_set(vendor);
      EXPECT_NE(row.call(s.of(row.slot)), static_cast<ULONG>(SAR_INVALIDHANDLEERR))
          << row.name << (vendor ? " (vendor)" : "");
      if (std::strcmp(row.name, "SKF_LockDev") == 0) SKF_UnlockDev(s.h[kDevice]);
      close_any(cat.args.made);
      cat.args.made = nullptr;
      close_set(s);
    }
  }
}

TEST_F(HandleSafety, EmulatedRouteRefusesEveryHandleThatIsNotItsOwn) { run_route(false); }

TEST_F(HandleSafety, VendorRouteRefusesEveryHandleThatIsNotItsOwnBeforeTheVendorSeesIt) { run_route(true); }

}  // namespace
}  // namespace device
