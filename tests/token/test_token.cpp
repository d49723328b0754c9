// Software tokens in one process: devices, PINs, key pairs, certificates, data objects, and
// what the token files may never hold.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "crypto/token.h"
#include "platform/platform.h"
#include "support.h"
#include "token_suite.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

using namespace crypto_test;

const unsigned char kMasterAccess[4] = {0x04, 0x03, 0x07, 0x03};

class Tokens : public TokenSuite {
 protected:
  Tokens() : TokenSuite("tokens") {}
  void SetUp() override { ASSERT_EQ(create(5, "T1", "Test token", token_), VOREL_OK); }

  std::string path_of(int type, const char* serial) { return dir_ + vorel::token::file_name(type, serial); }
  int login(int type = VOREL_PWD_USER, const char* pin = nullptr, VOREL_DEVICE* d = nullptr) {
    return verify_pin(type, pin ? pin : (type == VOREL_PWD_USER ? kUser : kSo), d);
  }
  std::vector<std::string> serials(int type) {
    DevList list(VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS));
    std::vector<std::string> out;
    for (int i = 0; list && i < VorelPKICryptoGetDeviceCount(list.get()); ++i) {
      Dev d(VorelPKICryptoGetDevice(list.get(), i));
      Text serial;
      EXPECT_EQ(VorelPKICryptoGetSerialNumber(d.get(), vorel::out(serial)), VOREL_OK);
      out.push_back(serial.get());
    }
    return out;
  }
  Pair import(const char* file, int type) {
    Bytes der = data(file);
    Pair kp;
    EXPECT_EQ(VorelPKICryptoImportKeypair(token_.get(), der.data(), der.size(), type, vorel::out(kp)), VOREL_OK);
    return kp;
  }
  int generate(int alg, int bits, int type, Pair& kp, VOREL_DEVICE* d = nullptr) {
    return VorelPKICryptoGenerateKeypair(d ? d : token_.get(), alg, bits, 0, type, vorel::out(kp));
  }
};

// The file a writer of the token folder can make: the documented layout, and its SHA-256
// computed here as anyone could.
std::string image(const vorel::token::Contents& c) {
  std::string out = "VORELTOK";
  auto u32 = [&](std::uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
  };
  auto raw = [&](const void* p, std::size_t n) { out.append(static_cast<const char*>(p), n); };
  auto blob = [&](const std::string& b) {
    u32(static_cast<std::uint32_t>(b.size()));
    out += b;
  };
  auto pin = [&](const vorel::token::PinSlot& slot) {
    u32(slot.remaining);
    raw(slot.salt, 16), raw(slot.iv, 12), raw(slot.wrapped, 32), raw(slot.tag, 16);
  };
  u32(vorel::token::kFormatVersion);
  for (std::uint64_t v : {c.instance, c.generation}) u32(static_cast<std::uint32_t>(v >> 32)), u32(v & 0xFFFFFFFF);
  u32(c.type), blob(c.serial), blob(c.label), u32(c.iterations), u32(c.maxTries), pin(c.user), pin(c.so);
  u32(c.nextKeyId), u32(static_cast<std::uint32_t>(c.keys.size()));
  for (const auto& k : c.keys) {
    u32(k.id), u32(k.type), u32(k.alg), u32(k.bits), blob(k.label), blob(k.spki), raw(k.iv, 12), blob(k.sealed);
    raw(k.tag, 16), blob(k.cert);
  }
  u32(static_cast<std::uint32_t>(c.data.size()));
  for (const auto& d : c.data) u32(d.first), raw(d.second.access, 4), blob(d.second.data);
  Dev pseudo;
  EXPECT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(pseudo)), VOREL_OK);
  Hash h(VorelPKICryptoNewHash(pseudo.get(), VOREL_HASH_SHA256));
  Out sum;
  EXPECT_EQ(VorelPKICryptoHashUpdate(h.get(), reinterpret_cast<const unsigned char*>(out.data()), out.size()),
            VOREL_OK);
  EXPECT_EQ(VorelPKICryptoHashFinal(h.get(), &sum.p, &sum.n), VOREL_OK);
  return out + std::string(reinterpret_cast<char*>(sum.p), sum.n);
}

