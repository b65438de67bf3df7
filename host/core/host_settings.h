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

// Fills every path that is still empty from data_dir (itself defaulting to
// "fipsval-data" beside the executable); the firmware image defaults to the
// loaded fipsval library.
void ApplyDefaultPaths(HostSettings& settings);

}  // namespace fipsval::host
