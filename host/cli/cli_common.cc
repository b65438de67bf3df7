#include <charconv>
#include <cstdio>

#include "host/cli/cli.h"
#include "host/platform/host_settings.h"

namespace fipsval::host {

int Usage(const std::string& message, const std::string& detail) {
  std::fprintf(stderr, "fipsval: %s%s (see fipsval --help)\n",
               message.c_str(), detail.c_str());
  return kUsage;
}

// The exit status after a library call: the error mode wins.
int Finish(int status) {
  std::fflush(stdout);
  if (ErrorMode().entered) {
    std::fprintf(stderr, "fipsval: error mode entered (code %d): %s\n",
                 ErrorMode().code, ErrorMode().text.c_str());
    return kErrorMode;
  }
  return status;
}

bool ParseInt(std::string_view text, int* out) {
  const auto [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), *out);
  return ec == std::errc() && end == text.data() + text.size();
}

}  // namespace fipsval::host
