// Loading and unloading the built library in fresh processes.
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "support.h"

using testsupport::count;
using testsupport::ScopedEnv;

namespace {

std::string probe() { return testsupport::module_path(PROBE_PROGRAM); }
std::string library() { return testsupport::module_path(VORELSKF_LIBRARY); }

// A folder whose vorelskf.json routes type 7 to the recording vendor module, 8 to the empty one.
std::string folder_with_vendor_config() {
  std::string dir = testsupport::make_temp_dir("cwd");
  testsupport::write_file(dir + "vorelskf.json",
                          std::string(R"({"devices":[{"name":"FIXTURE","type":7,"isskf":true,"dllpath":")") +
                              testsupport::json_escape(testsupport::module_path(VENDOR_FIXTURE)) +
                              R"("},{"name":"EMPTY","type":8,"isskf":true,"dllpath":")" +
                              testsupport::json_escape(testsupport::module_path(VENDOR_EMPTY)) +
                              R"("},{"name":"EMULATED","type":3}]})");
  return dir;
}

// What each load and unload logs, counted. Under the sanitizer build the leak checker also fails
// the probe when the unload keeps the records of the handles it left open.
TEST(Lifecycle, LoadsAndUnloadsLogWhatTheyReadAndFreed) {
  std::string cfg = folder_with_vendor_config();
  const struct {
    const char* level;  // nullptr: unset
    std::vector<std::string> args;
    std::vector<std::pair<const char*, std::size_t>> counts;
  } cases[] = {
      // The version, once, at the default level.
      {nullptr, {"-"}, {{"[INFO] [DllMain] Version : 1.1.2.4", 1}, {"[DEBUG]", 0}}},
      // Below INFO no version line, but the map is still built: each function the empty module
      // lacks is a warning of the load at start.
      {"2", {cfg}, {{"Version : ", 0}, {"[WARN] [new_skf_dll] vorel_dso_getfunction SKF_Transmit fail", 1}}},
      // The current folder's configuration is read at load and each vendor type freed at unload.
      {"4",
       {cfg},
       {{"[DEBUG] [new_skf_dll] type : 7", 1},
        {"[DEBUG] [free_skf_set] free skf dll, type : 7", 1},
        {"free skf dll, type : 3", 0}}},
      // A reload through the export frees, then loads; the unload frees again.
      {"4", {cfg, cfg + "vorelskf.json"}, {{"free skf dll, type : 7", 2}, {"[DEBUG] [new_skf_dll] type : 7", 2}}},
      // Handles left open are closed at unload (the probe answers 6 unless both opens worked).
      {"4", {cfg, "-", "open"}, {{"<<<<< SKF_OpenApplication", 1}, {"[ERROR]", 0}}},
  };
  for (const auto& c : cases) {
    std::string log = testsupport::make_temp_dir("log") + "skf.log";
    ScopedEnv path("VOREL_SKF_LOG_PATH", log.c_str());
    ScopedEnv level("VOREL_SKF_LOG_LEVEL", c.level);
    std::vector<std::string> args{library()};
    args.insert(args.end(), c.args.begin(), c.args.end());
    EXPECT_EQ(testsupport::run_process(probe(), args), 0);
    std::string text = testsupport::read_file(log);
    for (const auto& [line, times] : c.counts) EXPECT_EQ(count(text, line), times) << line << " in\n" << text;
    auto version = text.find("Version : "), freed = text.find("free skf dll");
    EXPECT_TRUE(version == std::string::npos || freed == std::string::npos || version < freed);
  }
}

