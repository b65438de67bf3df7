#include "fuzz/fuzz_runner.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tests/support/test_env.h"

namespace fipsval::fuzz {

void SilenceStdout() {
  std::fflush(stdout);
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
    std::perror("fuzz: cannot send standard output to /dev/null");
    std::exit(1);
  }
  close(null);
}

void EnterSandbox() {
  const char* sandbox = std::getenv("FIPSVAL_SANDBOX");
  if (!sandbox || std::strcmp(sandbox, "1") != 0) {
    std::fprintf(stderr,
                 "fuzz: run this target through sandbox_run: it writes "
                 "/tmp/req and /tmp/resp\n");
    std::exit(1);
  }
  testing::ResetVectorDirs();
  SilenceStdout();
}

int RunSelected(std::span<const Runner> runners, const uint8_t* data,
                std::size_t size) {
  if (size == 0 || size > kMaxRequest || runners.empty()) return 0;
  const Runner& runner = runners[data[0] % runners.size()];
  const Input request(data + 1, size - 1);
  if (runner.affordable && !runner.affordable(request)) return 0;

  testing::WriteRequest(
      runner.name, std::string_view(reinterpret_cast<const char*>(
                                        request.data()),
                                    request.size()));
  const int before = testing::OpenDescriptorCount();
  runner.run(runner.name);
  const int after = testing::OpenDescriptorCount();
  if (after != before) {
    std::fprintf(stderr, "fuzz: %s left %d file descriptor(s) open\n",
                 runner.name, after - before);
    std::abort();
  }
  return 0;
}

}  // namespace fipsval::fuzz
