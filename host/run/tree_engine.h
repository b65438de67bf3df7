// Running the library's suites over a lab's CAVP tree. The request files
// are planned (run_plan.h) and each one staged alone into a private
// "/tmp/req" (private_staging.h); the suites run in a child process whose
// console output is sorted per file (console_sorter.h); a response is put
// in place as <root>/<DIR>/resp/<name>.rsp by a rename, root being the
// output directory or the tree, read back and checked for completeness, and
// recorded in its folder's evidence (evidence.h). The engine prints
// nothing: the RunResult says what happened, an observer hears it as it
// goes.
#pragma once

#include <string>
#include <vector>

#include "fipsval.h"
#include "host/run/run_result.h"

namespace fipsval::host {

struct RunOptions {
  std::string tree = {};
  std::vector<const fips_tv*> suites = {};
  std::string output = {};          // response root; empty: the tree itself
  std::string command = {};         // for the evidence: the command line
  std::string version = {};         // and the program's version
  bool accept_lf = false;           // LF-only requests are converted
  RunObserver* observer = nullptr;  // none: the run is silent
};

RunResult RunTree(const RunOptions& options);

// True when <tree>/<DIR>/req exists for at least one of the suites.
bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites);

}  // namespace fipsval::host
