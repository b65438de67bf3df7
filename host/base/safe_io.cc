#include "host/base/safe_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>

namespace fipsval::host {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.Release();
  }
  return *this;
}

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) close(fd_);
}

namespace {

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

std::string TemporaryName(std::string_view name) {
  static std::mt19937_64 rng(std::random_device{}());
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, "%016llx",
                static_cast<unsigned long long>(rng()));
  return "." + std::string(name) + ".fipsval-" + suffix;
}

}  // namespace

std::string AccessError(int dirfd, std::string_view name, int error) {
  struct stat st;
  if (fstatat(dirfd, std::string(name).c_str(), &st, AT_SYMLINK_NOFOLLOW) ==
      0) {
    if (S_ISLNK(st.st_mode)) return "it is a symbolic link (not followed)";
    if (error == ENOTDIR || error == ELOOP) return "not a directory";
  }
  return std::strerror(error);
}

UniqueFd OpenDirBelow(int dirfd, std::string_view name, bool create,
                      std::string* why) {
  const std::string n(name);
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd fd(openat(dirfd, n.c_str(), kFlags));
  if (!fd && errno == ENOENT && create) {
    if (mkdirat(dirfd, n.c_str(), 0755) != 0 && errno != EEXIST) {
      *why = std::strerror(errno);
      return {};
    }
    fd = UniqueFd(openat(dirfd, n.c_str(), kFlags));
  }
  if (!fd) *why = AccessError(dirfd, name, errno);
  return fd;
}

bool ReadFileBelow(int dirfd, std::string_view name, std::size_t max_bytes,
                   std::string* content, std::string* why) {
  const std::string n(name);
  UniqueFd fd(
      openat(dirfd, n.c_str(),
             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd) {
    *why = AccessError(dirfd, name, errno);
    return false;
  }
  struct stat st;
  if (fstat(fd.get(), &st) != 0) {
    *why = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    *why = "not a regular file";
    return false;
  }
  // Compared in 64 bits: a size_t of 32 bits (armhf) would cut 4 GiB + 1 to 1.
  if (static_cast<unsigned long long>(st.st_size) > max_bytes) {
    *why = "larger than " + std::to_string(max_bytes >> 20) + " MiB";
    return false;
  }
  content->clear();
  char buffer[65536];
  for (;;) {
    const ssize_t n_read = read(fd.get(), buffer, sizeof buffer);
    if (n_read < 0 && errno == EINTR) continue;
    if (n_read < 0) {
      *why = std::strerror(errno);
      return false;
    }
    if (n_read == 0) break;
    content->append(buffer, static_cast<std::size_t>(n_read));
    if (content->size() > max_bytes) {
      *why = "larger than " + std::to_string(max_bytes >> 20) + " MiB";
      return false;
    }
  }
  return true;
}

bool ReplaceFileBelow(int dirfd, std::string_view name,
                      std::string_view content, unsigned mode,
                      std::string* why) {
  const std::string temporary = TemporaryName(name);
  UniqueFd fd(openat(dirfd, temporary.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     mode));
  if (!fd) {
    *why = std::strerror(errno);
    return false;
  }
  bool ok = WriteAll(fd.get(), content);
  int error = errno;
  if (ok && fchmod(fd.get(), mode) != 0) {
    ok = false;
    error = errno;
  }
  if (ok && close(fd.Release()) != 0) {
    ok = false;
    error = errno;
  }
  if (ok && renameat(dirfd, temporary.c_str(), dirfd,
                     std::string(name).c_str()) != 0) {
    ok = false;
    error = errno;
  }
  if (!ok) {
    *why = std::strerror(error);
    unlinkat(dirfd, temporary.c_str(), 0);
  }
  return ok;
}

bool RemoveFileBelow(int dirfd, std::string_view name, std::string* why) {
  if (unlinkat(dirfd, std::string(name).c_str(), 0) == 0 || errno == ENOENT) {
    return true;
  }
  *why = std::strerror(errno);
  return false;
}

}  // namespace fipsval::host
