// The verify command.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "host/cli/cli.h"
#include "host/report/result_report.h"
#include "host/verify/verify.h"

namespace fipsval::host {

namespace fs = std::filesystem;

int RunVerify(const Args& args) {
  SuiteSelection s = SelectSuites(args, "verify");
  if (s.error) return s.error;
  VerifyOptions options;
  options.suites = s.suites;
  std::vector<std::string> trees;
  ReportPaths reports;
  for (std::size_t i = 0; i < s.rest.size(); ++i) {
    const std::string& arg = s.rest[i];
    if (arg == "--json" || arg == "--junit") {
      if (i + 1 == s.rest.size()) return Usage("verify: " + arg + " needs a file");
      (arg == "--json" ? reports.json : reports.junit) = s.rest[++i];
    } else if (arg == "--strict") {
      options.strict = true;
    } else if (arg == "--partial") {
      options.partial = true;
    } else if (arg == "--output") {
      if (i + 1 == s.rest.size()) return Usage("verify: --output needs a directory");
      options.responses = s.rest[++i];
    } else if (arg.starts_with("-")) {
      return Usage("verify: unknown option ", arg);
    } else {
      trees.push_back(arg);
    }
  }
  if (trees.size() != 1) return Usage("verify: give one CAVP tree");
  options.tree = trees[0];
  std::string why;
  if (!CheckReportPaths(reports, &why)) {
    std::fprintf(stderr, "fipsval: %s\n", why.c_str());
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
      report.error = *dir + " is not a directory";
      std::fprintf(stderr, "fipsval: %s\n", report.error.c_str());
      return FinishReport(&report, reports, kFailed);
    }
  }
  const VerifyTally tally = VerifyTree(options, stdout);
  report.verify = &tally;
  report.verify_seconds = ElapsedSeconds(report.start);
  return FinishReport(&report, reports, tally.failed == 0 ? kOk : kFailed);
}

}  // namespace fipsval::host
