#include "host/run/run_plan.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <set>

#include "host/base/file_io.h"
#include "host/base/paths.h"
#include "host/base/text.h"
#include "host/catalog/suite_catalog.h"
#include "host/report/evidence.h"

namespace fipsval::host {
namespace {

// Field tags whose values the runners read as hexadecimal.
// clang-format off
constexpr std::array<std::string_view, 34> kHexTags = {
    "AdditionalInput", "AdditionalInputReseed", "CIPHERTEXT", "EntropyInput",
    "EntropyInputReseed", "H", "IV", "K", "KEY", "KEY1", "KEY2", "KEY3", "KEYs",
    "Key", "Msg", "Nonce", "PLAINTEXT", "PersonalizationString", "S", "Seed",
    "seed", "clientHello_random", "client_random", "d", "e", "n", "p", "q",
    "prandom", "qrandom", "pre_master_secret", "serverHello_random",
    "server_random", "session_id"};
// clang-format on

bool IsHexTag(std::string_view tag) {
  for (std::string_view t : kHexTags) {
    if (t == tag) return true;
  }
  return false;
}

// The first character of a hex field's value that is not a hex digit.
std::string CheckHexField(std::string_view line) {
  const std::size_t eq = line.find(" = ");
  if (eq == std::string_view::npos || line.starts_with("#")) return {};
  const std::string_view tag = line.substr(0, eq);
  if (!IsHexTag(tag)) return {};
  std::string_view value = line.substr(eq + 3);
  while (!value.empty() && value.back() == '\r') value.remove_suffix(1);
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (HexDigitValue(value[i]) < 0) {
      return std::string(tag) +
             " has a character that is not a hex digit at column " +
             std::to_string(eq + 4 + i);
    }
  }
  return {};
}

// Reads <tree>/<dir>/req/<name>.req, one component at a time, no links.
void ReadRequest(int tree_fd, FileRun& file) {
  UniqueFd dir, req;
  Status read = OpenDirBelow(tree_fd, file.dir, 0, &dir);
  if (read.ok()) read = OpenDirBelow(dir.get(), "req", 0, &req);
  if (read.ok()) {
    read = ReadFileBelow(req.get(), file.name + ".req", kMaxRequestBytes,
                         &file.request);
  }
  if (read.ok()) {
    file.plan = FilePlan::kRun;
    // Of the file as the tree holds it, whatever the run makes of it.
    file.request_sha256 = Sha256Hex(file.request);
  } else if (read.kind() == StatusKind::kMissing) {
    file.plan = FilePlan::kAbsent;
    file.message = "no request file";
  } else {
    file.plan = FilePlan::kRefused;
    file.message = "cannot read it: " + read.message();
  }
}

// Labs receive requests whose line ends were changed on the way: with
// --accept-lf, LF-only line ends become the CR LF the library reads.
std::string WithCrLf(std::string_view text) {
  std::string converted;
  converted.reserve(text.size() + text.size() / 16);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) converted += '\r';
    converted += text[i];
  }
  if (!converted.empty() && converted.back() != '\n') converted += "\r\n";
  return converted;
}

// Each generated probable-prime key takes seconds: a request for more keys
// than this is refused rather than left running for days.
constexpr long kMaxKeysPerTest = 100;

void CheckKeyCounts(const FileRun& file, std::vector<RequestFinding>& findings) {
  const RequestShape* shape = file.profile ? file.profile->shape : nullptr;
  if (!shape || shape->layout != Layout::kKeyCount) return;
  for (const Line& line : Lines(file.request)) {
    if (!line.text.starts_with(shape->test_tag)) continue;
    const std::string value(line.text.substr(shape->test_tag.size()));
    const long long keys = std::strtoll(value.c_str(), nullptr, 10);
    if (keys > kMaxKeysPerTest) {
      findings.push_back({line.number, "asks for " + std::to_string(keys) +
                                           " keys, at most " +
                                           std::to_string(kMaxKeysPerTest)});
      return;
    }
  }
}

void CheckRequestText(FileRun& file, bool accept_lf) {
  if (accept_lf) file.request = WithCrLf(file.request);
  file.findings = CheckRequest(file.request);
  const bool readable = file.findings.empty();
  if (readable) CheckKeyCounts(file, file.findings);
  if (file.findings.empty()) return;
  std::string message =
      readable ? "not run:" : "not run, the library cannot read it right:";
  bool lf = false;
  for (const RequestFinding& finding : file.findings) {
    message +=
        " line " + std::to_string(finding.line) + ": " + finding.cause + ";";
    lf = lf || finding.cause.starts_with("line ends in LF");
  }
  message.pop_back();
  if (lf) message += " (convert it to CR LF line ends, or run with --accept-lf)";
  file.plan = FilePlan::kRefused;
  file.message = message;
  file.request.clear();
}

