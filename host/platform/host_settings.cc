#include "host/platform/host_settings.h"

#include <dlfcn.h>

#include <filesystem>

#include "fipsval.h"

#ifndef FIPSVAL_HOST_BINARY_DIR
#error "FIPSVAL_HOST_BINARY_DIR: the directory the program is built in"
#endif
#ifndef FIPSVAL_INSTALL_DATADIR
#error "FIPSVAL_INSTALL_DATADIR: the data directory of an installation"
#endif
#ifndef FIPSVAL_SOURCE_SAMPLES_DIR
#error "FIPSVAL_SOURCE_SAMPLES_DIR: the samples of the source tree"
#endif

namespace fipsval::host {

HostSettings& Settings() {
  static HostSettings settings;
  return settings;
}

ErrorModeRecord& ErrorMode() {
  static ErrorModeRecord record;
  return record;
}

namespace {

namespace fs = std::filesystem;

std::string ExecutableDir() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  return ec ? std::string(".") : exe.parent_path().string();
}

bool SameDirectory(const fs::path& a, const fs::path& b) {
  std::error_code ec;
  return fs::equivalent(a, b, ec) && !ec;
}

}  // namespace

std::string LoadedLibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&fips_self_tests), &info) &&
      info.dli_fname) {
    return info.dli_fname;
  }
  return {};
}

DefaultLocations DefaultLocationsFor(const std::string& executable_dir) {
  DefaultLocations d;
  const fs::path bin = fs::path(executable_dir).lexically_normal();
  if (SameDirectory(bin, FIPSVAL_HOST_BINARY_DIR)) {
    d.build_tree = true;
    d.data_dir = (bin / "fipsval-data").string();
    d.config = d.data_dir + "/vpn.cfg";
    d.samples_dir = FIPSVAL_SOURCE_SAMPLES_DIR;
    return d;
  }
  // <prefix>/bin/fipsval; the prefix /usr keeps /etc and /var beside it,
  // as GNU installations do.
  const fs::path prefix = (bin.has_filename() ? bin : bin.parent_path()).parent_path();
  const fs::path root = prefix.filename() == "usr" ? prefix.parent_path() : prefix;
  d.data_dir = (root / "var/lib/fipsval").string();
  d.config = (root / "etc/fipsval/vpn.cfg").string();
  d.samples_dir = (prefix / FIPSVAL_INSTALL_DATADIR / "fipsval/samples").string();
  return d;
}

DefaultLocations Defaults() { return DefaultLocationsFor(ExecutableDir()); }

void ApplyDefaultPaths(HostSettings& s) {
  const DefaultLocations defaults = Defaults();
  if (s.config.empty()) {
    s.config = s.data_dir.empty() ? defaults.config : s.data_dir + "/vpn.cfg";
  }
  if (s.data_dir.empty()) s.data_dir = defaults.data_dir;
  if (s.samples_dir.empty()) s.samples_dir = defaults.samples_dir;
  auto in_data = [&](std::string& path, const char* name) {
    if (path.empty()) path = s.data_dir + "/" + name;
  };
  in_data(s.config_digest, "vpn.cfg.sha256");
  in_data(s.firmware_digest, "firmware.sha256");
  in_data(s.error_log, "fips-errors.log");
  in_data(s.error_mode_file, "error-mode");
  if (s.firmware.empty()) s.firmware = LoadedLibraryPath();
}

}  // namespace fipsval::host
