// The self-test run as the host sees it: progress output, the failure
// mask, the forced-failure marker, the error text and the host callbacks.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fipsval.h"
#include "selftest/selftest.h"
#include "tests/support/host_doubles.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

constexpr char kMarker[] = "/data/etc/katfail";
constexpr char kStartLine[] = "\nFIPS-CC mode: Starting self-tests.\n";

// The eight tests in the order they run: label (before its padding to 46
// characters), marker name, mask bit, error message, and the host's result
// when the host performs the test.
struct Expected {
  const char* label;
  const char* name;
  uint32_t bit;
  const char* message;
  int HostDoubles::*host_result;
};
void PrintTo(const Expected& e, std::ostream* os) { *os << e.name; }

constexpr Expected kTests[] = {
    {"Running Configuration Integrity test...", "Configuration", 64,
     "Configuration Integrity test failed", &HostDoubles::vpn_cfg_result},
    {"Running AES test...", "AES", 2, "AES self-test failed", nullptr},
    {"Running SHA1 HMAC test...", "SHA1-HMAC", 4, "SHA1 HMAC self-test failed", nullptr},
    {"Running SHA256 HMAC test...", "SHA256-HMAC", 128, "SHA256 HMAC self-test failed",
     nullptr},
    {"Running 3DES test...", "3DES", 8, "3DES self-test failed", nullptr},
    {"Running RSA test...", "RSA", 16, "RSA self-test failed", nullptr},
    {"Running Firmware integrity test...", "Firmware-integrity", 1,
     "Firmware integrity test failed", &HostDoubles::firmware_result},
    {"Running RNG test...", "RNG", 32, "RNG self-test failed", &HostDoubles::rng_result},
};

// The whole output of a run in which the tests in `failed` fail.
std::string ExpectedRun(uint32_t failed) {
  std::string out = kStartLine;
  for (const Expected& t : kTests) {
    out += std::string(t.label).append(46 - std::strlen(t.label), ' ');
    out += (failed & t.bit) ? "failed\n" : "passed\n";
  }
  out += failed ? "Self-tests failed\n" : "Self-tests passed\n";
  return out;
}

struct RunResult {
  int mask = -1;
  std::string out;
};

RunResult RunSelfTests() {
  RunResult r;
  r.out = CaptureStdout([&] { r.mask = fips_self_tests(); });
  return r;
}

struct CheckResult {
  int bit = -1;
  std::string out;
};

CheckResult CheckFail() {
  CheckResult r;
  r.out = CaptureStdout([&] { r.bit = fips_check_fail(); });
  return r;
}

std::string ErrorText(uint32_t mask) {
  std::array<char, 900> buf;
  get_self_test_errstr(mask, buf.data(), buf.size());
  return buf.data();
}

using ErrorModes = std::vector<std::pair<int, std::string>>;

class SelfTests : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetHost();
    unlink(kMarker);
  }
  void TearDown() override { unlink(kMarker); }
};

TEST_F(SelfTests, AllPassWithoutMarker) {
  const RunResult r = RunSelfTests();
  EXPECT_EQ(r.mask, 0);
  EXPECT_EQ(r.out, ExpectedRun(0));
  EXPECT_EQ(Host().vpn_cfg_args, std::vector<int>{0});
  EXPECT_EQ(Host().firmware_args, std::vector<int>{0});
  EXPECT_EQ(Host().rng_args, std::vector<int>{0});
  EXPECT_TRUE(Host().logged.empty());
  EXPECT_TRUE(Host().error_modes.empty());
}

// ---------------------------------------------------------------------------
// Forcing each test by name.

class ForcedByName : public SelfTests, public ::testing::WithParamInterface<Expected> {};

