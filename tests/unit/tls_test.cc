// The TLS PRF runner against OpenSSL's own TLS1-PRF, its deliberate quirks
// and its failure paths. NIST's answers: conformance_TLS.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

struct TlsCase {
  Bytes pre_master, server_hello, client_hello, server_random, client_random;
};

TlsCase MakeCase(std::size_t pre_master_len, unsigned seed) {
  auto fill = [](std::size_t n, unsigned s) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(s + i * 29);
    return b;
  };
  return {fill(pre_master_len, seed), fill(32, seed + 1), fill(32, seed + 2),
          fill(32, seed + 3), fill(32, seed + 4)};
}

std::string Header(std::string_view marker, int key_block_bits) {
  return Crlf(std::string(marker) + "\n[pre-master secret length = 384]\n" +
              "[key block length = " + std::to_string(key_block_bits) +
              "]\n\n");
}

std::string CaseText(const TlsCase& c, std::string_view count = "COUNT = 0") {
  return Crlf(std::string(count) + "\npre_master_secret = " +
              Hex(c.pre_master) + "\nserverHello_random = " +
              Hex(c.server_hello) + "\nclientHello_random = " +
              Hex(c.client_hello) + "\nserver_random = " +
              Hex(c.server_random) + "\nclient_random = " +
              Hex(c.client_random) + "\n");
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

// Master secret and key block, as hex.
using Answer = std::pair<std::string, std::string>;

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
    out.emplace_back(value("master_secret = ", at), value("key_block = ", at));
  }
  return out;
}

class TlsRunner : public ::testing::Test {
 protected:
  void SetUp() override { ResetVectorDirs(); }
  // Runs the runner on `request`; returns what it printed.
  std::string Run(const std::string& request) {
    WriteRequest("tls", request);
    return CaptureStdout([] { test_tls_from_file("tls"); });
  }
  std::vector<Answer> Answered() { return Answers(ReadResponse("tls")); }
};

TEST_F(TlsRunner, EachSectionUsesItsOwnPrf) {
  // 104 bytes with SHA-384 take three HMAC blocks, part of the last kept;
  // the 40-byte pre-master secret gives a 40-byte master secret.
  const TlsCase a = MakeCase(48, 1), b = MakeCase(48, 2), c = MakeCase(40, 3),
                d = MakeCase(48, 4);
  ASSERT_EQ(Run(Header("[TLS 1.2, SHA-384]", 832) + CaseText(a) +
                Header("[TLS 1.0/1.1]", 832) + CaseText(b) +
                Header("[TLS 1.2, SHA-256]", 1024) + CaseText(c) +
                Header("[TLS 1.2, SHA-512]", 1032) + CaseText(d)),
            "");
  const std::vector<Answer> answers = Answered();
  EXPECT_EQ(answers, (std::vector<Answer>{Expected("SHA2-384", a, 104),
                                          Expected("MD5-SHA1", b, 104),
                                          Expected("SHA2-256", c, 128),
                                          Expected("SHA2-512", d, 129)}));
  ASSERT_EQ(answers.size(), 4u);
  EXPECT_EQ(answers[2].first.size(), 80u);
}

TEST_F(TlsRunner, OddTls10SecretLeavesItsLastByteOut) {
  TlsCase odd = MakeCase(49, 5), even = odd;
  even.pre_master.pop_back();
  TlsCase tiny = MakeCase(1, 6), tiny_flipped = tiny;  // both halves empty
  tiny_flipped.pre_master[0] ^= 0xff;
  ASSERT_EQ(Run(Header("[TLS 1.0/1.1]", 832) + CaseText(odd) + CaseText(even) +
                CaseText(tiny) + CaseText(tiny_flipped)),
            "");
  const std::vector<Answer> answers = Answered();
  ASSERT_EQ(answers.size(), 4u);
  // The 49-byte master secret extends the 48-byte one, and its own last
  // byte again takes no part in the key block.
  EXPECT_EQ(answers[0].first.substr(0, 96), answers[1].first);
  EXPECT_EQ(answers[0].second, answers[1].second);
  EXPECT_EQ(answers[1], Expected("MD5-SHA1", even, 104));
  EXPECT_EQ(answers[2], answers[3]);
}