TEST_F(Tokens, DevicesAreListedPerTypeInSerialOrderAndFoundBySerial) {
  Dev c, a, z, found, none;
  ASSERT_EQ(create(5, "C", "third", c), VOREL_OK);
  ASSERT_EQ(create(5, "A", "first", a), VOREL_OK);
  ASSERT_EQ(create(6, "Z", nullptr, z), VOREL_OK);
  EXPECT_EQ(serials(5), (std::vector<std::string>{"A", "C", "T1"}));
  EXPECT_EQ(serials(6), (std::vector<std::string>{"Z"}));
  EXPECT_TRUE(serials(7).empty());
  EXPECT_EQ(serials(0), (std::vector<std::string>{"PSEUDO"}));  // type 0 is the pseudo device

  ASSERT_EQ(VorelPKICryptoFindDevice(5, "C", VOREL_ENUM_TOKENS, vorel::out(found)), VOREL_OK);
  Text label;
  ASSERT_EQ(VorelPKICryptoGetLabel(found.get(), vorel::out(label)), VOREL_OK);
  EXPECT_STREQ(label.get(), "third");
  EXPECT_EQ(VorelPKICryptoGetDeviceType(found.get()), 5);
  for (const char* serial : {"Z", "missing", "../5-T1", ""})
    EXPECT_EQ(VorelPKICryptoFindDevice(5, serial, VOREL_ENUM_TOKENS, vorel::out(none)), VOREL_ERR_NOT_FOUND) << serial;
  EXPECT_EQ(none, nullptr);

  // Hardware readers are not driven: asking only for them lists nothing; unknown flags are refused.
  DevList hw(VorelPKICryptoGetAllDevices(5, VOREL_ENUM_HARDWARE));
  ASSERT_NE(hw, nullptr);
  EXPECT_EQ(VorelPKICryptoGetDeviceCount(hw.get()), 0);
  EXPECT_EQ(VorelPKICryptoGetAllDevices(5, 0x2), nullptr);
  EXPECT_EQ(VorelPKICryptoGetDevice(hw.get(), 0), nullptr);
}

TEST_F(Tokens, DamagedAndForeignFilesAreSkippedAndReported) {
  std::string good = testsupport::read_file(path_of(5, "T1")), flipped = good;
  flipped[flipped.size() / 2] ^= 0x01;
  testsupport::write_file(path_of(5, "BAD"), "not a token at all, but named like one");
  testsupport::write_file(path_of(5, "FLIP"), flipped);
  testsupport::write_file(path_of(5, "CUT"), good.substr(0, good.size() - 7));
  testsupport::write_file(path_of(5, "COPY"), good);  // T1 under another name
  testsupport::write_file(dir_ + "notes.txt", "ignored");
  // Whole at its head, damaged after it: listing reads only the head, the first use all of it.
  vorel::token::Contents head;
  ASSERT_EQ(vorel::token::parse(good, head, nullptr), VOREL_OK);
  head.serial = "HEAD";
  std::string body = image(head);
  body[body.size() / 2] ^= 0x01;
  testsupport::write_file(path_of(5, "HEAD"), body);

  EXPECT_EQ(serials(5), (std::vector<std::string>{"HEAD", "T1"}));
  std::vector<vorel::token::Problem> problems;
  vorel::token::scan(5, &problems);
  std::vector<std::string> files;
  for (const auto& p : problems) files.push_back(p.file + ": " + p.why);
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"5-BAD.token: not a token file",
                                             "5-COPY.token: holds another token than its name says",
                                             "5-CUT.token: checksum mismatch", "5-FLIP.token: checksum mismatch",
                                             "5-HEAD.token: checksum mismatch"}));
  Dev d;
  EXPECT_EQ(VorelPKICryptoFindDevice(5, "FLIP", VOREL_ENUM_TOKENS, vorel::out(d)), VOREL_ERR_TOKEN_DAMAGED);
  EXPECT_EQ(VorelPKICryptoFindDevice(5, "HEAD", VOREL_ENUM_TOKENS, vorel::out(d)), VOREL_ERR_TOKEN_DAMAGED);
}

