// `fipsval run` and `fipsval entropy` on a hostile machine: another user
// (uid 65534, through setpriv) who owns or links the fixed staging paths or
// entries of the tree, two runs at once, a run killed part way, request
// files the library cannot read right. Every test ends by checking that the
// root-only victim file is untouched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/core/request_check.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

constexpr const char* kVictim = "/tmp/victim";
constexpr const char* kSecret = "root's secret\n";
const std::string kHmac = "[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nKey = 4a656665\nMsg = 00\n";
const std::string kSamples = FIPSVAL_SOURCE_DIR "/samples";

// args run as `uid` (through setpriv), or as this user when uid is -1.
ProgramResult As(int uid, std::vector<std::string> args) {
  if (uid >= 0) {
    const std::string id = std::to_string(uid);
    args.insert(args.begin(), {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"});
  }
  return WaitProgram(StartProgram(args, "program"), "program");
}
ProgramResult Fipsval(std::vector<std::string> args, int uid = -1) {
  args.insert(args.begin(), FIPSVAL_CLI);
  return As(uid, args);
}
bool Attacker(const std::string& command) { return As(65534, {"sh", "-c", command}).status == 0; }
void Shell(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }
bool IsLink(const char* path) {
  struct stat st;
  return lstat(path, &st) == 0 && S_ISLNK(st.st_mode);
}

class HostRun : public ::testing::Test {
 protected:
  void SetUp() override {
    Shell("rm -rf /tmp/req /tmp/resp /tmp/tree /tmp/out /tmp/a /tmp/b /tmp/.fipsval.lock && "
          "mkdir -p /tmp/tree/HMAC/req /tmp/tree/SHA/req");
    WriteFile("/tmp/tree/HMAC/req/HMAC.req", Crlf(kHmac));
    WriteFile(kVictim, kSecret);
    chmod(kVictim, 0600);
  }
  void TearDown() override {
    struct stat st;
    ASSERT_EQ(lstat(kVictim, &st), 0);
    EXPECT_EQ(st.st_mode, S_IFREG | 0600);
    EXPECT_EQ(ReadFile(kVictim), kSecret);
  }
};

class HostAttack : public HostRun {
 protected:
  void SetUp() override {
    HostRun::SetUp();
    if (!Attacker("true")) GTEST_SKIP() << "no second uid here (setpriv --reuid=65534 failed)";
  }
};

// The attacker made /tmp/req and /tmp/resp first and planted links and a
// request of its own there.
TEST_F(HostAttack, PlantedStagingPathsDoNotReachTheRun) {
  ASSERT_TRUE(Attacker("mkdir -m 777 /tmp/req /tmp/resp && ln -s /tmp/victim /tmp/resp/HMAC.rsp && "
                       "ln -s /tmp/victim /tmp/resp/entropy_samples && "
                       "printf 'hostile\\r\\n' > /tmp/req/HMAC.req"));
  const ProgramResult run = Fipsval({"run", "-v", "--suite", "HMAC", "/tmp/tree"});
  if (run.err.find("staging: private") == std::string::npos) {
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_HAS(run.err, "/tmp/req belongs to uid 65534");
    GTEST_SKIP() << "no private staging here: " << run.err;
  }
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_HAS(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp"), "Mac = ");
  ProgramResult entropy = Fipsval({"entropy", "2"});
  EXPECT_EQ(entropy.status, 1);
  EXPECT_HAS(entropy.err, "/tmp/resp belongs to uid 65534");
  entropy = Fipsval({"entropy", "2", "--output", "/tmp/out"});
  EXPECT_EQ(entropy.status, 0) << entropy.err;
  EXPECT_EQ(ReadFile("/tmp/out/entropy_samples").size(), 23u + 2 * 1282);
}

// Links that the attacker put in a tree it can write.
TEST_F(HostAttack, LinksInTheTreeAreRefusedOrReplacedNeverFollowed) {
  Shell("mkdir -p /tmp/tree/SHA/resp && chmod -R 777 /tmp/tree");
  WriteFile("/tmp/tree/SHA/req/SHA1ShortMsg.req", Crlf("[L = 20]\n\nLen = 0\nMsg = 00\n"));
  ASSERT_TRUE(Attacker("cd /tmp/tree/SHA && ln -s /tmp/victim req/SHA1LongMsg.req && "
                       "ln -s /tmp/victim resp/SHA1ShortMsg.rsp && ln -s /tmp/victim resp/SHA1LongMsg.rsp"));
  const ProgramResult run = Fipsval({"run", "--suite", "SHA1", "/tmp/tree"});
  EXPECT_EQ(run.status, 1);
  EXPECT_HAS(run.out, "/tmp/tree/SHA/req/SHA1LongMsg.req: cannot read it: it is a symbolic link (not followed)");
  EXPECT_FALSE(IsLink("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp"));
  EXPECT_HAS(ReadFile("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp"), "MD = da39a3ee");
  EXPECT_FALSE(IsLink("/tmp/tree/SHA/resp/SHA1LongMsg.rsp")) << "stale link kept";
}

// Where a user gets no private staging (uid 65533 here), the shared paths
// must be its own, and one run at a time holds them.
TEST_F(HostAttack, SharedStagingRefusesPathsItDoesNotOwnAndASecondRun) {
  Shell("chown -R 65533:65533 /tmp/tree");
  const ProgramResult probe = Fipsval({"run", "-v", "--suite", "HMAC", "/tmp/tree"}, 65533);
  if (probe.err.find("staging: shared") == std::string::npos) {
    GTEST_SKIP() << "a user who is not root gets private staging here: " << probe.err;
  }
  ASSERT_EQ(probe.status, 0) << probe.out << probe.err;
  const struct { const char* attack, *message; } kCases[] = {
      {"mkdir /tmp/req", "/tmp/req belongs to uid 65534, not to this user: refused"},
      {"ln -s /tmp/victim /tmp/resp", "/tmp/resp is not a directory (a link or a file): refused"},
  };
  for (const auto& c : kCases) {
    Shell("rm -rf /tmp/req /tmp/resp /tmp/tree/HMAC/resp");
    ASSERT_TRUE(Attacker(c.attack));
    const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "/tmp/tree"}, 65533);
    EXPECT_EQ(r.status, 1) << c.attack;
    EXPECT_HAS(r.err, c.message);
    EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp")) << c.attack;
  }
  Shell("rm -rf /tmp/req /tmp/resp");
  const int lock = open("/tmp/.fipsval.lock", O_RDONLY);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const std::vector<std::string> kSecond[] = {{"run", "--suite", "HMAC", "/tmp/tree"}, {"entropy", "1"}};
  for (const auto& args : kSecond) {
    const ProgramResult r = Fipsval(args, 65533);
    EXPECT_EQ(r.status, 1) << args[0];
    EXPECT_HAS(r.err, "another fipsval run or entropy export is using");
  }
  close(lock);
}

// Two runs at once on two trees answer each its own requests in full; two
// runs answering into the same place are not allowed.
TEST_F(HostRun, ConcurrentRunsAreIndependentOrRefused) {
  Shell("mkdir /tmp/a /tmp/b && cp -R " + kSamples + "/AES /tmp/a && cp -R " + kSamples + "/AES /tmp/b");
  const pid_t a = StartProgram({FIPSVAL_CLI, "run", "--suite", "AES", "/tmp/a"}, "a");
  const pid_t b = StartProgram({FIPSVAL_CLI, "run", "--suite", "AES", "/tmp/b"}, "b");
  EXPECT_EQ(WaitProgram(a, "a").status + WaitProgram(b, "b").status, 0);
  for (const char* tree : {"/tmp/a", "/tmp/b"}) {
    EXPECT_HAS(Fipsval({"verify", "--strict", "--suite", "AES", tree}).out, "18 passed, 0 failed");
  }
  const int busy = open("/tmp/a", O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(busy, LOCK_EX), 0);
  const ProgramResult r = Fipsval({"run", "--suite", "AES", "/tmp/a"});
  close(busy);
  EXPECT_EQ(r.status, 1);
  EXPECT_HAS(r.err, "another fipsval run is writing responses to /tmp/a");
}

// The summary line, the run record and the exit status of one request file;
// a file no suite handles is listed, a stale response never survives.
TEST_F(HostRun, EveryRequestFileGetsAnOutcomeAndTheStatusFollows) {
  const struct { std::string request; const char* line, *outcome; } kCases[] = {  // request "": none
      {Crlf(kHmac), "answered     /tmp/tree/HMAC/req/HMAC.req\n", "answered"},
      {Crlf("[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nMsg = 00\n"),
       "runner error /tmp/tree/HMAC/req/HMAC.req: Key field not present", "runner-error"},
      {kHmac,
       "not answered /tmp/tree/HMAC/req/HMAC.req: not run, the library cannot read it right: "
       "line 1: line ends in LF, not CR LF",
       "not-answered"},
      {"", "not answered /tmp/tree/HMAC/req: no request file of suite HMAC", "not-answered"},
  };
  for (const auto& c : kCases) {
    Shell("rm -rf /tmp/tree/HMAC && mkdir -p /tmp/tree/HMAC/req /tmp/tree/HMAC/resp");
    WriteFile("/tmp/tree/HMAC/req/CFB8.req", "x\r\n");
    WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", "stale\r\n");
    if (!c.request.empty()) WriteFile("/tmp/tree/HMAC/req/HMAC.req", c.request);
    const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "/tmp/tree"});
    EXPECT_EQ(r.status, c.outcome == std::string("answered") ? 0 : 1) << r.out << r.err;
    EXPECT_HAS(r.out, c.line);
    EXPECT_HAS(r.out, "not handled  /tmp/tree/HMAC/req/CFB8.req");
    EXPECT_EQ(r.out.find("/tmp/req/"), std::string::npos) << "staging path shown: " << r.out;
    const std::string record = ReadFile("/tmp/tree/fipsval-run.json");
    EXPECT_HAS(record, std::string("\"outcome\": \"") + c.outcome + "\"");
    EXPECT_EQ(record.find("\"finished\": null"), std::string::npos) << record;
    if (!c.request.empty()) {
      EXPECT_EQ(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp").find("stale"), std::string::npos);
    }
  }
}

