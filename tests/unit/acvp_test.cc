// fipsval acvp: vector-set JSON to request text, response text back to
// ACVP JSON, the groups that cannot be answered, and document errors.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "host/acvp/check.h"
#include "host/acvp/conversion.h"
#include "host/acvp/response_writer.h"

namespace fipsval::host::acvp {
namespace {

std::string Crlf(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

Json Parse(std::string_view text) {
  Json j;
  std::string error;
  EXPECT_TRUE(ParseJsonText(text, "test", &j, &error)) << error;
  return j;
}

// A vector set of one algorithm with the given groups.
Json Set(std::string_view head, std::string_view groups) {
  return Parse("{\"vsId\": 7, " + std::string(head) + ", \"testGroups\": [" +
               std::string(groups) + "]}");
}

struct ConversionCase {
  const char* head;
  const char* groups;
  const char* file;  // DIR/name
  const char* text;  // with "\n" for CR LF, after the header
};

const ConversionCase kConversions[] = {
    {R"("algorithm": "ACVP-AES-CBC", "revision": "1.0")",
     R"({"tgId": 1, "testType": "AFT", "direction": "decrypt", "keyLen": 128,
         "tests": [{"tcId": 5, "key": "00112233445566778899AABBCCDDEEFF",
                    "iv": "000102030405060708090A0B0C0D0E0F",
                    "ct": "FFEEDDCCBBAA99887766554433221100"}]})",
     "AES/CBCMMT128",
     "[ENCRYPT]\n\n[DECRYPT]\n\nCOUNT = 0\nKEY = 00112233445566778899aabbccddeeff\n"
     "IV = 000102030405060708090a0b0c0d0e0f\nCIPHERTEXT = ffeeddccbbaa99887766554433221100\n\n"},
    {R"("algorithm": "ACVP-TDES-CBC", "revision": "1.0")",
     R"({"tgId": 2, "testType": "MCT", "direction": "encrypt", "keyingOption": 1,
         "tests": [{"tcId": 9, "key1": "0101010101010101", "key2": "0202020202020202",
                    "key3": "0404040404040404", "iv": "0000000000000000",
                    "pt": "1111111111111111"}]})",
     "TDES/TCBCMonte3",
     "[ENCRYPT]\nNumKeys = 3\n\nCOUNT = 0\nKEY1 = 0101010101010101\nKEY2 = 0202020202020202\n"
     "KEY3 = 0404040404040404\nIV = 0000000000000000\nPLAINTEXT = 1111111111111111\n\n"
     "[DECRYPT]\nNumKeys = 3\n\n"},
    {R"("algorithm": "SHA-1", "revision": "1.0")",
     R"({"tgId": 1, "testType": "AFT", "tests": [{"tcId": 1, "msg": "", "len": 0},
                                                   {"tcId": 2, "msg": "AB", "len": 8}]})",
     "SHA/SHA1ShortMsg", "[L = 20]\n\nLen = 0\nMsg = 00\n\nLen = 8\nMsg = ab\n\n"},
    {R"("algorithm": "HMAC-SHA2-256", "revision": "1.0")",
     R"({"tgId": 3, "testType": "AFT", "keyLen": 16, "msgLen": 8, "macLen": 80,
         "tests": [{"tcId": 4, "key": "0A0B", "msg": "CC"}]})",
     "HMAC/HMAC", "[L=32]\n\nCount = 0\nKlen = 2\nTlen = 10\nKey = 0a0b\nMsg = cc\n\n"},
    {R"("algorithm": "kdf-components", "mode": "tls", "revision": "1.0")",
     R"({"tgId": 1, "testType": "AFT", "tlsVersion": "v1.2", "hashAlg": "SHA2-384",
         "keyBlockLength": 832, "preMasterSecretLength": 384,
         "tests": [{"tcId": 1, "preMasterSecret": "000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000001",
                    "clientHelloRandom": "01", "serverHelloRandom": "02",
                    "clientRandom": "03", "serverRandom": "04"}]})",
     "KDF135/tls",
     "[TLS 1.2, SHA-384]\n[pre-master secret length = 384]\n[key block length = 832]\n\n"
     "COUNT = 0\npre_master_secret = 000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000001\n"
     "serverHello_random = 02\nclientHello_random = 01\nserver_random = 04\nclient_random = 03\n\n"},
    {R"("algorithm": "RSA", "mode": "sigGen", "revision": "FIPS186-4")",
     R"({"tgId": 7, "testType": "GDT", "sigType": "pkcs1v1.5", "modulo": 2048,
         "hashAlg": "SHA2-512", "tests": [{"tcId": 19, "message": "5A"}]})",
     "RSA2/SigGen15_186-3", "[mod = 2048]\n\nSHAAlg = SHA512\nMsg = 5a\n\n"},
};

