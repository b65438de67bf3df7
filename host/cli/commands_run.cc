// The validation commands: entropy, run, list.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/cli/cli.h"
#include "host/core/cavp_tree.h"
#include "host/core/host_settings.h"
#include "host/core/suite_catalog.h"
#include "host/core/verify.h"

namespace fipsval::host {

namespace fs = std::filesystem;

int RunEntropy(const Args& args) {
  int count = 0;
  if (args.size() != 1 || !ParseInt(args[0], &count)) {
    return Usage("entropy: give the number of samples, e.g. fipsval entropy 1000");
  }
  std::error_code ec;
  fs::create_directories("/tmp/resp", ec);
  const int result = fips_tv_get_drbg_entropy_source(count);
  std::fflush(stdout);
  if (result < 0) {
    std::fprintf(stderr, "fipsval: entropy export failed (%d)\n", result);
    return Finish(kFailed);
  }
  std::fprintf(stderr, "fipsval: %d samples of 640 bytes in /tmp/resp/entropy_samples\n",
               count);
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
bool PrepareSampleTree(std::string* tree) {
  const fs::path samples = Settings().samples_dir;
  std::error_code ec;
  if (!fs::is_directory(samples, ec)) {
    std::fprintf(stderr, "fipsval: the bundled samples are missing (%s)\n",
                 samples.c_str());
    return false;
  }
  *tree = SamplesWorkTree();
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
  bool samples = false;
  RunOptions options;
  options.suites = s.suites;
  options.progress = isatty(STDERR_FILENO);
  if (s.rest.size() > 1 || (s.rest.size() == 1 && s.rest[0].starts_with("-"))) {
    return Usage("run: unexpected argument ", s.rest.back());
  }
  if (s.rest.empty()) {
    if (!PrepareSampleTree(&options.tree)) return kFailed;
    samples = true;
  } else {
    options.tree = s.rest[0];
  }
  const int status = RunTree(options);
  if (status != kOk) return Finish(status);
  std::fprintf(stderr, "fipsval: responses are in %s/<DIR>/resp\n",
               options.tree.c_str());
  if (samples) {
    VerifyOptions verify{options.tree, options.suites, false, false};
    const VerifyTally tally = VerifyTree(verify, stdout);
    return Finish(tally.failed == 0 ? kOk : kFailed);
  }
  return Finish(kOk);
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
