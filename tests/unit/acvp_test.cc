// fipsval acvp: the conversions that the NIST sample sets of the ACVP
// conformance test do not reach, answers that are missing, bad documents
// and groups no runner answers (message and exit status of the tool), and
// the test-by-test check.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "host/acvp/batch_runner.h"
#include "host/acvp/check.h"
#include "host/acvp/convert/conversion.h"
#include "host/acvp/registration.h"
#include "host/acvp/response_writer.h"
#include "tests/support/test_env.h"

namespace fipsval::host::acvp {
namespace {

using testing::Crlf;

// A vector set of one algorithm (`head`) with the given groups.
std::string Set(std::string_view head, std::string_view groups) {
  return "{\"vsId\": 7, " + std::string(head) + ", \"testGroups\": [" + std::string(groups) + "]}";
}

// Converts a one-file vector set, answers it with `response` and returns
// the request text and the response JSON.
std::pair<std::string, AssembledResponse> Answer(const std::string& set, const std::string& response) {
  const Json prompt = Json::parse(set);
  const Conversion conversion = ConvertVectorSet(prompt);
  EXPECT_EQ(conversion.status.message() + std::to_string(conversion.files.size()), "1");
  const RequestFile& file = conversion.files.at(0);
  return {std::string(file.profile->dir) + "/" + std::string(file.profile->name) + ": " +
              file.text.substr(file.text.find("\r\n\r\n") + 4),
          AssembleResponse(prompt, conversion, {{true, Crlf(response), "Error extracting key"}})};
}

TEST(Acvp, DecryptGroupsBecomeTheDecryptSectionAndAnswerPt) {
  const auto [request, out] =
      Answer(Set(R"("algorithm": "ACVP-AES-CBC", "revision": "1.0")",
                 R"({"tgId": 1, "testType": "AFT", "direction": "decrypt", "keyLen": 128,
                     "tests": [{"tcId": 5, "key": "00112233445566778899AABBCCDDEEFF",
                                "iv": "000102030405060708090A0B0C0D0E0F",
                                "ct": "FFEEDDCCBBAA99887766554433221100"}]})"),
             "[ENCRYPT]\n\n[DECRYPT]\n\nCOUNT = 0\nKEY = 00\nIV = 00\nCIPHERTEXT = 00\nPLAINTEXT = 14f1\n");
  EXPECT_EQ(request, Crlf("AES/CBCMMT128: [ENCRYPT]\n\n[DECRYPT]\n\nCOUNT = 0\nKEY = 00112233445566778899aabbccddeeff\n"
                          "IV = 000102030405060708090a0b0c0d0e0f\nCIPHERTEXT = ffeeddccbbaa99887766554433221100\n\n"));
  EXPECT_EQ(out.response.dump(), R"({"vsId":7,"algorithm":"ACVP-AES-CBC","revision":"1.0","testGroups":[)"
                                 R"({"tgId":1,"tests":[{"tcId":5,"pt":"14F1"}]}]})");
}

// A group whose tests did not all get an answer is listed with the runner's
// message, never answered in part; answered RSA groups carry n and e.
TEST(Acvp, AGroupCutShortIsNotAnswered) {
  const auto [request, out] =
      Answer(Set(R"("algorithm": "RSA", "mode": "sigGen", "revision": "FIPS186-4")",
                 R"({"tgId": 7, "testType": "GDT", "sigType": "pkcs1v1.5", "modulo": 1024,
                     "hashAlg": "SHA-1", "tests": [{"tcId": 1, "message": "01"}]},
                    {"tgId": 8, "testType": "GDT", "sigType": "pkcs1v1.5", "modulo": 1024,
                     "hashAlg": "SHA-1", "tests": [{"tcId": 2, "message": "02"}]})"),
             "[mod = 1024]\n\nn = C5\n\ne = 03\nSHAAlg = SHA1\nMsg = 01\nS = 0a0b\n\n[mod = 1024]\n");
  EXPECT_EQ(out.response["testGroups"].dump(),
            R"([{"tgId":7,"n":"C5","e":"03","tests":[{"tcId":1,"signature":"0A0B"}]}])");
  ASSERT_EQ(out.unanswered.size(), 1u);
  EXPECT_EQ(out.unanswered[0].tg_id, 8);
  EXPECT_HAS(out.unanswered[0].reason, "no answer for tcId 2: Error extracting key");
  EXPECT_EQ(out.failed_groups, 1);
  EXPECT_EQ(out.response["notAnswered"][0]["tgId"], 8);
}

