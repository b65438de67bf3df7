#include "host/run/tree_engine.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string_view>
#include <utility>

#include "host/run/private_staging.h"
#include "host/run/request_check.h"
#include "host/report/run_record.h"
#include "host/run/run_report.h"
#include "host/base/safe_io.h"
#include "host/catalog/suite_catalog.h"

namespace fipsval::host {
namespace {

constexpr std::size_t kMaxRequestBytes = std::size_t{64} << 20;
constexpr std::size_t kMaxResponseBytes = std::size_t{1} << 30;

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

enum class Plan { kRun, kMissing, kRefused };

struct TreeFile {
  const fips_tv* suite = nullptr;
  std::string name;
  std::string request_path;  // as the user knows it
  std::string response_path;
  Plan plan = Plan::kMissing;
  std::string request;  // the request text, for kRun
  FileRecord record;
  std::vector<std::string> runner_lines;
  bool begun = false;
  Clock::time_point begun_at;
  bool ended = false;
  bool written = false;  // a response was put in place
};

std::string Join(const std::string& a, std::string_view b) {
  if (a.empty() || a.ends_with('/')) return a + std::string(b);
  return a + "/" + std::string(b);
}

// Reads <tree>/<dir>/req/<name>.req, one component at a time, no links.
void ReadRequest(int tree, TreeFile& file) {
  std::string why;
  UniqueFd dir = OpenDirBelow(tree, file.suite->dir, false, &why);
  UniqueFd req = dir ? OpenDirBelow(dir.get(), "req", false, &why) : UniqueFd();
  if (req && ReadFileBelow(req.get(), file.name + ".req", kMaxRequestBytes,
                           &file.request, &why)) {
    file.plan = Plan::kRun;
    return;
  }
  if (why == std::strerror(ENOENT)) {
    file.plan = Plan::kMissing;
    file.record.message = "no request file";
    return;
  }
  file.plan = Plan::kRefused;
  file.record.message = "cannot read it: " + why;
}

void CheckRequestText(TreeFile& file) {
  const auto findings = CheckRequest(file.request);
  if (findings.empty()) return;
  std::string message = "not run, the library cannot read it right:";
  for (const RequestFinding& finding : findings) {
    std::fprintf(stderr, "fipsval: warning: %s line %d: %s\n",
                 file.request_path.c_str(), finding.line,
                 finding.cause.c_str());
    message +=
        " line " + std::to_string(finding.line) + ": " + finding.cause + ";";
  }
  message.pop_back();
  file.plan = Plan::kRefused;
  file.record.message = message;
  file.request.clear();
}

// Request files in the selected suites' req folders that no suite reads.
std::vector<std::string> UnhandledRequests(
    int tree, const std::string& tree_name,
    const std::vector<const fips_tv*>& suites) {
  std::set<std::string> handled;
  for (const fips_tv* suite : AllSuites()) {
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      handled.insert(std::string(suite->dir) + "/" + *name + ".req");
    }
  }
  std::set<std::string> dirs;
  for (const fips_tv* suite : suites) dirs.insert(suite->dir);
  std::vector<std::string> unhandled;
  for (const std::string& dir_name : dirs) {
    std::string why;
    UniqueFd dir = OpenDirBelow(tree, dir_name, false, &why);
    UniqueFd req =
        dir ? OpenDirBelow(dir.get(), "req", false, &why) : UniqueFd();
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(
        req ? fdopendir(req.get()) : nullptr, closedir);
    if (!listing) continue;
    req.Release();  // closedir closes it now
    std::set<std::string> names;
    while (const dirent* entry = readdir(listing.get())) {
      const std::string name = entry->d_name;
      if (name.ends_with(".req") && !handled.count(dir_name + "/" + name)) {
        names.insert(name);
      }
    }
    for (const std::string& name : names) {
      unhandled.push_back(Join(Join(Join(tree_name, dir_name), "req"), name));
    }
  }
  return unhandled;
}

bool WriteRecord(int root, const RunRecord& record, std::string* why) {
  return ReplaceFileBelow(root, kRunRecordName, RunRecordJson(record), 0644,
                          why);
}

std::string Nonce() {
  std::random_device device;
  char text[40];
  std::snprintf(text, sizeof text,
                "\x1f"
                "fipsval-%08x%08x%08x ",
                device(), device(), device());
  return text;
}

// ---- the child: one request file at a time ----

void StageAndRun(const TreeFile& file, int index, const std::string& marker,
                 const StagingDirs& staging, int root) {
  std::printf("%sbegin %d\n", marker.c_str(), index);
  std::fflush(stdout);
  const std::string request = file.name + ".req";
  const std::string response = file.name + ".rsp";
  std::string why;
  RemoveFileBelow(staging.response, response, &why);
  if (!RemoveFileBelow(staging.request, request, &why) ||
      !ReplaceFileBelow(staging.request, request, file.request, 0600, &why)) {
    std::printf("%send %d error cannot stage the request: %s\n", marker.c_str(),
                index, why.c_str());
    std::fflush(stdout);
    return;
  }
  file.suite->run();
  std::fflush(stdout);
  RemoveFileBelow(staging.request, request, &why);

  std::string content;
  if (!ReadFileBelow(staging.response, response, kMaxResponseBytes, &content,
                     &why)) {
    std::printf("%send %d missing\n", marker.c_str(), index);
    std::fflush(stdout);
    return;
  }
  RemoveFileBelow(staging.response, response, &why);
  UniqueFd dir = OpenDirBelow(root, file.suite->dir, true, &why);
  UniqueFd resp =
      dir ? OpenDirBelow(dir.get(), "resp", true, &why) : UniqueFd();
  if (resp && ReplaceFileBelow(resp.get(), response, content, 0644, &why)) {
    std::printf("%send %d ok\n", marker.c_str(), index);
  } else {
    std::printf("%send %d error cannot write %s: %s\n", marker.c_str(), index,
                file.response_path.c_str(), why.c_str());
  }
  std::fflush(stdout);
}

// ---- the parent: sorting the child's console output ----

class OutputSorter {
 public:
  OutputSorter(std::vector<TreeFile>& files, const std::string& marker,
               const RunOptions& options)
      : files_(files), marker_(marker), options_(options) {}

