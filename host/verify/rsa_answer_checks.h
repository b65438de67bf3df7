// Checks of the RSA responses whose answers cannot be compared with a fixed
// expected file: signatures made with the runner's own keys, and randomly
// generated key pairs. `fipsval verify` runs them on the RSA2 responses.
#pragma once

#include <string_view>

#include "host/base/status.h"
#include "host/catalog/runner_profiles.h"

namespace fipsval::host {

struct AnswerCheck {
  Status status;    // the first failure, with its line number
  int checked = 0;  // answers examined
  // SigVer: tests in the request, and whether the response ends at the
  // first one (the runner's way) rather than answering them all.
  int tests = 0;
  bool stopped_at_first_test = false;
};

// Every S verifies (PKCS#1 v1.5) under its section's reported n and e with
// the digest its SHAAlg line names; a test of a digest the runner does not
// sign (the shape's digests: SHA-224 is copied) has no S.
AnswerCheck CheckSigGenAnswers(const RequestShape& shape,
                               std::string_view response);

// Every key: p and q prime, each of nlen/2 bits, n = p*q of nlen bits,
// e = 65537, d = e^-1 mod lcm(p-1, q-1).
AnswerCheck CheckRandomProbablePrimeAnswers(std::string_view response);

// The response is the request copied up to and including the first test of
// a digest the runner supports (the shape's test tag and digests), and
// nothing after it: the runner stops there (stopped_at_first_test), or
// copies the whole request when it has no such test.
AnswerCheck CheckSigVerAnswers(const RequestShape& shape,
                               std::string_view request,
                               std::string_view response);

}  // namespace fipsval::host
