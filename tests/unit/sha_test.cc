// The SHA-1 and SHA-256 message and Monte Carlo runners: answers, the
// failure paths a request can trigger, and short writes on a full disk.
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <array>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

struct Family {
  const char* name;
  void (*messages)(const char*);
  void (*monte)(const char*);
  const char* marker;
  const char* other_marker;
  std::size_t digest_len;
  unsigned char* (*one_shot)(const unsigned char*, std::size_t, unsigned char*);
};

void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

const Family kSha1 = {"SHA1",     test_sha1_from_file, test_sha1_mct_from_file,
                      "[L = 20]", "[L = 32]",          20,
                      SHA1};
const Family kSha256 = {"SHA256",
                        test_sha256_from_file,
                        test_sha256_mct_from_file,
                        "[L = 32]",
                        "[L = 20]",
                        32,
                        SHA256};

std::string Hex(const unsigned char* bytes, std::size_t len) {
  std::string out(2 * len, '\0');
  fips_tv_convert_to_asc(bytes, static_cast<int>(len), out.data());
  return out;
}

struct Result {
  std::string printed;
  std::string response;
};

Result RunRequest(void (*runner)(const char*), const std::string& request) {
  ResetVectorDirs();
  WriteRequest("T", request);
  Result r;
  r.printed = CaptureStdout([&] { runner("T"); });
  r.response = ReadResponse("T");
  return r;
}

class ShaMessages : public ::testing::TestWithParam<Family> {
 protected:
  std::string Digest(std::string_view msg) const {
    std::array<unsigned char, 32> md;
    GetParam().one_shot(reinterpret_cast<const unsigned char*>(msg.data()),
                        msg.size(), md.data());
    return Hex(md.data(), GetParam().digest_len);
  }
  std::string Header() const {
    return Crlf(std::string("#  CAVS 11.0\n\n") + GetParam().marker + "\n\n");
  }
};

TEST_P(ShaMessages, AnswersEachMsgAndCopiesEverythingElse) {
  const std::string before = Crlf("# Len = 8\nLen = 8\nMsg = 61\n");
  const std::string request = before + Header() +
                              Crlf(
                                  "Len = 0\nMsg = 00\n\n"
                                  "Len = 24\nMsg = 616263\n\n"
                                  "Len = 12\nMsg = 6A\n");
  const Result r = RunRequest(GetParam().messages, request);
  EXPECT_EQ(r.printed, "");
  // Len 0 hashes the empty message, not its placeholder; 12 bits is one
  // byte; upper-case hex is read and the digests are lower case.
  EXPECT_EQ(r.response,
            before + Header() +
                Crlf("Len = 0\nMsg = 00\nMD = " + Digest("") + "\n\n" +
                     "Len = 24\nMsg = 616263\nMD = " + Digest("abc") + "\n\n" +
                     "Len = 12\nMsg = 6A\nMD = " + Digest("j") + "\n"));
}

TEST_P(ShaMessages, LongMessageFillsMostOfTheLineBuffer) {
  const std::string msg(9990, 'q');
  const std::string hex =
      Hex(reinterpret_cast<const unsigned char*>(msg.data()), msg.size());
  const Result r = RunRequest(
      GetParam().messages, Header() + Crlf("Len = 79920\nMsg = " + hex + "\n"));
  EXPECT_EQ(r.printed, "");
  EXPECT_NE(r.response.find("\r\nMD = " + Digest(msg) + "\r\n"),
            std::string::npos);
}

struct Failure {
  const char* label;
  std::string body;  // after the header and marker
  std::string printed;
  std::string kept;  // what of the body stays in the response
};