  void Line(std::string_view line) {
    const std::size_t at = line.find(marker_);
    if (at != std::string_view::npos) {
      if (at > 0) Library(line.substr(0, at));
      Marker(line.substr(at + marker_.size()));
      return;
    }
    Library(line);
  }

  void Finish() {
    EndSuite();
    current_ = nullptr;
  }

 private:
  void Library(std::string_view line) {
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) return;
    const std::string name = current_ ? current_->name : std::string();
    if (line.starts_with("Couldn't open /tmp/req/") && line.ends_with(".req") &&
        line != "Couldn't open /tmp/req/" + name + ".req") {
      return;  // another file of the suite, not staged on purpose
    }
    if (line.starts_with("Running file ") && line.substr(13) != name) return;
    if (IsSuiteTitle(line)) {
      if (options_.verbosity >= 1 && current_ &&
          titles_
              .insert(std::string(current_->suite->name) + "/" +
                      std::string(line))
              .second) {
        Relay(line);
      }
      return;
    }
    if (current_ && IsProgressLine(line, name)) {
      if (options_.verbosity >= 1) Relay(line);
      return;
    }
    std::string text = Printable(line);
    if (current_) {
      Replace(&text, FIPSVAL_REQUEST_DIR "/" + name + ".req", current_->request_path);
      Replace(&text, FIPSVAL_RESPONSE_DIR "/" + name + ".rsp", current_->response_path);
      current_->runner_lines.push_back(text);
    }
    if (options_.verbosity >= 1) std::printf("%s\n", text.c_str());
  }

  void Relay(std::string_view line) {
    std::printf("%s\n", Printable(line).c_str());
  }

  static void Replace(std::string* text, const std::string& from,
                      const std::string& to) {
    const std::size_t at = text->find(from);
    if (at != std::string::npos) text->replace(at, from.size(), to);
  }

  void Marker(std::string_view rest) {
    char word[16] = {};
    int index = -1;
    int consumed = 0;
    const std::string text(rest);
    if (std::sscanf(text.c_str(), "%15s %d %n", word, &index, &consumed) < 2 ||
        index < 0 || static_cast<std::size_t>(index) >= files_.size()) {
      return;
    }
    TreeFile& file = files_[index];
    if (std::string_view(word) == "begin") {
      if (suite_ != file.suite) {
        EndSuite();
        suite_ = file.suite;
        suite_start_ = Clock::now();
      }
      current_ = &file;
      file.begun = true;
      file.begun_at = Clock::now();
      if (options_.progress) {
        std::fprintf(stderr, "[%s] %s (%.1f s)\n", file.suite->name,
                     file.name.c_str(), SecondsSince(suite_start_));
      }
      return;
    }
    std::string_view result = std::string_view(text).substr(consumed);
    file.ended = true;
    file.record.seconds = SecondsSince(file.begun_at);
    Conclude(file, result);
    current_ = nullptr;
  }

