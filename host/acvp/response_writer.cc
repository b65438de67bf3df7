#include "host/acvp/response_writer.h"

#include <algorithm>
#include <optional>
#include <map>
#include <utility>

#include "host/base/text.h"

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
  std::string reason = std::string("the ") + std::string(file.profile->suite) +
                       " runner (" + std::string(file.profile->name) +
                       ") gave no answer for tcId " + std::to_string(tc_id);
  if (!note.empty()) reason += ": " + note;
  return reason;
}

// The answers of every file, by test, and the groups that failed.
struct Answers {
  std::map<std::pair<long long, long long>, Json> tests;
  std::map<long long, Json> group_fields;  // RSA's n and e
  std::map<long long, std::string> failed;  // tgId → reason (the first)

  void Fail(long long tg_id, const std::string& reason) {
    failed.emplace(tg_id, reason);
  }
  void Collect(const RequestFile& file, const FileResult& result);

 private:
  void Record(const RequestFile& file, const Slot& slot, const Json& record);
};

void Answers::Record(const RequestFile& file, const Slot& slot,
                     const Json& record) {
  Json& test = tests[{slot.tg_id, slot.tc_id}];
  test["tcId"] = slot.tc_id;
  const auto& of_group = file.profile->shape->group_fields;
  for (auto& [field, value] : record.items()) {
    if (std::find(of_group.begin(), of_group.end(), field) == of_group.end()) {
      test[field] = value;
    } else if (!group_fields[slot.tg_id].contains(field)) {
      group_fields[slot.tg_id][field] = value;
    }
  }
}

void Answers::Collect(const RequestFile& file, const FileResult& result) {
  if (!result.present) {
    for (const Slot& slot : file.slots) {
      Fail(slot.tg_id, "no response from the " + std::string(file.profile->suite) +
                           " suite for " + std::string(file.profile->name) +
                           (result.note.empty() ? "" : ": " + result.note));
    }
    return;
  }
  const std::vector<Json> records = ReadRecords(file, result.text);
  std::size_t next = 0;
  for (const Slot& slot : file.slots) {
    if (records.size() - next < static_cast<std::size_t>(slot.records)) {
      Fail(slot.tg_id, Stopped(file, slot.tc_id, result.note));
      next = records.size();
    } else if (slot.records > 1) {
      Json& test = tests[{slot.tg_id, slot.tc_id}];
      test["tcId"] = slot.tc_id;
      test["resultsArray"] = Json::array();
      for (int r = 0; r < slot.records; ++r) {
        test["resultsArray"].push_back(records[next++]);
      }
    } else {
      Record(file, slot, records[next++]);
    }
  }
  if (next < records.size()) {
    for (const Slot& slot : file.slots) {
      Fail(slot.tg_id, "the response " + std::string(file.profile->name) +
                           " holds more answers than the request has tests");
    }
  }
}

// The group's answered form, or nullopt when a test has no answer.
std::optional<Json> AnsweredGroup(const Json& group, const Answers& answers) {
  const long long tg_id = group["tgId"].get<long long>();
  Json answered = Json::object();
  answered["tgId"] = tg_id;
  if (const auto it = answers.group_fields.find(tg_id);
      it != answers.group_fields.end()) {
    for (auto& [field, value] : it->second.items()) answered[field] = value;
  }
  answered["tests"] = Json::array();
  for (const Json& test : group["tests"]) {
    const auto it = answers.tests.find({tg_id, test["tcId"].get<long long>()});
    if (it == answers.tests.end()) return std::nullopt;
    answered["tests"].push_back(it->second);
  }
  return answered;
}

}  // namespace

std::vector<Json> ReadRecords(const RequestFile& file, std::string_view response) {
  std::vector<Json> records;
  const AnswerSection* active = nullptr;
  for (const AnswerSection& s : file.profile->shape->sections) {
    if (s.marker.empty()) active = &s;
  }
  Json record = Json::object();
  for (const Line& line : Lines(response)) {
    const std::string_view text = Trim(line.text);
    bool switched = false;
    for (const AnswerSection& s : file.profile->shape->sections) {
      if (!s.marker.empty() && text.starts_with(s.marker)) {
        active = &s;
        record = Json::object();
        switched = true;
      }
    }
    if (switched || !active) continue;
    for (const AnswerField& field : active->fields) {
      if (!text.starts_with(field.tag)) continue;
      record[std::string(field.acvp)] = ToUpper(text.substr(field.tag.size()));
      if (field.tag == active->closing) {
        records.push_back(std::move(record));
        record = Json::object();
      }
      break;
    }
  }
  return records;
}

AssembledResponse AssembleResponse(const Json& prompt,
                                   const Conversion& conversion,
                                   const std::vector<FileResult>& results) {
  Answers answers;
  for (std::size_t i = 0; i < conversion.files.size(); ++i) {
    answers.Collect(conversion.files[i], results[i]);
  }
  AssembledResponse out;
  Json& response = out.response;
  for (const char* field : {"vsId", "algorithm", "mode", "revision", "isSample"}) {
    if (prompt.contains(field)) response[field] = prompt[field];
  }
  response["testGroups"] = Json::array();
  std::map<long long, std::string> unsupported;
  for (const Unanswered& u : conversion.unanswered) unsupported.emplace(u.tg_id, u.reason);
  for (const Json& group : prompt["testGroups"]) {
    const long long tg_id = group["tgId"].get<long long>();
    std::optional<Json> answered;
    if (const auto it = unsupported.find(tg_id); it != unsupported.end()) {
      out.unanswered.push_back({tg_id, it->second});
    } else if (const auto it = answers.failed.find(tg_id); it != answers.failed.end()) {
      out.unanswered.push_back({tg_id, it->second, true});
      ++out.failed_groups;
    } else if (!(answered = AnsweredGroup(group, answers))) {
      out.unanswered.push_back({tg_id, "not every test of the group was answered", true});
      ++out.failed_groups;
    } else {
      response["testGroups"].push_back(std::move(*answered));
      ++out.answered_groups;
    }
  }
  for (const Unanswered& u : out.unanswered) {
    response["notAnswered"].push_back({{"tgId", u.tg_id}, {"reason", u.reason}});
  }
  return out;
}

}  // namespace fipsval::host::acvp
