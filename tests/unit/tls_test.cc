// The TLS PRF runner against NIST's answers and against OpenSSL's own
// TLS1-PRF, with its deliberate quirks and its failure paths.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <ostream>
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

Bytes Pattern(std::size_t n, unsigned seed) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(seed + i * 29);
  return b;
}

struct TlsCase {
  Bytes pre_master, server_hello, client_hello, server_random, client_random;
};

TlsCase MakeCase(std::size_t pre_master_len, unsigned seed) {
  return {Pattern(pre_master_len, seed), Pattern(32, seed + 1),
          Pattern(32, seed + 2), Pattern(32, seed + 3), Pattern(32, seed + 4)};
}

std::string Header(std::string_view marker, int key_block_bits) {
  return Crlf(std::string(marker) + "\n[pre-master secret length = 384]\n" +
              "[key block length = " + std::to_string(key_block_bits) +
              "]\n\n");
}

std::string CaseText(std::string_view count_line, const TlsCase& c) {
  return Crlf(std::string(count_line) + "\npre_master_secret = " +
              Hex(c.pre_master) + "\nserverHello_random = " +
              Hex(c.server_hello) + "\nclientHello_random = " +
              Hex(c.client_hello) + "\nserver_random = " +
              Hex(c.server_random) + "\nclient_random = " +
              Hex(c.client_random) + "\n");
}

std::string CaseText(int count, const TlsCase& c) {
  return CaseText("COUNT = " + std::to_string(count), c);
}

// OpenSSL's TLS1-PRF ("MD5-SHA1" is the TLS 1.0/1.1 PRF).
Bytes Prf(const char* digest, Bytes secret, std::string_view label,
          const Bytes& seed1, const Bytes& seed2, std::size_t len) {
  std::unique_ptr<EVP_KDF, decltype(&EVP_KDF_free)> kdf(
      EVP_KDF_fetch(nullptr, "TLS1-PRF", nullptr), EVP_KDF_free);
  std::unique_ptr<EVP_KDF_CTX, decltype(&EVP_KDF_CTX_free)> ctx(
      EVP_KDF_CTX_new(kdf.get()), EVP_KDF_CTX_free);
  Bytes seed(label.begin(), label.end());
  seed.insert(seed.end(), seed1.begin(), seed1.end());
  seed.insert(seed.end(), seed2.begin(), seed2.end());
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST,
                                       const_cast<char*>(digest), 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SECRET, secret.data(),
                                        secret.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SEED, seed.data(),
                                        seed.size()),
      OSSL_PARAM_construct_end()};
  Bytes out(len);
  EXPECT_EQ(EVP_KDF_derive(ctx.get(), out.data(), len, params), 1);
  return out;
}

struct Answer {
  std::string master_secret, key_block;
  bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& a, std::ostream* os) {
  *os << "{" << a.master_secret << ", " << a.key_block << "}";
}

// The answer of a PRF whose secrets split like OpenSSL's (even lengths).
Answer Expected(const char* digest, const TlsCase& c, std::size_t key_block) {
  const Bytes master = Prf(digest, c.pre_master, "master secret",
                           c.client_hello, c.server_hello, c.pre_master.size());
  return {Hex(master), Hex(Prf(digest, master, "key expansion",
                               c.server_random, c.client_random, key_block))};
}

