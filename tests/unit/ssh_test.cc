// The SSH KDF runner against OpenSSL's own SSHKDF at the one/two-digest
// boundary, and its failure paths. NIST's answers: conformance_SSH.
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

struct SshCase {
  Bytes k, h, session_id;
};

// K is an SSH mpint: four length bytes, then 128 value bytes.
SshCase MakeCase(std::size_t digest_len, unsigned seed) {
  auto fill = [](std::size_t n, unsigned s) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(s + i * 37);
    return b;
  };
  Bytes k = fill(132, seed);
  k[0] = k[1] = k[2] = 0;
  k[3] = 0x80;
  return {k, fill(digest_len, seed + 1), fill(digest_len, seed + 2)};
}

std::string Header(std::string_view marker, int iv_bits, int key_bits) {
  return Crlf(std::string(marker) + "\n[shared secret length = 1024]\n" +
              "[IV length = " + std::to_string(iv_bits) +
              "]\n[encryption key length = " + std::to_string(key_bits) +
              "]\n\n");
}

std::string CaseText(const SshCase& c) {
  return Crlf("COUNT = 0\nK = " + Hex(c.k) + "\nH = " + Hex(c.h) +
              "\nsession_id = " + Hex(c.session_id) + "\n");
}

// OpenSSL's SSHKDF, the independent reference.
std::string Reference(const char* digest, SshCase c, char letter,
                      std::size_t len) {
  std::unique_ptr<EVP_KDF, decltype(&EVP_KDF_free)> kdf(
      EVP_KDF_fetch(nullptr, "SSHKDF", nullptr), EVP_KDF_free);
  std::unique_ptr<EVP_KDF_CTX, decltype(&EVP_KDF_CTX_free)> ctx(
      EVP_KDF_CTX_new(kdf.get()), EVP_KDF_CTX_free);
  char type[2] = {letter, 0};
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST,
                                       const_cast<char*>(digest), 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, c.k.data(),
                                        c.k.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SSHKDF_XCGHASH,
                                        c.h.data(), c.h.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SSHKDF_SESSION_ID,
                                        c.session_id.data(),
                                        c.session_id.size()),
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

class SshRunner : public ::testing::Test {
 protected:
  void SetUp() override { ResetVectorDirs(); }
  // Runs the runner on `request`; returns what it printed.
  std::string Run(const std::string& request) {
    WriteRequest("ssh", request);
    return CaptureStdout([] { test_ssh_from_file("ssh"); });
  }
};

TEST_F(SshRunner, OneDigestUpToItsLengthTwoBeyondAndHashPerSection) {
  // SHA-1: IVs of exactly 20 bytes, keys of 21; then SHA-256: 32 and 33.
  const SshCase c1 = MakeCase(20, 1), c2 = MakeCase(32, 2);
  ASSERT_EQ(Run(Header("[SHA-1]", 160, 168) + CaseText(c1) +
                Header("[SHA-256]", 256, 264) + CaseText(c2)),
            "");
  const std::string rsp = ReadResponse("ssh");
  const struct {
    const char* tag;
    char letter;
    std::size_t len1, len2;
  } outputs[] = {{"Initial IV (client to server) = ", 'A', 20, 32},
                 {"Initial IV (server to client) = ", 'B', 20, 32},
                 {"Encryption key (client to server) = ", 'C', 21, 33},
                 {"Encryption key (server to client) = ", 'D', 21, 33},
                 {"Integrity key (client to server) = ", 'E', 20, 32},
                 {"Integrity key (server to client) = ", 'F', 20, 32}};
  for (const auto& o : outputs) {
    EXPECT_EQ(Values(rsp, o.tag),
              (std::vector<std::string>{
                  Reference("SHA1", c1, o.letter, o.len1),
                  Reference("SHA256", c2, o.letter, o.len2)}))
        << o.tag;
  }
}