// The reason for a group not answered is what the run says of its file:
// the runner's own message when it stopped, nothing more when it skipped a
// test without a word (never the run's console text).
TEST(Acvp, ReasonsAreTheRunnersOwnMessagesForTheirFiles) {
  const host::RequestProfile* hmac = host::FindRequestProfile("HMAC");
  const std::string test = "Klen = 1\r\nTlen = 20\r\nKey = 00\r\nMsg = 00\r\n\r\n";
  const std::string stops = "Klen = 1\r\nTlen = 33\r\nKey = 00\r\nMsg = 00\r\n";
  Conversion conversion;
  conversion.files = {{hmac, "[L=20]\r\n\r\nCount = 0\r\n" + test + "Count = 1\r\n" + stops, {{1, 1}, {2, 2}}},
                      {hmac, "[L=20]\r\n\r\nCount = 0\r\n" + test + "Cnt = 1\r\n" + test, {{3, 3}, {4, 4}}}};
  std::vector<FileResult> results(2);
  for (const auto& run : PlanRuns(conversion.files)) {
    ASSERT_TRUE(RunFiles(conversion.files, run, &results).ok());
  }
  Json prompt = {{"vsId", 1}, {"testGroups", Json::array()}};
  for (int id = 1; id <= 4; ++id) {
    prompt["testGroups"].push_back({{"tgId", id}, {"tests", {{{"tcId", id}}}}});
  }
  const AssembledResponse out = AssembleResponse(prompt, conversion, results);
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("fipsval-acvp-")) << "a private tree left";
  }
  EXPECT_EQ(out.answered_groups, 2);
  EXPECT_EQ(out.response["notAnswered"].dump(),
            R"([{"tgId":2,"reason":"the HMAC runner (HMAC) gave no answer for tcId 2: MAC len is too big"},)"
            R"({"tgId":4,"reason":"the HMAC runner (HMAC) gave no answer for tcId 4"}])");
}

// A ctrDRBG group the driver's parameter block holds, with one test.
const std::string kZeros(64, '0');
const std::string kDrbgGroup =
    R"({"tgId": 1, "testType": "AFT", "mode": "AES-256", "derFunc": true, "predResistance": false,
          "reSeed": true, "entropyInputLen": 256, "nonceLen": 128, "persoStringLen": 0,
          "additionalInputLen": 0, "returnedBitsLen": 512, "tests": [{"tcId": 1,
          "entropyInput": ")" + kZeros + R"(", "nonce": ")" + kZeros.substr(32) + R"(", "persoString": "", "otherInput": [
          {"intendedUse": "reSeed", "additionalInput": "", "entropyInput": ")" + kZeros + R"("},
          {"intendedUse": "generate", "additionalInput": "", "entropyInput": ""},
          {"intendedUse": "generate", "additionalInput": "", "entropyInput": ""}]}]})";

// The largest inputs the runners take still make a request, one test each.
TEST(Acvp, InputsAtTheRunnersLimitsAreConverted) {
  for (const std::string& set : {
           Set(R"("algorithm": "HMAC-SHA-1", "revision": "1.0")",
               R"({"tgId": 1, "testType": "AFT", "macLen": 160, "tests": [{"tcId": 1, "key": "00", "msg": ")" +
                   std::string(1008, 'a') + "\"}]}"),
           Set(R"("algorithm": "SHA-1", "revision": "1.0")",
               R"({"tgId": 1, "testType": "AFT", "tests": [{"tcId": 1, "len": 79936, "msg": ")" +
                   std::string(19984, 'a') + "\"}]}"),
           Set(R"("algorithm": "ctrDRBG", "revision": "1.0")", kDrbgGroup)}) {
    const Conversion c = ConvertVectorSet(Json::parse(set));
    EXPECT_EQ(c.status.message(), "");
    ASSERT_EQ(c.files.size(), 1u) << (c.unanswered.empty() ? "" : c.unanswered[0].reason);
    EXPECT_EQ(c.files[0].slots.size(), 1u) << c.files[0].profile->name;
  }
}