  void Conclude(TreeFile& file, std::string_view result) {
    std::string note;
    std::vector<std::string> errors;
    for (const std::string& line : file.runner_lines) {
      // The SigVer runner stops at its first test by design: that is how
      // its response ends, not a failure of this run.
      if (file.name == "SigVer15_186-3" && line == "RSA param n is null") {
        note = "the runner stops at the first test (RSA param n is null)";
      } else {
        errors.push_back(line);
      }
    }
    FileRecord& record = file.record;
    std::string joined;
    constexpr std::size_t kShown = 4;
    for (std::size_t i = 0; i < errors.size() && i < kShown; ++i) {
      joined += (joined.empty() ? "" : "; ") + errors[i];
    }
    if (errors.size() > kShown) {
      joined += "; and " + std::to_string(errors.size() - kShown) +
                " more lines";
    }
    file.written = result.starts_with("ok");
    if (result.starts_with("ok")) {
      record.outcome =
          errors.empty() ? Outcome::kAnswered : Outcome::kRunnerError;
      record.message = errors.empty() ? note : joined;
    } else if (result.starts_with("missing")) {
      record.outcome =
          errors.empty() ? Outcome::kNotAnswered : Outcome::kRunnerError;
      record.message = errors.empty() ? "the suite wrote no response" : joined;
    } else {
      record.outcome = Outcome::kNotAnswered;
      std::string_view why =
          result.substr(std::min<std::size_t>(6, result.size()));
      record.message = Printable(why) + (joined.empty() ? "" : "; " + joined);
    }
  }

  void EndSuite() {
    if (suite_ && options_.progress) {
      std::fprintf(stderr, "[%s] done in %.1f s\n", suite_->name,
                   SecondsSince(suite_start_));
    }
    suite_ = nullptr;
  }

  std::vector<TreeFile>& files_;
  const std::string& marker_;
  const RunOptions& options_;
  TreeFile* current_ = nullptr;
  const fips_tv* suite_ = nullptr;
  Clock::time_point suite_start_;
  std::set<std::string> titles_;
};

void ReadLines(int fd, OutputSorter& sorter) {
  std::string pending;
  char buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    pending.append(buffer, static_cast<std::size_t>(n));
    std::size_t start = 0;
    for (std::size_t lf; (lf = pending.find('\n', start)) != std::string::npos;
         start = lf + 1) {
      sorter.Line(std::string_view(pending).substr(start, lf - start));
    }
    pending.erase(0, start);
    if (pending.size() > (std::size_t{1} << 20)) {
      sorter.Line(pending);
      pending.clear();
    }
  }
  if (!pending.empty()) sorter.Line(pending);
  std::fflush(stdout);
}

std::string Absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