TEST_P(ShaMessages, FailuresStopWithTheirMessage) {
  const std::string over_long(20000, 'a');  // cut at 19,999 characters
  const std::vector<Failure> failures = {
      {"length mismatch", Crlf("Len = 8\nMsg = 6162\nLen = 0\n"),
       "Msg len mismatch (1 != 2)\n", Crlf("Len = 8\n")},
      {"negative length", Crlf("Len = -8\nMsg = 61\n"),
       "Msg len mismatch (-1 != 1)\n", Crlf("Len = -8\n")},
      {"no Msg line", Crlf("Len = 8\n\nMsg = 61\n"), "Msg field not present\n",
       Crlf("Len = 8\n")},
      {"end after Len", Crlf("Len = 8\n"), "Msg field not present\n",
       Crlf("Len = 8\n")},
      {"Msg without hex", Crlf("Len = 8\nMsg = zz\n"), "Error extracting msg\n",
       Crlf("Len = 8\n")},
      {"Msg longer than the line buffer",
       Crlf("Len = 80000\nMsg = " + over_long + "\n"),
       "Msg len mismatch (10000 != 9996)\n", Crlf("Len = 80000\n")},
  };
  for (const Failure& f : failures) {
    SCOPED_TRACE(f.label);
    const Result r = RunRequest(GetParam().messages, Header() + f.body);
    EXPECT_EQ(r.printed, f.printed);
    EXPECT_EQ(r.response, Header() + f.kept);
  }
}

TEST_P(ShaMessages, MissingMarkerCopiesTheWholeRequest) {
  const std::string request =
      Crlf(std::string("# header\n") + GetParam().other_marker +
           "\n\nLen = 8\nMsg = 61\n");
  const Result r = RunRequest(GetParam().messages, request);
  EXPECT_EQ(r.printed, "Never found encrypt marker\n");
  EXPECT_EQ(r.response, request);
}

class ShaMonte : public ::testing::TestWithParam<Family> {
 protected:
  std::string Seed(std::size_t len) const {
    std::vector<unsigned char> seed(len);
    for (std::size_t i = 0; i < len; ++i)
      seed[i] = static_cast<unsigned char>(i * 7 + 1);
    return Hex(seed.data(), len);
  }
  // The first checkpoint, computed independently of the runner.
  std::string FirstCheckpoint(const std::string& seed_hex) const {
    const std::size_t n = GetParam().digest_len;
    std::vector<unsigned char> md(n);
    fips_tv_extract_from_asc(seed_hex.c_str(), md.data());
    std::vector<unsigned char> a = md, b = md, c = md, in(3 * n);
    for (int i = 0; i < 1000; ++i) {
      std::memcpy(in.data(), a.data(), n);
      std::memcpy(in.data() + n, b.data(), n);
      std::memcpy(in.data() + 2 * n, c.data(), n);
      a = b;
      b = c;
      GetParam().one_shot(in.data(), in.size(), c.data());
    }
    return Hex(c.data(), n);
  }
};

TEST_P(ShaMonte, WritesOneHundredCheckpoints) {
  const std::string seed = Seed(GetParam().digest_len);
  const std::string header =
      Crlf(std::string("#  CAVS 11.1\n\n") + GetParam().marker + "\n\n");
  // Nothing after the seed line is read.
  const Result r = RunRequest(
      GetParam().monte, header + Crlf("Seed = " + seed + "\n\nSeed = zz\n"));
  EXPECT_EQ(r.printed, "");

  const std::string start = header + Crlf("Seed = " + seed + "\n\n");
  ASSERT_EQ(r.response.substr(0, start.size()), start);
  // Then exactly 100 blocks "COUNT = j", "MD = <hex>", blank line.
  std::vector<std::string> mds;
  const std::size_t hex_len = 2 * GetParam().digest_len;
  for (std::size_t pos = start.size(); pos < r.response.size();) {
    const std::string count =
        "COUNT = " + std::to_string(mds.size()) + "\r\nMD = ";
    ASSERT_EQ(r.response.compare(pos, count.size(), count), 0)
        << "block " << mds.size() << " at: " << r.response.substr(pos, 40);
    pos += count.size();
    const std::string md = r.response.substr(pos, hex_len);
    EXPECT_EQ(md.find_first_not_of("0123456789abcdef"), std::string::npos)
        << md;
    ASSERT_EQ(r.response.compare(pos + hex_len, 4, "\r\n\r\n"), 0)
        << "block " << mds.size();
    mds.push_back(md);
    pos += hex_len + 4;
  }
  ASSERT_EQ(mds.size(), 100u);
  EXPECT_EQ(mds[0], FirstCheckpoint(seed));
  EXPECT_EQ(mds[1], FirstCheckpoint(mds[0]));
}

