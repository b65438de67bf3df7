// Checking the responses of a CAVP tree against the expected answers:
// <tree>/<DIR>/resp/<name>.rsp against <tree>/<DIR>/fax/<name>.fax, as the
// sequence of non-blank lines (line ends removed), and the RSA responses
// whose answers are random by checking them mathematically.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "fipsval.h"

namespace fipsval::host {

struct VerifyOptions {
  std::string tree;
  std::vector<const fips_tv*> suites;
  bool strict = false;   // an expected-answer file without response fails
  bool partial = false;  // a response that stops early passes when every
                         // line it has matches (for shortened requests)
};

struct VerifyTally {
  int passed = 0;
  int failed = 0;
};

// Prints one verdict line per file (with the first differing line of both
// files on a mismatch) and the closing line "N passed, M failed" to out.
VerifyTally VerifyTree(const VerifyOptions& options, std::FILE* out);

struct Comparison {
  bool ok = false;
  int lines = 0;         // non-blank lines compared
  int not_compared = 0;  // answers that cannot be compared (see below)
  std::string detail;    // why not, on a mismatch
};

// Compares a response with its expected answers. For "CTR_DRBG" the
// ReturnedBits values of sections other than "[AES-256 use df]" are not
// compared: the runner answers every test with AES-256 and a derivation
// function, while the expected file holds the answers of the mechanism
// each section names.
Comparison CompareWithExpected(const std::string& name,
                               const std::string& response_path,
                               const std::string& expected_path,
                               bool partial);

}  // namespace fipsval::host