TEST_F(Tokens, AFileIsTrustedOnlyForWhatItsPublicKeysAndBoundsProve) {
  ASSERT_EQ(login(), VOREL_OK);
  Pair sm2, rsa;
  ASSERT_EQ(generate(VOREL_ALG_SM2, 256, VOREL_KEYPAIR_SIGN, sm2), VOREL_OK);
  ASSERT_EQ(generate(VOREL_ALG_RSA, 1024, VOREL_KEYPAIR_ENCRYPT, rsa), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoCreateData(token_.get(), 9, kMasterAccess, 16), VOREL_OK);
  vorel::token::Contents written;
  ASSERT_EQ(vorel::token::parse(testsupport::read_file(path_of(5, "T1")), written, nullptr), VOREL_OK);

  using C = vorel::token::Contents;
  struct Case {
    const char* what;
    void (*craft)(C&);
    const char* why;  // empty: the file is a good token
  } cases[] = {
      {"as written", [](C&) {}, ""},
      {"RSA-1024 as 512", [](C& c) { c.keys[1].bits = 512; }, "key pair 1: 512 bits recorded for a public key of 1024"},
      {"RSA-1024 as 8", [](C& c) { c.keys[1].bits = 8; }, "key pair 1: 8 bits recorded"},
      {"RSA-1024 as 0", [](C& c) { c.keys[1].bits = 0; }, "key pair 1: 0 bits recorded"},
      {"RSA-1024 as 2^31", [](C& c) { c.keys[1].bits = 1u << 31; }, "key pair 1: 2147483648 bits recorded"},
      {"RSA-1024 as 2^32-1", [](C& c) { c.keys[1].bits = UINT32_MAX; }, "key pair 1: 4294967295 bits recorded"},
      {"SM2 as 1024 bits", [](C& c) { c.keys[0].bits = 1024; },
       "key pair 0: 1024 bits recorded for a public key of 256"},
      {"RSA recorded as SM2", [](C& c) { c.keys[1].alg = VOREL_ALG_SM2; }, "key pair 1: algorithm 4 recorded"},
      {"SM2 recorded as RSA", [](C& c) { c.keys[0].alg = VOREL_ALG_RSA; }, "key pair 0: algorithm 1 recorded"},
      {"no public key", [](C& c) { c.keys[0].spki = "\x30\x00"; }, "key pair 0: the public key is not one"},
      {"type 0", [](C& c) { c.keys[0].type = 0; }, "key pair 0: type 0 is neither"},
      {"type 3", [](C& c) { c.keys[1].type = 3; }, "key pair 1: type 3 is neither"},
      {"a number twice", [](C& c) { c.keys[1].id = c.keys[0].id; }, "key pair 1: number 1 is used twice"},
      {"number 0", [](C& c) { c.keys[0].id = 0; }, "key pair 0: number 0 is not one the token gave out"},
      {"number not yet given", [](C& c) { c.keys[1].id = c.nextKeyId; }, "key pair 1: number 3 is not one"},
      {"no iterations", [](C& c) { c.iterations = 0; }, "PBKDF2 iterations 0 outside 1000 to 10000000"},
      {"too few iterations", [](C& c) { c.iterations = 999; }, "PBKDF2 iterations 999 outside"},
      {"too many iterations", [](C& c) { c.iterations = 10000001; }, "PBKDF2 iterations 10000001 outside"},
      {"2^32-1 iterations", [](C& c) { c.iterations = UINT32_MAX; }, "PBKDF2 iterations 4294967295 outside"},
      {"no tries", [](C& c) { c.maxTries = c.user.remaining = c.so.remaining = 0; }, "tries per PIN 0 outside 1 to 15"},
      {"2^32-1 tries", [](C& c) { c.maxTries = c.user.remaining = UINT32_MAX; }, "tries per PIN 4294967295 outside"},
      {"more left than tries", [](C& c) { c.user.remaining = 7; }, "more tries left than a PIN has"},
      {"unknown access bits", [](C& c) { c.data[9].access[1] = 0x84; }, "data object 9: unknown access bits"},
      {"device type 2^31", [](C& c) { c.type = 1u << 31; }, "device type 2147483648 out of range"},
  };
  for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    C c = written;
    c.serial = "CASE" + std::to_string(i);
    cases[i].craft(c);
    testsupport::write_file(dir_ + std::to_string(c.type) + "-" + c.serial + ".token", image(c));
  }
  std::vector<vorel::token::Problem> problems;
  vorel::token::scan(-1, &problems);
  for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    const Case& k = cases[i];
    std::string serial = "CASE" + std::to_string(i), reason;
    for (const auto& p : problems)
      if (p.file.find("-" + serial + ".token") != std::string::npos) reason = p.why;
    EXPECT_EQ(reason.compare(0, std::strlen(k.why), k.why), 0) << k.what << ": " << reason;
    Dev d;
    int found = VorelPKICryptoFindDevice(5, serial.c_str(), VOREL_ENUM_TOKENS, vorel::out(d));
    if (*k.why) {
      EXPECT_NE(found, VOREL_OK) << k.what;
      continue;
    }
    // The good file is a whole token: log in, sign and verify, encrypt and decrypt.
    ASSERT_EQ(found, VOREL_OK) << k.what;
    ASSERT_EQ(login(VOREL_PWD_USER, kUser, d.get()), VOREL_OK);
    Pair sign(VorelPKICryptoGetKeypair(d.get(), 0)), enc(VorelPKICryptoGetKeypair(d.get(), 1));
    ASSERT_EQ(VorelPKICryptoGetKeypairBits(enc.get()), 1024);
    Bytes e(32, 5), sig, ct, plain;
    ASSERT_EQ(crypto_test::sign(sign.get(), VOREL_MECH_SM2_SIGN, e, &sig), VOREL_OK);
    EXPECT_EQ(verify(public_of(sign).get(), VOREL_MECH_SM2_SIGN, e, sig), VOREL_OK);
    ASSERT_EQ(encrypt(public_of(enc).get(), VOREL_MECH_RSA_PKCS1, e, &ct), VOREL_OK);
    ASSERT_EQ(decrypt(enc.get(), VOREL_MECH_RSA_PKCS1, ct, &plain), VOREL_OK);
    EXPECT_EQ(plain, e);
  }
}

