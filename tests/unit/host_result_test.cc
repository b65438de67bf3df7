// The machine-readable result of run and verify (--json, --junit): the JSON
// validates against doc/fipsval-result.schema.json and names the file that
// failed and why; the JUnit file is well-formed XML whatever a runner
// message holds; a report is never written through a link.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/core/result_report.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using nlohmann::json;

ProgramResult Program(std::vector<std::string> args) {
  return WaitProgram(StartProgram(std::move(args), "result"), "result");
}
ProgramResult Fipsval(std::vector<std::string> args) {
  args.insert(args.begin(), FIPSVAL_CLI);
  return Program(args);
}

// The entry of `part` ("run" or "verify") for dir/name, or null.
json Entry(const json& doc, const char* part, const std::string& dir, const std::string& name) {
  if (doc.is_object() && doc.contains(part)) {
    for (const json& file : doc[part]["files"]) {
      if (file["dir"] == dir && file["name"] == name) return file;
    }
  }
  return nullptr;
}

class HostResult : public ::testing::Test {
 protected:
  void SetUp() override {
    if (Program({"python3", "-c", "import jsonschema, xml.dom.minidom"}).status != 0) {
      missing_ = "python3 with jsonschema (Debian python3-jsonschema) is missing";
    }
    ASSERT_EQ(std::system("rm -rf /tmp/tree /tmp/out /tmp/r.json /tmp/r.xml && cp -r " FIPSVAL_SOURCE_DIR
                          "/samples /tmp/tree"),
              0);
  }
  // /tmp/r.json valid under the schema, /tmp/r.xml well-formed XML.
  void ExpectValid() {
    if (!missing_.empty()) return;
    const ProgramResult r =
        Program({"python3", "-c",
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
  EXPECT_EQ(doc["command"], "run --verify");
  EXPECT_EQ(doc["exit_status"], 0);
  EXPECT_EQ(doc["tree"], "/tmp/tree");
  const std::size_t files = doc["run"]["files"].size();
  EXPECT_GE(files, 5u);
  EXPECT_EQ(doc["run"]["counts"]["answered"], files);
  EXPECT_EQ(doc["verify"]["counts"]["passed"], files);
  EXPECT_EQ(Entry(doc, "run", "HMAC", "HMAC")["outcome"], "answered");
  EXPECT_EQ(Entry(doc, "verify", "HMAC", "HMAC")["verdict"], "PASS");
  // -q: one line per file and a line of totals for each phase.
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), files + 2) << r.out;
  ExpectValid();
  if (!missing_.empty()) GTEST_SKIP() << "not validated: " << missing_;
}

// A wrong expected answer, a request the library cannot read, a response
// directory that is not there: exit 1, and the report says which file and why.
TEST_F(HostResult, FailuresNameTheFileAndTheCause) {
  std::string fax = ReadFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax");
  const std::size_t md = fax.find("MD = ");
  ASSERT_NE(md, std::string::npos);
  fax[md + 5] = fax[md + 5] == '0' ? '1' : '0';
  WriteFile("/tmp/tree/SHA/fax/SHA1ShortMsg.fax", fax);
  WriteFile("/tmp/tree/HMAC/req/HMAC.req", "[L=20]\n\nCount = 0\nKlen = 4\n");  // LF only
  // part "verify": the file's verdict is FAIL; "run": it was not answered;
  // nullptr: the document's error.
  const struct {
    std::vector<std::string> args;
    const char *part, *dir, *name, *detail;
  } kCases[] = {
      {{"run", "--verify", "--suite", "SHA1"}, "verify", "SHA", "SHA1ShortMsg", "first difference"},
      {{"run", "--suite", "HMAC", "--suite", "SHA1"}, "run", "HMAC", "HMAC", "not run"},
      {{"verify", "--output", "/tmp/none"}, nullptr, "", "", "/tmp/none is not a directory"},
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
      const json entry = Entry(doc, c.part, c.dir, c.name);
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
  EXPECT_HAS(ReadFile("/tmp/r.xml"), "name=\"CBC&lt;&amp;&quot;&apos;&gt;\"");
  ExpectValid();
  if (!missing_.empty()) GTEST_SKIP() << "not validated: " << missing_;
}

}  // namespace
}  // namespace fipsval::testing
