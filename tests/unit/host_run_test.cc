// `fipsval run` and `fipsval entropy` on a hostile machine: another user
// (uid 65534, through setpriv) who owns or links the fixed staging paths or
// entries of the tree, two runs at once, a run killed part way, request
// files the library cannot read right; each attack ends by checking that the
// root-only victim file is untouched. Then the machine-readable result of
// run and verify: the JSON validates against doc/fipsval-result.schema.json
// and names the file that failed and why, the JUnit file is well-formed XML
// whatever a runner message holds, and no report is written through a link.
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

#include "host/run/request_check.h"
#include "host/report/result_report.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using nlohmann::json;

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
  EXPECT_HAS(ReadFile("/tmp/tree/HMAC/resp/HMAC.rsp"), "Mac = ");
  const ProgramResult entropy = Fipsval({"entropy", "2"});
  EXPECT_EQ(entropy.status, 1);
  EXPECT_HAS(entropy.err, "/tmp/resp belongs to uid 65534");
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
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp"));
  EXPECT_HAS(ReadFile("/tmp/tree/SHA/resp/SHA1ShortMsg.rsp"), "MD = da39a3ee");
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/tree/SHA/resp/SHA1LongMsg.rsp")) << "stale link kept";
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
      {std::string((64 << 20) + 1, 'x'), "not answered /tmp/tree/HMAC/req/HMAC.req: cannot read it: larger than 64 MiB", "not-answered"},
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
  // Past 4 GiB (sparse): measured in 64 bits on 32-bit hosts too.
  Shell("truncate -s 4294967297 /tmp/tree/HMAC/req/HMAC.req");
  EXPECT_HAS(Fipsval({"run", "--suite", "HMAC", "/tmp/tree"}).out, "cannot read it: larger than 64 MiB");
}

// By default the library's section titles are shown once each; with -q
// only the files that have a problem, and one merely absent has none.
TEST_F(HostRun, TitlesOnceByDefaultAndOnlyProblemsWhenQuiet) {
  Shell("mkdir -p /tmp/tree/TDES/req && cp " + kSamples + "/TDES/req/TCBCvartext.req " + kSamples +
        "/TDES/req/TCBCinvperm.req /tmp/tree/TDES/req/");
  const ProgramResult run = Fipsval({"run", "--suite", "3DES", "/tmp/tree"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.substr(0, 26), "TDES KAT\nTDES KAT VARTEXT\n");
  EXPECT_EQ(run.out.find("TDES KAT VARTEXT", 20), std::string::npos) << run.out;
  WriteFile("/tmp/tree/TDES/req/TCBCinvperm.req", "[ENCRYPT]\n");
  const ProgramResult quiet = Fipsval({"run", "-q", "--suite", "3DES", "/tmp/tree"});
  EXPECT_EQ(quiet.status, 1);
  EXPECT_EQ(quiet.out.substr(0, quiet.out.find("\nrun: ")),
            "not answered /tmp/tree/TDES/req/TCBCinvperm.req: not run, the library cannot read it right: "
            "line 1: line ends in LF, not CR LF");
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
      {"\n", 1, "line ends in LF, not CR LF"},
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

// The entry of `part` ("run" or "verify") for the file `name`, or null.
json Entry(const json& doc, const char* part, const std::string& name) {
  for (const json& file : doc.value(part, json::object()).value("files", json::array())) {
    if (file["name"] == name) return file;
  }
  return nullptr;
}

class HostResult : public ::testing::Test {
 protected:
  void SetUp() override {
    if (As(-1, {"python3", "-c", "import jsonschema, xml.dom.minidom"}).status != 0) {
      missing_ = "python3 with jsonschema (Debian python3-jsonschema) is missing";
    }
    ASSERT_EQ(0, std::system("rm -rf /tmp/tree /tmp/out /tmp/r.* && cp -r " FIPSVAL_SOURCE_DIR "/samples /tmp/tree"));
  }
  // /tmp/r.json valid under the schema, /tmp/r.xml well-formed XML.
  void ExpectValid() {
    if (!missing_.empty()) GTEST_SKIP() << "not validated: " << missing_;  // the other checks still ran
    const ProgramResult r = As(-1, 
        {"python3", "-c",
         "import json, sys, jsonschema, xml.dom.minidom\n"
         "schema = json.load(open(sys.argv[1]))\n"
         "jsonschema.Draft7Validator.check_schema(schema)\n"
         "jsonschema.Draft7Validator(schema).validate(json.load(open('/tmp/r.json')))\n"
         "xml.dom.minidom.parse('/tmp/r.xml')\n",
         FIPSVAL_SOURCE_DIR "/doc/fipsval-result.schema.json"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
  }
  std::string missing_;
};

// Responses and run record in --output; nothing is written to the tree.
TEST_F(HostResult, RunVerifyOnGoodSamplesValidatesAndCountsEveryFile) {
  const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "--suite", "SHA1", "--suite", "TLS", "--verify",
                                   "-q", "--json", "/tmp/r.json", "--junit", "/tmp/r.xml", "--output",
                                   "/tmp/out", "/tmp/tree"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_HAS(ReadFile("/tmp/out/HMAC/resp/HMAC.rsp"), "Mac = ");
  EXPECT_HAS(ReadFile("/tmp/out/fipsval-run.json"), "\"outcome\": \"answered\"");
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp") || FileExists("/tmp/tree/fipsval-run.json"));
  const json doc = json::parse(ReadFile("/tmp/r.json"), nullptr, false);
  ASSERT_TRUE(doc.is_object()) << ReadFile("/tmp/r.json");
  const std::size_t files = doc["run"]["files"].size();
  EXPECT_GE(files, 5u);
  EXPECT_EQ(doc["run"]["counts"]["answered"], files);
  EXPECT_EQ(doc["verify"]["counts"]["passed"], files);
  EXPECT_EQ(Entry(doc, "verify", "HMAC")["verdict"], "PASS");
  // -q: one line per file and a line of totals for each phase.
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), files + 2) << r.out;
  EXPECT_HAS(ReadFile("/tmp/r.xml"), "tests=\"" + std::to_string(2 * files) + "\" failures=\"0\"");
  ExpectValid();
}

// A wrong expected answer, a request the library cannot read, a response
// directory that is not there: exit 1, and the report says which file and why.
TEST_F(HostResult, FailuresNameTheFileAndTheCause) {
  std::string fax = ReadFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax");
  WriteFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax", fax.replace(fax.find("MD = da39"), 9, "MD = 0a39"));
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", "[L=20]\n\nCount = 0\nKlen = 4\n");  // LF only
  // part "verify": the file's verdict is FAIL; "run": it was not answered;
  // nullptr: the document's error.
  const struct { std::vector<std::string> args; const char *part, *name, *detail; } kCases[] = {
      {{"run", "--verify", "--suite", "SHA1"}, "verify", "SHA1ShortMsg", "first difference"},
      {{"run", "--suite", "HMAC", "--suite", "SHA1"}, "run", "HMAC", "not run"},
      {{"verify", "--output", "/tmp/none"}, nullptr, "", "/tmp/none is not a directory"},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> args = c.args;
    args.insert(args.end(), {"--json", "/tmp/r.json", "--junit", "/tmp/r.xml", "/tmp/tree"});
    const ProgramResult r = Fipsval(args);
    EXPECT_EQ(r.status, 1) << c.detail << r.out << r.err;
    const json doc = json::parse(ReadFile("/tmp/r.json"), nullptr, false);
    ASSERT_TRUE(doc.is_object()) << c.detail << ReadFile("/tmp/r.json");
    EXPECT_EQ(doc["exit_status"], 1);
    std::string detail = doc.value("error", "");
    if (c.part) {
      const json entry = Entry(doc, c.part, c.name);
      ASSERT_TRUE(entry.is_object()) << doc.dump(1);
      const bool verify = c.part == std::string("verify");
      EXPECT_EQ(entry[verify ? "verdict" : "outcome"], verify ? "FAIL" : "not-answered");
      detail = entry[verify ? "detail" : "message"];
    }
    EXPECT_HAS(detail, c.detail);
    EXPECT_HAS(ReadFile("/tmp/r.xml"), "<failure");
    ExpectValid();
  }
}

// A run that stopped is a failed case of its own; files that verify skips
// or stops are skipped cases that say why.
TEST(HostJunit, StoppedRunsAndSkippedFilesHaveTheirCases) {
  host::RunResult run;
  run.error = "stopped: disk full";
  host::VerifyTally tally;
  tally.files = {{"SHA", "A", "SKIP", "no answers", 0}, {"RSA2", "B", "STOPPED", "by design", 0}};
  host::ResultReport report;
  report.run = &run;
  report.verify = &tally;
  const std::string xml = host::ResultJunit(report);
  for (const char* part : {"<failure type=\"run\" message=\"stopped: disk full\">", "failures=\"1\"",
                           "<skipped message=\"SKIP: no answers\"/>", "<skipped message=\"STOPPED: by design\"/>"}) {
    EXPECT_HAS(xml, part);
  }
}

// A report that cannot be written fails a run that did its work.
TEST_F(HostResult, AReportThatCannotBeWrittenFailsTheRun) {
  ASSERT_EQ(0, std::system("mkdir /tmp/out && mount -t tmpfs -o ro out /tmp/out"));
  const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "--json", "/tmp/out/r.json", "/tmp/tree"});
  umount("/tmp/out");
  EXPECT_EQ(r.status, 1);
  EXPECT_HAS(r.err, "cannot write the report /tmp/out/r.json: Read-only file system");
}

