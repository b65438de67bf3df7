// What `fipsval run` shows on the console: while the run goes, the suites'
// titles (each once), the runners' progress and errors, and the suite and
// file being answered; after it, one line per request file, the files no
// suite reads, and the totals.
#pragma once

#include <cstdio>
#include <set>
#include <string>

#include "host/run/run_result.h"

namespace fipsval::host {

class RunConsole : public RunObserver {
 public:
  // The library's lines go to `out` at verbosity 2 (-v, which also names
  // the staging); below, only its errors that belong to no file (a file's
  // own are in its summary line). `progress` puts the suite, file and
  // elapsed time on standard error.
  RunConsole(std::FILE* out, int verbosity, bool progress)
      : out_(out), verbosity_(verbosity), progress_(progress) {}

  void Planned(const RunResult& run) override;
  void Staged(const char* how) override;
  void FileBegun(const FileRun& file, double suite_seconds) override;
  void SuiteDone(const fips_tv& suite, double seconds) override;
  void Printed(const FileRun* file, LineKind kind,
               std::string_view line) override;

 private:
  std::FILE* out_;
  int verbosity_;
  bool progress_;
  std::set<std::string> titles_;  // "<suite>/<title>" already shown
};

// After the run, on standard output: at verbosity 0 only the files with a
// problem, at 1 every file of the tree, at 2 also those its suites read
// that the tree lacks ("not in tree"); the files no suite reads (from 1);
// and a line of totals naming the folders that received responses. What went wrong with the run as a whole goes to standard error
// ("fipsval: ..."); a run that did not start has nothing else to say.
void PrintRunSummary(const RunResult& run, int verbosity);

}  // namespace fipsval::host
