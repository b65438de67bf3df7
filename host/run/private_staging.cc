#include "host/run/private_staging.h"

#include <fcntl.h>
#include <pwd.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "fipsval.h"

namespace fipsval::host {
namespace {

constexpr const char* kLockPath = "/tmp/.fipsval.lock";
constexpr const char* kStagingDirs[] = {FIPSVAL_REQUEST_DIR, FIPSVAL_RESPONSE_DIR};

bool WriteProcFile(const char* path, const std::string& text) {
  UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
  return fd && write(fd.get(), text.data(), text.size()) ==
                   static_cast<ssize_t>(text.size());
}

// In the child: a mount namespace of its own (inside a user namespace that
// maps the caller's ids onto themselves when that is what it takes), mounts
// made private, and a fresh tmpfs on /tmp holding req and resp.
bool EnterPrivateTmp(StagingKind kind) {
  if (kind == StagingKind::kPrivateUserNamespace) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    WriteProcFile("/proc/self/setgroups", "deny");
    if (!WriteProcFile("/proc/self/uid_map", std::to_string(uid) + " " +
                                                 std::to_string(uid) + " 1") ||
        !WriteProcFile("/proc/self/gid_map", std::to_string(gid) + " " +
                                                 std::to_string(gid) + " 1")) {
      return false;
    }
  } else if (unshare(CLONE_NEWNS) != 0) {
    return false;
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return false;
  }
  if (mount("fipsval", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0700") !=
      0) {
    return false;
  }
  for (const char* dir : kStagingDirs) {
    if (mkdir(dir, 0700) != 0) return false;
  }
  return true;
}

bool Probe(StagingKind kind) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) _exit(EnterPrivateTmp(kind) ? 0 : 1);
  return WaitStaged(child) == 0;
}

// The shared directory must be ours, a real directory, and closed to
// others; it is created so, and a mode that lets others read is tightened.
}  // namespace

namespace {

// "name (uid N)", or "uid N" for a uid without a name.
std::string Owner(uid_t uid) {
  const std::string id = "uid " + std::to_string(uid);
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> buffer{};
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found) {
    return std::string(found->pw_name) + " (" + id + ")";
  }
  return id;
}

// Who holds the flock on fd, from /proc/locks: " by NAME (uid N), process
// P", or "" when that cannot be told.
std::string LockHolder(int fd) {
  struct stat lock_st;
  const UniqueFile locks(std::fopen("/proc/locks", "re"));
  if (fstat(fd, &lock_st) != 0 || !locks) return {};
  char line[256];
  while (std::fgets(line, sizeof line, locks.get())) {
    int pid = 0;
    unsigned major = 0, minor = 0;
    unsigned long inode = 0;
    if (std::sscanf(line, "%*d: FLOCK %*s %*s %d %x:%x:%lu", &pid, &major,
                    &minor, &inode) != 4 ||
        inode != lock_st.st_ino || makedev(major, minor) != lock_st.st_dev) {
      continue;
    }
    struct stat process;
    if (stat(("/proc/" + std::to_string(pid)).c_str(), &process) != 0) {
      return " by process " + std::to_string(pid);
    }
    return " by " + Owner(process.st_uid) + ", process " + std::to_string(pid);
  }
  return {};
}

}  // namespace

Status OpenOwnDirectory(const char* path, UniqueFd* dir) {
  const std::string p = path;
  if (mkdir(path, 0700) != 0 && errno != EEXIST) {
    return Failed("cannot create " + p + ": " + std::strerror(errno));
  }
  struct stat st;
  if (lstat(path, &st) != 0) {
    return Failed("cannot use " + p + ": " + std::strerror(errno));
  }
  if (S_ISLNK(st.st_mode) || !S_ISDIR(st.st_mode)) {
    return Refused(p + " is not a directory (a link or a file): refused");
  }
  UniqueFd fd(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd || fstat(fd.get(), &st) != 0) {
    return Failed("cannot open " + p + ": " + std::strerror(errno));
  }
  if (st.st_uid != geteuid()) {
    // Left over from another user's run, typically: name who can remove it.
    return Refused(p + " belongs to " + Owner(st.st_uid) +
                   ", not to this user: refused (left by their run: they or "
                   "root must remove it)");
  }
  if ((st.st_mode & 022) != 0) {
    return Refused(p + " is writable by other users: refused");
  }
  if ((st.st_mode & 07777) != 0700 && fchmod(fd.get(), 0700) != 0) {
    return Failed("cannot make " + p + " mode 0700: " + std::strerror(errno));
  }
  *dir = std::move(fd);
  return Ok();
}

