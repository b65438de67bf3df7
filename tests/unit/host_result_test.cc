// The machine-readable result of run and verify (--json, --junit): the JSON
// document validates against doc/fipsval-result.schema.json and names the
// file that failed and why; the JUnit file is well-formed XML whatever a
// runner message holds; a report is never written through a link.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/core/result_report.h"
#include "tests/support/test_env.h"

extern char** environ;

namespace fipsval::testing {
namespace {

constexpr const char* kPython = "/usr/bin/python3";
constexpr const char* kSchema = FIPSVAL_SOURCE_DIR "/doc/fipsval-result.schema.json";
const std::vector<std::string> kQuickSuites = {"--suite", "HMAC", "--suite", "SHA1",
                                               "--suite", "TLS"};

struct Result {
  int status = -1;
  std::string out, err;
};

Result Run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/tmp/result.out",
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, "/tmp/result.err",
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  Result r;
  pid_t pid = -1;
  int status = 0;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0 &&
      waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
    r.status = WEXITSTATUS(status);
  }
  posix_spawn_file_actions_destroy(&actions);
  r.out = ReadFile("/tmp/result.out");
  r.err = ReadFile("/tmp/result.err");
  return r;
}

Result Fipsval(std::vector<std::string> args) {
  args.insert(args.begin(), FIPSVAL_CLI);
  return Run(args);
}

// The schema check and the XML parse need python3 with jsonschema (Debian
// python3-jsonschema); "" when it is there, else why not.
std::string PythonMissing() {
  if (access(kPython, X_OK) != 0) return std::string(kPython) + " is missing";
  if (Run({kPython, "-c", "import jsonschema, xml.dom.minidom"}).status != 0) {
    return "python3's jsonschema module is missing (Debian python3-jsonschema)";
  }
  return "";
}

// Validates the JSON at `json` against the schema and parses the XML at
// `junit`; returns python's complaint, or "" when both are right.
std::string Validate(const std::string& json, const std::string& junit) {
  const Result r = Run(
      {kPython, "-c",
       "import json, sys, jsonschema, xml.dom.minidom\n"
       "schema = json.load(open(sys.argv[1]))\n"
       "jsonschema.Draft7Validator.check_schema(schema)\n"
       "jsonschema.Draft7Validator(schema).validate(json.load(open(sys.argv[2])))\n"
       "xml.dom.minidom.parse(sys.argv[3])\n",
       kSchema, json, junit});
  return r.status == 0 ? "" : r.out + r.err;
}

nlohmann::json Document(const std::string& path) {
  return nlohmann::json::parse(ReadFile(path), nullptr, false);
}

// The entry of `part` ("run" or "verify") for dir/name, or null.
nlohmann::json Entry(const nlohmann::json& doc, const char* part, const std::string& dir,
                     const std::string& name) {
  if (doc.is_object() && doc.contains(part)) {
    for (const nlohmann::json& file : doc[part]["files"]) {
      if (file["dir"] == dir && file["name"] == name) return file;
    }
  }
  return nullptr;
}

class HostResult : public ::testing::Test {
 protected:
  void SetUp() override {
    missing_ = PythonMissing();
    ASSERT_EQ(std::system("rm -rf /tmp/tree /tmp/out /tmp/r.json /tmp/r.xml && "
                          "cp -r " FIPSVAL_SOURCE_DIR "/samples /tmp/tree"),
              0);
  }
  void TearDown() override {
    std::system("rm -rf /tmp/tree /tmp/out /tmp/r.json /tmp/r.xml /tmp/result.*");
  }
  void ExpectValid() {
    if (!missing_.empty()) return;
    EXPECT_EQ(Validate("/tmp/r.json", "/tmp/r.xml"), "");
  }
  std::string missing_;
};

TEST_F(HostResult, RunVerifyOnGoodSamplesValidatesAndCountsEveryFile) {
  std::vector<std::string> args = {"run", "--verify", "-q", "--json", "/tmp/r.json",
                                   "--junit", "/tmp/r.xml", "/tmp/tree"};
  args.insert(args.begin() + 1, kQuickSuites.begin(), kQuickSuites.end());
  const Result r = Fipsval(args);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  const nlohmann::json doc = Document("/tmp/r.json");
  ASSERT_TRUE(doc.is_object()) << ReadFile("/tmp/r.json");
  EXPECT_EQ(doc["command"], "run --verify");
  EXPECT_EQ(doc["exit_status"], 0);
  EXPECT_EQ(doc["tree"], "/tmp/tree");
  const int files = static_cast<int>(doc["run"]["files"].size());
  EXPECT_GE(files, 5);
  EXPECT_EQ(doc["run"]["counts"]["answered"], files);
  EXPECT_EQ(doc["verify"]["counts"]["passed"], files);
  EXPECT_EQ(Entry(doc, "run", "HMAC", "HMAC")["outcome"], "answered");
  EXPECT_EQ(Entry(doc, "verify", "HMAC", "HMAC")["verdict"], "PASS");
  // -q: one line per file and a line of totals for each phase.
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), files + 2) << r.out;
  ExpectValid();
  if (!missing_.empty()) GTEST_SKIP() << "not validated: " << missing_;
}

