// fipsval: the reference host program. It loads the library, provides the
// host callbacks, and runs each of the library's features from a shell.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/cli/cli.h"
#include "host/platform/drbg_standin.h"
#include "host/platform/host_settings.h"
#include "host/catalog/suite_catalog.h"

#ifndef FIPSVAL_VERSION
#error "FIPSVAL_VERSION: the project version, from the build"
#endif

namespace fipsval::host {
namespace {

struct Command {
  const char* name;
  const char* synopsis;
  const char* help;
  int (*run)(const Args& args);
};

int PrintHelp(const Args& args);

const Command kCommands[] = {
    {"selftest", "selftest [--force NAME]",
     "Runs the power-on self-tests (fips_self_tests) and prints their progress.\n"
     "With --force NAME, first writes NAME (no newline) to /data/etc/katfail so\n"
     "that the named test fails once: AES, SHA1-HMAC, SHA256-HMAC, 3DES, RSA,\n"
     "RNG, Firmware-integrity or Configuration (any case; the marker gets this\n"
     "spelling). The library deletes the marker. -q: nothing but failures.\n"
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
     "native-aes (the library's own AES engine), or all (any case). --force makes\n"
     "them fail.\n"
     "Exit: 0 all passed; 1 a test failed.",
     RunKat},
    {"entropy", "entropy COUNT [--output DIR]",
     "Writes COUNT samples of the noise source (fips_tv_get_drbg_entropy_source)\n"
     "to /tmp/resp/entropy_samples, or DIR/entropy_samples with --output. The file\n"
     "is text with CR LF line ends: the header \"Min-Entropy Total = COUNT\"\n"
     "(the label is the library's; the value is the number of samples), then\n"
     "one line per 640-byte sample, written as 1280 lower-case hex digits.\n"
     "/tmp/resp is private to the export (see run: Security).\n"
     "Exit: 0 written; 1 the export failed.",
     RunEntropy},
    {"run", "run [--list L] [--suite NAME]... [--output DIR] [--verify] [--require-evidence] [--accept-lf] [--json FILE] [--junit FILE] [CAVP_DIR]",
     "Runs suites over a CAVP tree: each request <CAVP_DIR>/<DIR>/req/<name>.req\n"
     "(never through a link) is checked, staged alone into /tmp/req, and its\n"
     "response written to <DIR>/resp/<name>.rsp under DIR (--output) or the\n"
     "tree. Lists: ops, ssl, rbg, wf, all (default: every suite). Prints one\n"
     "line per request file (answered, runner error, not answered), the files\n"
     "no suite reads, and a total. A response that stops short of its request or\n"
     "skips a test is a runner error. Each response is recorded in the evidence\n"
     "<DIR>/resp/fipsval-evidence.json beside it (digests of request and response,\n"
     "outcome, time, the module, command line and host); a run replaces only the\n"
     "entries of the files it ran. --verify then checks the responses as `verify`\n"
     "does (--require-evidence, --partial). A request with LF line ends is\n"
     "refused (the library reads CR LF); --accept-lf converts it when staged.\n"
     "Without CAVP_DIR, runs the bundled sample requests in a fresh copy under\n"
     "the data directory and verifies them. Progress (suite, file, elapsed) goes\n"
     "to standard error on a terminal, or always with -v; -q prints problems only.\n"
     "--json FILE writes the result as JSON (each file's outcome, verify verdict\n"
     "and seconds, the counts, the exit status), --junit FILE as JUnit XML; the\n"
     "file's directory must exist, and the file is replaced, never followed.\n"
     "Security: /tmp/req and /tmp/resp are private to the run (own mount\n"
     "namespace); where the kernel allows none, they must be this user's own\n"
     "mode-0700 directories and one run at a time holds /tmp/.fipsval.lock.\n"
     "Exit: 0 every request present was answered; 1 otherwise; 2 usage.",
     RunRun},
    {"verify", "verify [--list L] [--suite NAME]... [--allow-missing] [--require-evidence] [--partial] [--output DIR] [--json FILE] [--junit FILE] CAVP_DIR",
     "Checks every response <DIR>/resp/<name>.rsp against its request\n"
     "<DIR>/req/<name>.req: every test answered, in order. Then compares it with\n"
     "the expected answers <DIR>/fax/<name>.fax (blank lines ignored) or checks\n"
     "the RSA answers that are random (SigGen signatures, generated keys).\n"
     "Verdicts: PASS; FAIL; COMPLETE (no .fax: checked for completeness only);\n"
     "STOPPED (SigVer: the runner ends at its first test by design); SKIP (no\n"
     "response, with --allow-missing; without it, a FAIL). Provenance is judged\n"
     "apart: the evidence <DIR>/resp/fipsval-evidence.json must record the\n"
     "response, made for this very request (both SHA-256 digests); a response it\n"
     "contradicts is a FAIL, one without evidence (a vendor's) is judged on its\n"
     "answers and said to have \"no evidence\" (a FAIL with --require-evidence).\n"
     "No file is read through a symbolic link. --output DIR: the responses are\n"
     "under DIR (run --output). --partial lets a response end before its .fax\n"
     "(shortened requests).\n"
     "--json FILE and --junit FILE write each file's verdict, detail and seconds\n"
     "and the counts as JSON or JUnit XML (as for run).\n"
     "Exit: 0 every response complete and right; 1 otherwise, or nothing checked.",
     RunVerify},
    {"acvp",
     "acvp PROMPT.json|DIR [--output PATH] [--bare] [--allow-unsupported] [--json FILE] "
     "[--junit FILE] | --check EXPECTED RESPONSE [--prompt P] [--allow-unsupported] "
     "[--json FILE] [--junit FILE] | --registration",
     "Answers an ACVP vector set with the library's suites: each test group a\n"
     "suite can answer is written as a CAVP request file in a private temporary\n"
     "tree, the suites run over it, and the answers are mapped back to their\n"
     "tcIds. A prompt may be the vector-set object or [{\"acvVersion\": ...}, {...}];\n"
     "the response is written in that array form (--bare: the object alone) to\n"
     "--output PATH (default: standard output). For a directory, every\n"
     "prompt.json below it is answered to response.json and every ACVP Proxy\n"
     "testvector-request.json to testvector-response.json beside it (or under\n"
     "--output DIR); links and FIFOs are refused, a set beside processed.txt is\n"
     "left alone, and one line sums up. Groups that cannot be answered are\n"
     "listed with their reason (standard error and \"notAnswered\").\n"
     "--check compares a response with the expected results test by test (two\n"
     "directories: every expectedResults.json with the response of its vsId; RSA\n"
     "signatures are verified with the reported n and e over the prompt's\n"
     "messages: prompt.json beside EXPECTED.json, or --prompt FILE).\n"
     "--registration prints the ACVP registration of what the module answers.\n"
     "--json FILE and --junit FILE write each vector set's outcome, its groups\n"
     "(with the reasons for those not answered, or the first difference) and\n"
     "the counts as JSON or JUnit XML (as for run).\n"
     "Documents are bounded: 64 MiB, 32 levels, integers within 2^53.\n"
     "Exit: 0 every group answered (checked: all passed); 1 a group not answered\n"
     "(--allow-unsupported accepts groups no runner takes), a test missing or\n"
     "failed, or nothing answerable; 2 usage, malformed JSON or a bad field.",
     RunAcvp},
    {"list", "list",
     "Lists every suite with its CAVP directory and request files, then the\n"
     "names of the lists that --list takes.\nExit: 0.",
     RunList},
    {"help", "help [COMMAND]", "Shows this help, or a command's.\nExit: 0; 2 unknown command.",
     PrintHelp},
};

const Command* FindCommand(std::string_view name) {
  for (const Command& c : kCommands) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

int PrintHelp(const Args& args) {
  if (!args.empty()) {
    const Command* c = FindCommand(args[0]);
    if (!c) return Usage("unknown command ", args[0]);
    std::printf("usage: fipsval [OPTIONS] %s\n\n%s\n", c->synopsis, c->help);
    return kOk;
  }
  const HostSettings& s = Settings();
  std::printf(
      "usage: fipsval [OPTIONS] COMMAND [ARGS]\n\n"
      "The reference host of the fipsval library: runs its power-on self-tests,\n"
      "its known-answer tests and its CAVP suites, and provides the host\n"
      "callbacks the library needs.\n\ncommands:\n");
  for (const Command& c : kCommands) std::printf("  %s\n", c.synopsis);
  std::printf(
      "\noptions (anywhere on the line):\n"
      "  -q, --quiet            only verdicts and errors\n"
      "  -v, --verbose          more detail, such as progress lines (suite, file,\n"
      "                         elapsed time) when standard error is no terminal\n"
      "  -h, --help             this help; with a command, the command's help\n"
      "  --version              prints \"fipsval VERSION\"\n"
      "  --fips-cc on|off       FIPS-CC mode [on]\n"
      "  --entropy urandom|rdrand  noise source for the RNG test and entropy\n"
      "                         samples [urandom]\n"
      "\nfile locations (the values in effect in brackets):\n"
      "  --data-dir DIR         stored digests, logs, sample runs [%s]\n"
      "  --config FILE          configuration checked for integrity [%s]\n"
      "  --config-digest FILE   its stored SHA-256 [DIR/vpn.cfg.sha256]\n"
      "  --firmware FILE        firmware image [the loaded libfipsval library]\n"
      "  --firmware-digest FILE its stored SHA-256 [DIR/firmware.sha256]\n"
      "  --error-log FILE       self-test failures are appended here [DIR/fips-errors.log]\n"
      "  --error-mode-file FILE the error mode is recorded here [DIR/error-mode]\n"
      "Defaults: installed in PREFIX/bin, fipsval uses DIR = PREFIX/var/lib/fipsval\n"
      "and the configuration PREFIX/etc/fipsval/vpn.cfg (for the prefix /usr:\n"
      "/var/lib/fipsval and /etc/fipsval/vpn.cfg); run from its build tree, DIR is\n"
      "fipsval-data beside the program. With --data-dir, the configuration\n"
      "defaults to DIR/vpn.cfg.\n"
      "\nfixed paths used by the library: /tmp/req (requests), /tmp/resp\n"
      "(responses, entropy_samples), /data/etc/katfail (forced failure marker),\n"
      "/dev/urandom (random device; CTR_DRBG tests are sent to it by ioctl).\n"
      "%s.\n"
      "\nexit status: 0 success; 1 a test or check failed, or a run could not be\n"
      "completed; 2 usage error; 3 the library put the host into its error mode.\n"
      "`fipsval help COMMAND` describes a command; `man fipsval` has more.\n",
      s.data_dir.c_str(), s.config.c_str(), DrbgBackendDescription());
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

std::string& MutableCommandLine() {
  static std::string line;
  return line;
}

int Main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  MutableCommandLine() = "fipsval";
  for (const std::string& arg : args) MutableCommandLine() += " " + arg;
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
    } else if (arg == "--version") {
      std::printf("fipsval %s\n", ProgramVersion());
      return kOk;
    } else if (arg == "-q" || arg == "--quiet") {
      settings.verbosity = 0;
    } else if (arg == "-v" || arg == "--verbose") {
      settings.verbosity = 2;
    } else if (arg == "--help" || arg == "-h") {
      help = true;
    } else {
      rest.push_back(arg);
    }
  }
  ApplyDefaultPaths(settings);
  if (rest.empty()) {
    if (help) return PrintHelp({});
    return Usage("no command given");
  }
  const Command* command = FindCommand(rest[0]);
  if (!command) {
    return Usage(rest[0].starts_with("-") ? "unknown option " : "unknown command ",
                 rest[0]);
  }
  if (help) return PrintHelp({command->name});
  return command->run({rest.begin() + 1, rest.end()});
}

}  // namespace

const char* ProgramVersion() { return FIPSVAL_VERSION; }

const std::string& CommandLine() { return MutableCommandLine(); }

}  // namespace fipsval::host

int main(int argc, char** argv) { return fipsval::host::Main(argc, argv); }
