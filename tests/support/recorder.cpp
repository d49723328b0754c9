#include "recorder.h"

#include <stdexcept>

#include "platform/platform.h"

namespace testsupport {

namespace {
template <class Fn>
void bind(void* module, const char* name, Fn& fn) {
  fn = reinterpret_cast<Fn>(vorel::platform::dso_symbol(module, name));
  if (!fn) throw std::runtime_error(std::string("recording module lacks ") + name);
}
}  // namespace

Recorder::Recorder(const std::string& modulePath) : module_(vorel::platform::dso_open(modulePath.c_str())) {
  if (!module_) throw std::runtime_error("cannot load " + modulePath);
  bind(module_, "fixture_reset", reset_);
  bind(module_, "fixture_answer", answer_);
  bind(module_, "fixture_names", names_);
  bind(module_, "fixture_call", call_);
  bind(module_, "fixture_handle", handle_);
  bind(module_, "fixture_file_trace", file_trace_);
  bind(module_, "fixture_file", file_);
  bind(module_, "fixture_remove_file", remove_file_);
  bind(module_, "fixture_read_reports_file_size", read_reports_file_size_);
  reset_();
}

Recorder::~Recorder() { vorel::platform::dso_close(module_); }

Recorder::Call Recorder::call(const char* function) const {
  uint64_t args[16];
  char text[1024];
  int n = 0;
  int count = call_(function, args, 16, &n, text, sizeof text);
  return {count, std::vector<uint64_t>(args, args + n), text};
}

std::string Recorder::file_trace() const {
  char probe;
  int n = file_trace_(&probe, 1);
  std::string out(static_cast<std::size_t>(n) + 1, '\0');
  file_trace_(&out[0], n + 1);
  out.resize(static_cast<std::size_t>(n));
  return out;
}

std::optional<std::vector<unsigned char>> Recorder::file(const char* name) const {
  std::vector<unsigned char> data(65536);
  int n = file_(name, data.data(), static_cast<int>(data.size()));
  if (n < 0) return std::nullopt;
  data.resize(static_cast<std::size_t>(n));
  return data;
}
}  // namespace testsupport
