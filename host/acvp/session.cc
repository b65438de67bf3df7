#include "host/acvp/session.h"

#include "host/acvp/batch_runner.h"

namespace fipsval::host::acvp {

namespace {

SessionResult Answer(const Json& prompt, RunObserver* observer) {
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

}  // namespace

SessionResult AnswerVectorSet(const Json& prompt, RunObserver* observer) {
  // The converters check every field before use; a slip there must still
  // end as a refusal, not an exception out of the tool.
  try {
    return Answer(prompt, observer);
  } catch (const Json::exception& e) {
    SessionResult result;
    result.status = Refused(std::string("cannot read the vector set: ") + e.what());
    return result;
  }
}

}  // namespace fipsval::host::acvp
