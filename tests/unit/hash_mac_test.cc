// The SHA-1 and SHA-256 message and Monte Carlo runners and the HMAC
// runner, as request text in, response text and console lines out.
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

struct Family {
  RunnerCore messages, monte;
  const char* marker;
  std::size_t digest_len;
  unsigned char* (*one_shot)(const unsigned char*, std::size_t, unsigned char*);
  const char* empty;  // FIPS 180 examples
  const char* abc;
};

const Family kFamilies[] = {
    {test_sha1_from_stream, test_sha1_mct_from_stream, "[L = 20]", 20, SHA1,
     "da39a3ee5e6b4b0d3255bfef95601890afd80709",
     "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {test_sha256_from_stream, test_sha256_mct_from_stream, "[L = 32]", 32,
     SHA256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
};

std::string Digest(const Family& f, const std::vector<uint8_t>& msg) {
  std::vector<uint8_t> md(f.digest_len);
  f.one_shot(msg.data(), msg.size(), md.data());
  return Hex(md);
}

TEST(Sha, AnswersEachMsgWithTheNistDigest) {
  for (const Family& f : kFamilies) {
    const std::string head = std::string("# Len = 8\nLen = 8\nMsg = 61\n") +
                             f.marker + "\n\n";
    // Len 0 hashes the empty message, not its placeholder; 12 bits is one
    // byte; upper-case hex is read. A message that fills most of the
    // 20,000-byte line buffer.
    const std::vector<uint8_t> big(9990, 'q');
    const CoreResult r = RunCore(
        f.messages, head + "Len = 0\nMsg = 00\n\nLen = 24\nMsg = 616263\n" +
                        "Len = 12\nMsg = 6A\n" +
                        "Len = 79920\nMsg = " + Hex(big) + "\n");
    EXPECT_EQ(r.printed, "");
    EXPECT_EQ(r.response,
              Crlf(head + "Len = 0\nMsg = 00\nMD = " + f.empty +
                   "\n\nLen = 24\nMsg = 616263\nMD = " + f.abc +
                   "\nLen = 12\nMsg = 6A\nMD = " +
                   Digest(f, {'j'}) + "\nLen = 79920\nMsg = " + Hex(big) +
                   "\nMD = " + Digest(f, big) + "\n"));
  }
}

TEST(Sha, FailuresStopWithTheirMessage) {
  const struct { std::string body, printed, kept; } kCases[] = {
      {"Len = 8\nMsg = 6162\nLen = 0\n", "Msg len mismatch (1 != 2)\n",
       "Len = 8\n"},
      {"Len = -8\nMsg = 61\n", "Msg len mismatch (-1 != 1)\n", "Len = -8\n"},
      {"Len = 8\n\nMsg = 61\n", "Msg field not present\n", "Len = 8\n"},
      {"Len = 8\n", "Msg field not present\n", "Len = 8\n"},
      {"Len = 8\nMsg = zz\n", "Error extracting msg\n", "Len = 8\n"},
  };
  const std::string c0 = "\nLen = 8\nMsg = 61\n";
  for (const Family& f : kFamilies) {
    const std::string head = std::string(f.marker) + "\n";
    for (const auto& c : kCases) {
      const CoreResult r = RunCore(f.messages, head + c.body);
      EXPECT_EQ(r.printed, c.printed) << c.body;
      EXPECT_EQ(r.response, Crlf(head + c.kept)) << c.body;
    }
    // The other family's marker is not this one's.
    const std::string other = (f.digest_len == 20 ? "[L = 32]" : "[L = 20]") + c0;
    const CoreResult r = RunCore(f.messages, other);
    EXPECT_EQ(r.printed + r.response, "Never found encrypt marker\n" + Crlf(other));
  }
}

// One checkpoint of the Monte Carlo test, computed independently:
// MD[i] = H(MD[i-3] || MD[i-2] || MD[i-1]), MD[0..2] = seed, 1000 times.
std::vector<uint8_t> Checkpoint(const Family& f, std::vector<uint8_t> seed) {
  std::vector<uint8_t> a = seed, b = seed, c = seed;
  for (int i = 0; i < 1000; ++i) {
    std::vector<uint8_t> in = a;
    in.insert(in.end(), b.begin(), b.end());
    in.insert(in.end(), c.begin(), c.end());
    a = b;
    b = c;
    f.one_shot(in.data(), in.size(), c.data());
  }
  return c;
}

TEST(ShaMonte, OneHundredCheckpointsChainedFromTheSeed) {
  for (const Family& f : kFamilies) {
    std::vector<uint8_t> seed(f.digest_len);
    for (std::size_t i = 0; i < seed.size(); ++i) seed[i] = 7 * i + 1;
    const std::string head = std::string("#  CAVS 11.1\n\n") + f.marker +
                             "\n\nSeed = " + Hex(seed) + "\n";
    // Nothing after the seed line is read.
    const CoreResult r = RunCore(f.monte, head + "\nSeed = zz\n");
    EXPECT_EQ(r.printed, "");
    std::string expected = head + "\n";
    std::vector<uint8_t> md = seed;
    for (int j = 0; j < 100; ++j) {
      md = Checkpoint(f, md);
      expected += "COUNT = " + std::to_string(j) + "\nMD = " + Hex(md) + "\n\n";
    }
    EXPECT_EQ(r.response, Crlf(expected));
    for (std::size_t len : {f.digest_len - 1, f.digest_len + 1, std::size_t{0}}) {
      const CoreResult bad =
          RunCore(f.monte, "# h\nSeed = " + Hex(std::vector<uint8_t>(len, 1)) + "\n");
      EXPECT_EQ(bad.printed, "Error extracting seed\n");
      EXPECT_EQ(bad.response, Crlf("# h\n"));
    }
    EXPECT_EQ(RunCore(f.monte, "[L = 20]\nSeed: 00\n").printed,
              "Never found seed marker\n");
  }
}

// RFC 2202 and RFC 4231, test cases 1 and 2.
std::string Block(int count, int tlen, const std::string& key, const std::string& msg) {
  return "Count = " + std::to_string(count) + "\nKlen = 20\nTlen = " +
         std::to_string(tlen) + "\nKey = " + key + "\nMsg = " + msg + "\n";
}
const std::string kHiKey = "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b",
    kHiMsg = "4869205468657265", kJefeKey = "4a656665",
    kJefeMsg = "7768617420646f2079612077616e7420666f72206e6f7468696e673f",
    kSha1Hi = "b617318655057264e28bc0b6fb378c8ef146be00",
    kSha1Jefe = "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79",
    kSha256Hi = "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
    kSha256Jefe = "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843";

TEST(Hmac, RfcVectorsPerSectionTruncatedToTlen) {
  // Tests before the first marker are copied without answers; an unknown
  // section (L=28) keeps the mode in force; a marker straight after a
  // marker is an ordinary line; Tlen 0 or below gives an empty value and
  // Tlen beyond the SHA-1 length pads with zeros.
  const std::string b0 = Block(0, 20, kHiKey, kHiMsg), b1 = Block(1, 10, kJefeKey, kJefeMsg),
                    b2 = Block(2, 24, kHiKey, kHiMsg), b3 = Block(3, 0, kHiKey, kHiMsg),
                    b4 = Block(4, -4, kHiKey, kHiMsg), b5 = Block(5, 32, kHiKey, kHiMsg),
                    b6 = Block(6, 16, kJefeKey, kJefeMsg), b7 = Block(7, 32, kJefeKey, kJefeMsg);
  const CoreResult r = RunCore(
      test_hmac_from_stream, b0 + "[L=20]\n[L=32]\n" + b0 + b1 + b2 + b3 + b4 +
                                 "\n[L=32]\n\n" + b5 + b6 + "[L=28]\n" + b7);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response,
            Crlf(b0 + "[L=20]\n[L=32]\n" + b0 + "Mac = " + kSha1Hi + "\n" + b1 +
                 "Mac = " + kSha1Jefe.substr(0, 20) + "\n" + b2 + "Mac = " +
                 kSha1Hi + "00000000\n" + b3 + "Mac = \n" + b4 + "Mac = \n" +
                 "\n[L=32]\n\n" + b5 + "Mac = " + kSha256Hi + "\n" + b6 +
                 "Mac = " + kSha256Jefe.substr(0, 32) + "\n[L=28]\n" + b7 +
                 "Mac = " + kSha256Jefe + "\n"));
}