TEST(AcvpConversion, GroupsBecomeRequestsInTheRunnersFormat) {
  for (const ConversionCase& c : kConversions) {
    const Conversion out = ConvertVectorSet(Set(c.head, c.groups));
    ASSERT_EQ(out.error, "") << c.file;
    ASSERT_EQ(out.files.size(), 1u) << c.file;
    EXPECT_EQ(out.files[0].dir + "/" + out.files[0].name, c.file);
    EXPECT_EQ(out.files[0].text, Crlf("# ACVP vector set 7, converted by fipsval\n\n") + Crlf(c.text))
        << c.file;
    EXPECT_TRUE(out.unanswered.empty()) << c.file;
  }
}

struct UnsupportedCase {
  const char* head;
  const char* group;
  const char* reason;  // part of the reason given
};

const UnsupportedCase kUnsupported[] = {
    {R"("algorithm": "SHA2-256", "revision": "1.0")",
     R"({"tgId": 2, "testType": "MCT", "mctVersion": "alternate", "tests": []})",
     "mctVersion \"alternate\""},
    {R"("algorithm": "SHA-1", "revision": "1.0")", R"({"tgId": 2, "testType": "LDT", "tests": []})",
     "testType \"LDT\""},
    {R"("algorithm": "SHA-1", "revision": "1.0")",
     R"({"tgId": 2, "testType": "AFT", "tests": [{"tcId": 1, "msg": "80", "len": 1}]})",
     "whole bytes"},
    {R"("algorithm": "ACVP-AES-ECB", "revision": "1.0")",
     R"({"tgId": 2, "testType": "MCT", "direction": "encrypt", "keyLen": 192, "tests": []})",
     "ECB MCT with 192-bit keys"},
    {R"("algorithm": "ACVP-TDES-CBC", "revision": "1.0")",
     R"({"tgId": 2, "testType": "AFT", "direction": "encrypt", "keyingOption": 2, "tests": []})",
     "keyingOption 2"},
    {R"("algorithm": "ctrDRBG", "revision": "1.0")",
     R"({"tgId": 3, "testType": "AFT", "mode": "AES-256", "derFunc": true, "reSeed": true,
         "predResistance": false, "entropyInputLen": 384, "nonceLen": 384,
         "persoStringLen": 384, "additionalInputLen": 384, "returnedBitsLen": 4096, "tests": []})",
     "parameter block"},
    {R"("algorithm": "kdf-components", "mode": "ssh", "revision": "1.0")",
     R"({"tgId": 1, "testType": "AFT", "cipher": "AES-128", "hashAlg": "SHA2-512", "tests": []})",
     "hashAlg \"SHA2-512\""},
    {R"("algorithm": "TLS-v1.2", "mode": "KDF", "revision": "RFC7627")",
     R"({"tgId": 1, "tests": []})", "extended-master-secret"},
    {R"("algorithm": "RSA", "mode": "sigVer", "revision": "FIPS186-4")",
     R"({"tgId": 1, "tests": []})", "stops at the first test"},
};

TEST(AcvpConversion, GroupsNoRunnerAnswersAreListedWithTheirReason) {
  for (const UnsupportedCase& c : kUnsupported) {
    const Conversion out = ConvertVectorSet(Set(c.head, c.group));
    ASSERT_EQ(out.error, "") << c.reason;
    EXPECT_TRUE(out.files.empty()) << c.reason;
    ASSERT_EQ(out.unanswered.size(), 1u) << c.reason;
    EXPECT_NE(out.unanswered[0].reason.find(c.reason), std::string::npos)
        << out.unanswered[0].reason;
  }
}