TEST_F(SshRunner, LengthsUpToTwoDigestsAndMarkerChoice) {
  const SshCase c1 = MakeCase(20, 3), c2 = MakeCase(32, 4);
  const char kKey[] = "Encryption key (client to server) = ";
  EXPECT_EQ(Run(Header("[SHA-1]", 64, 320) + CaseText(c1)), "");
  EXPECT_EQ(Values(ReadResponse("ssh"), kKey),
            std::vector<std::string>{Reference("SHA1", c1, 'C', 40)});
  // Both markers on one line: SHA-256.
  EXPECT_EQ(Run(Header("[SHA-1] [SHA-256]", 64, 512) + CaseText(c2)), "");
  EXPECT_EQ(Values(ReadResponse("ssh"), kKey),
            std::vector<std::string>{Reference("SHA256", c2, 'C', 64)});

  EXPECT_EQ(Run(Header("[SHA-1]", 64, 328) + CaseText(c1)),
            "The encryption key length is over limit 41(40)\n");
  EXPECT_EQ(ReadResponse("ssh"),
            Crlf("[SHA-1]\n[shared secret length = 1024]\n[IV length = 64]\n"
                 "[encryption key length = 328]\n"));
  // The IVs come from the same derivation and are bounded alike.
  EXPECT_EQ(Run(Header("[SHA-256]", 520, 128) + CaseText(c2)),
            "The encryption key length is over limit 65(64)\n");
}

TEST_F(SshRunner, ReportsMissingAndOverlongFields) {
  const std::string header = Header("[SHA-1]", 64, 128);
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nH = 00\n")),
            "H = 00\r\n\nK =  field not present\nProblem parse K = \n");
  EXPECT_EQ(ReadResponse("ssh"), header + Crlf("COUNT = 0\n"));
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nK = " + std::string(2050, 'a'))),
            "K is too long: 1025 bytes, at most 1024\n");
  EXPECT_EQ(Run(header + Crlf("COUNT = 0\nK = 00\nH = " +
                              std::string(66, '1') + "\n")),
            "H is too long: 33 bytes, at most 32\n");
  EXPECT_EQ(Run(Crlf("# no section\nCOUNT = 0\n")),
            "Never found starting marker\n");
}

TEST_F(SshRunner, UnterminatedLastLineAfterACaseIsCopiedAsItStands) {
  EXPECT_EQ(Run(Header("[SHA-1]", 64, 64) + CaseText(MakeCase(20, 5)) + "# end"),
            "");
  EXPECT_TRUE(ReadResponse("ssh").ends_with("\r\n# end"));
}

// Comment lines of `n` bytes in all (n >= 3), CR LF ended.
std::string Padding(std::size_t n) {
  std::string s;
  for (; n >= 1003; n -= 1000) s += "#" + std::string(997, 'x') + "\r\n";
  return s + "#" + std::string(n - 3, 'x') + "\r\n";
}

TEST_F(SshRunner, ShortWritesNameTheItem) {
  // A one-page tmpfs and stdio's page-sized buffer: the write that starts
  // at byte 8191 is the first to come back short.
  const std::string body = Header("[SHA-1]", 64, 128) + CaseText(MakeCase(20, 6));
  const std::size_t tag = body.size();  // the first answer line
  const struct {
    std::size_t at;
    const char* message;
  } cases[] = {{tag, "Problem writing rnd tag to rsp file\n"},
               {tag + 32, "Problem writing rnd to rsp file\n"},
               {tag + 48, "Problem writing EOL to rsp file\n"},
               {0, "Problem writing to rsp file\n"}};
  for (const auto& c : cases) {
    ResetVectorDirs();
    MountTinyResponseDir(4096);
    EXPECT_EQ(Run(Padding(8191 - c.at) + body), c.message);
  }
}

TEST_F(SshRunner, ClosesBothFilesOnEveryPath) {
  const int before = OpenDescriptorCount();
  Run(Header("[SHA-1]", 64, 128) + CaseText(MakeCase(20, 7)));
  Run(Header("[SHA-1]", 64, 328));
  Run(Header("[SHA-1]", 64, 128) + Crlf("COUNT = 0\n"));
  Run(Crlf("no marker\n"));
  ResetVectorDirs();
  rmdir("/tmp/resp");
  EXPECT_EQ(Run(""), "Couldn't open /tmp/resp/ssh.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
}  // namespace fipsval::testing
