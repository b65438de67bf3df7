// fipsval acvp: the conversions that the NIST sample sets of the ACVP
// conformance test do not reach, answers that are missing, bad documents
// and groups no runner answers (message and exit status of the tool), and
// the test-by-test check.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "host/acvp/batch_runner.h"
#include "host/acvp/check.h"
#include "host/acvp/convert/conversion.h"
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

// `fipsval acvp PROMPT`: a bad document is one line naming the field, exit
// 2; a set no group of which can be answered gives each reason, exit 1.
TEST(Acvp, BadDocumentsAndUnanswerableSets) {
  const std::string sha1 = R"("algorithm": "SHA-1", "revision": "1.0")";
  ASSERT_EQ(mkfifo("/tmp/prompt.fifo", 0600), 0);  // a prompt that is no regular file
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
    const testing::ProgramResult r =
        testing::WaitProgram(testing::StartProgram({FIPSVAL_CLI, "acvp", path}, "acvp"), "acvp");
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

TEST(Acvp, CheckComparesTestByTestAndNamesTheFirstDifference) {
  const Json expected = Json::parse(R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
      {"tgId": 1, "tests": [{"tcId": 1, "md": "AB"}, {"tcId": 2, "md": "CD"}]},
      {"tgId": 2, "tests": [{"tcId": 3, "md": "EF"}]}]})");
  const Json response = Json::parse(R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
      {"tgId": 1, "tests": [{"tcId": 1, "md": "ab"}, {"tcId": 2, "md": "CE"}]}],
      "notAnswered": [{"tgId": 2, "reason": "LDT"}, {"tgId": "2"}]})");
  CheckTally tally;
  const std::string text = testing::CaptureStdout([&] { tally = CheckResponse(expected, response, nullptr, stdout); });
  EXPECT_EQ(tally.passed, 1);
  EXPECT_EQ(tally.failed, 1);
  EXPECT_EQ(text,
            "tgId 1: FAIL 1 of 2 tests (first: tcId 2: md is CE, expected CD)\n"
            "tgId 2: NOT ANSWERED (LDT)\n"
            "1 passed, 1 failed\n");
}

}  // namespace
}  // namespace fipsval::host::acvp
