#include "host/report/run_console.h"

#include <set>

#include "host/base/paths.h"
#include "host/base/text.h"

namespace fipsval::host {
namespace {

const char* Label(FileOutcome outcome) {
  switch (outcome) {
    case FileOutcome::kAnswered:
      return "answered";
    case FileOutcome::kRunnerError:
      return "runner error";
    case FileOutcome::kNotAnswered:
      break;
  }
  return "not answered";
}

// Files absent from the tree were not asked for: they are counted, and
// listed only with -v.
void PrintFiles(const RunResult& run, int verbosity) {
  for (const FileRun& file : run.files) {
    if (file.plan == FilePlan::kAbsent) {
      if (verbosity >= 2) {
        std::printf("%-12s %s\n", "not in tree", file.request_path.c_str());
      }
      continue;
    }
    if (verbosity == 0 && file.outcome == FileOutcome::kAnswered) continue;
    std::printf("%-12s %s%s%s\n", Label(file.outcome),
                file.request_path.c_str(), file.message.empty() ? "" : ": ",
                file.message.c_str());
  }
}

// "ROOT/A/resp, ROOT/B/resp": the folders that received responses.
std::string ResponseFolders(const RunResult& run) {
  std::set<std::string> dirs;
  for (const FileRun& file : run.files) {
    if (file.written) dirs.insert(file.dir);
  }
  std::string list;
  for (const std::string& dir : dirs) {
    list += (list.empty() ? "" : ", ") +
            JoinPath(JoinPath(run.responses, dir), "resp");
  }
  return list.empty() ? run.responses : list;
}

}  // namespace

void RunConsole::Planned(const RunResult& run) {
  for (const FileRun& file : run.files) {
    for (const RequestFinding& finding : file.findings) {
      std::fprintf(stderr, "fipsval: warning: %s line %d: %s\n",
                   file.request_path.c_str(), finding.line,
                   finding.cause.c_str());
    }
  }
}

void RunConsole::Staged(const char* how) {
  if (verbosity_ >= 2) std::fprintf(stderr, "fipsval: staging: %s\n", how);
}

void RunConsole::FileBegun(const FileRun& file, double suite_seconds) {
  if (progress_) {
    std::fprintf(stderr, "[%s] %s (%.1f s)\n", file.suite->name,
                 file.name.c_str(), suite_seconds);
  }
}

void RunConsole::SuiteDone(const fips_tv& suite, double seconds) {
  if (progress_) {
    std::fprintf(stderr, "[%s] done in %.1f s\n", suite.name, seconds);
  }
}

// The suites' own lines (titles, progress) only with -v: by default a run
// says what happened to each file, and a runner's errors are in its line.
void RunConsole::Printed(const FileRun* file, LineKind kind,
                         std::string_view line) {
  if (verbosity_ < 2 && (kind != LineKind::kRunnerError || file)) return;
  // A suite prints its titles again for each file staged alone.
  if (kind == LineKind::kTitle &&
      !titles_.insert(std::string(file->suite->name) + "/" + std::string(line))
           .second) {
    return;
  }
  std::fprintf(out_, "%s\n", Printable(line).c_str());
}

void PrintRunSummary(const RunResult& run, int verbosity) {
  if (!run.refusal.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", run.refusal.message().c_str());
    return;
  }
  if (!run.record.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", run.record.message().c_str());
  }
  PrintFiles(run, verbosity);
  if (verbosity >= 1) {
    for (const std::string& path : run.unhandled) {
      std::printf("%-12s %s: no suite reads this file\n", "not handled",
                  path.c_str());
    }
  }
  const RunCounts counts = run.Counts();
  std::printf(
      "run: %d answered, %d runner errors, %d not answered, %d without request "
      "file, %zu not handled; %d responses written to %s in %.1f s\n",
      counts.answered, counts.runner_errors, counts.not_answered,
      counts.without_request, run.unhandled.size(), counts.written,
      ResponseFolders(run).c_str(), run.seconds);
  std::fflush(stdout);
  if (run.NothingRun()) {
    std::fprintf(stderr,
                 "fipsval: no request file of the selected suites could be "
                 "run\n");
  }
}

}  // namespace fipsval::host
