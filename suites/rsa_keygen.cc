// RSA key-generation runners for FIPS 186-3: the KeyGen request copied
// through, the appendix B.3.3 known-answer test on given candidate primes,
// and random probable-prime key pairs generated N at a time.
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/rsa_common.h"

// The public exponent of generated keys, exported for the host. Nothing in
// the library reads it.
extern "C" const uint32_t exps = 65537;

namespace fipsval {
namespace {

constexpr int kLineSize = 4096;
constexpr unsigned long kPublicExponent = 65537;

constexpr char kPrimeMethodTag[] = "[PrimeMethod = ";
constexpr char kExponentTag[] = "e = ";
constexpr char kPrandomTag[] = "prandom = ";
constexpr char kQrandomTag[] = "qrandom = ";
constexpr char kLoopTag[] = "N = ";
// KAT lines end in CR CR LF; a line holding only that ends a record.
constexpr char kKatRecordEnd[] = "\r\r\n";
constexpr char kBlankLine[] = "\r\n";
constexpr char kWriteError[] = "Problem writing to rsp file";

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

// Reads the hex value after tag into *bn (replacing what it held).
// BN_hex2bn stops at the CR of the line end, whether CR LF or CR CR LF.
bool extract_bn(const char* line, std::string_view tag, UniqueBignum* bn) {
  if (!starts_with(line, tag)) return false;
  BIGNUM* value = nullptr;
  if (BN_hex2bn(&value, line + tag.size()) == 0) return false;
  bn->reset(value);
  return true;
}

bool extract_n(const char* line, std::string_view tag, int* out) {
  if (!starts_with(line, tag)) return false;
  const char* value = line + tag.size();
  char* end = nullptr;
  const long n = std::strtol(value, &end, 10);
  if (end == value) return false;
  *out = static_cast<int>(n);
  return true;
}

// x < sqrt(2) * 2^(half - 1), tested exactly as 2 * x^2 < 2^(2 * half).
bool below_sqrt2_bound(const BIGNUM* x, int half, BN_CTX* ctx, bool* below) {
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
bool coprime_and_prime(const BIGNUM* x, const BIGNUM* e, int rounds,
                       BN_CTX* ctx, bool* good) {
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
bool far_enough_apart(const BIGNUM* p, const BIGNUM* q, int half,
                      bool* apart) {
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

// Writes "Result = P|F (reason)" with the KAT file's own line ends in place
// of the record-ending line.
bool write_kat_result(const RunnerFiles& files, int nlen, const BIGNUM* e,
                      const BIGNUM* p, const BIGNUM* q) {
  std::array<char, 100> reason{};
  const int pass = b33_test(nlen, e, p, q, reason.data(), reason.size());
  std::array<char, 1024> result{};
  std::snprintf(result.data(), result.size(), "Result = %s (%s)%s%s%s",
                pass ? "P" : "F", reason.data(), "\r\r\n", "\r\n", "\r\r\n");
  return files.Write(result.data(), kWriteError);
}

bool write_field(const RunnerFiles& files, std::string_view tag,
                 const BIGNUM* value) {
  return files.Write(tag, kWriteError) && WriteBignumHex(files, value) &&
         files.WriteEol();
}

// d = e^-1 mod lcm(p - 1, q - 1), with lcm = (n - p - q + 1) / gcd(p - 1,
// q - 1): the FIPS 186-3 form, whatever d the key object carries.
UniqueBignum lcm_private_exponent(const BIGNUM* n, const BIGNUM* e,
                                  const BIGNUM* p, const BIGNUM* q,
                                  BN_CTX* ctx) {
  UniqueBignum p_minus_1(BN_dup(p));
  UniqueBignum q_minus_1(BN_dup(q));
  UniqueBignum gcd(BN_new());
  UniqueBignum lcm(BN_dup(n));
  if (!p_minus_1 || !q_minus_1 || !gcd || !lcm ||
      !BN_sub_word(p_minus_1.get(), 1) || !BN_sub_word(q_minus_1.get(), 1) ||
      !BN_gcd(gcd.get(), p_minus_1.get(), q_minus_1.get(), ctx) ||
      !BN_sub(lcm.get(), lcm.get(), p) || !BN_sub(lcm.get(), lcm.get(), q) ||
      !BN_add_word(lcm.get(), 1) ||
      !BN_div(lcm.get(), nullptr, lcm.get(), gcd.get(), ctx)) {
    return nullptr;
  }
  return UniqueBignum(BN_mod_inverse(nullptr, e, lcm.get(), ctx));
}

// Generates, checks and writes one key pair of nlen bits, preceded by an
// empty line.
bool write_random_key(const RunnerFiles& files, int nlen, BN_CTX* ctx) {
  UniqueRsa rsa(RSA_new());
  UniqueBignum exponent(BN_new());
  if (!rsa || !exponent || !BN_set_word(exponent.get(), kPublicExponent)) {
    Fail("Error generating RSA");
    return false;
  }
  if (RSA_generate_key_ex(rsa.get(), nlen, exponent.get(), nullptr) != 1) {
    Fail("Error generating key pair");
    return false;
  }
  if (RSA_check_key(rsa.get()) != 1) {
    Fail("Error checking the key pair");
    return false;
  }
  const BIGNUM* n = nullptr;
  const BIGNUM* e = nullptr;
  const BIGNUM* p = nullptr;
  const BIGNUM* q = nullptr;
  RSA_get0_key(rsa.get(), &n, &e, nullptr);
  RSA_get0_factors(rsa.get(), &p, &q);
  const UniqueBignum d = lcm_private_exponent(n, e, p, q, ctx);
  if (!d) {
    Fail("Error computing d");
    return false;
  }
  return files.WriteEol() && write_field(files, "e = ", e) &&
         write_field(files, "p = ", p) && write_field(files, "q = ", q) &&
         write_field(files, "n = ", n) && write_field(files, "d = ", d.get());
}

}  // namespace

int b33_rounds(int nlen) { return nlen / 2 == 1536 ? 4 : 5; }

int b33_test(int nlen, const BIGNUM* e, const BIGNUM* p, const BIGNUM* q,
             char* reason, std::size_t size) {
  const auto result = [&](int pass, const char* text) {
    if (size > 0) std::snprintf(reason, size, "%s", text);
    return pass;
  };
  if (size > 0) reason[0] = 0;
  if (nlen < 0) return result(0, "Invalid modulus size");
  UniqueBnCtx ctx(BN_CTX_new());
  if (!ctx) return result(0, "Error allocating BN_CTX");

  const int half = nlen / 2;
  const int rounds = b33_rounds(nlen);
  bool below = false;
  bool good = false;
  bool apart = false;
  if (!below_sqrt2_bound(p, half, ctx.get(), &below)) {
    return result(0, "Error computing the p bound");
  }
  if (below) return result(0, kStep44);
  if (!coprime_and_prime(p, e, rounds, ctx.get(), &good)) {
    return result(0, "Error testing p");
  }
  if (!good) return result(0, kStep47);
  if (!far_enough_apart(p, q, half, &apart)) {
    return result(0, "Error computing the distance of p and q");
  }
  if (!apart) return result(0, kStep54);
  if (!below_sqrt2_bound(q, half, ctx.get(), &below)) {
    return result(0, "Error computing the q bound");
  }
  if (below) return result(0, kStep55);
  if (!coprime_and_prime(q, e, rounds, ctx.get(), &good)) {
    return result(0, "Error testing q");
  }
  if (!good) return result(0, kStep58);
  return result(1, kStepPass);
}

void test_rsa_keygen_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  std::array<char, kLineSize> line{};
  while (files.ReadLine(line.data(), kLineSize)) {
    if (!files.Copy(line.data())) return;
  }
}

void test_rsa_keygen_kat_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  std::array<char, kLineSize> line{};
  int nlen = 0;
  // A record's values, owned here rather than by a key object that nothing
  // reads. p keeps its value from the record before when a record has no
  // "prandom = " line; q starts each record at zero.
  UniqueBignum e;
  UniqueBignum p(BN_new());
  UniqueBignum q;
  bool record_open = false;
  if (!p) {
    Fail("Error allocating BIGNUM");
    return;
  }

  while (files.ReadLine(line.data(), kLineSize)) {
    const char* l = line.data();
    if (starts_with(l, kPrimeMethodTag)) {
      // Copied only.
    } else if (starts_with(l, kModulusTag)) {
      if (!extract_modulus_size(l, &nlen)) {
        Fail("Error extracting modulus size");
        return;
      }
      if (!is_signature_modulus_size(nlen)) {
        std::printf("Invalid modulus size (%d)\n", nlen);
        return;
      }
    } else if (starts_with(l, kExponentTag)) {
      if (record_open) {
        Fail("Didn't find section end");
        return;
      }
      if (!extract_bn(l, kExponentTag, &e)) {
        Fail("Error extracting E");
        return;
      }
      q.reset(BN_new());
      if (!q) {
        Fail("Error allocating BIGNUM");
        return;
      }
      record_open = true;
    } else if (starts_with(l, kPrandomTag)) {
      if (!extract_bn(l, kPrandomTag, &p)) {
        Fail("Error extracting PR");
        return;
      }
    } else if (starts_with(l, kQrandomTag)) {
      if (!extract_bn(l, kQrandomTag, &q)) {
        Fail("Error extracting QR");
        return;
      }
    } else if (record_open && starts_with(l, kKatRecordEnd)) {
      if (!write_kat_result(files, nlen, e.get(), p.get(), q.get())) return;
      record_open = false;
      continue;  // the result replaces the record-ending line
    }
    if (!files.Copy(l)) return;
  }
}

void test_rsa_keygen_rp_prime_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  UniqueBnCtx ctx(BN_CTX_new());
  if (!ctx) {
    Fail("Error generating RSA");
    return;
  }
  std::array<char, kLineSize> line{};
  int nlen = 0;
  bool section_open = false;
  while (files.ReadLine(line.data(), kLineSize)) {
    if (starts_with(line.data(), kModulusTag)) {
      if (!extract_modulus_size(line.data(), &nlen)) {
        Fail("Error extracting modulus size");
        return;
      }
      if ((nlen & ~1024) != 2048 && nlen != 4096) {
        std::printf("Invalid modulus size (%d)\n", nlen);
        return;
      }
      section_open = true;
    } else if (section_open && starts_with(line.data(), kBlankLine)) {
      // The blank line and everything up to the "N = " line are consumed.
      do {
        if (!files.ReadLine(line.data(), kLineSize)) {
          Fail("Didn't find loop num");
          return;
        }
      } while (!starts_with(line.data(), kLoopTag));
      int count = 0;
      if (!extract_n(line.data(), kLoopTag, &count)) {
        Fail("Error extracting loop num");
        return;
      }
      if (count == 0) {
        std::printf("Invalid loop num (%d)\n", count);
        return;
      }
      for (int i = 0; i < count; ++i) {
        if (!write_random_key(files, nlen, ctx.get())) return;
      }
      section_open = false;
      continue;
    }
    if (!files.Copy(line.data())) return;
  }
}

}  // namespace fipsval
