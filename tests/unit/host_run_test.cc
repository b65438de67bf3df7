// `fipsval run` and `fipsval entropy` against a hostile machine: another
// user who owns or links the fixed staging paths or entries of the tree, a
// second run at the same time, request files the library cannot read right.
// The attacker is uid 65534 (setpriv); each case checks that the victim file
// is untouched, that the message names the cause, and that the legitimate
// run is complete.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/core/request_check.h"
#include "tests/support/test_env.h"

extern char** environ;

namespace fipsval::testing {
namespace {

constexpr const char* kVictim = "/tmp/victim";
constexpr const char* kVictimText = "root's secret\n";
constexpr const char* kHmacRequest =
    "[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nKey = 4a656665\nMsg = 00\n";

struct Result {
  int status = -1;
  std::string out, err;
};

// Starts argv with standard output and error in /tmp/<tag>.out and .err.
pid_t Start(std::vector<std::string> args, const std::string& tag) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string out = "/tmp/" + tag + ".out", err = "/tmp/" + tag + ".err";
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
    pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

Result Finish(pid_t pid, const std::string& tag) {
  Result r;
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) {
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  r.out = ReadFile("/tmp/" + tag + ".out");
  r.err = ReadFile("/tmp/" + tag + ".err");
  return r;
}

std::vector<std::string> As(int uid, std::vector<std::string> args) {
  if (uid < 0) return args;
  const std::string id = std::to_string(uid);
  args.insert(args.begin(),
              {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"});
  return args;
}

Result Fipsval(std::vector<std::string> args, int uid = -1) {
  args.insert(args.begin(), FIPSVAL_CLI);
  return Finish(Start(As(uid, args), "fipsval"), "fipsval");
}

// Runs a shell command as the attacker.
bool Attacker(const std::string& command) {
  return Finish(Start(As(65534, {"sh", "-c", command}), "attacker"), "attacker")
             .status == 0;
}

void Shell(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

class HostRun : public ::testing::Test {
 protected:
  void SetUp() override {
    Shell(
        "rm -rf /tmp/req /tmp/resp /tmp/tree /tmp/out /tmp/victim "
        "/tmp/.fipsval.lock");
    WriteFile(kVictim, kVictimText);
    chmod(kVictim, 0600);
    if (!Attacker("true"))
      GTEST_SKIP() << "no second uid here (setpriv --reuid=65534 failed)";
  }
  static void MakeTree(const std::string& tree) {
    Shell("mkdir -p " + tree + "/HMAC/req " + tree + "/SHA/req");
    WriteFile(tree + "/HMAC/req/HMAC.req", Crlf(kHmacRequest));
  }
  static void ExpectVictimUntouched() {
    struct stat st;
    ASSERT_EQ(lstat(kVictim, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(ReadFile(kVictim), kVictimText);
  }
  // The legitimate HMAC answer (RFC 2202 case 2 key, one-byte message 00).
  static void ExpectAnswered(const std::string& root) {
    const std::string rsp = ReadFile(root + "/HMAC/resp/HMAC.rsp");
    EXPECT_NE(rsp.find("Mac = "), std::string::npos) << rsp;
    struct stat st;
    ASSERT_EQ(lstat((root + "/HMAC/resp/HMAC.rsp").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
  }
};

// The attacker owns the shared staging paths and plants links in them.
TEST_F(HostRun, PlantedStagingPathsDoNotReachAPrivateRun) {
  ASSERT_TRUE(
      Attacker("mkdir -p /tmp/req /tmp/resp && chmod 777 /tmp/req /tmp/resp && "
               "ln -s /tmp/victim /tmp/resp/HMAC.rsp && ln -s /tmp/victim "
               "/tmp/resp/entropy_samples && "
               "printf 'hostile\\r\\n' > /tmp/req/HMAC.req"));
  MakeTree("/tmp/tree");
  const Result run = Fipsval({"run", "-v", "--suite", "HMAC", "/tmp/tree"});
  if (run.err.find("staging: private") == std::string::npos) {
    // Without a namespace the attacker's paths are refused, before any work.
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.err.find("/tmp/req belongs to uid 65534"), std::string::npos)
        << run.err;
    ExpectVictimUntouched();
    GTEST_SKIP() << "no private staging here: " << run.err;
  }
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  ExpectAnswered("/tmp/tree");
  ExpectVictimUntouched();

  // entropy into the attacker's /tmp/resp is refused; into a directory of
  // the user's choice it works.
  Result entropy = Fipsval({"entropy", "2"});
  EXPECT_EQ(entropy.status, 1);
  EXPECT_NE(entropy.err.find("/tmp/resp belongs to uid 65534"),
            std::string::npos)
      << entropy.err;
  entropy = Fipsval({"entropy", "2", "--output", "/tmp/out"});
  EXPECT_EQ(entropy.status, 0) << entropy.err;
  EXPECT_EQ(ReadFile("/tmp/out/entropy_samples").size(), 23u + 2 * 1282);
  ExpectVictimUntouched();
}

// Links inside a tree that the attacker can write.
TEST_F(HostRun, LinksInTheTreeAreRefusedOrReplacedNeverFollowed) {
  MakeTree("/tmp/tree");
  Shell(
      "chmod -R 777 /tmp/tree && mkdir -p /tmp/tree/SHA/resp && chmod 777 "
      "/tmp/tree/SHA/resp");
  WriteFile("/tmp/tree/SHA/req/SHA1ShortMsg.req",
            Crlf("[L = 20]\n\nLen = 0\nMsg = 00\n"));
  ASSERT_TRUE(
      Attacker("ln -s /tmp/victim /tmp/tree/SHA/req/SHA1LongMsg.req && "
               "ln -s /tmp/victim /tmp/tree/SHA/resp/SHA1ShortMsg.rsp && "
               "ln -s /tmp/victim /tmp/tree/SHA/resp/SHA1LongMsg.rsp"));
  const Result run = Fipsval({"run", "--suite", "SHA1", "/tmp/tree"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(
      run.out.find(
          "/tmp/tree/SHA/req/SHA1LongMsg.req: cannot read it: it is a symbolic "
          "link (not followed)"),
      std::string::npos)
      << run.out;
  ExpectVictimUntouched();
  struct stat st;
  ASSERT_EQ(lstat("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp", &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_NE(
      ReadFile("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp").find("MD = da39a3ee"),
      std::string::npos);
  EXPECT_NE(lstat("/tmp/tree/SHA/resp/SHA1LongMsg.rsp", &st), 0)
      << "stale link kept";
}

// Without a namespace (a non-root user inside the test sandbox), the shared
// paths must be the user's own: anything else is refused before any work.
TEST_F(HostRun, SharedStagingRefusesPathsItDoesNotOwnAndASecondRun) {
  MakeTree("/tmp/tree");
  Shell("chown -R 65533:65533 /tmp/tree");
  Result probe = Fipsval({"run", "-v", "--suite", "HMAC", "/tmp/tree"}, 65533);
  if (probe.err.find("staging: shared") == std::string::npos) {
    GTEST_SKIP() << "a non-root user gets private staging here: " << probe.err;
  }
  ASSERT_EQ(probe.status, 0) << probe.out << probe.err;
  const struct {
    const char* attack;
    const char* message;
  } kCases[] = {
      {"mkdir /tmp/req",
       "/tmp/req belongs to uid 65534, not to this user: refused"},
      {"ln -s /tmp/victim /tmp/resp",
       "/tmp/resp is not a directory (a link or a file): refused"},
  };
  for (const auto& c : kCases) {
    Shell("rm -rf /tmp/req /tmp/resp /tmp/tree/HMAC/resp");
    ASSERT_TRUE(Attacker(c.attack));
    const Result r = Fipsval({"run", "--suite", "HMAC", "/tmp/tree"}, 65533);
    EXPECT_EQ(r.status, 1) << c.attack;
    EXPECT_NE(r.err.find(c.message), std::string::npos)
        << c.attack << ": " << r.err;
    EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp")) << c.attack;
    ExpectVictimUntouched();
  }

  // A run in progress holds the lock: a second run or export is refused.
  Shell("rm -rf /tmp/req /tmp/resp");
  const int lock = open("/tmp/.fipsval.lock", O_RDONLY);
  ASSERT_GE(lock, 0);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  for (const char* command : {"run", "entropy"}) {
    const Result r =
        command == std::string("run")
            ? Fipsval({"run", "--suite", "HMAC", "/tmp/tree"}, 65533)
            : Fipsval({"entropy", "1"}, 65533);
    EXPECT_EQ(r.status, 1) << command;
    EXPECT_NE(r.err.find("another fipsval run or entropy export is using"),
              std::string::npos)
        << r.err;
  }
  close(lock);
}

// Two runs at once on two trees: each answers its own requests in full.
TEST_F(HostRun, ConcurrentRunsAreIndependent) {
  const std::string samples = std::string(FIPSVAL_SOURCE_DIR) + "/samples";
  for (const char* tree : {"/tmp/a", "/tmp/b"}) {
    Shell(std::string("rm -rf ") + tree + " && mkdir -p " + tree +
          " && cp -R " + samples + "/AES " + tree + "/");
  }
  const pid_t a = Start({FIPSVAL_CLI, "run", "--suite", "AES", "/tmp/a"}, "a");
  const pid_t b = Start({FIPSVAL_CLI, "run", "--suite", "AES", "/tmp/b"}, "b");
  const Result ra = Finish(a, "a"), rb = Finish(b, "b");
  EXPECT_EQ(ra.status, 0) << ra.out << ra.err;
  EXPECT_EQ(rb.status, 0) << rb.out << rb.err;
  for (const char* tree : {"/tmp/a", "/tmp/b"}) {
    const Result verify =
        Fipsval({"verify", "--strict", "--suite", "AES", tree});
    EXPECT_EQ(verify.status, 0) << verify.out;
    EXPECT_NE(verify.out.find("18 passed, 0 failed"), std::string::npos)
        << verify.out;
  }
  // Two runs answering into the same place: the second is refused.
  const int busy = open("/tmp/a", O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(busy, LOCK_EX), 0);
  const Result r = Fipsval({"run", "--suite", "AES", "/tmp/a"});
  close(busy);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("another fipsval run is writing responses to /tmp/a"),
            std::string::npos)
      << r.err;
}

// What the summary, the record and the exit status say about one tree.
TEST(HostRunSummary, EveryRequestFileGetsAnOutcomeAndTheStatusFollows) {
  const struct {
    const char* file;     // under /tmp/tree
    std::string content;  // "" : no file
    const char* line;     // expected summary line (prefix)
    const char* outcome;  // in fipsval-run.json
  } kCases[] = {
      {"HMAC/req/HMAC.req", Crlf(kHmacRequest),
       "answered     /tmp/tree/HMAC/req/HMAC.req\n", "answered"},
      {"HMAC/req/HMAC.req",
       Crlf("[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nMsg = 00\n"),
       "runner error /tmp/tree/HMAC/req/HMAC.req: Key field not present",
       "runner-error"},
      {"HMAC/req/HMAC.req", kHmacRequest,
       "not answered /tmp/tree/HMAC/req/HMAC.req: not run, the library cannot "
       "read it right: "
       "line 1: line ends in LF, not CR LF",
       "not-answered"},
      {"HMAC/req/HMAC.req", Crlf(kHmacRequest) + "Count = 1",
       "line 8: last line does not end in CR LF", "not-answered"},
      {"HMAC/req/HMAC.req", "",
       "not answered /tmp/tree/HMAC/req: no request file of suite HMAC",
       "not-answered"},
  };
  for (const auto& c : kCases) {
    std::system(
        "rm -rf /tmp/tree && mkdir -p /tmp/tree/HMAC/req /tmp/tree/HMAC/resp");
    WriteFile("/tmp/tree/HMAC/req/CFB8.req", "x\r\n");
    WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", "stale\r\n");
    if (!c.content.empty())
      WriteFile(std::string("/tmp/tree/") + c.file, c.content);
    const Result r = Fipsval({"run", "--suite", "HMAC", "/tmp/tree"});
    const bool ok = std::string(c.outcome) == "answered";
    EXPECT_EQ(r.status, ok ? 0 : 1) << c.line << "\n" << r.out << r.err;
    EXPECT_NE(r.out.find(c.line), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("not handled  /tmp/tree/HMAC/req/CFB8.req"),
              std::string::npos);
    const std::string record = ReadFile("/tmp/tree/fipsval-run.json");
    EXPECT_NE(record.find(std::string("\"outcome\": \"") + c.outcome + "\""),
              std::string::npos)
        << record;
    EXPECT_EQ(record.find("\"finished\": null"), std::string::npos) << record;
    EXPECT_EQ(r.out.find("/tmp/req/"), std::string::npos)
        << "staging path shown: " << r.out;
    if (!c.content.empty()) {
      EXPECT_EQ(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp").find("stale"),
                std::string::npos);
    }
  }
}

TEST(HostRunSummary, OutputDirectoryTakesResponsesAndRecordFromAReadOnlyTree) {
  std::system("rm -rf /tmp/tree /tmp/out && mkdir -p /tmp/tree/HMAC/req");
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", Crlf(kHmacRequest));
  chmod("/tmp/tree", 0555);
  const Result r = Fipsval(
      {"run", "-q", "--suite", "HMAC", "--output", "/tmp/out", "/tmp/tree"});
  chmod("/tmp/tree", 0755);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(ReadFile("/tmp/out/HMAC/resp/HMAC.rsp").find("Mac = "),
            std::string::npos);
  EXPECT_NE(
      ReadFile("/tmp/out/fipsval-run.json").find("\"outcome\": \"answered\""),
      std::string::npos);
  EXPECT_EQ(r.out.find("answered     "), std::string::npos)
      << "-q lists problems only";
}

// A run killed part way leaves a record that says so, and no response of
// an earlier run for the files it was to answer.
TEST(HostRunSummary, AKilledRunLeavesAnUnfinishedRecordAndNoStaleResponses) {
  const std::string samples = std::string(FIPSVAL_SOURCE_DIR) + "/samples";
  Shell("rm -rf /tmp/tree && mkdir -p /tmp/tree/HMAC/resp && cp -R " + samples +
        "/TDES " + samples + "/HMAC /tmp/tree/");
  WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", "from an earlier run\r\n");
  const pid_t run = Start(
      {FIPSVAL_CLI, "run", "--suite", "3DES", "--suite", "HMAC", "/tmp/tree"},
      "killed");
  bool started = false;
  for (int i = 0; i < 200 && !started; ++i) {
    usleep(20000);
    started =
        ReadFile("/tmp/tree/fipsval-run.json").find("\"finished\": null") !=
            std::string::npos &&
        !FileExists("/tmp/tree/HMAC/resp/HMAC.rsp");
  }
  ASSERT_TRUE(started);
  kill(run, SIGKILL);
  EXPECT_EQ(Finish(run, "killed").status, 128 + SIGKILL);
  EXPECT_NE(ReadFile("/tmp/tree/fipsval-run.json").find("\"finished\": null"),
            std::string::npos);
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp"));
}

TEST(RequestCheck, FindsWhatTheReaderCannotReadWithItsLine) {
  const struct {
    std::string text;
    int line;  // 0: no finding
    const char* cause;
  } kCases[] = {
      {"Key = 0aF9\r\n\r\n", 0, ""},
      {"e = 010001\r\r\n", 0, ""},
      {"# Msg = zz\r\nPersonalizationString = \r\n", 0, ""},
      {"Key = 0a\r\nIV = 0g\r\n", 2,
       "IV has a character that is not a hex digit at column 7"},
      {"a\r\nb\n", 2, "line ends in LF, not CR LF"},
      {"a\r\nb", 2, "last line does not end in CR LF"},
      {std::string("a\r\nb\0c\r\n", 8), 2, "NUL byte (the reader stops there)"},
  };
  for (const auto& c : kCases) {
    const auto findings = host::CheckRequest(c.text);
    if (c.line == 0) {
      EXPECT_TRUE(findings.empty()) << c.text;
      continue;
    }
    ASSERT_FALSE(findings.empty()) << c.text;
    EXPECT_EQ(findings[0].line, c.line) << c.text;
    EXPECT_EQ(findings[0].cause, c.cause);
  }
}

}  // namespace
}  // namespace fipsval::testing
