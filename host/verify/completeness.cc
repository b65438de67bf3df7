#include "host/verify/completeness.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>
#include <vector>

namespace fipsval::host {
namespace {


enum class Kind {
  kCipher,       // AES and TDES known-answer and multi-message files
  kAesMonteCbc,  // a seed becomes 100 records of 5 lines
  kAesMonteEcb,  // 100 records of 4 lines
  kTdesMonte,    // 400 records of 7 lines
  kShaMessages,
  kShaMonte,  // 100 records of COUNT and MD after the Seed line
  kHmac,
  kDrbg,
  kSsh,
  kTls,
  kSigGen,
  kKeyGenCopy,
  kKeyGenKat,
  kKeyGenRandom,  // N = k becomes k keys of 5 lines
  kUnknown,
};

Kind KindOf(std::string_view name) {
  if (name == "SigGen15_186-3") return Kind::kSigGen;
  if (name == "KeyGen_186-3") return Kind::kKeyGenCopy;
  if (name == "KeyGen3_3_KAT") return Kind::kKeyGenKat;
  if (name == "KeyGen_RandomProbablyPrime3_3") return Kind::kKeyGenRandom;
  if (name == "CTR_DRBG") return Kind::kDrbg;
  if (name == "HMAC") return Kind::kHmac;
  if (name == "ssh") return Kind::kSsh;
  if (name == "tls") return Kind::kTls;
  if (name.starts_with("SHA")) {
    return name.ends_with("Monte") ? Kind::kShaMonte : Kind::kShaMessages;
  }
  if (name.starts_with("CBCMCT")) return Kind::kAesMonteCbc;
  if (name.starts_with("ECBMCT")) return Kind::kAesMonteEcb;
  if (name.starts_with("TCBCMonte")) return Kind::kTdesMonte;
  if (name.starts_with("CBC") || name.starts_with("ECB") ||
      name.starts_with("TCBC")) {
    return Kind::kCipher;
  }
  return Kind::kUnknown;
}

using Tags = std::span<const std::string_view>;

Tags AnswerTags(Kind kind) {
  static constexpr std::string_view kCipher[] = {"CIPHERTEXT = ",
                                                 "PLAINTEXT = "};
  static constexpr std::string_view kAesMonte[] = {
      "COUNT = ", "KEY = ", "IV = ", "PLAINTEXT = ", "CIPHERTEXT = "};
  static constexpr std::string_view kTdesMonte[] = {
      "COUNT = ", "KEY1 = ",       "KEY2 = ",       "KEY3 = ",
      "IV = ",    "PLAINTEXT = ", "CIPHERTEXT = "};
  static constexpr std::string_view kSha[] = {"MD = "};
  static constexpr std::string_view kShaMonte[] = {"COUNT = ", "MD = "};
  static constexpr std::string_view kHmac[] = {"Mac = "};
  static constexpr std::string_view kDrbg[] = {"ReturnedBits = "};
  static constexpr std::string_view kSsh[] = {
      "Initial IV (client to server) = ",
      "Initial IV (server to client) = ",
      "Encryption key (client to server) = ",
      "Encryption key (server to client) = ",
      "Integrity key (client to server) = ",
      "Integrity key (server to client) = "};
  static constexpr std::string_view kTls[] = {"master_secret = ",
                                              "key_block = "};
  static constexpr std::string_view kSigGen[] = {"n = ", "e = ", "S = "};
  static constexpr std::string_view kKat[] = {"Result = "};
  static constexpr std::string_view kKeys[] = {"e = ", "p = ", "q = ",
                                               "n = ", "d = "};
  switch (kind) {
    case Kind::kCipher: return kCipher;
    case Kind::kAesMonteCbc:
    case Kind::kAesMonteEcb: return kAesMonte;
    case Kind::kTdesMonte: return kTdesMonte;
    case Kind::kShaMessages: return kSha;
    case Kind::kShaMonte: return kShaMonte;
    case Kind::kHmac: return kHmac;
    case Kind::kDrbg: return kDrbg;
    case Kind::kSsh: return kSsh;
    case Kind::kTls: return kTls;
    case Kind::kSigGen: return kSigGen;
    case Kind::kKeyGenKat: return kKat;
    case Kind::kKeyGenRandom: return kKeys;
    case Kind::kKeyGenCopy:
    case Kind::kUnknown: break;
  }
  return {};
}

constexpr int kNotATest = -1;
constexpr int kAnswerOptional = -2;  // answered or not: both are right

// Where the request reader stands, for the DRBG's sections.
struct Section {
  std::string_view mechanism;  // the last "[... df]" line
  bool past_target = false;    // an "[AES-256 use df]" line was seen
};

// Lines of one generated Monte Carlo record (COUNT and its fields).
int RecordLines(Kind kind) {
  switch (kind) {
    case Kind::kAesMonteCbc: return 5;
    case Kind::kAesMonteEcb: return 4;
    case Kind::kTdesMonte: return 7;
    case Kind::kShaMonte: return 2;
    default: return 1;
  }
}

// The answer lines that the test beginning at `line` needs.
int ExpectedAnswers(Kind kind, std::string_view line, const Section& section) {
  const auto test = [&](std::string_view tag, int answers) {
    return line.starts_with(tag) ? answers : kNotATest;
  };
  switch (kind) {
    case Kind::kCipher: return test("COUNT = ", 1);
    case Kind::kAesMonteCbc:
    case Kind::kAesMonteEcb: return test("COUNT = ", 100 * RecordLines(kind));
    case Kind::kTdesMonte: return test("COUNT = ", 400 * RecordLines(kind));
    case Kind::kShaMessages: return test("Len = ", 1);
    case Kind::kShaMonte: return test("Seed = ", 100 * RecordLines(kind));
    case Kind::kHmac: return test("Count = ", 1);
    case Kind::kSsh: return test("COUNT = ", 6);
    case Kind::kTls: return test("COUNT = ", 2);
    case Kind::kKeyGenKat: return test("e = ", 1);
    case Kind::kDrbg:
      // The runner answers from the first AES-256 section on, as AES-256,
      // and stops at the first test it cannot read (a no-df test).
      if (section.mechanism == "[AES-256 use df]") return test("COUNT = ", 1);
      return test("COUNT = ", section.past_target ? kAnswerOptional : 0);
    case Kind::kSigGen:
      if (line.starts_with("[mod = ")) return 2;  // its key's n and e
      if (!line.starts_with("SHAAlg = ")) return kNotATest;
      for (std::string_view signed_digest :
           {"SHAAlg = SHA1", "SHAAlg = SHA256", "SHAAlg = SHA384",
            "SHAAlg = SHA512"}) {
        if (line.starts_with(signed_digest)) return 1;
      }
      return 0;  // SHA-224 and others: copied without a signature
    case Kind::kKeyGenRandom:
      if (line.starts_with("N = ")) {
        const long keys = std::strtol(std::string(line.substr(4)).c_str(),
                                      nullptr, 10);
        return keys > 0 && keys < 100000 ? static_cast<int>(keys) * 5 : 0;
      }
      return kNotATest;
    case Kind::kKeyGenCopy:
    case Kind::kUnknown: break;
  }
  return kNotATest;
}

bool Monte(Kind kind) {
  return kind == Kind::kAesMonteCbc || kind == Kind::kAesMonteEcb ||
         kind == Kind::kTdesMonte;
}

// Request lines that the runner reads without copying them: the seed
// record of a Monte Carlo test (replaced by the generated records) and the
// "N = " line of the random-probable-prime file (replaced by the keys).
bool ConsumedTest(Kind kind) { return Monte(kind) || kind == Kind::kKeyGenRandom; }

bool SeedField(std::string_view line) {
  for (std::string_view tag : {"KEY = ", "KEY1 = ", "KEY2 = ", "KEY3 = ",
                               "KEYs = ", "IV = ", "PLAINTEXT = ",
                               "CIPHERTEXT = "}) {
    if (line.starts_with(tag)) return true;
  }
  return false;
}

enum class Role { kCopied, kMayBeDropped, kConsumedTest };

struct Item {
  Line line;
  Role role;
  int expected;  // answer lines of the test it begins, or kNotATest
  int answers = 0;
};

std::vector<Item> ReadRequest(Kind kind, std::string_view request) {
  std::vector<Item> items;
  Section section;
  bool first_test_seen = false;
  const std::vector<Line> lines = NonBlankLines(request);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Line& line = lines[i];
    if (line.text.starts_with("[") && line.text.ends_with(" df]")) {
      section.mechanism = line.text;
      section.past_target =
          section.past_target || line.text == "[AES-256 use df]";
    }
    // The SHA Monte Carlo runner reads nothing after its seed.
    if (kind == Kind::kShaMonte && first_test_seen) {
      items.push_back({line, Role::kMayBeDropped, kNotATest});
      continue;
    }
    const int expected = ExpectedAnswers(kind, line.text, section);
    first_test_seen = first_test_seen || expected != kNotATest;
    if (expected != kNotATest && ConsumedTest(kind)) {
      items.push_back({line, Role::kConsumedTest, expected});
      while (Monte(kind) && i + 1 < lines.size() &&
             SeedField(lines[i + 1].text)) {
        ++i;
      }
      continue;
    }
    const bool dropped =
        kind == Kind::kTdesMonte && line.text.starts_with("NumKeys = ");
    items.push_back(
        {line, dropped ? Role::kMayBeDropped : Role::kCopied, expected});
  }
  return items;
}

bool IsHex(std::string_view text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") ==
         std::string_view::npos;
}

// The tag of an answer line with a value in its form, or "".
std::string_view AnswerTag(Kind kind, std::string_view line) {
  for (std::string_view tag : AnswerTags(kind)) {
    if (!line.starts_with(tag)) continue;
    const std::string_view value = line.substr(tag.size());
    if (value.empty()) return {};
    if (tag == "Result = " || IsHex(value)) return tag;
    if (tag == "COUNT = " &&
        value.find_first_not_of("0123456789") == std::string_view::npos) {
      return tag;
    }
    return {};
  }
  return {};
}

std::string Shown(const Line& line) {
  constexpr std::size_t kShown = 100;
  std::string text(line.text.substr(0, kShown));
  if (line.text.size() > kShown) text += "...";
  return "line " + std::to_string(line.number) + ": " + text;
}

}  // namespace

