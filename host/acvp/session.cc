#include "host/acvp/session.h"

#include "host/acvp/batch_runner.h"

namespace fipsval::host::acvp {

SessionResult AnswerVectorSet(const Json& prompt) {
  SessionResult result;
  const Conversion conversion = ConvertVectorSet(prompt);
  if (!conversion.error.empty()) {
    result.error = conversion.error;
    result.document_error = true;
    return result;
  }
  std::vector<FileResult> results(conversion.files.size());
  for (const auto& run : PlanRuns(conversion.files)) {
    std::string output;
    if (!RunFiles(conversion.files, run, &results, &output, &result.error)) {
      return result;
    }
    result.library_output += output;
  }
  result.outcome = AssembleResponse(prompt, conversion, results);
  return result;
}

}  // namespace fipsval::host::acvp
