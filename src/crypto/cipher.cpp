// Block ciphers: buffering of partial blocks and PKCS#7 padding over the backend's whole-block
// ECB/CBC.
#include <cstdlib>
#include <cstring>
#include <new>

#include "crypto/internal.h"
#include "crypto/objects.h"
#include "vorel/vorel_crypto.h"

namespace vorel::crypto {

namespace {

struct CipherInfo {
  int alg;
  backend::BlockCipher cipher;
  bool cbc;
  std::size_t block;
};

const CipherInfo kCiphers[] = {
    {VOREL_CIPHER_SM4_ECB, backend::BlockCipher::Sm4, false, 16},
    {VOREL_CIPHER_SM4_CBC, backend::BlockCipher::Sm4, true, 16},
    {VOREL_CIPHER_AES128_ECB, backend::BlockCipher::Aes128, false, 16},
    {VOREL_CIPHER_AES128_CBC, backend::BlockCipher::Aes128, true, 16},
    {VOREL_CIPHER_DES_ECB, backend::BlockCipher::Des, false, 8},
    {VOREL_CIPHER_DES_CBC, backend::BlockCipher::Des, true, 8},
    {VOREL_CIPHER_3DES_ECB, backend::BlockCipher::Des3, false, 8},
    {VOREL_CIPHER_3DES_CBC, backend::BlockCipher::Des3, true, 8},
};

const CipherInfo* find(int alg) {
  for (const CipherInfo& c : kCiphers)
    if (c.alg == alg) return &c;
  return nullptr;
}

// The backend key: DES takes the first 8 bytes, two-key 3DES becomes K1 K2 K1.
bool backend_key(const CipherInfo& c, const unsigned char* key, std::size_t keyLen, unsigned char* out) {
  switch (c.cipher) {
    case backend::BlockCipher::Sm4:
    case backend::BlockCipher::Aes128:
      if (keyLen != 16) return false;
      std::memcpy(out, key, 16);
      return true;
    case backend::BlockCipher::Des:
      if (keyLen < 8) return false;
      std::memcpy(out, key, 8);
      return true;
    case backend::BlockCipher::Des3:
      if (keyLen != 16 && keyLen != 24) return false;
      std::memcpy(out, key, 16);
      std::memcpy(out + 16, keyLen == 24 ? key + 16 : key, 8);
      return true;
  }
  return false;
}

// Runs whole blocks of in through the cipher into a buffer for the caller.
int run(VOREL_CIPHER* c, const unsigned char* in, std::size_t len, unsigned char** out, std::size_t* outLen) {
  SecureBytes buf(len);
  if (len > 0 && !backend::cipher_blocks(c->ctx, in, len, buf.data())) return fail(VOREL_ERR_GENERAL);
  return hand_out(buf.data(), len, out, outLen);
}

}  // namespace

bool cipher_supported(int alg) {
  const CipherInfo* c = find(alg);
  return c && backend::cipher_available(c->cipher);
}

}  // namespace vorel::crypto

using namespace vorel::crypto;

