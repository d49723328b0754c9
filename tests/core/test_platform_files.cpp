// File primitives of the token store: atomic replacement, folders, the cross-process lock.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "support.h"

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using namespace vorel::platform;

std::string join(const std::string& dir, const std::string& name) { return dir + path_separator() + name; }

TEST(Files, AtomicWriteReplacesWholeAndLeavesNoTemporaryFile) {
  std::string dir = testsupport::make_temp_dir("files");
  std::string path = join(dir, "token.dat");
  std::string big(1 << 20, 'x');
  for (std::size_t i = 0; i < big.size(); i += 4096) big[i] = static_cast<char>('a' + i % 26);
  for (const std::string& content : {std::string("first"), big, std::string()}) {
    ASSERT_TRUE(write_file_atomic(path, content.data(), content.size()));
    std::string back;
    ASSERT_TRUE(read_file(path, back));
    EXPECT_EQ(back, content);
  }
  std::vector<std::string> names;
  ASSERT_TRUE(list_dir(dir, names));
  EXPECT_EQ(names, std::vector<std::string>{"token.dat"});
  EXPECT_FALSE(write_file_atomic(join(join(dir, "missing"), "x"), "a", 1));
  std::string none;
  EXPECT_FALSE(read_file(join(dir, "absent"), none));
  EXPECT_TRUE(remove_file(path));
}

// Another process may have the file open for a moment (listing tokens reads their heads without
// the lock); on Windows the replacement then waits for it instead of failing.
TEST(Files, AtomicWriteWaitsOutAReaderHoldingTheFileOpen) {
  std::string dir = testsupport::make_temp_dir("files");
  std::string path = join(dir, "token.dat");
  ASSERT_TRUE(write_file_atomic(path, "old", 3));
  std::FILE* reader = std::fopen(path.c_str(), "rb");
  ASSERT_NE(reader, nullptr);
  std::thread closer([reader] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::fclose(reader);
  });
  EXPECT_TRUE(write_file_atomic(path, "new", 3));
  closer.join();
  std::string back;
  ASSERT_TRUE(read_file(path, back));
  EXPECT_EQ(back, "new");
}

// Whatever sits at the temporary name (a leftover, or a link someone planted where others may
// write) is replaced by a new file of the writer's own, never written through.
TEST(Files, AtomicWriteNeverWritesThroughWhatSitsAtItsTemporaryName) {
#ifdef _WIN32
  GTEST_SKIP() << "POSIX links and modes; on Windows the temporary file is created anew too (CREATE_NEW)";
#else
  std::string dir = testsupport::make_temp_dir("files"), path = join(dir, "token.dat");
  std::string tmp = path + ".tmp" + std::to_string(process_id());
  std::string victim = testsupport::make_temp_dir("victim") + "target";
  testsupport::write_file(victim, "victim");
  for (bool link : {true, false}) {
    if (link) {
      ASSERT_EQ(symlink(victim.c_str(), tmp.c_str()), 0);
    } else {
      testsupport::write_file(tmp, "leftover");
      ASSERT_EQ(chmod(tmp.c_str(), 0666), 0);
    }
    ASSERT_TRUE(write_file_atomic(path, "new", 3)) << link;
    EXPECT_EQ(testsupport::read_file(victim), "victim") << link;
    EXPECT_EQ(testsupport::read_file(path), "new") << link;
    EXPECT_EQ(permissions(path), 0600u) << link;
  }
#endif
}

TEST(Files, MakeDirsCreatesParentsAndRefusesAFileInTheWay) {
  std::string dir = testsupport::make_temp_dir("files");
  std::string nested = join(join(join(dir, "a"), "b"), "c");
  EXPECT_TRUE(make_dirs(nested));
  EXPECT_TRUE(make_dirs(nested));
  ASSERT_TRUE(write_file_atomic(join(dir, "file"), "x", 1));
  EXPECT_FALSE(make_dirs(join(join(dir, "file"), "sub")));
}

// Two holders of one lock file exclude each other (separate opens, as two processes have).
TEST(Files, FileLockExcludesASecondHolderUntilReleased) {
  std::string path = join(testsupport::make_temp_dir("files"), "token.lock");
  FileLock* first = file_lock(path);
  ASSERT_NE(first, nullptr);
  std::atomic<bool> acquired{false};
  std::thread second([&] {
    FileLock* l = file_lock(path);
    acquired = l != nullptr;
    file_unlock(l);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(acquired.load());
  file_unlock(first);
  second.join();
  EXPECT_TRUE(acquired.load());
}

}  // namespace
