// The machine-readable result of `run`, `verify` and `run --verify`, and of
// `acvp` and `acvp --check`: one JSON document (its schema is
// doc/fipsval-result.schema.json, doc/fipsval-acvp.schema.json) and a JUnit
// XML file, each written only where the user asked (--json FILE,
// --junit FILE), by a temporary file renamed into place.
#pragma once

#include <string>

#include "host/acvp/tally.h"
#include "host/base/clock.h"
#include "host/base/status.h"
#include "host/run/run_result.h"
#include "host/verify/verify.h"

namespace fipsval::host {

struct ReportPaths {
  std::string json;   // "" when not asked for
  std::string junit;  // "" when not asked for
};

// Checks, before any work, that each path names a file in a directory that
// exists ("... the directory X does not exist").
Status CheckReportPaths(const ReportPaths& paths);

struct ResultReport {
  std::string version;
  std::string command;  // "run", "verify", "run --verify", "acvp", "acvp --check"
  std::string tree;       // acvp: the prompt, expected results or directory given
  std::string responses;  // acvp: "" for standard output
  std::string started = UtcStamp();
  SteadyTime start = Now();
  std::string finished;  // set by FinishReport, with seconds
  double seconds = 0;
  const RunResult* run = nullptr;  // the phases that happened
  double run_seconds = 0;
  const VerifyTally* verify = nullptr;
  double verify_seconds = 0;
  const acvp::AcvpTally* acvp = nullptr;
  Status status;  // why the command could not do its work
  int exit_status = 0;
};

std::string ResultJson(const ResultReport& report);
std::string ResultJunit(const ResultReport& report);  // junit.cc

// Sets the end, the exit status and the paths' absolute forms, then writes
// the reports the paths ask for, saying on standard error what could not
// be written ("fipsval: cannot write the report FILE: why"). Returns the
// exit status: `status`, or 1 instead of 0 when a report could not be
// written; then every report that was written says so too (its exit status
// and its error), and one that cannot be rewritten is removed.
int FinishReport(ResultReport* report, const ReportPaths& paths, int status);

}  // namespace fipsval::host
