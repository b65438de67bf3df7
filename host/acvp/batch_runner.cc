#include "host/acvp/batch_runner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include "host/run/tree_engine.h"
#include "host/base/safe_io.h"
#include "host/catalog/suite_catalog.h"

namespace fipsval::host::acvp {
namespace {

namespace fs = std::filesystem;

std::string Errno(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

// A new file that nothing else can have placed or redirected.
bool WriteNew(const std::string& path, const std::string& text, std::string* error) {
  UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd) {
    *error = Errno("cannot create " + path);
    return false;
  }
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd.get(), text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = Errno("cannot write " + path);
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  if (close(fd.Release()) != 0) {
    *error = Errno("cannot write " + path);
    return false;
  }
  return true;
}

// Reads a regular file of the run's own directory (not through a link);
// false when there is none.
bool ReadRegular(const std::string& path, std::string* text) {
  constexpr std::size_t kMaxBytes = std::size_t{1} << 30;
  std::string why;
  return ReadFileBelow(AT_FDCWD, path, kMaxBytes, text, &why);
}

bool MakeDir(const std::string& path, std::string* error) {
  if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) {
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
  }
  *error = Errno("cannot create " + path);
  return false;
}

// The library's last message, for reasons: not its "Couldn't open" lines
// for the request files of a suite that this vector set does not use, nor
// its titles and progress lines.
std::string LastMessage(const std::string& output) {
  std::string last;
  std::size_t start = 0;
  while (start < output.size()) {
    std::size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    std::string line = output.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    const bool noise =
        line.empty() || line.starts_with("Running ") || line.starts_with("TDES ") ||
        line == "ENCRYPT" || line == "DECRYPT" || line.starts_with("COUNT = ") ||
        line.find(" of 400") != std::string::npos ||
        (line.starts_with("Couldn't open ") && line.ends_with(".req"));
    if (!noise) last = line;
  }
  return last;
}

// The library prints to standard output; while the suites run, that goes
// into `path` so that the response JSON on standard output stays clean.
class CapturedStdout {
 public:
  explicit CapturedStdout(const std::string& path) {
    std::fflush(stdout);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return;
    saved_ = dup(STDOUT_FILENO);
    if (saved_ >= 0) dup2(fd, STDOUT_FILENO);
    close(fd);
  }
  ~CapturedStdout() {
    std::fflush(stdout);
    if (saved_ < 0) return;
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  CapturedStdout(const CapturedStdout&) = delete;
  CapturedStdout& operator=(const CapturedStdout&) = delete;

 private:
  int saved_ = -1;
};

}  // namespace

std::vector<std::vector<std::size_t>> PlanRuns(const std::vector<RequestFile>& files) {
  std::vector<std::vector<std::size_t>> runs;
  std::vector<std::set<std::string>> names;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i].slots.empty()) continue;
    const std::string key = files[i].dir + "/" + files[i].name;
    std::size_t r = 0;
    while (r < runs.size() && names[r].count(key)) ++r;
    if (r == runs.size()) {
      runs.emplace_back();
      names.emplace_back();
    }
    runs[r].push_back(i);
    names[r].insert(key);
  }
  return runs;
}

bool RunFiles(const std::vector<RequestFile>& files, const std::vector<std::size_t>& run,
              std::vector<FileResult>* results, std::string* library_output,
              std::string* error) {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/fipsval-acvp-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    *error = Errno("cannot create a private directory in " + fs::path(pattern).parent_path().string());
    return false;
  }
  const std::string tree = pattern;
  host::RunOptions options;
  options.tree = tree;
  bool ok = true;
  for (const std::size_t i : run) {
    const RequestFile& file = files[i];
    const fips_tv* suite = host::FindSuite(file.suite);
    if (!suite) {
      *error = "no suite " + file.suite + " in the library";
      ok = false;
      break;
    }
    if (std::find(options.suites.begin(), options.suites.end(), suite) == options.suites.end()) {
      options.suites.push_back(suite);
    }
    const std::string dir = tree + "/" + file.dir;
    if (!MakeDir(dir, error) || !MakeDir(dir + "/req", error) ||
        !WriteNew(dir + "/req/" + file.name + ".req", file.text, error)) {
      ok = false;
      break;
    }
  }
  int status = 0;
  const std::string log = tree + "/library-output.txt";
  if (ok) {
    CapturedStdout capture(log);
    status = host::RunTree(options);
  }
  ReadRegular(log, library_output);
  const std::string note = LastMessage(*library_output);
  if (ok) {
    for (const std::size_t i : run) {
      const RequestFile& file = files[i];
      FileResult& result = (*results)[i];
      result.present = ReadRegular(tree + "/" + file.dir + "/resp/" + file.name + ".rsp",
                                   &result.text);
      result.note = status != 0 ? "the run could not be completed" : note;
    }
  }
  std::error_code ec;
  fs::remove_all(tree, ec);
  return ok;
}

}  // namespace fipsval::host::acvp
