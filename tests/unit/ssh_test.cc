// The SSH KDF runner against NIST's answers and against OpenSSL's own
// SSHKDF, at the one/two-digest boundary and on its failure paths.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

std::string Hex(const Bytes& b) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  for (uint8_t x : b) {
    s += kDigits[x >> 4];
    s += kDigits[x & 15];
  }
  return s;
}

// Deterministic filler bytes, different for each seed.
Bytes Pattern(std::size_t n, unsigned seed) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(seed + i * 37);
  return b;
}

struct SshCase {
  Bytes k, h, session_id;
};

SshCase MakeCase(std::size_t digest_len, unsigned seed) {
  // K as an SSH mpint: four length bytes, then the value.
  Bytes k = {0, 0, 0, 0x80};
  const Bytes value = Pattern(128, seed);
  k.insert(k.end(), value.begin(), value.end());
  return {k, Pattern(digest_len, seed + 1), Pattern(digest_len, seed + 2)};
}

std::string Header(std::string_view marker, int iv_bits, int key_bits) {
  return Crlf(std::string(marker) + "\n[shared secret length = 1024]\n" +
              "[IV length = " + std::to_string(iv_bits) + "]\n" +
              "[encryption key length = " + std::to_string(key_bits) +
              "]\n\n");
}

std::string CaseText(int count, const SshCase& c) {
  return Crlf("COUNT = " + std::to_string(count) + "\nK = " + Hex(c.k) +
              "\nH = " + Hex(c.h) + "\nsession_id = " + Hex(c.session_id) +
              "\n");
}

// OpenSSL's SSHKDF, the independent reference.
std::string Reference(const char* digest, const SshCase& c, char letter,
                      std::size_t len) {
  std::unique_ptr<EVP_KDF, decltype(&EVP_KDF_free)> kdf(
      EVP_KDF_fetch(nullptr, "SSHKDF", nullptr), EVP_KDF_free);
  std::unique_ptr<EVP_KDF_CTX, decltype(&EVP_KDF_CTX_free)> ctx(
      EVP_KDF_CTX_new(kdf.get()), EVP_KDF_CTX_free);
  char type[2] = {letter, 0};
  Bytes k = c.k, h = c.h, sid = c.session_id;
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST,
                                       const_cast<char*>(digest), 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, k.data(), k.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SSHKDF_XCGHASH,
                                        h.data(), h.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SSHKDF_SESSION_ID,
                                        sid.data(), sid.size()),
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_SSHKDF_TYPE, type, 1),
      OSSL_PARAM_construct_end()};
  Bytes out(len);
  EXPECT_EQ(EVP_KDF_derive(ctx.get(), out.data(), len, params), 1);
  return Hex(out);
}

// The values that follow `tag` in the response, in order.
std::vector<std::string> Values(const std::string& rsp, std::string_view tag) {
  std::vector<std::string> out;
  for (std::size_t at = rsp.find(tag); at != std::string::npos;
       at = rsp.find(tag, at + 1)) {
    const std::size_t begin = at + tag.size();
    out.push_back(rsp.substr(begin, rsp.find("\r\n", begin) - begin));
  }
  return out;
}

std::vector<std::string> NonBlankLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(begin, end - begin);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) lines.push_back(line);
    begin = end + 1;
  }
  return lines;
}

constexpr char kIvC2S[] = "Initial IV (client to server) = ";
constexpr char kIvS2C[] = "Initial IV (server to client) = ";
constexpr char kKeyC2S[] = "Encryption key (client to server) = ";
constexpr char kKeyS2C[] = "Encryption key (server to client) = ";
constexpr char kMacC2S[] = "Integrity key (client to server) = ";
constexpr char kMacS2C[] = "Integrity key (server to client) = ";

class SshRunner : public ::testing::Test {
 protected:
  void SetUp() override { ResetVectorDirs(); }

  // Runs the runner on `request`; returns what it printed.
  std::string Run(const std::string& request) {
    WriteRequest("ssh", request);
    return CaptureStdout([] { test_ssh_from_file("ssh"); });
  }
  std::string Response() { return ReadResponse("ssh"); }
};

TEST_F(SshRunner, MatchesNistAnswers) {
  const std::string dir = std::string(FIPSVAL_CAVP_DIR) + "/KDF135/";
  const std::string request = ReadFile(dir + "req/ssh.req");
  ASSERT_FALSE(request.empty());
  EXPECT_EQ(Run(request), "");
  EXPECT_EQ(NonBlankLines(Response()),
            NonBlankLines(ReadFile(dir + "fax/ssh.fax")));
}

