// The key-generation runners: the B.3.3 checks step by step and at their
// boundaries, the KAT record handling, the random probable-prime keys and
// the copy runner.
#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <cstring>
#include <string>

#include "fipsval.h"
#include "harness/runners.h"
#include "host/core/rsa_answer_checks.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

UniqueBignum Word(unsigned long w) {
  UniqueBignum bn(BN_new());
  BN_set_word(bn.get(), w);
  return bn;
}

UniqueBignum Plus(const BIGNUM* x, const BIGNUM* y) {
  UniqueBignum r(BN_new());
  BN_add(r.get(), x, y);
  return r;
}

UniqueBignum Minus(const BIGNUM* x, const BIGNUM* y) {
  UniqueBignum r(BN_new());
  BN_sub(r.get(), x, y);
  return r;
}

UniqueBignum PowerOfTwo(int bits) {
  UniqueBignum r(BN_new());
  BN_set_bit(r.get(), bits);
  return r;
}

// floor(sqrt(2) * 2^(half - 1)) = isqrt(2^(2 half - 1)), by Newton's method.
UniqueBignum Sqrt2Floor(int half) {
  UniqueBignum n = PowerOfTwo(2 * half - 1);
  UniqueBignum x = PowerOfTwo(half);
  UniqueBignum y(BN_new());
  UniqueBnCtx ctx(BN_CTX_new());
  for (;;) {
    BN_div(y.get(), nullptr, n.get(), x.get(), ctx.get());
    BN_add(y.get(), y.get(), x.get());
    BN_rshift1(y.get(), y.get());
    if (BN_cmp(y.get(), x.get()) >= 0) return x;
    BN_copy(x.get(), y.get());
  }
}

// A prime of `bits` bits above the sqrt(2) bound; with add, one that is
// congruent to 1 modulo add.
UniqueBignum Prime(int bits, const BIGNUM* add = nullptr) {
  const UniqueBignum bound = Sqrt2Floor(bits);
  const UniqueBignum one = Word(1);
  UniqueBignum p(BN_new());
  do {
    BN_generate_prime_ex(p.get(), bits, 0, add, add ? one.get() : nullptr,
                         nullptr);
  } while (BN_cmp(p.get(), bound.get()) <= 0);
  return p;
}

struct Outcome {
  int pass;
  std::string reason;
};

Outcome B33(int nlen, const BIGNUM* e, const BIGNUM* p, const BIGNUM* q) {
  char reason[100];
  std::memset(reason, 'x', sizeof reason);
  const int pass = b33_test(nlen, e, p, q, reason, sizeof reason);
  return {pass, reason};
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

// Two good 1024-bit primes for nlen 2048, made once.
class B33Test : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    e_ = Word(65537).release();
    UniqueBignum p1, q1, g(BN_new());
    UniqueBnCtx ctx(BN_CTX_new());
    const auto coprime = [&](const BIGNUM* x) {
      UniqueBignum x1 = Minus(x, BN_value_one());
      BN_gcd(g.get(), x1.get(), e_, ctx.get());
      return BN_is_one(g.get());
    };
    do p1 = Prime(1024); while (!coprime(p1.get()));
    do q1 = Prime(1024); while (!coprime(q1.get()));
    p_ = p1.release();
    q_ = q1.release();
  }
  static void TearDownTestSuite() {
    BN_free(e_);
    BN_free(p_);
    BN_free(q_);
  }
  static BIGNUM* e_;
  static BIGNUM* p_;
  static BIGNUM* q_;
};
BIGNUM* B33Test::e_ = nullptr;
BIGNUM* B33Test::p_ = nullptr;
BIGNUM* B33Test::q_ = nullptr;

TEST_F(B33Test, TwoGoodPrimesPass) {
  const Outcome o = B33(2048, e_, p_, q_);
  EXPECT_EQ(o.pass, 1);
  EXPECT_EQ(o.reason, kPass);
  EXPECT_EQ(B33(2048, e_, q_, p_).reason, kPass);
}

