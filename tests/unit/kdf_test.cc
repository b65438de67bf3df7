// The SSH KDF and TLS PRF runners against OpenSSL's own SSHKDF and
// TLS1-PRF, their deliberate quirks and their failure paths.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Fill(std::size_t n, unsigned seed) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(seed + i * 37);
  return b;
}

// OpenSSL's KDF `name` with a digest and octet-string parameters.
Bytes Kdf(const char* name, const char* digest,
          std::vector<std::pair<const char*, Bytes>> octets,
          const char* type, std::size_t len) {
  std::unique_ptr<EVP_KDF, decltype(&EVP_KDF_free)> kdf(
      EVP_KDF_fetch(nullptr, name, nullptr), EVP_KDF_free);
  std::unique_ptr<EVP_KDF_CTX, decltype(&EVP_KDF_CTX_free)> ctx(
      EVP_KDF_CTX_new(kdf.get()), EVP_KDF_CTX_free);
  std::vector<OSSL_PARAM> params = {OSSL_PARAM_construct_utf8_string(
      OSSL_KDF_PARAM_DIGEST, const_cast<char*>(digest), 0)};
  for (auto& [key, value] : octets) {
    params.push_back(
        OSSL_PARAM_construct_octet_string(key, value.data(), value.size()));
  }
  if (type) {
    params.push_back(OSSL_PARAM_construct_utf8_string(
        OSSL_KDF_PARAM_SSHKDF_TYPE, const_cast<char*>(type), 1));
  }
  params.push_back(OSSL_PARAM_construct_end());
  Bytes out(len);
  EXPECT_EQ(EVP_KDF_derive(ctx.get(), out.data(), len, params.data()), 1);
  return out;
}

// ---- SSH ----

struct SshCase {
  Bytes k, h, session_id;
};

SshCase MakeSsh(std::size_t h_len, unsigned seed) {
  return {Fill(132, seed), Fill(h_len, seed + 1), Fill(h_len, seed + 2)};
}

std::string SshHeader(const std::string& marker, int iv_bits, int key_bits) {
  return marker + "\n[shared secret length = 1024]\n[IV length = " +
         std::to_string(iv_bits) + "]\n[encryption key length = " +
         std::to_string(key_bits) + "]\n\n";
}

std::string SshCaseText(const SshCase& c, const std::string& count = "COUNT = 0") {
  return count + "\nK = " + Hex(c.k) + "\nH = " + Hex(c.h) +
         "\nsession_id = " + Hex(c.session_id) + "\n";
}

// The six answer lines; H and session_id are hashed as one digest's worth,
// a short value padded with zeros.
std::string SshAnswer(const SshCase& c, std::size_t digest, std::size_t iv,
                      std::size_t key) {
  Bytes h = c.h, sid = c.session_id;
  h.resize(digest);
  sid.resize(digest);
  const char* tags[] = {"Initial IV (client to server) = ",
                        "Initial IV (server to client) = ",
                        "Encryption key (client to server) = ",
                        "Encryption key (server to client) = ",
                        "Integrity key (client to server) = ",
                        "Integrity key (server to client) = "};
  const std::size_t lens[] = {iv, iv, key, key, digest, digest};
  std::string out;
  for (int i = 0; i < 6; ++i) {
    const char type[2] = {static_cast<char>('A' + i), 0};
    out += tags[i] +
           Hex(Kdf("SSHKDF", digest == 20 ? "SHA1" : "SHA256",
                   {{OSSL_KDF_PARAM_KEY, c.k},
                    {OSSL_KDF_PARAM_SSHKDF_XCGHASH, h},
                    {OSSL_KDF_PARAM_SSHKDF_SESSION_ID, sid}},
                   type, lens[i])) +
           "\n";
  }
  return out;
}