TEST_P(ForcedByName, FailsThatTestAloneAndEntersErrorMode) {
  const Expected& f = GetParam();
  // A host that honours the force fails its own test.
  if (f.host_result) Host().*f.host_result = 0;
  WriteFile(kMarker, f.name);

  const RunResult r = RunSelfTests();

  EXPECT_EQ(r.mask, static_cast<int>(f.bit));
  EXPECT_EQ(r.out, std::string("\nForcing failure of ") + f.name + "\n" + ExpectedRun(f.bit));
  // Every test gets 0 or its own bit, never 1 for a bit other than 1.
  EXPECT_EQ(Host().vpn_cfg_args, std::vector<int>{static_cast<int>(f.bit & 64)});
  EXPECT_EQ(Host().firmware_args, std::vector<int>{static_cast<int>(f.bit & 1)});
  EXPECT_EQ(Host().rng_args, std::vector<int>{static_cast<int>(f.bit & 32)});
  const std::string text = std::string("FIPS error: ") + f.message;
  EXPECT_EQ(Host().logged, std::vector<std::string>{text});
  EXPECT_EQ(Host().error_modes, (ErrorModes{{-3, text}}));
  EXPECT_FALSE(FileExists(kMarker));
}

INSTANTIATE_TEST_SUITE_P(EachName, ForcedByName, ::testing::ValuesIn(kTests),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return "T" + name;
                         });

TEST_F(SelfTests, HostDecidesTheOutcomeOfItsOwnTests) {
  // The library only passes the force on; a host that ignores it passes.
  WriteFile(kMarker, "Configuration");
  const RunResult r = RunSelfTests();
  EXPECT_EQ(r.mask, 0);
  EXPECT_EQ(Host().vpn_cfg_args, std::vector<int>{64});
  EXPECT_TRUE(Host().error_modes.empty());
}

// ---------------------------------------------------------------------------
// The marker file.

// The first line must be exactly a name (its newline takes part); the
// marker is deleted whatever it holds. No marker is the quiet case.
TEST_F(SelfTests, MarkerLineMustBeExactlyOneNameAndIsDeleted) {
  const std::string long_line(200, 'A');
  const struct {
    std::string content;
    int bit;
    std::string printed;  // after "Forcing failure of "
  } cases[] = {
      {"RSA", 16, "RSA"}, {"", 0, ""}, {"RSA\n", 0, "RSA\n"}, {"RSA\nAES", 0, "RSA\n"},
      {"Configuration\r\n", 0, "Configuration\r\n"}, {long_line, 0, long_line.substr(0, 63)},
      {"AESx", 0, "AESx"}, {"AE", 0, "AE"}, {"AES ", 0, "AES "}, {" AES", 0, " AES"},
      {"aes", 0, "aes"}, {"SHA1", 0, "SHA1"}, {"Firmware", 0, "Firmware"},
  };
  for (const auto& c : cases) {
    WriteFile(kMarker, c.content);
    const CheckResult r = CheckFail();
    EXPECT_EQ(r.bit, c.bit) << c.content;
    EXPECT_EQ(r.out, c.printed.empty() ? "" : "\nForcing failure of " + c.printed + "\n");
    EXPECT_FALSE(FileExists(kMarker)) << c.content;
  }
  const CheckResult missing = CheckFail();
  EXPECT_EQ(missing.bit, 0);
  EXPECT_EQ(missing.out, "");
}