std::vector<Answer> Answers(const std::string& rsp) {
  auto value = [&](std::string_view tag, std::size_t from) {
    const std::size_t at = rsp.find(tag, from) + tag.size();
    return rsp.substr(at, rsp.find("\r\n", at) - at);
  };
  std::vector<Answer> out;
  for (std::size_t at = rsp.find("\nmaster_secret = "); at != std::string::npos;
       at = rsp.find("\nmaster_secret = ", at + 1)) {
    out.push_back({value("master_secret = ", at), value("key_block = ", at)});
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

class TlsRunner : public ::testing::Test {
 protected:
  void SetUp() override { ResetVectorDirs(); }

  std::string Run(const std::string& request) {
    WriteRequest("tls", request);
    return CaptureStdout([] { test_tls_from_file("tls"); });
  }
  std::string Response() { return ReadResponse("tls"); }
};

TEST_F(TlsRunner, MatchesNistAnswers) {
  const std::string dir = std::string(FIPSVAL_CAVP_DIR) + "/KDF135/";
  const std::string request = ReadFile(dir + "req/tls.req");
  ASSERT_FALSE(request.empty());
  EXPECT_EQ(Run(request), "");
  EXPECT_EQ(NonBlankLines(Response()),
            NonBlankLines(ReadFile(dir + "fax/tls.fax")));
}

TEST_F(TlsRunner, EachSectionUsesItsOwnPrf) {
  // 104 bytes with SHA-384 takes three HMAC blocks and keeps a part of the
  // third; the other lengths end on or inside block boundaries too.
  const TlsCase a = MakeCase(48, 1), b = MakeCase(48, 2), c = MakeCase(48, 3),
                d = MakeCase(48, 4), e = MakeCase(48, 5);
  EXPECT_EQ(Run(Header("[TLS 1.2, SHA-384]", 832) + CaseText(0, a) +
                Header("[TLS 1.0/1.1]", 832) + CaseText(0, b) +
                Header("[TLS 1.2, SHA-256]", 1024) + CaseText(0, c) +
                Header("[TLS 1.2, SHA-512]", 1032) + CaseText(0, d) +
                Header("[TLS 1.2, SHA-384]", 8) + CaseText(0, e)),
            "");
  EXPECT_EQ(Answers(Response()),
            (std::vector<Answer>{Expected("SHA2-384", a, 104),
                                 Expected("MD5-SHA1", b, 104),
                                 Expected("SHA2-256", c, 128),
                                 Expected("SHA2-512", d, 129),
                                 Expected("SHA2-384", e, 1)}));
}

TEST_F(TlsRunner, MasterSecretIsAsLongAsThePreMasterSecret) {
  const TlsCase c40 = MakeCase(40, 6), c1024 = MakeCase(1024, 7);
  EXPECT_EQ(Run(Header("[TLS 1.2, SHA-256]", 256) + CaseText(0, c40) +
                CaseText(1, c1024)),
            "");
  const std::vector<Answer> answers = Answers(Response());
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(answers[0].master_secret.size(), 80u);
  EXPECT_EQ(answers[0], Expected("SHA2-256", c40, 32));
  EXPECT_EQ(answers[1].master_secret.size(), 2048u);
  EXPECT_EQ(answers[1], Expected("SHA2-256", c1024, 32));
}

TEST_F(TlsRunner, OddTls10SecretLeavesItsLastByteOut) {
  TlsCase odd = MakeCase(49, 8);
  TlsCase even = odd;
  even.pre_master.pop_back();
  EXPECT_EQ(Run(Header("[TLS 1.0/1.1]", 832) + CaseText(0, odd) +
                CaseText(1, even)),
            "");
  const std::vector<Answer> answers = Answers(Response());
  ASSERT_EQ(answers.size(), 2u);
  // The 49-byte master secret extends the 48-byte one, and its own last
  // byte again takes no part in the key block.
  EXPECT_EQ(answers[0].master_secret.substr(0, 96), answers[1].master_secret);
  EXPECT_EQ(answers[0].key_block, answers[1].key_block);
  EXPECT_EQ(answers[1], Expected("MD5-SHA1", even, 104));
  // RFC 2246 shares the middle byte instead, which gives other answers.
  EXPECT_NE(answers[0].master_secret,
            Hex(Prf("MD5-SHA1", odd.pre_master, "master secret",
                    odd.client_hello, odd.server_hello, 49)));
}

TEST_F(TlsRunner, MarkersCountOnlyAtLineStartCountAnywhere) {
  const TlsCase a = MakeCase(48, 9), b = MakeCase(48, 10);
  const std::string indented = Crlf(" [TLS 1.2, SHA-512]\n");
  EXPECT_EQ(Run(Header("[TLS 1.0/1.1]", 128) + CaseText(0, a) + indented +
                CaseText("# case COUNT = 1", b)),
            "");
  const std::string rsp = Response();
  EXPECT_NE(rsp.find(indented + Crlf("# case COUNT = 1\n")), std::string::npos);
  EXPECT_EQ(Answers(rsp), (std::vector<Answer>{Expected("MD5-SHA1", a, 16),
                                               Expected("MD5-SHA1", b, 16)}));

  const std::string unmarked = Crlf("\t[TLS 1.0/1.1]\n") + CaseText(0, a);
  EXPECT_EQ(Run(unmarked), "Never found starting marker\n");
  EXPECT_EQ(Response(), unmarked);
}

TEST_F(TlsRunner, LastLineWithoutCrlfAfterACaseIsCopiedAsItStands) {
  const std::string request =
      Header("[TLS 1.0/1.1]", 64) + CaseText(0, MakeCase(48, 14)) + "# end";
  EXPECT_EQ(Run(request), "");
  const std::string rsp = Response();
  EXPECT_EQ(rsp.substr(rsp.size() - 7), "\r\n# end");
}

TEST_F(TlsRunner, ReportsMissingAndOverlongFields) {
  const TlsCase c = MakeCase(48, 11);
  const std::string header = Header("[TLS 1.2, SHA-256]", 256);
  const std::string count = Crlf("COUNT = 0\npre_master_secret = " +
                                 Hex(c.pre_master) + "\n");
  EXPECT_EQ(Run(header + count + Crlf("server_random = 00\n")),
            "server_random = 00\r\n\nserverHello_random =  field not present\n"
            "Problem parse serverHello_random = \n");
  EXPECT_EQ(Response(), header + count);

  EXPECT_EQ(Run(header + count + Crlf("serverHello_random = \n")),
            "Problem parse serverHello_random = \n");
  EXPECT_EQ(Run(header + count + Crlf("serverHello_random = " +
                                      std::string(1026, 'F') + "\n")),
            "serverHello_random is too long: 513 bytes, at most 512\n");
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\npre_master_secret = " +
                              std::string(2050, '0') + "\n")),
            "pre_master_secret is too long: 1025 bytes, at most 1024\n");

  const std::string long_block = Header("[TLS 1.2, SHA-256]", 8200);
  EXPECT_EQ(Run(long_block + CaseText(0, c)),
            "The key block length is over limit 1025(1024)\n");
  EXPECT_EQ(Run(Header("[TLS 1.2, SHA-256]", 8192) + CaseText(0, c)), "");
  EXPECT_EQ(Answers(Response()),
            std::vector<Answer>{Expected("SHA2-256", c, 1024)});

  EXPECT_EQ(Run(Crlf("[TLS 1.0/1.1]\n[key block length = 128]\n")),
            "[pre-master secret length =  field not present \n"
            "[key block length = 128]\r\n\n");
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

