// One token used by several processes: shared PIN counters, keys made in one process used in
// another, writers killed at random instants, concurrent writers.
#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "support.h"
#include "token_suite.h"

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using namespace crypto_test;

const std::size_t kObjectSize = 4096;

class TokenProcesses : public TokenSuite {
 protected:
  TokenProcesses() : TokenSuite("shared-token") {}
  void SetUp() override {
    ASSERT_EQ(create(5, "P1", "shared", token_), VOREL_OK);
    ASSERT_EQ(verify_pin(VOREL_PWD_USER, kUser), VOREL_OK);
    const unsigned char access[4] = {0x04, 0x03, 0x07, 0x03};
    for (unsigned id : {1u, 2u}) ASSERT_EQ(VorelPKICryptoCreateData(token_.get(), id, access, kObjectSize), VOREL_OK);
    ASSERT_EQ(VorelPKICryptoClearPwdCache(token_.get()), VOREL_OK);
  }

  // What the other process answers to a PIN (see token_child).
  int child_verify(int type, const char* pin) {
    return testsupport::run_process(child(), {"verify", "5", "P1", std::to_string(type), pin});
  }
  std::string child() { return testsupport::module_path(TOKEN_CHILD); }

  // Processes that each check a user PIN some times, all starting at the same moment; what each
  // check answered (result, tries left), by PIN.
  struct Checkers {
    const char* pin;
    int processes, checks;
  };
  std::map<std::string, std::vector<std::pair<int, unsigned>>> check_at_once(const char* serial,
                                                                             std::vector<Checkers> groups) {
    std::string out = testsupport::make_temp_dir("checks"), start = out + "start";
    std::vector<std::pair<std::string, std::unique_ptr<testsupport::Child>>> children;
    for (const Checkers& g : groups)
      for (int i = 0; i < g.processes; ++i)
        children.emplace_back(
            g.pin,
            std::make_unique<testsupport::Child>(
                child(), std::vector<std::string>{"verify-n", "5", serial, "1", g.pin, std::to_string(g.checks), start},
                out + std::to_string(children.size())));
    testsupport::write_file(start, "go");
    std::map<std::string, std::vector<std::pair<int, unsigned>>> answers;
    for (std::size_t i = 0; i < children.size(); ++i) {
      EXPECT_EQ(children[i].second->wait(), 0);
      std::string lines = testsupport::read_file(out + std::to_string(i));
      int rc = 0;
      unsigned left = 0;
      for (const char* p = lines.c_str(); std::sscanf(p, "%d %u", &rc, &left) == 2; p = std::strchr(p, '\n') + 1)
        answers[children[i].first].emplace_back(rc, left);
    }
    return answers;
  }
  // The generation an object holds, or -1 when its bytes are not all of one generation.
  long long generation(unsigned id) {
    std::vector<unsigned char> buf(kObjectSize);
    std::size_t got = 0;
    if (VorelPKICryptoReadData(token_.get(), id, buf.data(), buf.size(), &got) != VOREL_OK || got != kObjectSize)
      return -1;
    unsigned long long g = 0;
    for (int i = 0; i < 8; ++i) g = g << 8 | buf[i];
    for (std::size_t i = 8; i < got; ++i)
      if (buf[i] != buf[i % 8]) return -1;
    return static_cast<long long>(g);
  }
};

TEST_F(TokenProcesses, PinTriesAreCountedAcrossProcesses) {
  EXPECT_EQ(child_verify(VOREL_PWD_USER, "wrong-pin"), 10 + 5);
  EXPECT_EQ(tries(VOREL_PWD_USER), 5u);
  EXPECT_EQ(verify_pin(VOREL_PWD_USER, "wrong-pin"), VOREL_ERR_PIN_INCORRECT);
  EXPECT_EQ(child_verify(VOREL_PWD_USER, "wrong-pin"), 10 + 3);
  EXPECT_EQ(child_verify(VOREL_PWD_USER, kUser), 0);
  EXPECT_EQ(tries(VOREL_PWD_USER), 6u);
  EXPECT_EQ(child_verify(VOREL_PWD_USER, "123"), 3);  // length out of range spends nothing
  for (int left = 5; left >= 0; --left) EXPECT_EQ(child_verify(VOREL_PWD_USER, "wrong-pin"), 10 + left);
  EXPECT_EQ(child_verify(VOREL_PWD_USER, kUser), 10 + 0);
  EXPECT_EQ(verify_pin(VOREL_PWD_USER, kUser), VOREL_ERR_PIN_INCORRECT);
  unsigned retries = 0;
  ASSERT_EQ(VorelPKICryptoUnlockPwd(token_.get(), VOREL_PWD_USER, kSo, "unblocked", &retries), VOREL_OK);
  EXPECT_EQ(child_verify(VOREL_PWD_USER, "unblocked"), 0);
  EXPECT_EQ(child_verify(VOREL_PWD_SO, "wrong-so"), 10 + 5);
  EXPECT_EQ(tries(VOREL_PWD_SO), 5u);
}

