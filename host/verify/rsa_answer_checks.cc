#include "host/verify/rsa_answer_checks.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/owners.h"

namespace fipsval::host {
namespace {

std::optional<std::string> ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Lines without their ending: CR LF or the KAT files' CR CR LF.
std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t lf = text.find('\n');
    std::string_view line = text.substr(0, lf);
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (lf == std::string_view::npos) break;
    text.remove_prefix(lf + 1);
  }
  return lines;
}

bool Fail(AnswerCheck* check, std::size_t line, std::string_view what) {
  check->ok = false;
  check->problem = "line " + std::to_string(line) + ": " + std::string(what);
  return false;
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

std::optional<std::vector<uint8_t>> HexBytes(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::string pair(hex.substr(2 * i, 2));
    char* end = nullptr;
    const long v = std::strtol(pair.c_str(), &end, 16);
    if (end != pair.c_str() + 2 || pair[0] == '-' || pair[0] == '+') {
      return std::nullopt;
    }
    bytes[i] = static_cast<uint8_t>(v);
  }
  return bytes;
}

// The number of a "[mod = N]" line, or -1.
int ModulusBits(std::string_view line) {
  const std::string value(line.substr(std::string_view("[mod = ").size()));
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
  bool answered;  // the runner signs tests of this digest
};
constexpr std::array<Digest, 5> kDigests = {{
    {"SHA1", NID_sha1, true},
    {"SHA224", NID_sha224, false},
    {"SHA256", NID_sha256, true},
    {"SHA384", NID_sha384, true},
    {"SHA512", NID_sha512, true},
}};

const Digest* FindDigest(std::string_view name) {
  for (const Digest& d : kDigests) {
    if (d.name == name) return &d;
  }
  return nullptr;
}

bool VerifyPkcs1(const Digest& digest, const std::vector<uint8_t>& msg,
                 const std::vector<uint8_t>& sig, const BIGNUM* n,
                 const BIGNUM* e) {
  std::array<uint8_t, EVP_MAX_MD_SIZE> md;
  unsigned md_len = 0;
  const EVP_MD* type = EVP_get_digestbynid(digest.nid);
  if (!type || !EVP_Digest(msg.data(), msg.size(), md.data(), &md_len, type,
                           nullptr)) {
    return false;
  }
  Rsa rsa(RSA_new());
  Bignum n_copy(BN_dup(n));
  Bignum e_copy(BN_dup(e));
  if (!rsa || !n_copy || !e_copy ||
      !RSA_set0_key(rsa.get(), n_copy.get(), e_copy.get(), nullptr)) {
    return false;
  }
  n_copy.release();  // owned by rsa now
  e_copy.release();
  return RSA_verify(digest.nid, md.data(), md_len, sig.data(),
                    static_cast<unsigned>(sig.size()), rsa.get()) == 1;
}

// One SigGen test: its SHAAlg line and what followed it.
struct SigTest {
  std::size_t line = 0;  // 0: no test open
  const Digest* digest = nullptr;
  std::optional<std::vector<uint8_t>> msg;
  bool answered = false;
};

bool CloseSigTest(const SigTest& test, AnswerCheck* check) {
  if (test.line == 0 || test.answered || !test.digest ||
      !test.digest->answered) {
    return true;
  }
  return Fail(check, test.line,
              "the SHAAlg = " + std::string(test.digest->name) +
                  " test has no S");
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

bool CheckKey(const KeyFields& key, int nlen, BN_CTX* ctx, AnswerCheck* check) {
  const std::size_t at = key.line;
  if (nlen <= 0) return Fail(check, at, "key before any [mod = ...] line");
  if (!key.e || !key.p || !key.q || !key.n || !key.d) {
    return Fail(check, at, "key lacks one of e, p, q, n, d");
  }
  if (!BN_is_word(key.e.get(), 65537)) return Fail(check, at, "e is not 65537");
  const int half = nlen / 2;
  if (BN_num_bits(key.p.get()) != half || BN_num_bits(key.q.get()) != half) {
    return Fail(check, at,
                "p or q is not of " + std::to_string(half) + " bits");
  }
  if (!IsPrime(key.p.get(), ctx)) return Fail(check, at, "p is not prime");
  if (!IsPrime(key.q.get(), ctx)) return Fail(check, at, "q is not prime");
  Bignum product(BN_new());
  if (!product || !BN_mul(product.get(), key.p.get(), key.q.get(), ctx) ||
      BN_cmp(product.get(), key.n.get()) != 0) {
    return Fail(check, at, "n is not p*q");
  }
  if (BN_num_bits(key.n.get()) != nlen) {
    return Fail(check, at, "n is not of " + std::to_string(nlen) + " bits");
  }
  if (!IsLcmInverse(key.d.get(), key.e.get(), key.p.get(), key.q.get(), ctx)) {
    return Fail(check, at, "d is not e^-1 mod lcm(p-1, q-1)");
  }
  ++check->checked;
  return true;
}

}  // namespace

AnswerCheck CheckSigGenResponse(const std::string& response_path) {
  const std::optional<std::string> text = ReadText(response_path);
  if (!text) {
    AnswerCheck check;
    Fail(&check, 0, "cannot read " + response_path);
    return check;
  }
  return CheckSigGenAnswers(*text);
}

