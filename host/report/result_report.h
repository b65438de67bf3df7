// The machine-readable result of `run`, `verify` and `run --verify`: one
// JSON document (its schema is doc/fipsval-result.schema.json) and a JUnit
// XML file, each written only where the user asked (--json FILE,
// --junit FILE), by a temporary file renamed into place.
#pragma once

#include <chrono>
#include <string>

#include "host/run/tree_engine.h"
#include "host/report/run_record.h"
#include "host/run/run_report.h"
#include "host/verify/verify.h"

namespace fipsval::host {

struct ReportPaths {
  std::string json;   // "" when not asked for
  std::string junit;  // "" when not asked for
};

// Checks, before any work, that each path names a file in a directory that
// exists. False with the reason ("... the directory X does not exist").
bool CheckReportPaths(const ReportPaths& paths, std::string* why);

struct ResultReport {
  std::string version;
  std::string command;  // "run", "verify" or "run --verify"
  std::string tree;
  std::string responses;
  std::string started = UtcNow();
  std::chrono::steady_clock::time_point start =
      std::chrono::steady_clock::now();
  std::string finished;  // set by FinishReport, with seconds
  double seconds = 0;
  const RunResult* run = nullptr;  // the phases that happened
  double run_seconds = 0;
  const VerifyTally* verify = nullptr;
  double verify_seconds = 0;
  std::string error;  // why the command could not do its work, or ""
  int exit_status = 0;
};

std::string ResultJson(const ResultReport& report);
std::string ResultJunit(const ResultReport& report);

// Writes the documents the paths ask for. On a failure, says so on
// standard error ("fipsval: cannot write the report FILE: why") and
// returns false.
bool WriteReports(const ResultReport& report, const ReportPaths& paths);

// Sets the end, the exit status and the paths' absolute forms, then writes
// the reports. Returns the status, or 1 instead of 0 when a report could
// not be written.
int FinishReport(ResultReport* report, const ReportPaths& paths, int status);

double ElapsedSeconds(std::chrono::steady_clock::time_point start);

// The path made absolute (links resolved when it exists), for the report.
std::string AbsolutePath(const std::string& path);

}  // namespace fipsval::host
