// The host callbacks that the library calls by name. fipsval is linked with
// its symbols exported, so the library binds to these definitions.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

#include "fipsval.h"
#include "host/base/clock.h"
#include "host/base/file_io.h"
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
  std::FILE* log = std::fopen(Settings().error_log.c_str(), "a");
  if (!log) {
    std::fprintf(stderr, "fipsval: cannot open the error log %s: %s\n",
                 Settings().error_log.c_str(), std::strerror(errno));
    return -1;
  }
  std::fprintf(log, "%s %s\n", fipsval::host::UtcStamp().c_str(), text);
  const bool written = std::fclose(log) == 0;
  return written ? 0 : -1;
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
