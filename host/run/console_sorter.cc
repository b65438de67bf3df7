#include "host/run/console_sorter.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "fipsval.h"
#include "host/base/text.h"

namespace fipsval::host {
namespace {

constexpr std::string_view kCouldNotOpen = "Couldn't open " FIPSVAL_REQUEST_DIR "/";
constexpr std::string_view kRunningFile = "Running file ";
constexpr std::size_t kShownLines = 4;  // runner lines in a file's message

bool AllDigits(std::string_view text) {
  return !text.empty() &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsSuiteTitle(std::string_view line) {
  for (const SuiteProfile& suite : SuiteProfiles()) {
    for (std::string_view title : suite.titles) {
      if (line == title) return true;
    }
  }
  return false;
}

// A runner's normal progress line for the file `name`: "Running file NAME",
// the TDES Monte Carlo "ENCRYPT", "DECRYPT", "50 of 400", "COUNT = 3".
bool IsProgressLine(std::string_view line, std::string_view name) {
  if (line == "ENCRYPT" || line == "DECRYPT") return true;
  if (line.starts_with(kRunningFile)) {
    return line.substr(kRunningFile.size()) == name;
  }
  if (line.starts_with("COUNT = ")) return AllDigits(line.substr(8));
  const std::size_t of = line.find(" of ");
  return of != std::string_view::npos && AllDigits(line.substr(0, of)) &&
         AllDigits(line.substr(of + 4));
}

// The library's lines about the files of a suite that were left out of
// the staging on purpose: not this file's business.
bool AboutAnotherFile(std::string_view line, std::string_view name) {
  if (line.starts_with(kCouldNotOpen) && line.ends_with(".req")) {
    return line.substr(kCouldNotOpen.size()) != std::string(name) + ".req";
  }
  return line.starts_with(kRunningFile) &&
         line.substr(kRunningFile.size()) != name;
}

void Replace(std::string* text, const std::string& from,
             const std::string& to) {
  const std::size_t at = text->find(from);
  if (at != std::string::npos) text->replace(at, from.size(), to);
}

std::string JoinShown(const std::vector<std::string>& lines) {
  std::string joined;
  for (std::size_t i = 0; i < lines.size() && i < kShownLines; ++i) {
    joined += (joined.empty() ? "" : "; ") + lines[i];
  }
  if (lines.size() > kShownLines) {
    joined += "; and " + std::to_string(lines.size() - kShownLines) +
              " more lines";
  }
  return joined;
}

}  // namespace

ConsoleSorter::ConsoleSorter(std::vector<FileRun>& files, std::string marker,
                             RunObserver& observer)
    : files_(files), marker_(std::move(marker)), observer_(observer) {}

void ConsoleSorter::Line(std::string_view line) {
  const std::size_t at = line.find(marker_);
  if (at == std::string_view::npos) return Library(line);
  if (at > 0) Library(line.substr(0, at));
  Marker(line.substr(at + marker_.size()));
}

void ConsoleSorter::Finish() {
  EndSuite();
  current_ = nullptr;
}

void ConsoleSorter::Library(std::string_view line) {
  while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.empty()) return;
  const std::string name = current_ ? current_->name : std::string();
  if (AboutAnotherFile(line, name)) return;
  if (IsSuiteTitle(line)) {
    if (current_) observer_.Printed(current_, LineKind::kTitle, line);
    return;
  }
  if (current_ && IsProgressLine(line, name)) {
    observer_.Printed(current_, LineKind::kProgress, line);
    return;
  }
  std::string text = Printable(line);
  if (current_) {
    // The user knows the file by its place in the tree.
    Replace(&text, FIPSVAL_REQUEST_DIR "/" + name + ".req",
            current_->request_path);
    Replace(&text, FIPSVAL_RESPONSE_DIR "/" + name + ".rsp",
            current_->response_path);
    current_->runner_lines.push_back(text);
  }
  observer_.Printed(current_, LineKind::kRunnerError, text);
}

void ConsoleSorter::Marker(std::string_view rest) {
  char word[16] = {};
  int index = -1;
  int consumed = 0;
  const std::string text(rest);
  if (std::sscanf(text.c_str(), "%15s %d %n", word, &index, &consumed) < 2 ||
      index < 0 || static_cast<std::size_t>(index) >= files_.size()) {
    return;
  }
  FileRun& file = files_[static_cast<std::size_t>(index)];
  if (std::string_view(word) == "begin") return Begin(file);
  file.ended = true;
  file.made = UtcStamp();
  file.seconds = SecondsSince(file.begun_at);
  Conclude(std::string_view(text).substr(static_cast<std::size_t>(consumed)),
           file);
  current_ = nullptr;
}

void ConsoleSorter::Begin(FileRun& file) {
  if (suite_ != file.suite) {
    EndSuite();
    suite_ = file.suite;
    suite_start_ = Now();
  }
  current_ = &file;
  file.begun = true;
  file.begun_at = Now();
  observer_.FileBegun(file, SecondsSince(suite_start_));
}

void ConsoleSorter::EndSuite() {
  if (suite_) observer_.SuiteDone(*suite_, SecondsSince(suite_start_));
  suite_ = nullptr;
}

void Conclude(std::string_view result, FileRun& file) {
  std::string note;
  std::vector<std::string> errors;
  const RequestShape* shape = file.profile ? file.profile->shape : nullptr;
  for (const std::string& line : file.runner_lines) {
    // A runner that stops at its first test by design says so: that is
    // how its response ends, not a failure of this run.
    if (shape && !shape->stop_line.empty() && line == shape->stop_line) {
      note = shape->stop_note;
    } else {
      errors.push_back(line);
    }
  }
  const std::string joined = JoinShown(errors);
  file.written = result.starts_with(kMarkerOk);
  if (file.written) {
    file.outcome =
        errors.empty() ? FileOutcome::kAnswered : FileOutcome::kRunnerError;
    file.message = errors.empty() ? note : joined;
  } else if (result.starts_with(kMarkerMissing)) {
    file.outcome =
        errors.empty() ? FileOutcome::kNotAnswered : FileOutcome::kRunnerError;
    file.message = errors.empty() ? "the suite wrote no response" : joined;
  } else {
    file.outcome = FileOutcome::kNotAnswered;
    const std::string_view why =
        result.substr(std::min(kMarkerError.size(), result.size()));
    file.message = Printable(why) + (joined.empty() ? "" : "; " + joined);
  }
}

void SortOutput(int fd, ConsoleSorter& sorter) {
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
  sorter.Finish();
}

}  // namespace fipsval::host
