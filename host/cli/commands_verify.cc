// The verify command.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "host/cli/cli.h"
#include "host/report/result_report.h"
#include "host/verify/verify.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;

// Parses the options after the suite selection; kOk, or the usage status.
int ParseVerify(const Args& rest, VerifyOptions* options, ReportPaths* reports) {
  std::vector<std::string> trees;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    const std::string& arg = rest[i];
    const bool has_value = i + 1 < rest.size();
    if (arg == "--json" || arg == "--junit") {
      if (!has_value) return Usage("verify: " + arg + " needs a file");
      (arg == "--json" ? reports->json : reports->junit) = rest[++i];
    } else if (arg == "--strict") {
      // The default now: kept so that existing scripts still run.
    } else if (arg == "--allow-missing") {
      options->allow_missing = true;
    } else if (arg == "--require-evidence") {
      options->require_evidence = true;
    } else if (arg == "--partial") {
      options->partial = true;
    } else if (arg == "--output") {
      if (!has_value) return Usage("verify: --output needs a directory");
      options->responses = rest[++i];
    } else if (arg.starts_with("-")) {
      return Usage("verify: unknown option ", arg);
    } else {
      trees.push_back(arg);
    }
  }
  if (trees.size() != 1) return Usage("verify: give one CAVP tree");
  options->tree = trees[0];
  return kOk;
}

}  // namespace

int RunVerify(const Args& args) {
  const SuiteSelection s = SelectSuites(args, "verify");
  if (s.error) return s.error;
  VerifyOptions options;
  options.suites = s.suites;
  ReportPaths reports;
  if (const int usage = ParseVerify(s.rest, &options, &reports); usage != kOk) {
    return usage;
  }
  if (Status paths = CheckReportPaths(reports); !paths.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", paths.message().c_str());
    return kFailed;
  }
  ResultReport report;
  report.version = ProgramVersion();
  report.command = "verify";
  report.tree = options.tree;
  report.responses = options.responses.empty() ? options.tree : options.responses;
  for (const std::string* dir : {&options.tree, &options.responses}) {
    std::error_code ec;
    if (!dir->empty() && !fs::is_directory(*dir, ec)) {
      report.status = Refused(*dir + " is not a directory");
      std::fprintf(stderr, "fipsval: %s\n", report.status.message().c_str());
      return FinishReport(&report, reports, kFailed);
    }
  }
  const VerifyTally tally = VerifyTree(options, stdout);
  report.verify = &tally;
  report.verify_seconds = SecondsSince(report.start);
  return FinishReport(&report, reports, tally.failed == 0 ? kOk : kFailed);
}

}  // namespace fipsval::host
