#include "host/verify/verify.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "host/base/clock.h"
#include "host/base/file_io.h"
#include "host/base/paths.h"
#include "host/base/text.h"
#include "host/report/evidence.h"
#include "host/verify/completeness.h"
#include "host/verify/rsa_answer_checks.h"

namespace fipsval::host {
namespace {

constexpr std::size_t kShown = 160;

enum class Verdict { kPass, kFail, kCompleteOnly, kStopped, kSkip };

struct Judgement {
  Verdict verdict;
  std::string note;
  std::string provenance = {};
};

Judgement Fail(std::string why) { return {Verdict::kFail, std::move(why)}; }

// One folder's evidence, read once.
struct FolderEvidence {
  Status status;  // why it could not be read
  Evidence evidence;
};

class EvidenceCache {
 public:
  explicit EvidenceCache(const std::string& root) {
    opened_ = OpenGivenDirectory(root, 0, &root_);
  }
  const FolderEvidence& For(const std::string& dir) {
    auto [it, added] = folders_.try_emplace(dir);
    if (added) {
      it->second.status = opened_.ok()
                              ? ReadEvidence(root_.get(), dir, &it->second.evidence)
                              : opened_;
    }
    return it->second;
  }

 private:
  UniqueFd root_;
  Status opened_;
  std::map<std::string, FolderEvidence> folders_;
};

// One file to check.
struct Entry {
  std::string dir, name;
  std::string label;  // "<DIR>/<name>"
  const RequestProfile* profile;
  std::string request, response, expected;  // paths relative to their root
};

// What the evidence says of a response, apart from its correctness.
struct Provenance {
  bool contradicted = false;
  std::string word;  // as FileVerdict::provenance
  std::string note;
};

Provenance JudgeProvenance(const FolderEvidence& folder, const Entry& entry,
                           const std::string& request,
                           const std::string& response) {
  if (!folder.status.ok()) {
    return {true, "contradicted", "evidence not read: " + folder.status.message()};
  }
  const auto it = folder.evidence.files.find(entry.name);
  if (it == folder.evidence.files.end()) return {false, "no evidence", "no evidence"};
  const EvidenceEntry& e = it->second;
  const std::string made = " (made " + e.made + ")";
  if (e.request_sha256 != Sha256Hex(request)) {
    return {true, "contradicted",
            "the request changed since the response was made" + made};
  }
  if (e.response_sha256 != Sha256Hex(response)) {
    return {true, "contradicted",
            "the response is not the one its evidence records" + made};
  }
  if (e.outcome != "answered") {
    return {true, "contradicted",
            "the run that made it did not answer it (" + e.outcome +
                (e.message.empty() ? "" : ": " + e.message) + ")"};
  }
  std::string by = "evidence: made " + e.made;
  const auto run = folder.evidence.runs.find(e.run);
  if (run != folder.evidence.runs.end()) {
    const ModuleIdentity& m = run->second.module;
    by += " by " + m.library + " " + m.version + " (sha256 " +
          m.library_sha256.substr(0, 16) + ") on " + m.architecture;
  }
  return {false, "recorded", by};
}

Judgement CheckSigVer(const RequestShape& shape, const std::string& request,
                      const std::string& response) {
  const AnswerCheck a = CheckSigVerAnswers(shape, request, response);
  if (!a.status.ok()) return Fail(a.status.message());
  if (a.stopped_at_first_test) {
    return {Verdict::kStopped,
            "the runner stops at the first test it supports, as it is "
            "built to: the response is the request up to line " +
                std::to_string(a.checked) + ", 0 of " +
                std::to_string(a.tests) + " tests answered"};
  }
  return {Verdict::kPass, "no test the runner answers; " +
                              std::to_string(a.checked) +
                              " request lines copied"};
}

// Without expected answers, what can still be judged: a digest, MAC or
// DRBG output of 8 bytes or more that is all zero bytes is not the output
// of a working module (a chance of 2^-64 at most).
Status CheckNotAllZero(const std::string& response) {
  for (const Line& line : NonBlankLines(response)) {
    for (std::string_view tag : {"MD = ", "Mac = ", "ReturnedBits = "}) {
      if (!line.text.starts_with(tag)) continue;
      const std::string_view value = line.text.substr(tag.size());
      if (value.size() >= 16 &&
          value.find_first_not_of('0') == std::string_view::npos) {
        return Refused("response " + QuoteLine(line, kShown) +
                       ": all zero bytes, which a working module does not "
                       "answer");
      }
    }
  }
  return Ok();
}

// Value checks of a complete response.
Judgement CheckValues(const RequestShape& shape, const std::string& response,
                      const std::optional<std::string>& expected,
                      const Completeness& complete, bool partial) {
  const std::string answered =
      shape.layout == Layout::kCopiedThrough
          ? std::string("copied through, the runner answers no test in it")
          : std::to_string(complete.answered) + " of " +
                std::to_string(complete.tests) + " tests answered" +
                (complete.copied > 0
                     ? " (" + std::to_string(complete.copied) +
                           " more copied without an answer by design)"
                     : std::string());
  if (shape.layout == Layout::kSignatures || shape.layout == Layout::kKeyCount) {
    const bool signatures = shape.layout == Layout::kSignatures;
    const AnswerCheck a = signatures ? CheckSigGenAnswers(shape, response)
                                     : CheckRandomProbablePrimeAnswers(response);
    if (!a.status.ok()) return Fail(a.status.message());
    return {Verdict::kPass, answered + ", " + std::to_string(a.checked) +
                                (signatures ? " signatures verified"
                                            : " keys checked")};
  }
  if (!expected) {
    if (Status zero = CheckNotAllZero(response); !zero.ok()) {
      return Fail(zero.message());
    }
    return {Verdict::kCompleteOnly,
            answered + "; checked for completeness only: no .fax"};
  }
  const Comparison c = CompareWithExpected(shape, response, *expected, partial);
  if (!c.status.ok()) return Fail(c.status.message());
  std::string note =
      answered + ", " + std::to_string(c.lines) + " lines match the .fax";
  if (c.not_compared > 0) {
    note += ", " + std::to_string(c.not_compared) +
            " answers of other mechanisms not comparable";
  }
  return {Verdict::kPass, note};
}

// Reads root/relative into text: ok, or the FAIL that says why not.
std::optional<Judgement> Read(const std::string& root,
                              const std::string& relative, std::string* text,
                              bool* present) {
  const Status read = ReadTreeFile(root, relative, kMaxFileBytes, text);
  *present = read.kind() != StatusKind::kMissing;
  if (read.ok() || !*present) return std::nullopt;
  return Fail(JoinPath(root, relative) + " not read: " + read.message());
}

Judgement CheckCorrectness(const VerifyOptions& options, const Entry& entry,
                           const std::string& request,
                           const std::string& response) {
  if (!entry.profile) return Fail("no rule for the answers of " + entry.label);
  const RequestShape& shape = *entry.profile->shape;
  if (shape.layout == Layout::kStopsAtFirstTest) {
    return CheckSigVer(shape, request, response);
  }
  const Completeness complete = CheckCompleteness(shape, request, response);
  if (!complete.status.ok()) return Fail(complete.status.message());
  std::string expected;
  bool has_expected = false;
  if (auto bad = Read(options.tree, entry.expected, &expected, &has_expected)) {
    return *bad;
  }
  return CheckValues(shape, response,
                     has_expected ? std::optional(expected) : std::nullopt,
                     complete, options.partial);
}

Judgement CheckEntry(const VerifyOptions& options, const std::string& root,
                     const Entry& entry, const FolderEvidence& folder) {
  std::string request, response;
  bool has_request = false, has_response = false;
  if (auto bad = Read(options.tree, entry.request, &request, &has_request)) {
    return *bad;
  }
  if (!has_request) {
    Judgement skip{Verdict::kSkip, ""};
    if (Read(root, entry.response, &response, &has_response) || has_response) {
      skip = Fail("a response without its request " +
                  JoinPath(options.tree, entry.request));
    }
    return skip;
  }
  if (auto bad = Read(root, entry.response, &response, &has_response)) {
    return *bad;
  }
  if (!has_response) {
    const auto it = folder.evidence.files.find(entry.name);
    if (it != folder.evidence.files.end()) {
      return Fail("no response, although its evidence records one (made " +
                  it->second.made + ")");
    }
    if (options.allow_missing) return {Verdict::kSkip, "no response"};
    return Fail("no response (--allow-missing accepts requests without one)");
  }
  Judgement judged = CheckCorrectness(options, entry, request, response);
  const Provenance p = JudgeProvenance(folder, entry, request, response);
  // Both judgements are said; either can make the verdict a FAIL.
  judged.provenance = p.word;
  judged.note += "; " + p.note;
  const bool unproven =
      p.contradicted || (p.word == "no evidence" && options.require_evidence);
  if (unproven) {
    judged.verdict = Verdict::kFail;
    if (!p.contradicted) judged.note += " (--require-evidence)";
  }
  return judged;
}

const char* Word(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass: return "PASS";
    case Verdict::kFail: return "FAIL";
    case Verdict::kCompleteOnly: return "COMPLETE";
    case Verdict::kStopped: return "STOPPED";
    case Verdict::kSkip: break;
  }
  return "SKIP";
}

void Count(Verdict verdict, VerifyTally& tally) {
  switch (verdict) {
    case Verdict::kPass: ++tally.passed; break;
    case Verdict::kFail: ++tally.failed; break;
    case Verdict::kCompleteOnly: ++tally.complete_only; break;
    case Verdict::kStopped: ++tally.stopped; break;
    case Verdict::kSkip: ++tally.missing; break;
  }
}

void PrintTotals(const VerifyTally& tally, std::FILE* out) {
  std::fprintf(out, "%d passed, %d failed", tally.passed, tally.failed);
  if (tally.complete_only > 0) {
    std::fprintf(out, ", %d complete but without expected answers",
                 tally.complete_only);
  }
  if (tally.stopped > 0) {
    std::fprintf(out, ", %d stopped at the first test by design", tally.stopped);
  }
  if (tally.missing > 0) {
    std::fprintf(out, ", %d without response", tally.missing);
  }
  if (tally.no_evidence > 0) {
    std::fprintf(out, ", %d without evidence", tally.no_evidence);
  }
  std::fprintf(out, "\n");
}

}  // namespace

