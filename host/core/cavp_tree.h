// Running the library's suites over a lab's CAVP tree: request files are
// staged from <tree>/<DIR>/req into "/tmp/req", the suite runs, and its
// responses are collected from "/tmp/resp" into <tree>/<DIR>/resp.
#pragma once

#include <string>
#include <vector>

#include "fipsval.h"

namespace fipsval::host {

struct RunOptions {
  std::string tree;
  std::vector<const fips_tv*> suites;
  bool progress = false;  // suite, file and elapsed time on standard error
};

// Returns 0 when every selected suite ran and its responses were collected;
// otherwise prints one line saying what stopped the run and returns 1.
// A request file missing from the tree is not staged, so the library
// reports it ("Couldn't open …") and goes on, as it does for a host.
int RunTree(const RunOptions& options);

// True when <tree>/<DIR>/req exists for at least one of the suites.
bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites);

}  // namespace fipsval::host