testing::ProgramResult Fipsval(std::vector<std::string> args) {
  args.insert(args.begin(), FIPSVAL_CLI);
  return testing::WaitProgram(testing::StartProgram(args, "acvp"), "acvp");
}

// `n` copies of `item` joined by commas, "{i}" replaced by the index.
std::string Repeat(std::string_view item, int n) {
  std::string out;
  for (int i = 1; i <= n; ++i) out += (i > 1 ? "," : "") + std::regex_replace(std::string(item), std::regex("\\{i\\}"), std::to_string(i));
  return out;
}

// `fipsval acvp PROMPT`: a bad document is one line naming the field, exit
// 2 (hostile ones among them: each once crashed the tool or ran without
// bound); a set no group of which can be answered gives each reason, exit 1.
TEST(Acvp, BadDocumentsAndUnanswerableSets) {
  const std::string sha1 = R"("algorithm": "SHA-1", "revision": "1.0")";
  ASSERT_EQ(mkfifo("/tmp/prompt.fifo", 0600), 0);  // a prompt that is no regular file
  testing::WriteFile("/tmp/huge.json", "");
  ASSERT_EQ(truncate("/tmp/huge.json", off_t{1} << 30), 0);  // sparse
  const struct {
    std::string prompt;  // the document, or the path to give
    int status;
    const char* message;
  } kCases[] = {
      {"{\"vsId\": 1, " + sha1 + ", \"testGroups\": [", 2, "malformed JSON"},
      {Set(R"("algorithm": "ACVP-AES-CBC", "revision": "1.0")",
           R"({"tgId": 4, "testType": "AFT", "direction": "encrypt", "tests": []})"),
       2, "testGroups[0] (tgId 4): field \"keyLen\" is missing"},
      {Set(R"("algorithm": "SHA3-256", "revision": "1.0")", ""), 2,
       "field \"algorithm\" names an algorithm fipsval does not answer: \"SHA3-256\""},
      {"{" + sha1 + ", \"testGroups\": []}", 2, "field \"vsId\" is missing"},
      {Set(sha1, R"({"tgId": 4, "tests": []}, {"tgId": 4, "tests": []})"), 2,
       "testGroups[1]: field \"tgId\" repeats 4 of testGroups[0] (tgId 4)"},
      {"/tmp/prompt.fifo", 2, "/tmp/prompt.fifo: not a regular file"},
      {R"({"vsId": 1e400})", 2, "malformed JSON: number overflow parsing '1e400'"},
      {std::string(100000, '[') + std::string(100000, ']'), 2, "nested deeper than 32 levels at byte 33"},
      {Set(sha1, R"({"tgId": 4, "testType": "AFT", "tests": [{"tcId": 1, "msg": "00", "len": 9223372036854775807}]})"),
       2, "tests[0] (tcId 1): field \"len\" is out of range (-2^53 to 2^53)"},
      {Set(sha1, R"({"tgId": 18446744073709551615, "tests": []})"), 2, "field \"tgId\" is out of range"},
      {Set(sha1, Repeat(R"({"tgId": {i}, "tests": []})", 10001)), 2, "\"testGroups\" has more than 10000 groups"},
      {R"([{"acvVersion": "1.0"}])", 2, "an array that is not [{\"acvVersion\": ...}, {vector set}]"},
      {R"([{"version": "1.0"}, {}])", 2, "[0]: field \"acvVersion\" is missing"},
      {"/tmp/huge.json", 2, "/tmp/huge.json: larger than 64 MiB"},
      {Set(sha1, R"({"tgId": 2, "testType": "AFT", "tests": [)" +
                     Repeat(R"({"tcId": {i}, "msg": "80", "len": 1})", 100000) + "]}"),
       1, "whole bytes"},
      {Set(sha1, R"({"tgId": 2, "testType": "LDT", "tests": []})"), 1, "testType \"LDT\""},
      {Set(sha1, R"({"tgId": 2, "testType": "AFT", "tests": [{"tcId": 1, "msg": "80", "len": 1}]})"), 1,
       "whole bytes"},
      {Set(R"("algorithm": "ACVP-TDES-CBC", "revision": "1.0")",
           R"({"tgId": 2, "testType": "AFT", "direction": "encrypt", "keyingOption": 2, "tests": []})"),
       1, "keyingOption 2"},
      {Set(R"("algorithm": "kdf-components", "mode": "ssh", "revision": "1.0")",
           R"({"tgId": 2, "testType": "AFT", "cipher": "AES-128", "hashAlg": "SHA2-512", "tests": []})"),
       1, "hashAlg \"SHA2-512\""},
      {Set(R"("algorithm": "kdf-components", "mode": "ssh", "revision": "1.0")",
           R"({"tgId": 2, "testType": "AFT", "cipher": "AES-512", "hashAlg": "SHA-1", "tests": []})"),
       2, "field \"cipher\" is not TDES, AES-128, AES-192 or AES-256"},
      {Set(R"("algorithm": "ctrDRBG", "revision": "1.0")",
           std::string(kDrbgGroup).erase(kDrbgGroup.find(R"("intendedUse": "generate")"), 26)),
       2, "otherInput[1]: field \"intendedUse\" is missing"},
  };
  for (const auto& c : kCases) {
    std::string path = c.prompt;
    if (!path.starts_with("/")) testing::WriteFile(path = "/tmp/prompt.json", c.prompt);
    const testing::ProgramResult r = Fipsval({"acvp", path});
    EXPECT_EQ(r.status, c.status) << c.message;
    EXPECT_HAS(r.err, c.message) << c.message;
    if (c.status == 2) {
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    } else {
      EXPECT_HAS(r.err, path + ": tgId 2 not answered: ");
      EXPECT_HAS(r.err, path + ": no group of the vector set could be answered");
    }
  }
}

