#include "host/run/entropy_export.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "fipsval.h"
#include "host/base/file_io.h"
#include "host/run/private_staging.h"

namespace fipsval::host {
namespace {

constexpr const char* kSamples = "entropy_samples";
constexpr int kLibraryError = 2;  // the child's status when the library failed

// In the child: the samples into the staging's "/tmp/resp", then to dir.
int ExportSamples(int count, const StagingDirs& staging, int dir,
                  const std::string& target) {
  static_cast<void>(RemoveFileBelow(staging.response, kSamples));
  const int result = fips_tv_get_drbg_entropy_source(count);
  std::fflush(stdout);
  if (result < 0) return kLibraryError;
  std::string content;
  Status moved =
      ReadFileBelow(staging.response, kSamples, kMaxFileBytes, &content);
  if (moved.ok()) moved = ReplaceFileBelow(dir, kSamples, content, 0644);
  if (!moved.ok()) {
    std::fprintf(stderr, "fipsval: cannot write %s/%s: %s\n", target.c_str(),
                 kSamples, moved.message().c_str());
    return 1;
  }
  return 0;
}

// Copies what the child prints to standard output; true when it printed.
bool Relay(int fd) {
  bool printed = false;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    printed = true;
    std::fwrite(buffer, 1, static_cast<std::size_t>(n), stdout);
  }
  std::fflush(stdout);
  return printed;
}

}  // namespace

std::string EntropyTarget(const std::string& output_dir) {
  return output_dir.empty() ? FIPSVAL_RESPONSE_DIR : output_dir;
}

Status ExportEntropy(int count, const std::string& output_dir) {
  Staging staging;
  if (Status s = PrepareStaging(&staging); !s.ok()) return s;
  const std::string target = EntropyTarget(output_dir);
  UniqueFd dir;
  const Status opened = output_dir.empty()
                            ? OpenOwnDirectory(FIPSVAL_RESPONSE_DIR, &dir)
                            : OpenGivenDirectory(output_dir, 0755, &dir);
  if (!opened.ok()) {
    return opened.Prefixed("cannot write the samples to " + target + ": ");
  }
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return Failed("the entropy export failed");
  const pid_t child =
      StartStaged(staging, pipe_fds[1], [&](const StagingDirs& dirs) {
        close(pipe_fds[0]);
        return ExportSamples(count, dirs, dir.get(), target);
      });
  close(pipe_fds[1]);
  const UniqueFd output(pipe_fds[0]);
  if (child < 0) return Failed("the entropy export failed");
  const bool printed = Relay(output.get());
  const int status = WaitStaged(child);
  if (status != 0 || printed) {
    return Failed(std::string("the entropy export failed") +
                  (status == kLibraryError ? " (the library returned an error)"
                                           : ""));
  }
  return Ok();
}

}  // namespace fipsval::host