TEST_F(SshRunner, OneDigestUpToItsLengthTwoBeyond) {
  // SHA-1: IVs of exactly 20 bytes, keys of 21; SHA-256: 32 and 33.
  const SshCase c1 = MakeCase(20, 1);
  const SshCase c2 = MakeCase(32, 2);
  EXPECT_EQ(Run(Header("[SHA-1]", 160, 168) + CaseText(0, c1) +
                Header("[SHA-256]", 256, 264) + CaseText(0, c2)),
            "");
  const std::string rsp = Response();
  const struct {
    const char* tag;
    char letter;
    std::size_t len1, len2;
  } outputs[] = {{kIvC2S, 'A', 20, 32},  {kIvS2C, 'B', 20, 32},
                 {kKeyC2S, 'C', 21, 33}, {kKeyS2C, 'D', 21, 33},
                 {kMacC2S, 'E', 20, 32}, {kMacS2C, 'F', 20, 32}};
  for (const auto& o : outputs) {
    SCOPED_TRACE(o.tag);
    EXPECT_EQ(Values(rsp, o.tag),
              (std::vector<std::string>{Reference("SHA1", c1, o.letter, o.len1),
                                        Reference("SHA256", c2, o.letter,
                                                  o.len2)}));
  }
}

TEST_F(SshRunner, KeyOfTwoDigestsAcceptedOneByteMoreRefused) {
  const SshCase c = MakeCase(20, 3);
  EXPECT_EQ(Run(Header("[SHA-1]", 64, 320) + CaseText(0, c)), "");
  EXPECT_EQ(Values(Response(), kKeyC2S),
            std::vector<std::string>{Reference("SHA1", c, 'C', 40)});

  const std::string header = Header("[SHA-1]", 64, 328);
  EXPECT_EQ(Run(header + CaseText(0, c)),
            "The encryption key length is over limit 41(40)\n");
  EXPECT_EQ(Response(), header.substr(0, header.rfind("\r\n\r\n") + 2));
}

TEST_F(SshRunner, IvBeyondTwoDigestsRefusedLikeTheKey) {
  EXPECT_EQ(Run(Header("[SHA-256]", 520, 128) + CaseText(0, MakeCase(32, 4))),
            "The encryption key length is over limit 65(64)\n");
  EXPECT_EQ(Values(Response(), kIvC2S).size(), 0u);
}

TEST_F(SshRunner, EachSectionUsesItsOwnHash) {
  const SshCase a = MakeCase(20, 5), b = MakeCase(32, 6), c = MakeCase(20, 7);
  EXPECT_EQ(Run(Crlf("# three sections\n\n") + Header("[SHA-1]", 64, 192) +
                CaseText(0, a) + Header("[SHA-256]", 128, 256) +
                CaseText(0, b) + Header("[SHA-1]", 128, 128) + CaseText(0, c)),
            "");
  const std::string rsp = Response();
  EXPECT_EQ(Values(rsp, kIvS2C),
            (std::vector<std::string>{Reference("SHA1", a, 'B', 8),
                                      Reference("SHA256", b, 'B', 16),
                                      Reference("SHA1", c, 'B', 16)}));
  EXPECT_EQ(Values(rsp, kMacS2C),
            (std::vector<std::string>{Reference("SHA1", a, 'F', 20),
                                      Reference("SHA256", b, 'F', 32),
                                      Reference("SHA1", c, 'F', 20)}));
}

TEST_F(SshRunner, BothMarkersOnOneLineSelectSha256) {
  const SshCase c = MakeCase(32, 8);
  EXPECT_EQ(Run(Header("[SHA-1] [SHA-256]", 64, 128) + CaseText(0, c)), "");
  EXPECT_EQ(Values(Response(), kMacC2S),
            std::vector<std::string>{Reference("SHA256", c, 'E', 32)});
}

TEST_F(SshRunner, ShortHIsHashedAsAZeroFilledDigest) {
  SshCase c = MakeCase(20, 9);
  const Bytes short_h(c.h.begin(), c.h.begin() + 10);
  EXPECT_EQ(Run(Header("[SHA-1]", 64, 64) +
                Crlf("COUNT = 0\nK = " + Hex(c.k) + "\nH = " + Hex(short_h) +
                     "\nsession_id = " + Hex(c.session_id) + "\n")),
            "");
  std::fill(c.h.begin() + 10, c.h.end(), 0);
  EXPECT_EQ(Values(Response(), kIvC2S),
            std::vector<std::string>{Reference("SHA1", c, 'A', 8)});
}

