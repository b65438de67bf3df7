// Comparing an ACVP response with the expected results, test by test.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "host/acvp/json_fields.h"
#include "host/acvp/tally.h"
#include "host/base/status.h"

namespace fipsval::host::acvp {

struct CheckTally {
  int passed = 0;  // tests
  int failed = 0;
  int unanswered_groups = 0;  // groups the response lists as not answered
  Status status;              // a document is not a vector set
  std::vector<GroupResult> groups;  // each group as its line says
};

// Prints one line per expected group to `out`. RSA signature-generation
// groups are checked by verifying each signature with the n and e the
// response reports, over the prompt's message: they need `prompt`.
CheckTally CheckResponse(const Json& expected, const Json& response,
                         const Json* prompt, std::FILE* out);

}  // namespace fipsval::host::acvp
