#include "host/core/cavp_tree.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRequestDir = "/tmp/req";
constexpr std::string_view kResponseDir = "/tmp/resp";

fs::path StagedRequest(const char* name) {
  return fs::path(kRequestDir) / (std::string(name) + ".req");
}
fs::path StagedResponse(const char* name) {
  return fs::path(kResponseDir) / (std::string(name) + ".rsp");
}

bool Fails(const std::error_code& ec, std::string_view what,
           const fs::path& path) {
  if (!ec) return false;
  std::fprintf(stderr, "fipsval: cannot %.*s %s: %s\n",
               static_cast<int>(what.size()), what.data(), path.c_str(),
               ec.message().c_str());
  return true;
}

// The staging directories must exist and take new files.
bool PrepareStaging() {
  for (std::string_view dir : {kRequestDir, kResponseDir}) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (Fails(ec, "create", fs::path(dir))) return false;
    const fs::path probe = fs::path(dir) / ".fipsval-probe";
    std::FILE* f = std::fopen(probe.c_str(), "w");
    if (!f) {
      std::fprintf(stderr, "fipsval: cannot write in %.*s: %s\n",
                   static_cast<int>(dir.size()), dir.data(),
                   std::strerror(errno));
      return false;
    }
    std::fclose(f);
    fs::remove(probe, ec);
  }
  return true;
}

// Shows, while a suite runs, which of its response files is being written.
class Progress {
 public:
  Progress(const fips_tv& suite, bool enabled) : suite_(suite) {
    if (enabled) thread_ = std::thread([this] { Watch(); });
  }
  ~Progress() {
    if (!thread_.joinable()) return;
    {
      std::lock_guard lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    thread_.join();
    std::fprintf(stderr, "[%s] done in %.1f s\n", suite_.name,
                 Seconds());
  }

 private:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() -
                                         start_)
        .count();
  }
  // The newest response file of the suite, by modification time.
  const char* CurrentFile() const {
    const char* current = nullptr;
    fs::file_time_type newest{};
    for (const char* const* name = suite_.get_filenames(); *name; ++name) {
      std::error_code ec;
      const auto when = fs::last_write_time(StagedResponse(*name), ec);
      if (!ec && (!current || when >= newest)) {
        current = *name;
        newest = when;
      }
    }
    return current;
  }
  // Whole lines only, so that they never split a line the library prints.
  void Watch() {
    const char* shown = nullptr;
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::milliseconds(200),
                           [this] { return done_; })) {
      const char* file = CurrentFile();
      if (file && file != shown) {
        std::fprintf(stderr, "[%s] %s (%.1f s)\n", suite_.name, file,
                     Seconds());
        shown = file;
      }
    }
  }

  const fips_tv& suite_;
  const std::chrono::steady_clock::time_point start_ =
      std::chrono::steady_clock::now();
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread thread_;
};

bool RunSuite(const std::string& tree, const fips_tv& suite, bool progress) {
  const fs::path base = fs::path(tree) / suite.dir;
  for (const char* const* name = suite.get_filenames(); *name; ++name) {
    std::error_code ec;
    fs::remove(StagedRequest(*name), ec);
    fs::remove(StagedResponse(*name), ec);
    const fs::path request = base / "req" / (std::string(*name) + ".req");
    if (!fs::exists(request, ec)) continue;
    fs::copy_file(request, StagedRequest(*name),
                  fs::copy_options::overwrite_existing, ec);
    if (Fails(ec, "stage", request)) return false;
  }

  std::fflush(stdout);
  {
    Progress shown(suite, progress);
    suite.run();
    std::fflush(stdout);
  }

  bool collected = true;
  for (const char* const* name = suite.get_filenames(); *name; ++name) {
    std::error_code ec;
    fs::remove(StagedRequest(*name), ec);
    if (!fs::exists(StagedResponse(*name), ec)) continue;
    const fs::path dir = base / "resp";
    fs::create_directories(dir, ec);
    const fs::path target = dir / (std::string(*name) + ".rsp");
    if (!ec) {
      fs::copy_file(StagedResponse(*name), target,
                    fs::copy_options::overwrite_existing, ec);
    }
    if (Fails(ec, "collect the response into", target)) {
      collected = false;
      continue;
    }
    fs::remove(StagedResponse(*name), ec);
  }
  return collected;
}

}  // namespace

bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites) {
  for (const fips_tv* suite : suites) {
    std::error_code ec;
    if (fs::is_directory(fs::path(tree) / suite->dir / "req", ec)) return true;
  }
  return false;
}

int RunTree(const RunOptions& options) {
  std::error_code ec;
  if (!fs::is_directory(options.tree, ec)) {
    std::fprintf(stderr, "fipsval: %s is not a directory\n",
                 options.tree.c_str());
    return 1;
  }
  if (!TreeHasRequests(options.tree, options.suites)) {
    std::fprintf(stderr,
                 "fipsval: %s has no request folders (<DIR>/req) for the "
                 "selected suites\n",
                 options.tree.c_str());
    return 1;
  }
  if (!PrepareStaging()) return 1;
  for (const fips_tv* suite : options.suites) {
    if (!RunSuite(options.tree, *suite, options.progress)) return 1;
  }
  return 0;
}

}  // namespace fipsval::host
