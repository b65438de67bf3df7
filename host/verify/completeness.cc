#include "host/verify/completeness.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/base/text.h"

namespace fipsval::host {
namespace {

constexpr int kNotATest = -1;
constexpr int kAnswerOptional = -2;  // answered or not: both are right
constexpr std::string_view kCount = "COUNT = ";
constexpr std::size_t kShown = 100;

bool Monte(const RequestShape& shape) {
  return shape.layout == Layout::kMonteCarlo ||
         shape.layout == Layout::kShaMonte;
}

// Lines of one generated Monte Carlo record (COUNT and its fields).
int RecordLines(const RequestShape& shape) {
  if (!Monte(shape) || shape.sections.empty()) return 1;
  return 1 + static_cast<int>(shape.sections[0].fields.size());
}

// Where the request reader stands, for the DRBG's sections.
struct Section {
  std::string_view group;      // the last "[...]" line
  std::string_view mechanism;  // the last "[... df]" line
  bool past_target = false;    // an "[AES-256 use df]" line was seen
};

int SignedTest(const RequestShape& shape, std::string_view line) {
  if (line.starts_with("[mod = ")) {
    return static_cast<int>(shape.group_fields.size());  // its key's n and e
  }
  if (!line.starts_with(shape.test_tag)) return kNotATest;
  line.remove_prefix(shape.test_tag.size());
  for (std::string_view digest : shape.digests) {
    if (line.starts_with(digest)) return 1;
  }
  // SHA-224 is copied without a signature by design; any other name (MD5)
  // is not a test the runner may leave unanswered.
  return line.starts_with("SHA224") ? 0 : 1;
}

// The answer lines that the test beginning at `line` needs.
int ExpectedAnswers(const RequestShape& shape, std::string_view line,
                    const Section& section) {
  const auto test = [&](int answers) {
    return line.starts_with(shape.test_tag) ? answers : kNotATest;
  };
  switch (shape.layout) {
    case Layout::kTests:
      if (!shape.answered_sections.empty() &&
          std::find(shape.answered_sections.begin(),
                    shape.answered_sections.end(),
                    section.group) == shape.answered_sections.end()) {
        return test(0);
      }
      return test(shape.answers_per_test);
    case Layout::kMonteCarlo:
    case Layout::kShaMonte:
      return test(shape.monte_records * RecordLines(shape));
    case Layout::kDrbgSections:
      // The runner answers from the first AES-256 section on, as AES-256,
      // and stops at the first test it cannot read (a no-df test).
      if (section.mechanism == "[AES-256 use df]") {
        return test(shape.answers_per_test);
      }
      return test(section.past_target ? kAnswerOptional : 0);
    case Layout::kSignatures: return SignedTest(shape, line);
    case Layout::kKeyCount: {
      if (!line.starts_with(shape.test_tag)) return kNotATest;
      const long keys = std::strtol(
          std::string(line.substr(shape.test_tag.size())).c_str(), nullptr, 10);
      const auto fields = static_cast<long>(shape.sections[0].fields.size());
      return keys > 0 && keys < 100000 ? static_cast<int>(keys * fields) : 0;
    }
    case Layout::kStopsAtFirstTest:
    case Layout::kCopiedThrough: break;
  }
  return kNotATest;
}

// Request lines that the runner reads without copying them: the seed
// record of a Monte Carlo test (replaced by the generated records) and the
// "N = " line of the random-probable-prime file (replaced by the keys).
bool ConsumedTest(const RequestShape& shape) {
  return shape.layout == Layout::kMonteCarlo ||
         shape.layout == Layout::kKeyCount;
}

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
  long answer_digits = -1;  // DRBG: hex digits of ReturnedBits, or -1
};

constexpr std::string_view kReturnedBitsLen = "[ReturnedBitsLen = ";
constexpr std::string_view kReturnedBits = "ReturnedBits = ";

std::vector<Item> ReadRequest(const RequestShape& shape,
                              std::string_view request) {
  std::vector<Item> items;
  Section section;
  bool first_test_seen = false;
  long returned_bits = -1;  // of the DRBG section in force
  const std::vector<Line> lines = NonBlankLines(request);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Line& line = lines[i];
    if (line.text.starts_with(kReturnedBitsLen)) {
      returned_bits = std::strtol(
          std::string(line.text.substr(kReturnedBitsLen.size())).c_str(),
          nullptr, 10);
    }
    if (line.text.starts_with("[")) section.group = line.text;
    if (line.text.starts_with("[") && line.text.ends_with(" df]")) {
      section.mechanism = line.text;
      section.past_target =
          section.past_target || line.text == "[AES-256 use df]";
    }
    // The SHA Monte Carlo runner reads nothing after its seed.
    if (shape.layout == Layout::kShaMonte && first_test_seen) {
      items.push_back({line, Role::kMayBeDropped, kNotATest});
      continue;
    }
    const int expected = ExpectedAnswers(shape, line.text, section);
    first_test_seen = first_test_seen || expected != kNotATest;
    if (expected != kNotATest && ConsumedTest(shape)) {
      items.push_back({line, Role::kConsumedTest, expected});
      while (shape.layout == Layout::kMonteCarlo && i + 1 < lines.size() &&
             SeedField(lines[i + 1].text)) {
        ++i;
      }
      continue;
    }
    const bool dropped = !shape.droppable.empty() &&
                         line.text.starts_with(shape.droppable);
    items.push_back(
        {line, dropped ? Role::kMayBeDropped : Role::kCopied, expected});
    if (shape.layout == Layout::kDrbgSections && expected > 0 &&
        returned_bits > 0 && returned_bits % 8 == 0) {
      items.back().answer_digits = returned_bits / 4;
    }
  }
  return items;
}

