// The JUnit XML form of the result (ResultJunit of result_report.h).
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/text.h"
#include "host/report/result_report.h"

namespace fipsval::host {
namespace {

// An ASCII character as XML text: the five special characters as
// entities, control characters as "\xNN" (line ends and tabs kept, as
// character references in an attribute).
void AppendAscii(unsigned char c, bool attribute, std::string& out) {
  switch (c) {
    case '&': out += "&amp;"; return;
    case '<': out += "&lt;"; return;
    case '>': out += "&gt;"; return;
    case '"': out += attribute ? "&quot;" : "\""; return;
    case '\'': out += attribute ? "&apos;" : "'"; return;
    case '\n': out += attribute ? "&#10;" : "\n"; return;
    case '\t': out += attribute ? "&#9;" : "\t"; return;
    case '\r': out += "&#13;"; return;
    default: break;
  }
  const char ascii = static_cast<char>(c);
  out += Printable(std::string_view(&ascii, 1));
}

// The length of the UTF-8 sequence at the start of `bytes` that XML
// allows (no overlong forms, surrogates, or non-characters U+FFFE/U+FFFF),
// or 0.
std::size_t ValidSequence(std::string_view bytes) {
  const auto byte = [&](std::size_t k) {
    return static_cast<unsigned char>(bytes[k]);
  };
  const unsigned char c = byte(0);
  const std::size_t length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
  if (length == 0 || length > bytes.size() || c > 0xf4) return 0;
  char32_t value = length == 4 ? c & 0x07 : length == 3 ? c & 0x0f : c & 0x1f;
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(k) & 0xc0) != 0x80) return 0;
    value = (value << 6) | (byte(k) & 0x3f);
  }
  const bool ok = !(length == 3 && value < 0x800) &&
                  !(length == 4 && (value < 0x10000 || value > 0x10ffff)) &&
                  !(value >= 0xd800 && value <= 0xdfff) && value != 0xfffe &&
                  value != 0xffff;
  return ok ? length : 0;
}

// Text that any XML parser takes: valid UTF-8 (anything else becomes
// U+FFFD) with the ASCII characters as AppendAscii writes them.
std::string Xml(std::string_view text, bool attribute) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      AppendAscii(c, attribute, out);
      ++i;
    } else if (const std::size_t length = ValidSequence(text.substr(i))) {
      out.append(text.substr(i, length));
      i += length;
    } else {
      out += "\xef\xbf\xbd";
      ++i;
    }
  }
  return out;
}

std::string Attribute(std::string_view name, std::string_view value) {
  return " " + std::string(name) + "=\"" + Xml(value, true) + "\"";
}

