// What `acvp` and `acvp --check` found, vector set by vector set: the
// values the command decided on, which its --json and --junit reports
// print (host/report/).
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "host/base/status.h"

namespace fipsval::host::acvp {

struct GroupResult {
  long long tg_id = 0;
  // acvp: "answered", "not-answered" (no runner takes it) or "failed" (a
  // runner was given it and did not answer it whole); --check: "passed",
  // "failed" or "not-answered".
  std::string outcome;
  std::string reason;  // why not answered, or the first difference
  int tests = 0;       // --check: the expected tests of the group
  int failed = 0;      // --check: of them, those not right
};

struct SetResult {
  std::string file;      // the prompt, or the expected results
  std::string response;  // where the response went, or the response checked
  std::optional<long long> vs_id;
  std::string algorithm, mode, revision;
  // acvp: "answered", "not-answered", "failed", "refused" or "submitted";
  // --check: "passed", "failed", "not-answered", "refused" or "no-response".
  std::string outcome;
  std::string message;  // the set's own problem, "" when none
  double seconds = 0;
  std::vector<GroupResult> groups;
};

struct AcvpTally {
  std::vector<SetResult> sets;
  Status problem;  // why there was nothing to answer or check
};

// The outcomes a set and a group may have, by command; the reports count
// each of them.
inline constexpr std::array<const char*, 5> kAnswerSetOutcomes = {
    "answered", "not-answered", "failed", "refused", "submitted"};
inline constexpr std::array<const char*, 5> kCheckSetOutcomes = {
    "passed", "failed", "not-answered", "refused", "no-response"};
inline constexpr std::array<const char*, 3> kAnswerGroupOutcomes = {
    "answered", "not-answered", "failed"};
inline constexpr std::array<const char*, 3> kCheckGroupOutcomes = {
    "passed", "failed", "not-answered"};

}  // namespace fipsval::host::acvp
