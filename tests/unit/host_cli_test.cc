// The reference host program as a user runs it: its commands, callbacks,
// exit statuses and streams, on an intact, a broken and a hostile machine
// (entries planted by user nobody where the machine has a second user).
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <string>
#include <vector>

#include "host/platform/entropy_source.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

struct Result {
  int status;
  std::string out, err;
};

// Runs fipsval; one still going after 20 s is killed (status 137), so that
// a run that blocks fails the test instead of hanging it.
Result Fipsval(const std::vector<std::string>& args) {
  std::string line = "timeout -s KILL 20 " FIPSVAL_CLI;
  for (const std::string& a : args) line += " '" + a + "'";
  const int status = std::system((line + " >/tmp/cli.out 2>/tmp/cli.err").c_str());
  return {WEXITSTATUS(status), ReadFile("/tmp/cli.out"), ReadFile("/tmp/cli.err")};
}
bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
// The exit status, a part of standard error and, unless "*", all of
// standard output.
::testing::AssertionResult Ran(const Result& r, int status, const std::string& err = "",
                               const std::string& out = "*") {
  if (r.status == status && Has(r.err, err) && (out == "*" || r.out == out)) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << r.status << " out: " << r.out << " err: " << r.err;
}
bool AsNobody(const std::string& command) {
  return std::system(("setpriv --reuid=65534 --regid=65534 --clear-groups sh -c '" + command +
                      "'").c_str()) == 0;
}

std::string Report(const std::string& failed = "") {
  std::string text = "\nFIPS-CC mode: Starting self-tests.\n";
  for (const std::string label : {"Configuration Integrity", "AES", "SHA1 HMAC", "SHA256 HMAC",
                                  "3DES", "RSA", "Firmware integrity", "RNG"}) {
    text += ("Running " + label + " test...").append(46, ' ').substr(0, 46) +
            (label == failed ? "failed\n" : "passed\n");
  }
  return text + (failed.empty() ? "Self-tests passed\n" : "Self-tests failed\n");
}

// A data directory of the test's own: a configuration and a firmware image
// with their digests stored as sha256sum writes them.
class HostCli : public ::testing::Test {
 protected:
  void SetUp() override {
    std::system("rm -rf /tmp/host /tmp/tree /data/etc/katfail; mkdir /tmp/host");
    chmod("/data/etc", 0755);
    WriteFile(cfg_, "tunnel office { remote vpn.example.net }\n");
    WriteFile("/tmp/host/fw.img", std::string(65537, 'Z'));  // a last read of one byte
    std::system("cd /tmp/host && for f in vpn.cfg fw.img; do sha256sum $PWD/$f >$f.sha256; done && "
                "tr a-f A-F <fw.img.sha256 >fw.tmp && mv fw.tmp fw.img.sha256");  // either case is read
  }
  Result Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--data-dir", "/tmp/host", "--config", cfg_, "--firmware",
                               "/tmp/host/fw.img", "--firmware-digest", "/tmp/host/fw.img.sha256"});
    return Fipsval(args);
  }
  const std::string cfg_ = "/tmp/host/vpn.cfg";
};