TEST_F(TokenProcesses, PinChecksOfManyProcessesAtOnceAreServedOneAtATime) {
  Dev slow;  // a derivation long enough for every process to be in the middle of a check at once
  ASSERT_EQ(create(5, "P2", "slow", slow, 20000), VOREL_OK);
  auto right = check_at_once("P2", {{kUser, 8, 4}})[kUser];
  ASSERT_EQ(right.size(), 32u);
  EXPECT_EQ(std::count(right.begin(), right.end(), std::make_pair(VOREL_OK, 0u)), 32);
  EXPECT_EQ(tries(VOREL_PWD_USER, slow.get()), 6u);

  // Right and wrong at once: every right check is taken, and each wrong one spends one try of a
  // run, so a wrong check that left r tries followed one that left r + 1.
  auto mixed = check_at_once("P2", {{kUser, 4, 5}, {"wrong-pin", 5, 1}});
  ASSERT_EQ(mixed[kUser].size(), 20u);
  EXPECT_EQ(std::count(mixed[kUser].begin(), mixed[kUser].end(), std::make_pair(VOREL_OK, 0u)), 20);
  std::map<unsigned, int> left;
  for (const auto& [rc, n] : mixed["wrong-pin"]) {
    EXPECT_EQ(rc, VOREL_ERR_PIN_INCORRECT);
    ++left[n];
  }
  EXPECT_EQ(mixed["wrong-pin"].size(), 5u);
  EXPECT_EQ(left[0], 0);
  for (unsigned r = 1; r < 5; ++r) EXPECT_LE(left[r], left[r + 1]) << r << " tries left";
  unsigned now = tries(VOREL_PWD_USER, slow.get());
  EXPECT_TRUE(now == 6 || left[now] > 0) << now;
}

