#include "host/core/host_settings.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>

#include "fipsval.h"

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

std::string ExecutableDir() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string(".") : exe.parent_path().string();
}

std::string LoadedLibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&fips_self_tests), &info) &&
      info.dli_fname) {
    return info.dli_fname;
  }
  return {};
}

}  // namespace

void ApplyDefaultPaths(HostSettings& s) {
  if (s.data_dir.empty()) s.data_dir = ExecutableDir() + "/fipsval-data";
  auto in_data = [&](std::string& path, const char* name) {
    if (path.empty()) path = s.data_dir + "/" + name;
  };
  in_data(s.config, "vpn.cfg");
  in_data(s.config_digest, "vpn.cfg.sha256");
  in_data(s.firmware_digest, "firmware.sha256");
  in_data(s.error_log, "fips-errors.log");
  in_data(s.error_mode_file, "error-mode");
  if (s.firmware.empty()) s.firmware = LoadedLibraryPath();
}

}  // namespace fipsval::host