TEST(AcvpConversion, BadDocumentsGiveOneLineNamingTheField) {
  struct {
    const char* json;
    const char* message;
  } const cases[] = {
      {R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [)",
       "malformed JSON"},
      {R"({"vsId": 1, "algorithm": "ACVP-AES-CBC", "revision": "1.0", "testGroups": [
           {"tgId": 4, "testType": "AFT", "direction": "encrypt", "tests": []}]})",
       "testGroups[0] (tgId 4): field \"keyLen\" is missing"},
      {R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
           {"tgId": 1, "testType": "AFT", "tests": [{"tcId": 3, "msg": "XY", "len": 8}]}]})",
       "tests[0] (tcId 3): field \"msg\" is not hexadecimal"},
      {R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
           {"tgId": 1, "testType": "AFT", "tests": [{"tcId": "3"}]}]})",
       "field \"tcId\" is not an integer"},
      {R"({"vsId": 1, "algorithm": "SHA3-256", "revision": "1.0", "testGroups": []})",
       "field \"algorithm\" names an algorithm fipsval does not answer: \"SHA3-256\""},
      {R"({"algorithm": "SHA-1", "revision": "1.0", "testGroups": []})",
       "field \"vsId\" is missing"},
  };
  for (const auto& c : cases) {
    Json prompt;
    std::string error;
    if (ParseJsonText(c.json, "prompt.json", &prompt, &error)) {
      error = ConvertVectorSet(prompt).error;
    }
    EXPECT_NE(error.find(c.message), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(AcvpConversion, OnlyARegularFileIsReadAsADocument) {
  Json j;
  std::string error;
  EXPECT_FALSE(LoadJsonFile("/tmp", &j, &error));
  EXPECT_EQ(error, "/tmp: not a regular file");
  EXPECT_FALSE(LoadJsonFile("/tmp/absent.json", &j, &error));
  EXPECT_EQ(error, "/tmp/absent.json: cannot be read: No such file or directory");
}

// Runs a conversion's single file against a response text.
Outcome Answer(const Json& prompt, const std::string& response) {
  const Conversion conversion = ConvertVectorSet(prompt);
  EXPECT_EQ(conversion.error, "");
  std::vector<FileResult> results(conversion.files.size());
  for (FileResult& r : results) {
    r.present = true;
    r.text = response;
    r.note = "Error extracting key";
  }
  return AssembleResponse(prompt, conversion, results);
}

TEST(AcvpResponse, AnswersAreMappedToTheirTcIds) {
  const Json prompt = Set(R"("algorithm": "ACVP-AES-CBC", "revision": "1.0")",
                          R"({"tgId": 1, "testType": "AFT", "direction": "encrypt", "keyLen": 128,
                              "tests": [{"tcId": 11, "key": "00000000000000000000000000000000",
                                         "iv": "00000000000000000000000000000000",
                                         "pt": "00000000000000000000000000000000"}]},
                             {"tgId": 2, "testType": "AFT", "direction": "decrypt", "keyLen": 128,
                              "tests": [{"tcId": 12, "key": "00000000000000000000000000000000",
                                         "iv": "00000000000000000000000000000000",
                                         "ct": "00000000000000000000000000000000"}]})");
  const Outcome out = Answer(prompt, Crlf(
      "[ENCRYPT]\n\nCOUNT = 0\nKEY = 00\nIV = 00\nPLAINTEXT = 00\nCIPHERTEXT = 66e94b\n\n"
      "[DECRYPT]\n\nCOUNT = 0\nKEY = 00\nIV = 00\nCIPHERTEXT = 00\nPLAINTEXT = 14f1\n"));
  EXPECT_EQ(out.response.dump(),
            R"({"vsId":7,"algorithm":"ACVP-AES-CBC","revision":"1.0","testGroups":[)"
            R"({"tgId":1,"tests":[{"tcId":11,"ct":"66E94B"}]},)"
            R"({"tgId":2,"tests":[{"tcId":12,"pt":"14F1"}]}]})");
}

TEST(AcvpResponse, RsaGroupsCarryTheKeyAndAShortResponseIsNotAnswered) {
  const Json prompt = Set(R"("algorithm": "RSA", "mode": "sigGen", "revision": "FIPS186-4")",
                          R"({"tgId": 7, "testType": "GDT", "sigType": "pkcs1v1.5", "modulo": 1024,
                              "hashAlg": "SHA-1", "tests": [{"tcId": 1, "message": "01"}]},
                             {"tgId": 8, "testType": "GDT", "sigType": "pkcs1v1.5", "modulo": 1024,
                              "hashAlg": "SHA-1", "tests": [{"tcId": 2, "message": "02"}]})");
  const Outcome out = Answer(prompt, Crlf("[mod = 1024]\n\nn = C5\n\ne = 03\nSHAAlg = SHA1\n"
                                          "Msg = 01\nS = 0a0b\n\n[mod = 1024]\n"));
  EXPECT_EQ(out.response["testGroups"].dump(),
            R"([{"tgId":7,"n":"C5","e":"03","tests":[{"tcId":1,"signature":"0A0B"}]}])");
  ASSERT_EQ(out.unanswered.size(), 1u);
  EXPECT_EQ(out.unanswered[0].tg_id, 8);
  EXPECT_NE(out.unanswered[0].reason.find("no answer for tcId 2: Error extracting key"),
            std::string::npos);
  EXPECT_EQ(out.failed_groups, 1);
  EXPECT_EQ(out.response["notAnswered"][0]["tgId"], 8);
}

