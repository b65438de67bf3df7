// Checking the responses of a CAVP tree, for correctness: every response
// (<root>/<DIR>/resp/<name>.rsp) must answer every test of its request
// (<tree>/<DIR>/req/<name>.req), and its answers must match the expected
// ones (<tree>/<DIR>/fax/<name>.fax, as the sequence of non-blank lines
// without line ends) or, for the RSA answers that are random, pass their
// mathematical checks; and for provenance: the evidence beside the
// responses (evidence.h) must record this response as the answer to this
// request. No file is read through a symbolic link.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/base/status.h"
#include "host/catalog/runner_profiles.h"

namespace fipsval::host {

struct VerifyOptions {
  std::string tree;
  std::vector<const fips_tv*> suites;
  bool allow_missing = false;     // a request without response is not a FAIL
  bool require_evidence = false;  // a response without evidence is a FAIL
  bool partial = false;  // the requests were shortened (Monte Carlo tests cut
                         // to their first section): a response may end
                         // before its expected-answer file does; it must
                         // still answer every test of its request
  std::string responses = {};  // where the responses are (run --output); empty:
                               // in the tree
};

// One verdict line: a file's (dir and name), or the tree's when nothing was
// checked (both "").
struct FileVerdict {
  std::string dir;
  std::string name;
  std::string verdict;  // "PASS", "FAIL", "COMPLETE", "STOPPED" or "SKIP"
  std::string note;     // what was checked, or why it failed
  // Whether the response is the one its folder's evidence records for this
  // very request: "recorded", "no evidence", "contradicted", or "" when no
  // response was judged.
  std::string provenance;
  double seconds = 0;
};

struct VerifyTally {
  int passed = 0;         // complete, and every answer matched or checked
  int failed = 0;         // includes "nothing was checked"
  int complete_only = 0;  // complete, without expected answers to compare
  int stopped = 0;        // the SigVer runner's response, which by design
                          // ends at the first test
  int missing = 0;        // requests without a response (--allow-missing)
  int no_evidence = 0;    // responses judged without evidence
  std::vector<FileVerdict> files;  // in the order of the lines printed
};

// Prints one verdict line per file (PASS, FAIL, COMPLETE, STOPPED or SKIP)
// and a closing line that begins "N passed, M failed" to out. Fails (with
// a line saying so) when nothing at all was checked.
VerifyTally VerifyTree(const VerifyOptions& options, std::FILE* out);

struct Comparison {
  Status status;         // the first difference
  int lines = 0;         // non-blank lines compared
  int not_compared = 0;  // answers that cannot be compared (see below)
};

// Compares a response's text with its expected answers. For a request of
// DRBG sections, the ReturnedBits values of sections other than
// "[AES-256 use df]" are not compared: the runner answers every test with
// AES-256 and a derivation function, while the expected file holds the
// answers of the mechanism each section names.
Comparison CompareWithExpected(const RequestShape& shape,
                               std::string_view response,
                               std::string_view expected, bool partial);

}  // namespace fipsval::host
