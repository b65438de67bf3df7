// The self-test commands: selftest, check-config, update-config, kat.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/base/file_io.h"
#include "host/base/owners.h"
#include "host/base/text.h"
#include "host/catalog/runner_profiles.h"
#include "host/cli/cli.h"
#include "host/platform/host_settings.h"
#include "host/platform/integrity.h"

namespace fipsval::host {
namespace {

constexpr char kMarkerDir[] = "/data/etc";
constexpr char kMarkerFile[] = FIPSVAL_FORCE_MARKER;

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

// The names the library accepts in the marker, exactly as written there,
// in the order the self-tests run.
std::vector<std::string_view> ForceNames() {
  std::vector<std::string_view> names;
  for (const SelfTestProfile& test : SelfTestProfiles()) {
    if (!test.force_name.empty()) names.push_back(test.force_name);
  }
  return names;
}

// The canonical spelling of a name given in any case, or "".
std::string_view CanonicalForceName(std::string_view name) {
  for (std::string_view known : ForceNames()) {
    if (EqualIgnoringCase(known, name)) return known;
  }
  return {};
}

// The usage error for a name the library would not match: the marker would
// force nothing, and the run would pass as if the test had been forced.
int UnknownForceName(const std::string& name) {
  // Quoted and escaped, so that the message stays one line.
  std::string message = "selftest: unknown test name \"" + Printable(name) +
                        "\"; the names (any case):";
  for (std::string_view known : ForceNames()) message += " " + std::string(known);
  return Usage(message);
}

const char* KindOf(mode_t mode) {
  if (S_ISLNK(mode)) return "it is a symbolic link, not a regular file";
  if (S_ISFIFO(mode)) return "it is a FIFO, not a regular file";
  if (S_ISDIR(mode)) return "it is a directory, not a regular file";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "it is a device, not a regular file";
  if (S_ISSOCK(mode)) return "it is a socket, not a regular file";
  return "it is not a regular file";
}

// Why st is not a marker file that may be overwritten, or null.
const char* Refusal(const struct stat& st) {
  if (!S_ISREG(st.st_mode)) return KindOf(st.st_mode);
  if (st.st_nlink > 1) return "it has other hard links";
  return nullptr;
}

bool MarkerError(const char* cause) {
  std::fprintf(stderr, "fipsval: cannot write the forced-failure marker %s: %s\n",
               kMarkerFile, cause);
  return false;
}

// Writes name to the marker without following a link, in the marker's
// path or at its name: an entry that is not a regular file of its own is
// refused, never written through.
bool WriteMarker(std::string_view name) {
  // "/data" by its absolute name (not "data" below an open "/"): the
  // same on a machine, and an emulator's root prefix cannot take "/".
  UniqueFd data, etc;
  Status walk = OpenDirBelow(AT_FDCWD, "/data", 0755, &data);
  if (walk.ok()) walk = OpenDirBelow(data.get(), "etc", 0755, &etc);
  if (!walk.ok()) {
    return MarkerError(("cannot use " + std::string(kMarkerDir) + ": " +
                        walk.message()).c_str());
  }
  const char* const leaf = kMarkerFile + sizeof kMarkerDir;  // "katfail"
  struct stat st;
  if (fstatat(etc.get(), leaf, &st, AT_SYMLINK_NOFOLLOW) == 0) {
    if (const char* refusal = Refusal(st)) return MarkerError(refusal);
  }
  // O_NONBLOCK: a FIFO put there since the check fails to open instead of
  // waiting for a reader. Truncated only once it is known to be ours.
  const int fd = openat(etc.get(), leaf,
                        O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (fd < 0) return MarkerError(errno == ELOOP ? KindOf(S_IFLNK) : std::strerror(errno));
  const char* refusal = fstat(fd, &st) != 0 ? std::strerror(errno) : Refusal(st);
  if (!refusal && ftruncate(fd, 0) != 0) refusal = std::strerror(errno);
  for (std::size_t done = 0; !refusal && done < name.size();) {
    const ssize_t n = write(fd, name.data() + done, name.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) refusal = n < 0 ? std::strerror(errno) : "short write";
    else done += static_cast<std::size_t>(n);
  }
  if (close(fd) != 0 && !refusal) refusal = std::strerror(errno);
  if (!refusal) return true;
  unlinkat(etc.get(), leaf, 0);  // ours, and perhaps half written: it must not force
  return MarkerError(refusal);
}

// With -q the library's report of each self-test (on standard output) is
// not shown; its errors (standard error) and the failure mask still are.
template <typename F>
int QuietUnlessAsked(F call) {
  std::fflush(stdout);
  UniqueFd saved;
  if (Settings().verbosity == 0) {
    const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    saved = UniqueFd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!null || !saved || dup2(null.get(), STDOUT_FILENO) < 0) saved = UniqueFd();
  }
  const int result = call();
  std::fflush(stdout);
  if (saved) dup2(saved.get(), STDOUT_FILENO);
  return result;
}

}  // namespace

int RunSelftest(const Args& args) {
  std::optional<std::string> force;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--force") return Usage("selftest: unexpected argument ", args[i]);
    if (i + 1 == args.size()) return Usage("selftest: --force needs a test name");
    if (force) return Usage("selftest: only one test can be forced at a time");
    force = args[++i];
  }
  if (force) {
    // The library matches the marker exactly: it gets the canonical name.
    const std::string_view name = CanonicalForceName(*force);
    if (name.empty()) return UnknownForceName(*force);
    if (!WriteMarker(name)) return kFailed;
  }
  const int mask = QuietUnlessAsked([] { return fips_self_tests(); });
  if (mask != 0) {
    std::fprintf(stderr, "fipsval: self-test failure mask %d\n", mask);
  }
  return Finish(mask == 0 ? kOk : kFailed);
}

