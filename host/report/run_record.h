// The run record "fipsval-run.json" that a run leaves beside its responses
// and that `verify` reads: when the run started and whether it finished,
// the tree it answered, and each request file's outcome.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "host/base/status.h"
#include "host/run/run_result.h"

namespace fipsval::host {

inline constexpr const char* kRunRecordName = "fipsval-run.json";

// The record of the run as it stands: "finished" is null until it has
// finished; every file of the selected suites is listed, absent ones too.
std::string RunRecordJson(const RunResult& run);

struct RecordedFile {
  std::string outcome;  // "answered", "runner-error", "not-answered"
  std::string message;
};

struct RunRecord {
  std::string tree;  // "" when the record names none
  std::string started;
  bool finished = false;
  std::map<std::string, RecordedFile> files;  // by "<DIR>/<name>"
};

// Reads a record's text; refused when it is not a record this program
// wrote.
Status ParseRunRecord(std::string_view text, RunRecord* record);

}  // namespace fipsval::host
