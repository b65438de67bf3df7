#include "host/report/result_report.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/base/safe_io.h"

namespace fipsval::host {
namespace {

using Json = nlohmann::ordered_json;

double Rounded(double seconds) { return std::round(seconds * 1000) / 1000; }

struct Where {
  std::string dir;   // "." for a bare name
  std::string name;  // the last component
};

Where Split(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// ---- JSON ----

Json RunPart(const RunResult& run, double seconds) {
  Json files = Json::array();
  for (const FileRecord& file : run.files) {
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"outcome", OutcomeName(file.outcome)},
                     {"message", file.message},
                     {"seconds", Rounded(file.seconds)}});
  }
  Json part = {{"seconds", Rounded(seconds)},
               {"files", files},
               {"counts",
                {{"answered", run.answered},
                 {"runner_errors", run.runner_errors},
                 {"not_answered", run.not_answered},
                 {"without_request", run.without_request},
                 {"not_handled", run.unhandled.size()},
                 {"responses_written", run.written}}},
               {"not_handled", run.unhandled}};
  if (!run.error.empty()) part["error"] = run.error;
  return part;
}

Json VerifyPart(const VerifyTally& tally, double seconds) {
  Json files = Json::array();
  for (const FileVerdict& file : tally.files) {
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"verdict", file.verdict},
                     {"detail", file.detail},
                     {"seconds", Rounded(file.seconds)}});
  }
  return {{"seconds", Rounded(seconds)},
          {"files", files},
          {"counts",
           {{"passed", tally.passed},
            {"failed", tally.failed},
            {"complete_only", tally.complete_only},
            {"stopped", tally.stopped},
            {"missing", tally.missing}}}};
}

// ---- JUnit XML ----

