// Whether a response answers every test of its request: the response must
// hold the request's lines in order (blank lines aside), with each test's
// answer lines after its inputs, as many as the runner of that file writes.
// Values are not judged here (see verify.h for the expected answers and
// rsa_answer_checks.h for the RSA answers).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fipsval::host {

struct Line {
  int number;  // from 1
  std::string_view text;
};

// Non-blank lines without their ending (CR LF, or the CR CR LF of the key
// generation KAT files), numbered from 1.
std::vector<Line> NonBlankLines(std::string_view text);

struct Completeness {
  bool ok = false;
  int tests = 0;     // tests of the request that must be answered
  int answered = 0;  // of those, answered in full
  std::string detail;  // the first gap, with line numbers, when not ok
};

// `name` is the request's base name ("CBCGFSbox128", "SigGen15_186-3", …);
// it selects what a test and an answer look like. "SigVer15_186-3" is not
// handled here: its runner stops at the first test (CheckSigVerResponse).
Completeness CheckCompleteness(std::string_view name, std::string_view request,
                               std::string_view response);

}  // namespace fipsval::host