// No room under TMPDIR (a tmpfs of 2, 3 and 4 inodes) stops the vector set
// at once, with the path that could not be made.
TEST(Acvp, AFullTemporaryDirectoryIsNamed) {
  testing::WriteFile("/tmp/prompt.json", Set(R"("algorithm": "SHA-1", "revision": "1.0")",
                                             R"({"tgId": 1, "testType": "AFT", "tests": [{"tcId": 1, "msg": "00", "len": 8}]})"));
  const char* kNotMade[] = {"/SHA: ", "/SHA/req: ", "/SHA/req/SHA1ShortMsg.req: "};
  mkdir("/data/small", 0700);
  for (int inodes = 2; inodes <= 4; ++inodes) {
    ASSERT_EQ(mount("small", "/data/small", "tmpfs", 0, ("nr_inodes=" + std::to_string(inodes)).c_str()), 0);
    const testing::ProgramResult r = testing::WaitProgram(
        testing::StartProgram({"env", "TMPDIR=/data/small", FIPSVAL_CLI, "acvp", "/tmp/prompt.json"}, "acvp"), "acvp");
    umount("/data/small");
    EXPECT_EQ(r.status, 1);
    EXPECT_HAS(r.err, std::string(kNotMade[inodes - 2]) + "No space left on device");
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "went on: " << r.err;
  }
}

// A SHA-1 set of an answerable group (1) and one no runner takes (2).
const std::string kSha1Set = Set(R"("algorithm": "SHA-1", "revision": "1.0")",
                                 R"({"tgId": 1, "testType": "AFT", "tests": [{"tcId": 1, "msg": "616263", "len": 24}]},
                                    {"tgId": 2, "testType": "LDT", "tests": [{"tcId": 2}]})");

// The --json and --junit reports of the last command: the JSON valid under
// doc/fipsval-acvp.schema.json and stating the exit status, the XML well
// formed (unchecked, with a note, where python3-jsonschema is missing).
void ExpectReports(int status) {
  const Json report = Json::parse(testing::ReadFile("/tmp/r.json"), nullptr, false);
  ASSERT_TRUE(report.is_object()) << testing::ReadFile("/tmp/r.json");
  EXPECT_EQ(report["exit_status"], status);
  const testing::ProgramResult v = testing::WaitProgram(testing::StartProgram(
      {"python3", FIPSVAL_SOURCE_DIR "/tests/support/validate_reports.py",
       FIPSVAL_SOURCE_DIR "/doc/fipsval-acvp.schema.json", "/tmp/r.json", "--xml", "/tmp/r.xml"},
      "schema"), "schema");
  EXPECT_TRUE(v.status == 0 || v.status == 77) << v.out << v.err;
}

