// RSA key-generation runners for FIPS 186-3: the KeyGen request copied
// through, the appendix B.3.3 known-answer test on given candidate primes,
// and random probable-prime key pairs generated N at a time.
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "fipsval.h"
#include "harness/owners.h"
#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/rsa_common.h"

// The public exponent of generated keys, exported for the host. Nothing in
// the library reads it.
extern "C" const uint32_t exps = 65537;

namespace fipsval {
namespace {

constexpr unsigned long kPublicExponent = 65537;

constexpr char kPrimeMethodTag[] = "[PrimeMethod = ";
constexpr char kExponentTag[] = "e = ";
constexpr char kPrandomTag[] = "prandom = ";
constexpr char kQrandomTag[] = "qrandom = ";
constexpr char kLoopTag[] = "N = ";
// KAT lines end in CR CR LF; a line holding only that ends a record.
constexpr char kKatRecordEnd[] = "\r\r\n";

// When the line begins with tag, reads the hex value after it into *bn with
// BN_hex2bn, which stops at the CR of the line end (CR LF or CR CR LF), and
// returns true. A value without hex digits leaves *bn as it was (zero when
// it held nothing).
bool extract_bn(const Session& s, std::string_view tag, UniqueBignum* bn) {
  if (!s.Has(tag, Match::kBegins)) return false;
  BIGNUM* value = nullptr;
  if (BN_hex2bn(&value, s.line() + tag.size()) != 0) {
    bn->reset(value);
  } else if (!*bn) {
    bn->reset(BN_new());
  }
  return true;
}

// Writes "Result = P|F (reason)" with the KAT file's own line ends in place
// of the record-ending line.
bool WriteKatResult(const Session& s, int nlen, const BIGNUM* e,
                    const BIGNUM* p, const BIGNUM* q) {
  std::array<char, 100> reason{};
  const int pass = b33_test(nlen, e, p, q, reason.data(), reason.size());
  std::array<char, 1024> result{};
  std::snprintf(result.data(), result.size(), "Result = %s (%s)%s%s%s",
                pass ? "P" : "F", reason.data(), "\r\r\n", "\r\n", "\r\r\n");
  return s.Write(result.data(), kCopyError);
}

bool WriteField(const Session& s, std::string_view tag, const BIGNUM* value) {
  return s.Write(tag, kCopyError) && WriteBignumHex(s, value) && s.WriteEol();
}

// d = e^-1 mod lcm(p - 1, q - 1), with lcm = (n - p - q + 1) / gcd(p - 1,
// q - 1): the FIPS 186-3 form, whatever d the key object carries.
UniqueBignum LcmPrivateExponent(const BIGNUM* n, const BIGNUM* e,
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
bool WriteRandomKey(const Session& s, int nlen, BN_CTX* ctx) {
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
  const BIGNUM* n = RSA_get0_n(rsa.get());
  const BIGNUM* e = RSA_get0_e(rsa.get());
  const BIGNUM* p = RSA_get0_p(rsa.get());
  const BIGNUM* q = RSA_get0_q(rsa.get());
  const UniqueBignum d = LcmPrivateExponent(n, e, p, q, ctx);
  if (!d) {
    Fail("Error computing d");
    return false;
  }
  return s.WriteEol() && WriteField(s, "e = ", e) && WriteField(s, "p = ", p) &&
         WriteField(s, "q = ", q) && WriteField(s, "n = ", n) &&
         WriteField(s, "d = ", d.get());
}

}  // namespace

void test_rsa_keygen_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<4096> s(req, rsp);
  while (s.Next()) {
    if (!s.Copy()) return;
  }
}

void test_rsa_keygen_kat_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<4096> s(req, rsp);
  int nlen = 0;
  // A record's values, owned here rather than by a key object that nothing
  // reads. p keeps its value from the record before when a record has no
  // "prandom = " line; q starts each record at zero.
  UniqueBignum e(BN_new());
  UniqueBignum p(BN_new());
  UniqueBignum q;
  bool record_open = false;
  if (!e || !p) {
    Fail("Error allocating BIGNUM");
    return;
  }
  while (s.Next()) {
    if (s.Has(kPrimeMethodTag, Match::kBegins)) {
      // Copied only.
    } else if (s.Has(kModulusTag, Match::kBegins)) {
      if (!ReadModulusSize(s, IsSignatureModulusSize, &nlen)) return;
    } else if (s.Has(kExponentTag, Match::kBegins)) {
      if (record_open) {
        Fail("Didn't find section end");
        return;
      }
      extract_bn(s, kExponentTag, &e);
      q.reset(BN_new());
      if (!q) {
        Fail("Error allocating BIGNUM");
        return;
      }
      record_open = true;
    } else if (extract_bn(s, kPrandomTag, &p) ||
               extract_bn(s, kQrandomTag, &q)) {
      // Copied once read.
    } else if (record_open && s.Has(kKatRecordEnd, Match::kBegins)) {
      if (!WriteKatResult(s, nlen, e.get(), p.get(), q.get())) return;
      record_open = false;
      continue;  // the result replaces the record-ending line
    }
    if (!s.Copy()) return;
  }
}

void test_rsa_keygen_rp_prime_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<4096> s(req, rsp);
  UniqueBnCtx ctx(BN_CTX_new());
  if (!ctx) {
    Fail("Error generating RSA");
    return;
  }
  int nlen = 0;
  bool section_open = false;
  const auto accepted = [](int bits) {
    return (bits & ~1024) == 2048 || bits == 4096;
  };
  while (s.Next()) {
    if (s.Has(kModulusTag, Match::kBegins)) {
      if (!ReadModulusSize(s, accepted, &nlen)) return;
      section_open = true;
    } else if (section_open && s.Has("\r\n", Match::kBegins)) {
      // The blank line and everything up to the "N = " line are consumed.
      do {
        if (!s.Next()) {
          Fail("Didn't find loop num");
          return;
        }
      } while (!s.Has(kLoopTag, Match::kBegins));
      // strtol without a digit check: a count without digits reads as 0.
      const auto count = static_cast<int>(s.Number(kLoopTag));
      if (count == 0) {
        std::printf("Invalid loop num (%d)\n", count);
        return;
      }
      for (int i = 0; i < count; ++i) {
        if (!WriteRandomKey(s, nlen, ctx.get())) return;
      }
      section_open = false;
      continue;
    }
    if (!s.Copy()) return;
  }
}

}  // namespace fipsval
