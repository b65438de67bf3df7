// What the fipsval commands share: exit statuses, usage errors, and the
// command table entries that each commands_*.cc file provides.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"

namespace fipsval::host {

inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;
inline constexpr int kErrorMode = 3;

using Args = std::vector<std::string>;

// Prints "fipsval: <message><detail> (see fipsval --help)" and returns kUsage.
int Usage(const std::string& message, const std::string& detail = "");

// The exit status after a library call: the error mode wins.
int Finish(int status);

// A whole decimal int, nothing else.
bool ParseInt(std::string_view text, int* out);

// main.cc: the project's version ("fipsval --version").
const char* ProgramVersion();
// main.cc: the command line as given, for the evidence of a run.
const std::string& CommandLine();

// commands_selftest.cc
int RunSelftest(const Args& args);
int RunCheckConfig(const Args& args);
int RunUpdateConfig(const Args& args);
int RunKat(const Args& args);

// commands_run.cc
int RunEntropy(const Args& args);
int RunRun(const Args& args);
int RunList(const Args& args);

struct SuiteSelection {
  std::vector<const fips_tv*> suites;
  std::vector<std::string> rest;
  int error = kOk;
};

// Parses --list NAME and --suite NAME (repeatable); keeps other arguments.
SuiteSelection SelectSuites(const Args& args, const char* command);

// commands_verify.cc
int RunVerify(const Args& args);

// commands_acvp.cc
int RunAcvp(const Args& args);

}  // namespace fipsval::host