TEST_F(Tokens, APairRewrittenUnderALoggedInProcessNeverUsesTheKeyItKept) {
  ASSERT_EQ(login(), VOREL_OK);
  Pair big = import("rsa.key.der", VOREL_KEYPAIR_ENCRYPT), small, rewritten;
  Bytes m(20, 1);
  ASSERT_EQ(sign(big.get(), VOREL_MECH_RSA_PKCS1_SIGN, m), VOREL_OK);
  // Another writer gives the pair a 1024-bit public key, consistent as far as the file goes.
  Dev pseudo;
  ASSERT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(pseudo)), VOREL_OK);
  ASSERT_EQ(generate(VOREL_ALG_RSA, 1024, VOREL_KEYPAIR_ENCRYPT, small, pseudo.get()), VOREL_OK);
  Bytes spki = der_of(public_of(small).get());
  vorel::token::Contents c;
  ASSERT_EQ(vorel::token::parse(testsupport::read_file(path_of(5, "T1")), c, nullptr), VOREL_OK);
  c.keys[0].spki.assign(spki.begin(), spki.end());
  c.keys[0].bits = 1024;
  ++c.generation;
  testsupport::write_file(path_of(5, "T1"), image(c));

  rewritten.reset(VorelPKICryptoGetKeypair(token_.get(), 0));
  ASSERT_NE(rewritten, nullptr);
  EXPECT_EQ(VorelPKICryptoGetKeypairBits(rewritten.get()), 1024);
  EXPECT_EQ(sign(rewritten.get(), VOREL_MECH_RSA_PKCS1_SIGN, m), VOREL_ERR_TOKEN_DAMAGED);
  Bytes ct(128, 0);
  ct[1] = 1;
  EXPECT_EQ(decrypt(rewritten.get(), VOREL_MECH_RSA_RAW, ct), VOREL_ERR_TOKEN_DAMAGED);
}

TEST_F(Tokens, CreationChecksItsArguments) {
  Dev d;
  EXPECT_EQ(create(5, "T1", "again", d), VOREL_ERR_EXISTS);
  EXPECT_EQ(create(5, "a/b", "", d), VOREL_ERR_PARAM);
  EXPECT_EQ(create(5, std::string(32, 'S').c_str(), "", d), VOREL_ERR_PARAM);
  EXPECT_EQ(create(5, "L", std::string(32, 'x').c_str(), d), VOREL_ERR_PARAM);
  EXPECT_EQ(create(0, "P", "", d), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoCreateToken(5, "S", "", "123", kUser, kIterations, vorel::out(d)), VOREL_ERR_PIN_LEN_RANGE);
  // Whoever makes a token is held to the bounds a token file is held to.
  for (unsigned iterations : {999u, 10000001u})
    EXPECT_EQ(VorelPKICryptoCreateToken(5, "B", "", kSo, kUser, iterations, vorel::out(d)), VOREL_ERR_PARAM);
  EXPECT_EQ(d, nullptr);
  // A generated serial number is 16 hexadecimal digits.
  ASSERT_EQ(create(5, nullptr, "generated", d), VOREL_OK);
  Text serial;
  ASSERT_EQ(VorelPKICryptoGetSerialNumber(d.get(), vorel::out(serial)), VOREL_OK);
  EXPECT_EQ(std::string(serial.get()).find_first_not_of("0123456789ABCDEF"), std::string::npos);
  EXPECT_EQ(std::strlen(serial.get()), 16u);
}

