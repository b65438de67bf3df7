// Where the library's fixed paths "/tmp/req" and "/tmp/resp" point while
// fipsval runs suites or exports entropy samples.
//
// Preferred: a child process in its own mount namespace (a user namespace
// too when not root) with a fresh tmpfs on "/tmp", so both paths are
// private to the run and nobody else can see or redirect them. Where the
// kernel allows no namespace, the run takes an exclusive lock and accepts
// the shared paths only when they are real directories owned by the running
// user with mode 0700 (it creates them so).
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "host/base/owners.h"
#include "host/base/status.h"

namespace fipsval::host {

enum class StagingKind {
  kPrivateNamespace,
  kPrivateUserNamespace,
  kLockedShared
};

struct Staging {
  StagingKind kind = StagingKind::kLockedShared;
  UniqueFd lock;  // held for the run in the shared case
};

// Chooses the protection and, for the shared paths, takes the lock and
// checks them. Not ok (with a one-line reason) when the run must not start.
Status PrepareStaging(Staging* staging);

// "private /tmp/req and /tmp/resp (mount namespace)" and so on.
const char* DescribeStaging(StagingKind kind);

// The staging directories as seen by the body.
struct StagingDirs {
  int request = -1;   // "/tmp/req"
  int response = -1;  // "/tmp/resp"
};

// Forks a child that enters the staging (fresh private directories, or the
// checked shared ones) and exits with body's result. The child's standard
// output goes to stdout_fd when it is not -1. Returns the child's pid, or -1.
pid_t StartStaged(const Staging& staging, int stdout_fd,
                  const std::function<int(const StagingDirs&)>& body);

// Waits for the child: its exit status, or 128 + the signal that ended it.
int WaitStaged(pid_t child);

// Opens path, a directory that must belong to this user and be closed to
// others: created with mode 0700 when missing, refused when it is a link,
// another user's or writable by others; a mode that lets others read or
// enter it is tightened to 0700.
Status OpenOwnDirectory(const char* path, UniqueFd* dir);

// The exit status of a child that could not enter its staging.
inline constexpr int kStagingFailed = 125;

}  // namespace fipsval::host