extern "C" {

VOREL_CIPHER* VorelPKICryptoNewCipher(VOREL_DEVICE* device, int encrypt, int alg, const unsigned char* key,
                                      size_t keyLen, const unsigned char* iv) {
  return guard([&]() -> VOREL_CIPHER* {
    if (!device || !key) return fail(VOREL_ERR_PARAM), nullptr;
    const CipherInfo* info = find(alg);
    if (!info || !vorel::backend::cipher_available(info->cipher)) return fail(VOREL_ERR_NOT_SUPPORTED), nullptr;
    if (info->cbc && !iv) return fail(VOREL_ERR_PARAM), nullptr;
    unsigned char k[24];
    if (!backend_key(*info, key, keyLen, k)) return fail(VOREL_ERR_PARAM), nullptr;
    void* ctx = vorel::backend::cipher_new(info->cipher, info->cbc, encrypt != 0, k, iv);
    wipe(k, sizeof k);
    if (!ctx) return fail(VOREL_ERR_GENERAL), nullptr;
    auto* c = new (std::nothrow) vorel_cipher_st;
    if (!c) {
      vorel::backend::cipher_free(ctx);
      return fail(VOREL_ERR_MEMORY), nullptr;
    }
    c->ctx = ctx;
    c->encrypt = encrypt != 0;
    c->block = info->block;
    ok();
    return c;
  });
}

int VorelPKICryptoCipherSetPadding(VOREL_CIPHER* cipher, int mode) {
  return guard([&] {
    if (!cipher || (mode != VOREL_PADDING_NONE && mode != VOREL_PADDING_PKCS7)) return fail(VOREL_ERR_PARAM);
    cipher->padding = mode;
    return ok();
  });
}

int VorelPKICryptoCipherUpdate(VOREL_CIPHER* cipher, const unsigned char* in, size_t inLen, unsigned char** out,
                               size_t* outLen) {
  return guard([&] {
    if (!cipher || (!in && inLen > 0) || !out || !outLen) return fail(VOREL_ERR_PARAM);
    if (cipher->finished) return fail(VOREL_ERR_PARAM);
    std::size_t b = cipher->block;
    std::size_t total = cipher->heldLen + inLen;
    // Decrypting with padding keeps the last full block back: it may be the padding.
    std::size_t keep = total % b;
    if (!cipher->encrypt && cipher->padding == VOREL_PADDING_PKCS7 && keep == 0 && total > 0) keep = b;
    std::size_t produce = total - keep;
    auto* buf = static_cast<unsigned char*>(std::malloc(produce > 0 ? produce : 1));
    if (!buf) return fail(VOREL_ERR_MEMORY);
    std::size_t done = 0, used = 0;
    bool good = true;
    if (produce > 0 && cipher->heldLen > 0) {
      // Complete the held block from the input first, then run the input in place.
      used = b - cipher->heldLen;
      std::memcpy(cipher->held + cipher->heldLen, in, used);
      good = vorel::backend::cipher_blocks(cipher->ctx, cipher->held, b, buf);
      cipher->heldLen = 0;
      done = b;
    }
    if (good && produce > done) {
      good = vorel::backend::cipher_blocks(cipher->ctx, in + used, produce - done, buf + done);
      used += produce - done;
    }
    if (!good) {
      wipe(buf, produce);
      std::free(buf);
      return fail(VOREL_ERR_GENERAL);
    }
    if (inLen > used) std::memcpy(cipher->held + cipher->heldLen, in + used, inLen - used);
    cipher->heldLen += inLen - used;
    *out = buf;
    *outLen = produce;
    return ok();
  });
}

int VorelPKICryptoCipherFinal(VOREL_CIPHER* cipher, unsigned char** out, size_t* outLen) {
  return guard([&] {
    if (!cipher || !out || !outLen) return fail(VOREL_ERR_PARAM);
    if (cipher->finished) return fail(VOREL_ERR_PARAM);
    std::size_t b = cipher->block;
    unsigned char block[16] = {};
    int rc;
    if (cipher->padding == VOREL_PADDING_NONE) {
      if (cipher->heldLen != 0) return fail(VOREL_ERR_DATA_LEN);
      rc = hand_out(block, 0, out, outLen);
    } else if (cipher->encrypt) {
      std::size_t pad = b - cipher->heldLen;
      std::memcpy(block, cipher->held, cipher->heldLen);
      std::memset(block + cipher->heldLen, static_cast<int>(pad), pad);
      rc = run(cipher, block, b, out, outLen);
    } else {
      if (cipher->heldLen != b) return fail(VOREL_ERR_DATA_LEN);
      if (!vorel::backend::cipher_blocks(cipher->ctx, cipher->held, b, block)) return fail(VOREL_ERR_GENERAL);
      // Checked without branching on which byte is wrong.
      unsigned pad = block[b - 1];
      unsigned bad = (pad == 0) | (pad > b);
      for (std::size_t i = 0; i < b; ++i) {
        unsigned inPad = (i >= b - (pad > b ? b : pad));
        bad |= inPad & (block[i] != pad);
      }
      if (bad) {
        wipe(block, sizeof block);
        return fail(VOREL_ERR_DECRYPT);
      }
      rc = hand_out(block, b - pad, out, outLen);
    }
    wipe(block, sizeof block);
    if (rc == VOREL_OK) {
      cipher->finished = true;
      wipe(cipher->held, sizeof cipher->held);
      cipher->heldLen = 0;
    }
    return rc;
  });
}

void VorelPKICryptoFreeCipher(VOREL_CIPHER* cipher) {
  return guard([&] {
    if (!cipher) return;
    vorel::backend::cipher_free(cipher->ctx);
    wipe(cipher->held, sizeof cipher->held);
    delete cipher;
  });
}

}  // extern "C"
