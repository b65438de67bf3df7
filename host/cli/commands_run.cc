// The validation commands: entropy, run, list.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/cli/cli.h"
#include "host/run/entropy_export.h"
#include "host/run/tree_engine.h"
#include "host/platform/host_settings.h"
#include "host/report/result_report.h"
#include "host/catalog/suite_catalog.h"
#include "host/verify/verify.h"

namespace fipsval::host {

namespace fs = std::filesystem;

int RunEntropy(const Args& args) {
  int count = 0;
  std::string output;
  std::vector<std::string> rest;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--output") {
      if (i + 1 == args.size()) {
        return Usage("entropy: --output needs a directory");
      }
      output = args[++i];
    } else {
      rest.push_back(args[i]);
    }
  }
  if (rest.size() != 1 || !ParseInt(rest[0], &count)) {
    return Usage(
        "entropy: give the number of samples, e.g. fipsval entropy 1000");
  }
  return Finish(ExportEntropy(count, output) == 0 ? kOk : kFailed);
}

SuiteSelection SelectSuites(const Args& args, const char* command) {
  SuiteSelection s;
  bool chosen = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if ((arg == "--list" || arg == "--suite") && i + 1 == args.size()) {
      s.error = Usage(std::string(command) + ": " + arg + " needs a name");
      return s;
    }
    if (arg == "--list") {
      const auto list = SuitesOfList(args[++i]);
      if (list.empty()) {
        s.error = Usage("unknown list (use ops, ssl, rbg, wf or all): ", args[i]);
        return s;
      }
      s.suites.insert(s.suites.end(), list.begin(), list.end());
      chosen = true;
    } else if (arg == "--suite") {
      const fips_tv* suite = FindSuite(args[++i]);
      if (!suite) {
        s.error = Usage("unknown suite (one of " +
                            std::string(SuiteNamesForHelp()) + "): ",
                        args[i]);
        return s;
      }
      s.suites.push_back(suite);
      chosen = true;
    } else {
      s.rest.push_back(arg);
    }
  }
  if (!chosen) s.suites = AllSuites();
  return s;
}

namespace {

std::string SamplesWorkTree() { return Settings().data_dir + "/sample-run"; }

// Copies the bundled sample requests into a fresh working tree.
bool PrepareSampleTree(std::string* tree) {
  const fs::path samples = Settings().samples_dir;
  std::error_code ec;
  if (!fs::is_directory(samples, ec)) {
    std::fprintf(stderr, "fipsval: the bundled samples are missing (%s)\n",
                 samples.c_str());
    return false;
  }
  *tree = SamplesWorkTree();
  // One sample run at a time: a second one would remove the first's tree.
  static int lock = -1;
  lock = open((*tree + ".lock").c_str(),
              O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
    std::fprintf(stderr, "fipsval: cannot lock %s.lock: %s\n", tree->c_str(),
                 errno == EWOULDBLOCK ? "another sample run is in progress"
                                      : std::strerror(errno));
    return false;
  }
  fs::remove_all(*tree, ec);
  fs::create_directories(*tree, ec);
  if (!ec) fs::copy(samples, *tree, fs::copy_options::recursive, ec);
  if (ec) {
    std::fprintf(stderr, "fipsval: cannot prepare %s: %s\n", tree->c_str(),
                 ec.message().c_str());
    return false;
  }
  return true;
}

}  // namespace

int RunRun(const Args& args) {
  SuiteSelection s = SelectSuites(args, "run");
  if (s.error) return s.error;
  RunOptions options;
  options.suites = s.suites;
  bool verify = false, strict = false, partial = false;
  std::vector<std::string> trees;
  ReportPaths reports;
  for (std::size_t i = 0; i < s.rest.size(); ++i) {
    const std::string& arg = s.rest[i];
    if (arg == "--output") {
      if (i + 1 == s.rest.size()) {
        return Usage("run: --output needs a directory");
      }
      options.output = s.rest[++i];
    } else if (arg == "--json" || arg == "--junit") {
      if (i + 1 == s.rest.size()) return Usage("run: " + arg + " needs a file");
      (arg == "--json" ? reports.json : reports.junit) = s.rest[++i];
    } else if (arg == "--verify") {
      verify = true;
    } else if (arg == "--strict" || arg == "--partial") {
      (arg == "--strict" ? strict : partial) = true;
    } else if (arg == "-q" || arg == "--quiet") {
      Settings().verbosity = 0;
    } else if (arg == "-v" || arg == "--verbose") {
      Settings().verbosity = 2;
    } else if (arg.starts_with("-")) {
      return Usage("run: unknown option ", arg);
    } else if (!trees.empty()) {
      return Usage("run: more than one CAVP_DIR: ", arg);
    } else {
      trees.push_back(arg);
    }
  }
  if ((strict || partial) && !verify) {
    return Usage("run: --strict and --partial go with --verify");
  }
  std::string why;
  if (!CheckReportPaths(reports, &why)) {
    std::fprintf(stderr, "fipsval: %s\n", why.c_str());
    return kFailed;
  }
  options.verbosity = Settings().verbosity;
  options.progress = options.verbosity >= 2 ||
                     (options.verbosity == 1 && isatty(STDERR_FILENO));
  const bool samples = trees.empty();
  ResultReport report;
  report.version = ProgramVersion();
  if (samples) {
    verify = true;
    if (!PrepareSampleTree(&options.tree)) {
      report.command = "run --verify";
      report.tree = Settings().samples_dir;
      report.responses = SamplesWorkTree();
      report.error = "the sample run could not be prepared in " +
                     report.responses;
      return FinishReport(&report, reports, kFailed);
    }
  } else {
    options.tree = trees[0];
  }
  report.command = verify ? "run --verify" : "run";
  report.tree = options.tree;
  report.responses = options.output.empty() ? options.tree : options.output;
  VerifyOptions check{options.tree, options.suites, strict, partial};
  check.responses = options.output;
  RunResult run;
  options.result = &run;
  const int status = RunTree(options);
  report.run = &run;
  report.run_seconds = ElapsedSeconds(report.start);
  if (!verify) {
    return FinishReport(&report, reports, Finish(status == 0 ? kOk : kFailed));
  }
  const auto verify_start = std::chrono::steady_clock::now();
  const VerifyTally tally = VerifyTree(check, stdout);
  report.verify = &tally;
  report.verify_seconds = ElapsedSeconds(verify_start);
  return FinishReport(&report, reports,
                      Finish(status == 0 && tally.failed == 0 ? kOk : kFailed));
}

int RunList(const Args& args) {
  if (!args.empty()) return Usage("list: unexpected argument ", args[0]);
  for (const fips_tv* suite : AllSuites()) {
    std::printf("%-12s %-12s", suite->name, suite->dir);
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      std::printf(" %s", *name);
    }
    std::printf("\n");
  }
  std::printf("lists: ops, ssl, rbg, wf, all\n");
  return kOk;
}

}  // namespace fipsval::host