TEST_F(Tokens, ChangingAndUnblockingAPinReplaceItWithinTheLengthRange) {
  std::string tooLong(VOREL_PIN_MAX_LEN + 1, '7'), longest(VOREL_PIN_MAX_LEN, '7');
  for (int type : {VOREL_PWD_USER, VOREL_PWD_SO}) {
    // A length out of range spends no try.
    for (const char* pin : {"", "123", tooLong.c_str()}) EXPECT_EQ(login(type, pin), VOREL_ERR_PIN_LEN_RANGE);
    EXPECT_EQ(tries(type), 6u);
  }
  unsigned retries = 99;
  EXPECT_EQ(VorelPKICryptoChangePwd(token_.get(), VOREL_PWD_USER, kUser, "abc", &retries), VOREL_ERR_PIN_LEN_RANGE);
  EXPECT_EQ(VorelPKICryptoVerifyPwd(token_.get(), 3, kUser, &retries), VOREL_ERR_PARAM);
  EXPECT_EQ(VorelPKICryptoChangePwd(token_.get(), VOREL_PWD_SO, "wrong-so", "so-new-1", &retries),
            VOREL_ERR_PIN_INCORRECT);
  EXPECT_EQ(retries, 5u);
  ASSERT_EQ(VorelPKICryptoChangePwd(token_.get(), VOREL_PWD_SO, kSo, "so-new-1", &retries), VOREL_OK);
  EXPECT_EQ(tries(VOREL_PWD_SO), 6u);
  ASSERT_EQ(VorelPKICryptoChangePwd(token_.get(), VOREL_PWD_USER, kUser, longest.c_str(), &retries), VOREL_OK);
  EXPECT_EQ(login(VOREL_PWD_SO, kSo), VOREL_ERR_PIN_INCORRECT);
  EXPECT_EQ(login(VOREL_PWD_SO, "so-new-1"), VOREL_OK);
  EXPECT_EQ(login(VOREL_PWD_USER, kUser), VOREL_ERR_PIN_INCORRECT);
  EXPECT_EQ(login(VOREL_PWD_USER, longest.c_str()), VOREL_OK);

  // Unblocking: a wrong SO PIN reports the SO PIN's tries; the right one sets a new user PIN.
  EXPECT_EQ(VorelPKICryptoUnlockPwd(token_.get(), VOREL_PWD_USER, "wrong-so", "new-user", &retries),
            VOREL_ERR_PIN_INCORRECT);
  EXPECT_EQ(retries, 5u);
  EXPECT_EQ(VorelPKICryptoUnlockPwd(token_.get(), VOREL_PWD_SO, "so-new-1", "new-user", &retries), VOREL_ERR_PARAM);
  ASSERT_EQ(VorelPKICryptoUnlockPwd(token_.get(), VOREL_PWD_USER, "so-new-1", "new-user", &retries), VOREL_OK);
  EXPECT_EQ(tries(VOREL_PWD_SO), 6u);
  EXPECT_EQ(login(VOREL_PWD_USER, "new-user"), VOREL_OK);
}

TEST_F(Tokens, PrivateKeyOperationsNeedTheUserLoggedIn) {
  Pair kp, again;
  EXPECT_EQ(generate(VOREL_ALG_SM2, 256, VOREL_KEYPAIR_SIGN, kp), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(), VOREL_OK);
  ASSERT_EQ(generate(VOREL_ALG_SM2, 256, VOREL_KEYPAIR_SIGN, kp), VOREL_OK);
  Bytes e = {1, 2, 3};
  e.resize(32);
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoClearPwdCache(token_.get()), VOREL_OK);
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(VOREL_PWD_SO), VOREL_OK);  // the SO may not use the user's keys
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(), VOREL_OK);
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e), VOREL_OK);
  EXPECT_EQ(login(VOREL_PWD_USER, "wrong-pin"), VOREL_ERR_PIN_INCORRECT);  // a failed attempt logs out
  EXPECT_EQ(sign(kp.get(), VOREL_MECH_SM2_SIGN, e), VOREL_ERR_NOT_LOGGED_IN);
  // Another device object of the same token shares its login.
  ASSERT_EQ(login(), VOREL_OK);
  Dev other;
  ASSERT_EQ(VorelPKICryptoFindDevice(5, "T1", VOREL_ENUM_TOKENS, vorel::out(other)), VOREL_OK);
  again.reset(VorelPKICryptoGetKeypair(other.get(), 0));
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(sign(again.get(), VOREL_MECH_SM2_SIGN, e), VOREL_OK);
  Out der;
  EXPECT_EQ(VorelPKICryptoExportKeypair(again.get(), &der.p, &der.n), VOREL_ERR_NOT_EXPORTABLE);
}

