// Answering one ACVP vector set with the library's suites.
#pragma once

#include <string>

#include "host/acvp/response_writer.h"

namespace fipsval::host::acvp {

struct SessionResult {
  Outcome outcome;
  std::string error;           // the document could not be read or run
  bool document_error = false; // the error is the prompt's (bad field …)
  std::string library_output;  // the library's console output
};

// Converts the prompt, runs the suites over the request files, and reads
// the answers back.
SessionResult AnswerVectorSet(const Json& prompt);

}  // namespace fipsval::host::acvp