TEST_F(HostCli, SelftestPassesAndEachForcedFailureEntersTheErrorMode) {
  EXPECT_TRUE(Ran(Fipsval({"selftest"}), 0, "", Report()));  // the built-in data directory
  EXPECT_TRUE(Ran(Fipsval({"-q", "selftest"}), 0, "", ""));  // -q: the exit status says it
  for (const auto& [name, test, mask, message] :
       {std::tuple{"RSA", "RSA", "mask 16", "RSA self-test failed"},
        {"Configuration", "Configuration Integrity", "mask 64",
         "Configuration Integrity test failed"},
        {"Firmware-integrity", "Firmware integrity", "mask 1", "Firmware integrity test failed"},
        {"RNG", "RNG", "mask 32", "RNG self-test failed"}}) {
    // Any case; the marker gets the canonical name the library matches.
    std::string any_case(name);
    any_case[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(any_case[0])));
    EXPECT_TRUE(Ran(Run({"selftest", "--force", any_case}), 3, mask,
                    "\nForcing failure of " + std::string(name) + "\n" + Report(test)));
    EXPECT_TRUE(Has(ReadFile("/tmp/host/fips-errors.log"), std::string(" FIPS error: ") + message));
    EXPECT_EQ(ReadFile("/tmp/host/error-mode"), std::string("-3 FIPS error: ") + message + "\n");
    EXPECT_FALSE(FileExists("/data/etc/katfail"));
  }
  Result r = Run({"--error-log", "/nonexistent/log", "selftest", "--force", "AES"});
  EXPECT_TRUE(Ran(r, 3, "cannot open the error log"));
  ASSERT_EQ(mkfifo("/tmp/log-fifo", 0600), 0);  // refused, not waited on
  EXPECT_TRUE(Ran(Run({"--error-log", "/tmp/log-fifo", "selftest", "--force", "AES"}), 3,
                  "cannot open the error log /tmp/log-fifo: not a regular file"));
  EXPECT_TRUE(Has(r.out, "Failed to log self-test failure: FIPS error: AES self-test failed"));
  r = Run({"--error-mode-file", "/nonexistent/mode", "selftest", "--force", "AES"});
  EXPECT_TRUE(Ran(r, 3, "fipsval: cannot record the error mode in /nonexistent/mode: "));
  EXPECT_TRUE(Ran(Fipsval({"kat", "AES", "rsa"}), 0, "", "aes          passed\nrsa  "
                                                         "        passed\n"));
  EXPECT_TRUE(Ran(Fipsval({"kat", "--force", "3des"}), 1, "", "3des         failed\n"));
  // RDRAND: x86-64 CPUs that have it; elsewhere the RNG test fails and says why.
  EXPECT_TRUE(host::CpuHasRdrand() ? Ran(Fipsval({"--entropy", "rdrand", "selftest"}), 0, "", Report())
                                   : Ran(Run({"--entropy", "rdrand", "selftest"}), 3, "RDRAND is not available"));
}

