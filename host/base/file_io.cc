#include "host/base/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <vector>

#include "host/base/paths.h"

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

Status FromErrno(int error) {
  return {error == ENOENT ? StatusKind::kMissing : StatusKind::kFailed,
          std::strerror(error)};
}

namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// O_NONBLOCK: a FIFO put in place of a file must not hang the reader.
constexpr int kFileFlags =
    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Why opening `name` below dirfd failed with `error`. With a subject
// ("SHA/"), the message names it: "SHA/ is a symbolic link (not
// followed)", "no SHA/"; without, it speaks of the entry itself.
Status EntryStatus(int dirfd, const std::string& name, int error,
                   const std::string& subject = "") {
  const std::string is = subject.empty() ? "it is " : subject + " is ";
  struct stat st;
  if (fstatat(dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISLNK(st.st_mode)) {
      return Refused(is + "a symbolic link (not followed)");
    }
    if (error == ENOTDIR || error == ELOOP) {
      return Refused(subject.empty() ? "not a directory" : is + "not a directory");
    }
  }
  const Status status = FromErrno(error);
  if (subject.empty()) return status;
  if (status.kind() == StatusKind::kMissing) return Missing("no " + subject);
  return status.Prefixed(is);
}

std::string TooLarge(std::size_t max_bytes) {
  return "larger than " + std::to_string(max_bytes >> 20) + " MiB";
}

// Reads the open file fd: a regular file of at most max_bytes.
Status ReadOpened(int fd, std::size_t max_bytes, std::string* content) {
  struct stat st;
  if (fstat(fd, &st) != 0) return FromErrno(errno);
  if (!S_ISREG(st.st_mode)) return Refused("not a regular file");
  // Compared in 64 bits: a size_t of 32 bits (armhf) would cut 4 GiB + 1 to 1.
  if (static_cast<unsigned long long>(st.st_size) > max_bytes) {
    return Refused(TooLarge(max_bytes));
  }
  content->clear();
  content->reserve(static_cast<std::size_t>(st.st_size));
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return FromErrno(errno);
    if (got == 0) return Ok();
    content->append(buffer, static_cast<std::size_t>(got));
    if (content->size() > max_bytes) return Refused(TooLarge(max_bytes));
  }
}

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

// The parts of a path below a tree: no empty part, ".", or "..".
Status SplitRelative(std::string_view relative, std::vector<std::string>* parts) {
  while (!relative.empty()) {
    const std::size_t slash = relative.find('/');
    const std::string_view part = relative.substr(0, slash);
    if (part.empty() || part == "." || part == "..") {
      return Refused("a path that leaves the tree");
    }
    parts->emplace_back(part);
    if (slash == std::string_view::npos) break;
    relative.remove_prefix(slash + 1);
  }
  return parts->empty() ? Refused("an empty path") : Ok();
}

}  // namespace

Status OpenDirBelow(int dirfd, std::string_view name, unsigned create_mode,
                    UniqueFd* dir) {
  const std::string n(name);
  *dir = UniqueFd(openat(dirfd, n.c_str(), kDirFlags));
  if (!*dir && errno == ENOENT && create_mode != 0) {
    if (mkdirat(dirfd, n.c_str(), create_mode) != 0 && errno != EEXIST) {
      return Failed(std::strerror(errno));
    }
    *dir = UniqueFd(openat(dirfd, n.c_str(), kDirFlags));
  }
  return *dir ? Ok() : EntryStatus(dirfd, n, errno);
}

Status OpenGivenDirectory(const std::string& path, unsigned create_mode,
                          UniqueFd* dir) {
  if (create_mode != 0 && mkdir(path.c_str(), create_mode) != 0 &&
      errno != EEXIST) {
    return FromErrno(errno);
  }
  *dir = UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (*dir) return Ok();
  return errno == ENOTDIR ? Refused("not a directory") : FromErrno(errno);
}

Status ReadFileBelow(int dirfd, std::string_view name, std::size_t max_bytes,
                     std::string* content) {
  const std::string n(name);
  const UniqueFd fd(openat(dirfd, n.c_str(), kFileFlags));
  if (!fd) return EntryStatus(dirfd, n, errno);
  return ReadOpened(fd.get(), max_bytes, content);
}

Status ReadTreeFile(const std::string& root, std::string_view relative,
                    std::size_t max_bytes, std::string* content) {
  std::vector<std::string> parts;
  if (Status split = SplitRelative(relative, &parts); !split.ok()) return split;
  UniqueFd dir(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir) return FromErrno(errno).Prefixed("tree: ");
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    UniqueFd next(openat(dir.get(), parts[i].c_str(), kDirFlags));
    if (!next) return EntryStatus(dir.get(), parts[i], errno, parts[i] + "/");
    dir = std::move(next);
  }
  return ReadFileBelow(dir.get(), parts.back(), max_bytes, content);
}

Status ReadGivenFile(const std::string& path, std::size_t max_bytes,
                     std::string* content) {
  const UniqueFd fd(
      open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd) return FromErrno(errno);
  return ReadOpened(fd.get(), max_bytes, content);
}

Status ReplaceFileBelow(int dirfd, std::string_view name,
                        std::string_view content, unsigned mode) {
  const std::string temporary = TemporaryName(name);
  UniqueFd fd(openat(dirfd, temporary.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     mode));
  if (!fd) return Failed(std::strerror(errno));
  // Written, on the disk, and only then under its name.
  const bool ok = WriteAll(fd.get(), content) && fchmod(fd.get(), mode) == 0 &&
                  fsync(fd.get()) == 0 && close(fd.Release()) == 0 &&
                  renameat(dirfd, temporary.c_str(), dirfd,
                           std::string(name).c_str()) == 0;
  if (ok) return Ok();
  const int error = errno;
  unlinkat(dirfd, temporary.c_str(), 0);
  return Failed(std::strerror(error));
}

Status ReplaceGivenFile(const std::string& path, std::string_view content,
                        unsigned mode) {
  const PathParts parts = SplitPath(path);
  const UniqueFd dir(
      open(parts.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir) return FromErrno(errno);
  return ReplaceFileBelow(dir.get(), parts.name, content, mode);
}

Status RemoveFileBelow(int dirfd, std::string_view name) {
  if (unlinkat(dirfd, std::string(name).c_str(), 0) == 0 || errno == ENOENT) {
    return Ok();
  }
  return Failed(std::strerror(errno));
}

}  // namespace fipsval::host
