// The files of an application.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "keys.h"

namespace skftool {

namespace {

std::string rights_name(ULONG rights) {
  switch (rights) {
    case SECURE_ANYONE_ACCOUNT:
      return "anyone";
    case SECURE_USER_ACCOUNT:
      return "user";
    case SECURE_ADM_ACCOUNT:
      return "admin";
    case SECURE_NEVER_ACCOUNT:
      return "never";
    default: {
      char text[16];
      std::snprintf(text, sizeof text, "0x%02lX", static_cast<unsigned long>(rights));
      return text;
    }
  }
}

FILEATTRIBUTE file_info(const Application& app, const std::string& name) {
  FILEATTRIBUTE info{};
  std::string copy = name;
  check(app.device().lib().SKF_GetFileInfo(app.handle(), &copy[0], &info), "reading the attributes of " + name);
  return info;
}

// Reads and most writes need a verified PIN; a read goes without one unless a PIN is at hand.

}  // namespace

int cmd_files(const Options& o) {
  Session s(o, Pin::None);
  nlohmann::json files = nlohmann::json::array();
  for (const std::string& name : read_list(
           [&](LPSTR l, ULONG*size) { return s.lib->SKF_EnumFiles(s.app.handle(), l, size); }, "listing the files")) {
    FILEATTRIBUTE info = file_info(s.app, name);
    files.push_back({{"name", name},
                     {"size", info.FileSize},
                     {"readRights", rights_name(info.ReadRights)},
                     {"writeRights", rights_name(info.WriteRights)}});
  }
  if (o.json) {
    std::printf("%s\n", nlohmann::json{{"application", s.app.name()}, {"files", files}}.dump(2).c_str());
    return kDone;
  }
  if (files.empty()) std::printf("No files in %s.\n", s.app.name().c_str());
  for (const auto& f : files)
    std::printf("%-32s %6u bytes  read %s, write %s\n", f["name"].get<std::string>().c_str(), f["size"].get<unsigned>(),
                f["readRights"].get<std::string>().c_str(), f["writeRights"].get<std::string>().c_str());
  return kDone;
}

int cmd_read_file(const Options& o) {
  Session s(o, Pin::IfGiven);
  FILEATTRIBUTE info = file_info(s.app, o.name);
  if (o.offset > info.FileSize) throw Failure("--offset is past the end of " + o.name, kUsage);
  ULONG size = o.sizeGiven ? o.size : info.FileSize - o.offset;
  Bytes data(size);
  ULONG len = size;
  std::string name = o.name;
  if (size > 0)
    check(s.lib->SKF_ReadFile(s.app.handle(), &name[0], o.offset, size, data.data(), &len), "reading " + o.name);
  data.resize(std::min(len, size));
  write_output(o.out, data);
  return kDone;
}

int cmd_write_file(const Options& o) {
  Bytes data = read_input(o.in);
  Session s(o, Pin::Required);
  std::string name = o.name;
  check(s.lib->SKF_WriteFile(s.app.handle(), &name[0], o.offset, data.data(), static_cast<ULONG>(data.size())),
        "writing " + o.name);
  std::printf("Wrote %zu bytes to %s at offset %lu\n", data.size(), o.name.c_str(),
              static_cast<unsigned long>(o.offset));
  return kDone;
}

int cmd_create_file(const Options& o) {
  Session s(o, Pin::Required);
  std::string name = o.name;
  check(s.lib->SKF_CreateFile(s.app.handle(), &name[0], o.size, o.readRights, o.writeRights), "creating " + o.name);
  std::printf("Created %s: %lu bytes, read %s, write %s\n", o.name.c_str(), static_cast<unsigned long>(o.size),
              rights_name(o.readRights).c_str(), rights_name(o.writeRights).c_str());
  return kDone;
}

int cmd_delete_file(const Options& o) {
  Session s(o, Pin::Required);
  std::string name = o.name;
  check(s.lib->SKF_DeleteFile(s.app.handle(), &name[0]), "deleting " + o.name);
  std::printf("Deleted %s\n", o.name.c_str());
  return kDone;
}

}  // namespace skftool