Comparison CompareWithExpected(const RequestShape& shape,
                               std::string_view response,
                               std::string_view expected, bool partial) {
  Comparison result;
  const std::vector<Line> got = NonBlankLines(response);
  const std::vector<Line> want = NonBlankLines(expected);
  const bool drbg = shape.layout == Layout::kDrbgSections;
  constexpr std::string_view kReturned = "ReturnedBits = ";
  bool comparable_section = true;
  bool seen_comparable = false;  // an [AES-256 use df] section was reached
  const std::size_t common = std::min(got.size(), want.size());
  for (std::size_t i = 0; i < common; ++i) {
    const std::string_view g = got[i].text;
    const std::string_view w = want[i].text;
    if (drbg && w.starts_with("[") && w.ends_with(" df]")) {
      comparable_section = w == "[AES-256 use df]";
      seen_comparable = seen_comparable || comparable_section;
    }
    const bool other_mechanism = drbg && !comparable_section &&
                                 g.starts_with(kReturned) &&
                                 w.starts_with(kReturned);
    if (g != w && !other_mechanism) {
      result.status = Refused("first difference\n  response " +
                              QuoteLine(got[i], kShown) + "\n  expected " +
                              QuoteLine(want[i], kShown));
      return result;
    }
    result.not_compared += g != w;
    ++result.lines;
  }
  if (got.size() > want.size()) {
    result.status = Refused("response has more lines than expected\n  response " +
                            QuoteLine(got[common], kShown));
    return result;
  }
  // The CTR_DRBG runner stops at the first test without a nonce: in NIST's
  // file the first no-df test, after the [AES-256 use df] sections. What
  // follows there is other mechanisms' answers, not missing ones.
  const bool drbg_done = drbg && seen_comparable && !comparable_section;
  if (got.size() < want.size() && !(partial && !got.empty()) && !drbg_done) {
    result.status = Refused(got.empty() ? "response is empty"
                                        : "response ends early\n  expected " +
                                              QuoteLine(want[common], kShown));
  }
  return result;
}

