// fipsval: the reference host program. It loads the library, provides the
// host callbacks, and runs each of the library's features from a shell.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/core/cavp_tree.h"
#include "host/core/drbg_standin.h"
#include "host/core/host_settings.h"
#include "host/core/integrity.h"
#include "host/core/suite_catalog.h"
#include "host/core/verify.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kErrorMode = 3;

constexpr char kMarkerFile[] = "/data/etc/katfail";

struct Command {
  const char* name;
  const char* synopsis;
  const char* help;
  int (*run)(const std::vector<std::string>& args);
};

int Usage(const std::string& message, const std::string& detail = "") {
  std::fprintf(stderr, "fipsval: %s%s (see fipsval --help)\n",
               message.c_str(), detail.c_str());
  return kUsage;
}

// The exit status after a library call: the error mode wins.
int Finish(int status) {
  std::fflush(stdout);
  if (ErrorMode().entered) {
    std::fprintf(stderr, "fipsval: error mode entered (code %d): %s\n",
                 ErrorMode().code, ErrorMode().text.c_str());
    return kErrorMode;
  }
  return status;
}

bool ParseInt(std::string_view text, int* out) {
  const auto [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), *out);
  return ec == std::errc() && end == text.data() + text.size();
}

// ---------------------------------------------------------------------------
// selftest, check-config, update-config, kat

int RunSelftest(const std::vector<std::string>& args) {
  std::string force;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--force" && i + 1 < args.size()) {
      force = args[++i];
    } else {
      return Usage("selftest: unexpected argument ", args[i]);
    }
  }
  if (!force.empty()) {
    std::error_code ec;
    fs::create_directories(fs::path(kMarkerFile).parent_path(), ec);
    std::FILE* marker = std::fopen(kMarkerFile, "w");
    if (!marker || std::fwrite(force.data(), 1, force.size(), marker) !=
                       force.size()) {
      std::fprintf(stderr, "fipsval: cannot write %s: %s\n", kMarkerFile,
                   std::strerror(errno));
      if (marker) std::fclose(marker);
      return kFailed;
    }
    std::fclose(marker);
  }
  const int mask = fips_self_tests();
  std::fflush(stdout);
  if (mask != 0) {
    std::fprintf(stderr, "fipsval: self-test failure mask %d\n", mask);
  }
  return Finish(mask == 0 ? kOk : kFailed);
}

int RunCheckConfig(const std::vector<std::string>& args) {
  int mode = 2;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--mode" && i + 1 < args.size()) {
      if (!ParseInt(args[++i], &mode)) {
        return Usage("check-config: --mode takes a number, not ", args[i]);
      }
    } else {
      return Usage("check-config: unexpected argument ", args[i]);
    }
  }
  const int result = fips_check_config(mode);
  if (result == 0) std::fprintf(stderr, "fipsval: configuration intact\n");
  return Finish(result == 0 ? kOk : kFailed);
}

int RunUpdateConfig(const std::vector<std::string>& args) {
  if (!args.empty()) return Usage("update-config: unexpected argument ", args[0]);
  fips_update_config();
  if (!is_fips_cc_enabled()) {
    std::fprintf(stderr, "fipsval: FIPS-CC mode is off: nothing hashed\n");
    return Finish(kOk);
  }
  // The library ignores the callback's result: check what it stored.
  Sha256 actual{}, stored{};
  std::string error;
  if (!DigestFile(Settings().config, &actual, &error) ||
      !ReadStoredDigest(Settings().config_digest, &stored, &error) ||
      actual != stored) {
    return Finish(kFailed);
  }
  std::fprintf(stderr, "fipsval: stored the SHA-256 of %s in %s\n",
               Settings().config.c_str(), Settings().config_digest.c_str());
  return Finish(kOk);
}

int RunKat(const std::vector<std::string>& args) {
  struct Kat {
    const char* name;
    int (*test)(int);
  };
  static constexpr Kat kKats[] = {
      {"aes", fips_kat_aes_test},           {"sha1-hmac", fips_kat_sha1_test},
      {"sha256-hmac", fips_kat_sha256_test}, {"3des", fips_kat_3des_test},
      {"rsa", fips_kat_rsa_test},           {"native-aes", fips_aes_test},
  };
  bool force = false;
  std::vector<const Kat*> chosen;
  for (const std::string& arg : args) {
    if (arg == "--force") {
      force = true;
      continue;
    }
    const Kat* found = nullptr;
    for (const Kat& kat : kKats) {
      if (arg == kat.name || arg == "all") {
        chosen.push_back(&kat);
        found = &kat;
      }
    }
    if (!found) return Usage("kat: unknown test ", arg);
  }
  if (chosen.empty()) return Usage("kat: name a test");
  bool all_passed = true;
  for (const Kat* kat : chosen) {
    const int result = kat->test(force ? 1 : 0);
    std::fflush(stdout);
    std::fprintf(stderr, "%-12s %s\n", kat->name, result == 1 ? "passed" : "failed");
    all_passed &= result == 1;
  }
  return Finish(all_passed ? kOk : kFailed);
}

