#include "host/run/run_result.h"

#include <algorithm>

namespace fipsval::host {

const char* OutcomeName(FileOutcome outcome) {
  switch (outcome) {
    case FileOutcome::kAnswered:
      return "answered";
    case FileOutcome::kRunnerError:
      return "runner-error";
    case FileOutcome::kNotAnswered:
      break;
  }
  return "not-answered";
}

RunCounts RunResult::Counts() const {
  RunCounts counts;
  for (const FileRun& file : files) {
    counts.written += file.written ? 1 : 0;
    if (file.plan == FilePlan::kAbsent) {
      ++counts.without_request;
    } else if (file.outcome == FileOutcome::kAnswered) {
      ++counts.answered;
    } else if (file.outcome == FileOutcome::kRunnerError) {
      ++counts.runner_errors;
    } else {
      ++counts.not_answered;
    }
  }
  return counts;
}

bool RunResult::NothingRun() const {
  return std::none_of(files.begin(), files.end(), [](const FileRun& file) {
    return file.plan == FilePlan::kRun;
  });
}

Status RunResult::Problem() const {
  for (const Status* status : {&refusal, &stopped, &record}) {
    if (!status->ok()) return *status;
  }
  if (NothingRun()) {
    return Failed("no request file of the selected suites could be run");
  }
  return Ok();
}

bool RunResult::Succeeded() const {
  return Problem().ok() &&
         std::all_of(files.begin(), files.end(), [](const FileRun& file) {
           return file.plan == FilePlan::kAbsent ||
                  file.outcome == FileOutcome::kAnswered;
         });
}

const FileRun* RunResult::Find(std::string_view dir,
                               std::string_view name) const {
  for (const FileRun& file : files) {
    if (file.dir == dir && file.name == name) return &file;
  }
  return nullptr;
}

}  // namespace fipsval::host
