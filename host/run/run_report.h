// What a run tells its user: the library's console lines sorted into
// progress chatter and runner errors, and each request file's outcome.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fipsval::host {

// A suite title that a run operation prints before each of its runners
// ("TDES KAT VARTEXT", "Running SigGen test", ...).
bool IsSuiteTitle(std::string_view line);

// A runner's normal progress line for the file `name`: "Running file NAME",
// the TDES Monte Carlo "ENCRYPT", "DECRYPT", "50 of 400", "COUNT = 3".
bool IsProgressLine(std::string_view line, std::string_view name);

// The line with control characters shown as "\xNN" (request text echoed by
// a runner may hold anything).
std::string Printable(std::string_view line);

enum class Outcome { kAnswered, kRunnerError, kNotAnswered };
const char* OutcomeName(Outcome outcome);  // "answered", "runner-error", ...

struct FileRecord {
  std::string dir;
  std::string name;
  Outcome outcome = Outcome::kNotAnswered;
  std::string message;
  double seconds = 0;  // spent on the file (not in the run record)
};

}  // namespace fipsval::host