TEST_F(B33Test, Step44PBelowTheSqrt2Bound) {
  const UniqueBignum bound = Sqrt2Floor(1024);
  EXPECT_EQ(B33(2048, e_, bound.get(), q_).reason, kStep44);
  EXPECT_EQ(B33(2048, e_, PowerOfTwo(1023).get(), q_).reason, kStep44);
  // One above the bound passes step 4.4.
  const UniqueBignum above = Plus(bound.get(), BN_value_one());
  EXPECT_NE(B33(2048, e_, above.get(), q_).reason, kStep44);
}

TEST_F(B33Test, Step47PNotPrimeOrNotCoprimeWithE) {
  // A product of two primes, above the bound, that only Miller-Rabin finds
  // out.
  UniqueBignum composite(BN_new());
  UniqueBnCtx ctx(BN_CTX_new());
  const UniqueBignum bound = Sqrt2Floor(1024);
  do {
    BN_mul(composite.get(), Prime(512).get(), Prime(512).get(), ctx.get());
  } while (BN_cmp(composite.get(), bound.get()) <= 0);
  EXPECT_EQ(B33(2048, e_, composite.get(), q_).reason, kStep47);

  UniqueBignum two_e(BN_new());
  BN_lshift1(two_e.get(), e_);
  const UniqueBignum shares_e = Prime(1024, two_e.get());  // p = 1 mod e
  EXPECT_EQ(B33(2048, e_, shares_e.get(), q_).reason, kStep47);
}

TEST_F(B33Test, Step54DistanceBoundary) {
  const UniqueBignum gap = PowerOfTwo(1024 - 100);
  EXPECT_EQ(B33(2048, e_, p_, p_).reason, kStep54);
  EXPECT_EQ(B33(2048, e_, p_, Plus(p_, gap.get()).get()).reason, kStep54);
  EXPECT_EQ(B33(2048, e_, p_, Minus(p_, gap.get()).get()).reason, kStep54);
  // One more passes step 5.4; q is then even and fails step 5.8.
  const UniqueBignum wider = Plus(gap.get(), BN_value_one());
  EXPECT_EQ(B33(2048, e_, p_, Plus(p_, wider.get()).get()).reason, kStep58);
  EXPECT_EQ(B33(2048, e_, p_, Minus(p_, wider.get()).get()).reason, kStep58);
}

TEST_F(B33Test, Step55QBelowTheSqrt2Bound) {
  EXPECT_EQ(B33(2048, e_, p_, Sqrt2Floor(1024).get()).reason, kStep55);
  EXPECT_EQ(B33(2048, e_, p_, Word(0).get()).reason, kStep55);
}

TEST_F(B33Test, Step58QNotPrimeOrNotCoprimeWithE) {
  const UniqueBignum even = Plus(q_, BN_value_one());
  EXPECT_EQ(B33(2048, e_, p_, even.get()).reason, kStep58);
  UniqueBignum two_e(BN_new());
  BN_lshift1(two_e.get(), e_);
  const UniqueBignum shares_e = Prime(1024, two_e.get());  // q = 1 mod e
  EXPECT_EQ(B33(2048, e_, p_, shares_e.get()).reason, kStep58);
}

TEST_F(B33Test, ReasonIsBoundedAndTerminated) {
  char small[12];
  std::memset(small, 'x', sizeof small);
  EXPECT_EQ(b33_test(2048, e_, p_, p_, small, sizeof small), 0);
  EXPECT_STREQ(small, "Step 5.4 p ");
  char untouched = 'x';
  EXPECT_EQ(b33_test(2048, e_, p_, q_, &untouched, 0), 1);
  EXPECT_EQ(untouched, 'x');
}

TEST(B33Rounds, FourFor3072BitsElseFive) {
  EXPECT_EQ(B33Rounds(3072), 4);
  EXPECT_EQ(B33Rounds(3073), 4);
  EXPECT_EQ(B33Rounds(2048), 5);
  EXPECT_EQ(B33Rounds(1024), 5);
  EXPECT_EQ(B33Rounds(4096), 5);
  EXPECT_EQ(B33Rounds(3074), 5);
}

// KAT requests end their lines in CR CR LF.
std::string CrCrLf(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\n') out += "\r\r";
    out += c;
  }
  return out;
}

std::string RunKat(const std::string& request_bytes) {
  ResetVectorDirs();
  WriteRequest("KAT", request_bytes);
  return CaptureStdout([] { test_rsa_keygen_kat_from_file("KAT"); });
}