TEST_F(HostResult, ReportPathsAreCheckedFirstAndNeverFollowALink) {
  const ProgramResult r = Fipsval({"run", "--suite", "HMAC", "--json", "/tmp/none/r.json", "/tmp/tree"});
  EXPECT_EQ(r.status, 1);
  EXPECT_HAS(r.err, "the directory /tmp/none does not exist");
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp")) << "work done before the check";
  EXPECT_EQ(Fipsval({"verify", "--junit", "/tmp", "/tmp/tree"}).status, 1);
  EXPECT_EQ(Fipsval({"verify", "--json"}).status, 2);

  // A link at the report's name is replaced, its target untouched; the
  // hostile bytes of a runner message still give well-formed XML.
  WriteFile("/tmp/victim", "secret\n");
  ASSERT_EQ(symlink("/tmp/victim", "/tmp/r.xml"), 0);
  host::RunResult run;
  run.files.push_back({"AES", "CBC<&\"'>\u00e9", host::Outcome::kRunnerError,
                       "bad \x01 \xff\xfe \xed\xa0\x80 \xef\xbf\xbe ]]> line\nnext", 0});
  run.runner_errors = 1;
  host::ResultReport report;
  report.version = "0";
  report.command = "run";
  report.tree = report.responses = "/tmp/tree";
  report.run = &run;
  EXPECT_EQ(host::FinishReport(&report, {"/tmp/r.json", "/tmp/r.xml"}, 1), 1);
  EXPECT_EQ(ReadFile("/tmp/victim"), "secret\n");
  struct stat st;
  ASSERT_EQ(lstat("/tmp/r.xml", &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_HAS(ReadFile("/tmp/r.xml"), "name=\"CBC&lt;&amp;&quot;&apos;&gt;\u00e9\"");  // UTF-8 kept
  ExpectValid();
}

}  // namespace
}  // namespace fipsval::testing