// Only a regular file of its own is read: anything else at the path is
// left in place, said to be ignored, and never opened in a way that could
// block or show another file's content ("AES" in the victim would force).
TEST_F(SelfTests, MarkerThatIsNoRegularFileIsIgnoredAndSaidSo) {
  constexpr char kVictim[] = "/data/victim";
  const struct {
    const char* kind;
    int (*make)(const char* victim);
    const char* reason;
  } cases[] = {
      {"FIFO", [](const char*) { return mkfifo(kMarker, 0600); },
       "it is a FIFO, not a regular file"},
      {"symlink", [](const char* victim) { return symlink(victim, kMarker); },
       "it is a symbolic link, not a regular file"},
      {"directory", [](const char*) { return mkdir(kMarker, 0755); },
       "it is a directory, not a regular file"},
      {"device", [](const char*) { return mknod(kMarker, S_IFCHR | 0600, makedev(1, 3)); },
       "it is a device, not a regular file"},
      {"hard link", [](const char* victim) { return link(victim, kMarker); },
       "it has other hard links"},
  };
  for (const auto& c : cases) {
    WriteFile(kVictim, "AES");
    ASSERT_EQ(c.make(kVictim), 0) << c.kind;
    alarm(10);  // a marker read that blocks ends the test here
    const CheckResult r = CheckFail();
    alarm(0);
    EXPECT_EQ(r.bit, 0) << c.kind;
    EXPECT_EQ(r.out, std::string("Ignoring /data/etc/katfail: ") + c.reason + "\n") << c.kind;
    struct stat st;
    EXPECT_EQ(lstat(kMarker, &st), 0) << c.kind << ": left in place";
    EXPECT_EQ(ReadFile(kVictim), "AES") << c.kind;
    std::filesystem::remove(kMarker);
  }
  unlink(kVictim);
}

