// Files, PEM and PIN entry for the command-line tools.
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <termios.h>
#include <unistd.h>
#endif

namespace vorel_tools {

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(unsigned char c) {
  const char* p = c ? std::strchr(kAlphabet, c) : nullptr;
  return p ? static_cast<int>(p - kAlphabet) : -1;
}

// Base64 of a PEM body: line breaks and blanks skipped, '=' only at the end.
bool base64_decode(const std::string& text, Bytes& out) {
  out.clear();
  unsigned acc = 0;
  int bits = 0, pad = 0;
  for (unsigned char c : text) {
    if (c == '\r' || c == '\n' || c == ' ' || c == '\t') continue;
    if (c == '=') {
      ++pad;
      continue;
    }
    int v = sextet(c);
    if (v < 0 || pad > 0) return false;
    acc = (acc << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<unsigned char>(acc >> bits));
    }
  }
  return pad <= 2 && !out.empty();
}
}  // namespace

bool read_file(const std::string& path, Bytes& out) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  out.clear();
  unsigned char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
  bool ok = !std::ferror(f);
  std::fclose(f);
  return ok;
}

bool write_file(const std::string& path, const Bytes& data) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && ok;
}

bool is_pem(const Bytes& data) {
  static const char begin[] = "-----BEGIN ";
  return std::search(data.begin(), data.end(), begin, begin + sizeof begin - 1) != data.end();
}

bool pem_decode(const Bytes& data, const std::vector<std::string>& labels, Bytes& der, std::string& found) {
  std::string text(data.begin(), data.end());
  found.clear();
  for (std::size_t at = text.find("-----BEGIN "); at != std::string::npos; at = text.find("-----BEGIN ", at + 1)) {
    std::size_t labelEnd = text.find("-----", at + 11);
    if (labelEnd == std::string::npos) return false;
    std::string label = text.substr(at + 11, labelEnd - at - 11);
    if (found.empty()) found = label;
    bool wanted = false;
    for (const std::string& l : labels) wanted = wanted || l == label;
    if (!wanted) continue;
    std::string end = "-----END " + label + "-----";
    std::size_t bodyStart = labelEnd + 5, bodyEnd = text.find(end, bodyStart);
    if (bodyEnd == std::string::npos) return false;
    return base64_decode(text.substr(bodyStart, bodyEnd - bodyStart), der);
  }
  return false;
}

std::string pem_encode(const std::string& label, const Bytes& der) {
  std::string out = "-----BEGIN " + label + "-----\n", line;
  for (std::size_t i = 0; i < der.size(); i += 3) {
    unsigned v = static_cast<unsigned>(der[i]) << 16;
    if (i + 1 < der.size()) v |= static_cast<unsigned>(der[i + 1]) << 8;
    if (i + 2 < der.size()) v |= der[i + 2];
    line += kAlphabet[(v >> 18) & 63];
    line += kAlphabet[(v >> 12) & 63];
    line += i + 1 < der.size() ? kAlphabet[(v >> 6) & 63] : '=';
    line += i + 2 < der.size() ? kAlphabet[v & 63] : '=';
    if (line.size() == 64) {
      out += line + "\n";
      line.clear();
    }
  }
  if (!line.empty()) out += line + "\n";
  return out + "-----END " + label + "-----\n";
}

bool read_secret(const char* prompt, std::string& secret) {
  secret.clear();
#ifdef _WIN32
  HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  bool console = GetConsoleMode(in, &mode) != 0;
  if (console) {
    std::fputs(prompt, stderr);
    SetConsoleMode(in, mode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
  }
#else
  termios old{};
  bool console = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &old) == 0;
  if (console) {
    std::fputs(prompt, stderr);
    termios quiet = old;
    quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
#endif
  bool ok = static_cast<bool>(std::getline(std::cin, secret));
  if (!secret.empty() && secret.back() == '\r') secret.pop_back();
  if (console) {
#ifdef _WIN32
    SetConsoleMode(in, mode);
#else
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &old);
#endif
    std::fputs("\n", stderr);
  }
  return ok;
}

}  // namespace vorel_tools
