// The forced-failure marker: a file naming one self-test that must fail at
// the next run, so that the failure path can be shown. It is deleted when
// read, so it applies to one run only.
//
// Only a regular file of its own is a marker. Whatever else sits at the
// path (a link, a FIFO, a device, a directory) is left alone and reported:
// following a link would print another file's first line, and opening a
// FIFO would stop the start-up until someone writes to it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "fipsval.h"
#include "selftest/registry.h"
#include "selftest/selftest.h"

namespace fipsval {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

const char* KindOf(mode_t mode) {
  if (S_ISLNK(mode)) return "it is a symbolic link, not a regular file";
  if (S_ISFIFO(mode)) return "it is a FIFO, not a regular file";
  if (S_ISDIR(mode)) return "it is a directory, not a regular file";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "it is a device, not a regular file";
  if (S_ISSOCK(mode)) return "it is a socket, not a regular file";
  return "it is not a regular file";
}

// Why st does not describe a marker file of its own, or null when it does.
// A second hard link would make the marker another file's content.
const char* Refusal(const struct stat& st) {
  if (!S_ISREG(st.st_mode)) return KindOf(st.st_mode);
  if (st.st_nlink > 1) return "it has other hard links";
  return nullptr;
}

void SayIgnored(const char* reason) {
  std::printf("Ignoring %s: %s\n", kForceMarkerPath, reason);
}

void SayUnreadable(int error) {
  std::printf("Ignoring %s: cannot read it (%s)\n", kForceMarkerPath, std::strerror(error));
}

// The marker opened for reading, or -1 when there is none to read. Nothing
// at the path is the normal case and is silent; anything else is said.
int OpenMarker() {
  struct stat st;
  if (lstat(kForceMarkerPath, &st) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) SayUnreadable(errno);
    return -1;
  }
  // Checked before opening, so that no device or FIFO is ever opened ...
  if (const char* refusal = Refusal(st)) {
    SayIgnored(refusal);
    return -1;
  }
  // ... and again on what was opened, in case the entry was swapped since.
  const int fd = open(kForceMarkerPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ELOOP) {
      SayIgnored(KindOf(S_IFLNK));
    } else if (errno != ENOENT) {
      SayUnreadable(errno);
    }
    return -1;
  }
  if (fstat(fd, &st) != 0) {
    SayUnreadable(errno);
    close(fd);
    return -1;
  }
  if (const char* refusal = Refusal(st)) {
    SayIgnored(refusal);
    close(fd);
    return -1;
  }
  return fd;
}

// Reads what fgets would with a 64-byte buffer: at most 63 characters, up
// to and including the first newline. A read error leaves nothing.
void ReadFirstLine(int fd, std::array<char, 64>& line) {
  std::size_t used = 0;
  while (used < line.size() - 1) {
    const ssize_t n = read(fd, line.data() + used, line.size() - 1 - used);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      line.fill('\0');
      return;
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
  }
  if (const void* newline = std::memchr(line.data(), '\n', used)) {
    const std::size_t end = static_cast<const char*>(newline) - line.data() + 1;
    std::fill(line.begin() + static_cast<std::ptrdiff_t>(end), line.end(), '\0');
  }
}

}  // namespace
}  // namespace fipsval

extern "C" FIPSVAL_API int fips_check_fail(void) {
  using namespace fipsval;
  std::array<char, 64> line{};  // always terminated: at most 63 are read
  {
    const Descriptor marker(OpenMarker());
    if (marker.get() < 0) return 0;
    ReadFirstLine(marker.get(), line);
  }
  if (line[0] != '\0') std::printf("\nForcing failure of %s\n", line.data());

  // The whole line must be the name, up to the terminator: "RSA\n" or
  // "AESx" force nothing.
  const selftest::SelfTest* forced = selftest::FindByForceName(line.data());
  if (unlink(kForceMarkerPath) != 0 && errno != ENOENT) {
    std::printf("Cannot delete %s (%s): the forced failure will repeat at the next start\n",
                kForceMarkerPath, std::strerror(errno));
  }
  return forced ? static_cast<int>(forced->bit) : 0;
}
