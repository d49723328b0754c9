// The token file format, the token folder and the per-process token table.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <set>

#include "crypto/internal.h"
#include "crypto/token.h"
#include "platform/platform.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"

namespace vorel::token {

namespace {

const char kMagic[8] = {'V', 'O', 'R', 'E', 'L', 'T', 'O', 'K'};
constexpr std::size_t kChecksumSize = 32;
// Bounds a damaged length field before it becomes an allocation.
constexpr std::uint32_t kMaxBlob = 64u << 20;

class Writer {
 public:
  explicit Writer(std::string& out) : out_(out) {}
  void u32(std::uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out_.push_back(static_cast<char>(v >> s));
  }
  void u64(std::uint64_t v) {
    u32(static_cast<std::uint32_t>(v >> 32));
    u32(static_cast<std::uint32_t>(v));
  }
  void raw(const void* p, std::size_t n) { out_.append(static_cast<const char*>(p), n); }
  void blob(const std::string& s) {
    u32(static_cast<std::uint32_t>(s.size()));
    out_.append(s);
  }

 private:
  std::string& out_;
};

class Reader {
 public:
  Reader(const std::string& in, std::size_t end) : p_(reinterpret_cast<const unsigned char*>(in.data())), end_(end) {}
  bool ok() const { return ok_; }
  bool done() const { return at_ == end_; }
  std::uint32_t u32() {
    if (!need(4)) return 0;
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = v << 8 | p_[at_++];
    return v;
  }
  std::uint64_t u64() {
    std::uint64_t hi = u32();
    return hi << 32 | u32();
  }
  void raw(void* out, std::size_t n) {
    if (!need(n)) return;
    std::memcpy(out, p_ + at_, n);
    at_ += n;
  }
  void blob(std::string& s, std::uint32_t max = kMaxBlob) {
    std::uint32_t n = u32();
    if (n > max) ok_ = false;
    if (!need(n)) return;
    s.assign(reinterpret_cast<const char*>(p_ + at_), n);
    at_ += n;
  }
  // A count of records each at least min bytes long, checked against what is left.
  std::uint32_t count(std::size_t min) {
    std::uint32_t n = u32();
    if (ok_ && n > (end_ - at_) / min) ok_ = false;
    return ok_ ? n : 0;
  }