TEST_F(Tokens, KeyPairsKeepCreationOrderAndAreReadableWithoutLogin) {
  ASSERT_EQ(login(), VOREL_OK);
  Pair gen, rsa, imp;
  ASSERT_EQ(generate(VOREL_ALG_SM2, 256, VOREL_KEYPAIR_SIGN, gen), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoSetKeypairLabel(gen.get(), "signer"), VOREL_OK);
  ASSERT_EQ(generate(VOREL_ALG_RSA, 1024, VOREL_KEYPAIR_ENCRYPT, rsa), VOREL_OK);
  imp = import("rsa.key.der", VOREL_KEYPAIR_ENCRYPT);
  ASSERT_NE(imp, nullptr);
  ASSERT_EQ(VorelPKICryptoSetKeypairLabel(imp.get(), "from openssl"), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoClearPwdCache(token_.get()), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoSetKeypairLabel(imp.get(), "renamed"), VOREL_ERR_NOT_LOGGED_IN);

  struct Want {
    int type, alg, bits;
    const char* label;
  } want[] = {{VOREL_KEYPAIR_SIGN, VOREL_ALG_SM2, 256, "signer"},
              {VOREL_KEYPAIR_ENCRYPT, VOREL_ALG_RSA, 1024, ""},
              {VOREL_KEYPAIR_ENCRYPT, VOREL_ALG_RSA, 2048, "from openssl"}};
  ASSERT_EQ(VorelPKICryptoGetKeypairCount(token_.get()), 3);
  for (int i = 0; i < 3; ++i) {
    Pair kp(VorelPKICryptoGetKeypair(token_.get(), i));
    ASSERT_NE(kp, nullptr);
    EXPECT_EQ(VorelPKICryptoGetKeypairType(kp.get()), want[i].type);
    EXPECT_EQ(VorelPKICryptoGetKeypairAlgorithm(kp.get()), want[i].alg);
    EXPECT_EQ(VorelPKICryptoGetKeypairBits(kp.get()), want[i].bits);
    Text label;
    ASSERT_EQ(VorelPKICryptoGetKeypairLabel(kp.get(), vorel::out(label)), VOREL_OK);
    EXPECT_STREQ(label.get(), want[i].label);
  }
  EXPECT_EQ(VorelPKICryptoGetKeypair(token_.get(), 3), nullptr);

  // The imported key decrypts what openssl encrypted to it, once logged in.
  ASSERT_EQ(login(), VOREL_OK);
  Bytes plain;
  ASSERT_EQ(decrypt(Pair(VorelPKICryptoGetKeypair(token_.get(), 2)).get(), VOREL_MECH_RSA_PKCS1, data("short.rsa.enc"),
                    &plain),
            VOREL_OK);
  EXPECT_EQ(plain, data("short.bin"));

  // Deleting the middle pair keeps the others in order; the deleted pair's object is no more.
  ASSERT_EQ(VorelPKICryptoDeleteKeypair(rsa.get()), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoGetKeypairCount(token_.get()), 2);
  for (int i : {0, 1})
    EXPECT_EQ(VorelPKICryptoGetKeypairBits(Pair(VorelPKICryptoGetKeypair(token_.get(), i)).get()), i ? 2048 : 256);
  EXPECT_EQ(sign(rsa.get(), VOREL_MECH_RSA_PKCS1_SIGN, Bytes(20, 1)), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoDeleteKeypair(rsa.get()), VOREL_ERR_NOT_FOUND);
}

TEST_F(Tokens, ACertificateIsKeptWithTheKeyPairWhoseKeyItCarries) {
  ASSERT_EQ(login(), VOREL_OK);
  Pair kp = import("sm2.key.der", VOREL_KEYPAIR_SIGN);
  Bytes mine = data("sm2.crt.der");
  Cert cert = cert_of(mine), back;
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(kp.get(), cert_of(data("rsa.crt.der")).get()), VOREL_ERR_KEY_MISMATCH);
  ASSERT_EQ(VorelPKICryptoUpdateCertificate(kp.get(), cert.get()), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoClearPwdCache(token_.get()), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoUpdateCertificate(kp.get(), cert.get()), VOREL_ERR_NOT_LOGGED_IN);
  // Read back without login through a fresh object.
  ASSERT_EQ(VorelPKICryptoGetCertificate(Pair(VorelPKICryptoGetKeypair(token_.get(), 0)).get(), 0, vorel::out(back)),
            VOREL_OK);
  EXPECT_EQ(der_of(back.get()), mine);
}

