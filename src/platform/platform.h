// Operating-system services the library needs, one implementation per platform.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace vorel::platform {

using fnptr = void (*)(void);

// Dynamic modules. On failure dso_open returns nullptr and last_error() tells why.
void* dso_open(const char* path);
fnptr dso_symbol(void* module, const char* name);
void dso_close(void* module);
// Human-readable reason of the last dso_open failure (empty when unknown).
std::string dso_error_text();

// GetLastError() on Windows, errno elsewhere.
int last_error();

// Temporary folder, always ending in the platform's separator.
std::string temp_dir();
// The fallback log file name, appended to temp_dir() with its own leading separator.
const char* log_file_suffix();
// Opens a log file for appending, creating it for its owner alone (0600 on POSIX; on Windows it
// takes the folder's access list, which under the user's profile is the user's). shared: the
// file is in a folder other users may write (the temporary folder), so a symbolic link, a
// hard-linked file, one another user owns or anything but a plain file is refused, not opened.
std::FILE* open_log_file(const char* path, bool shared);

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};
LocalTime local_time();

long process_id();
long thread_id();

// Environment, as the C runtime sees it.
const char* env_get(const char* name);
// The running program's own file; empty when it cannot be told.
std::string executable_path();

// ---- files, for the token store ----

// The platform's path separator.
char path_separator();
// The per-user data folder: $XDG_DATA_HOME or ~/.local/share; %LOCALAPPDATA% on Windows.
// Empty when the environment names none.
std::string user_data_dir();
// Creates the folder and its missing parents (private to the user); true when it exists after.
bool make_dirs(const std::string& path);
// The file, or its first limit bytes; false when it cannot be read.
bool read_file(const std::string& path, std::string& out, std::size_t limit = static_cast<std::size_t>(-1));
// Replaces the file so that a reader, or the file after a crash at any instant, has either the
// old or the new content: written to a temporary file beside it, flushed, renamed over it.
bool write_file_atomic(const std::string& path, const void* data, std::size_t len);
bool remove_file(const std::string& path);
// Names of the regular files in a folder (not sorted).
bool list_dir(const std::string& path, std::vector<std::string>& names);
// The permission bits of a file or folder (such as 0700) on POSIX; 0 on Windows or when it does
// not exist.
unsigned permissions(const std::string& path);

// An exclusive lock on a lock file, held across processes until released or the process ends.
struct FileLock;
// Blocks until the lock is had; nullptr when the lock file cannot be opened. A reader
// (forWriting false) makes do with a lock file it may only read; where it can open none (a
// read-only folder without one), it gets an empty lock that keeps no one out: a reader still
// sees whole files, since writers replace them by renaming.
FileLock* file_lock(const std::string& path, bool forWriting = true);
// True when the lock keeps other processes out; false for an empty one.
bool file_lock_exclusive(const FileLock* lock);
void file_unlock(FileLock* lock);

// ---- address space for records ----

std::size_t page_size();
// Reserves address space with no memory behind it; nullptr on failure.
void* reserve_pages(std::size_t size);
// Puts zero-filled memory behind reserved pages; the addresses stay reserved when it is taken away.
bool commit_pages(void* at, std::size_t size);
void decommit_pages(void* at, std::size_t size);
// Gives a whole reservation back, addresses and all.
void release_pages(void* at, std::size_t size);

// ---- USB devices ----

// Calls visit with the path of each present USB device and its identifier segment
// "VID_xxxx&PID_xxxx" (nullptr when the path names no USB device) until visit answers true.
// False when the devices cannot be listed or none made visit answer true.
bool find_usb_device(const std::function<bool(const char* path, const char* segment)>& visit);

}  // namespace vorel::platform
