#include "host/report/run_record.h"

#include <nlohmann/json.hpp>

#include "host/base/paths.h"

namespace fipsval::host {
namespace {

using Json = nlohmann::ordered_json;

std::string Text(const nlohmann::json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>()
                                               : std::string();
}

}  // namespace

std::string RunRecordJson(const RunResult& run) {
  Json files = Json::array();
  for (const FileRun& file : run.files) {
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"outcome", OutcomeName(file.outcome)},
                     {"message", file.message}});
  }
  const Json json = {
      {"version", 1},
      {"tree", AbsolutePath(run.tree)},
      {"started", run.started},
      {"finished", run.finished.empty() ? Json(nullptr) : Json(run.finished)},
      {"files", files}};
  // Request text echoed in a message need not be UTF-8: replace, not fail.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n";
}

Status ParseRunRecord(std::string_view text, RunRecord* record) {
  const nlohmann::json json =
      nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || !json.contains("files") ||
      !json["files"].is_array() || !json.contains("finished")) {
    return Refused("not a run record this program can read");
  }
  record->tree = Text(json, "tree");
  record->started = Text(json, "started");
  record->finished = !json["finished"].is_null();
  for (const nlohmann::json& entry : json["files"]) {
    if (!entry.is_object()) continue;
    record->files[Text(entry, "dir") + "/" + Text(entry, "name")] = {
        Text(entry, "outcome"), Text(entry, "message")};
  }
  return Ok();
}

}  // namespace fipsval::host
