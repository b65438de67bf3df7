#include "host/report/result_report.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/base/file_io.h"
#include "host/base/paths.h"

namespace fipsval::host {
namespace {

using Json = nlohmann::ordered_json;

double Rounded(double seconds) { return std::round(seconds * 1000) / 1000; }

Json RunPart(const RunResult& run, double seconds) {
  Json files = Json::array();
  for (const FileRun& file : run.files) {
    if (file.plan == FilePlan::kAbsent) continue;
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"outcome", OutcomeName(file.outcome)},
                     {"message", file.message},
                     {"seconds", Rounded(file.seconds)}});
  }
  const RunCounts counts = run.Counts();
  Json part = {{"seconds", Rounded(seconds)},
               {"files", files},
               {"counts",
                {{"answered", counts.answered},
                 {"runner_errors", counts.runner_errors},
                 {"not_answered", counts.not_answered},
                 {"without_request", counts.without_request},
                 {"not_handled", run.unhandled.size()},
                 {"responses_written", counts.written}}},
               {"not_handled", run.unhandled}};
  if (const Status problem = run.Problem(); !problem.ok()) {
    part["error"] = problem.message();
  }
  return part;
}

Json VerifyPart(const VerifyTally& tally, double seconds) {
  Json files = Json::array();
  for (const FileVerdict& file : tally.files) {
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"verdict", file.verdict},
                     {"detail", file.note},
                     {"provenance", file.provenance},
                     {"seconds", Rounded(file.seconds)}});
  }
  return {{"seconds", Rounded(seconds)},
          {"files", files},
          {"counts",
           {{"passed", tally.passed},
            {"failed", tally.failed},
            {"complete_only", tally.complete_only},
            {"stopped", tally.stopped},
            {"missing", tally.missing},
            {"no_evidence", tally.no_evidence}}}};
}

// The sets of `acvp` or `acvp --check`, each with its groups, and how many
// sets, groups (and, checked, tests) had each outcome.
Json AcvpPart(const acvp::AcvpTally& tally, bool check) {
  Json sets = Json::array(), by_set = Json::object(), by_group = Json::object();
  for (const char* o : check ? acvp::kCheckSetOutcomes : acvp::kAnswerSetOutcomes) by_set[o] = 0;
  for (const char* o : check ? acvp::kCheckGroupOutcomes : acvp::kAnswerGroupOutcomes) {
    by_group[o] = 0;
  }
  int passed = 0, failed = 0;
  for (const acvp::SetResult& set : tally.sets) {
    Json groups = Json::array();
    for (const acvp::GroupResult& g : set.groups) {
      Json group = {{"tgId", g.tg_id}, {"outcome", g.outcome}, {"reason", g.reason}};
      if (check) {
        group["tests"] = g.tests;
        group["failed"] = g.failed;
        passed += g.outcome == "not-answered" ? 0 : g.tests - g.failed;
        failed += g.failed;
      }
      groups.push_back(std::move(group));
      by_group[g.outcome] = by_group.value(g.outcome, 0) + 1;
    }
    Json entry = {{"file", set.file}, {"response", set.response}};
    if (set.vs_id) entry["vsId"] = *set.vs_id;
    entry.update({{"algorithm", set.algorithm}, {"mode", set.mode},
                  {"revision", set.revision}, {"outcome", set.outcome},
                  {"message", set.message}, {"seconds", Rounded(set.seconds)},
                  {"groups", groups}});
    sets.push_back(std::move(entry));
    by_set[set.outcome] = by_set.value(set.outcome, 0) + 1;
  }
  Json counts = {{"vector_sets", tally.sets.size()}, {"sets", by_set}, {"groups", by_group}};
  if (check) counts["tests"] = {{"passed", passed}, {"failed", failed}};
  return {{"vector_sets", sets}, {"counts", counts}};
}

Status WriteReport(const std::string& path, const std::string& content) {
  return ReplaceGivenFile(path, content, 0644)
      .Prefixed("cannot write the report " + path + ": ");
}

// Writes each report asked for; the paths of those written, and the first
// failure.
Status WriteReports(const ResultReport& report, const ReportPaths& paths,
                    std::vector<const std::string*>* written) {
  Status first;
  for (const std::string* path : {&paths.json, &paths.junit}) {
    if (path->empty()) continue;
    const Status s = WriteReport(
        *path, path == &paths.json ? ResultJson(report) : ResultJunit(report));
    if (s.ok()) {
      written->push_back(path);
      continue;
    }
    std::fprintf(stderr, "fipsval: %s\n", s.message().c_str());
    if (first.ok()) first = s;
  }
  return first;
}

}  // namespace

Status CheckReportPaths(const ReportPaths& paths) {
  for (const std::string* path : {&paths.json, &paths.junit}) {
    if (path->empty()) continue;
    const PathParts where = SplitPath(*path);
    struct stat st;
    if (where.name.empty() || where.name == "." || where.name == ".." ||
        (stat(path->c_str(), &st) == 0 && S_ISDIR(st.st_mode))) {
      return Refused("the report " + *path + " names a directory, not a file");
    }
    if (stat(where.dir.c_str(), &st) != 0) {
      return Missing("cannot write the report " + *path + ": the directory " +
                     where.dir + " does not exist");
    }
    if (!S_ISDIR(st.st_mode)) {
      return Refused("cannot write the report " + *path + ": " + where.dir +
                     " is not a directory");
    }
  }
  if (!paths.json.empty() && paths.json == paths.junit) {
    return Refused("--json and --junit name the same file " + paths.json);
  }
  return Ok();
}

std::string ResultJson(const ResultReport& report) {
  Json json = {{"fipsval", report.version}, {"command", report.command}};
  if (report.acvp) {
    json["input"] = report.tree;
    if (!report.responses.empty()) json["responses"] = report.responses;
  } else {
    json.update({{"tree", report.tree}, {"responses", report.responses}});
  }
  json.update({{"started", report.started},
               {"finished", report.finished},
               {"seconds", Rounded(report.seconds)}});
  if (!report.status.ok()) json["error"] = report.status.message();
  if (report.acvp) json["acvp"] = AcvpPart(*report.acvp, report.command == "acvp --check");
  if (report.run) json["run"] = RunPart(*report.run, report.run_seconds);
  if (report.verify) {
    json["verify"] = VerifyPart(*report.verify, report.verify_seconds);
  }
  json["exit_status"] = report.exit_status;
  // Request text echoed in a message need not be UTF-8: replace, not fail.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n";
}

int FinishReport(ResultReport* report, const ReportPaths& paths, int status) {
  report->finished = UtcStamp();
  report->seconds = SecondsSince(report->start);
  report->exit_status = status;
  report->tree = AbsolutePath(report->tree);
  if (!report->responses.empty()) report->responses = AbsolutePath(report->responses);
  std::vector<const std::string*> written;
  const Status failed = WriteReports(*report, paths, &written);
  if (failed.ok() || status != 0) return status;
  // The work was done, a report was not: the exit status is a failure, and
  // no report may say otherwise.
  report->exit_status = 1;
  if (report->status.ok()) report->status = failed;
  for (const std::string* path : written) {
    const std::string content =
        path == &paths.json ? ResultJson(*report) : ResultJunit(*report);
    if (!WriteReport(*path, content).ok()) unlink(path->c_str());
  }
  return 1;
}

}  // namespace fipsval::host