std::string Time(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

struct Case {
  std::string classname, name;
  double seconds = 0;
  enum Kind { kPassed, kFailed, kSkipped } kind = kPassed;
  std::string type;     // for a failure
  std::string message;  // failure or skip reason, or what a pass checked
};

std::string CaseXml(const Case& c) {
  std::string xml = "    <testcase" + Attribute("classname", c.classname) +
                    Attribute("name", c.name) +
                    Attribute("time", Time(c.seconds));
  if (c.kind == Case::kFailed) {
    return xml + ">\n      <failure" + Attribute("type", c.type) +
           Attribute("message", c.message) + ">" + Xml(c.message, false) +
           "</failure>\n    </testcase>\n";
  }
  if (c.kind == Case::kSkipped) {
    return xml + ">\n      <skipped" + Attribute("message", c.message) +
           "/>\n    </testcase>\n";
  }
  if (!c.message.empty()) {
    return xml + ">\n      <system-out>" + Xml(c.message, false) +
           "</system-out>\n    </testcase>\n";
  }
  return xml + "/>\n";
}

std::string Suite(const std::string& name, const std::string& timestamp,
                  double seconds, const std::vector<Case>& cases) {
  int failures = 0, skipped = 0;
  std::string body;
  for (const Case& c : cases) {
    failures += c.kind == Case::kFailed;
    skipped += c.kind == Case::kSkipped;
    body += CaseXml(c);
  }
  return "  <testsuite" + Attribute("name", name) +
         Attribute("tests", std::to_string(cases.size())) +
         Attribute("failures", std::to_string(failures)) +
         Attribute("errors", "0") +
         Attribute("skipped", std::to_string(skipped)) +
         Attribute("time", Time(seconds)) +
         Attribute("timestamp", timestamp) + ">\n" + body + "  </testsuite>\n";
}

std::string Classname(const std::string& phase, const std::string& dir) {
  return dir.empty() ? phase : phase + "." + dir;
}

std::vector<Case> RunCases(const RunResult& run) {
  std::vector<Case> cases;
  for (const FileRun& file : run.files) {
    if (file.plan == FilePlan::kAbsent) continue;
    Case c{Classname("run", file.dir), file.name, file.seconds, Case::kPassed,
           "", file.message};
    if (file.outcome != FileOutcome::kAnswered) {
      c.kind = Case::kFailed;
      c.type = OutcomeName(file.outcome);
      if (c.message.empty()) c.message = c.type;
    }
    cases.push_back(std::move(c));
  }
  if (const Status problem = run.Problem(); !problem.ok()) {
    cases.push_back({"run", "run", 0, Case::kFailed, "run", problem.message()});
  }
  return cases;
}

std::vector<Case> VerifyCases(const VerifyTally& tally,
                              const std::string& tree) {
  std::vector<Case> cases;
  for (const FileVerdict& file : tally.files) {
    Case c{Classname("verify", file.dir),
           file.name.empty() ? tree : file.name,
           file.seconds,
           Case::kPassed,
           "",
           file.note};
    if (file.verdict == "FAIL") {
      c.kind = Case::kFailed;
      c.type = file.verdict;
    } else if (file.verdict == "SKIP" || file.verdict == "STOPPED") {
      c.kind = Case::kSkipped;
      c.message = file.verdict + ": " + file.note;
    }
    cases.push_back(std::move(c));
  }
  return cases;
}

// A case per group of each set (classname "acvp.<file>", name "tgId N"),
// and one for the set itself when it failed otherwise (its message) or has
// no group: a group not answered is a failure unless the set was accepted
// with it (then skipped), a set already submitted is skipped.
std::vector<Case> AcvpCases(const acvp::AcvpTally& tally) {
  std::vector<Case> cases;
  for (const acvp::SetResult& set : tally.sets) {
    const bool set_ok = set.outcome == "answered" || set.outcome == "passed";
    bool failed = false;
    for (const acvp::GroupResult& g : set.groups) {
      Case c{Classname("acvp", set.file), "tgId " + std::to_string(g.tg_id), 0, Case::kPassed,
             "", g.reason};
      if (g.outcome == "not-answered" && set_ok) {
        c.kind = Case::kSkipped;
        c.message = "not answered: " + g.reason;
      } else if (g.outcome == "not-answered" || g.outcome == "failed") {
        c.kind = Case::kFailed;
        c.type = g.outcome;
        failed = true;
      }
      cases.push_back(std::move(c));
    }
    if (set_ok ? !set.groups.empty() : failed && set.message.empty()) continue;
    Case c{"acvp", set.file, set.seconds, Case::kPassed, "", set.message};
    if (set.outcome == "submitted") {
      c.kind = Case::kSkipped;
      c.message = "submitted: " + set.message;
    } else if (!set_ok) {
      c.kind = Case::kFailed;
      c.type = set.outcome;
      if (c.message.empty()) c.message = set.outcome;
    }
    cases.push_back(std::move(c));
  }
  return cases;
}

}  // namespace

std::string ResultJunit(const ResultReport& report) {
  // JUnit readers want a timestamp without a zone.
  std::string timestamp = report.started;
  if (timestamp.ends_with('Z')) timestamp.pop_back();
  std::string suites;
  int tests = 0, failures = 0, skipped = 0;
  const auto add = [&](const std::string& name, double seconds,
                       const std::vector<Case>& cases) {
    suites += Suite(name, timestamp, seconds, cases);
    for (const Case& c : cases) {
      ++tests;
      failures += c.kind == Case::kFailed ? 1 : 0;
      skipped += c.kind == Case::kSkipped ? 1 : 0;
    }
  };
  if (!report.status.ok()) {
    add(report.command, 0,
        {{report.command, report.command, 0, Case::kFailed, "error",
          report.status.message()}});
  }
  if (report.run) add("run", report.run_seconds, RunCases(*report.run));
  if (report.verify) {
    add("verify", report.verify_seconds,
        VerifyCases(*report.verify, report.tree));
  }
  if (report.acvp) add(report.command, report.seconds, AcvpCases(*report.acvp));
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" +
         Attribute("name", "fipsval " + report.command) +
         Attribute("tests", std::to_string(tests)) +
         Attribute("failures", std::to_string(failures)) +
         Attribute("errors", "0") +
         Attribute("skipped", std::to_string(skipped)) +
         Attribute("time", Time(report.seconds)) + ">\n" + suites +
         "</testsuites>\n";
}

}  // namespace fipsval::host