TEST(Ssh, OneDigestUpToItsLengthTwoBeyondAndHashPerSection) {
  // SHA-1: 20-byte IVs, 21-byte keys; SHA-256: 32 and 33; 40 and 64 are
  // the largest keys; both markers on one line select SHA-256. A line
  // holding "COUNT" without " = " starts a case; "count" does not. A short
  // H and session_id after full ones are zero-padded, not left with stale
  // bytes. Bit lengths are cut to whole bytes (71 and 327 bits: 8 and 40).
  const SshCase a = MakeSsh(20, 1), b = MakeSsh(32, 2), c = MakeSsh(20, 3),
                d = MakeSsh(32, 4), e = MakeSsh(16, 5);
  const std::string s1 = SshHeader("[SHA-1]", 160, 168) + SshCaseText(a);
  const std::string s2 = SshHeader("[SHA-256]", 256, 264) + "# count 1\n" +
                         SshCaseText(b, "# COUNT 1");
  const std::string s3 = SshHeader("[SHA-1]", 71, 327) + SshCaseText(c);
  const std::string s4 = SshHeader("[SHA-1] [SHA-256]", 64, 512) + SshCaseText(d);
  const std::string s5 = SshCaseText(e);
  const CoreResult r = RunCore(test_ssh_from_stream, s1 + s2 + s3 + s4 + s5);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response,
            Crlf(s1 + SshAnswer(a, 20, 20, 21) + s2 + SshAnswer(b, 32, 32, 33) +
                 s3 + SshAnswer(c, 20, 8, 40) + s4 + SshAnswer(d, 32, 8, 64) +
                 s5 + SshAnswer(e, 32, 8, 64)));
}

// ---- TLS ----

struct TlsCase {
  Bytes pre_master, server_hello, client_hello, server_random, client_random;
};

TlsCase MakeTls(std::size_t pre_master_len, unsigned seed) {
  return {Fill(pre_master_len, seed), Fill(32, seed + 1), Fill(32, seed + 2),
          Fill(32, seed + 3), Fill(32, seed + 4)};
}

std::string TlsHeader(const std::string& marker, int key_block_bits) {
  return marker + "\n[pre-master secret length = 384]\n[key block length = " +
         std::to_string(key_block_bits) + "]\n\n";
}

std::string TlsCaseText(const TlsCase& c, const std::string& count = "COUNT = 0") {
  return count + "\npre_master_secret = " + Hex(c.pre_master) +
         "\nserverHello_random = " + Hex(c.server_hello) +
         "\nclientHello_random = " + Hex(c.client_hello) +
         "\nserver_random = " + Hex(c.server_random) +
         "\nclient_random = " + Hex(c.client_random) + "\n";
}

Bytes Prf(const char* digest, const Bytes& secret, std::string_view label,
          const Bytes& seed1, const Bytes& seed2, std::size_t len) {
  Bytes seed(label.begin(), label.end());
  seed.insert(seed.end(), seed1.begin(), seed1.end());
  seed.insert(seed.end(), seed2.begin(), seed2.end());
  return Kdf("TLS1-PRF", digest,
             {{OSSL_KDF_PARAM_SECRET, secret}, {OSSL_KDF_PARAM_SEED, seed}},
             nullptr, len);
}

// The two answer lines ("MD5-SHA1" is the TLS 1.0/1.1 PRF). The master
// secret is as long as the pre-master secret. The TLS 1.0/1.1 PRF halves
// an odd secret rounded down: its last byte takes no part (`odd`).
std::string TlsAnswer(const char* digest, const TlsCase& c, std::size_t key_block,
                      bool odd = false) {
  const auto used = [odd](Bytes b) { return odd ? Bytes(b.begin(), b.end() - 1) : b; };
  const Bytes master = Prf(digest, used(c.pre_master), "master secret",
                           c.client_hello, c.server_hello, c.pre_master.size());
  return "master_secret = " + Hex(master) + "\nkey_block = " +
         Hex(Prf(digest, used(master), "key expansion", c.server_random,
                 c.client_random, key_block)) +
         "\n";
}

