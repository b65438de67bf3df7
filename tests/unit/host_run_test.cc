// `fipsval run`: its engine, console sorter, console and reports tested
// directly (a run's result per request file, the library's lines filed per
// file, the console's lines, the JSON and JUnit reports); the program runs
// only where a process is needed: another user (uid 65534, through setpriv)
// who owns or links the fixed staging paths, two runs at once, a run killed
// part way, and a real run whose reports validate against
// doc/fipsval-result.schema.json. Each attack ends by checking that the
// root-only victim file is untouched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/report/evidence.h"
#include "host/report/run_console.h"
#include "host/run/console_sorter.h"
#include "host/run/run_plan.h"
#include "host/run/tree_engine.h"
#include "host/report/result_report.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using nlohmann::json;

constexpr const char* kVictim = "/tmp/victim";
constexpr const char* kSecret = "root's secret\n";
const std::string kHmac = "[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nKey = 4a656665\nMsg = 00\n";
const std::string kSamples = FIPSVAL_SOURCE_DIR "/samples";
const std::string kEvidence = "/tmp/tree/HMAC/resp/fipsval-evidence.json";

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

struct HostAttack : HostRun {
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
    ASSERT_NE(As(-1, {"unshare", "--mount", "true"}).status, 0) << "private staging not used: " << run.err;
    GTEST_SKIP() << "no private staging: " << run.err;
  }
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_HAS(run.err, "[HMAC] HMAC (");  // -v: the progress
  EXPECT_HAS(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp"), "Mac = ");
  const ProgramResult entropy = Fipsval({"entropy", "2"});
  EXPECT_EQ(entropy.status, 1);
  EXPECT_HAS(entropy.err, "(uid 65534), not to this user: refused (left by their run");
}