TEST_F(Tokens, DataObjectsFollowTheirAccessDescriptor) {
  VOREL_DEVICE* t = token_.get();
  EXPECT_EQ(VorelPKICryptoCreateData(t, 4361, kMasterAccess, 304), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoCreateData(t, 4361, kMasterAccess, 304), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoCreateData(t, 4361, kMasterAccess, 10), VOREL_ERR_EXISTS);
  const unsigned char userOnly[4] = {VOREL_ACCESS_USER, VOREL_ACCESS_USER, VOREL_ACCESS_USER, VOREL_ACCESS_USER};
  ASSERT_EQ(VorelPKICryptoCreateData(t, 7, userOnly, 4), VOREL_OK);

  size_t len = 0, got = 0;
  ASSERT_EQ(VorelPKICryptoGetDataLength(t, 4361, &len), VOREL_OK);
  EXPECT_EQ(len, 304u);
  const unsigned char tail[5] = {'a', 'b', 'c', 'd', 'e'};
  EXPECT_EQ(VorelPKICryptoWriteDataEx(t, 4361, 300, tail, 4), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoWriteDataEx(t, 4361, 300, tail, 5), VOREL_ERR_DATA_LEN);
  EXPECT_EQ(VorelPKICryptoWriteDataEx(t, 4361, static_cast<size_t>(-1), tail, 2), VOREL_ERR_DATA_LEN);
  unsigned char buf[304] = {};
  EXPECT_EQ(VorelPKICryptoReadData(t, 4361, buf, 303, &got), VOREL_ERR_BUFFER_SMALL);
  EXPECT_EQ(got, 304u);
  ASSERT_EQ(VorelPKICryptoReadData(t, 4361, buf, sizeof buf, &got), VOREL_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf) + 299, 5), std::string("\0abcd", 5));
  ASSERT_EQ(VorelPKICryptoReadDataEx(t, 4361, 301, buf, 3, &got), VOREL_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), 3), "bcd");
  EXPECT_EQ(VorelPKICryptoReadDataEx(t, 4361, 301, buf, 4, &got), VOREL_ERR_DATA_LEN);

  // 04 03 07 03: anyone reads and sees it; writing and deleting need a login.
  ASSERT_EQ(VorelPKICryptoClearPwdCache(t), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoReadDataEx(t, 4361, 0, buf, 4, &got), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetDataLength(t, 4361, &len), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoWriteData(t, 4361, tail, 5), VOREL_ERR_NOT_LOGGED_IN);
  EXPECT_EQ(VorelPKICryptoDeleteData(t, 4361), VOREL_ERR_NOT_LOGGED_IN);
  EXPECT_EQ(VorelPKICryptoReadDataEx(t, 7, 0, buf, 4, &got), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(VOREL_PWD_SO), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoWriteData(t, 4361, tail, 5), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetDataLength(t, 7, &len), VOREL_ERR_NOT_LOGGED_IN);  // the user's alone

  // A missing object is -7 for every operation, whatever the login.
  EXPECT_EQ(VorelPKICryptoGetDataLength(t, 99, &len), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoReadData(t, 99, buf, sizeof buf, &got), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoWriteData(t, 99, tail, 1), VOREL_ERR_NOT_FOUND);
  EXPECT_EQ(VorelPKICryptoDeleteData(t, 99), VOREL_ERR_NOT_FOUND);
  ASSERT_EQ(VorelPKICryptoDeleteData(t, 4361), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoGetDataLength(t, 4361, &len), VOREL_ERR_NOT_FOUND);
}

TEST_F(Tokens, TheFileHoldsNoKeyMaterialPinOrTokenKeyInTheClear) {
  ASSERT_EQ(login(), VOREL_OK);
  Pair sm2 = import("sm2.key.der", VOREL_KEYPAIR_SIGN), rsa = import("rsa.key.der", VOREL_KEYPAIR_ENCRYPT);
  ASSERT_NE(rsa, nullptr);
  Bytes sm2Der = data("sm2.key.der"), rsaDer = data("rsa.key.der");
  unsigned char d[32];
  ASSERT_TRUE(sm2_private_value(sm2Der.data(), sm2Der.size(), d));
  std::vector<Bytes> secrets{Bytes(d, d + 32), text(kUser), text(kSo)};
  unsigned char* numbers[VOREL_RSA_NUMBERS] = {};
  size_t lengths[VOREL_RSA_NUMBERS] = {};
  ASSERT_EQ(VorelPKICryptoDecodeRSAKeyPair(rsaDer.data(), rsaDer.size(), numbers, lengths), VOREL_OK);
  // 16 bytes of each private number: enough to be found, whatever encoding surrounds it.
  for (int i = VOREL_RSA_D; i < VOREL_RSA_NUMBERS; ++i) secrets.emplace_back(numbers[i], numbers[i] + 16);
  for (unsigned char* n : numbers) VorelPKICryptoFreeMemory(n);
  const auto& key = vorel::token::token_at(path_of(5, "T1"))->tokenKey;
  ASSERT_EQ(key.size(), 32u);
  secrets.emplace_back(key.begin(), key.end());

  std::string file = testsupport::read_file(path_of(5, "T1"));
  ASSERT_GT(file.size(), 1000u);
  for (const Bytes& s : secrets) EXPECT_EQ(file.find(std::string(s.begin(), s.end())), std::string::npos) << hex(s);
}

