// The HMAC runner: section modes, truncation to Tlen, the failure paths a
// request can trigger, and short writes on a full disk.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

// RFC 2202 / RFC 4231 test case 1: key 0x0b x 20, message "Hi There".
const std::string kKeyHex = "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b";
const std::string kMsgHex = "4869205468657265";
const std::string kSha1Mac = "b617318655057264e28bc0b6fb378c8ef146be00";
const std::string kSha256Mac =
    "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7";

// One test block in request form (LF line ends).
std::string Block(int count, int tlen, const std::string& key = kKeyHex,
                  const std::string& msg = kMsgHex) {
  return "Count = " + std::to_string(count) +
         "\nKlen = 20\nTlen = " + std::to_string(tlen) + "\nKey = " + key +
         "\nMsg = " + msg + "\n";
}

struct Result {
  std::string printed;
  std::string response;
};

Result RunRequest(const std::string& request_lf) {
  ResetVectorDirs();
  WriteRequest("HMAC", Crlf(request_lf));
  Result r;
  r.printed = CaptureStdout([] { test_hmac_from_file("HMAC"); });
  r.response = ReadResponse("HMAC");
  return r;
}

TEST(Hmac, AnswersEachSectionWithItsDigestTruncatedToTlen) {
  const std::string request =
      "#  HMAC information\n\n[L=20]\n\n" + Block(0, 10) + "\n" + Block(1, 20) +
      "\n[L=32]\n\n" + Block(2, 32) + "\n" + Block(3, 16);
  const Result r = RunRequest(request);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response,
            Crlf("#  HMAC information\n\n[L=20]\n\n" + Block(0, 10) +
                 "Mac = " + kSha1Mac.substr(0, 20) + "\n\n" + Block(1, 20) +
                 "Mac = " + kSha1Mac + "\n\n[L=32]\n\n" + Block(2, 32) +
                 "Mac = " + kSha256Mac + "\n\n" + Block(3, 16) +
                 "Mac = " + kSha256Mac.substr(0, 32) + "\n"));
}

TEST(Hmac, UnknownSectionsKeepTheModeInForce) {
  const Result r =
      RunRequest("[L=32]\n\n" + Block(0, 32) + "\n[L=28]\n\n" + Block(1, 28));
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, Crlf("[L=32]\n\n" + Block(0, 32) + "Mac = " +
                             kSha256Mac + "\n\n[L=28]\n\n" + Block(1, 28) +
                             "Mac = " + kSha256Mac.substr(0, 56) + "\n"));
}

TEST(Hmac, MarkerStraightAfterAMarkerIsCopiedAsAnOrdinaryLine) {
  const Result r = RunRequest("[L=20]\n[L=32]\n" + Block(0, 20));
  EXPECT_EQ(r.response, Crlf("[L=20]\n[L=32]\n" + Block(0, 20) +
                             "Mac = " + kSha1Mac + "\n"));
}

TEST(Hmac, TestsBeforeAnyMarkerAreCopiedWithoutAnswers) {
  const Result r = RunRequest(Block(0, 20) + "\n[L=20]\n" + Block(1, 20));
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, Crlf(Block(0, 20) + "\n[L=20]\n" + Block(1, 20) +
                             "Mac = " + kSha1Mac + "\n"));
}

TEST(Hmac, TlenOfZeroOrLessGivesAnEmptyMac) {
  const Result r = RunRequest("[L=20]\n" + Block(0, 0) + Block(1, -4));
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, Crlf("[L=20]\n" + Block(0, 0) + "Mac = \n" +
                             Block(1, -4) + "Mac = \n"));
}

TEST(Hmac, TlenBeyondTheSha1LengthPadsWithZeros) {
  const Result r = RunRequest("[L=20]\n" + Block(0, 24));
  EXPECT_EQ(r.response, Crlf("[L=20]\n" + Block(0, 24) + "Mac = " + kSha1Mac +
                             "00000000\n"));
}