// Where a user gets no private staging (uid 65533 here), the shared paths
// must be its own, and one run at a time holds them.
TEST_F(HostAttack, SharedStagingRefusesPathsItDoesNotOwnAndASecondRun) {
  Shell("chown -R 65533:65533 /tmp/tree");
  const ProgramResult probe = Fipsval({"run", "-v", "--suite", "HMAC", "/tmp/tree"}, 65533);
  if (probe.err.find("staging: private") != std::string::npos) {
    GTEST_SKIP() << "a user who is not root gets private staging here: " << probe.err;
  }
  ASSERT_EQ(probe.status, 0) << probe.out << probe.err;
  const struct { const char* attack, *message; } kCases[] = {
      {"mkdir /tmp/req", "(uid 65534), not to this user: refused (left by their run: they or root must remove it)"},
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
    EXPECT_HAS(r.err, "another fipsval run or entropy export is using /tmp/req and /tmp/resp by root (uid 0), process ");
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

// What the engine makes of one request file in each shape it meets: its
// plan, outcome and message in the result and the evidence; a response that
// stops short of its request is a runner error; a file no suite handles,
// in a suite's folder or one no suite knows, is listed; a stale response
// never survives.
TEST_F(HostRun, TheEngineGivesEveryRequestFileItsOutcomeAndMessage) {
  using host::FilePlan;
  using host::FileOutcome;
  const struct { std::string request; FilePlan plan; FileOutcome outcome; const char* message; } kCases[] = {
      {Crlf(kHmac), FilePlan::kRun, FileOutcome::kAnswered, ""},
      {Crlf("[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nMsg = 00\n"), FilePlan::kRun,
       FileOutcome::kRunnerError, "Key field not present"},
      {kHmac, FilePlan::kRefused, FileOutcome::kNotAnswered,
       "not run, the library cannot read it right: line 1: line ends in LF, not CR LF; line 2: line ends "
       "in LF, not CR LF; line 3: line ends in LF, not CR LF (convert it to CR LF line ends, or run with "
       "--accept-lf)"},
      {"", FilePlan::kAbsent, FileOutcome::kNotAnswered, "no request file"},
      {Crlf(kHmac + "[L=99]\n\nCount = 1\nKlen = 4\nTlen = 20\nKey = 4a656665\nMsg = 00\n"), FilePlan::kRun,
       FileOutcome::kRunnerError, "incomplete response: response line 16: Mac = aaf8022d048e62fb9b710d820d91dac03df1d626: "
       "an answer under a section the runner does not know, which cannot be right"},
      {std::string((64 << 20) + 1, 'x'), FilePlan::kRefused, FileOutcome::kNotAnswered,
       "cannot read it: larger than 64 MiB"},
      {"->/tmp/victim", FilePlan::kRefused, FileOutcome::kNotAnswered,
       "cannot read it: it is a symbolic link (not followed)"},
  };
  Shell("mkdir -p /tmp/tree/ECDSA/req && touch /tmp/tree/ECDSA/req/SigGen.req");  // no suite knows ECDSA
  for (const auto& c : kCases) {
    Shell("rm -rf /tmp/tree/HMAC && mkdir -p /tmp/tree/HMAC/req /tmp/tree/HMAC/resp");
    WriteFile("/tmp/tree/HMAC/req/CFB8.req", "x\r\n");
    WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", "stale\r\n");
    if (c.request.starts_with("->")) {
      ASSERT_EQ(symlink(c.request.c_str() + 2, "/tmp/tree/HMAC/req/HMAC.req"), 0);
    } else if (!c.request.empty()) {
      WriteFile("/tmp/tree/HMAC/req/HMAC.req", c.request);
    }
    const host::RunResult run = host::RunTree({.tree = "/tmp/tree", .suites = {&fips_tv_hmac}});
    const host::FileRun* file = run.Find("HMAC", "HMAC");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->plan, c.plan) << c.message;
    EXPECT_EQ(file->outcome, c.outcome) << c.message;
    EXPECT_EQ(file->message, c.message);
    EXPECT_EQ(run.Succeeded(), c.outcome == FileOutcome::kAnswered) << c.message;
    EXPECT_EQ(run.unhandled,
              (std::vector<std::string>{"/tmp/tree/ECDSA/req/SigGen.req", "/tmp/tree/HMAC/req/CFB8.req"}));
    // The evidence lists the responses made, with their outcome and digests.
    const json evidence =
        json::parse(FileExists(kEvidence) ? ReadFile(kEvidence) : "{\"files\": []}");
    ASSERT_EQ(evidence["files"].size(), file->written ? 1u : 0u) << c.message;
    if (file->written) {
      EXPECT_EQ(evidence["files"][0]["outcome"], host::OutcomeName(c.outcome));
      EXPECT_EQ(evidence["files"][0]["response_sha256"],
                host::Sha256Hex(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp")));
    }
    EXPECT_TRUE(c.request.empty() || ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp").find("stale") == std::string::npos);
  }
  // --accept-lf: the LF request, converted, is answered; its evidence is of
  // the file as the tree holds it.
  Shell("rm -rf /tmp/tree/HMAC && mkdir -p /tmp/tree/HMAC/req");
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", kHmac);
  EXPECT_TRUE(host::RunTree({.tree = "/tmp/tree", .suites = {&fips_tv_hmac}, .accept_lf = true}).Succeeded());
  EXPECT_HAS(ReadFile(kEvidence), host::Sha256Hex(kHmac));
  // Past 4 GiB (sparse): measured in 64 bits on 32-bit hosts too.
  Shell("rm -f /tmp/tree/HMAC/req/HMAC.req && truncate -s 4294967297 /tmp/tree/HMAC/req/HMAC.req");
  EXPECT_HAS(Fipsval({"run", "--suite", "HMAC", "/tmp/tree"}).out, "cannot read it: larger than 64 MiB");
}

// A file of the run, for the sorter, the console and the reports.
host::FileRun File(const fips_tv& suite, const char* name, host::FilePlan plan,
                   host::FileOutcome outcome = host::FileOutcome::kNotAnswered, const char* message = "") {
  host::FileRun file;
  file.suite = &suite;
  file.dir = suite.dir;
  file.name = name;
  file.profile = host::FindRequestProfile(name);
  file.request_path = "/t/" + file.dir + "/req/" + name + ".req";
  file.response_path = "/r/" + file.dir + "/resp/" + name + ".rsp";
  file.plan = plan;
  file.outcome = outcome;
  file.written = outcome == host::FileOutcome::kAnswered;
  file.message = plan == host::FilePlan::kAbsent ? "no request file" : message;
  return file;
}

// The sorter files each line of the suites' output under the file staged
// when it was printed, tells titles and progress from runner errors, shows
// the staging paths as the tree's, and concludes each file at its end marker.
TEST(ConsoleSorter, FilesEveryLineUnderItsFileAndConcludesEach) {
  std::vector<host::FileRun> files = {
      File(fips_tv_hmac, "HMAC", host::FilePlan::kRun), File(fips_tv_3des, "TCBCMonte1", host::FilePlan::kRun),
      File(fips_tv_rsa, "SigVer15_186-3", host::FilePlan::kRun), File(fips_tv_sha1, "SHA1ShortMsg", host::FilePlan::kRun)};
  struct Recorder : host::RunObserver {
    void FileBegun(const host::FileRun& f, double) override { said += "begin " + f.name + "\n"; }
    void SuiteDone(const fips_tv& s, double) override { said += "done " + std::string(s.name) + "\n"; }
    void Printed(const host::FileRun* f, host::LineKind kind, std::string_view line) override {
      said += "TPE"[static_cast<int>(kind)] + std::string(" ") + (f ? f->name : "-") + ": " +
              std::string(line) + "\n";
    }
    std::string said;
  } recorder;
  host::ConsoleSorter sorter(files, "@M ", recorder);
  for (const char* line :
       {"Couldn't open /tmp/req/HMAC.req", "@M begin 0", "Couldn't open /tmp/req/Other.req",
        "Key field not present", "@M end 0 ok", "@M begin 1", "TDES MCT 1", "ENCRYPT", "50 of 400",
        "Running file TCBCMonte1", "Running file TCBCMonte2", "Couldn't open /tmp/req/TCBCMonte1.req\r",
        "@M end 1 missing", "@M begin 2", "RSA param n is null", "@M end 2 ok", "@M begin 3", "a\x01",
        "b of c", "c", "d /tmp/resp/SHA1ShortMsg.rsp", "e", "tail@M end 3 error cannot write R: full", "@M end 9 ok",
        "stray"}) {
    sorter.Line(line);
  }
  sorter.Finish();
  EXPECT_EQ(recorder.said,
            "begin HMAC\nE HMAC: Key field not present\ndone HMAC\nbegin TCBCMonte1\nT TCBCMonte1: TDES MCT 1\n"
            "P TCBCMonte1: ENCRYPT\nP TCBCMonte1: 50 of 400\nP TCBCMonte1: Running file TCBCMonte1\n"
            "E TCBCMonte1: Couldn't open /t/TDES/req/TCBCMonte1.req\ndone 3DES\nbegin SigVer15_186-3\n"
            "E SigVer15_186-3: RSA param n is null\ndone RSA2\nbegin SHA1ShortMsg\nE SHA1ShortMsg: a\\x01\n"
            "E SHA1ShortMsg: b of c\nE SHA1ShortMsg: c\nE SHA1ShortMsg: d /r/SHA/resp/SHA1ShortMsg.rsp\nE SHA1ShortMsg: e\n"
            "E SHA1ShortMsg: tail\nE -: stray\ndone SHA1\n");
  using host::FileOutcome;
  const struct { FileOutcome outcome; bool written; const char* message; } kWant[] = {
      {FileOutcome::kRunnerError, true, "Key field not present"},
      {FileOutcome::kRunnerError, false, "Couldn't open /t/TDES/req/TCBCMonte1.req"},
      {FileOutcome::kAnswered, true, "the runner stops at the first test (RSA param n is null)"},
      {FileOutcome::kNotAnswered, false, "cannot write R: full; a\\x01; b of c; c; d /r/SHA/resp/SHA1ShortMsg.rsp; and 2 more lines"}};
  for (std::size_t i = 0; i < files.size(); ++i) {
    EXPECT_EQ(files[i].outcome, kWant[i].outcome) << files[i].name;
    EXPECT_EQ(files[i].written, kWant[i].written) << files[i].name;
    EXPECT_EQ(files[i].message, kWant[i].message);
  }
}

// After a run: -q only the files with a problem, by default every file of
// the tree, -v also those the tree lacks; the totals name the folders that
// received responses; while it runs, the library's lines only with -v,
// each title once, and an error of no file at every verbosity.
TEST(RunConsole, SaysEachFileAtEachVerbosityAndEachTitleOnce) {
  using host::FilePlan;
  host::RunResult run;
  run.tree = run.responses = "/t";
  run.seconds = 2;
  run.files = {File(fips_tv_hmac, "HMAC", FilePlan::kRun, host::FileOutcome::kAnswered),
               File(fips_tv_sha1, "SHA1ShortMsg", FilePlan::kAbsent), File(fips_tv_sha1, "SHA1Monte", FilePlan::kAbsent),
               File(fips_tv_3des, "TCBCMMT1", FilePlan::kRun, host::FileOutcome::kRunnerError, "Key field not present"),
               File(fips_tv_3des, "TCBCMMT2", FilePlan::kAbsent)};
  run.unhandled = {"/t/HMAC/req/X.req"};
  const std::string problem = "runner error /t/TDES/req/TCBCMMT1.req: Key field not present\n";
  const std::string totals = "run: 1 answered, 1 runner errors, 0 not answered, 3 without request file, 1 not "
                             "handled; 1 responses written to /t/HMAC/resp in 2.0 s\n";
  const std::string unhandled = "not handled  /t/HMAC/req/X.req: no suite reads this file\n";
  const std::string kWant[] = {
      problem + totals,
      "answered     /t/HMAC/req/HMAC.req\n" + problem + unhandled + totals,
      "answered     /t/HMAC/req/HMAC.req\nnot in tree  /t/SHA/req/SHA1ShortMsg.req\n"
      "not in tree  /t/SHA/req/SHA1Monte.req\n" + problem + "not in tree  /t/TDES/req/TCBCMMT2.req\n" +
          unhandled + totals};
  for (int verbosity = 0; verbosity <= 2; ++verbosity) {
    EXPECT_EQ(CaptureStdout([&] { host::PrintRunSummary(run, verbosity); }), kWant[verbosity]);
    const std::string live = CaptureStdout([&] {
      host::RunConsole console(stdout, verbosity, false);
      for (const char* title : {"TDES KAT", "TDES KAT", "TDES MMT"}) {
        console.Printed(&run.files[3], host::LineKind::kTitle, title);
      }
      console.Printed(&run.files[3], host::LineKind::kProgress, "ENCRYPT");
      console.Printed(nullptr, host::LineKind::kRunnerError, "bad\x01");
    });
    EXPECT_EQ(live, verbosity < 2 ? "bad\\x01\n" : "TDES KAT\nTDES MMT\nENCRYPT\nbad\\x01\n");
  }
}

// A run killed part way leaves no evidence for the files it was to answer,
// and no response of an earlier run for them.
TEST_F(HostRun, AKilledRunLeavesNoEvidenceAndNoStaleResponses) {
  Shell("rm -rf /tmp/tree && mkdir -p /tmp/tree/HMAC/resp && cp -R " + kSamples + "/TDES " + kSamples +
        "/HMAC /tmp/tree/");
  const std::string stale = "from an earlier run\r\n";
  WriteFile("/tmp/tree/HMAC/resp/HMAC.rsp", stale);
  host::Evidence earlier{"HMAC", {{"HMAC", {"", host::Sha256Hex(stale), "answered", "", "then", "r"}}}, {}};
  WriteFile(kEvidence, host::EvidenceJson(earlier));
  const pid_t run = StartProgram({FIPSVAL_CLI, "run", "--suite", "3DES", "--suite", "HMAC", "/tmp/tree"}, "killed");
  bool started = false;
  for (int i = 0; i < 200 && !started; ++i) {
    usleep(20000);
    started = !FileExists("/tmp/tree/HMAC/resp/HMAC.rsp");
  }
  ASSERT_TRUE(started);
  kill(run, SIGKILL);
  EXPECT_EQ(WaitProgram(run, "killed").status, 128 + SIGKILL);
  EXPECT_EQ(ReadFile(kEvidence).find("\"name\": \"HMAC\""), std::string::npos);
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp"));
}

// A lab's workflows, each judged right: one suite re-run, a tree moved, a
// vendor's responses checked against the lab's expected answers (with and
// without evidence), a tree path that is not UTF-8; and what must fail: a
// request changed after it was answered, a response missing.
TEST_F(HostRun, EvidenceFollowsTheResponsesThroughALabsWorkflows) {
  Shell("rm -rf /tmp/a /tmp/b /tmp/v /tmp/vo && mkdir /tmp/a && cp -R " + kSamples + "/HMAC " + kSamples +
        "/SHA /tmp/a && mkdir /tmp/v && cp -R /tmp/a/HMAC /tmp/a/SHA /tmp/v && rm -rf /tmp/v/*/fax");
  const struct { const char* shell; std::vector<std::string> args; int status; const char* said; } kSteps[] = {
      {"", {"run", "-q", "--suite", "HMAC", "--suite", "SHA1", "/tmp/a"}, 0, "run: 4 answered"},
      {"", {"run", "-q", "--suite", "SHA1", "/tmp/a"}, 0, "run: 3 answered"},
      {"", {"verify", "--suite", "HMAC", "--suite", "SHA1", "/tmp/a"}, 0, " 0 failed\n"},
      {"mv /tmp/a /tmp/b", {"verify", "--suite", "HMAC", "--suite", "SHA1", "/tmp/b"}, 0, "evidence: made "},
      {"", {"run", "-q", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/v"}, 0, "run: 1 answered"},
      {"", {"verify", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/b"}, 0, "PASS HMAC/HMAC ("},
      {"rm /tmp/vo/HMAC/resp/fipsval-evidence.json", {"verify", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/b"},
       0, "1 passed, 0 failed, 1 without evidence"},
      {"", {"verify", "--require-evidence", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/b"}, 1,
       "no evidence (--require-evidence)"},
      {"mv /tmp/b /tmp/caf$(printf '\\351')", {"run", "-q", "--verify", "--suite", "HMAC", "/tmp/caf\xe9"}, 0,
       " 0 failed\n"},
      {"", {"verify", "--suite", "SHA1", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/caf\xe9"}, 1,
       "FAIL SHA/SHA1ShortMsg: no response (--allow-missing"},
      {"", {"verify", "--allow-missing", "--suite", "SHA1", "--suite", "HMAC", "--output", "/tmp/vo", "/tmp/caf\xe9"},
       0, "3 without response"},
      {"for d in /tmp/caf*; do printf '# edited\\r\\n' >> $d/HMAC/req/HMAC.req; done", {"verify", "--suite", "HMAC", "/tmp/caf\xe9"},
       1, "; the request changed since the response was made"},
      {"rm /tmp/caf*/SHA/resp/SHA1Monte.rsp", {"verify", "--allow-missing", "--suite", "SHA1", "/tmp/caf\xe9"}, 1,
       "FAIL SHA/SHA1Monte: no response, although its evidence records one"},
  };
  for (const auto& step : kSteps) {
    if (*step.shell) Shell(step.shell);
    const ProgramResult r = Fipsval(step.args);
    EXPECT_EQ(r.status, step.status) << step.args[0] << " " << step.args.back() << "\n" << r.out << r.err;
    EXPECT_HAS(r.out, step.said);
  }
  Shell("rm -rf /tmp/caf* /tmp/v /tmp/vo");
}

TEST(RequestCheck, FindsWhatTheReaderCannotReadWithItsLine) {
  const struct { std::string text; int line; const char* cause; } kCases[] = {  // line 0: no finding
      {"Key = 0aF9\r\n\r\ne = 010001\r\r\n# Msg = zz\r\nPersonalizationString = \r\n", 0, ""},
      {"Key = 0a\r\nIV = 0g\r\n", 2, "IV has a character that is not a hex digit at column 7"},
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

// --- the machine-readable result (--json, --junit) ---------------------------

class HostResult : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, std::system("rm -rf /tmp/tree /tmp/out /tmp/r.* && cp -r " FIPSVAL_SOURCE_DIR "/samples /tmp/tree"));
  }
  // /tmp/r.json valid under the schema, /tmp/r.xml well-formed XML, and the
  // evidence of an --output /tmp/out run under its schema.
  void ExpectValid() {
    std::vector<std::string> args = {"python3", FIPSVAL_SOURCE_DIR "/tests/support/validate_reports.py",
                                     FIPSVAL_SOURCE_DIR "/doc/fipsval-result.schema.json", "/tmp/r.json",
                                     "--xml", "/tmp/r.xml"};
    if (FileExists("/tmp/out/HMAC/resp/fipsval-evidence.json")) {
      args.insert(args.end(), {FIPSVAL_SOURCE_DIR "/doc/fipsval-evidence.schema.json",
                               "/tmp/out/HMAC/resp/fipsval-evidence.json"});
    }
    const ProgramResult r = As(-1, args);
    if (r.status == 77) GTEST_SKIP() << r.out;  // the other checks still ran
    EXPECT_EQ(r.status, 0) << r.out << r.err;
  }
};

// Responses and their evidence in --output; nothing is written to the tree.
TEST_F(HostResult, RunVerifyOnGoodSamplesValidatesAndCountsEveryFile) {
  const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "--suite", "SHA1", "--suite", "TLS", "--verify",
                                   "-q", "--json", "/tmp/r.json", "--junit", "/tmp/r.xml", "--output",
                                   "/tmp/out", "/tmp/tree"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_HAS(ReadFile("/tmp/out/HMAC/resp/HMAC.rsp"), "Mac = ");
  EXPECT_HAS(ReadFile("/tmp/out/HMAC/resp/fipsval-evidence.json"), "\"outcome\": \"answered\"");
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp"));
  const json doc = json::parse(ReadFile("/tmp/r.json"), nullptr, false);
  ASSERT_TRUE(doc.is_object()) << ReadFile("/tmp/r.json");
  const std::size_t files = doc["run"]["files"].size();
  EXPECT_GE(files, 5u);
  EXPECT_EQ(doc["run"]["counts"]["answered"], files);
  EXPECT_EQ(doc["verify"]["counts"]["passed"], files);
  // -q: one line per file and a line of totals for each phase.
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), files + 2) << r.out;
  EXPECT_HAS(ReadFile("/tmp/r.xml"), "tests=\"" + std::to_string(2 * files) + "\" failures=\"0\"");
  ExpectValid();
}

// One report of every kind of file: the JSON validates under the schema and
// names each failure with its cause; the JUnit XML is well-formed whatever a
// message holds, one failed case a failure and one skipped case a file that
// verify skips or stops at; a link at a report's name is replaced, its
// target untouched.
TEST_F(HostResult, ReportsNameEveryFailureValidateAndNeverFollowALink) {
  using host::FilePlan;
  using host::FileOutcome;
  host::RunResult run;
  run.files = {File(fips_tv_aes, "CBC<&\"'>\u00e9", FilePlan::kRun, FileOutcome::kRunnerError,
                    "bad \x01 \xff\xfe \xed\xa0\x80 \xef\xbf\xbe ]]> line\nnext"),
               File(fips_tv_hmac, "HMAC", FilePlan::kRefused, FileOutcome::kNotAnswered, "not run, the library cannot read it"),
               File(fips_tv_sha1, "SHA1Monte", FilePlan::kAbsent)};
  run.stopped = host::Failed("the run stopped: Killed");
  host::VerifyTally tally;
  tally.files = {{"SHA", "A", "FAIL", "first difference\n  response line 3: MD = 0a", "recorded", 0},
                 {"SHA", "B", "SKIP", "no response", "", 0}, {"RSA2", "C", "STOPPED", "by design", "no evidence", 0},
                 {"SHA", "D", "FAIL", "the request changed", "contradicted", 0}};
  WriteFile("/tmp/victim", "secret\n");
  ASSERT_EQ(symlink("/tmp/victim", "/tmp/r.xml"), 0);
  host::ResultReport report;
  report.version = "0";
  report.command = "run --verify";
  report.tree = report.responses = "/tmp/tree";
  report.run = &run;
  report.verify = &tally;
  EXPECT_EQ(host::FinishReport(&report, {"/tmp/r.json", "/tmp/r.xml"}, 1), 1);
  EXPECT_EQ(ReadFile("/tmp/victim"), "secret\n");
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/r.xml"));
  const json doc = json::parse(ReadFile("/tmp/r.json"));
  EXPECT_EQ(doc["exit_status"], 1);
  EXPECT_EQ(doc["run"]["error"], "the run stopped: Killed");
  EXPECT_EQ(doc["run"]["files"].size(), 2u) << "a file absent from the tree is not one of the run's";
  EXPECT_EQ(doc["run"]["files"][1]["outcome"], "not-answered");
  EXPECT_EQ(doc["run"]["counts"]["without_request"], 1);
  EXPECT_HAS(doc["verify"]["files"][0]["detail"].get<std::string>(), "first difference");
  const std::string xml = ReadFile("/tmp/r.xml");
  for (const char* part : {"name=\"CBC&lt;&amp;&quot;&apos;&gt;\u00e9\"", "tests=\"7\" failures=\"5\"",
                           "<failure type=\"run\" message=\"the run stopped: Killed\">",
                           "<skipped message=\"SKIP: no response\"/>", "<skipped message=\"STOPPED: by design\"/>"}) {
    EXPECT_HAS(xml, part);
  }
  ExpectValid();
}

// Whichever report cannot be written, the exit status and every report that
// was written say that the command failed, and why.
TEST_F(HostResult, AReportThatCannotBeWrittenMakesTheOthersSaySo) {
  Shell("mkdir -p /tmp/rdir/x");
  host::VerifyTally tally;
  tally.passed = 1;
  tally.files = {{"SHA", "A", "PASS", "1 of 1 tests answered", "recorded", 0}};
  const std::string why = "cannot write the report /tmp/rdir: Is a directory";
  for (const bool json_fails : {false, true}) {
    Shell("rm -f /tmp/r.json /tmp/r.xml");
    host::ResultReport report;
    report.version = "0";
    report.command = "verify";
    report.tree = report.responses = "/tmp/tree";
    report.verify = &tally;
    const host::ReportPaths paths = json_fails ? host::ReportPaths{"/tmp/rdir", "/tmp/r.xml"}
                                               : host::ReportPaths{"/tmp/r.json", "/tmp/rdir"};
    EXPECT_EQ(host::FinishReport(&report, paths, 0), 1);
    if (json_fails) {
      EXPECT_HAS(ReadFile("/tmp/r.xml"), "<failure type=\"error\" message=\"" + why + "\">");
    } else {
      const json doc = json::parse(ReadFile("/tmp/r.json"));
      EXPECT_EQ(doc["exit_status"], 1);
      EXPECT_EQ(doc["error"], why);
    }
  }
}

}  // namespace
}  // namespace fipsval::testing