Completeness CheckCompleteness(std::string_view name, std::string_view request,
                               std::string_view response) {
  Completeness result;
  const Kind kind = KindOf(name);
  if (kind == Kind::kUnknown) {
    result.detail = "no rule for the answers of " + std::string(name);
    return result;
  }
  std::vector<Item> items = ReadRequest(kind, request);
  // A SigGen section's key (its n and e lines) is not counted as a test.
  const auto counted = [](const Item& item) {
    return item.expected > 0 && !item.line.text.starts_with("[");
  };
  for (const Item& item : items) result.tests += counted(item);

  const auto fail = [&](std::string detail) {
    result.detail = std::move(detail);
    return result;
  };
  std::size_t next = 0;    // the request item to meet next
  Item* open = nullptr;    // the test that answers belong to
  for (const Line& got : NonBlankLines(response)) {
    for (;;) {
      while (next < items.size() && items[next].role == Role::kConsumedTest) {
        open = &items[next++];
      }
      // Lines left out before a Monte Carlo seed ("NumKeys = ").
      std::size_t after = next;
      while (after < items.size() && items[after].role == Role::kMayBeDropped) {
        ++after;
      }
      if (after != next && after < items.size() &&
          items[after].role == Role::kConsumedTest &&
          items[next].line.text != got.text) {
        next = after;
        continue;
      }
      const std::string_view tag = AnswerTag(kind, got.text);
      // A line that the runner may leave out is not taken for the copy of
      // an answer that it looks like.
      const bool answer_first = !tag.empty() && open && open->expected != 0 &&
                                next < items.size() &&
                                items[next].role == Role::kMayBeDropped;
      if (next < items.size() && items[next].line.text == got.text &&
          !answer_first) {
        if (items[next].expected != kNotATest) open = &items[next];
        ++next;
        break;
      }
      if (next < items.size() && items[next].role == Role::kMayBeDropped &&
          !answer_first) {
        ++next;
        continue;
      }
      if (!tag.empty()) {
        if (!open || open->expected == 0) {
          return fail("response " + Shown(got) +
                      ": an answer where the request has no test to answer");
        }
        // Monte Carlo records are numbered from 0 within their seed.
        const int per_record = RecordLines(kind);
        if (tag == "COUNT = " &&
            (open->answers % per_record != 0 ||
             got.text.substr(tag.size()) !=
                 std::to_string(open->answers / per_record))) {
          return fail("response " + Shown(got) + ": records out of order");
        }
        ++open->answers;
        break;
      }
      if (next == items.size()) {
        return fail("response " + Shown(got) +
                    ": more than the request asks for");
      }
      return fail("response " + Shown(got) + "\n  expected request " +
                  Shown(items[next].line));
    }
  }

  // Tests answered in full; the first one that is not.
  const Item* gap = nullptr;
  for (const Item& item : items) {
    if (item.expected == kNotATest || item.expected == kAnswerOptional) continue;
    if (item.answers == item.expected) {
      result.answered += counted(item);
    } else if (!gap) {
      gap = &item;
    }
  }
  while (next < items.size() && items[next].role == Role::kMayBeDropped) ++next;
  const bool ended_early = next < items.size();
  // The DRBG runner stops at the first test of another mechanism it cannot
  // read; nothing it must answer may follow.
  const bool drbg_done =
      kind == Kind::kDrbg &&
      std::none_of(items.begin() + static_cast<std::ptrdiff_t>(next),
                   items.end(), [](const Item& item) {
                     return item.expected > 0 && item.answers == 0;
                   });
  const std::string counts = std::to_string(result.answered) + " of " +
                             std::to_string(result.tests) + " tests answered";
  if (ended_early && !drbg_done) {
    return fail("incomplete: " + counts + "; the response ends before request " +
                Shown(items[next].line));
  }
  if (gap) {
    return fail("incomplete: " + counts + "; request " + Shown(gap->line) +
                " has " + std::to_string(gap->answers) + " answer lines of " +
                std::to_string(gap->expected));
  }
  result.ok = true;
  return result;
}

std::vector<Line> NonBlankLines(std::string_view text) {
  std::vector<Line> lines;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t lf = text.find('\n');
    std::string_view line = text.substr(0, lf);
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty()) lines.push_back({number, line});
    if (lf == std::string_view::npos) break;
    text.remove_prefix(lf + 1);
  }
  return lines;
}

}  // namespace fipsval::host
