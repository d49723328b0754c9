// Object layouts behind the library's opaque handles.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "crypto/backend.h"
#include "crypto/token.h"
#include "vorel/vorel_crypto.h"

struct vorel_device_st {
  int type = VOREL_DEVICE_PSEUDO;
  std::atomic<int> refs{1};
  std::shared_ptr<vorel::token::Token> token;  // none for the pseudo device
  std::string serial;                          // a token's, fixed as its file's name is
  std::string label;                           // a token's, fixed at its creation
  bool labelKnown = false;
};

struct vorel_device_list_st {
  std::vector<VOREL_DEVICE*> devices;  // one reference each
};

// Shared by every reference (DupKeypair); freed with the last one.
struct vorel_keypair_st {
  std::atomic<int> refs{1};
  VOREL_DEVICE* device = nullptr;  // a reference of its own
  int alg = 0;                     // VOREL_ALG_*
  int bits = 0;
  int type = 0;                        // VOREL_KEYPAIR_*
  vorel::backend::Key* key = nullptr;  // both halves; only the public one for token key pairs
  std::uint32_t tokenId = 0;           // the key pair's number on its token
  std::mutex lock;                     // guards label and cert
  std::string label;
  std::vector<unsigned char> cert;  // DER; empty when none (token key pairs keep theirs on the token)
};

struct vorel_publickey_st {
  int alg = 0;
  int bits = 0;
  vorel::backend::Key* key = nullptr;  // public half only
};

struct vorel_hash_st {
  int alg;
  void* ctx;  // backend digest context
  bool finished;
};

struct vorel_cipher_st {
  void* ctx = nullptr;  // backend block-cipher context
  bool encrypt = true;
  int padding = VOREL_PADDING_NONE;
  std::size_t block = 16;
  unsigned char held[16] = {};  // input not yet processed
  std::size_t heldLen = 0;
  bool finished = false;
};
