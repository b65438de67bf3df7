#include "host/run/entropy_export.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "fipsval.h"
#include "host/base/safe_io.h"
#include "host/run/private_staging.h"

namespace fipsval::host {
namespace {

constexpr std::size_t kMaxResponseBytes = std::size_t{1} << 30;

}  // namespace

int ExportEntropy(int count, const std::string& output_dir) {
  std::string why;
  Staging staging;
  if (!PrepareStaging(&staging, &why)) {
    std::fprintf(stderr, "fipsval: %s\n", why.c_str());
    return 1;
  }
  const std::string target = output_dir.empty() ? FIPSVAL_RESPONSE_DIR : output_dir;
  UniqueFd dir = output_dir.empty()
                     ? OpenOwnDirectory(FIPSVAL_RESPONSE_DIR, &why)
                     : OpenGivenDirectory(output_dir, true, &why);
  if (!dir) {
    std::fprintf(stderr, "fipsval: cannot write the samples to %s: %s\n",
                 target.c_str(), why.c_str());
    return 1;
  }
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return 1;
  const int dir_fd = dir.get();
  const pid_t child =
      StartStaged(staging, pipe_fds[1], [&](const StagingDirs& dirs) {
        close(pipe_fds[0]);
        constexpr const char* kName = "entropy_samples";
        std::string error;
        RemoveFileBelow(dirs.response, kName, &error);
        const int result = fips_tv_get_drbg_entropy_source(count);
        std::fflush(stdout);
        if (result < 0) return 2;
        std::string content;
        if (!ReadFileBelow(dirs.response, kName, kMaxResponseBytes, &content,
                           &error) ||
            !ReplaceFileBelow(dir_fd, kName, content, 0644, &error)) {
          std::fprintf(stderr, "fipsval: cannot write %s/%s: %s\n",
                       target.c_str(), kName, error.c_str());
          return 1;
        }
        return 0;
      });
  close(pipe_fds[1]);
  if (child < 0) {
    close(pipe_fds[0]);
    return 1;
  }
  // The export prints nothing when it succeeds: any line is a failure.
  bool printed = false;
  char buffer[4096];
  for (ssize_t n; (n = read(pipe_fds[0], buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    printed = true;
    std::fwrite(buffer, 1, static_cast<std::size_t>(n), stdout);
  }
  close(pipe_fds[0]);
  std::fflush(stdout);
  const int status = WaitStaged(child);
  if (status != 0 || printed) {
    std::fprintf(stderr, "fipsval: the entropy export failed%s\n",
                 status == 2 ? " (the library returned an error)" : "");
    return 1;
  }
  std::fprintf(stderr,
               "fipsval: %d samples of 640 bytes in %s/entropy_samples\n",
               count, target.c_str());
  return 0;
}

}  // namespace fipsval::host
