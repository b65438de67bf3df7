// The validation commands: entropy, run, list.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/catalog/suite_catalog.h"
#include "host/cli/cli.h"
#include "host/platform/host_settings.h"
#include "host/report/result_report.h"
#include "host/report/run_console.h"
#include "host/run/entropy_export.h"
#include "host/run/tree_engine.h"
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
  if (count < 1) {
    return Usage("entropy: the number of samples must be at least 1, not ",
                 rest[0]);
  }
  const Status exported = ExportEntropy(count, output);
  if (!exported.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", exported.message().c_str());
    return Finish(kFailed);
  }
  std::fprintf(stderr, "fipsval: %d samples of 640 bytes in %s/entropy_samples\n",
               count, EntropyTarget(output).c_str());
  return Finish(kOk);
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
Status PrepareSampleTree(std::string* tree) {
  const fs::path samples = Settings().samples_dir;
  std::error_code ec;
  if (!fs::is_directory(samples, ec)) {
    return Missing("the bundled samples are missing (" + samples.string() + ")");
  }
  *tree = SamplesWorkTree();
  // One sample run at a time: a second one would remove the first's tree.
  static int lock = -1;
  lock = open((*tree + ".lock").c_str(),
              O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    return Status(error == EWOULDBLOCK ? StatusKind::kBusy : StatusKind::kFailed,
                  "cannot lock " + *tree + ".lock: " +
                      (error == EWOULDBLOCK ? "another sample run is in progress"
                                            : std::strerror(error)));
  }
  fs::remove_all(*tree, ec);
  fs::create_directories(*tree, ec);
  if (!ec) fs::copy(samples, *tree, fs::copy_options::recursive, ec);
  if (ec) return Failed("cannot prepare " + *tree + ": " + ec.message());
  return Ok();
}

// What `run` was asked to do.
struct RunRequest {
  RunOptions run;
  VerifyOptions check;
  bool verify = false;
  std::vector<std::string> trees;
  ReportPaths reports;
};

// Parses the options after the suite selection; kOk, or the usage status.
int ParseRun(const Args& rest, RunRequest* request) {
  for (std::size_t i = 0; i < rest.size(); ++i) {
    const std::string& arg = rest[i];
    const bool has_value = i + 1 < rest.size();
    if (arg == "--output") {
      if (!has_value) return Usage("run: --output needs a directory");
      request->run.output = rest[++i];
    } else if (arg == "--json" || arg == "--junit") {
      if (!has_value) return Usage("run: " + arg + " needs a file");
      (arg == "--json" ? request->reports.json : request->reports.junit) = rest[++i];
    } else if (arg == "--verify") {
      request->verify = true;
    } else if (arg == "--accept-lf") {
      request->run.accept_lf = true;
    } else if (arg == "--strict" || arg == "--require-evidence" ||
               arg == "--partial") {
      // --strict: the default now, kept for existing scripts.
      if (arg == "--partial") request->check.partial = true;
      if (arg == "--require-evidence") request->check.require_evidence = true;
    } else if (arg.starts_with("-")) {
      return Usage("run: unknown option ", arg);
    } else if (!request->trees.empty()) {
      return Usage("run: more than one CAVP_DIR: ", arg);
    } else {
      request->trees.push_back(arg);
    }
  }
  if ((request->check.require_evidence || request->check.partial) &&
      !request->verify) {
    return Usage("run: --require-evidence and --partial go with --verify");
  }
  return kOk;
}

// Runs the tree, and verifies it when asked; the exit status.
int RunAndVerify(RunRequest& request, ResultReport& report) {
  const int verbosity = Settings().verbosity;
  RunConsole console(stdout, verbosity,
                     verbosity >= 2 || (verbosity == 1 && isatty(STDERR_FILENO)));
  request.run.observer = &console;
  const RunResult run = RunTree(request.run);
  PrintRunSummary(run, verbosity);
  report.run = &run;
  report.run_seconds = SecondsSince(report.start);
  if (!request.verify) {
    return FinishReport(&report, request.reports,
                        Finish(run.Succeeded() ? kOk : kFailed));
  }
  request.check.tree = request.run.tree;
  request.check.suites = request.run.suites;
  request.check.responses = request.run.output;
  const SteadyTime verify_start = Now();
  const VerifyTally tally = VerifyTree(request.check, stdout);
  report.verify = &tally;
  report.verify_seconds = SecondsSince(verify_start);
  return FinishReport(
      &report, request.reports,
      Finish(run.Succeeded() && tally.failed == 0 ? kOk : kFailed));
}

}  // namespace

int RunRun(const Args& args) {
  const SuiteSelection s = SelectSuites(args, "run");
  if (s.error) return s.error;
  RunRequest request;
  request.run.suites = s.suites;
  request.run.command = CommandLine();
  request.run.version = ProgramVersion();
  if (const int usage = ParseRun(s.rest, &request); usage != kOk) return usage;
  if (Status paths = CheckReportPaths(request.reports); !paths.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", paths.message().c_str());
    return kFailed;
  }
  ResultReport report;
  report.version = ProgramVersion();
  const bool samples = request.trees.empty();
  request.verify = request.verify || samples;
  report.command = request.verify ? "run --verify" : "run";
  if (samples) {
    if (Status prepared = PrepareSampleTree(&request.run.tree); !prepared.ok()) {
      std::fprintf(stderr, "fipsval: %s\n", prepared.message().c_str());
      report.tree = Settings().samples_dir;
      report.responses = SamplesWorkTree();
      report.status = Failed("the sample run could not be prepared in " +
                             report.responses);
      return FinishReport(&report, request.reports, kFailed);
    }
  } else {
    request.run.tree = request.trees[0];
  }
  report.tree = request.run.tree;
  report.responses =
      request.run.output.empty() ? request.run.tree : request.run.output;
  return RunAndVerify(request, report);
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