TEST(Tls, EachSectionUsesItsOwnPrf) {
  // 104 bytes with SHA-384 take three HMAC blocks, part of the last kept;
  // a 40-byte pre-master secret gives a 40-byte master secret; 1024 bytes
  // is the largest key block. A marker not at the start of its line is an
  // ordinary line; "COUNT" anywhere starts a case. 1031 bits are 128 bytes.
  const TlsCase a = MakeTls(48, 1), b = MakeTls(49, 2), c = MakeTls(40, 3),
                d = MakeTls(48, 4), e = MakeTls(48, 5);
  const std::string s1 = TlsHeader("[TLS 1.2, SHA-384]", 832) + TlsCaseText(a);
  const std::string s2 = TlsHeader("[TLS 1.0/1.1]", 832) + TlsCaseText(b);
  const std::string s3 = " [TLS 1.2, SHA-512]\n" + TlsCaseText(e, "# next COUNT");
  const std::string s4 = TlsHeader("[TLS 1.2, SHA-256]", 1031) + TlsCaseText(c);
  const std::string s5 = TlsHeader("[TLS 1.2, SHA-512]", 8192) + TlsCaseText(d);
  const CoreResult r = RunCore(test_tls_from_stream, s1 + s2 + s3 + s4 + s5);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response,
            Crlf(s1 + TlsAnswer("SHA2-384", a, 104) + s2 +
                 TlsAnswer("MD5-SHA1", b, 104, true) + s3 +
                 TlsAnswer("MD5-SHA1", e, 104) + s4 +
                 TlsAnswer("SHA2-256", c, 128) + s5 +
                 TlsAnswer("SHA2-512", d, 1024)));
}

TEST(Kdf, FailuresStopWithTheirMessage) {
  const std::string ssh = SshHeader("[SHA-1]", 64, 128) + "COUNT = 0\n";
  const TlsCase c = MakeTls(48, 8);
  const std::string tls = TlsHeader("[TLS 1.2, SHA-256]", 256) + "COUNT = 0\n";
  const std::string pre = tls + "pre_master_secret = " + Hex(c.pre_master) + "\n";
  const struct { RunnerCore core; std::string request, printed, kept; } kCases[] = {
      {test_ssh_from_stream, SshHeader("[SHA-1]", 64, 328),
       "The encryption key length is over limit 41(40)\n",
       SshHeader("[SHA-1]", 64, 328).substr(0, 85)},
      // The IVs come from the same derivation and are bounded alike.
      {test_ssh_from_stream, SshHeader("[SHA-256]", 520, 128),
       "The IV length is over limit 65(64)\n", "*"},
      {test_ssh_from_stream, ssh + "H = 00\n",
       "H = 00\r\n\nK =  field not present\nProblem parse K = \n", ssh},
      {test_ssh_from_stream, ssh + "K = " + std::string(2050, 'a') + "\n",
       "K is too long: 1025 bytes, at most 1024\n", "*"},
      {test_ssh_from_stream, ssh + "K = 00\nH = " + std::string(66, '1') + "\n",
       "H is too long: 33 bytes, at most 32\n", "*"},
      {test_ssh_from_stream, "# no section\nCOUNT = 0\n",
       "Never found starting marker\n", "*"},
      {test_tls_from_stream, pre + "server_random = 00\n",
       "server_random = 00\r\n\nserverHello_random =  field not present\n"
       "Problem parse serverHello_random = \n", pre},
      {test_tls_from_stream, pre + "serverHello_random = " + std::string(1026, 'F') + "\n",
       "serverHello_random is too long: 513 bytes, at most 512\n", "*"},
      {test_tls_from_stream, tls + "pre_master_secret = " + std::string(2050, '0') + "\n",
       "pre_master_secret is too long: 1025 bytes, at most 1024\n", "*"},
      {test_tls_from_stream, TlsHeader("[TLS 1.2, SHA-256]", 8200) + TlsCaseText(c),
       "The key block length is over limit 1025(1024)\n", "*"},
      {test_tls_from_stream, "\t[TLS 1.0/1.1]\n" + TlsCaseText(c),
       "Never found starting marker\n", "*"},
  };
  for (const auto& k : kCases) {
    const CoreResult r = RunCore(k.core, k.request);
    EXPECT_EQ(r.printed, k.printed) << k.request;
    EXPECT_TRUE(k.kept == "*" || r.response == Crlf(k.kept)) << k.request;
  }
}

}  // namespace
}  // namespace fipsval::testing
