// The ACVP side under hostile JSON: the reader (bounds, envelope), the
// conversion of a vector set into request files, the assembly of a
// response from them, and acvp --check's comparison. An input is one
// document, or two separated by a zero byte (expected results, then the
// response). Nothing here runs a suite: the request text stands in for the
// response file, so the records read back are whatever it holds.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

#include "host/acvp/check.h"
#include "host/acvp/convert/conversion.h"
#include "host/acvp/json_fields.h"
#include "host/acvp/response_writer.h"

namespace {

using fipsval::host::acvp::Json;
namespace acvp = fipsval::host::acvp;

std::FILE* sink = nullptr;  // --check's lines

// Aborts, naming the broken promise, unless ok.
void Expect(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "acvp_json_fuzzer: %s\n", what);
  std::abort();
}

bool Read(std::string_view text, Json* document) {
  std::string version;
  return acvp::ParseJsonText(text, "input", document).ok() &&
         acvp::OpenEnvelope("input", document, &version).ok();
}

// The comparison catches the JSON library's exceptions as a last guard;
// reaching that guard is a slip in the field checks before it.
void Compare(const Json& expected, const Json& response) {
  const acvp::CheckTally tally = acvp::CheckResponse(expected, response, &expected, sink);
  Expect(!tally.status.message().starts_with("cannot compare the documents"),
         "the comparison threw");
}

void Convert(const Json& prompt) {
  const acvp::Conversion conversion = acvp::ConvertVectorSet(prompt);
  if (!conversion.status.ok()) return;
  // Every group ends in a request file or with a reason, never in both.
  std::set<long long> unanswered;
  for (const acvp::Unanswered& u : conversion.unanswered) unanswered.insert(u.tg_id);
  std::vector<acvp::FileResult> results;
  for (const acvp::RequestFile& file : conversion.files) {
    Expect(file.profile != nullptr, "a request file without a runner");
    for (const acvp::Slot& slot : file.slots) {
      Expect(!unanswered.count(slot.tg_id), "a group both converted and not answered");
    }
    results.push_back({true, file.text, ""});
  }
  const acvp::AssembledResponse answers = acvp::AssembleResponse(prompt, conversion, results);
  Expect(answers.response.contains("testGroups"), "a response without testGroups");
  Compare(prompt, answers.response);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!sink) sink = std::fopen("/dev/null", "w");
  if (size > 256 * 1024 || !sink) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t cut = input.find('\0');
  if (cut == std::string_view::npos) {
    Json prompt;
    if (Read(input, &prompt)) Convert(prompt);
    return 0;
  }
  Json expected, response;
  if (Read(input.substr(0, cut), &expected) && Read(input.substr(cut + 1), &response)) {
    Compare(expected, response);
  }
  return 0;
}
