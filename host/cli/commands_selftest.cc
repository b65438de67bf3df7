// The self-test commands: selftest, check-config, update-config, kat.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "fipsval.h"
#include "host/cli/cli.h"
#include "host/core/host_settings.h"
#include "host/core/integrity.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;

constexpr char kMarkerFile[] = "/data/etc/katfail";

}  // namespace

int RunSelftest(const Args& args) {
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
  if (result == 0) std::fprintf(stderr, "fipsval: configuration intact\n");
  return Finish(result == 0 ? kOk : kFailed);
}

int RunUpdateConfig(const Args& args) {
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

int RunKat(const Args& args) {
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

}  // namespace fipsval::host