TEST_F(SelfTests, MarkerThatCannotBeDeletedSaysTheFailureWillRepeat) {
  ASSERT_EQ(mount("etc", "/data/etc", "tmpfs", 0, nullptr), 0);
  WriteFile(kMarker, "RSA");
  ASSERT_EQ(mount(nullptr, "/data/etc", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const CheckResult r = CheckFail();
  const bool still_there = FileExists(kMarker);
  umount("/data/etc");
  EXPECT_EQ(r.bit, 16);
  EXPECT_EQ(r.out,
            "\nForcing failure of RSA\nCannot delete /data/etc/katfail (Read-only file "
            "system): the forced failure will repeat at the next start\n");
  EXPECT_TRUE(still_there);
}

// ---------------------------------------------------------------------------
// Failures reported by the host, and the error text.

TEST_F(SelfTests, FirmwareFailureDoesNotStopTheRngTest) {
  Host().firmware_result = 0;
  Host().rng_result = -1;
  Host().log_result = 3;  // only a negative result means the log failed
  const RunResult r = RunSelfTests();
  EXPECT_EQ(r.mask, 33);
  EXPECT_EQ(r.out, ExpectedRun(33));
  EXPECT_EQ(Host().rng_args.size(), 1u);
  const std::string text =
      "FIPS error: Firmware integrity test failed, RNG self-test failed";
  EXPECT_EQ(Host().logged, std::vector<std::string>{text});
  EXPECT_EQ(Host().error_modes, (ErrorModes{{-3, text}}));
}

TEST_F(SelfTests, AnyHostResultOfOneOrMorePasses) {
  Host().vpn_cfg_result = 2;
  Host().firmware_result = 7;
  Host().rng_result = 1;
  EXPECT_EQ(RunSelfTests().mask, 0);
  Host().vpn_cfg_result = 0;
  EXPECT_EQ(RunSelfTests().mask, 64);
}

TEST_F(SelfTests, FailedLogIsReportedAndErrorModeStillEntered) {
  Host().log_result = -1;
  WriteFile(kMarker, "RSA");
  const RunResult r = RunSelfTests();
  const std::string text = "FIPS error: RSA self-test failed";
  // The message has no line end of its own.
  EXPECT_EQ(r.out, "\nForcing failure of RSA\n" + ExpectedRun(16) +
                       "Failed to log self-test failure: " + text);
  EXPECT_EQ(Host().error_modes, (ErrorModes{{-3, text}}));
}

TEST(ErrorText, ListsMessagesInTableOrder) {
  EXPECT_EQ(ErrorText(0), "FIPS error: ");
  EXPECT_EQ(ErrorText(16), "FIPS error: RSA self-test failed");
  EXPECT_EQ(ErrorText(33),
            "FIPS error: Firmware integrity test failed, RNG self-test failed");
  EXPECT_EQ(ErrorText(66),
            "FIPS error: AES self-test failed, Configuration Integrity test failed");
  const std::string all =
      "FIPS error: Firmware integrity test failed, AES self-test failed, "
      "SHA1 HMAC self-test failed, SHA256 HMAC self-test failed, "
      "3DES self-test failed, RSA self-test failed, RNG self-test failed, "
      "Configuration Integrity test failed";
  EXPECT_EQ(ErrorText(255), all);
  EXPECT_EQ(ErrorText(0xffffffffu), all);  // bits of no test add nothing
  EXPECT_EQ(ErrorText(256), "FIPS error: ");
}

TEST(ErrorText, NeverExceedsTheGivenSize) {
  const std::string all = ErrorText(255);
  for (std::size_t size = 0; size <= all.size() + 2; ++size) {
    std::string buf(all.size() + 8, '\x7f');
    get_self_test_errstr(255, buf.data(), size);
    if (size == 0) {
      EXPECT_EQ(buf, std::string(all.size() + 8, '\x7f'));
      continue;
    }
    const std::string expected = all.substr(0, size - 1);
    EXPECT_EQ(std::string(buf.c_str()), expected) << "size " << size;
    // Nothing past the terminator was touched.
    EXPECT_EQ(buf.find_first_not_of('\x7f', expected.size() + 1), std::string::npos)
        << "size " << size;
  }
}

// ---------------------------------------------------------------------------
// Configuration checks outside the start-up run.

// Only a result of exactly 1 passes here (2 passes the start-up run); a
// failure is reported as the mode says, and enters the error mode.
TEST_F(SelfTests, CheckConfigPassesOnlyOnExactlyOneAndReportsByMode) {
  const std::string report = "\nConfiguration Integrity check failed\n";
  struct Case {
    int host_result, mode, result;
    std::string printed;
    std::vector<std::string> host_messages;
  };
  for (const Case& c : {Case{1, 1, 0, "", {}}, Case{2, 2, -1, report, {}},
                        Case{0, 1, -1, "", {report}}, Case{0, 0, -1, "", {}},
                        Case{0, 3, -1, "", {}}, Case{0, -1, -1, "", {}}}) {
    ResetHost();
    Host().vpn_cfg_result = c.host_result;
    const std::string out =
        CaptureStdout([&] { EXPECT_EQ(fips_check_config(c.mode), c.result); });
    EXPECT_EQ(out, c.printed) << "mode " << c.mode;
    EXPECT_EQ(Host().messages, c.host_messages) << "mode " << c.mode;
    EXPECT_EQ(Host().vpn_cfg_args, std::vector<int>{0});
    EXPECT_EQ(Host().error_modes,
              (c.result == 0 ? ErrorModes{} : ErrorModes{{-4, "configuration"}}));
  }
}

TEST_F(SelfTests, CheckConfigIsNeverForcedAndLeavesTheMarker) {
  WriteFile(kMarker, "Configuration");
  EXPECT_EQ(fips_check_config(0), 0);
  EXPECT_EQ(Host().vpn_cfg_args, std::vector<int>{0});
  EXPECT_TRUE(FileExists(kMarker));
}

TEST_F(SelfTests, UpdateConfigHashesOnlyInFipsCcMode) {
  EXPECT_EQ(fips_update_config(), 0);
  EXPECT_EQ(Host().hash_cfg_args, std::vector<int>{0});

  ResetHost();
  Host().fips_cc_enabled = 0;
  EXPECT_EQ(fips_update_config(), 0);
  EXPECT_TRUE(Host().hash_cfg_args.empty());

  Host().fips_cc_enabled = -1;  // any non-zero value means on
  EXPECT_EQ(fips_update_config(), 0);
  EXPECT_EQ(Host().hash_cfg_args, std::vector<int>{0});
}

}  // namespace
}  // namespace fipsval::testing