AnswerCheck CheckSigGenAnswers(std::string_view text) {
  AnswerCheck check;
  int bits = -1;
  Bignum n, e;
  SigTest test;
  const std::vector<std::string_view> lines = Lines(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::size_t at = i + 1;
    const std::string_view line = lines[i];
    if (line.starts_with("[mod = ")) {
      if (!CloseSigTest(test, &check)) return check;
      test = SigTest();
      bits = ModulusBits(line);
      if (bits < 0) {
        Fail(&check, at, "unreadable modulus size");
        return check;
      }
      n.reset();
      e.reset();
    } else if (line.starts_with("n = ")) {
      n = HexValue(line, "n = ");
      if (!n) {
        Fail(&check, at, "unreadable n");
        return check;
      }
      if (BN_num_bits(n.get()) != bits) {
        Fail(&check, at, "n is not of the section's " + std::to_string(bits) +
                             " bits");
        return check;
      }
    } else if (line.starts_with("e = ")) {
      e = HexValue(line, "e = ");
      if (!e) {
        Fail(&check, at, "unreadable e");
        return check;
      }
    } else if (line.starts_with("SHAAlg = ")) {
      if (!CloseSigTest(test, &check)) return check;
      test = SigTest();
      test.line = at;
      test.digest = FindDigest(line.substr(std::string_view("SHAAlg = ").size()));
    } else if (line.starts_with("Msg = ")) {
      test.msg = HexBytes(line.substr(std::string_view("Msg = ").size()));
      if (!test.msg) {
        Fail(&check, at, "unreadable Msg");
        return check;
      }
    } else if (line.starts_with("S = ")) {
      if (test.line == 0 || !test.digest || !test.msg || test.answered) {
        Fail(&check, at, "S without its own SHAAlg and Msg");
        return check;
      }
      if (!n || !e) {
        Fail(&check, at, "S before the section's n and e");
        return check;
      }
      const auto sig = HexBytes(line.substr(std::string_view("S = ").size()));
      if (!sig) {
        Fail(&check, at, "unreadable S");
        return check;
      }
      if (!VerifyPkcs1(*test.digest, *test.msg, *sig, n.get(), e.get())) {
        Fail(&check, at,
             "S does not verify under the section's n and e with " +
                 std::string(test.digest->name));
        return check;
      }
      test.answered = true;
      ++check.checked;
    }
  }
  if (!CloseSigTest(test, &check)) return check;
  if (check.checked == 0) Fail(&check, lines.size(), "no S line to check");
  return check;
}

AnswerCheck CheckRandomProbablePrimeResponse(const std::string& response_path) {
  const std::optional<std::string> text = ReadText(response_path);
  if (!text) {
    AnswerCheck check;
    Fail(&check, 0, "cannot read " + response_path);
    return check;
  }
  return CheckRandomProbablePrimeAnswers(*text);
}

AnswerCheck CheckRandomProbablePrimeAnswers(std::string_view text) {
  AnswerCheck check;
  BnCtx ctx(BN_CTX_new());
  if (!ctx) {
    Fail(&check, 0, "out of memory");
    return check;
  }
  int nlen = -1;
  KeyFields key;
  const std::vector<std::string_view> lines = Lines(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::size_t at = i + 1;
    const std::string_view line = lines[i];
    if (line.starts_with("[mod = ")) {
      if (key.line != 0) {
        Fail(&check, key.line, "key lacks one of e, p, q, n, d");
        return check;
      }
      nlen = ModulusBits(line);
      if (nlen < 0) {
        Fail(&check, at, "unreadable modulus size");
        return check;
      }
      continue;
    }
    static constexpr std::array<std::string_view, 5> kTags = {
        "e = ", "p = ", "q = ", "n = ", "d = "};
    Bignum* const fields[] = {&key.e, &key.p, &key.q, &key.n, &key.d};
    for (std::size_t f = 0; f < kTags.size(); ++f) {
      if (!line.starts_with(kTags[f])) continue;
      if (f == 0 && key.line != 0) {
        Fail(&check, key.line, "key lacks one of e, p, q, n, d");
        return check;
      }
      if (key.line == 0) key.line = at;
      *fields[f] = HexValue(line, kTags[f]);
      if (!*fields[f]) {
        Fail(&check, at, "unreadable " + std::string(kTags[f].substr(0, 1)));
        return check;
      }
      if (f == kTags.size() - 1) {
        if (!CheckKey(key, nlen, ctx.get(), &check)) return check;
        key = KeyFields();
      }
    }
  }
  if (key.line != 0) {
    Fail(&check, key.line, "key lacks one of e, p, q, n, d");
  } else if (check.checked == 0) {
    Fail(&check, lines.size(), "no key to check");
  }
  return check;
}

AnswerCheck CheckSigVerAnswers(std::string_view request,
                               std::string_view response) {
  AnswerCheck check;
  // The expected response: request lines (which end at CR LF, as the
  // runner reads them) up to the first supported SHAAlg line.
  static constexpr std::array<std::string_view, 4> kSupported = {
      "SHAAlg = SHA1", "SHAAlg = SHA256", "SHAAlg = SHA384",
      "SHAAlg = SHA512"};
  std::string_view rest = request;
  std::size_t expected_size = 0;
  bool stops = false;
  while (!rest.empty()) {
    const std::size_t end = rest.find("\r\n");
    const std::size_t len =
        end == std::string_view::npos ? rest.size() : end + 2;
    const std::string_view line = rest.substr(0, len);
    if (!stops) expected_size += len;
    rest.remove_prefix(len);
    check.tests += line.starts_with("SHAAlg = ");
    for (std::string_view tag : kSupported) stops = stops || line.starts_with(tag);
  }
  check.stopped_at_first_test = stops;
  const std::string_view expected = request.substr(0, expected_size);

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
    Fail(&check, line_of(same),
         "response goes on after the first supported SHAAlg line");
  } else if (same == response.size()) {
    Fail(&check, line_of(same), "response ends before the first supported "
                                "SHAAlg line of the request");
  } else {
    Fail(&check, line_of(same), "response differs from the request");
  }
  return check;
}

}  // namespace fipsval::host
