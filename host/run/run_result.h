// What a run did, as data: every request file of the selected suites with
// its plan, its outcome, the runner's own lines and its time, and what went
// wrong with the run as a whole. The engine (tree_engine.h) fills it; the
// console, the JSON and JUnit reports, the run record and `fipsval acvp`
// only read it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/base/clock.h"
#include "host/base/status.h"
#include "host/catalog/runner_profiles.h"

namespace fipsval::host {

enum class FilePlan {
  kRun,      // read and checked: staged alone for its suite
  kAbsent,   // its suite reads it, the tree does not have it
  kRefused,  // not run: unreadable, or the library cannot read it right
};

enum class FileOutcome { kAnswered, kRunnerError, kNotAnswered };

// "answered", "runner-error", "not-answered"
const char* OutcomeName(FileOutcome outcome);

// A line of a request that the library's reader cannot read right.
struct RequestFinding {
  int line = 0;  // 1-based
  std::string cause;
};

struct FileRun {
  const fips_tv* suite = nullptr;
  const RequestProfile* profile = nullptr;  // null: no profile knows it
  std::string dir;
  std::string name;
  std::string request_path;  // as the user knows them
  std::string response_path;
  FilePlan plan = FilePlan::kAbsent;
  std::string request;  // the request text, while it is to be run
  std::vector<RequestFinding> findings;
  FileOutcome outcome = FileOutcome::kNotAnswered;
  // The runner's own lines (the first few), or why it was not answered.
  std::string message;
  std::vector<std::string> runner_lines;  // all it printed for this file
  bool begun = false;    // its suite started on it
  bool ended = false;    // and came back
  bool written = false;  // its response was put in place
  std::string made;             // UTC, when it came back
  std::string request_sha256;   // of the request it was given
  std::string response_sha256;  // of the response put in place
  SteadyTime begun_at;
  double seconds = 0;
};

struct RunCounts {
  int answered = 0;
  int runner_errors = 0;
  int not_answered = 0;
  int without_request = 0;  // its suite reads it, the tree lacks it
  int written = 0;          // responses put in place
};

struct RunResult {
  std::string tree;       // as given
  std::string responses;  // the response root, as given
  std::string command;    // the command line that asked for the run
  std::string version;    // the program's and library's version
  std::string started;    // UTC
  std::string finished;   // UTC, once the run has ended
  double seconds = 0;
  std::vector<FileRun> files;  // every file of the selected suites, once
  std::vector<std::string> unhandled;  // request files no suite reads
  Status refusal;  // why the run did not start (then nothing was run)
  Status stopped;  // the suites' process ended before its work was done
  Status record;   // the evidence could not be written at the end

  RunCounts Counts() const;
  // Nothing of the selected suites was run.
  bool NothingRun() const;
  // What went wrong with the run as a whole (the first of the above), or ok.
  Status Problem() const;
  // Every request file present was answered, and nothing went wrong.
  bool Succeeded() const;
  // The file `dir`/`name`, or nullptr.
  const FileRun* Find(std::string_view dir, std::string_view name) const;
};

// What a run says while it goes, for a console; the default says nothing.
enum class LineKind { kTitle, kProgress, kRunnerError };

class RunObserver {
 public:
  virtual ~RunObserver() = default;
  // The files are read and checked; nothing has run yet.
  virtual void Planned(const RunResult& /*run*/) {}
  // How "/tmp/req" and "/tmp/resp" are protected (private_staging.h).
  virtual void Staged(const char* /*how*/) {}
  virtual void FileBegun(const FileRun& /*file*/, double /*suite_seconds*/) {}
  virtual void SuiteDone(const fips_tv& /*suite*/, double /*seconds*/) {}
  // A line the library printed, and the file it belongs to (or none).
  virtual void Printed(const FileRun* /*file*/, LineKind /*kind*/,
                       std::string_view /*line*/) {}
};

}  // namespace fipsval::host
