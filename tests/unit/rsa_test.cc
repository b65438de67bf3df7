// The RSA runners: SigGen signatures checked with the reported public key,
// SigVer stopping at its first test, the appendix B.3.3 checks at their
// boundaries, the KAT and random-probable-prime runners and the copy
// runner.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

RunnerCore Sign(int method = 0) {
  return [method](std::FILE* q, std::FILE* s) { test_rsa_sign_from_stream(q, s, method); };
}
void Verify(std::FILE* q, std::FILE* s) { test_rsa_verify_from_stream(q, s, 0); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0, end; at < text.size(); at = end + 2) {
    end = std::min(text.find("\r\n", at), text.size());
    lines.push_back(text.substr(at, end - at));
  }
  return lines;
}

std::string After(const std::string& line, const std::string& tag) {
  EXPECT_EQ(line.rfind(tag, 0), 0u) << line;
  return line.substr(std::min(tag.size(), line.size()));
}

UniqueBignum Bn(const std::string& hex) {
  BIGNUM* bn = nullptr;
  BN_hex2bn(&bn, hex.c_str());
  return UniqueBignum(bn);
}

// S over msg verifies with the reported n and e = 3.
bool Verifies(const std::string& n, const EVP_MD* md, const std::string& msg,
              const std::string& s) {
  UniqueRsa rsa(RSA_new());
  RSA_set0_key(rsa.get(), Bn(n).release(), Bn("03").release(), nullptr);
  const std::vector<uint8_t> m = FromHex(msg), sig = FromHex(s);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  EVP_Digest(m.data(), m.size(), digest, &len, md, nullptr);
  return RSA_verify(EVP_MD_type(md), digest, len, sig.data(),
                    static_cast<unsigned>(sig.size()), rsa.get()) == 1;
}