void PrintSummary(const RunOptions& options, const std::vector<TreeFile>& files,
                  const std::vector<std::string>& unhandled,
                  const std::string& root, double seconds, RunResult* result) {
  // A suite none of whose files is in the tree gets one line, not one a file.
  std::set<const fips_tv*> absent;
  for (const TreeFile& file : files) absent.insert(file.suite);
  for (const TreeFile& file : files) {
    if (file.plan != Plan::kMissing) absent.erase(file.suite);
  }
  std::set<const fips_tv*> shown;
  int answered = 0, errors = 0, not_answered = 0, missing = 0, written = 0;
  for (const TreeFile& file : files) {
    written += file.written ? 1 : 0;
    const FileRecord& r = file.record;
    const bool problem =
        file.plan != Plan::kMissing && r.outcome != Outcome::kAnswered;
    if (file.plan == Plan::kMissing) {
      ++missing;
    } else if (r.outcome == Outcome::kAnswered) {
      ++answered;
    } else if (r.outcome == Outcome::kRunnerError) {
      ++errors;
    } else {
      ++not_answered;
    }
    if (options.verbosity == 0 && !problem) continue;
    if (options.verbosity == 1 && absent.count(file.suite)) {
      if (shown.insert(file.suite).second) {
        std::printf("%-12s %s: no request file of suite %s\n", "not answered",
                    Join(Join(options.tree, file.suite->dir), "req").c_str(),
                    file.suite->name);
      }
      continue;
    }
    const char* label = r.outcome == Outcome::kAnswered      ? "answered"
                        : r.outcome == Outcome::kRunnerError ? "runner error"
                                                             : "not answered";
    std::printf("%-12s %s%s%s\n", label, file.request_path.c_str(),
                r.message.empty() ? "" : ": ", r.message.c_str());
  }
  if (options.verbosity >= 1) {
    for (const std::string& path : unhandled) {
      std::printf("%-12s %s: no suite reads this file\n", "not handled",
                  path.c_str());
    }
  }
  std::printf(
      "run: %d answered, %d runner errors, %d not answered, %d without request "
      "file, %zu not handled; %d responses written to %s/<DIR>/resp in %.1f "
      "s\n",
      answered, errors, not_answered, missing, unhandled.size(), written,
      root.c_str(), seconds);
  for (const TreeFile& file : files) {
    if (file.plan != Plan::kMissing) result->files.push_back(file.record);
  }
  result->answered = answered;
  result->runner_errors = errors;
  result->not_answered = not_answered;
  result->without_request = missing;
  result->unhandled = unhandled;
  result->written = written;
}

// Says why the run cannot go on ("fipsval: <text>") and keeps it for the
// result. Returns 1, RunTree's failure.
int Refuse(const RunOptions& options, const std::string& text) {
  std::fprintf(stderr, "fipsval: %s\n", text.c_str());
  if (options.result && options.result->error.empty()) {
    options.result->error = text;
  }
  return 1;
}

}  // namespace

bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites) {
  UniqueFd root(open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root) return false;
  for (const fips_tv* suite : suites) {
    std::string why;
    UniqueFd dir = OpenDirBelow(root.get(), suite->dir, false, &why);
    if (dir && OpenDirBelow(dir.get(), "req", false, &why)) return true;
  }
  return false;
}