TEST_F(TlsRunner, ShortWritesNameTheItem) {
  const std::string body =
      Header("[TLS 1.2, SHA-256]", 256) + CaseText(0, MakeCase(48, 12));
  const std::size_t master_tag = body.size();
  const std::size_t master = master_tag + 16;
  const std::size_t master_eol = master + 96;
  const std::size_t block_tag = master_eol + 2;
  const std::size_t block = block_tag + 12;
  const std::size_t block_eol = block + 64;
  const struct {
    std::size_t at;  // offset that the failing write starts at
    const char* message;
  } cases[] = {
      {master_tag, "Problem writing master-secret tag to rsp file\n"},
      {master, "Problem writing master-secret to rsp file\n"},
      {master_eol, "Problem writing EOL to rsp file\n"},
      {block_tag, "Problem writing key-block tag to rsp file\n"},
      {block, "Problem writing master-secret to rsp file\n"},
      {block_eol, "Problem writing EOL to rsp file\n"},
      {0, "Problem writing to rsp file\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    ResetVectorDirs();
    MountTinyResponseDir(4096);
    EXPECT_EQ(Run(Padding(kFullAt - 1 - c.at) + body), c.message);
  }
}

TEST_F(TlsRunner, ClosesBothFilesOnEveryPath) {
  const TlsCase c = MakeCase(48, 13);
  const std::string requests[] = {
      Header("[TLS 1.0/1.1]", 832) + CaseText(0, c),
      Header("[TLS 1.0/1.1]", 8200),
      Header("[TLS 1.0/1.1]", 832) + Crlf("COUNT = 0\n"),
      Crlf("no marker\n"),
  };
  const int before = OpenDescriptorCount();
  for (const std::string& r : requests) Run(r);
  ResetVectorDirs();
  EXPECT_EQ(CaptureStdout([] { test_tls_from_file("tls"); }),
            "Couldn't open /tmp/req/tls.req\n");
  WriteRequest("tls", requests[0]);
  rmdir("/tmp/resp");
  EXPECT_EQ(CaptureStdout([] { test_tls_from_file("tls"); }),
            "Couldn't open /tmp/resp/tls.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
}  // namespace fipsval::testing