 private:
  bool need(std::size_t n) {
    if (!ok_ || end_ - at_ < n) ok_ = false;
    return ok_;
  }
  const unsigned char* p_;
  std::size_t end_, at_ = 0;
  bool ok_ = true;
};

// The head of a token file: what names its committed state, and what names the token.
struct Head {
  std::uint64_t instance = 0, generation = 0;
  std::uint32_t type = 0;
  std::string serial;
};
constexpr std::size_t kNamedHeadSize = kHeaderSize + 4 + 4 + VOREL_SERIAL_MAX_LEN;

// From the first kHeaderSize bytes, or with named the first kNamedHeadSize (or the whole file
// when shorter); false when they are no token's.
bool read_head(const std::string& bytes, Head& h, bool named) {
  Reader r(bytes, bytes.size());
  char magic[sizeof kMagic];
  r.raw(magic, sizeof magic);
  bool ours = r.ok() && std::memcmp(magic, kMagic, sizeof kMagic) == 0 && r.u32() == kFormatVersion;
  h.instance = r.u64();
  h.generation = r.u64();
  if (named) {
    h.type = r.u32();
    r.blob(h.serial, VOREL_SERIAL_MAX_LEN);
  }
  return ours && r.ok() && (!named || (h.type > 0 && h.type <= 0x7FFFFFFF && valid_serial(h.serial)));
}

void write_pin(Writer& w, const PinSlot& s) {
  w.u32(s.remaining);
  w.raw(s.salt, sizeof s.salt);
  w.raw(s.iv, sizeof s.iv);
  w.raw(s.wrapped, sizeof s.wrapped);
  w.raw(s.tag, sizeof s.tag);
}

void read_pin(Reader& r, PinSlot& s) {
  s.remaining = r.u32();
  r.raw(s.salt, sizeof s.salt);
  r.raw(s.iv, sizeof s.iv);
  r.raw(s.wrapped, sizeof s.wrapped);
  r.raw(s.tag, sizeof s.tag);
}

bool sha256(const char* p, std::size_t n, unsigned char* out) {
  void* h = backend::hash_new(VOREL_HASH_SHA256);
  if (!h) return false;
  bool ok = backend::hash_update(h, reinterpret_cast<const unsigned char*>(p), n) && backend::hash_final(h, out);
  backend::hash_free(h);
  return ok;
}

int damaged(std::string* why, const std::string& text) {
  if (why) *why = text;
  return VOREL_ERR_TOKEN_DAMAGED;
}

std::string num(std::uint32_t v) { return std::to_string(v); }

// What the checksum cannot vouch for, since whoever can write the file can compute one: every
// value the library sizes, counts or loops by is within bounds, and each key pair is what its
// public key says.
int check_values(const Contents& n, std::string* why) {
  if (!valid_serial(n.serial)) return damaged(why, "invalid serial number");
  if (n.type == 0 || n.type > 0x7FFFFFFF) return damaged(why, "device type " + num(n.type) + " out of range");
  if (n.iterations < kMinIterations || n.iterations > kMaxIterations)
    return damaged(why, "PBKDF2 iterations " + num(n.iterations) + " outside " + num(kMinIterations) + " to " +
                            num(kMaxIterations));
  if (n.maxTries == 0 || n.maxTries > kMaxTries)
    return damaged(why, "tries per PIN " + num(n.maxTries) + " outside 1 to " + num(kMaxTries));
  if (n.user.remaining > n.maxTries || n.so.remaining > n.maxTries)
    return damaged(why, "more tries left than a PIN has");
  std::set<std::uint32_t> ids;
  for (std::size_t i = 0; i < n.keys.size(); ++i) {
    const StoredKey& k = n.keys[i];
    std::string pair = "key pair " + std::to_string(i) + ": ";
    if (k.id == 0 || k.id >= n.nextKeyId)
      return damaged(why,
                     pair + "number " + num(k.id) + " is not one the token gave out (below " + num(n.nextKeyId) + ")");
    if (!ids.insert(k.id).second) return damaged(why, pair + "number " + num(k.id) + " is used twice");
    if (k.type != VOREL_KEYPAIR_SIGN && k.type != VOREL_KEYPAIR_ENCRYPT)
      return damaged(why, pair + "type " + num(k.type) + " is neither signing nor encryption");
    int alg = 0, bits = 0;
    if (crypto::public_key_size(reinterpret_cast<const unsigned char*>(k.spki.data()), k.spki.size(), &alg, &bits) !=
        VOREL_OK)
      return damaged(why, pair + "the public key is not one the library takes");
    if (k.alg != static_cast<std::uint32_t>(alg))
      return damaged(why, pair + "algorithm " + num(k.alg) + " recorded for a public key of algorithm " + num(alg));
    if (k.bits != static_cast<std::uint32_t>(bits))
      return damaged(why, pair + num(k.bits) + " bits recorded for a public key of " + std::to_string(bits));
  }
  for (const auto& d : n.data)
    for (unsigned char who : d.second.access)
      if (who & ~(VOREL_ACCESS_USER | VOREL_ACCESS_SO | VOREL_ACCESS_ANYONE))
        return damaged(why, "data object " + num(d.first) + ": unknown access bits");
  return VOREL_OK;
}

}  // namespace

std::string serialize(const Contents& c) {
  std::string out;
  std::size_t size = 256 + c.serial.size() + c.label.size() + kChecksumSize;
  for (const StoredKey& k : c.keys) size += 96 + k.label.size() + k.spki.size() + k.sealed.size() + k.cert.size();
  for (const auto& d : c.data) size += 12 + d.second.data.size();
  out.reserve(size);
  Writer w(out);
  w.raw(kMagic, sizeof kMagic);
  w.u32(kFormatVersion);
  w.u64(c.instance);
  w.u64(c.generation);
  w.u32(c.type);
  w.blob(c.serial);
  w.blob(c.label);
  w.u32(c.iterations);
  w.u32(c.maxTries);
  write_pin(w, c.user);
  write_pin(w, c.so);
  w.u32(c.nextKeyId);
  w.u32(static_cast<std::uint32_t>(c.keys.size()));
  for (const StoredKey& k : c.keys) {
    w.u32(k.id);
    w.u32(k.type);
    w.u32(k.alg);
    w.u32(k.bits);
    w.blob(k.label);
    w.blob(k.spki);
    w.raw(k.iv, sizeof k.iv);
    w.blob(k.sealed);
    w.raw(k.tag, sizeof k.tag);
    w.blob(k.cert);
  }
  w.u32(static_cast<std::uint32_t>(c.data.size()));
  for (const auto& d : c.data) {
    w.u32(d.first);
    w.raw(d.second.access, sizeof d.second.access);
    w.blob(d.second.data);
  }
  unsigned char sum[kChecksumSize] = {};
  sha256(out.data(), out.size(), sum);
  w.raw(sum, sizeof sum);
  return out;
}

int parse(const std::string& file, Contents& c, std::string* why) {
  if (file.size() < kHeaderSize + kChecksumSize || std::memcmp(file.data(), kMagic, sizeof kMagic) != 0)
    return damaged(why, "not a token file");
  std::size_t body = file.size() - kChecksumSize;
  unsigned char sum[kChecksumSize];
  if (!sha256(file.data(), body, sum)) return VOREL_ERR_GENERAL;
  if (std::memcmp(sum, file.data() + body, kChecksumSize) != 0) return damaged(why, "checksum mismatch");
  Reader r(file, body);
  char magic[8];
  r.raw(magic, sizeof magic);
  if (r.u32() != kFormatVersion) return damaged(why, "unknown format version");
  Contents n;
  n.instance = r.u64();
  n.generation = r.u64();
  n.type = r.u32();
  r.blob(n.serial, VOREL_SERIAL_MAX_LEN);
  r.blob(n.label, VOREL_LABEL_MAX_LEN);
  n.iterations = r.u32();
  n.maxTries = r.u32();
  read_pin(r, n.user);
  read_pin(r, n.so);
  n.nextKeyId = r.u32();
  std::uint32_t keys = r.count(64);
  n.keys.resize(keys);
  for (StoredKey& k : n.keys) {
    k.id = r.u32();
    k.type = r.u32();
    k.alg = r.u32();
    k.bits = r.u32();
    r.blob(k.label, VOREL_KEYPAIR_LABEL_MAX_LEN);
    r.blob(k.spki);
    r.raw(k.iv, sizeof k.iv);
    r.blob(k.sealed);
    r.raw(k.tag, sizeof k.tag);
    r.blob(k.cert);
  }
  std::uint32_t objects = r.count(12);
  for (std::uint32_t i = 0; r.ok() && i < objects; ++i) {
    std::uint32_t id = r.u32();
    DataObject d;
    r.raw(d.access, sizeof d.access);
    r.blob(d.data, VOREL_DATA_MAX_SIZE);
    if (!n.data.emplace(id, std::move(d)).second) return damaged(why, "data object listed twice");
  }
  if (!r.ok() || !r.done()) return damaged(why, "truncated or overlong record");
  int rc = check_values(n, why);
  if (rc != VOREL_OK) return rc;
  c = std::move(n);
  return VOREL_OK;
}

void Token::logout() {
  login = Login::None;
  tokenKey.clear();
  tokenKey.shrink_to_fit();  // the allocator wipes what it gives back
  keys.clear();
}

std::string token_dir() {
  char sep = platform::path_separator();
  const char* env = platform::env_get("VOREL_TOKEN_DIR");
  std::string dir;
  if (env && *env) {
    dir = env;
  } else {
    dir = platform::user_data_dir();
    if (dir.empty()) return dir;
    dir = dir + sep + "vorel" + sep + "tokens";
  }
  // One spelling per folder: the token table is keyed by path.
  while (dir.size() > 1 && (dir.back() == sep || dir.back() == '/')) dir.pop_back();
  return dir;
}

std::string store_warning() {
  std::string dir = token_dir();
  unsigned mode = dir.empty() ? 0 : platform::permissions(dir);
  if ((mode & 077) == 0) return std::string();
  char octal[8];
  std::snprintf(octal, sizeof octal, "%04o", mode & 07777);
  return "token folder " + dir + " has mode " + octal + ": other users may reach its tokens (chmod 700 it)";
}

bool valid_serial(const std::string& serial) {
  if (serial.empty() || serial.size() > VOREL_SERIAL_MAX_LEN) return false;
  return std::all_of(serial.begin(), serial.end(), [](char ch) {
    return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z') || ch == '-' || ch == '_';
  });
}

std::string file_name(int type, const std::string& serial) { return std::to_string(type) + "-" + serial + ".token"; }

namespace {
// Never destroyed: device objects may be released during static destruction.
struct Table {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<Token>> tokens;
};
Table& table() { return resident<Table>(); }

// The end of the process (or the unloading of the library) logs every token out, wiping its keys.
struct LogoutAtExit {
  ~LogoutAtExit() {
    std::lock_guard<std::mutex> hold(table().mutex);
    for (auto& entry : table().tokens) {
      std::lock_guard<std::recursive_mutex> tokenGuard(entry.second->mu);
      entry.second->logout();
    }
  }
};
}  // namespace

std::shared_ptr<Token> token_at(const std::string& path) {
  static LogoutAtExit logoutAtExit;
  std::lock_guard<std::mutex> hold(table().mutex);
  std::shared_ptr<Token>& slot = table().tokens[path];
  if (!slot) {
    slot = std::make_shared<Token>();
    slot->path = path;
    std::string base = path.substr(0, path.size() - 6);
    slot->lockPath = base + ".lock";
    slot->pinLockPath = base + ".pinlock";
  }
  return slot;
}

void release_tokens() {
  std::map<std::string, std::shared_ptr<Token>> tokens;
  {
    std::lock_guard<std::mutex> hold(table().mutex);
    tokens.swap(table().tokens);
  }
  for (auto& entry : tokens) {
    std::lock_guard<std::recursive_mutex> tokenGuard(entry.second->mu);
    entry.second->logout();
  }
}

namespace {
// A writer killed while writing leaves its temporary file "<name>.tmp<pid>" beside the token;
// none is live while the token's lock is held.
void remove_temporaries(const std::string& dir, const std::string& name, const std::vector<std::string>& names) {
  const std::string temp = name + ".tmp";
  for (const std::string& other : names)
    if (other.compare(0, temp.size(), temp) == 0) platform::remove_file(dir + platform::path_separator() + other);
}

void sweep_temporaries(const std::string& path) {
  std::size_t sep = path.find_last_of(platform::path_separator());
  std::vector<std::string> names;
  if (sep == std::string::npos || !platform::list_dir(path.substr(0, sep), names)) return;
  remove_temporaries(path.substr(0, sep), path.substr(sep + 1), names);
}
}  // namespace

TokenLock::TokenLock(std::mutex& mu, const std::string& path, bool forWriting)
    : guard_(mu), file_(platform::file_lock(path, forWriting)) {}

TokenLock::~TokenLock() { platform::file_unlock(file_); }

DataLock::DataLock(Token& t, bool forWriting) : guard_(t.mu), file_(t.heldFile), own_(t.heldDepth == 0) {
  if (own_) file_ = platform::file_lock(t.lockPath, forWriting);
}

DataLock::~DataLock() {
  if (own_) platform::file_unlock(file_);
}

int hold(Token& t) {
  t.mu.lock();
  if (t.heldDepth == 0) {
    platform::FileLock* file = platform::file_lock(t.lockPath, true);
    if (!file || !platform::file_lock_exclusive(file)) {
      platform::file_unlock(file);
      t.mu.unlock();
      return VOREL_ERR_STORE;
    }
    t.heldFile = file;
  }
  ++t.heldDepth;  // the mutex stays locked once per hold
  return VOREL_OK;
}

int release(Token& t) {
  // Succeeds only where this thread owns the mutex, or nobody does.
  if (!t.mu.try_lock()) return VOREL_ERR_PARAM;
  if (t.heldDepth == 0) {
    t.mu.unlock();
    return VOREL_ERR_PARAM;
  }
  if (--t.heldDepth == 0) {
    platform::file_unlock(t.heldFile);
    t.heldFile = nullptr;
    t.heldFresh = false;
  }
  t.mu.unlock();
  t.mu.unlock();
  return VOREL_OK;
}

Session::Session(Token& t) : t_(t), lock_(t, false) {
  status_ = lock_.held() ? refresh() : VOREL_ERR_STORE;
  // Under a hold nobody else writes: once read, the contents stay current until it ends.
  if (t.heldDepth > 0) t.heldFresh = status_ == VOREL_OK;
}

int Session::refresh() {
  Token& t = t_;
  if (t.heldDepth > 0 && t.heldFresh && t.loaded) return VOREL_OK;
  // The header names the committed state: when it is the one held, nothing else is read.
  std::string head;
  if (!platform::read_file(t.path, head, kHeaderSize)) {
    t.loaded = false;
    t.logout();
    return VOREL_ERR_DEVICE_REMOVED;
  }
  Head h;
  if (t.loaded && read_head(head, h, false) && h.instance == t.c.instance && h.generation == t.c.generation)
    return VOREL_OK;
  std::string file;
  std::uint64_t instance = t.c.instance;
  int status = platform::read_file(t.path, file) ? parse(file, t.c, &why_) : VOREL_ERR_DEVICE_REMOVED;
  t.loaded = status == VOREL_OK;
  // A token deleted and made again under the same name has another token key.
  if (!t.loaded || t.c.instance != instance) t.logout();
  return status;
}

int Session::commit() {
  if (status_ != VOREL_OK) return status_;
  if (!lock_.exclusive()) return VOREL_ERR_STORE;
  sweep_temporaries(t_.path);
  ++t_.c.generation;
  std::string image = serialize(t_.c);
  if (!platform::write_file_atomic(t_.path, image.data(), image.size())) {
    // Memory now runs ahead of the file: read it again next time.
    t_.loaded = false;
    return VOREL_ERR_STORE;
  }
  return VOREL_OK;
}

int Session::create(Contents&& c) {
  if (status_ == VOREL_OK) return VOREL_ERR_EXISTS;
  if (status_ != VOREL_ERR_DEVICE_REMOVED) return status_;
  if (!lock_.exclusive()) return VOREL_ERR_STORE;
  t_.c = std::move(c);
  t_.c.generation = 0;
  t_.logout();
  status_ = VOREL_OK;
  t_.loaded = true;
  return commit();
}

int Session::remove() {
  if (status_ != VOREL_OK) return status_;
  if (!lock_.exclusive()) return VOREL_ERR_STORE;
  if (!platform::remove_file(t_.path)) return VOREL_ERR_STORE;
  t_.loaded = false;
  t_.logout();
  status_ = VOREL_ERR_DEVICE_REMOVED;
  return VOREL_OK;
}

std::vector<Listed> scan(int type, std::vector<Problem>* problems) {
  std::vector<Listed> found;
  std::string dir = token_dir();
  std::vector<std::string> names;
  if (dir.empty() || !platform::list_dir(dir, names)) return found;
  std::string prefix = std::to_string(type) + "-";
  for (const std::string& name : names) {
    const std::string suffix = ".token";
    if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) continue;
    if (type >= 0 && name.compare(0, prefix.size(), prefix) != 0) continue;
    Listed entry{0, "", token_at(dir + platform::path_separator() + name)};
    Token& t = *entry.token;
    std::string why;
    if (problems) {
      Session s(t);
      if (s.exclusive()) remove_temporaries(dir, name, names);
      if (s.status() != VOREL_OK) {
        why = s.status() == VOREL_ERR_TOKEN_DAMAGED ? s.why() : "cannot be read";
      } else if (file_name(static_cast<int>(t.c.type), t.c.serial) != name) {
        why = "holds another token than its name says";
      } else {
        entry.type = static_cast<int>(t.c.type);
        entry.serial = t.c.serial;
      }
    } else {
      // Only the head: a listing costs the same whatever the tokens hold.
      DataLock lock(t, false);
      if (lock.exclusive()) remove_temporaries(dir, name, names);
      std::string head;
      Head h;
      if (!lock.held() || !platform::read_file(t.path, head, kNamedHeadSize) || !read_head(head, h, true) ||
          file_name(static_cast<int>(h.type), h.serial) != name)
        continue;
      entry.type = static_cast<int>(h.type);
      entry.serial = h.serial;
    }
    if (why.empty()) {
      found.push_back(std::move(entry));
    } else if (problems) {
      problems->push_back({name, why});
    }
  }
  std::sort(found.begin(), found.end(),
            [](const Listed& a, const Listed& b) { return a.type != b.type ? a.type < b.type : a.serial < b.serial; });
  return found;
}

}  // namespace vorel::token