int RunTree(const RunOptions& options) {
  const Clock::time_point start = Clock::now();
  std::string why;
  UniqueFd tree = OpenGivenDirectory(options.tree, false, &why);
  const std::string root_name =
      options.output.empty() ? options.tree : options.output;
  if (options.result) options.result->responses = root_name;
  if (!tree) {
    return Refuse(options, options.tree + " is not a directory (" + why + ")");
  }
  if (!TreeHasRequests(options.tree, options.suites)) {
    return Refuse(options, options.tree +
                               " has no request folders (<DIR>/req) for the "
                               "selected suites");
  }
  UniqueFd root = options.output.empty()
                      ? UniqueFd(dup(tree.get()))
                      : OpenGivenDirectory(options.output, true, &why);
  if (!root) {
    return Refuse(options, "cannot use the output directory " +
                               options.output + ": " + why);
  }
  // Two runs answering into one place would mix their responses.
  if (flock(root.get(), LOCK_EX | LOCK_NB) != 0) {
    return Refuse(options, "another fipsval run is writing responses to " +
                               root_name +
                               ": try again when it has finished");
  }

  // Every file of the selected suites, each suite once.
  std::vector<TreeFile> files;
  std::set<const fips_tv*> seen;
  for (const fips_tv* suite : options.suites) {
    if (!seen.insert(suite).second) continue;
    for (const char* const* name = suite->get_filenames(); *name; ++name) {
      TreeFile file;
      file.suite = suite;
      file.name = *name;
      file.request_path =
          Join(Join(Join(options.tree, suite->dir), "req"), file.name + ".req");
      file.response_path =
          Join(Join(Join(root_name, suite->dir), "resp"), file.name + ".rsp");
      file.record.dir = suite->dir;
      file.record.name = *name;
      ReadRequest(tree.get(), file);
      if (file.plan == Plan::kRun) CheckRequestText(file);
      files.push_back(std::move(file));
    }
  }
  const std::vector<std::string> unhandled =
      UnhandledRequests(tree.get(), options.tree, options.suites);

  Staging staging;
  if (!PrepareStaging(&staging, &why)) return Refuse(options, why);
  if (options.verbosity >= 2) {
    std::fprintf(stderr, "fipsval: staging: %s\n",
                 DescribeStaging(staging.kind));
  }

  RunRecord record;
  record.tree = Absolute(options.tree);
  record.started = UtcNow();
  for (const TreeFile& file : files) record.files.push_back(file.record);
  if (!WriteRecord(root.get(), record, &why)) {
    return Refuse(options,
                  std::string("cannot write ") + kRunRecordName + " in " +
                      root_name + ": " + why +
                      (options.output.empty()
                           ? " (use --output DIR for a read-only tree)"
                           : ""));
  }

  // Responses of an earlier run must not pass for answers of this one.
  std::vector<int> to_run;
  for (std::size_t i = 0; i < files.size(); ++i) {
    TreeFile& file = files[i];
    if (file.plan == Plan::kMissing) continue;
    UniqueFd dir = OpenDirBelow(root.get(), file.suite->dir, false, &why);
    UniqueFd resp =
        dir ? OpenDirBelow(dir.get(), "resp", false, &why) : UniqueFd();
    if (resp && !RemoveFileBelow(resp.get(), file.name + ".rsp", &why)) {
      file.plan = Plan::kRefused;
      file.record.message =
          "cannot remove the old response " + file.response_path + ": " + why;
      continue;
    }
    if (file.plan == Plan::kRun) to_run.push_back(static_cast<int>(i));
  }

  int status = 0;
  if (!to_run.empty()) {
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
      return Refuse(options, std::string("cannot create a pipe: ") +
                                 std::strerror(errno));
    }
    const std::string marker = Nonce();
    const int root_fd = root.get();
    const pid_t child =
        StartStaged(staging, pipe_fds[1], [&](const StagingDirs& dirs) {
          close(pipe_fds[0]);
          setvbuf(stdout, nullptr, _IOLBF, 0);
          for (int index : to_run)
            StageAndRun(files[index], index, marker, dirs, root_fd);
          return 0;
        });
    close(pipe_fds[1]);
    if (child < 0) {
      const int error = errno;
      close(pipe_fds[0]);
      return Refuse(options, std::string("cannot start the run: ") +
                                 std::strerror(error));
    }
    OutputSorter sorter(files, marker, options);
    ReadLines(pipe_fds[0], sorter);
    close(pipe_fds[0]);
    sorter.Finish();
    status = WaitStaged(child);
  }
  std::string stopped;
  if (status > 128) {
    stopped = std::string("the run stopped: ") + strsignal(status - 128);
  } else if (status != 0) {
    stopped = "the run stopped (exit status " + std::to_string(status) + ")";
  }
  for (int index : to_run) {
    TreeFile& file = files[index];
    if (file.ended) continue;
    std::string runner;
    for (const std::string& line : file.runner_lines) runner += "; " + line;
    // The file being answered when the run stopped is the one that stopped it.
    file.record.outcome =
        file.begun ? Outcome::kRunnerError : Outcome::kNotAnswered;
    const std::string why = stopped.empty() ? "the run ended early" : stopped;
    file.record.message = file.begun ? why + runner : "not run (" + why + ")";
    if (file.begun) file.record.seconds = SecondsSince(file.begun_at);
  }

  record.files.clear();
  bool failed = !stopped.empty();
  for (const TreeFile& file : files) {
    record.files.push_back(file.record);
    if (file.plan != Plan::kMissing &&
        file.record.outcome != Outcome::kAnswered) {
      failed = true;
    }
  }
  record.finished = UtcNow();
  RunResult result;
  result.responses = root_name;
  result.error = stopped;
  if (!WriteRecord(root.get(), record, &why)) {
    const std::string text = std::string("cannot write ") + kRunRecordName +
                              " in " + root_name + ": " + why;
    std::fprintf(stderr, "fipsval: %s\n", text.c_str());
    if (result.error.empty()) result.error = text;
    failed = true;
  }
  PrintSummary(options, files, unhandled, root_name, SecondsSince(start),
               &result);
  if (to_run.empty()) {
    const std::string text =
        "no request file of the selected suites could be run";
    std::fprintf(stderr, "fipsval: %s\n", text.c_str());
    if (result.error.empty()) result.error = text;
    failed = true;
  }
  if (options.result) *options.result = std::move(result);
  std::fflush(stdout);
  return failed ? 1 : 0;
}

}  // namespace fipsval::host