// A run killed part way leaves a record that says so, and no response of
// an earlier run for the files it was to answer.
TEST_F(HostRun, AKilledRunLeavesAnUnfinishedRecordAndNoStaleResponses) {
  Shell("rm -rf /tmp/tree && mkdir -p /tmp/tree/HMAC/resp && cp -R " + kSamples + "/TDES " + kSamples +
        "/HMAC /tmp/tree/");
  WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", "from an earlier run\r\n");
  const pid_t run = StartProgram({FIPSVAL_CLI, "run", "--suite", "3DES", "--suite", "HMAC", "/tmp/tree"}, "killed");
  bool started = false;
  for (int i = 0; i < 200 && !started; ++i) {
    usleep(20000);
    started = ReadFile("/tmp/tree/fipsval-run.json").find("\"finished\": null") != std::string::npos &&
              !FileExists("/tmp/tree/HMAC/resp/HMAC.rsp");
  }
  ASSERT_TRUE(started);
  kill(run, SIGKILL);
  EXPECT_EQ(WaitProgram(run, "killed").status, 128 + SIGKILL);
  EXPECT_HAS(ReadFile("/tmp/tree/fipsval-run.json"), "\"finished\": null");
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp"));
}

TEST(RequestCheck, FindsWhatTheReaderCannotReadWithItsLine) {
  const struct { std::string text; int line; const char* cause; } kCases[] = {  // line 0: no finding
      {"Key = 0aF9\r\n\r\ne = 010001\r\r\n# Msg = zz\r\nPersonalizationString = \r\n", 0, ""},
      {"Key = 0a\r\nIV = 0g\r\n", 2, "IV has a character that is not a hex digit at column 7"},
      {"a\r\nb\n", 2, "line ends in LF, not CR LF"},
      {"a\r\nb", 2, "last line does not end in CR LF"},
      {std::string("a\r\nb\0c\r\n", 8), 2, "NUL byte (the reader stops there)"},
  };
  for (const auto& c : kCases) {
    const auto findings = host::CheckRequest(c.text);
    ASSERT_EQ(findings.empty(), c.line == 0) << c.text;
    if (c.line == 0) continue;
    EXPECT_EQ(findings[0].line, c.line) << c.text;
    EXPECT_EQ(findings[0].cause, c.cause);
  }
}

}  // namespace
}  // namespace fipsval::testing