// `acvp` takes either envelope and writes the array form unless --bare; a
// group not answered fails the set unless --allow-unsupported (its reason
// stays), and -v adds no staging lines. `acvp --check` names the first
// difference; a group the response does not answer fails unless
// --allow-unsupported, a missing test fails, odd but equal fields compare,
// and a value nested beyond the bound is refused before it is walked. Each
// writes its reports, which state its exit status; a link at a report's
// name is replaced, never written through.
TEST(Acvp, CommandLineEnvelopesAndExitCodes) {
  const std::string wrap = "[{\"acvVersion\": \"1.0\"}, ", array = "[\n  {\n    \"acvVersion\": \"1.0\"\n  },\n  {\n    \"vsId\": 7";
  const std::string not_answered = "/tmp/prompt.json: tgId 2 not answered: testType \"LDT\"";
  const std::string head = R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [)";
  const std::string expected = head + R"({"tgId": 1, "tests": [{"tcId": 1, "md": "AB"}, {"tcId": 2, "md": "CD"}]}, {"tgId": 2, "tests": [{"tcId": 3, "md": "EF"}]}]})";
  const std::string group1 = R"({"tgId": 1, "tests": [{"tcId": 1, "md": "ab"}, {"tcId": 2, "md": "CD"}]})";
  const std::string unanswered = head + group1 + R"(], "notAnswered": [{"tgId": 2, "reason": "LDT"}, {"tgId": "2"}]})";
  const std::vector<std::string> check = {"acvp", "--check", "/tmp/expected.json", "/tmp/response.json"};
  const struct {
    std::string prompt, expected, response;  // "": not written
    std::vector<std::string> args;
    int status;
    std::string out, err;  // the output starts with `out`; standard error holds `err`
  } kCases[] = {
      {wrap + kSha1Set + "]", "", "", {"acvp", "/tmp/prompt.json"}, 1, array, not_answered},
      {kSha1Set, "", "", {"acvp", "/tmp/prompt.json", "-v"}, 1, array, not_answered},
      {wrap + kSha1Set + "]", "", "", {"acvp", "/tmp/prompt.json", "--bare", "--allow-unsupported"}, 0, "{\n  \"vsId\": 7", not_answered},
      {kSha1Set, "", "", {"acvp", "/tmp/prompt.json", "--allow-unsupported"}, 0, array, not_answered},
      {"", expected, head + group1.substr(0, group1.size() - 5) + "E\"}]}]}", check, 1,
       "tgId 1: FAIL 1 of 2 tests (first: tcId 2: md is CE, expected CD)\ntgId 2: FAIL missing from the response (1 tests)\n1 passed, 2 failed\n", ""},
      {"", expected, unanswered, check, 1, "tgId 1: PASS 2 tests\ntgId 2: NOT ANSWERED (LDT)\n2 passed, 0 failed\n",
       "1 groups not answered (--allow-unsupported accepts them)"},
      {"", wrap + expected + "]", unanswered, {check[0], check[1], check[2], check[3], "--allow-unsupported"}, 0, "", ""},
      {"", R"({"vsId": 1, "algorithm": 5, "testGroups": [{"tgId": 1, "tests": [{"tcId": 1, "md": "AB"}]}]})",
       R"({"vsId": 1, "algorithm": 5, "testGroups": [{"tgId": 1, "tests": [{"tcId": 1, "md": "AB"}]}]})", check, 0, "tgId 1: PASS", ""},
      {"", expected, head + R"({"tgId": 1, "tests": [{"tcId": 1, "md": )" + std::string(20000, '[') + std::string(20000, ']') + "}]}]}",
       check, 2, "", "/tmp/response.json: nested deeper than 32 levels"},
  };
  for (const auto& c : kCases) {
    for (const auto& [path, text] : {std::pair{"/tmp/prompt.json", c.prompt}, {"/tmp/expected.json", c.expected}, {"/tmp/response.json", c.response}}) {
      if (!text.empty()) testing::WriteFile(path, text);
    }
    testing::WriteFile("/tmp/victim", "secret\n");
    std::filesystem::remove("/tmp/r.xml");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/r.xml"), 0);
    std::vector<std::string> args = c.args;
    args.insert(args.end(), {"--json", "/tmp/r.json", "--junit", "/tmp/r.xml"});
    const testing::ProgramResult r = Fipsval(args);
    ExpectReports(r.status);
    EXPECT_EQ(testing::ReadFile("/tmp/victim"), "secret\n");
    EXPECT_EQ(r.status, c.status) << r.out << r.err;
    EXPECT_TRUE(r.out.starts_with(c.out)) << r.out;
    EXPECT_HAS(r.err, c.err);
    EXPECT_EQ(r.err.find("no request file"), std::string::npos) << "staging noise: " << r.err;
    if (!c.prompt.empty()) {
      EXPECT_HAS(r.out, "\"md\": \"A9993E364706816ABA3E25717850C26C9CD0D89D\"");
    }
  }
}