class KatRunnerTest : public ::testing::Test {
 protected:
  // Two 512-bit primes for 1024-bit records, to keep the runs quick.
  static void SetUpTestSuite() {
    p_ = new std::string(Hex(Prime(512).get()));
    q_ = new std::string(Hex(Prime(512).get()));
  }
  static void TearDownTestSuite() {
    delete p_;
    delete q_;
  }
  static std::string Record(const std::string& p, const std::string& q) {
    return "e = 03\nprandom = " + p + "\nqrandom = " + q + "\n";
  }
  static std::string* p_;
  static std::string* q_;
};
std::string* KatRunnerTest::p_ = nullptr;
std::string* KatRunnerTest::q_ = nullptr;

TEST_F(KatRunnerTest, ResultReplacesTheRecordEnd) {
  // e = 3 may share a factor with p - 1 or q - 1: e = 1 never does.
  const std::string head = "# KAT\n\n[PrimeMethod = ProbRandom]\n[mod = 1024]\n\n";
  const std::string good = "e = 01\nprandom = " + *p_ + "\nqrandom = " + *q_ + "\n";
  const std::string same = "e = 01\nprandom = " + *p_ + "\nqrandom = " + *p_ + "\n";
  EXPECT_EQ(RunKat(CrCrLf(head + good + "\n" + same + "\n")), "");
  EXPECT_EQ(ReadResponse("KAT"),
            CrCrLf(head + good) + "Result = P (" + kPass + ")\r\r\n\r\n\r\r\n" +
                CrCrLf(same) + "Result = F (" + kStep54 +
                ")\r\r\n\r\n\r\r\n");
}

TEST_F(KatRunnerTest, RecordEndOutsideARecordIsCopied) {
  EXPECT_EQ(RunKat(CrCrLf("\n[mod = 1024]\n\n")), "");
  EXPECT_EQ(ReadResponse("KAT"), CrCrLf("\n[mod = 1024]\n\n"));
}

TEST_F(KatRunnerTest, CrLfRequestNeverClosesARecord) {
  const std::string request =
      Crlf("[mod = 1024]\n\n" + Record(*p_, *q_) + "\n" + Record(*p_, *q_));
  EXPECT_EQ(RunKat(request), "Didn't find section end\n");
  EXPECT_EQ(ReadResponse("KAT"),
            Crlf("[mod = 1024]\n\n" + Record(*p_, *q_) + "\n"));
}

TEST_F(KatRunnerTest, FailureMessages) {
  EXPECT_EQ(RunKat(CrCrLf("[mod = 1280]\n")), "Invalid modulus size (1280)\n");
  EXPECT_EQ(RunKat(CrCrLf("[mod = 2560]\n")), "Invalid modulus size (2560)\n");
  EXPECT_EQ(RunKat(CrCrLf("[mod = 1536]\n[mod = size]\n")),
            "Invalid modulus size (0)\n");
  EXPECT_EQ(ReadResponse("KAT"), CrCrLf("[mod = 1536]\n"));
  // A value without hex digits leaves its number as it was (zero at first):
  // the record is answered, and fails.
  EXPECT_EQ(RunKat(CrCrLf("[mod = 1024]\ne = zz\nprandom = g\nqrandom = \n\n")),
            "");
  EXPECT_NE(ReadResponse("KAT").find("Result = F ("), std::string::npos);
  EXPECT_EQ(RunKat(""), "");
  EXPECT_EQ(ReadResponse("KAT"), "");
}

TEST_F(KatRunnerTest, MissingCandidatesFailWithoutCrashing) {
  // No prandom before the first record: p is zero. No qrandom: q is zero.
  EXPECT_EQ(RunKat(CrCrLf("[mod = 1024]\ne = 01\n\n")), "");
  EXPECT_NE(ReadResponse("KAT").find(std::string("Result = F (") + kStep44),
            std::string::npos);
  EXPECT_EQ(RunKat(CrCrLf("[mod = 1024]\ne = 01\nprandom = " + *p_ + "\n\n")),
            "");
  EXPECT_NE(ReadResponse("KAT").find(std::string("Result = F (") + kStep55),
            std::string::npos);
}