// ---------------------------------------------------------------------------
// entropy

int RunEntropy(const std::vector<std::string>& args) {
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

// ---------------------------------------------------------------------------
// run, verify, list

struct SuiteSelection {
  std::vector<const fips_tv*> suites;
  std::vector<std::string> rest;
  int error = kOk;
};

// Parses --list NAME and --suite NAME (repeatable); keeps other arguments.
SuiteSelection SelectSuites(const std::vector<std::string>& args,
                            const char* command) {
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

std::string SamplesWorkTree() { return Settings().data_dir + "/sample-run"; }

// Copies the bundled sample requests into a fresh working tree.
bool PrepareSampleTree(std::string* tree) {
  const fs::path samples = FIPSVAL_SAMPLES_DIR;
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

int RunRun(const std::vector<std::string>& args) {
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

int RunVerify(const std::vector<std::string>& args) {
  SuiteSelection s = SelectSuites(args, "verify");
  if (s.error) return s.error;
  VerifyOptions options;
  options.suites = s.suites;
  std::vector<std::string> trees;
  for (const std::string& arg : s.rest) {
    if (arg == "--strict") {
      options.strict = true;
    } else if (arg == "--partial") {
      options.partial = true;
    } else if (arg.starts_with("-")) {
      return Usage("verify: unknown option ", arg);
    } else {
      trees.push_back(arg);
    }
  }
  if (trees.size() != 1) return Usage("verify: give one CAVP tree");
  options.tree = trees[0];
  std::error_code ec;
  if (!fs::is_directory(options.tree, ec)) {
    std::fprintf(stderr, "fipsval: %s is not a directory\n", options.tree.c_str());
    return kFailed;
  }
  const VerifyTally tally = VerifyTree(options, stdout);
  return tally.failed == 0 ? kOk : kFailed;
}

int RunList(const std::vector<std::string>& args) {
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

// ---------------------------------------------------------------------------

int PrintHelp(const std::vector<std::string>& args);

const Command kCommands[] = {
    {"selftest", "selftest [--force NAME]",
     "Runs the power-on self-tests (fips_self_tests) and prints their progress.\n"
     "With --force NAME, first writes NAME (no newline) to /data/etc/katfail so\n"
     "that the named test fails once: AES, SHA1-HMAC, SHA256-HMAC, 3DES, RSA,\n"
     "RNG, Firmware-integrity or Configuration. The library deletes the marker.\n"
     "Exit: 0 all passed; 3 a test failed and the library entered the error mode\n"
     "(the mask is printed on standard error, the error text is appended to the\n"
     "error log and recorded in the error-mode file).",
     RunSelftest},
    {"check-config", "check-config [--mode N]",
     "Checks the configuration's integrity (fips_check_config). On a failure,\n"
     "mode 1 reports through the host message channel (standard error), mode 2\n"
     "(the default) prints to standard output, other modes are silent.\n"
     "Exit: 0 intact; 3 not intact (error mode entered).",
     RunCheckConfig},
    {"update-config", "update-config",
     "Stores the SHA-256 of the configuration file as its reference digest\n"
     "(fips_update_config), when FIPS-CC mode is on.\n"
     "Exit: 0 stored (or FIPS-CC mode off); 1 the configuration could not be read.",
     RunUpdateConfig},
    {"kat", "kat NAME... [--force]",
     "Runs single known-answer tests: aes, sha1-hmac, sha256-hmac, 3des, rsa,\n"
     "native-aes (the library's own AES engine), or all. --force makes them fail.\n"
     "Exit: 0 all passed; 1 a test failed.",
     RunKat},
    {"entropy", "entropy COUNT",
     "Writes COUNT samples of 640 bytes from the noise source to\n"
     "/tmp/resp/entropy_samples (fips_tv_get_drbg_entropy_source), creating\n"
     "/tmp/resp if needed.\n"
     "Exit: 0 written; 1 the export failed.",
     RunEntropy},
    {"run", "run [--list L] [--suite NAME]... [CAVP_DIR]",
     "Runs suites over a CAVP tree: each request <CAVP_DIR>/<DIR>/req/<name>.req\n"
     "is staged into /tmp/req, the suite runs, and each response is collected\n"
     "from /tmp/resp into <CAVP_DIR>/<DIR>/resp/<name>.rsp. Staged files are\n"
     "removed afterwards. A missing request file is reported by the library\n"
     "(\"Couldn't open\") and skipped. Lists: ops, ssl, rbg, wf, all (default:\n"
     "every suite). Without CAVP_DIR, runs the bundled sample requests in a\n"
     "fresh copy under the data directory and verifies them.\n"
     "Progress (suite, file, elapsed time) goes to standard error when it is a\n"
     "terminal. Exit: 0 done; 1 the run could not be completed; 2 usage.",
     RunRun},
    {"verify", "verify [--list L] [--suite NAME]... [--strict] [--partial] CAVP_DIR",
     "Compares every response <DIR>/resp/<name>.rsp that has expected answers\n"
     "<DIR>/fax/<name>.fax, ignoring blank lines, and checks the RSA responses\n"
     "whose answers are random (SigGen signatures verified with the reported\n"
     "key, generated keys checked, SigVer against its request). Prints one\n"
     "verdict per file and \"N passed, M failed\". --strict fails files that have\n"
     "expected answers but no response; --partial passes a response that stops\n"
     "early when every line it has matches. Exit: 0 nothing failed; 1 otherwise.",
     RunVerify},
    {"list", "list", "Lists the suites, their CAVP directories and request files.",
     RunList},
    {"help", "help [COMMAND]", "Shows this help, or a command's.", PrintHelp},
};

const Command* FindCommand(std::string_view name) {
  for (const Command& c : kCommands) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

int PrintHelp(const std::vector<std::string>& args) {
  if (!args.empty()) {
    const Command* c = FindCommand(args[0]);
    if (!c) return Usage("unknown command ", args[0]);
    std::printf("usage: fipsval [OPTIONS] %s\n\n%s\n", c->synopsis, c->help);
    return kOk;
  }
  std::printf(
      "usage: fipsval [OPTIONS] COMMAND [ARGS]\n\n"
      "The reference host of the fipsval library: runs its power-on self-tests,\n"
      "its known-answer tests and its CAVP suites, and provides the host\n"
      "callbacks the library needs.\n\ncommands:\n");
  for (const Command& c : kCommands) std::printf("  %s\n", c.synopsis);
  std::printf(
      "\noptions (file locations; defaults in brackets):\n"
      "  --data-dir DIR         [fipsval-data beside the program: %s]\n"
      "  --config FILE          configuration checked for integrity [DIR/vpn.cfg]\n"
      "  --config-digest FILE   its stored SHA-256 [DIR/vpn.cfg.sha256]\n"
      "  --firmware FILE        firmware image [the loaded libfipsval library]\n"
      "  --firmware-digest FILE its stored SHA-256 [DIR/firmware.sha256]\n"
      "  --error-log FILE       self-test failures are appended here [DIR/fips-errors.log]\n"
      "  --error-mode-file FILE the error mode is recorded here [DIR/error-mode]\n"
      "  --fips-cc on|off       FIPS-CC mode [on]\n"
      "  --entropy urandom|rdrand  noise source for the RNG test and entropy\n"
      "                         samples [urandom]\n"
      "\nfixed paths used by the library: /tmp/req (requests), /tmp/resp\n"
      "(responses, entropy_samples), /data/etc/katfail (forced failure marker),\n"
      "/dev/urandom (random device; CTR_DRBG tests are sent to it by ioctl).\n"
      "CTR_DRBG tests on this machine: %s\n"
      "\nexit status: 0 success; 1 a test or check failed, or a run could not be\n"
      "completed; 2 usage error; 3 the library put the host into its error mode.\n"
      "`fipsval help COMMAND` describes a command.\n",
      Settings().data_dir.c_str(), fipsval::DrbgBackendDescription());
  return kOk;
}

struct GlobalOption {
  const char* flag;
  std::string HostSettings::*path;
};

constexpr GlobalOption kPathOptions[] = {
    {"--data-dir", &HostSettings::data_dir},
    {"--config", &HostSettings::config},
    {"--config-digest", &HostSettings::config_digest},
    {"--firmware", &HostSettings::firmware},
    {"--firmware-digest", &HostSettings::firmware_digest},
    {"--error-log", &HostSettings::error_log},
    {"--error-mode-file", &HostSettings::error_mode_file},
};

int Main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  std::vector<std::string> rest;
  bool help = false;
  HostSettings& settings = Settings();
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    bool consumed = false;
    for (const GlobalOption& option : kPathOptions) {
      if (arg == option.flag) {
        if (i + 1 == args.size()) return Usage("missing value after ", arg);
        settings.*option.path = args[++i];
        consumed = true;
      }
    }
    if (consumed) continue;
    if (arg == "--fips-cc" || arg == "--entropy") {
      if (i + 1 == args.size()) return Usage("missing value after ", arg);
      const std::string& value = args[++i];
      if (arg == "--fips-cc" && (value == "on" || value == "off")) {
        settings.fips_cc = value == "on";
      } else if (arg == "--entropy" && (value == "urandom" || value == "rdrand")) {
        settings.entropy = value == "rdrand" ? EntropySource::kRdrand
                                             : EntropySource::kUrandom;
      } else {
        return Usage("bad value for " + arg + ": ", value);
      }
    } else if (arg == "--help" || arg == "-h") {
      help = true;
    } else {
      rest.push_back(arg);
    }
  }
  ApplyDefaultPaths(settings);
  if (rest.empty()) {
    PrintHelp({});
    return help ? kOk : kUsage;
  }
  const Command* command = FindCommand(rest[0]);
  if (!command) return Usage("unknown command ", rest[0]);
  if (help) return PrintHelp({command->name});
  return command->run({rest.begin() + 1, rest.end()});
}

}  // namespace
}  // namespace fipsval::host

int main(int argc, char** argv) { return fipsval::host::Main(argc, argv); }