// acvp DIR: every vector set below it, the ACVP Proxy's in place; a link or
// FIFO in a vector set's name is refused with a line, a submitted one left
// alone, and one line sums up, as do the reports. --output never writes
// through a link, a report never into a FIFO; one that cannot be written
// stops before any work.
TEST(Acvp, DirectoriesOfVectorSets) {
  const std::string sha1 = Set(R"("algorithm": "SHA-1", "revision": "1.0")", R"({"tgId": 1, "testType": "AFT", "tests": [{"tcId": 1, "msg": "00", "len": 8}]})");
  const std::string session = "/tmp/sets/testresults/module/1.0/100/";
  for (const std::string dir : {"/tmp/sets/a", "/tmp/sets/b", "/tmp/sets/c", "/tmp/elsewhere", "/tmp/expected/x",
                                "/tmp/expected/y", "/tmp/out", "/tmp/sets/testresults/module/1.0/100/200", "/tmp/sets/testresults/module/1.0/100/201"}) {
    std::filesystem::create_directories(dir);
  }
  testing::WriteFile("/tmp/sets/a/prompt.json", sha1);
  ASSERT_EQ(symlink("/tmp/sets/a/prompt.json", "/tmp/sets/b/prompt.json"), 0);
  ASSERT_EQ(mkfifo("/tmp/sets/c/prompt.json", 0600), 0);
  for (const char* vs : {"200/", "201/"}) testing::WriteFile(session + vs + "testvector-request.json", "[{\"acvVersion\": \"1.0\"}, " + sha1 + "]");
  testing::WriteFile(session + "201/processed.txt", "");
  const testing::ProgramResult r = Fipsval({"acvp", "/tmp/sets", "--json", "/tmp/r.json", "--junit", "/tmp/r.xml"});
  EXPECT_EQ(r.status, 1);
  ExpectReports(1);
  EXPECT_EQ(Json::parse(testing::ReadFile("/tmp/r.json"))["acvp"]["counts"]["sets"].dump(),
            R"({"answered":2,"not-answered":0,"failed":0,"refused":2,"submitted":1})");
  EXPECT_HAS(r.err, "fipsval: /tmp/sets/b/prompt.json: a symbolic link: refused (not followed)\n");
  EXPECT_HAS(r.err, "fipsval: /tmp/sets/c/prompt.json: not a regular file");
  EXPECT_HAS(r.err, "201/testvector-request.json: already submitted (processed.txt beside it): left alone\n");
  EXPECT_HAS(r.err, "fipsval: /tmp/sets: 5 vector sets: 2 answered in full, 0 with groups not answered, 2 failed or refused, 1 already submitted\n");
  EXPECT_HAS(testing::ReadFile("/tmp/sets/a/response.json"), "\"md\": \"5BA93C9DB0CFF93F52B521D7420E43F6EDA2784F\"");
  EXPECT_TRUE(testing::ReadFile(session + "200/testvector-response.json").starts_with("[\n  {\n    \"acvVersion\""));
  EXPECT_FALSE(testing::FileExists(session + "201/testvector-response.json"));
  // --check DIR RESPONSES pairs by vsId (and algorithm, mode, revision).
  const std::string expected = R"("algorithm": "SHA-1", "revision": "1.0", "testGroups": [{"tgId": 1, "tests": [{"tcId": 1, "md": "5BA93C9DB0CFF93F52B521D7420E43F6EDA2784F"}]}]})";
  testing::WriteFile("/tmp/expected/x/expectedResults.json", "{\"vsId\": 7, " + expected);
  testing::WriteFile("/tmp/expected/y/expectedResults.json", "{\"vsId\": 8, " + expected);
  std::filesystem::remove("/tmp/r.xml");
  ASSERT_EQ(mkfifo("/tmp/r.xml", 0600), 0);  // replaced, never opened
  const testing::ProgramResult checked = Fipsval({"acvp", "--check", "/tmp/expected", "/tmp/sets", "--json", "/tmp/r.json", "--junit", "/tmp/r.xml"});
  EXPECT_EQ(checked.status, 1);
  ExpectReports(1);
  EXPECT_HAS(testing::ReadFile("/tmp/r.xml"), "<failure type=\"no-response\" message=\"no response for vsId 8 below /tmp/sets\">");
  EXPECT_EQ(Fipsval({"acvp", "/tmp/sets/a/prompt.json", "--output", "/tmp/r.xml", "--junit", "/tmp/r.xml"}).status, 2);
  EXPECT_EQ(Fipsval({"acvp", "--check", "/tmp/expected", "/tmp/sets", "--json", "/tmp/none/r.json"}).err,
            "fipsval: cannot write the report /tmp/none/r.json: the directory /tmp/none does not exist\n");
  EXPECT_HAS(checked.out, "tgId 1: PASS 1 tests\n1 passed, 0 failed\n");
  EXPECT_HAS(checked.out, "y/expectedResults.json: FAIL no response for vsId 8 below /tmp/sets\n2 vector sets: 1 passed, 1 failed or without a response\n");
  ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/out/a"), 0);
  const testing::ProgramResult planted = Fipsval({"acvp", "/tmp/sets", "--output", "/tmp/out"});
  EXPECT_EQ(planted.status, 1);
  EXPECT_HAS(planted.err, "cannot open /tmp/out/a: ");
  EXPECT_FALSE(testing::FileExists("/tmp/elsewhere/response.json"));
  EXPECT_TRUE(testing::FileExists("/tmp/out/testresults/module/1.0/100/200/testvector-response.json"));
  for (const char* dir : {"/tmp/sets", "/tmp/out", "/tmp/elsewhere", "/tmp/expected", "/tmp/r.json", "/tmp/r.xml"}) std::filesystem::remove_all(dir);
}