TEST(RsaSigGen, SignaturesVerifyWithTheReportedKeyOfTheirSection) {
  const std::string msg1 = "0123456789abcdef", msg2 = std::string(2048, 'c');
  const CoreResult r = RunCore(
      Sign(), "# header\n\n[mod = 1024]\n\nSHAAlg = SHA1\nMsg = " + msg1 +
                  "\n\nSHAAlg = SHA224\nMsg = " + msg1 +
                  "\n\nSHAAlg = SHA256\nMsg = " + msg2 +
                  "\n\n[mod = 1024]\n\nSHAAlg = SHA384\nMsg = " + msg1 +
                  "\nSHAAlg = SHA512\nMsg = " + msg1 + "\n");
  EXPECT_EQ(r.printed, "");
  // After each [mod] line: blank, n (upper case), blank, and e = 03 ended
  // by the next request line. SHA-224 is copied without an answer.
  const std::vector<std::string> l = Lines(r.response);
  ASSERT_EQ(l.size(), 29u) << r.response;
  const std::string n1 = After(l[4], "n = "), n2 = After(l[20], "n = ");
  std::vector<std::string> sig;
  for (int i : {9, 16, 25, 28}) sig.push_back(After(l[i], "S = "));
  EXPECT_EQ(r.response,
            Crlf("# header\n\n[mod = 1024]\n\nn = " + n1 +
                 "\n\ne = 03\nSHAAlg = SHA1\nMsg = " + msg1 + "\nS = " + sig[0] +
                 "\n\nSHAAlg = SHA224\nMsg = " + msg1 + "\n\nSHAAlg = SHA256\nMsg = " +
                 msg2 + "\nS = " + sig[1] + "\n\n[mod = 1024]\n\nn = " + n2 +
                 "\n\ne = 03\nSHAAlg = SHA384\nMsg = " + msg1 + "\nS = " + sig[2] +
                 "\nSHAAlg = SHA512\nMsg = " + msg1 + "\nS = " + sig[3] + "\n"));
  EXPECT_EQ(n1.size(), 256u);
  EXPECT_EQ(n1.find_first_not_of("0123456789ABCDEF"), std::string::npos);
  EXPECT_EQ(sig[0].find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_TRUE(Verifies(n1, EVP_sha1(), msg1, sig[0]));
  EXPECT_TRUE(Verifies(n1, EVP_sha256(), msg2, sig[1]));
  EXPECT_TRUE(Verifies(n2, EVP_sha384(), msg1, sig[2]));
  EXPECT_TRUE(Verifies(n2, EVP_sha512(), msg1, sig[3]));
  EXPECT_FALSE(Verifies(n1, EVP_sha384(), msg1, sig[2]));  // a key per section
}

TEST(RsaSigGen, ModulusSizes) {
  for (int bits : {1024, 1536, 2048, 3072, 4096}) {
    EXPECT_TRUE(IsSignatureModulusSize(bits)) << bits;
  }
  for (int bits : {0, 512, 1025, 1280, 2560, 3584, 5120, 8192}) {
    EXPECT_FALSE(IsSignatureModulusSize(bits)) << bits;
  }
  // Only four digits are read: 20480 is 2048.
  const CoreResult r = RunCore(Sign(), "[mod = 1536]\n\n[mod = 20480]\n\n");
  const std::vector<std::string> l = Lines(r.response);
  ASSERT_EQ(l.size(), 10u);
  EXPECT_EQ(After(l[2], "n = ").size(), 1536u / 4);
  EXPECT_EQ(After(l[7], "n = ").size(), 2048u / 4);
}

TEST(RsaSigGen, FailureMessages) {
  const std::string sha1 = "[mod = 1024]\n\nSHAAlg = SHA1\n";
  const struct {
    std::string request, printed;
  } kCases[] = {
      {"", "Never found modulus size marker\n"},
      {"# c\n[mod = 1280]\n\n", "Invalid modulus size (1280)\n"},
      {sha1 + "Msg = 00\n[mod = 2560]\n", "Invalid modulus size (2560)\n"},
      // strtol without a digit check: a size without digits is 0.
      {"[mod = abc]\n", "Invalid modulus size (0)\n"},
      {"[mod = 1024]\n\n[mod = x]\n", "Invalid modulus size (0)\n"},
      {sha1 + "Msg2 = 00\n", "Msg field not present\n"},
      {sha1, "Msg field not present\n"},
      {sha1 + "Msg = \n", "Error extracting msg\n"},
      {sha1 + "Msg = " + std::string(2050, 'a') + "\n",
       "Msg field too long (1025 bytes, at most 1024)\n"},
      // A line longer than the 4096-byte line buffer comes in pieces.
      {sha1 + "Msg = " + std::string(6000, 'b') + "\n",
       "Msg field too long (2044 bytes, at most 1024)\n"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(RunCore(Sign(), c.request).printed, c.printed) << c.request;
  }
  EXPECT_EQ(RunCore(Sign(), "# c\n[mod = 1280]\n\n").response, Crlf("# c\n"));
  EXPECT_EQ(RunCore(Sign(1), "[mod = 1024]\n\n").printed,
            "Invalid method\nError generating key pair\n");
}

TEST(RsaSigVer, EndsAtTheFirstSupportedTestAfterCheckingSizes) {
  const std::string head =
      "# SigVer\n\n[mod = 1024]\n\nn = 00c5\n\n"
      "SHAAlg = SHA224\ne = 03\nMsg = 00\nS = 11\n\n"
      "[mod = 1536]\n[mod = 20480]\n[mod = 3072]\n[mod = 4096]\n";
  const CoreResult r = RunCore(Verify, head + "SHAAlg = SHA256\ne = 03\nMsg = 00\n");
  EXPECT_EQ(r.printed, "RSA param n is null\n");
  EXPECT_EQ(r.response, Crlf(head + "SHAAlg = SHA256\n"));
  const struct {
    std::string request, printed, kept;
  } kCases[] = {
      {"# nothing\n", "Never found modulus size marker\n", "# nothing\n"},
      {"[mod = 1280]\n", "Invalid modulus size (1280)\n", ""},
      {"[mod = 1024]\n[mod = 2560]\n", "Invalid modulus size (2560)\n",
       "[mod = 1024]\n"},
      {"[mod = ?]\n", "Invalid modulus size (0)\n", ""},
      {"[mod = 1024]\n\nn = xyz\n", "Error extracting modulus\n",
       "[mod = 1024]\n\n"},
  };
  for (const auto& c : kCases) {
    const CoreResult v = RunCore(Verify, c.request);
    EXPECT_EQ(v.printed, c.printed) << c.request;
    EXPECT_EQ(v.response, Crlf(c.kept)) << c.request;
  }
}

// ---- Key generation ----

UniqueBignum Word(unsigned long w) {
  UniqueBignum bn(BN_new());
  BN_set_word(bn.get(), w);
  return bn;
}

UniqueBignum Add(const BIGNUM* x, const BIGNUM* y, bool subtract = false) {
  UniqueBignum r(BN_new());
  subtract ? BN_sub(r.get(), x, y) : BN_add(r.get(), x, y);
  return r;
}

UniqueBignum PowerOfTwo(int bits) {
  UniqueBignum r(BN_new());
  BN_set_bit(r.get(), bits);
  return r;
}

// floor(sqrt(2) * 2^(half - 1)) = isqrt(2^(2 half - 1)), by Newton's method.
UniqueBignum Sqrt2Floor(int half) {
  const UniqueBignum n = PowerOfTwo(2 * half - 1);
  UniqueBignum x = PowerOfTwo(half), y(BN_new());
  const UniqueBnCtx ctx(BN_CTX_new());
  for (;;) {
    BN_div(y.get(), nullptr, n.get(), x.get(), ctx.get());
    BN_add(y.get(), y.get(), x.get());
    BN_rshift1(y.get(), y.get());
    if (BN_cmp(y.get(), x.get()) >= 0) return x;
    BN_copy(x.get(), y.get());
  }
}

// A prime of `bits` bits above the sqrt(2) bound; with add, one congruent
// to 1 modulo add; else one whose p - 1 is prime to 65537.
UniqueBignum Prime(int bits, const BIGNUM* add = nullptr) {
  const UniqueBignum bound = Sqrt2Floor(bits), e = Word(65537);
  const UniqueBnCtx ctx(BN_CTX_new());
  UniqueBignum p(BN_new()), g(BN_new());
  for (;;) {
    BN_generate_prime_ex(p.get(), bits, 0, add, add ? BN_value_one() : nullptr,
                         nullptr);
    const UniqueBignum p1 = Add(p.get(), BN_value_one(), true);
    BN_gcd(g.get(), p1.get(), e.get(), ctx.get());
    if (BN_cmp(p.get(), bound.get()) > 0 && (add || BN_is_one(g.get()))) return p;
  }
}

constexpr char kStep44[] =
    "Step 4.4 p < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 so get another "
    "random number.";
constexpr char kStep47[] =
    "Step 4.7 i < (5*(nlen/2)) but not prime so get another random number.";
constexpr char kStep54[] = "Step 5.4 p and q too close to each other.";
constexpr char kStep55[] =
    "Step 5.5 q < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 so get another "
    "random number.";
constexpr char kStep58[] =
    "Step 5.8 i < (5*(nlen/2)) but not prime so get another random number.";
constexpr char kPass[] = "Step 5.6.2 Q is PROBABLY PRIME SUCCESS";

TEST(B33, EachStepAtItsBoundary) {
  const UniqueBignum e = Word(65537), p = Prime(1024), q = Prime(1024);
  const UniqueBignum bound = Sqrt2Floor(1024), gap = PowerOfTwo(1024 - 100);
  const UniqueBignum wider = Add(gap.get(), BN_value_one());
  UniqueBignum two_e(BN_new()), composite(BN_new());
  BN_lshift1(two_e.get(), e.get());
  const UniqueBignum shares_e = Prime(1024, two_e.get());  // 1 mod e
  const UniqueBnCtx ctx(BN_CTX_new());
  do {  // above the bound; only Miller-Rabin finds it out
    BN_mul(composite.get(), Prime(512).get(), Prime(512).get(), ctx.get());
  } while (BN_cmp(composite.get(), bound.get()) <= 0);
  const UniqueBignum above = Add(bound.get(), BN_value_one());
  std::vector<UniqueBignum> keep;
  const auto own = [&](UniqueBignum b) { return keep.emplace_back(std::move(b)).get(); };
  const UniqueBignum even = Add(q.get(), BN_value_one());
  const struct {
    const BIGNUM *p, *q;
    const char* reason;
  } kCases[] = {
      {p.get(), q.get(), kPass},
      {q.get(), p.get(), kPass},
      {bound.get(), q.get(), kStep44},
      {above.get(), q.get(), kStep47},  // passes 4.4, and is even
      {composite.get(), q.get(), kStep47},
      {shares_e.get(), q.get(), kStep47},
      {p.get(), p.get(), kStep54},
      {p.get(), own(Add(p.get(), gap.get())), kStep54},
      {p.get(), own(Add(p.get(), gap.get(), true)), kStep54},
      // One more passes 5.4; q is then even and fails 5.8.
      {p.get(), own(Add(p.get(), wider.get())), kStep58},
      {p.get(), own(Add(p.get(), wider.get(), true)), kStep58},
      {p.get(), bound.get(), kStep55},
      {p.get(), own(Word(0)), kStep55},
      {p.get(), even.get(), kStep58},
      {p.get(), shares_e.get(), kStep58},
  };
  for (const auto& c : kCases) {
    char reason[100];
    std::memset(reason, 'x', sizeof reason);
    EXPECT_EQ(b33_test(2048, e.get(), c.p, c.q, reason, sizeof reason),
              c.reason == kPass);
    EXPECT_STREQ(reason, c.reason);
  }
  char small[12];
  EXPECT_EQ(b33_test(2048, e.get(), p.get(), p.get(), small, sizeof small), 0);
  EXPECT_STREQ(small, "Step 5.4 p ");
  EXPECT_EQ(B33Rounds(3072), 4);
  EXPECT_EQ(B33Rounds(3073), 4);
  EXPECT_EQ(B33Rounds(2048), 5);
  EXPECT_EQ(B33Rounds(3074), 5);
}

// KAT requests end their lines in CR CR LF: "\r\n" in the text below.
std::string KatText(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
    text.insert(at, "\r");
  }
  return text;
}

TEST(RsaKeyGenKat, ResultReplacesTheRecordEnd) {
  const std::string p = Hex(Prime(512).get()), q = Hex(Prime(512).get());
  // e = 1 shares no factor with p - 1 or q - 1.
  const std::string head = "# KAT\n\n[PrimeMethod = ProbRandom]\n[mod = 1024]\n\n";
  const std::string good = "e = 01\nprandom = " + p + "\nqrandom = " + q + "\n";
  const std::string same = "e = 01\nprandom = " + p + "\nqrandom = " + p + "\n";
  const CoreResult r = RunCore(test_rsa_keygen_kat_from_stream,
                               KatText(head + good + "\n" + same + "\n"));
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, Crlf(KatText(head + good)) + "Result = P (" + kPass +
                            ")\r\r\n\r\n\r\r\n" + Crlf(KatText(same)) +
                            "Result = F (" + kStep54 + ")\r\r\n\r\n\r\r\n");
  // Lines ending in CR LF never close a record.
  const std::string crlf = "[mod = 1024]\n\n" + good + "\n" + good;
  const CoreResult open = RunCore(test_rsa_keygen_kat_from_stream, crlf);
  EXPECT_EQ(open.printed, "Didn't find section end\n");
  EXPECT_EQ(open.response, Crlf("[mod = 1024]\n\n" + good + "\n"));
  // A record without candidates fails at step 4.4 (p is zero).
  EXPECT_NE(RunCore(test_rsa_keygen_kat_from_stream, KatText("[mod = 1024]\ne = 01\n\n"))
                .response.find(std::string("Result = F (") + kStep44),
            std::string::npos);
  const struct {
    std::string request, printed;
  } kCases[] = {
      {"[mod = 1280]\n", "Invalid modulus size (1280)\n"},
      {"[mod = 1536]\n[mod = size]\n", "Invalid modulus size (0)\n"},
      {"", ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(RunCore(test_rsa_keygen_kat_from_stream, KatText(c.request)).printed,
              c.printed);
  }
}

TEST(RsaKeyGenKat, ProjectVectorsGiveTheExpectedResults) {
  const std::string dir = std::string(FIPSVAL_SOURCE_DIR) + "/vectors/RSA2/";
  std::string request = ReadFile(dir + "req/KeyGen3_3_KAT.req");
  ASSERT_FALSE(request.empty());
  // RunCore puts back the CR before each LF.
  for (std::size_t at = 0; (at = request.find("\r\n", at)) != std::string::npos; ++at) {
    request.erase(at, 1);
  }
  const CoreResult r = RunCore(test_rsa_keygen_kat_from_stream, request);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, ReadFile(dir + "fax/KeyGen3_3_KAT.fax"));
}

