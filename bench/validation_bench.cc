// The whole validation run, suite by suite, over a CAVP tree (NIST's tree
// plus the project's own vectors), and the power-on self-test run.
//
// Uses the fixed paths: run it through sandbox_run.
//   build/tests/support/sandbox_run build/bench/validation_bench [TREE]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/catalog/suite_catalog.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> g_trees;

// Stages the suite's requests from the first tree that has each one.
int StageRequests(const fips_tv& suite) {
  fs::create_directories("/tmp/req");
  fs::create_directories("/tmp/resp");
  int staged = 0;
  for (const char* const* name = suite.get_filenames(); *name; ++name) {
    for (const fs::path& tree : g_trees) {
      const fs::path request = tree / suite.dir / "req" / (std::string(*name) + ".req");
      if (fs::exists(request)) {
        fs::copy_file(request, fs::path("/tmp/req") / request.filename(),
                      fs::copy_options::overwrite_existing);
        ++staged;
        break;
      }
    }
  }
  return staged;
}

// The library's console output is not part of what is measured.
class QuietStdout {
 public:
  QuietStdout() : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  ~QuietStdout() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }

 private:
  int saved_;
};

void BM_Suite(benchmark::State& state, const fips_tv* suite) {
  const int staged = StageRequests(*suite);
  if (staged == 0) {
    state.SkipWithError("no request files for this suite");
    return;
  }
  for (auto _ : state) {
    QuietStdout quiet;
    suite->run();
  }
  state.counters["files"] = staged;
}

void BM_SelfTests(benchmark::State& state) {
  for (auto _ : state) {
    QuietStdout quiet;
    benchmark::DoNotOptimize(fips_self_tests());
  }
}
BENCHMARK(BM_SelfTests)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (!getenv("FIPSVAL_SANDBOX")) {
    std::fprintf(stderr, "run through sandbox_run: this writes /tmp/req and /tmp/resp\n");
    return 77;
  }
  g_trees = {argc > 1 ? fs::path(argv[1]) : fs::path(FIPSVAL_CAVP_DIR),
             fs::path(FIPSVAL_SOURCE_DIR) / "vectors"};
  for (const fips_tv* suite : fipsval::host::AllSuites()) {
    benchmark::RegisterBenchmark((std::string("BM_Suite/") + suite->name).c_str(),
                                 BM_Suite, suite)
        ->Unit(benchmark::kSecond)
        ->Iterations(1)
        ->UseRealTime()
        ->MeasureProcessCPUTime();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