// Whether each group of the set is answered (a request file) or not.
void ExpectRegistrationAgrees(const Json& set, const std::string& name) {
  const Conversion conversion = ConvertVectorSet(set);
  std::set<long long> unanswered;
  for (const Unanswered& u : conversion.unanswered) unanswered.insert(u.tg_id);
  for (const Json& group : set["testGroups"]) {
    const bool answered = conversion.status.ok() && !unanswered.count(group["tgId"].get<long long>());
    EXPECT_EQ(Covers(set, group), answered) << name << ": " << group.dump() << " " << conversion.status.message();
  }
}

// The registration covers exactly the groups the converters answer; it is
// the protocol's message with one entry per algorithm and mode.
TEST(Acvp, RegistrationAgreesWithTheAnswers) {
  const std::string aes = R"("testType": "AFT", "direction": "encrypt", "keyLen": )";
  const std::string tls = R"("testType": "AFT", "preMasterSecretLength": 384, "keyBlockLength": 1024, )";
  const std::string rsa = R"("testType": "GDT", "sigType": "pkcs1v1.5", "modulo": )";
  const std::string drbg = kDrbgGroup.substr(kDrbgGroup.find(',') + 1, kDrbgGroup.find("\"tests\"") - kDrbgGroup.find(',') - 3);
  const struct {
    std::string algorithm;  // and mode
    std::vector<std::string> groups;  // each group's fields but tgId and tests
  } kSets[] = {
      {R"("ACVP-AES-ECB")", {aes + "192", R"("testType": "MCT", "direction": "encrypt", "keyLen": 192)", R"("testType": "MCT", "direction": "decrypt", "keyLen": 128)"}},
      {R"("ACVP-AES-CBC")", {aes + "256", R"("testType": "CTR", "direction": "encrypt", "keyLen": 128)"}},
      {R"("ACVP-TDES-CBC")", {R"("testType": "AFT", "direction": "decrypt", "keyingOption": 1)", R"("testType": "MCT", "direction": "decrypt", "keyingOption": 2)"}},
      {R"("SHA-1")", {R"("testType": "AFT")", R"("testType": "MCT", "mctVersion": "alternate")", R"("testType": "LDT")", R"("testType": "MCT")"}},
      {R"("HMAC-SHA-1")", {R"("testType": "AFT", "keyLen": 8, "msgLen": 128, "macLen": 80)", R"("testType": "AFT", "keyLen": 8, "msgLen": 8, "macLen": 168)"}},
      {R"("ctrDRBG")", {drbg, std::regex_replace(drbg, std::regex("\"predResistance\": false"), "\"predResistance\": true")}},
      {R"("kdf-components", "mode": "ssh")", {R"("testType": "AFT", "cipher": "AES-128", "hashAlg": "SHA2-256")", R"("testType": "AFT", "cipher": "TDES", "hashAlg": "SHA2-512")"}},
      {R"("kdf-components", "mode": "tls")", {tls + R"("tlsVersion": "v1.0/1.1", "hashAlg": "SHA-1")", tls + R"("tlsVersion": "v1.2", "hashAlg": "SHA-1")", tls + R"("tlsVersion": "v1.2", "hashAlg": "SHA2-384")"}},
      {R"("RSA", "mode": "sigGen")", {rsa + R"(1024, "hashAlg": "SHA2-512")", rsa + R"(2048, "hashAlg": "SHA2-224")"}},
      {R"("RSA", "mode": "sigVer")", {rsa + R"(2048, "hashAlg": "SHA-1")"}},
  };
  for (const auto& c : kSets) {
    std::string groups;
    for (std::size_t i = 0; i < c.groups.size(); ++i) {
      groups += (i ? ", {\"tgId\": " : "{\"tgId\": ") + std::to_string(i + 1) + ", " + c.groups[i] + ", \"tests\": []}";
    }
    ExpectRegistrationAgrees(Json::parse(Set("\"algorithm\": " + c.algorithm + ", \"revision\": \"1.0\"", groups)), c.algorithm);
  }
  const Json registration = Registration();
  ASSERT_EQ(registration.size(), 2u);
  EXPECT_EQ(registration[0].dump(), R"({"acvVersion":"1.0"})");
  EXPECT_EQ(registration[1]["algorithms"].size(), 11u);  // every algorithm and mode answered
  EXPECT_EQ(registration[1]["algorithms"][10]["capabilities"][0]["properties"][0]["hashPair"].size(), 4u);
  EXPECT_EQ(registration[1]["algorithms"][1]["keyLen"].dump(), "[128]");
  const testing::ProgramResult r = Fipsval({"acvp", "--registration"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(Json::parse(r.out), registration);
}

// The same over NIST's sample sets, where they are beside the project.
TEST(Acvp, RegistrationAgreesOnTheSampleSets) {
  const std::filesystem::path samples = FIPSVAL_SOURCE_DIR "/../shared/acvp";
  std::error_code ec;
  if (!std::filesystem::is_directory(samples, ec)) GTEST_SKIP() << "no sample vector sets at " << samples;
  int sets = 0;
  for (const auto& entry : std::filesystem::directory_iterator(samples)) {
    const std::string prompt = entry.path() / "prompt.json";
    if (!testing::FileExists(prompt)) continue;
    Json set = Json::parse(testing::ReadFile(prompt));
    if (set.is_array()) set = set[1];
    ExpectRegistrationAgrees(set, prompt);
    ++sets;
  }
  EXPECT_GT(sets, 0);
}

}  // namespace
}  // namespace fipsval::host::acvp
