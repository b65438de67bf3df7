#include "suites/rsa_common.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fipsval {
namespace {

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
constexpr char kStepPass[] = "Step 5.6.2 Q is PROBABLY PRIME SUCCESS";

// x < sqrt(2) * 2^(half - 1), tested exactly as 2 * x^2 < 2^(2 * half).
bool BelowSqrt2Bound(const BIGNUM* x, int half, BN_CTX* ctx, bool* below) {
  UniqueBignum twice_square(BN_new());
  UniqueBignum bound(BN_new());
  if (!twice_square || !bound || !BN_sqr(twice_square.get(), x, ctx) ||
      !BN_lshift1(twice_square.get(), twice_square.get()) ||
      !BN_set_bit(bound.get(), 2 * half)) {
    return false;
  }
  *below = BN_cmp(twice_square.get(), bound.get()) < 0;
  return true;
}

// gcd(x - 1, e) = 1 and x passes the Miller-Rabin test.
bool CoprimeAndPrime(const BIGNUM* x, const BIGNUM* e, int rounds, BN_CTX* ctx,
                     bool* good) {
  UniqueBignum x_minus_1(BN_dup(x));
  UniqueBignum gcd(BN_new());
  if (!x_minus_1 || !gcd || !BN_sub_word(x_minus_1.get(), 1) ||
      !BN_gcd(gcd.get(), x_minus_1.get(), e, ctx)) {
    return false;
  }
  if (!BN_is_one(gcd.get())) {
    *good = false;
    return true;
  }
  const int prime = BN_is_prime_ex(x, rounds, ctx, nullptr);
  if (prime < 0) return false;
  *good = prime == 1;
  return true;
}

// |p - q| > 2^(half - 100), tested exactly as |p - q| * 2^100 > 2^half.
bool FarEnoughApart(const BIGNUM* p, const BIGNUM* q, int half, bool* apart) {
  UniqueBignum distance(BN_new());
  UniqueBignum bound(BN_new());
  const bool p_larger = BN_cmp(p, q) > 0;
  if (!distance || !bound ||
      !BN_sub(distance.get(), p_larger ? p : q, p_larger ? q : p) ||
      !BN_lshift(distance.get(), distance.get(), 100) ||
      !BN_set_bit(bound.get(), half)) {
    return false;
  }
  *apart = BN_cmp(distance.get(), bound.get()) > 0;
  return true;
}

}  // namespace

bool extract_modulus_size(const char* line, int* out) {
  if (std::strncmp(line, kModulusTag, sizeof kModulusTag - 1) != 0) {
    return false;
  }
  // Only four digits are read, by design.
  std::array<char, 5> digits{};
  const char* value = line + sizeof kModulusTag - 1;
  std::memcpy(digits.data(), value, strnlen(value, 4));
  *out = static_cast<int>(std::strtol(digits.data(), nullptr, 10));
  return true;
}

bool ReadModulusSize(const Session& s, bool (*accepted)(int bits), int* bits) {
  if (!extract_modulus_size(s.line(), bits) || !accepted(*bits)) {
    std::printf("Invalid modulus size (%d)\n", *bits);
    return false;
  }
  return true;
}

bool IsSignatureModulusSize(int bits) {
  return (bits & ~512) == 1024 || (bits & ~1024) == 2048 || bits == 4096;
}

bool WriteBignumHex(const Session& s, const BIGNUM* bn) {
  OpensslString hex(BN_bn2hex(bn));
  if (!hex) {
    Fail("Error converting BIGNUM to hex");
    return false;
  }
  return s.Write(hex.get(), kCopyError);
}

int B33Rounds(int nlen) { return nlen / 2 == 1536 ? 4 : 5; }

int b33_test(int nlen, const BIGNUM* e, const BIGNUM* p, const BIGNUM* q,
             char* reason, std::size_t size) {
  const auto result = [&](int pass, const char* text) {
    if (size > 0) std::snprintf(reason, size, "%s", text);
    return pass;
  };
  if (nlen < 0) return result(0, "Invalid modulus size");
  UniqueBnCtx ctx(BN_CTX_new());
  if (!ctx) return result(0, "Error allocating BN_CTX");

  const int half = nlen / 2;
  const int rounds = B33Rounds(nlen);
  bool below = false;
  bool good = false;
  bool apart = false;
  if (!BelowSqrt2Bound(p, half, ctx.get(), &below)) {
    return result(0, "Error computing the p bound");
  }
  if (below) return result(0, kStep44);
  if (!CoprimeAndPrime(p, e, rounds, ctx.get(), &good)) {
    return result(0, "Error testing p");
  }
  if (!good) return result(0, kStep47);
  if (!FarEnoughApart(p, q, half, &apart)) {
    return result(0, "Error computing the distance of p and q");
  }
  if (!apart) return result(0, kStep54);
  if (!BelowSqrt2Bound(q, half, ctx.get(), &below)) {
    return result(0, "Error computing the q bound");
  }
  if (below) return result(0, kStep55);
  if (!CoprimeAndPrime(q, e, rounds, ctx.get(), &good)) {
    return result(0, "Error testing q");
  }
  if (!good) return result(0, kStep58);
  return result(1, kStepPass);
}

}  // namespace fipsval