// A usage error is one line on standard error, status 2, nothing on
// standard output; a failing run is status 1.
TEST_F(HostCli, UserErrorsGiveOneLineAndAnExitStatus) {
  ResetVectorDirs();
  std::system("mkdir -p /tmp/empty /tmp/tree/SHA/req /tmp/rsa/RSA2/req && touch /tmp/tree/SHA/req/SHA1Monte.req && "
              "printf '[mod = 2048]\\r\\n\\r\\nN = 1000000\\r\\n' > /tmp/rsa/RSA2/req/KeyGen_RandomProbablyPrime3_3.req && "
              "mkfifo /tmp/fifo && ln -s /tmp/empty /tmp/outlink");
  ASSERT_EQ(mount("/tmp/tree", "/tmp/tree", nullptr, MS_BIND, nullptr), 0);
  mount(nullptr, "/tmp/tree", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
  const struct {
    std::vector<std::string> args;
    int status;
    std::string says;
  } cases[] = {
      {{"selftest", "--force", "RSA\n"}, 2, "unknown test name \"RSA\\n\""},
      {{"selftest", "--force", "firmware"}, 2, "unknown test name \"firmware\"; the names (any case): "
                                               "AES SHA1-HMAC SHA256-HMAC 3DES RSA RNG "
                                               "Firmware-integrity Configuration"},
      {{"kat", "AESX"}, 2, "kat: unknown test (one of aes, sha1-hmac, "},
      {{"run", "--list", "nope", "/tmp"}, 2, "unknown list"},
      {{"selftest", "--force"}, 2, "--force needs a test name"},
      {{"selftest", "--force", "AES", "--force", "RSA"}, 2, "only one test can be forced"},
      {{"run", "--suite", "NOPE", "/tmp"}, 2, "unknown suite"},
      {{"run", "/tmp/empty"}, 1, "has no request folders"},
      {{"run", "--suite", "SHA1", "/tmp/tree"}, 1, "use --output DIR"},
      // Report paths are checked before any work.
      {{"run", "--suite", "SHA1", "--json", "/tmp/none/r.json", "/tmp/tree"}, 1,
       "the directory /tmp/none does not exist"},
      {{"verify", "--junit", "/tmp", "/tmp/tree"}, 1, "the report /tmp names a directory"},
      {{"verify", "--json"}, 2, "verify: --json needs a file"},
      {{"entropy", "many"}, 2, ""},
      {{"entropy", "0"}, 2, "entropy: the number of samples must be at least 1, not 0"},
      {{"--bogus"}, 2, "unknown option --bogus"},
      {{"run", "--suite", "SHA1", "--output", "/tmp/outlink", "/tmp/tree"}, 1,
       "cannot use the output directory /tmp/outlink: it is a symbolic link (not followed)"},
      {{"--config-digest", "/tmp/fifo", "update-config"}, 1, "cannot write /tmp/fifo: not a regular file"},
      {{"--config", "/tmp/fifo", "update-config"}, 1, "cannot read /tmp/fifo: not a regular file"},
      {{"entropy", "--output"}, 2, "entropy: --output needs a directory"},
      {{"acvp", "--check", "--prompt"}, 2, "acvp --check: --prompt needs a file"},
      {{"frobnicate"}, 2, "(see fipsval --help)"},
      {{}, 2, "(see fipsval --help)"},
      {{"help", "nope"}, 2, "(see fipsval --help)"}};
  for (const auto& c : cases) {
    EXPECT_TRUE(Ran(Fipsval(c.args), c.status, c.says, ""));
  }
  const Result keys = Fipsval({"run", "--suite", "RSA2", "/tmp/rsa"});
  EXPECT_EQ(keys.status, 1);
  EXPECT_TRUE(Has(keys.out, "KeyGen_RandomProbablyPrime3_3.req: not run: line 3: asks for 1000000 keys, at most 100"))
      << keys.out;
  umount("/tmp/tree");
  EXPECT_FALSE(FileExists("/data/etc/katfail") || FileExists("/tmp/tree/SHA/resp"));
  EXPECT_TRUE(Ran(Fipsval({"entropy", "3"}), 0));
  const std::string samples = ReadFile("/tmp/resp/entropy_samples");
  EXPECT_EQ(samples.substr(0, 23), "Min-Entropy Total = 3\r\n");
  EXPECT_EQ(samples.size(), 23u + 3 * 1282);
}

// Another user who can write in /data/etc plants an entry at the marker's
// path: neither `selftest --force` nor the library goes through it, waits
// on it, or shows the victim's content.
TEST_F(HostCli, EntriesPlantedAtTheMarkerAreNeitherFollowedNorWaitedOn) {
  if (!AsNobody("true")) GTEST_SKIP() << "no second uid (setpriv as nobody failed)";
  WriteFile("/tmp/victim", "secret first line\n");
  chmod("/tmp/victim", 0600);
  using Plant = std::pair<std::string, std::string>;
  for (const auto& [plant, kind] : {Plant{"ln -s /tmp/victim", "a symbolic link"},
                                    Plant{"mkfifo", "a FIFO"}}) {
    const std::string reason = "/data/etc/katfail: it is " + kind + ", not a regular file";
    chmod("/data/etc", 0777);
    ASSERT_TRUE(AsNobody(plant + " /data/etc/katfail")) << plant;
    chmod("/data/etc", 0755);
    EXPECT_TRUE(Ran(Fipsval({"selftest", "--force", "AES"}), 1,
                    "cannot write the forced-failure marker " + reason, ""));
    const Result r = Fipsval({"selftest"});
    EXPECT_TRUE(Ran(r, 0, "", "Ignoring " + reason + "\n" + Report()));
    EXPECT_FALSE(Has(r.err, "secret")) << plant;
    EXPECT_EQ(ReadFile("/tmp/victim"), "secret first line\n") << plant;
    unlink("/data/etc/katfail");
  }
}

// Nor is a link in the marker's path: /data/etc itself.
TEST_F(HostCli, ALinkedMarkerFolderIsNotFollowed) {
  ASSERT_EQ(rename("/data/etc", "/data/etc.real"), 0);
  ASSERT_EQ(symlink("/tmp", "/data/etc"), 0);
  EXPECT_TRUE(Ran(Fipsval({"selftest", "--force", "AES"}), 1,
                  "cannot use /data/etc: it is a symbolic link (not followed)", ""));
  EXPECT_FALSE(FileExists("/tmp/katfail"));
  unlink("/data/etc");
  ASSERT_EQ(rename("/data/etc.real", "/data/etc"), 0);
}

TEST_F(HostCli, ConfigurationChecksFailUntilRehashedAndAnUnstoredDigestFails) {
  WriteFile(cfg_, "tunnel office { remote evil.example.net }\n");
  EXPECT_TRUE(Ran(Run({"selftest"}), 3, "does not match", Report("Configuration Integrity")));
  const std::string failed = "\nConfiguration Integrity check failed\n";
  EXPECT_TRUE(Ran(Run({"check-config", "--mode", "2"}), 3, "", failed));
  EXPECT_EQ(ReadFile("/tmp/host/error-mode"), "-4 configuration\n");
  EXPECT_TRUE(Ran(Run({"check-config", "--mode", "1"}), 3, failed, ""));
  EXPECT_TRUE(Ran(Run({"--fips-cc", "off", "update-config"}), 0, "FIPS-CC mode is off"));
  EXPECT_TRUE(Ran(Run({"check-config"}), 3));

  const std::string digest = cfg_ + ".sha256";
  EXPECT_TRUE(Ran(Run({"--config-digest", digest, "update-config"}), 0,
                  "stored the SHA-256 of " + cfg_));
  EXPECT_TRUE(Ran(Run({"check-config"}), 0));
  EXPECT_TRUE(Ran(Run({"selftest"}), 0));
  // The stored digest is right now, which must not pass for a new one.
  ASSERT_EQ(mount(digest.c_str(), digest.c_str(), nullptr, MS_BIND, nullptr), 0);
  mount(nullptr, digest.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
  Result r = Run({"--config-digest", digest, "update-config"});
  umount(digest.c_str());
  EXPECT_TRUE(Ran(r, 1, "cannot write " + digest + ": Read-only file system"));
  EXPECT_FALSE(Has(r.err, "stored")) << r.err;

  // And a noise source that gives nothing.
  std::remove(cfg_.c_str());
  std::remove("/tmp/host/fw.img.sha256");
  ASSERT_EQ(mount("/dev/null", "/dev/urandom", nullptr, MS_BIND, nullptr), 0);
  r = Run({"selftest"});
  umount("/dev/urandom");
  EXPECT_TRUE(Ran(r, 3, "configuration integrity: cannot read " + cfg_));
  EXPECT_TRUE(Ran(r, 3, "firmware integrity: cannot read the stored digest"));
  EXPECT_TRUE(Ran(r, 3, "cannot read /dev/urandom: end of file\nfipsval: RNG test: no samples from the source"));
  EXPECT_TRUE(Ran(r, 3, "mask 97"));
}

TEST(HostCliHelp, HelpAndQuietVerboseAnywhere) {
  const Result r = Fipsval({"--help"});
  EXPECT_TRUE(Ran(r, 0) && r.err.empty());
  for (const char* text : {"/tmp/req", "/tmp/resp", "/data/etc/katfail", "/dev/urandom",
                           "exit status", "-q, --quiet", "-v, --verbose", "--version",
                           "/var/lib/fipsval", "/etc/fipsval/vpn.cfg", "\nCTR_DRBG tests: "}) {
    EXPECT_TRUE(Has(r.out, text)) << text;
  }

  const std::string list = Fipsval({"list"}).out;
  for (auto args : {std::vector<std::string>{"-q", "list"}, {"list", "-v"},
                    {"--quiet", "list", "--verbose"}}) {
    EXPECT_EQ(Fipsval(args).out, list) << args[0];
  }
}

// The RNG self-test's health tests at 7 bits per sample, alpha 2^-40: a run
// of 7 equal samples fails the repetition count test, and 36 occurrences of
// a window's first value in 1024 samples fail the adaptive proportion test.
TEST(HostHealthTests, CutoffsOfTheRepetitionAndProportionTests) {
  struct Case {
    int repeats;     // copies of the window's first value
    bool in_a_row;   // together (repetition) or spread out (proportion)
    bool ok;
  };
  for (const Case c : {Case{6, true, true}, Case{7, true, false},
                       Case{35, false, true}, Case{36, false, false}}) {
    std::vector<uint8_t> samples(2048);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = static_cast<uint8_t>(1 + i % 255);  // never 0
    }
    for (int k = 0; k < c.repeats; ++k) samples[c.in_a_row ? k : k * 20] = 0;
    EXPECT_EQ(host::RunHealthTests(samples).ok(), c.ok)
        << c.repeats << (c.in_a_row ? " in a row" : " spread");
  }
}

}  // namespace
}  // namespace fipsval::testing