TEST_P(ShaMonte, SeedMustBeExactlyTheDigestLength) {
  const std::size_t n = GetParam().digest_len;
  for (std::size_t len : {n - 1, n + 1, std::size_t{0}}) {
    SCOPED_TRACE(len);
    const std::string header = Crlf("# h\n");
    const Result r = RunRequest(GetParam().monte,
                                header + Crlf("Seed = " + Seed(len) + "\n"));
    EXPECT_EQ(r.printed, "Error extracting seed\n");
    EXPECT_EQ(r.response, header);
  }
}

TEST_P(ShaMonte, MissingSeedCopiesTheWholeRequest) {
  const std::string request =
      Crlf(std::string(GetParam().marker) + "\n\nSeed: 00\n");
  const Result r = RunRequest(GetParam().monte, request);
  EXPECT_EQ(r.printed, "Never found seed marker\n");
  EXPECT_EQ(r.response, request);
}

INSTANTIATE_TEST_SUITE_P(Families, ShaMessages,
                         ::testing::Values(kSha1, kSha256),
                         [](const auto& info) {
                           return std::string(info.param.name);
                         });
INSTANTIATE_TEST_SUITE_P(Families, ShaMonte, ::testing::Values(kSha1, kSha256),
                         [](const auto& info) {
                           return std::string(info.param.name);
                         });

// A response directory that fills up part way: one message, both files
// closed, and what fitted stays.
TEST(ShaShortWrite, MessageRunnerStopsOnAFullDisk) {
  std::string request = Crlf("[L = 32]\n\n");
  const std::string hex(10000, 'b');
  for (int i = 0; i < 8; ++i)
    request += Crlf("Len = 40000\nMsg = " + hex + "\n\n");
  ResetVectorDirs();
  WriteRequest("SHA256LongMsg", request);
  MountTinyResponseDir(4096);
  const int fds = OpenDescriptorCount();
  const std::string printed =
      CaptureStdout([] { test_sha256_from_file("SHA256LongMsg"); });
  EXPECT_EQ(printed, "Problem writing to rsp file\n");
  EXPECT_EQ(OpenDescriptorCount(), fds);
  const std::string kept = ReadResponse("SHA256LongMsg");
  EXPECT_LE(kept.size(), 4096u);
  EXPECT_EQ(kept, request.substr(0, kept.size()));
}

TEST(ShaShortWrite, MonteCarloRunnerStopsOnAFullDisk) {
  ResetVectorDirs();
  WriteRequest("SHA256Monte",
               Crlf("[L = 32]\n\nSeed = " + std::string(64, 'c') + "\n"));
  MountTinyResponseDir(4096);  // the full response is about 9 KB
  const int fds = OpenDescriptorCount();
  const std::string printed =
      CaptureStdout([] { test_sha256_mct_from_file("SHA256Monte"); });
  EXPECT_TRUE(OneOf(printed, {"Problem writing count tag to rsp file\n",
                              "Problem writing count to rsp file\n",
                              "Problem writing digest tag to rsp file\n",
                              "Problem writing digest to rsp file\n",
                              "Problem writing EOL to rsp file\n"}))
      << printed;
  EXPECT_EQ(OpenDescriptorCount(), fds);
  EXPECT_LE(ReadResponse("SHA256Monte").size(), 4096u);
}

}  // namespace
}  // namespace fipsval::testing