TEST(RsaRandomProbablePrime, KeysReplaceTheLoopCountAndAreConsistent) {
  const CoreResult r = RunCore(test_rsa_keygen_rp_prime_from_stream,
                               "# RP\n\n[mod = 2048]\n\nN = 1\n\n# end\n");
  EXPECT_EQ(r.printed, "");
  const std::vector<std::string> l = Lines(r.response);
  ASSERT_EQ(l.size(), 11u) << r.response;
  EXPECT_EQ(r.response.substr(0, 24), Crlf("# RP\n\n[mod = 2048]\n\n"));
  EXPECT_EQ(l[4], "e = 010001");
  const UniqueBignum p = Bn(After(l[5], "p = ")), q = Bn(After(l[6], "q = ")),
                     n = Bn(After(l[7], "n = ")), d = Bn(After(l[8], "d = "));
  EXPECT_EQ(std::vector<std::string>(l.begin() + 9, l.end()),
            (std::vector<std::string>{"", "# end"}));
  // n = p q of 2048 bits; d is the inverse of e modulo lcm(p - 1, q - 1).
  const UniqueBnCtx ctx(BN_CTX_new());
  UniqueBignum pq(BN_new()), lcm(BN_new()), g(BN_new()), ed(BN_new());
  const UniqueBignum p1 = Add(p.get(), BN_value_one(), true),
                     q1 = Add(q.get(), BN_value_one(), true);
  BN_mul(pq.get(), p.get(), q.get(), ctx.get());
  EXPECT_EQ(BN_cmp(pq.get(), n.get()), 0);
  EXPECT_EQ(BN_num_bits(n.get()), 2048);
  BN_mul(lcm.get(), p1.get(), q1.get(), ctx.get());
  BN_gcd(g.get(), p1.get(), q1.get(), ctx.get());
  BN_div(lcm.get(), nullptr, lcm.get(), g.get(), ctx.get());
  EXPECT_LT(BN_cmp(d.get(), lcm.get()), 0);
  BN_mod_mul(ed.get(), d.get(), Word(65537).get(), lcm.get(), ctx.get());
  EXPECT_TRUE(BN_is_one(ed.get()));
  EXPECT_EQ(BN_check_prime(p.get(), ctx.get(), nullptr), 1);
  EXPECT_EQ(BN_check_prime(q.get(), ctx.get(), nullptr), 1);

  const struct {
    std::string request, printed, kept;
  } kCases[] = {
      {"[mod = 3072]\n\nN = -1\n\n[mod = 4096]\n", "", "[mod = 3072]\n\n[mod = 4096]\n"},
      {"# c\n[mod = 1024]\n\nN = 1\n", "Invalid modulus size (1024)\n", "# c\n"},
      {"[mod = 1536]\n", "Invalid modulus size (1536)\n", ""},
      {"[mod = x]\n", "Invalid modulus size (0)\n", ""},
      {"[mod = 2048]\n\nNo count\n", "Didn't find loop num\n", "[mod = 2048]\n"},
      {"[mod = 2048]\n\nN = many\n", "Invalid loop num (0)\n", "[mod = 2048]\n"},
      {"[mod = 2048]\n\nN = 0\n", "Invalid loop num (0)\n", "[mod = 2048]\n"},
      {"", "", ""},
  };
  for (const auto& c : kCases) {
    const CoreResult k = RunCore(test_rsa_keygen_rp_prime_from_stream, c.request);
    EXPECT_EQ(k.printed, c.printed) << c.request;
    EXPECT_EQ(k.response, Crlf(c.kept)) << c.request;
  }
}

TEST(RsaKeyGenCopy, CopiesTheRequestByteForByte) {
  const std::string request = "# KeyGen\r\n\r\n[mod = 2048]\nbare\nLF\r\nlast";
  std::FILE* req = fmemopen(const_cast<char*>(request.data()), request.size(), "r");
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* rsp = open_memstream(&data, &size);
  EXPECT_EQ(CaptureStdout([&] { test_rsa_keygen_from_stream(req, rsp); }), "");
  std::fclose(req);
  std::fclose(rsp);
  // The last line, without its CR LF, is not terminated: the longer line
  // before it shows through.
  EXPECT_EQ(std::string(data, size), request + " = 2048]\nbare\nLF\r\n");
  std::free(data);
}

}  // namespace
}  // namespace fipsval::testing
