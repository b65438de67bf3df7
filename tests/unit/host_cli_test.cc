// The reference host program as a user runs it: fipsval's commands, its
// callbacks' real behaviour, its exit statuses and messages.
#include <fcntl.h>
#include <openssl/sha.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/core/host_settings.h"
#include "tests/support/test_env.h"

extern char** environ;

namespace fipsval::testing {
namespace {

struct Result {
  int status = -1;
  std::string out, err;
};

Result Fipsval(std::vector<std::string> args) {
  args.insert(args.begin(), FIPSVAL_CLI);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/tmp/cli.out",
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, "/tmp/cli.err",
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid;
  Result r;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  posix_spawn_file_actions_destroy(&actions);
  r.out = ReadFile("/tmp/cli.out");
  r.err = ReadFile("/tmp/cli.err");
  return r;
}

std::string Label(const char* text) {
  std::string label = text;
  label.resize(46, ' ');
  return label;
}

constexpr const char* kLabels[] = {
    "Running Configuration Integrity test...", "Running AES test...",
    "Running SHA1 HMAC test...",              "Running SHA256 HMAC test...",
    "Running 3DES test...",                   "Running RSA test...",
    "Running Firmware integrity test...",     "Running RNG test..."};

std::string Report(const std::string& failed_label = "") {
  std::string text = "\nFIPS-CC mode: Starting self-tests.\n";
  for (const char* label : kLabels) {
    text += Label(label) + (failed_label == label ? "failed\n" : "passed\n");
  }
  return text + (failed_label.empty() ? "Self-tests passed\n" : "Self-tests failed\n");
}

void StoreSha256(const std::string& file, const std::string& digest_file) {
  const std::string content = ReadFile(file);
  unsigned char md[32];
  SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), md);
  char hex[65];
  for (int i = 0; i < 32; ++i) std::snprintf(hex + 2 * i, 3, "%02x", md[i]);
  WriteFile(digest_file, std::string(hex) + "  " + file + "\n");
}

// A data directory of the test's own, with a configuration and a firmware
// image whose digests are stored.
class HostCli : public ::testing::Test {
 protected:
  void SetUp() override {
    std::system("rm -rf /tmp/host /data/etc/katfail");
    mkdir("/tmp/host", 0755);
    WriteFile(cfg_, "tunnel office { remote vpn.example.net }\n");
    WriteFile(firmware_, std::string(4096, '\x5a'));
    StoreSha256(cfg_, cfg_ + ".sha256");
    StoreSha256(firmware_, firmware_ + ".sha256");
  }
  Result Run(std::vector<std::string> args) {
    std::vector<std::string> all = {"--data-dir", "/tmp/host", "--config", cfg_,
                                    "--firmware", firmware_, "--firmware-digest",
                                    firmware_ + ".sha256"};
    all.insert(all.end(), args.begin(), args.end());
    return Fipsval(all);
  }
  const std::string cfg_ = "/tmp/host/vpn.cfg";
  const std::string firmware_ = "/tmp/host/firmware.img";
};