VerifyTally VerifyTree(const VerifyOptions& options, std::FILE* out) {
  VerifyTally tally;
  const std::string root =
      options.responses.empty() ? options.tree : options.responses;
  EvidenceCache evidence(root);
  std::set<std::string> seen;
  for (const fips_tv* suite : options.suites) {
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      const std::string dir = suite->dir;
      const Entry entry{dir, *name, dir + "/" + *name,
                        FindRequestProfile(dir, *name),
                        dir + "/req/" + *name + ".req",
                        dir + "/resp/" + *name + ".rsp",
                        dir + "/fax/" + *name + ".fax"};
      if (!seen.insert(entry.label).second) continue;
      const SteadyTime start = Now();
      const Judgement judged =
          CheckEntry(options, root, entry, evidence.For(dir));
      if (judged.verdict == Verdict::kSkip && judged.note.empty()) {
        continue;  // not in this tree
      }
      Count(judged.verdict, tally);
      tally.no_evidence += judged.provenance == "no evidence";
      const bool good = judged.verdict == Verdict::kPass ||
                        judged.verdict == Verdict::kCompleteOnly;
      std::fprintf(out, "%s %s%s%s%s\n", Word(judged.verdict),
                   entry.label.c_str(), good ? " (" : ": ",
                   judged.note.c_str(), good ? ")" : "");
      tally.files.push_back({dir, *name, Word(judged.verdict), judged.note,
                             judged.provenance, SecondsSince(start)});
    }
  }
  if (tally.passed + tally.complete_only + tally.stopped == 0 &&
      tally.failed == 0) {
    const std::string why =
        "nothing was checked: no response to any request of the selected "
        "suites in " + root;
    std::fprintf(out, "FAIL %s\n", why.c_str());
    ++tally.failed;
    tally.files.push_back({"", "", "FAIL", why, "", 0});
  }
  PrintTotals(tally, out);
  return tally;
}

}  // namespace fipsval::host