// A wrong expected answer, a request the library cannot read, a tree that is
// not there: exit 1, and the report says which file and why.
TEST_F(HostResult, FailuresNameTheFileAndTheCause) {
  WriteFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax",
            [] {
              std::string fax = ReadFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax");
              const std::size_t md = fax.find("MD = ");
              if (md != std::string::npos) fax[md + 5] = fax[md + 5] == '0' ? '1' : '0';
              return fax;
            }());
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", "[L=20]\n\nCount = 0\nKlen = 4\n");  // LF only
  struct Case {
    std::vector<std::string> args;
    const char* part;
    const char* dir;
    const char* name;
    const char* field;
    const char* value;
    const char* detail;  // part of the message or detail
  } cases[] = {
      {{"run", "--verify", "--suite", "SHA1", "/tmp/tree"}, "verify", "SHA",
       "SHA1ShortMsg", "verdict", "FAIL", "first difference"},
      {{"run", "--suite", "HMAC", "--suite", "SHA1", "/tmp/tree"}, "run", "HMAC", "HMAC",
       "outcome", "not-answered", "not run"},
      {{"verify", "--suite", "SHA1", "/tmp/tree"}, "verify", "SHA", "SHA1ShortMsg",
       "verdict", "FAIL", "first difference"},
      {{"verify", "--output", "/tmp/out", "/tmp/tree"}, nullptr, "", "", "", "",
       "/tmp/out is not a directory"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = c.args;
    args.insert(args.end() - 1, {"--json", "/tmp/r.json", "--junit", "/tmp/r.xml"});
    const Result r = Fipsval(args);
    const std::string what = c.args[0] + " " + c.args[1];
    EXPECT_EQ(r.status, 1) << what << r.out << r.err;
    const nlohmann::json doc = Document("/tmp/r.json");
    ASSERT_TRUE(doc.is_object()) << what << ReadFile("/tmp/r.json");
    EXPECT_EQ(doc["exit_status"], 1) << what;
    std::string detail;
    if (c.part) {
      const nlohmann::json entry = Entry(doc, c.part, c.dir, c.name);
      ASSERT_TRUE(entry.is_object()) << what << doc.dump(1);
      EXPECT_EQ(entry[c.field], c.value) << what;
      detail = entry[c.field == std::string("verdict") ? "detail" : "message"];
    } else {
      detail = doc.value("error", "");
    }
    EXPECT_NE(detail.find(c.detail), std::string::npos) << what << ": " << detail;
    const std::string junit = ReadFile("/tmp/r.xml");
    EXPECT_NE(junit.find("<failure"), std::string::npos) << what << junit;
    ExpectValid();
  }
}

TEST_F(HostResult, ReportPathsAreCheckedFirstAndNeverFollowALink) {
  // A report in a directory that does not exist: refused before any work.
  const Result r = Fipsval({"run", "--suite", "HMAC", "--json", "/tmp/none/r.json",
                            "/tmp/tree"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("the directory /tmp/none does not exist"), std::string::npos)
      << r.err;
  EXPECT_FALSE(FileExists("/tmp/tree/HMAC/resp/HMAC.rsp"));
  EXPECT_EQ(Fipsval({"verify", "--junit", "/tmp", "/tmp/tree"}).status, 1);
  EXPECT_EQ(Fipsval({"verify", "--json"}).status, 2);

  // A link at the report's name is replaced, its target untouched; the
  // hostile bytes of a runner message still give well-formed XML.
  WriteFile("/tmp/victim", "secret\n");
  ASSERT_EQ(symlink("/tmp/victim", "/tmp/r.xml"), 0);
  host::RunResult run;
  run.files.push_back({"AES", "CBC<&\"'>", host::Outcome::kRunnerError,
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
  EXPECT_NE(ReadFile("/tmp/r.xml").find("name=\"CBC&lt;&amp;&quot;&apos;&gt;\""),
            std::string::npos);
  ExpectValid();
  unlink("/tmp/victim");
  if (!missing_.empty()) GTEST_SKIP() << "not validated: " << missing_;
}

}  // namespace
}  // namespace fipsval::testing
