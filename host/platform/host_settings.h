// Where the reference host keeps its files, and what the host callbacks
// have recorded. One instance per process: the callbacks are called by
// name from the library and have no other way to reach it.
#pragma once

#include <string>

namespace fipsval::host {

enum class EntropySource { kUrandom, kRdrand };

struct HostSettings {
  std::string data_dir;
  std::string config;           // the configuration file checked for integrity
  std::string config_digest;    // its stored SHA-256
  std::string firmware;         // the firmware image (default: this library)
  std::string firmware_digest;  // its stored SHA-256
  std::string error_log;        // fips_log_startup_error appends here
  std::string error_mode_file;  // fips_goto_error_mode records here
  std::string samples_dir;      // the bundled sample requests
  bool fips_cc = true;
  EntropySource entropy = EntropySource::kUrandom;
  int verbosity = 1;  // 0: verdicts and errors only (-q); 1: normal; 2: -v
};

struct ErrorModeRecord {
  bool entered = false;
  int code = 0;
  std::string text;
};

HostSettings& Settings();
ErrorModeRecord& ErrorMode();

// The default locations, which depend on where the program runs from.
struct DefaultLocations {
  bool build_tree = false;  // the program runs from the directory it was built in
  std::string data_dir;     // digests, error log, error-mode file, sample runs
  std::string config;       // the configuration checked for integrity
  std::string samples_dir;
};

// In the build tree, everything lives in "fipsval-data" beside the program
// and the samples are those of the source tree. An installed program in
// <prefix>/bin keeps its data in <root>/var/lib/fipsval and its
// configuration in <root>/etc/fipsval/vpn.cfg, where <root> is "/" for
// the prefix /usr (and <dir> for <dir>/usr) and the prefix itself
// otherwise; its samples are in <prefix>/share/fipsval/samples.
DefaultLocations DefaultLocationsFor(const std::string& executable_dir);
DefaultLocations Defaults();  // for this process's executable

// The file the fipsval library was loaded from; "" when unknown.
std::string LoadedLibraryPath();

// Fills every setting that is still empty: data_dir and samples_dir from
// Defaults(); the configuration from Defaults() when no data directory was
// given, else DIR/vpn.cfg; digests, error log and error-mode file in the
// data directory; the firmware image is the loaded fipsval library.
void ApplyDefaultPaths(HostSettings& settings);

}  // namespace fipsval::host
