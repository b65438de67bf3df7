// The host callbacks that the library calls by name. fipsval is linked with
// its symbols exported, so the library binds to these definitions.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>

#include "fipsval.h"
#include "host/base/clock.h"
#include "host/base/file_io.h"
#include "host/base/owners.h"
#include "host/platform/entropy_source.h"
#include "host/platform/host_settings.h"
#include "host/platform/integrity.h"

using fipsval::host::ErrorMode;
using fipsval::host::Settings;

extern "C" {

int is_fips_cc_enabled(void) { return Settings().fips_cc ? 1 : 0; }

int fips_check_vpn_cfg(int force) {
  return fipsval::host::CheckIntegrity("configuration integrity",
                                       Settings().config,
                                       Settings().config_digest, force);
}

int fips_hash_vpn_cfg(int) {
  fipsval::host::Sha256 digest{};
  fipsval::host::HashRecord& record = fipsval::host::LastConfigHash();
  record = {true, fipsval::host::DigestFile(Settings().config, &digest)};
  if (record.status.ok()) {
    record.status = fipsval::host::StoreDigest(Settings().config_digest, digest,
                                               Settings().config);
  }
  if (!record.status.ok()) {
    std::fprintf(stderr, "fipsval: cannot hash the configuration: %s\n",
                 record.status.message().c_str());
    return -1;
  }
  return 0;
}

int fips_check_firmware(int force) {
  return fipsval::host::CheckIntegrity("firmware integrity",
                                       Settings().firmware,
                                       Settings().firmware_digest, force);
}

int fips_rng_test(int force) {
  return fipsval::host::RngSelfTest(Settings().entropy, force);
}

int fips_log_startup_error(const char* text) {
  // Non-blocking and a regular file only: a FIFO or a device given as the
  // log is refused, never waited on.
  const char* path = Settings().error_log.c_str();
  const fipsval::host::UniqueFd fd(
      open(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
  struct stat st;
  const char* refusal = nullptr;
  if (!fd) {
    refusal = errno == ENXIO ? "not a regular file" : std::strerror(errno);
  } else if (fstat(fd.get(), &st) != 0) {
    refusal = std::strerror(errno);
  } else if (!S_ISREG(st.st_mode)) {
    refusal = "not a regular file";
  }
  if (refusal) {
    std::fprintf(stderr, "fipsval: cannot open the error log %s: %s\n", path, refusal);
    return -1;
  }
  const std::string line = fipsval::host::UtcStamp() + " " + text + "\n";
  return write(fd.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? 0 : -1;
}

int fips_goto_error_mode(int code, const char* text) {
  ErrorMode() = {true, code, text ? text : ""};
  const std::string line =
      std::to_string(code) + " " + ErrorMode().text + "\n";
  // Replaced by a rename, never written through a link or into a FIFO.
  const fipsval::host::Status written = fipsval::host::ReplaceGivenFile(
      Settings().error_mode_file, line, 0644);
  if (!written.ok()) {
    std::fprintf(stderr, "fipsval: cannot record the error mode in %s: %s\n",
                 Settings().error_mode_file.c_str(), written.message().c_str());
    return -1;
  }
  return 0;
}

int fipsmsg(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = std::vfprintf(stderr, format, args);
  va_end(args);
  return n;
}

int fips_read_entropy(unsigned char* buffer, int length) {
  if (length < 0) return -1;
  const std::span<uint8_t> out(buffer, static_cast<std::size_t>(length));
  return fipsval::host::ReadEntropy(Settings().entropy, out) ? length : -1;
}

}  // extern "C"
