// Whether a response answers every test of its request: the response must
// hold the request's lines in order (blank lines aside), with each test's
// answer lines after its inputs, as many as the runner of that file writes
// (its shape in the runner profiles). Values are not judged here (see
// verify.h for the expected answers and rsa_answer_checks.h for the RSA
// answers).
#pragma once

#include <string_view>

#include "host/base/status.h"
#include "host/catalog/runner_profiles.h"

namespace fipsval::host {

struct Completeness {
  Status status;     // the first gap, with line numbers
  int tests = 0;     // tests of the request that must be answered
  int answered = 0;  // of those, answered in full
  int copied = 0;    // tests the runner copies without an answer by design
};

// For the layouts whose tests are answered; a request that stops at its
// first test (SigVer) is checked by CheckSigVerAnswers instead.
Completeness CheckCompleteness(const RequestShape& shape,
                               std::string_view request,
                               std::string_view response);

}  // namespace fipsval::host
