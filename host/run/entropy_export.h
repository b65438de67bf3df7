// `fipsval entropy`: the library's entropy samples, exported with private
// staging (see private_staging.h).
#pragma once

#include <string>

#include "host/base/status.h"

namespace fipsval::host {

// Where the samples go: output_dir, or "/tmp/resp" when it is empty.
std::string EntropyTarget(const std::string& output_dir);

// Writes `count` entropy samples (fips_tv_get_drbg_entropy_source) with
// private staging, then puts "entropy_samples" into output_dir (empty:
// "/tmp/resp", which must then be this user's own directory). The library
// prints nothing when it succeeds; whatever it prints goes to standard
// output and fails the export.
Status ExportEntropy(int count, const std::string& output_dir);

}  // namespace fipsval::host