TEST(Hmac, FailuresStopWithTheirMessage) {
  const std::string head = "[L=20]\nCount = 0\n";
  const std::string kt = head + "Klen = 20\nTlen = 10\n";
  const struct { std::string request, printed, kept; } kCases[] = {
      {"", "", ""},
      {"# only comments\n\n", "Never found starting marker\n",
       "# only comments\n\n"},
      {"# c\n[L=20]\n", "Problem reading req file.\n", "# c\n[L=20]\n"},
      {"[L=32]\n", "Problem reading req file.\n", "[L=32]\n"},
      {head + "Tlen = 10\n", "Key length field not present\n", head},
      {head, "Key length field not present\n", head},
      {head + "Klen = 20\nKey = 00\n", "MAC length field not present\n",
       head + "Klen = 20\n"},
      {head + "Klen = 20\nTlen = 33\nKey = 00\nMsg = 00\n",
       "MAC len is too big\n", head + "Klen = 20\nTlen = 33\n"},
      {kt + "Msg = 00\n", "Key field not present\n", kt},
      {kt + "Key = \nMsg = 00\n", "Error extracting key\n", kt},
      {kt + "Key = 00\n\n", "Msg field not present\n", kt + "Key = 00\n"},
      {kt + "Key = 00\nMsg = x1\n", "Error extracting msg\n", kt + "Key = 00\n"},
  };
  for (const auto& c : kCases) {
    const CoreResult r = RunCore(test_hmac_from_stream, c.request);
    EXPECT_EQ(r.printed, c.printed) << c.request;
    EXPECT_EQ(r.response, Crlf(c.kept)) << c.request;
  }
}

}  // namespace
}  // namespace fipsval::testing
