// Turning the library's response files back into an ACVP response: every
// answer line is mapped to the tcId of the test it answers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp {

// What a run left for one request file.
struct FileResult {
  bool present = false;  // a response file was collected
  std::string text;      // its content
  std::string note;      // the runner's own message for the file, or why
                         // the run did not answer it
};

// The answer records of a response file, in order, each a JSON object of
// the answer fields of its runner's profile (hex in upper case).
std::vector<Json> ReadRecords(const RequestFile& file, std::string_view response);

struct AssembledResponse {
  Json response;                       // vsId, algorithm, … testGroups
  std::vector<Unanswered> unanswered;  // every group not in testGroups
  int answered_groups = 0;
  int failed_groups = 0;  // given to a runner but not (fully) answered
};

// `results[i]` belongs to `conversion.files[i]`. A group is answered only
// when every one of its tests got its whole answer; otherwise it is listed
// with the reason.
AssembledResponse AssembleResponse(const Json& prompt,
                                   const Conversion& conversion,
                                   const std::vector<FileResult>& results);

}  // namespace fipsval::host::acvp
