// Software tokens: one file per token in the token folder, replaced whole on every write.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "crypto/backend.h"
#include "crypto/secure.h"
#include "platform/platform.h"

namespace vorel::token {

constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kHeaderSize = 28;  // magic, version, instance, generation
constexpr unsigned kDefaultIterations = 150000;
// What a token file may hold (docs/tokens.md): a login costs at most some seconds and the try
// counters stay small, whoever wrote the file.
constexpr std::uint32_t kMinIterations = 1000, kMaxIterations = 10000000;
constexpr std::uint32_t kMaxTries = 15;

// A PIN's copy of the token key, sealed under a key derived from the PIN.
struct PinSlot {
  std::uint32_t remaining = 0;
  unsigned char salt[16] = {};
  unsigned char iv[12] = {};
  unsigned char wrapped[32] = {};
  unsigned char tag[16] = {};
};

struct StoredKey {
  std::uint32_t id = 0, type = 0, alg = 0, bits = 0;
  std::string label;
  std::string spki;  // public key, DER
  unsigned char iv[12] = {};
  std::string sealed;  // PKCS#8 of the private key under the token key
  unsigned char tag[16] = {};
  std::string cert;  // DER; empty when none
};

struct DataObject {
  unsigned char access[4] = {};
  std::string data;
};

// Everything a token file holds.
struct Contents {
  std::uint64_t instance = 0;    // random, fixed at creation: tells a re-created token apart
  std::uint64_t generation = 0;  // grows with every write
  std::uint32_t type = 0;
  std::string serial, label;
  std::uint32_t iterations = kDefaultIterations;
  std::uint32_t maxTries = 6;
  PinSlot user, so;
  std::uint32_t nextKeyId = 1;
  std::vector<StoredKey> keys;  // creation order
  std::map<std::uint32_t, DataObject> data;
};

// The file image, checksum included.
std::string serialize(const Contents& c);
// VOREL_OK, or VOREL_ERR_TOKEN_DAMAGED with the reason in why.
int parse(const std::string& file, Contents& c, std::string* why);

enum class Login { None, User, So };

// One token as this process sees it: the last committed contents read from its file, and the
// login. Shared by every device object of the token; lives as long as the process.
struct Token {
  std::string path, lockPath, pinLockPath;
  std::recursive_mutex mu;  // taken before the file lock; re-entered by a thread that holds the token
  std::mutex pinMu;         // taken before the PIN lock file, which is taken before mu
  // A hold of VorelPKICryptoLockDevice: the file lock its thread keeps, and how many holds.
  platform::FileLock* heldFile = nullptr;
  unsigned heldDepth = 0;
  bool heldFresh = false;  // the contents were read under the hold: no one else can change them
  Contents c;
  bool loaded = false;
  Login login = Login::None;
  crypto::SecureBytes tokenKey;
  std::map<std::uint32_t, std::shared_ptr<backend::Key>> keys;  // unsealed private keys

  void logout();
};

// The token file name for a type and serial number, and the folder tokens live in.
std::string token_dir();
// What to warn of about the folder (other users may reach it), or nothing.
std::string store_warning();
std::string file_name(int type, const std::string& serial);
bool valid_serial(const std::string& serial);

// The process's one Token for a file path.
std::shared_ptr<Token> token_at(const std::string& path);
// Logs every token out and forgets them all: the next token_at of a path reads its file afresh.
void release_tokens();

// A token's in-process mutex and then one of its lock files, held until destroyed. A lock for
// reading may come without the file (see platform::file_lock).
class TokenLock {
 public:
  TokenLock(std::mutex& mu, const std::string& path, bool forWriting);
  ~TokenLock();
  TokenLock(const TokenLock&) = delete;
  TokenLock& operator=(const TokenLock&) = delete;
  // False when no lock could be had at all.
  bool held() const { return file_ != nullptr; }
  // True when other processes are kept out: what a write needs.
  bool exclusive() const { return platform::file_lock_exclusive(file_); }

 private:
  std::unique_lock<std::mutex> guard_;
  platform::FileLock* file_;
};

// The token's own lock: its in-process mutex and its lock file. Within a hold of the token by the
// same thread (hold / release) it takes nothing more.
class DataLock {
 public:
  DataLock(Token& t, bool forWriting);
  ~DataLock();
  DataLock(const DataLock&) = delete;
  DataLock& operator=(const DataLock&) = delete;
  bool held() const { return file_ != nullptr; }
  bool exclusive() const { return platform::file_lock_exclusive(file_); }

 private:
  std::unique_lock<std::recursive_mutex> guard_;
  platform::FileLock* file_;
  bool own_;
};

// Keeps the token locked, across processes, for this thread until release: a sequence of calls
// is then one step for everyone else. Holds nest. No PIN check may run inside one.
int hold(Token& t);
// VOREL_ERR_PARAM when this thread holds no hold of the token.
int release(Token& t);

// Holds a token's lock, and brings its contents up to date. Reading needs no lock file where
// none can be made; writing does.
class Session {
 public:
  explicit Session(Token& t);
  // VOREL_OK once the contents are current; else why not.
  int status() const { return status_; }
  // Why the file could not be read as a token.
  const std::string& why() const { return why_; }
  // True when the session keeps other processes out, as writing needs.
  bool exclusive() const { return lock_.exclusive(); }
  // Writes the contents back as the next generation, first removing what writers killed while
  // writing left behind.
  int commit();
  // Writes a new token where there is none (VOREL_ERR_EXISTS otherwise).
  int create(Contents&& c);
  // Removes the token file.
  int remove();

 private:
  int refresh();
  Token& t_;
  DataLock lock_;
  int status_;
  std::string why_;
};

// A file in the token folder that could not be listed, and why.
struct Problem {
  std::string file, why;
};
// The tokens of a type (every type when negative) in the folder, by type and serial number.
// Given problems (vorel-token list), every file is read whole and checked, and those that fail
// are reported there. Without (VorelPKICryptoGetAllDevices, on every SKF_EnumDev), only the
// head naming each token is read, so a listing costs the same whatever the tokens hold; full
// checks wait for the first real use of a token.
struct Listed {
  int type;
  std::string serial;
  std::shared_ptr<Token> token;
};
std::vector<Listed> scan(int type, std::vector<Problem>* problems);

}  // namespace vorel::token