// Text that any XML parser takes: valid UTF-8 (anything else becomes
// U+FFFD), the five special characters as entities, control characters
// as "\xNN" (line ends and tabs kept, as character references in an
// attribute).
std::string Xml(std::string_view text, bool attribute) {
  std::string out;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const unsigned char c = bytes[i];
    if (c < 0x80) {
      ++i;
      switch (c) {
        case '&': out += "&amp;"; continue;
        case '<': out += "&lt;"; continue;
        case '>': out += "&gt;"; continue;
        case '"': out += attribute ? "&quot;" : "\""; continue;
        case '\'': out += attribute ? "&apos;" : "'"; continue;
        case '\n': out += attribute ? "&#10;" : "\n"; continue;
        case '\t': out += attribute ? "&#9;" : "\t"; continue;
        case '\r': out += "&#13;"; continue;
        default: break;
      }
      if (c < 0x20) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
        out += escaped;
      } else {
        out += static_cast<char>(c);
      }
      continue;
    }
    // A multi-byte sequence: its length, then its continuation bytes and
    // the value (no overlong forms, surrogates, or non-characters
    // U+FFFE/U+FFFF, which XML does not allow).
    const int length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
    char32_t value = length == 4 ? c & 0x07 : length == 3 ? c & 0x0f : c & 0x1f;
    bool ok = length > 0 && i + length <= size;
    for (int k = 1; ok && k < length; ++k) {
      ok = (bytes[i + k] & 0xc0) == 0x80;
      value = (value << 6) | (bytes[i + k] & 0x3f);
    }
    ok = ok && !(length == 3 && value < 0x800) &&
         !(length == 4 && (value < 0x10000 || value > 0x10ffff)) &&
         !(value >= 0xd800 && value <= 0xdfff) && value != 0xfffe &&
         value != 0xffff;
    if (ok) {
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

std::string Suite(const std::string& name, const std::string& timestamp,
                  double seconds, const std::vector<Case>& cases) {
  int failures = 0, skipped = 0;
  std::string body;
  for (const Case& c : cases) {
    body += "    <testcase" + Attribute("classname", c.classname) +
            Attribute("name", c.name) + Attribute("time", Time(c.seconds));
    if (c.kind == Case::kFailed) {
      ++failures;
      body += ">\n      <failure" + Attribute("type", c.type) +
              Attribute("message", c.message) + ">" + Xml(c.message, false) +
              "</failure>\n    </testcase>\n";
    } else if (c.kind == Case::kSkipped) {
      ++skipped;
      body += ">\n      <skipped" + Attribute("message", c.message) +
              "/>\n    </testcase>\n";
    } else if (!c.message.empty()) {
      body += ">\n      <system-out>" + Xml(c.message, false) +
              "</system-out>\n    </testcase>\n";
    } else {
      body += "/>\n";
    }
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
  for (const FileRecord& file : run.files) {
    Case c{Classname("run", file.dir), file.name, file.seconds, Case::kPassed,
           "", file.message};
    if (file.outcome != Outcome::kAnswered) {
      c.kind = Case::kFailed;
      c.type = OutcomeName(file.outcome);
      if (c.message.empty()) c.message = c.type;
    }
    cases.push_back(std::move(c));
  }
  if (!run.error.empty()) {
    cases.push_back({"run", "run", 0, Case::kFailed, "run", run.error});
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
           file.detail};
    if (file.verdict == "FAIL") {
      c.kind = Case::kFailed;
      c.type = file.verdict;
    } else if (file.verdict == "SKIP" || file.verdict == "STOPPED") {
      c.kind = Case::kSkipped;
      c.message = file.verdict + ": " + file.detail;
    }
    cases.push_back(std::move(c));
  }
  return cases;
}

bool WriteOne(const std::string& path, const std::string& content) {
  const Where where = Split(path);
  std::string why;
  UniqueFd dir(open(where.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir) why = std::strerror(errno);
  if (dir && ReplaceFileBelow(dir.get(), where.name, content, 0644, &why)) {
    return true;
  }
  std::fprintf(stderr, "fipsval: cannot write the report %s: %s\n",
               path.c_str(), why.c_str());
  return false;
}

}  // namespace

bool CheckReportPaths(const ReportPaths& paths, std::string* why) {
  for (const std::string* path : {&paths.json, &paths.junit}) {
    if (path->empty()) continue;
    const Where where = Split(*path);
    struct stat st;
    if (where.name.empty() || where.name == "." || where.name == ".." ||
        (stat(path->c_str(), &st) == 0 && S_ISDIR(st.st_mode))) {
      *why = "the report " + *path + " names a directory, not a file";
      return false;
    }
    if (stat(where.dir.c_str(), &st) != 0) {
      *why = "cannot write the report " + *path + ": the directory " +
             where.dir + " does not exist";
      return false;
    }
    if (!S_ISDIR(st.st_mode)) {
      *why = "cannot write the report " + *path + ": " + where.dir +
             " is not a directory";
      return false;
    }
  }
  if (!paths.json.empty() && paths.json == paths.junit) {
    *why = "--json and --junit name the same file " + paths.json;
    return false;
  }
  return true;
}

std::string ResultJson(const ResultReport& report) {
  Json json = {{"fipsval", report.version},
               {"command", report.command},
               {"tree", report.tree},
               {"responses", report.responses},
               {"started", report.started},
               {"finished", report.finished},
               {"seconds", Rounded(report.seconds)}};
  if (!report.error.empty()) json["error"] = report.error;
  if (report.run) json["run"] = RunPart(*report.run, report.run_seconds);
  if (report.verify) {
    json["verify"] = VerifyPart(*report.verify, report.verify_seconds);
  }
  json["exit_status"] = report.exit_status;
  // Request text echoed in a message need not be UTF-8: replace, not fail.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n";
}

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
  if (!report.error.empty()) {
    add(report.command, 0,
        {{report.command, report.command, 0, Case::kFailed, "error",
          report.error}});
  }
  if (report.run) add("run", report.run_seconds, RunCases(*report.run));
  if (report.verify) {
    add("verify", report.verify_seconds,
        VerifyCases(*report.verify, report.tree));
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" +
         Attribute("name", "fipsval " + report.command) +
         Attribute("tests", std::to_string(tests)) +
         Attribute("failures", std::to_string(failures)) +
         Attribute("errors", "0") +
         Attribute("skipped", std::to_string(skipped)) +
         Attribute("time", Time(report.seconds)) + ">\n" + suites +
         "</testsuites>\n";
}

bool WriteReports(const ResultReport& report, const ReportPaths& paths) {
  bool ok = true;
  if (!paths.json.empty()) ok = WriteOne(paths.json, ResultJson(report)) && ok;
  if (!paths.junit.empty()) {
    ok = WriteOne(paths.junit, ResultJunit(report)) && ok;
  }
  return ok;
}

int FinishReport(ResultReport* report, const ReportPaths& paths, int status) {
  report->finished = UtcNow();
  report->seconds = ElapsedSeconds(report->start);
  report->exit_status = status;
  report->tree = AbsolutePath(report->tree);
  report->responses = AbsolutePath(report->responses);
  if (!WriteReports(*report, paths) && status == 0) {
    report->exit_status = 1;
    return 1;
  }
  return status;
}

double ElapsedSeconds(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() -
                                       start)
      .count();
}

std::string AbsolutePath(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved)) return resolved;
  if (path.starts_with('/')) return path;
  char cwd[PATH_MAX];
  return getcwd(cwd, sizeof cwd) ? std::string(cwd) + "/" + path : path;
}

}  // namespace fipsval::host
