// The run record "fipsval-run.json" that a run leaves beside its responses
// and that `verify` reads: each request file's outcome, and whether the run
// finished.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/run/run_report.h"

namespace fipsval::host {

struct RunRecord {
  std::string tree;  // absolute
  std::string started;
  std::optional<std::string> finished;
  std::vector<FileRecord> files;
};

// "2026-11-23T11:43:32Z"
std::string UtcNow();

std::string RunRecordJson(const RunRecord& record);

inline constexpr const char* kRunRecordName = "fipsval-run.json";

}  // namespace fipsval::host