int RunCheckConfig(const Args& args) {
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
  if (result == 0 && Settings().verbosity > 0) {
    std::fprintf(stderr, "fipsval: configuration intact\n");
  }
  return Finish(result == 0 ? kOk : kFailed);
}

int RunUpdateConfig(const Args& args) {
  if (!args.empty()) return Usage("update-config: unexpected argument ", args[0]);
  LastConfigHash() = {};
  fips_update_config();
  if (!is_fips_cc_enabled()) {
    std::fprintf(stderr, "fipsval: FIPS-CC mode is off: nothing hashed\n");
    return Finish(kOk);
  }
  // The library ignores the callback's result: look at what it recorded,
  // then at what it stored.
  const HashRecord& hashed = LastConfigHash();
  if (!hashed.called) {
    std::fprintf(stderr, "fipsval: the library did not ask for the configuration to be hashed\n");
    return Finish(kFailed);
  }
  if (!hashed.status.ok()) return Finish(kFailed);  // the callback said why
  Sha256 actual{}, stored{};
  Status read = DigestFile(Settings().config, &actual);
  if (read.ok()) read = ReadStoredDigest(Settings().config_digest, &stored);
  if (!read.ok()) {
    std::fprintf(stderr, "fipsval: update-config: %s\n", read.message().c_str());
    return Finish(kFailed);
  }
  if (actual != stored) {
    std::fprintf(stderr, "fipsval: update-config: %s does not hold the SHA-256 of %s\n",
                 Settings().config_digest.c_str(), Settings().config.c_str());
    return Finish(kFailed);
  }
  if (Settings().verbosity > 0) {
    std::fprintf(stderr, "fipsval: stored the SHA-256 of %s in %s\n",
                 Settings().config.c_str(), Settings().config_digest.c_str());
  }
  return Finish(kOk);
}

int RunKat(const Args& args) {
  bool force = false;
  std::vector<const SelfTestProfile*> chosen;
  for (const std::string& arg : args) {
    if (arg == "--force") {
      force = true;
      continue;
    }
    const std::size_t before = chosen.size();
    std::string names;
    for (const SelfTestProfile& test : SelfTestProfiles()) {
      if (!test.kat) continue;
      names += std::string(names.empty() ? "" : ", ") + std::string(test.kat_name);
      if (EqualIgnoringCase(arg, test.kat_name) || EqualIgnoringCase(arg, "all")) {
        chosen.push_back(&test);
      }
    }
    if (chosen.size() == before) {
      return Usage("kat: unknown test (one of " + names + ", all; any case): ",
                   Printable(arg));
    }
  }
  if (chosen.empty()) return Usage("kat: name a test");
  bool all_passed = true;
  for (const SelfTestProfile* test : chosen) {
    const int result = test->kat(force ? 1 : 0);
    std::printf("%-12s %s\n", std::string(test->kat_name).c_str(),
                result == 1 ? "passed" : "failed");
    all_passed &= result == 1;
  }
  return Finish(all_passed ? kOk : kFailed);
}

}  // namespace fipsval::host