// The log goes to VOREL_SKF_LOG_PATH; when that is unset or cannot be opened, to the temporary
// folder; without one either, the lines are lost quietly. It holds what DEBUG dumps, so whatever
// the library creates is its owner's alone, whatever the umask.
TEST(LogFile, GoesToItsPathOrTheTempFolderAndIsItsOwnersAlone) {
  const struct {
    bool pathSet, pathOpens, tempExists;
  } cases[] = {{true, true, true}, {false, false, true}, {true, false, true}, {true, false, false}};
#ifndef _WIN32
  mode_t old = umask(0);
#endif
  for (const auto& c : cases) {
    std::string dir = testsupport::make_temp_dir("log"), sep = dir.substr(dir.size() - 1);
    std::string tmp = c.tempExists ? testsupport::make_temp_dir("tmp") : dir + "absent" + sep;
    std::string tmpVar = tmp.substr(0, tmp.size() - 1);  // TMPDIR, TMP and TEMP name it without the separator
    std::string named = dir + (c.pathOpens ? "" : "no-such-folder" + sep) + "x.log";
    ScopedEnv path("VOREL_SKF_LOG_PATH", c.pathSet ? named.c_str() : nullptr);
    ScopedEnv level("VOREL_SKF_LOG_LEVEL", nullptr);
    ScopedEnv tmpdir("TMPDIR", tmpVar.c_str());
    ScopedEnv tmpvar("TMP", tmpVar.c_str());
    ScopedEnv tempvar("TEMP", tmpVar.c_str());
    EXPECT_EQ(testsupport::run_process(probe(), {library(), "-"}), 0);
    EXPECT_EQ(testsupport::file_exists(named), c.pathSet && c.pathOpens);
    std::string log = c.pathSet && c.pathOpens ? named : tmp + "vorelskf.log";
    if (c.tempExists) {
      EXPECT_NE(testsupport::read_file(log).find("Version : 1.1.2.4"), std::string::npos) << log;
      EXPECT_TRUE(testsupport::private_to_owner(log)) << log;
    }
  }
#ifndef _WIN32
  umask(old);
#endif
}

#ifndef _WIN32
TEST(LogFile, WhatIsAtTheTemporaryFolderPathIsNeitherWaitedForNorWrittenUnlessItIsALogOfOurs) {
  const struct {
    const char* what;
    std::function<int(const std::string& at, const std::string& victim)> plant;
    bool asRoot = false;         // needs another owner, which only root can give
    const char* kept = nullptr;  // an earlier log of ours: kept, then written, and narrowed
  } cases[] = {
      {"a symbolic link", [](const std::string& at, const std::string& v) { return symlink(v.c_str(), at.c_str()); }},
      {"a hard link", [](const std::string& at, const std::string& v) { return link(v.c_str(), at.c_str()); }},
      {"a named pipe nobody reads", [](const std::string& at, const std::string&) { return mkfifo(at.c_str(), 0666); }},
      {"another user's file",
       [](const std::string& at, const std::string&) {
         testsupport::write_file(at, "");
         return chown(at.c_str(), 65534, 65534);
       },
       true},
      {"an earlier log of ours that others could read",
       [](const std::string& at, const std::string&) {
         testsupport::write_file(at, "earlier\n");
         return chmod(at.c_str(), 0644);
       },
       false, "earlier\n"},
  };
  ScopedEnv path("VOREL_SKF_LOG_PATH", nullptr);
  for (const auto& c : cases) {
    if (c.asRoot && geteuid() != 0) continue;
    std::string tmp = testsupport::make_temp_dir("tmp"), at = tmp + "vorelskf.log";
    std::string victim = testsupport::make_temp_dir("victim") + "target";
    testsupport::write_file(victim, "");
    ASSERT_EQ(c.plant(at, victim), 0) << c.what;
    ScopedEnv tmpdir("TMPDIR", tmp.c_str());
    // The library must not wait for a reader: a hung probe is ended after 30 seconds.
    EXPECT_EQ(testsupport::run_process("/usr/bin/timeout", {"30", probe(), library(), "-"}), 0) << c.what;
    EXPECT_EQ(testsupport::read_file(victim), "") << c.what;
    struct stat st;
    if (c.kept) {
      std::string text = testsupport::read_file(at);
      EXPECT_EQ(text.rfind(c.kept, 0), 0u);
      EXPECT_NE(text.find("Version : 1.1.2.4"), std::string::npos);
      EXPECT_TRUE(testsupport::private_to_owner(at));
    } else if (lstat(at.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      EXPECT_EQ(testsupport::read_file(at), "") << c.what;
    }
  }
}

#else
TEST(LogFile, WhatIsAtTheTemporaryFolderPathIsNeitherWaitedForNorWrittenUnlessItIsALogOfOurs) {
  GTEST_SKIP() << "POSIX links, pipes and owners; Wine 8 cannot make the Windows symbolic links such a test needs";
}
#endif

}  // namespace
