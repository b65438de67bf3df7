// File access inside a directory that another user may be able to write:
// every name is one component opened relative to a directory descriptor
// without following a symbolic link, and files are replaced by writing a
// temporary file beside them and renaming it into place.
#pragma once

#include <string>
#include <string_view>

namespace fipsval::host {

// An owned file descriptor; -1 when empty.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_ = -1;
};

// Why an access failed, for "cannot read X: <why>": the errno text, or
// "it is a symbolic link (not followed)" / "not a regular file".
std::string AccessError(int dirfd, std::string_view name, int error);

// Opens the directory `name` (one component) below dirfd without following
// a link. With create, makes it (mode 0755 before the umask) when missing.
UniqueFd OpenDirBelow(int dirfd, std::string_view name, bool create,
                      std::string* why);

// Opens a directory the user named (links followed: the user chose it);
// with create, makes it (mode 0755 before the umask) first when missing.
UniqueFd OpenGivenDirectory(const std::string& path, bool create,
                            std::string* why);

// Reads the regular file `name` below dirfd (no link, FIFO or device; a
// file larger than max_bytes is refused).
bool ReadFileBelow(int dirfd, std::string_view name, std::size_t max_bytes,
                   std::string* content, std::string* why);

// Writes content to a new temporary file in dirfd and renames it to `name`:
// a link at that name is replaced, not followed, and the name never holds
// a partly written file.
bool ReplaceFileBelow(int dirfd, std::string_view name,
                      std::string_view content, unsigned mode,
                      std::string* why);

// Removes `name` below dirfd unless it is a directory. True when it is gone.
bool RemoveFileBelow(int dirfd, std::string_view name, std::string* why);

}  // namespace fipsval::host
