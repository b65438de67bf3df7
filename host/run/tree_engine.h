// Running the library's suites over a lab's CAVP tree. Each request
// <tree>/<DIR>/req/<name>.req is read without following links, checked, and
// staged alone into a private "/tmp/req" (see private_staging.h); the suite
// runs in a child process whose console output is sorted into progress and
// runner errors per file; the response is written to
// <root>/<DIR>/resp/<name>.rsp by a rename, root being the output directory
// or the tree. A summary line per request file and the run record
// <root>/fipsval-run.json say what was answered.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/run/run_report.h"

namespace fipsval::host {

// What a run did, for a machine-readable report: the request files present
// (each with its outcome and the seconds its suite spent on it), the totals
// the summary line prints, and why the run could not start or went wrong.
struct RunResult {
  std::vector<FileRecord> files;
  int answered = 0;
  int runner_errors = 0;
  int not_answered = 0;
  int without_request = 0;             // listed by a suite, absent from the tree
  std::vector<std::string> unhandled;  // request files no suite reads
  int written = 0;                     // responses put in place
  std::string responses;               // the response root
  std::string error;                   // "" or the run's own failure
};

struct RunOptions {
  std::string tree;
  std::vector<const fips_tv*> suites;
  bool progress = false;  // suite, file and elapsed time on standard error
  std::string output;     // response root; empty: the tree itself
  int verbosity = 1;      // 0: problems and totals only; 2: suite titles too
  RunResult* result = nullptr;  // filled in when given
};

// Returns 0 when every request file present in the tree for the selected
// suites was answered without a runner error; 1 otherwise (a file refused,
// not answered, a runner error, or a run that could not start, said in one
// line). Request files missing from the tree are listed, not run.
int RunTree(const RunOptions& options);

// True when <tree>/<DIR>/req exists for at least one of the suites.
bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites);

}  // namespace fipsval::host
