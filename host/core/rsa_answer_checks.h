// Checks of RSA responses whose answers are random (generated keys and
// signatures), made the way a lab checks them.
#pragma once

#include <string>

namespace fipsval::host {

struct AnswerCheck {
  bool ok = true;
  int checked = 0;      // answers checked
  std::string problem;  // the first failure, with its line number
};

// Every S verifies (PKCS#1 v1.5) under its section's reported n and e with
// the digest its SHAAlg line names; tests without S (SHA-224) are allowed.
AnswerCheck CheckSigGenResponse(const std::string& response_path);
// Every key: p and q prime, each of nlen/2 bits, n = p*q of nlen bits,
// e = 65537, d = e^-1 mod lcm(p-1, q-1).
AnswerCheck CheckRandomProbablePrimeResponse(const std::string& response_path);
// The response is the request copied up to and including the first line
// that begins with a supported SHAAlg, and nothing after it.
AnswerCheck CheckSigVerResponse(const std::string& request_path,
                                const std::string& response_path);

}  // namespace fipsval::host