TEST(Hmac, LongestKeyAndMessageThatALineHolds) {
  // A 1,024-byte line buffer holds 1,023 characters: 507 bytes of hex after
  // the tag and before the CR LF.
  const std::string key(1014, 'a');
  const std::string msg(1014, '5');
  const Result r = RunRequest("[L=32]\n" + Block(0, 32, key, msg));
  EXPECT_EQ(r.printed, "");

  unsigned char k[507], m[507], mac[32];
  ASSERT_EQ(fips_tv_extract_from_asc(key.c_str(), k), 507);
  ASSERT_EQ(fips_tv_extract_from_asc(msg.c_str(), m), 507);
  unsigned mac_len = 0;
  HMAC(EVP_sha256(), k, sizeof k, m, sizeof m, mac, &mac_len);
  char hex[65];
  fips_tv_convert_to_asc(mac, 32, hex);
  EXPECT_EQ(r.response,
            Crlf("[L=32]\n" + Block(0, 32, key, msg) + "Mac = " + hex + "\n"));
}

TEST(Hmac, EmptyRequestGivesAnEmptyResponse) {
  const Result r = RunRequest("");
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, "");
}

struct Failure {
  const char* label;
  std::string request;
  std::string printed;
  std::string kept;
};

TEST(Hmac, FailuresStopWithTheirMessage) {
  const std::string head = "[L=20]\nCount = 0\n";
  const std::vector<Failure> failures = {
      {"no marker", "# only comments\n\n", "Never found starting marker\n",
       "# only comments\n\n"},
      {"end after marker", "# c\n[L=20]\n", "Problem reading req file.\n",
       "# c\n[L=20]\n"},
      {"end after the other marker", "[L=32]\n", "Problem reading req file.\n",
       "[L=32]\n"},
      {"no Klen", head + "Tlen = 10\n", "Key length field not present\n", head},
      {"end after Count", head, "Key length field not present\n", head},
      {"no Tlen", head + "Klen = 20\nKey = 00\n",
       "MAC length field not present\n", head + "Klen = 20\n"},
      {"Tlen of 33", head + "Klen = 20\nTlen = 33\nKey = 00\nMsg = 00\n",
       "MAC len is too big\n", head + "Klen = 20\nTlen = 33\n"},
      {"no Key", head + "Klen = 20\nTlen = 10\nMsg = 00\n",
       "Key field not present\n", head + "Klen = 20\nTlen = 10\n"},
      {"Key without hex", head + "Klen = 20\nTlen = 10\nKey = \nMsg = 00\n",
       "Error extracting key\n", head + "Klen = 20\nTlen = 10\n"},
      {"no Msg", head + "Klen = 20\nTlen = 10\nKey = 00\n\n",
       "Msg field not present\n", head + "Klen = 20\nTlen = 10\nKey = 00\n"},
      {"Msg without hex", head + "Klen = 20\nTlen = 10\nKey = 00\nMsg = x1\n",
       "Error extracting msg\n", head + "Klen = 20\nTlen = 10\nKey = 00\n"},
  };
  for (const Failure& f : failures) {
    SCOPED_TRACE(f.label);
    const Result r = RunRequest(f.request);
    EXPECT_EQ(r.printed, f.printed);
    EXPECT_EQ(r.response, Crlf(f.kept));
  }
}

TEST(HmacShortWrite, StopsOnAFullDiskWithBothFilesClosed) {
  std::string request = "[L=32]\n\n";
  for (int i = 0; i < 20; ++i)
    request += Block(i, 32, kKeyHex, std::string(256, '7')) + "\n";
  ResetVectorDirs();
  WriteRequest("HMAC", Crlf(request));
  MountTinyResponseDir(4096);  // the full response is about 8 KB
  const int fds = OpenDescriptorCount();
  const std::string printed =
      CaptureStdout([] { test_hmac_from_file("HMAC"); });
  EXPECT_TRUE(OneOf(printed, {"Problem writing to rsp file\n",
                              "Problem writing mac tag to rsp file\n",
                              "Problem writing mac to rsp file\n",
                              "Problem writing EOL to rsp file\n"}))
      << printed;
  EXPECT_EQ(OpenDescriptorCount(), fds);
  EXPECT_LE(ReadResponse("HMAC").size(), 4096u);
}

}  // namespace
}  // namespace fipsval::testing
