// Checks of the RSA responses whose answers cannot be compared with a fixed
// expected file: signatures made with the runner's own keys, and randomly
// generated key pairs. `fipsval verify` runs them on the RSA2 responses.
#pragma once

#include <string>
#include <string_view>

namespace fipsval::host {

struct AnswerCheck {
  bool ok = true;
  int checked = 0;      // answers examined
  std::string problem;  // the first failure, with its line number
  // SigVer: tests in the request, and whether the response ends at the
  // first one (the runner's way) rather than answering them all.
  int tests = 0;
  bool stopped_at_first_test = false;
};

// Every S verifies (PKCS#1 v1.5, RSA_verify) under its section's reported n
// and e with the digest its SHAAlg line names; tests without S (SHA-224) are
// allowed.
AnswerCheck CheckSigGenAnswers(std::string_view response);
AnswerCheck CheckSigGenResponse(const std::string& response_path);

// Every key: p and q prime, each of nlen/2 bits, n = p*q of nlen bits,
// e = 65537, d = e^-1 mod lcm(p-1, q-1).
AnswerCheck CheckRandomProbablePrimeAnswers(std::string_view response);
AnswerCheck CheckRandomProbablePrimeResponse(const std::string& response_path);

// The response is the request copied up to and including the first line
// that begins with a supported SHAAlg (SHA1/256/384/512), and nothing after
// it: the runner stops there (stopped_at_first_test), or copies the whole
// request when it has no such test.
AnswerCheck CheckSigVerAnswers(std::string_view request,
                               std::string_view response);

}  // namespace fipsval::host
