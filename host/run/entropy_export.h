// `fipsval entropy`: the library's entropy samples, exported with private
// staging (see private_staging.h).
#pragma once

#include <string>

namespace fipsval::host {

// Writes `count` entropy samples (fips_tv_get_drbg_entropy_source) with
// private staging, then puts "entropy_samples" into output_dir (empty:
// "/tmp/resp", which must then be this user's own directory). 0 on success.
int ExportEntropy(int count, const std::string& output_dir);

}  // namespace fipsval::host