// The names in the directory dirfd, which it takes over.
std::set<std::string> NamesIn(UniqueFd dirfd) {
  std::set<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(fdopendir(dirfd.get()),
                                                    closedir);
  if (!listing) return names;
  dirfd.Release();  // closedir closes it now
  while (const dirent* entry = readdir(listing.get())) {
    names.insert(entry->d_name);
  }
  return names;
}

}  // namespace

std::vector<RequestFinding> CheckRequest(std::string_view text,
                                         std::size_t limit) {
  std::vector<RequestFinding> findings;
  auto add = [&](int line, std::string cause) {
    if (findings.size() < limit) findings.push_back({line, std::move(cause)});
  };
  int number = 0;
  for (std::size_t start = 0; start < text.size() && findings.size() < limit;) {
    ++number;
    const std::size_t lf = text.find('\n', start);
    const bool terminated = lf != std::string_view::npos;
    std::string_view line = text.substr(
        start, terminated ? lf - start + 1 : std::string_view::npos);
    start = terminated ? lf + 1 : text.size();
    if (line.find('\0') != std::string_view::npos) {
      add(number, "NUL byte (the reader stops there)");
      break;
    }
    if (!terminated) {
      add(number, "last line does not end in CR LF");
    } else if (line.size() < 2 || line[line.size() - 2] != '\r') {
      add(number, "line ends in LF, not CR LF");
      continue;
    }
    if (std::string cause = CheckHexField(line.substr(0, line.find('\n')));
        !cause.empty()) {
      add(number, std::move(cause));
    }
  }
  return findings;
}

std::vector<FileRun> PlanFiles(int tree_fd, const std::string& tree,
                               const std::string& responses,
                               const std::vector<const fips_tv*>& suites,
                               bool accept_lf) {
  std::vector<FileRun> files;
  std::set<const fips_tv*> seen;
  for (const fips_tv* suite : suites) {
    if (!seen.insert(suite).second) continue;
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      FileRun file;
      file.suite = suite;
      file.dir = suite->dir;
      file.name = *name;
      file.profile = FindRequestProfile(file.dir, file.name);
      file.request_path = JoinPath(JoinPath(JoinPath(tree, file.dir), "req"),
                                   file.name + ".req");
      file.response_path = JoinPath(
          JoinPath(JoinPath(responses, file.dir), "resp"), file.name + ".rsp");
      ReadRequest(tree_fd, file);
      if (file.plan == FilePlan::kRun) CheckRequestText(file, accept_lf);
      files.push_back(std::move(file));
    }
  }
  return files;
}

std::vector<std::string> UnhandledRequests(
    int tree_fd, const std::string& tree,
    const std::vector<const fips_tv*>& suites) {
  std::set<std::string> handled;
  for (const fips_tv* suite : AllSuites()) {
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      handled.insert(std::string(suite->dir) + "/" + *name + ".req");
    }
  }
  std::set<std::string> dirs;
  for (const fips_tv* suite : suites) dirs.insert(suite->dir);
  // Folders that no suite reads at all (ECDSA/req, say) are listed too:
  // a lab must see that nothing answered them.
  std::set<std::string> known;
  for (const fips_tv* suite : AllSuites()) known.insert(suite->dir);
  if (UniqueFd top(dup(tree_fd)); top) {
    for (const std::string& name : NamesIn(std::move(top))) {
      if (name != "." && name != ".." && !known.count(name)) dirs.insert(name);
    }
  }
  std::vector<std::string> unhandled;
  for (const std::string& dir_name : dirs) {
    UniqueFd dir, req;
    if (!OpenDirBelow(tree_fd, dir_name, 0, &dir).ok() ||
        !OpenDirBelow(dir.get(), "req", 0, &req).ok()) {
      continue;
    }
    for (const std::string& name : NamesIn(std::move(req))) {
      if (name.ends_with(".req") && !handled.count(dir_name + "/" + name)) {
        unhandled.push_back(
            JoinPath(JoinPath(JoinPath(tree, dir_name), "req"), name));
      }
    }
  }
  return unhandled;
}

}  // namespace fipsval::host