TEST(KatRunner, ProjectVectorsGiveTheExpectedResults) {
  const std::string dir = std::string(FIPSVAL_SOURCE_DIR) + "/vectors/RSA2/";
  const std::string request = ReadFile(dir + "req/KeyGen3_3_KAT.req");
  ASSERT_FALSE(request.empty());
  EXPECT_EQ(RunKat(request), "");
  EXPECT_EQ(ReadResponse("KAT"), ReadFile(dir + "fax/KeyGen3_3_KAT.fax"));
}

std::string RunRandomPrimes(const std::string& request) {
  ResetVectorDirs();
  WriteRequest("RP", Crlf(request));
  return CaptureStdout([] { test_rsa_keygen_rp_prime_from_file("RP"); });
}

TEST(RandomProbablePrime, KeysReplaceTheLoopCount) {
  EXPECT_EQ(RunRandomPrimes("# RP\n\n[mod = 2048]\n\nN = 1\n\n# end\n"), "");
  const std::string response = ReadResponse("RP");
  ASSERT_EQ(response.rfind(Crlf("# RP\n\n[mod = 2048]\n\ne = 010001\np = "), 0),
            0u)
      << response;
  EXPECT_EQ(response.find("N = "), std::string::npos);
  const std::size_t d = response.find("\r\nd = ");
  ASSERT_NE(d, std::string::npos);
  EXPECT_EQ(response.substr(response.find("\r\n", d + 2)),
            Crlf("\n\n# end\n"));
  const host::AnswerCheck check =
      host::CheckRandomProbablePrimeResponse("/tmp/resp/RP.rsp");
  EXPECT_TRUE(check.ok) << check.problem;
  EXPECT_EQ(check.checked, 1);
}

TEST(RandomProbablePrime, NegativeCountGeneratesNothing) {
  EXPECT_EQ(RunRandomPrimes("[mod = 3072]\n\nN = -1\n\n[mod = 4096]\n"), "");
  EXPECT_EQ(ReadResponse("RP"), Crlf("[mod = 3072]\n\n[mod = 4096]\n"));
}

TEST(RandomProbablePrime, FailureMessages) {
  EXPECT_EQ(RunRandomPrimes("# c\n[mod = 1024]\n\nN = 1\n"),
            "Invalid modulus size (1024)\n");
  EXPECT_EQ(ReadResponse("RP"), Crlf("# c\n"));
  EXPECT_EQ(RunRandomPrimes("[mod = 1536]\n"), "Invalid modulus size (1536)\n");
  EXPECT_EQ(RunRandomPrimes("[mod = x]\n"), "Invalid modulus size (0)\n");
  EXPECT_EQ(RunRandomPrimes("[mod = 2048]\n\nNo count\n"),
            "Didn't find loop num\n");
  EXPECT_EQ(RunRandomPrimes("[mod = 2048]\n\nN = many\n"),
            "Invalid loop num (0)\n");
  EXPECT_EQ(RunRandomPrimes("[mod = 2048]\n\nN = 0\n"),
            "Invalid loop num (0)\n");
  EXPECT_EQ(ReadResponse("RP"), Crlf("[mod = 2048]\n"));
  EXPECT_EQ(RunRandomPrimes(""), "");
}

TEST(KeyGenCopy, CopiesTheRequestByteForByte) {
  const std::string request =
      Crlf("# KeyGen\n\n[mod = 2048]\n\nN = 2\n") + "bare\nLF\r\n" +
      "a last line without its end";
  ResetVectorDirs();
  WriteRequest("KeyGen", request);
  EXPECT_EQ(CaptureStdout([] { test_rsa_keygen_from_file("KeyGen"); }), "");
  EXPECT_EQ(ReadResponse("KeyGen"), request);
}

TEST(Exps, IsTheExportedExponent) {
  EXPECT_EQ(exps, 65537u);
  unsigned char bytes[4];
  std::memcpy(bytes, &exps, sizeof bytes);
  EXPECT_EQ(bytes[0], 0x01);
  EXPECT_EQ(bytes[1], 0x00);
  EXPECT_EQ(bytes[2], 0x01);
  EXPECT_EQ(bytes[3], 0x00);
}

}  // namespace
}  // namespace fipsval::testing
