#include "host/report/run_record.h"

#include <ctime>
#include <nlohmann/json.hpp>

namespace fipsval::host {

std::string UtcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

std::string RunRecordJson(const RunRecord& record) {
  nlohmann::ordered_json files = nlohmann::ordered_json::array();
  for (const FileRecord& file : record.files) {
    files.push_back({{"dir", file.dir},
                     {"name", file.name},
                     {"outcome", OutcomeName(file.outcome)},
                     {"message", file.message}});
  }
  nlohmann::ordered_json json = {
      {"version", 1},
      {"tree", record.tree},
      {"started", record.started},
      {"finished", record.finished ? nlohmann::ordered_json(*record.finished)
                                   : nlohmann::ordered_json(nullptr)},
      {"files", files}};
  // Request text echoed in a message need not be UTF-8: replace, not fail.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n";
}

}  // namespace fipsval::host