TEST(AcvpResponse, MonteCarloRecordsBecomeTheResultsArray) {
  const Json prompt = Set(R"("algorithm": "SHA-1", "revision": "1.0")",
                          R"({"tgId": 2, "testType": "MCT", "mctVersion": "standard",
                              "tests": [{"tcId": 17, "msg": "0000000000000000000000000000000000000000", "len": 160}]})");
  std::string response = "[L = 20]\n\nSeed = 00\n\n";
  for (int i = 0; i < 100; ++i) {
    response += "COUNT = " + std::to_string(i) + "\nMD = " + std::to_string(10 + i) + "\n\n";
  }
  const Outcome out = Answer(prompt, Crlf(response));
  const Json& results = out.response["testGroups"][0]["tests"][0]["resultsArray"];
  ASSERT_EQ(results.size(), 100u);
  EXPECT_EQ(results[0].dump(), R"({"md":"10"})");
  EXPECT_EQ(results[99].dump(), R"({"md":"109"})");
}

TEST(AcvpCheck, ComparesTestByTestAndNamesTheFirstDifference) {
  const Json expected = Parse(R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
      {"tgId": 1, "tests": [{"tcId": 1, "md": "AB"}, {"tcId": 2, "md": "CD"}]},
      {"tgId": 2, "tests": [{"tcId": 3, "md": "EF"}]}]})");
  const Json response = Parse(R"({"vsId": 1, "algorithm": "SHA-1", "revision": "1.0", "testGroups": [
      {"tgId": 1, "tests": [{"tcId": 1, "md": "ab"}, {"tcId": 2, "md": "CE"}]}],
      "notAnswered": [{"tgId": 2, "reason": "LDT"}]})");
  std::FILE* out = std::tmpfile();
  const CheckTally tally = CheckResponse(expected, response, nullptr, out);
  std::rewind(out);
  std::string text(4096, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), out));
  std::fclose(out);
  EXPECT_EQ(tally.passed, 1);
  EXPECT_EQ(tally.failed, 1);
  EXPECT_EQ(text,
            "tgId 1: FAIL 1 of 2 tests (first: tcId 2: md is CE, expected CD)\n"
            "tgId 2: NOT ANSWERED (LDT)\n"
            "1 passed, 1 failed\n");
}

}  // namespace
}  // namespace fipsval::host::acvp
