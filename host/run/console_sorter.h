// Sorting the console output of the suites' process. The process stages one
// request file at a time and prints a marker line before and after the
// suite's run on it ("<marker>begin 3", "<marker>end 3 ok"); every line the
// library prints between two markers belongs to that file. A line is a
// suite title, a runner's progress, chatter about the files not staged on
// purpose ("Couldn't open /tmp/req/<other>.req"), or else a runner error of
// the file. At its end marker the file gets its outcome.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/base/clock.h"
#include "host/run/run_result.h"

namespace fipsval::host {

// What the end marker says after the index: "ok" (the response was put in
// place), "missing" (the suite wrote none), "error <why>".
inline constexpr std::string_view kMarkerOk = "ok";
inline constexpr std::string_view kMarkerMissing = "missing";
inline constexpr std::string_view kMarkerError = "error ";

class ConsoleSorter {
 public:
  // files: the run's files, which the marker indexes name. The observer
  // hears of each file begun, each suite done and each line.
  ConsoleSorter(std::vector<FileRun>& files, std::string marker,
                RunObserver& observer);

  // One line of output, without its line end.
  void Line(std::string_view line);
  // The output has ended.
  void Finish();

 private:
  void Library(std::string_view line);
  void Marker(std::string_view rest);
  void Begin(FileRun& file);
  void EndSuite();

  std::vector<FileRun>& files_;
  std::string marker_;
  RunObserver& observer_;
  FileRun* current_ = nullptr;
  const fips_tv* suite_ = nullptr;
  SteadyTime suite_start_;
};

// Feeds the lines read from fd to the sorter until the end of the output.
void SortOutput(int fd, ConsoleSorter& sorter);

// The outcome of a file from its end marker's word and the lines its runner
// printed: answered when the response was put in place and the runner said
// nothing (or only its designed stop, its profile's stop line).
void Conclude(std::string_view result, FileRun& file);

}  // namespace fipsval::host
