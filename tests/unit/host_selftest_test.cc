// fipsval's self-test commands against a hostile or broken machine: marker
// entries planted by another user, names the library would not match, a
// digest that cannot be stored. Attackers act as user nobody where the
// machine allows it.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/test_env.h"

extern char** environ;

namespace fipsval::testing {
namespace {

constexpr char kMarker[] = "/data/etc/katfail";
constexpr char kVictim[] = "/tmp/victim";

struct Result {
  int status = -1;
  std::string out, err;
};

// Runs fipsval; a run still going after 20 s is killed (status 137), so
// that one that blocks fails the test instead of hanging it.
Result Fipsval(std::vector<std::string> args) {
  args.insert(args.begin(), {"timeout", "-s", "KILL", "20", FIPSVAL_CLI});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/tmp/cli.out", O_WRONLY | O_CREAT | O_TRUNC,
                                   0644);
  posix_spawn_file_actions_addopen(&actions, 2, "/tmp/cli.err", O_WRONLY | O_CREAT | O_TRUNC,
                                   0644);
  Result r;
  pid_t pid;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  posix_spawn_file_actions_destroy(&actions);
  r.out = ReadFile("/tmp/cli.out");
  r.err = ReadFile("/tmp/cli.err");
  return r;
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Runs a shell command as user nobody; false when this machine has no
// second user to run it as.
bool AsNobody(const std::string& command) {
  const std::string line =
      "setpriv --reuid=65534 --regid=65534 --clear-groups sh -c '" + command + "'";
  return std::system(line.c_str()) == 0;
}

class HostSelftest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::system("rm -rf /data/etc/katfail /tmp/host");
    chmod("/data/etc", 0755);
  }
  void TearDown() override { SetUp(); }
};

TEST_F(HostSelftest, ForceRefusesNamesTheLibraryWouldNotMatch) {
  const std::string names =
      "AES SHA1-HMAC SHA256-HMAC 3DES RSA RNG Firmware-integrity Configuration";
  const struct {
    std::vector<std::string> args;
    std::string says;
  } cases[] = {
      {{"--force", "aes"}, "unknown test name \"aes\" (did you mean AES?)"},
      {{"--force", "RSA\n"}, "unknown test name \"RSA\\n\""},
      {{"--force", ""}, "unknown test name \"\""},
      {{"--force", "firmware"}, "unknown test name \"firmware\"; names are exact: " + names},
      {{"--force"}, "--force needs a test name"},
      {{"--force", "AES", "--force", "RSA"}, "only one test can be forced"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"selftest"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result r = Fipsval(args);
    EXPECT_EQ(r.status, 2) << c.says;
    EXPECT_TRUE(Has(r.err, c.says)) << r.err;
    EXPECT_EQ(r.out, "") << "no self-test ran for " << c.says;
    EXPECT_FALSE(FileExists(kMarker)) << c.says;
  }
}

// Another user who can write in /data/etc plants an entry at the marker's
// path. Neither `selftest --force` nor the library's reading goes through
// it, waits on it, or shows the victim's content.
TEST_F(HostSelftest, EntriesPlantedAtTheMarkerAreNeitherFollowedNorWaitedOn) {
  if (!AsNobody("true")) GTEST_SKIP() << "no second uid (setpriv as nobody failed)";
  WriteFile(kVictim, "secret first line\n");
  chmod(kVictim, 0600);
  const struct {
    const char* kind;
    std::string plant;
    const char* reason;
  } cases[] = {
      {"symlink", std::string("ln -s ") + kVictim + " " + kMarker,
       "it is a symbolic link, not a regular file"},
      {"FIFO", std::string("mkfifo ") + kMarker, "it is a FIFO, not a regular file"},
  };
  for (const auto& c : cases) {
    chmod("/data/etc", 0777);
    ASSERT_TRUE(AsNobody(c.plant)) << c.kind;
    chmod("/data/etc", 0755);

    Result r = Fipsval({"selftest", "--force", "AES"});
    EXPECT_EQ(r.status, 1) << c.kind;
    EXPECT_TRUE(Has(r.err, std::string("cannot write the forced-failure marker ") + kMarker +
                               ": " + c.reason))
        << r.err;
    EXPECT_EQ(r.out, "") << c.kind;

    r = Fipsval({"selftest"});
    EXPECT_EQ(r.status, 0) << c.kind << r.err;
    EXPECT_EQ(r.out.rfind(std::string("Ignoring ") + kMarker + ": " + c.reason + "\n", 0), 0u)
        << r.out;
    EXPECT_TRUE(Has(r.out, "Self-tests passed")) << r.out;
    EXPECT_FALSE(Has(r.out + r.err, "secret")) << c.kind;
    EXPECT_EQ(ReadFile(kVictim), "secret first line\n") << c.kind;
    unlink(kMarker);
  }
  unlink(kVictim);
}

TEST_F(HostSelftest, UpdateConfigThatCannotStoreTheDigestFails) {
  const std::string cfg = "/tmp/host/vpn.cfg", digest = "/tmp/host/vpn.cfg.sha256";
  mkdir("/tmp/host", 0755);
  WriteFile(cfg, "tunnel office { remote vpn.example.net }\n");
  const std::vector<std::string> args = {"--config", cfg, "--config-digest", digest,
                                         "update-config"};
  Result r = Fipsval(args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(Has(r.err, "stored the SHA-256 of " + cfg)) << r.err;

  // The stored digest is still right, which must not pass for a new one.
  ASSERT_EQ(mount(digest.c_str(), digest.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, digest.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
            0);
  r = Fipsval(args);
  umount(digest.c_str());
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r.err, "cannot write " + digest + ": Read-only file system")) << r.err;
  EXPECT_FALSE(Has(r.err, "stored")) << r.err;
}

TEST(HostKat, VerdictsGoToStandardOutput) {
  Result r = Fipsval({"kat", "aes", "rsa"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "aes          passed\nrsa          passed\n");
  EXPECT_EQ(r.err, "");
  r = Fipsval({"kat", "--force", "3des"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "3des         failed\n");
}

}  // namespace
}  // namespace fipsval::testing