namespace {

Status TakeLock(UniqueFd* lock) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  UniqueFd fd(open(kLockPath, kFlags));
  if (!fd && errno == ENOENT) {
    fd = UniqueFd(open(kLockPath, kFlags | O_CREAT | O_EXCL, 0644));
    if (!fd && errno == EEXIST) fd = UniqueFd(open(kLockPath, kFlags));
  }
  struct stat st;
  if (!fd || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return Refused(std::string("cannot use the lock file ") + kLockPath +
                   ": " + (fd ? "not a regular file" : std::strerror(errno)));
  }
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      return Failed(std::string("cannot lock ") + kLockPath + ": " +
                    std::strerror(errno));
    }
    return {StatusKind::kBusy,
            std::string("another fipsval run or entropy export is using "
                        "/tmp/req and /tmp/resp") +
                LockHolder(fd.get()) + " (lock " + kLockPath +
                "): try again when it has finished"};
  }
  *lock = std::move(fd);
  return Ok();
}

}  // namespace

Status PrepareStaging(Staging* staging) {
  for (StagingKind kind :
       {StagingKind::kPrivateNamespace, StagingKind::kPrivateUserNamespace}) {
    if (kind == StagingKind::kPrivateNamespace && geteuid() != 0) continue;
    if (Probe(kind)) {
      staging->kind = kind;
      return Ok();
    }
  }
  staging->kind = StagingKind::kLockedShared;
  if (Status locked = TakeLock(&staging->lock); !locked.ok()) return locked;
  for (const char* dir : kStagingDirs) {
    UniqueFd fd;
    if (Status own = OpenOwnDirectory(dir, &fd); !own.ok()) return own;
  }
  return Ok();
}

const char* DescribeStaging(StagingKind kind) {
  switch (kind) {
    case StagingKind::kPrivateNamespace:
      return "private /tmp/req and /tmp/resp (own mount namespace)";
    case StagingKind::kPrivateUserNamespace:
      return "private /tmp/req and /tmp/resp (own user and mount namespace)";
    case StagingKind::kLockedShared:
      break;
  }
  return "shared /tmp/req and /tmp/resp, locked, owned by this user, mode 0700";
}

pid_t StartStaged(const Staging& staging, int stdout_fd,
                  const std::function<int(const StagingDirs&)>& body) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) return child;
  // The run ends with fipsval: an orphan must not go on writing responses.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kStagingFailed);
  if (stdout_fd >= 0 && dup2(stdout_fd, STDOUT_FILENO) < 0) {
    _exit(kStagingFailed);
  }
  if (staging.kind != StagingKind::kLockedShared &&
      !EnterPrivateTmp(staging.kind)) {
    std::fprintf(stderr,
                 "fipsval: cannot make /tmp/req and /tmp/resp private: %s\n",
                 std::strerror(errno));
    _exit(kStagingFailed);
  }
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd request(open(kStagingDirs[0], kFlags));
  UniqueFd response(open(kStagingDirs[1], kFlags));
  if (!request || !response) {
    std::fprintf(stderr, "fipsval: cannot open the staging directories: %s\n",
                 std::strerror(errno));
    _exit(kStagingFailed);
  }
  const int status = body({request.get(), response.get()});
  std::fflush(nullptr);
  _exit(status);
}

int WaitStaged(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return kStagingFailed;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + WTERMSIG(status);
}

}  // namespace fipsval::host
