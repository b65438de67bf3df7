#include "host/verify/rsa_answer_checks.h"

#include <openssl/bn.h>
#include <openssl/obj_mac.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "host/base/owners.h"
#include "host/base/text.h"
#include "host/verify/pkcs1.h"

namespace fipsval::host {
namespace {

constexpr std::string_view kModulus = "[mod = ";
constexpr std::string_view kDigestTag = "SHAAlg = ";

Status LineFailure(std::size_t line, std::string_view what) {
  return Refused("line " + std::to_string(line) + ": " + std::string(what));
}

// The hex value after tag; null when it holds no hex digit or anything
// after its digits.
Bignum HexValue(std::string_view line, std::string_view tag) {
  const std::string value(line.substr(tag.size()));
  BIGNUM* bn = nullptr;
  const int digits = BN_hex2bn(&bn, value.c_str());
  Bignum owned(bn);
  if (digits == 0 || static_cast<std::size_t>(digits) != value.size()) {
    return nullptr;
  }
  return owned;
}

// The number of a "[mod = N]" line, or -1.
int ModulusBits(std::string_view line) {
  const std::string value(line.substr(kModulus.size()));
  char* end = nullptr;
  const long bits = std::strtol(value.c_str(), &end, 10);
  if (end == value.c_str() || std::string_view(end) != "]" || bits <= 0 ||
      bits > 1 << 16) {
    return -1;
  }
  return static_cast<int>(bits);
}

struct Digest {
  std::string_view name;
  int nid;
};
constexpr Digest kDigests[] = {{"SHA1", NID_sha1},
                               {"SHA224", NID_sha224},
                               {"SHA256", NID_sha256},
                               {"SHA384", NID_sha384},
                               {"SHA512", NID_sha512}};

const Digest* FindDigest(std::string_view name) {
  for (const Digest& d : kDigests) {
    if (d.name == name) return &d;
  }
  return nullptr;
}

bool Signs(const RequestShape& shape, std::string_view digest) {
  for (std::string_view d : shape.digests) {
    if (d == digest) return true;
  }
  return false;
}

// The SigGen response, a line at a time.
class SigGenCheck {
 public:
  explicit SigGenCheck(const RequestShape& shape) : shape_(shape) {}

  Status Take(std::size_t at, std::string_view line);
  Status Finish(std::size_t lines) const;
  int checked() const { return checked_; }

 private:
  // One test: its SHAAlg line and what followed it.
  struct Test {
    std::size_t line = 0;  // 0: no test open
    std::string_view digest;
    std::optional<std::vector<uint8_t>> msg;
    bool answered = false;
  };

  Status CloseTest() const;
  Status Signature(std::size_t at, std::string_view line);

