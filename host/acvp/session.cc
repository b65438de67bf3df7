#include "host/acvp/session.h"

#include "host/acvp/batch_runner.h"

namespace fipsval::host::acvp {

SessionResult AnswerVectorSet(const Json& prompt, RunObserver* observer) {
  SessionResult result;
  const Conversion conversion = ConvertVectorSet(prompt);
  if (!conversion.status.ok()) {
    result.status = conversion.status.kind() == StatusKind::kRefused
                        ? conversion.status
                        : Failed(conversion.status.message());
    return result;
  }
  std::vector<FileResult> results(conversion.files.size());
  for (const auto& run : PlanRuns(conversion.files)) {
    if (Status s = RunFiles(conversion.files, run, &results, observer); !s.ok()) {
      result.status = Failed(s.message());
      return result;
    }
  }
  result.answers = AssembleResponse(prompt, conversion, results);
  return result;
}

}  // namespace fipsval::host::acvp