TEST_F(TokenProcesses, ACheckKilledMidwayKeepsItsTrySpentAndHoldsUpNoOne) {
  Dev slow;
  ASSERT_EQ(create(5, "P3", "slow", slow, 1000000), VOREL_OK);
  testsupport::Child checker(child(), {"verify", "5", "P3", "1", kUser});
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (tries(VOREL_PWD_USER, slow.get()) == 6 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  checker.kill();
  checker.wait();
  EXPECT_EQ(tries(VOREL_PWD_USER, slow.get()), 5u);
  EXPECT_EQ(verify_pin(VOREL_PWD_USER, kUser, slow.get()), VOREL_OK);
  EXPECT_EQ(tries(VOREL_PWD_USER, slow.get()), 6u);
}

TEST_F(TokenProcesses, ATokenInAReadOnlyFolderWithoutItsLockFileIsListedAndRead) {
#ifdef _WIN32
  GTEST_SKIP() << "a folder that refuses new files is made here with POSIX permissions";
#else
  ASSERT_EQ(std::remove((dir_ + "5-P1.lock").c_str()), 0);
  std::remove((dir_ + "5-P1.pinlock").c_str());
  ASSERT_EQ(chmod((dir_ + "5-P1.token").c_str(), 0644), 0);
  ASSERT_EQ(chmod(dir_.c_str(), 0555), 0);
  std::vector<std::string> args{"list", "5", "P1"};
  if (geteuid() == 0) args.insert(args.begin(), "--as-nobody");  // root would make the lock file anyway
  std::string out;
  EXPECT_EQ(testsupport::run_process(child(), args, out), 0);
  EXPECT_EQ(out, "P1 | shared\n");
  EXPECT_FALSE(testsupport::file_exists(dir_ + "5-P1.lock"));
  ASSERT_EQ(chmod(dir_.c_str(), 0700), 0);
#endif
}

TEST_F(TokenProcesses, AKeyImportedInOneProcessSignsInAnother) {
  ASSERT_EQ(verify_pin(VOREL_PWD_USER, kUser), VOREL_OK);
  Bytes der = data("sm2.key.der"), spki = data("sm2.pub.der");
  Pair kp;
  ASSERT_EQ(VorelPKICryptoImportKeypair(token_.get(), der.data(), der.size(), VOREL_KEYPAIR_SIGN, vorel::out(kp)),
            VOREL_OK);
  std::string sigHex;
  ASSERT_EQ(testsupport::run_process(child(), {"sign", "5", "P1", kUser, "0"}, sigHex), 0);
  // The signature of "hello" verifies under the public key openssl wrote.
  Dev pseudo;
  Pub pub;
  ASSERT_EQ(VorelPKICryptoGetPseudoDevice(vorel::out(pseudo)), VOREL_OK);
  ASSERT_EQ(VorelPKICryptoImportPublicKey(pseudo.get(), spki.data(), spki.size(), vorel::out(pub)), VOREL_OK);
  EXPECT_EQ(verify(pub.get(), VOREL_MECH_SM2_SM3_SIGN, text("hello"), unhex(sigHex)), VOREL_OK);
}

TEST_F(TokenProcesses, AWriterKilledAtAnyInstantLeavesEveryObjectOldOrNew) {
  std::mt19937 rng(20261121);
  long long last = 0, lastB = 0;
  int between = 0;            // kills that fell between the writes of the two objects
  std::size_t leftovers = 0;  // the most temporary files of killed writers seen at once
  auto files = [&] {
    std::vector<std::string> names;
    EXPECT_TRUE(vorel::platform::list_dir(dir_, names));
    std::sort(names.begin(), names.end());
    return names;
  };
  const int kTrials = 100;  // each a process started and killed: about 0.1 s
  for (int trial = 0; trial < kTrials; ++trial) {
    long long first = last + 1;  // the writer goes a = first, b = first, a = first + 1, ...
    testsupport::Child writer(child(), {"write-loop", "5", "P1", kUser, "1", "2", std::to_string(first)});
    ASSERT_TRUE(writer.running()) << "trial " << trial;
    // Kill once it is writing, at a random instant.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (generation(1) == last && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 15000));
    writer.kill();
    writer.wait();

    long long a = generation(1), b = generation(2);
    ASSERT_GE(a, first) << "trial " << trial;
    bool inOrder = (b >= first && (a == b || a == b + 1)) || (a == first && b == lastB);
    ASSERT_TRUE(inOrder) << "trial " << trial << ": " << a << " / " << b;
    between += a != b;
    ASSERT_EQ(VorelPKICryptoGetKeypairCount(token_.get()), 0);
    ASSERT_EQ(tries(VOREL_PWD_USER), 6u);
    last = a;
    lastB = b;
    leftovers = std::max(leftovers, files().size() - 3);
  }
  std::printf("%d kills, %d between the two writes, last generation %lld\n", kTrials, between, last);
  // Each writer sweeps away what the killed ones left: they never pile up, and none outlives a write.
  EXPECT_LE(leftovers, 1u);
  ASSERT_EQ(verify_pin(VOREL_PWD_USER, kUser), VOREL_OK);
  EXPECT_EQ(files(), (std::vector<std::string>{"5-P1.lock", "5-P1.pinlock", "5-P1.token"}));
}

TEST_F(TokenProcesses, TwoProcessesWritingDifferentObjectsBothKeepTheirWrites) {
  const int n = 50;
  testsupport::Child first(child(), {"write-n", "5", "P1", kUser, "1", std::to_string(n)});
  testsupport::Child second(child(), {"write-n", "5", "P1", kUser, "2", std::to_string(n)});
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  EXPECT_EQ(generation(1), n);
  EXPECT_EQ(generation(2), n);
}

}  // namespace
