// Placeholder until the RSA answer checks are written.
#include "host/core/rsa_answer_checks.h"

namespace fipsval::host {
namespace {
AnswerCheck NotYet() { return {false, 0, "RSA answer checks are not built yet"}; }
}  // namespace
AnswerCheck CheckSigGenResponse(const std::string&) { return NotYet(); }
AnswerCheck CheckRandomProbablePrimeResponse(const std::string&) { return NotYet(); }
AnswerCheck CheckSigVerResponse(const std::string&, const std::string&) { return NotYet(); }
}  // namespace fipsval::host