TEST(HostCliDefaults, SelftestPassesWithTheBuiltInDataDirectory) {
  const Result r = Fipsval({"selftest"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, Report());
}

TEST_F(HostCli, ForcedRsaFailureEntersTheErrorMode) {
  const Result r = Run({"selftest", "--force", "RSA"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "\nForcing failure of RSA\n" + Report("Running RSA test..."));
  EXPECT_NE(r.err.find("mask 16"), std::string::npos) << r.err;
  EXPECT_FALSE(FileExists("/data/etc/katfail"));
  EXPECT_NE(ReadFile("/tmp/host/fips-errors.log").find(" FIPS error: RSA self-test failed\n"),
            std::string::npos);
  EXPECT_EQ(ReadFile("/tmp/host/error-mode"), "-3 FIPS error: RSA self-test failed\n");
}

TEST_F(HostCli, EachCallbackHonoursItsForcedFailure) {
  const struct {
    const char* name;
    const char* label;
    const char* mask;
  } cases[] = {{"Configuration", "Running Configuration Integrity test...", "mask 64"},
               {"Firmware-integrity", "Running Firmware integrity test...", "mask 1"},
               {"RNG", "Running RNG test...", "mask 32"}};
  for (const auto& c : cases) {
    const Result r = Run({"selftest", "--force", c.name});
    EXPECT_EQ(r.status, 3) << c.name;
    EXPECT_EQ(r.out, "\nForcing failure of " + std::string(c.name) + "\n" + Report(c.label));
    EXPECT_NE(r.err.find(c.mask), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("forced failure"), std::string::npos) << r.err;
  }
}

TEST_F(HostCli, ChangedConfigurationFailsUntilRehashed) {
  WriteFile(cfg_, "tunnel office { remote evil.example.net }\n");
  Result r = Run({"selftest"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, Report("Running Configuration Integrity test..."));
  EXPECT_NE(r.err.find("does not match"), std::string::npos) << r.err;

  r = Run({"check-config", "--mode", "2"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "\nConfiguration Integrity check failed\n");
  EXPECT_EQ(ReadFile("/tmp/host/error-mode"), "-4 configuration\n");

  r = Run({"check-config", "--mode", "1"});
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("\nConfiguration Integrity check failed\n"), std::string::npos);

  r = Run({"update-config"});
  EXPECT_EQ(r.status, 0) << r.err;
  r = Run({"check-config"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Run({"selftest"}).status, 0);
}

TEST_F(HostCli, UpdateConfigDoesNothingOutsideFipsCcMode) {
  WriteFile(cfg_, "changed\n");
  const Result r = Run({"--fips-cc", "off", "update-config"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("FIPS-CC mode is off"), std::string::npos);
  EXPECT_EQ(Run({"check-config"}).status, 3);
}

TEST_F(HostCli, MissingFilesFailTheirTestWithAClearMessage) {
  std::remove(cfg_.c_str());
  std::remove((firmware_ + ".sha256").c_str());
  const Result r = Run({"selftest"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.err.find("configuration integrity: cannot read " + cfg_),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find("firmware integrity: cannot read the stored digest"),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find("mask 65"), std::string::npos) << r.err;
  EXPECT_EQ(Run({"update-config"}).status, 1);
}

TEST_F(HostCli, UnwritableErrorLogIsReportedAndTheErrorModeStillEntered) {
  const Result r = Run({"--error-log", "/nonexistent/dir/log", "selftest",
                        "--force", "AES"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("Failed to log self-test failure: FIPS error: AES self-test failed"),
            std::string::npos) << r.out;
  EXPECT_NE(r.err.find("cannot open the error log"), std::string::npos);
}

TEST(HostCliEntropy, WritesTheRequestedSamples) {
  ResetVectorDirs();
  const Result r = Fipsval({"entropy", "3"});
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string samples = ReadFile("/tmp/resp/entropy_samples");
  EXPECT_EQ(samples.substr(0, 23), "Min-Entropy Total = 3\r\n");
  EXPECT_EQ(samples.size(), 23u + 3 * (1280 + 2));
  EXPECT_EQ(Fipsval({"entropy", "many"}).status, 2);
}

TEST(HostCliRun, UserErrorsGiveOneLineAndAnExitStatus) {
  ResetVectorDirs();
  Result r = Fipsval({"run", "--suite", "NOPE", "/tmp"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("unknown suite"), std::string::npos);
  r = Fipsval({"run", "--list", "nope", "/tmp"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("unknown list"), std::string::npos);

  mkdir("/tmp/empty-tree", 0755);
  r = Fipsval({"run", "/tmp/empty-tree"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("has no request folders"), std::string::npos) << r.err;

  std::system("mkdir -p /tmp/tree/SHA/req && printf 'x\\r\\n' > /tmp/tree/SHA/req/SHA1Monte.req");
  ASSERT_EQ(mount("/tmp/tree", "/tmp/tree", nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, "/tmp/tree", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  r = Fipsval({"run", "--suite", "SHA1", "/tmp/tree"});
  umount("/tmp/tree");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("use --output DIR"), std::string::npos) << r.err;
  EXPECT_FALSE(FileExists("/tmp/tree/SHA/resp"));
}

TEST(HostCliRun, StagesCollectsAndCleansUp) {
  ResetVectorDirs();
  std::system("rm -rf /tmp/tree && mkdir -p /tmp/tree/HMAC/req");
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", Crlf("[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\n"
                                               "Key = 4a656665\nMsg = 00\n"));
  const Result r = Fipsval({"run", "--suite", "HMAC", "/tmp/tree"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp"));
  EXPECT_FALSE(FileExists("/tmp/req/HMAC.req"));
  EXPECT_FALSE(FileExists("/tmp/resp/HMAC.rsp"));
}

TEST(HostCliHelp, SaysWhatEachCommandDoesTheFixedPathsAndExitCodes) {
  const Result r = Fipsval({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  for (const char* text : {"/tmp/req", "/tmp/resp", "/data/etc/katfail", "/dev/urandom",
                           "exit status", "selftest", "verify", "-q, --quiet",
                           "-v, --verbose", "--version", "/var/lib/fipsval",
                           "/etc/fipsval/vpn.cfg", "\nCTR_DRBG tests: "}) {
    EXPECT_NE(r.out.find(text), std::string::npos) << text;
  }
  EXPECT_EQ(r.out.find("CTR_DRBG tests on this machine"), std::string::npos);
  const Result entropy = Fipsval({"help", "entropy"});
  EXPECT_NE(entropy.out.find("\"Min-Entropy Total = COUNT\""), std::string::npos);
  EXPECT_NE(entropy.out.find("1280 lower-case hex digits"), std::string::npos);
  const Result run = Fipsval({"run", "--help"});
  EXPECT_NE(run.out.find("Exit: 0"), std::string::npos);
  // Usage errors: a message on standard error, nothing on standard output.
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"frobnicate"}, {}, {"help", "nope"}}) {
    const Result bad = Fipsval(args);
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.out, "");
    EXPECT_NE(bad.err.find("(see fipsval --help)"), std::string::npos) << bad.err;
  }
}

TEST(HostCliOptions, VersionIsTheProjectsAndQuietVerboseStandAnywhere) {
  const std::string cmake = ReadFile(FIPSVAL_SOURCE_DIR "/CMakeLists.txt");
  const std::size_t at = cmake.find("project(fipsval VERSION ");
  ASSERT_NE(at, std::string::npos);
  const std::string version = cmake.substr(at + 24, cmake.find_first_of(" )", at + 24) - at - 24);
  const Result r = Fipsval({"list", "--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "fipsval " + version + "\n");

  const Result list = Fipsval({"list"});
  ASSERT_EQ(list.status, 0) << list.err;
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"-q", "list"}, {"list", "-v"}, {"--quiet", "list", "--verbose"}}) {
    const Result same = Fipsval(args);
    EXPECT_EQ(same.status, 0) << args[0] << same.err;
    EXPECT_EQ(same.out, list.out);
  }
}

// Where an installed program looks for its files, by where it is installed.
TEST(HostCliLocations, FollowTheInstallationPrefix) {
  const struct {
    const char* bin;
    const char* data_dir;
    const char* config;
    const char* samples;
  } cases[] = {
      {"/usr/bin", "/var/lib/fipsval", "/etc/fipsval/vpn.cfg", "/usr/share/fipsval/samples"},
      {"/usr/local/bin", "/usr/local/var/lib/fipsval", "/usr/local/etc/fipsval/vpn.cfg",
       "/usr/local/share/fipsval/samples"},
      {"/tmp/root/usr/bin/", "/tmp/root/var/lib/fipsval", "/tmp/root/etc/fipsval/vpn.cfg",
       "/tmp/root/usr/share/fipsval/samples"},
      {"/opt/fv/bin", "/opt/fv/var/lib/fipsval", "/opt/fv/etc/fipsval/vpn.cfg",
       "/opt/fv/share/fipsval/samples"},
  };
  for (const auto& c : cases) {
    const host::DefaultLocations d = host::DefaultLocationsFor(c.bin);
    EXPECT_FALSE(d.build_tree) << c.bin;
    EXPECT_EQ(d.data_dir, c.data_dir);
    EXPECT_EQ(d.config, c.config);
    EXPECT_EQ(d.samples_dir, c.samples);
  }
  const std::string program = FIPSVAL_CLI;
  const host::DefaultLocations built =
      host::DefaultLocationsFor(program.substr(0, program.rfind('/')));
  EXPECT_TRUE(built.build_tree);
  EXPECT_EQ(built.data_dir, program.substr(0, program.rfind('/')) + "/fipsval-data");
  EXPECT_EQ(built.samples_dir, FIPSVAL_SOURCE_DIR "/samples");
}

// The README shows the example host that the install test builds, and its
// command table has every command of the help.
TEST(HostCliReadme, ShowsTheTestedExampleAndEveryCommand) {
  const std::string readme = ReadFile(FIPSVAL_SOURCE_DIR "/README.md");
  const std::string example = ReadFile(FIPSVAL_SOURCE_DIR "/tests/install/example_host.c");
  ASSERT_FALSE(example.empty());
  EXPECT_NE(readme.find("```c\n" + example + "```\n"), std::string::npos);

  const std::string help = Fipsval({"--help"}).out;
  std::size_t at = help.find("commands:\n");
  ASSERT_NE(at, std::string::npos);
  for (at += 10; help.compare(at, 2, "  ") == 0; at = help.find('\n', at) + 1) {
    const std::string name = help.substr(at + 2, help.find_first_of(" \n", at + 2) - at - 2);
    EXPECT_NE(readme.find("| `" + name), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace fipsval::testing
