#include "host/acvp/response_writer.h"

#include <algorithm>
#include <map>
#include <utility>

namespace fipsval::host::acvp {
namespace {

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.back() == '\r' || text.back() == ' ' ||
                           text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

std::string Stopped(const RequestFile& file, long long tc_id,
                    const std::string& note) {
  std::string reason = "the " + file.suite + " runner (" + file.name +
                       ") gave no answer for tcId " + std::to_string(tc_id);
  if (!note.empty()) reason += ": " + note;
  return reason;
}

}  // namespace

std::vector<Json> ReadRecords(const RequestFile& file, std::string_view response) {
  std::vector<Json> records;
  const SectionAnswers* active = nullptr;
  for (const SectionAnswers& s : file.sections) {
    if (s.marker.empty()) active = &s;
  }
  Json record = Json::object();
  while (!response.empty()) {
    const std::size_t end = response.find('\n');
    const std::string_view line =
        Trim(response.substr(0, end == std::string_view::npos ? response.size() : end));
    response.remove_prefix(end == std::string_view::npos ? response.size() : end + 1);
    bool switched = false;
    for (const SectionAnswers& s : file.sections) {
      if (!s.marker.empty() && line.starts_with(s.marker)) {
        active = &s;
        record = Json::object();
        switched = true;
      }
    }
    if (switched || !active) continue;
    for (const AnswerTag& tag : active->tags) {
      if (!line.starts_with(tag.prefix)) continue;
      record[tag.field] = ToUpper(line.substr(tag.prefix.size()));
      if (tag.prefix == active->closing) {
        records.push_back(std::move(record));
        record = Json::object();
      }
      break;
    }
  }
  return records;
}

Outcome AssembleResponse(const Json& prompt, const Conversion& conversion,
                         const std::vector<FileResult>& results) {
  std::map<std::pair<long long, long long>, Json> answers;
  std::map<long long, Json> group_fields;
  std::map<long long, std::string> failed;  // tgId → reason (the first)
  const auto fail = [&](long long tg_id, const std::string& reason) {
    failed.emplace(tg_id, reason);
  };

  for (std::size_t i = 0; i < conversion.files.size(); ++i) {
    const RequestFile& file = conversion.files[i];
    const FileResult& result = results[i];
    if (!result.present) {
      for (const Slot& slot : file.slots) {
        fail(slot.tg_id, "no response from the " + file.suite + " suite for " +
                             file.name + (result.note.empty() ? "" : ": " + result.note));
      }
      continue;
    }
    const std::vector<Json> records = ReadRecords(file, result.text);
    std::size_t next = 0;
    for (const Slot& slot : file.slots) {
      if (records.size() - next < static_cast<std::size_t>(slot.records)) {
        fail(slot.tg_id, Stopped(file, slot.tc_id, result.note));
        next = records.size();
        continue;
      }
      Json test = Json::object();
      test["tcId"] = slot.tc_id;
      if (slot.records > 1) {
        test["resultsArray"] = Json::array();
        for (int r = 0; r < slot.records; ++r) {
          test["resultsArray"].push_back(records[next++]);
        }
      } else {
        for (auto& [field, value] : records[next++].items()) {
          const bool of_group =
              std::find(file.group_fields.begin(), file.group_fields.end(),
                        field) != file.group_fields.end();
          if (!of_group) {
            test[field] = value;
          } else if (!group_fields[slot.tg_id].contains(field)) {
            group_fields[slot.tg_id][field] = value;
          }
        }
      }
      answers[{slot.tg_id, slot.tc_id}] = std::move(test);
    }
    if (next < records.size()) {
      for (const Slot& slot : file.slots) {
        fail(slot.tg_id, "the response " + file.name +
                             " holds more answers than the request has tests");
      }
    }
  }

  Outcome out;
  Json& response = out.response;
  for (const char* field : {"vsId", "algorithm", "mode", "revision", "isSample"}) {
    if (prompt.contains(field)) response[field] = prompt[field];
  }
  response["testGroups"] = Json::array();
  std::map<long long, std::string> unsupported;
  for (const Unanswered& u : conversion.unanswered) unsupported.emplace(u.tg_id, u.reason);
  for (const Json& group : prompt["testGroups"]) {
    const long long tg_id = group["tgId"].get<long long>();
    if (const auto it = unsupported.find(tg_id); it != unsupported.end()) {
      out.unanswered.push_back({tg_id, it->second});
      continue;
    }
    if (const auto it = failed.find(tg_id); it != failed.end()) {
      out.unanswered.push_back({tg_id, it->second});
      ++out.failed_groups;
      continue;
    }
    Json answered = Json::object();
    answered["tgId"] = tg_id;
    if (const auto it = group_fields.find(tg_id); it != group_fields.end()) {
      for (auto& [field, value] : it->second.items()) answered[field] = value;
    }
    answered["tests"] = Json::array();
    bool complete = true;
    for (const Json& test : group["tests"]) {
      const auto it = answers.find({tg_id, test["tcId"].get<long long>()});
      if (it == answers.end()) {
        complete = false;
        break;
      }
      answered["tests"].push_back(it->second);
    }
    if (!complete) {
      out.unanswered.push_back({tg_id, "not every test of the group was answered"});
      ++out.failed_groups;
      continue;
    }
    response["testGroups"].push_back(std::move(answered));
    ++out.answered_groups;
  }
  if (!out.unanswered.empty()) {
    Json& report = response["notAnswered"];
    for (const Unanswered& u : out.unanswered) {
      report.push_back({{"tgId", u.tg_id}, {"reason", u.reason}});
    }
  }
  return out;
}

}  // namespace fipsval::host::acvp