// Token files hold sealed keys and the PIN counters: the folders the store makes and every file it
// writes are their owner's alone, whatever the umask, and whatever access the folder above
// would lend on Windows.
TEST_F(Tokens, TheFoldersAndFilesOfTheStoreAreItsOwnersAlone) {
  const char sep = vorel::platform::path_separator();
  std::string made = testsupport::make_temp_dir("private") + "made", dir = made + sep + "tokens";
  testsupport::ScopedEnv env("VOREL_TOKEN_DIR", dir.c_str());
  std::string base = dir + sep + "5-P1";
  std::vector<std::string> paths{made, dir, base + ".token", base + ".lock", base + ".pinlock"};
#ifndef _WIN32
  mode_t old = umask(0);
#endif
  Dev d;
  ASSERT_EQ(create(5, "P1", "private", d), VOREL_OK);
  ASSERT_EQ(login(VOREL_PWD_USER, kUser, d.get()), VOREL_OK);
  for (const std::string& p : paths) EXPECT_TRUE(testsupport::private_to_owner(p)) << p;
#ifndef _WIN32
  // A token file someone opened up is its owner's alone again after the next write.
  ASSERT_EQ(chmod(paths[2].c_str(), 0644), 0);
  ASSERT_EQ(VorelPKICryptoCreateData(d.get(), 1, kMasterAccess, 16), VOREL_OK);
  EXPECT_EQ(vorel::platform::permissions(paths[2]), 0600u);
  umask(old);
#endif
}

TEST_F(Tokens, OnlyTheSoDeletesATokenAndThePseudoDeviceHasNoPinsOrData) {
  EXPECT_EQ(VorelPKICryptoDeleteToken(token_.get()), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(VOREL_PWD_USER), VOREL_OK);
  EXPECT_EQ(VorelPKICryptoDeleteToken(token_.get()), VOREL_ERR_NOT_LOGGED_IN);
  ASSERT_EQ(login(VOREL_PWD_SO), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoDeleteToken(token_.get()), VOREL_OK);
  EXPECT_TRUE(serials(5).empty());
  EXPECT_EQ(VorelPKICryptoGetKeypairCount(token_.get()), VOREL_ERR_DEVICE_REMOVED);
  // The name is free again, and the new token is a new token.
  Dev again, pseudo;
  ASSERT_EQ(create(5, "T1", "again", again), VOREL_OK);
  EXPECT_EQ(login(VOREL_PWD_SO, kSo, again.get()), VOREL_OK);

  ASSERT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(pseudo)), VOREL_OK);
  size_t len;
  EXPECT_EQ(login(VOREL_PWD_USER, kUser, pseudo.get()), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoCreateData(pseudo.get(), 1, kMasterAccess, 4), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGetDataLength(pseudo.get(), 1, &len), VOREL_ERR_NOT_SUPPORTED);
  EXPECT_EQ(VorelPKICryptoGetKeypairCount(pseudo.get()), 0);
  EXPECT_EQ(VorelPKICryptoDeleteToken(pseudo.get()), VOREL_ERR_NOT_SUPPORTED);
}

// A hold keeps the token for one thread: another thread's write waits until it is released.
TEST_F(Tokens, AHoldMakesASequenceOneStep) {
  VOREL_DEVICE* t = token_.get();
  ASSERT_EQ(login(), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoCreateData(t, 9, kMasterAccess, 4), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoLockDevice(t), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoLockDevice(t), VOREL_OK);  // holds nest
  const unsigned char first[4] = {1, 1, 1, 1}, second[4] = {2, 2, 2, 2};
  std::atomic<bool> wrote{false};
  std::thread other([&] {
    EXPECT_EQ(VorelPKICryptoUnlockDevice(t), VOREL_ERR_PARAM);  // not its hold
    EXPECT_EQ(VorelPKICryptoWriteData(t, 9, second, 4), VOREL_OK);
    wrote = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(wrote);
  EXPECT_EQ(VorelPKICryptoWriteData(t, 9, first, 4), VOREL_OK);  // inside the hold
  EXPECT_EQ(VorelPKICryptoUnlockDevice(t), VOREL_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(wrote);  // still held once
  EXPECT_EQ(VorelPKICryptoUnlockDevice(t), VOREL_OK);
  other.join();
  unsigned char back[4];
  size_t len = 0;
  ASSERT_EQ(VorelPKICryptoReadData(t, 9, back, 4, &len), VOREL_OK);
  EXPECT_EQ(back[0], 2);
  EXPECT_EQ(VorelPKICryptoUnlockDevice(t), VOREL_ERR_PARAM);
}

}  // namespace