  const RequestShape& shape_;
  int bits_ = -1;
  Bignum n_, e_;
  Test test_;
  int checked_ = 0;
};

Status SigGenCheck::CloseTest() const {
  if (test_.line == 0 || test_.answered || !Signs(shape_, test_.digest)) {
    return Ok();
  }
  return LineFailure(test_.line, "the SHAAlg = " + std::string(test_.digest) +
                                     " test has no S");
}

Status SigGenCheck::Take(std::size_t at, std::string_view line) {
  if (line.starts_with(kModulus) || line.starts_with(kDigestTag)) {
    if (Status closed = CloseTest(); !closed.ok()) return closed;
    test_ = Test();
  }
  if (line.starts_with(kModulus)) {
    bits_ = ModulusBits(line);
    n_.reset();
    e_.reset();
    if (bits_ < 0) return LineFailure(at, "unreadable modulus size");
  } else if (line.starts_with("n = ")) {
    n_ = HexValue(line, "n = ");
    if (!n_) return LineFailure(at, "unreadable n");
    if (BN_num_bits(n_.get()) != bits_) {
      return LineFailure(at, "n is not of the section's " +
                                 std::to_string(bits_) + " bits");
    }
  } else if (line.starts_with("e = ")) {
    e_ = HexValue(line, "e = ");
    if (!e_) return LineFailure(at, "unreadable e");
  } else if (line.starts_with(kDigestTag)) {
    test_.line = at;
    test_.digest = line.substr(kDigestTag.size());
  } else if (line.starts_with("Msg = ")) {
    test_.msg = HexBytes(line.substr(6));
    if (!test_.msg) return LineFailure(at, "unreadable Msg");
  } else if (line.starts_with("S = ")) {
    return Signature(at, line);
  }
  return Ok();
}

Status SigGenCheck::Signature(std::size_t at, std::string_view line) {
  const Digest* digest = FindDigest(test_.digest);
  if (test_.line == 0 || !digest || !test_.msg || test_.answered) {
    return LineFailure(at, "S without its own SHAAlg and Msg");
  }
  if (!n_ || !e_) return LineFailure(at, "S before the section's n and e");
  const auto sig = HexBytes(line.substr(4));
  if (!sig) return LineFailure(at, "unreadable S");
  if (!Pkcs1Verifies(digest->nid, *test_.msg, *sig, n_.get(), e_.get())) {
    return LineFailure(at, "S does not verify under the section's n and e with " +
                               std::string(digest->name));
  }
  test_.answered = true;
  ++checked_;
  return Ok();
}

Status SigGenCheck::Finish(std::size_t lines) const {
  if (Status closed = CloseTest(); !closed.ok()) return closed;
  return checked_ == 0 ? LineFailure(lines, "no S line to check") : Ok();
}

// x is prime, with OpenSSL's default number of rounds for its size.
bool IsPrime(const BIGNUM* x, BN_CTX* ctx) {
  return BN_is_prime_ex(x, BN_prime_checks, ctx, nullptr) == 1;
}

// d * e = 1 mod lcm(p - 1, q - 1), d below the lcm.
bool IsLcmInverse(const BIGNUM* d, const BIGNUM* e, const BIGNUM* p,
                  const BIGNUM* q, BN_CTX* ctx) {
  Bignum p1(BN_dup(p)), q1(BN_dup(q)), gcd(BN_new()), lcm(BN_new()),
      de(BN_new());
  if (!p1 || !q1 || !gcd || !lcm || !de || !BN_sub_word(p1.get(), 1) ||
      !BN_sub_word(q1.get(), 1) ||
      !BN_gcd(gcd.get(), p1.get(), q1.get(), ctx) ||
      !BN_mul(lcm.get(), p1.get(), q1.get(), ctx) ||
      !BN_div(lcm.get(), nullptr, lcm.get(), gcd.get(), ctx) ||
      !BN_mod_mul(de.get(), d, e, lcm.get(), ctx)) {
    return false;
  }
  return BN_cmp(d, lcm.get()) < 0 && !BN_is_negative(d) && BN_is_one(de.get());
}

struct KeyFields {
  std::size_t line = 0;  // of the key's first field; 0: no key open
  Bignum e, p, q, n, d;
};

Status CheckKey(const KeyFields& key, int nlen, BN_CTX* ctx) {
  const std::size_t at = key.line;
  if (nlen <= 0) return LineFailure(at, "key before any [mod = ...] line");
  if (!key.e || !key.p || !key.q || !key.n || !key.d) {
    return LineFailure(at, "key lacks one of e, p, q, n, d");
  }
  if (!BN_is_word(key.e.get(), 65537)) return LineFailure(at, "e is not 65537");
  const int half = nlen / 2;
  if (BN_num_bits(key.p.get()) != half || BN_num_bits(key.q.get()) != half) {
    return LineFailure(at, "p or q is not of " + std::to_string(half) + " bits");
  }
  if (!IsPrime(key.p.get(), ctx)) return LineFailure(at, "p is not prime");
  if (!IsPrime(key.q.get(), ctx)) return LineFailure(at, "q is not prime");
  Bignum product(BN_new());
  if (!product || !BN_mul(product.get(), key.p.get(), key.q.get(), ctx) ||
      BN_cmp(product.get(), key.n.get()) != 0) {
    return LineFailure(at, "n is not p*q");
  }
  if (BN_num_bits(key.n.get()) != nlen) {
    return LineFailure(at, "n is not of " + std::to_string(nlen) + " bits");
  }
  if (!IsLcmInverse(key.d.get(), key.e.get(), key.p.get(), key.q.get(), ctx)) {
    return LineFailure(at, "d is not e^-1 mod lcm(p-1, q-1)");
  }
  return Ok();
}

// A key field of one line: its index in e, p, q, n, d, or -1.
int KeyField(std::string_view line) {
  static constexpr std::string_view kTags[] = {"e = ", "p = ", "q = ", "n = ",
                                               "d = "};
  for (int f = 0; f < 5; ++f) {
    if (line.starts_with(kTags[f])) return f;
  }
  return -1;
}

// The response lines up to the first supported test of the request (whose
// lines end at CR LF, as the runner reads them), and how many tests it has.
std::string_view SigVerExpected(const RequestShape& shape,
                                std::string_view request, int* tests,
                                bool* stops) {
  std::size_t expected_size = 0;
  for (std::string_view rest = request; !rest.empty();) {
    const std::size_t end = rest.find("\r\n");
    const std::size_t len = end == std::string_view::npos ? rest.size() : end + 2;
    const std::string_view line = rest.substr(0, len);
    if (!*stops) expected_size += len;
    rest.remove_prefix(len);
    if (!line.starts_with(shape.test_tag)) continue;
    ++*tests;
    std::string_view digest = line.substr(shape.test_tag.size());
    for (std::string_view d : shape.digests) {
      *stops = *stops || digest.starts_with(d);
    }
  }
  return request.substr(0, expected_size);
}

}  // namespace

AnswerCheck CheckSigGenAnswers(const RequestShape& shape,
                               std::string_view response) {
  SigGenCheck sig_gen(shape);
  AnswerCheck check;
  const std::vector<Line> lines = Lines(response);
  for (const Line& line : lines) {
    check.status = sig_gen.Take(static_cast<std::size_t>(line.number), line.text);
    if (!check.status.ok()) break;
  }
  if (check.status.ok()) check.status = sig_gen.Finish(lines.size());
  check.checked = sig_gen.checked();
  return check;
}

AnswerCheck CheckRandomProbablePrimeAnswers(std::string_view response) {
  AnswerCheck check;
  BnCtx ctx(BN_CTX_new());
  if (!ctx) return {LineFailure(0, "out of memory")};
  const auto fail = [&](std::size_t at, std::string_view what) {
    check.status = LineFailure(at, what);
    return check;
  };
  int nlen = -1;
  KeyFields key;
  const std::vector<Line> lines = Lines(response);
  for (const Line& line : lines) {
    const auto at = static_cast<std::size_t>(line.number);
    const int field = KeyField(line.text);
    const bool modulus = line.text.starts_with(kModulus);
    if ((modulus || field == 0) && key.line != 0) {
      return fail(key.line, "key lacks one of e, p, q, n, d");
    }
    if (modulus && (nlen = ModulusBits(line.text)) < 0) {
      return fail(at, "unreadable modulus size");
    }
    if (modulus || field < 0) continue;
    if (key.line == 0) key.line = at;
    Bignum* const fields[] = {&key.e, &key.p, &key.q, &key.n, &key.d};
    *fields[field] = HexValue(line.text, line.text.substr(0, 4));
    if (!*fields[field]) return fail(at, "unreadable " + std::string(1, line.text[0]));
    if (field < 4) continue;
    if (Status s = CheckKey(key, nlen, ctx.get()); !s.ok()) return {s};
    ++check.checked;
    key = KeyFields();
  }
  if (key.line != 0) return fail(key.line, "key lacks one of e, p, q, n, d");
  if (check.checked == 0) return fail(lines.size(), "no key to check");
  return check;
}

AnswerCheck CheckSigVerAnswers(const RequestShape& shape,
                               std::string_view request,
                               std::string_view response) {
  AnswerCheck check;
  const std::string_view expected = SigVerExpected(
      shape, request, &check.tests, &check.stopped_at_first_test);
  std::size_t same = 0;
  while (same < expected.size() && same < response.size() &&
         expected[same] == response[same]) {
    ++same;
  }
  const auto line_of = [&](std::size_t offset) {
    std::size_t line = 1;
    for (std::size_t i = 0; i < offset; ++i) line += expected[i] == '\n';
    return line;
  };
  check.checked = static_cast<int>(line_of(same)) - 1;
  if (same == expected.size() && same == response.size()) return check;
  if (same == expected.size()) {
    check.status = LineFailure(
        line_of(same), "response goes on after the first supported SHAAlg line");
  } else if (same == response.size()) {
    check.status = LineFailure(line_of(same),
                               "response ends before the first supported "
                               "SHAAlg line of the request");
  } else {
    check.status = LineFailure(line_of(same), "response differs from the request");
  }
  return check;
}

}  // namespace fipsval::host