// The tag of an answer line with a value in its form, or "".
std::string_view AnswerTag(const RequestShape& shape, std::string_view line) {
  if (Monte(shape) && line.starts_with(kCount)) {
    const std::string_view value = line.substr(kCount.size());
    return !value.empty() && IsHexDigits(value) ? kCount : std::string_view();
  }
  for (const AnswerSection& section : shape.sections) {
    for (const AnswerField& field : section.fields) {
      if (!line.starts_with(field.tag)) continue;
      const std::string_view value = line.substr(field.tag.size());
      if (value.empty()) return {};
      if (field.tag == "Result = " || IsHexDigits(value)) return field.tag;
      return {};
    }
  }
  return {};
}

std::string Shown(const Line& line) { return QuoteLine(line, kShown); }

// Walks the response along the request's items.
class Matcher {
 public:
  Matcher(const RequestShape& shape, std::vector<Item> items)
      : shape_(shape), items_(std::move(items)) {}

  Status Take(const Line& got);
  Completeness Finish();

 private:
  bool AtRole(std::size_t at, Role role) const {
    return at < items_.size() && items_[at].role == role;
  }
  Status Answer(std::string_view tag, const Line& got);

  const RequestShape& shape_;
  std::vector<Item> items_;
  std::size_t next_ = 0;  // the request item to meet next
  Item* open_ = nullptr;  // the test that answers belong to
};

Status Matcher::Take(const Line& got) {
  for (;;) {
    while (AtRole(next_, Role::kConsumedTest)) open_ = &items_[next_++];
    // Lines left out before a Monte Carlo seed ("NumKeys = ").
    std::size_t after = next_;
    while (AtRole(after, Role::kMayBeDropped)) ++after;
    if (after != next_ && AtRole(after, Role::kConsumedTest) &&
        items_[next_].line.text != got.text) {
      next_ = after;
      continue;
    }
    const std::string_view tag = AnswerTag(shape_, got.text);
    // A line that the runner may leave out is not taken for the copy of an
    // answer that it looks like.
    const bool answer_first = !tag.empty() && open_ && open_->expected != 0 &&
                              AtRole(next_, Role::kMayBeDropped);
    if (next_ < items_.size() && items_[next_].line.text == got.text &&
        !answer_first) {
      if (items_[next_].expected != kNotATest) open_ = &items_[next_];
      ++next_;
      return Ok();
    }
    if (AtRole(next_, Role::kMayBeDropped) && !answer_first) {
      ++next_;
      continue;
    }
    if (!tag.empty()) return Answer(tag, got);
    if (next_ == items_.size()) {
      return Refused("response " + Shown(got) +
                     ": more than the request asks for");
    }
    return Refused("response " + Shown(got) + "\n  expected request " +
                   Shown(items_[next_].line));
  }
}