TEST_F(SshRunner, LastLineWithoutCrlfAfterACaseIsCopiedAsItStands) {
  const std::string request =
      Header("[SHA-1]", 64, 64) + CaseText(0, MakeCase(20, 13)) + "# end";
  EXPECT_EQ(Run(request), "");
  const std::string rsp = Response();
  EXPECT_EQ(rsp.substr(rsp.size() - 7), "\r\n# end");
}

TEST_F(SshRunner, ReportsMissingAndOverlongFields) {
  const SshCase c = MakeCase(20, 10);
  const std::string header = Header("[SHA-1]", 64, 128);
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nH = 00\n")),
            "H = 00\r\n\nK =  field not present\nProblem parse K = \n");
  EXPECT_EQ(Response(), header + Crlf("COUNT = 0\n"));

  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nK = " + std::string(2050, 'a') +
                              "\n")),
            "K is too long: 1025 bytes, at most 1024\n");
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nK = " + Hex(c.k) + "\nH = " +
                              std::string(66, '1') + "\n")),
            "H is too long: 33 bytes, at most 32\n");
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nK = " + Hex(c.k) + "\nH = " +
                              Hex(c.h) + "\nsession_id = zz\n")),
            "");
  EXPECT_EQ(Values(Response(), kIvC2S).size(), 0u);

  EXPECT_EQ(Run(Crlf("[SHA-1]\n[IV length = 64]\n")),
            "[shared secret length =  field not present \n[IV length = 64]\r\n\n");
  EXPECT_EQ(Run(Crlf("# no section\nCOUNT = 0\n")),
            "Never found starting marker\n");
  EXPECT_EQ(Response(), Crlf("# no section\nCOUNT = 0\n"));
}

// Comment lines of `n` bytes in all (n == 0 or n >= 3), CR LF ended.
std::string Padding(std::size_t n) {
  std::string s;
  for (; n >= 1003; n -= 1000) s += "#" + std::string(997, 'x') + "\r\n";
  if (n) s += "#" + std::string(n - 3, 'x') + "\r\n";
  return s;
}

// With a one-page tmpfs and stdio's page-sized buffer the first page is
// flushed whole; the write that crosses into the third page comes back
// short.
constexpr std::size_t kFullAt = 8192;

TEST_F(SshRunner, ShortWritesNameTheItem) {
  const std::string body =
      Header("[SHA-1]", 64, 128) + CaseText(0, MakeCase(20, 11));
  const std::size_t tag = body.size();  // the first answer's tag
  const std::size_t value = tag + 32;
  const std::size_t eol = value + 16;
  const struct {
    std::size_t at;  // offset that the failing write starts at
    const char* message;
  } cases[] = {{tag, "Problem writing rnd tag to rsp file\n"},
               {value, "Problem writing rnd to rsp file\n"},
               {eol, "Problem writing EOL to rsp file\n"},
               {eol + 2 + 32 + 16, "Problem writing EOL to rsp file\n"},
               {0, "Problem writing to rsp file\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    ResetVectorDirs();
    MountTinyResponseDir(4096);
    // The padding comes first, so the failing write starts at kFullAt - 1.
    const std::size_t pad = kFullAt - 1 - c.at;
    EXPECT_EQ(Run(Padding(pad) + body), c.message);
  }
}

TEST_F(SshRunner, ClosesBothFilesOnEveryPath) {
  const SshCase c = MakeCase(20, 12);
  const std::string requests[] = {
      Header("[SHA-1]", 64, 128) + CaseText(0, c),
      Header("[SHA-1]", 64, 328),
      Header("[SHA-1]", 64, 128) + Crlf("COUNT = 0\n"),
      Crlf("no marker\n"),
  };
  const int before = OpenDescriptorCount();
  for (const std::string& r : requests) Run(r);
  ResetVectorDirs();
  CaptureStdout([] { test_ssh_from_file("ssh"); });  // no request file
  WriteRequest("ssh", requests[0]);
  rmdir("/tmp/resp");
  EXPECT_EQ(CaptureStdout([] { test_ssh_from_file("ssh"); }),
            "Couldn't open /tmp/resp/ssh.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
}  // namespace fipsval::testing