TEST_F(TlsRunner, MarkersOnlyAtLineStartCountAnywhere) {
  const TlsCase a = MakeCase(48, 7), b = MakeCase(48, 8);
  const std::string request = Header("[TLS 1.0/1.1]", 128) + CaseText(a) +
                              Crlf(" [TLS 1.2, SHA-512]\n") +
                              CaseText(b, "# case COUNT = 1") + "# end";
  EXPECT_EQ(Run(request), "");
  EXPECT_EQ(Answered(), (std::vector<Answer>{Expected("MD5-SHA1", a, 16),
                                             Expected("MD5-SHA1", b, 16)}));
  const std::string rsp = ReadResponse("tls");
  EXPECT_NE(rsp.find(Crlf(" [TLS 1.2, SHA-512]\n# case COUNT = 1\n")),
            std::string::npos);
  EXPECT_TRUE(rsp.ends_with("\r\n# end"));  // unterminated, copied as is

  EXPECT_EQ(Run(Crlf("\t[TLS 1.0/1.1]\n") + CaseText(a)),
            "Never found starting marker\n");
}

TEST_F(TlsRunner, ReportsMissingAndOverlongFields) {
  const TlsCase c = MakeCase(48, 9);
  const std::string head = Header("[TLS 1.2, SHA-256]", 256) +
                           Crlf("COUNT = 0\npre_master_secret = " +
                                Hex(c.pre_master) + "\n");
  EXPECT_EQ(Run(head + Crlf("server_random = 00\n")),
            "server_random = 00\r\n\nserverHello_random =  field not present\n"
            "Problem parse serverHello_random = \n");
  EXPECT_EQ(ReadResponse("tls"), head);
  EXPECT_EQ(Run(head + Crlf("serverHello_random = " + std::string(1026, 'F'))),
            "serverHello_random is too long: 513 bytes, at most 512\n");
  EXPECT_EQ(Run(Header("[TLS 1.2, SHA-256]", 256) +
                Crlf("COUNT = 0\npre_master_secret = " +
                     std::string(2050, '0'))),
            "pre_master_secret is too long: 1025 bytes, at most 1024\n");
  EXPECT_EQ(Run(Header("[TLS 1.2, SHA-256]", 8200) + CaseText(c)),
            "The key block length is over limit 1025(1024)\n");
}

// Comment lines of `n` bytes in all (n >= 3), CR LF ended.
std::string Padding(std::size_t n) {
  std::string s;
  for (; n >= 1003; n -= 1000) s += "#" + std::string(997, 'x') + "\r\n";
  return s + "#" + std::string(n - 3, 'x') + "\r\n";
}

TEST_F(TlsRunner, ShortWritesNameTheItem) {
  // A one-page tmpfs and stdio's page-sized buffer: the write that starts
  // at byte 8191 is the first to come back short.
  const std::string body =
      Header("[TLS 1.2, SHA-256]", 256) + CaseText(MakeCase(48, 10));
  const std::size_t master = body.size(), block = master + 16 + 96 + 2;
  const struct {
    std::size_t at;
    const char* message;
  } cases[] = {
      {master, "Problem writing master-secret tag to rsp file\n"},
      {master + 16, "Problem writing master-secret to rsp file\n"},
      {block, "Problem writing key-block tag to rsp file\n"},
      {block + 12, "Problem writing master-secret to rsp file\n"},
      {block + 12 + 64, "Problem writing EOL to rsp file\n"},
  };
  for (const auto& c : cases) {
    ResetVectorDirs();
    MountTinyResponseDir(4096);
    EXPECT_EQ(Run(Padding(8191 - c.at) + body), c.message);
  }
}

TEST_F(TlsRunner, ClosesBothFilesOnEveryPath) {
  const int before = OpenDescriptorCount();
  Run(Header("[TLS 1.0/1.1]", 832) + CaseText(MakeCase(48, 11)));
  Run(Header("[TLS 1.0/1.1]", 8200));
  Run(Header("[TLS 1.0/1.1]", 832) + Crlf("COUNT = 0\n"));
  Run(Crlf("no marker\n"));
  ResetVectorDirs();
  rmdir("/tmp/resp");
  EXPECT_EQ(Run(""), "Couldn't open /tmp/resp/tls.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
}  // namespace fipsval::testing
