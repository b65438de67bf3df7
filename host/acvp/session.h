// Answering one ACVP vector set with the library's suites.
#pragma once

#include "host/acvp/response_writer.h"
#include "host/base/status.h"
#include "host/run/run_result.h"

namespace fipsval::host::acvp {

struct SessionResult {
  AssembledResponse answers;
  // Refused: the document is bad (a missing or bad field, an algorithm
  // fipsval does not answer); failed: the run could not be made.
  Status status;
};

// Converts the prompt, runs the suites over the request files, and reads
// the answers back. The observer hears the runs (none: they are silent).
SessionResult AnswerVectorSet(const Json& prompt,
                              RunObserver* observer = nullptr);

}  // namespace fipsval::host::acvp