Status Matcher::Answer(std::string_view tag, const Line& got) {
  if (!open_ || open_->expected == 0) {
    return Refused("response " + Shown(got) +
                   (open_ && !shape_.answered_sections.empty()
                        ? ": an answer under a section the runner does not "
                          "know, which cannot be right"
                        : ": an answer where the request has no test to "
                          "answer"));
  }
  // Monte Carlo records are numbered from 0 within their seed.
  const int per_record = RecordLines(shape_);
  if (tag == kCount &&
      (open_->answers % per_record != 0 ||
       got.text.substr(tag.size()) !=
           std::to_string(open_->answers / per_record))) {
    return Refused("response " + Shown(got) + ": records out of order");
  }
  if (tag == kReturnedBits && open_->answer_digits >= 0 &&
      static_cast<long>(got.text.size() - tag.size()) != open_->answer_digits) {
    return Refused("response " + Shown(got) + ": " +
                   std::to_string(got.text.size() - tag.size()) +
                   " hex digits, where the section asks for " +
                   std::to_string(open_->answer_digits));
  }
  ++open_->answers;
  return Ok();
}

Completeness Matcher::Finish() {
  Completeness result;
  // A SigGen section's key (its n and e lines) is not counted as a test.
  const auto counted = [](const Item& item) {
    return item.expected > 0 && !item.line.text.starts_with("[");
  };
  const Item* gap = nullptr;  // the first test not answered in full
  for (const Item& item : items_) {
    result.tests += counted(item);
    result.copied += item.expected == 0 && item.line.text.starts_with(shape_.test_tag);
    if (item.expected == kNotATest || item.expected == kAnswerOptional) continue;
    if (item.answers == item.expected) {
      result.answered += counted(item);
    } else if (!gap) {
      gap = &item;
    }
  }
  while (AtRole(next_, Role::kMayBeDropped)) ++next_;
  // The DRBG runner stops at the first test of another mechanism it cannot
  // read; nothing it must answer may follow.
  const bool drbg_done =
      shape_.layout == Layout::kDrbgSections &&
      std::none_of(items_.begin() + static_cast<std::ptrdiff_t>(next_),
                   items_.end(), [](const Item& item) {
                     return item.expected > 0 && item.answers == 0;
                   });
  const std::string counts = std::to_string(result.answered) + " of " +
                             std::to_string(result.tests) + " tests answered";
  if (next_ < items_.size() && !drbg_done) {
    result.status = Refused("incomplete: " + counts +
                            "; the response ends before request " +
                            Shown(items_[next_].line));
  } else if (gap) {
    result.status = Refused("incomplete: " + counts + "; request " +
                            Shown(gap->line) + " has " +
                            std::to_string(gap->answers) +
                            " answer lines of " + std::to_string(gap->expected));
  }
  return result;
}

}  // namespace

Completeness CheckCompleteness(const RequestShape& shape,
                               std::string_view request,
                               std::string_view response) {
  Matcher matcher(shape, ReadRequest(shape, request));
  for (const Line& got : NonBlankLines(response)) {
    if (Status status = matcher.Take(got); !status.ok()) {
      return {std::move(status)};
    }
  }
  return matcher.Finish();
}

}  // namespace fipsval::host
