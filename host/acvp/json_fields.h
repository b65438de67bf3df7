// Reading ACVP documents: loading a JSON file, and typed access to the
// fields of a vector set with messages that name the field and its place.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "host/base/status.h"

namespace fipsval::host::acvp {

using Json = nlohmann::ordered_json;

// Reads and parses a JSON file (a regular file, links followed). On failure
// the message is one line naming the file and the cause (unreadable, or
// where the JSON is malformed).
Status LoadJsonFile(const std::string& path, Json* out);

// Parses JSON text; `origin` names it in the message.
Status ParseJsonText(std::string_view text, std::string_view origin, Json* out);

// The fields of one JSON object, with the object's place in the document
// ("testGroups[2] (tgId 7)") for messages. The first problem is kept in the
// shared status (refused); later calls after a problem return nothing.
class Fields {
 public:
  Fields(const Json& object, std::string where, Status* status);

  bool Has(std::string_view name) const;
  std::optional<std::string> String(std::string_view name) const;
  // A string of hexadecimal digits (either case, even length); returned in
  // lower case, as the request files carry it.
  std::optional<std::string> Hex(std::string_view name) const;
  std::optional<long long> Int(std::string_view name) const;
  std::optional<bool> Bool(std::string_view name) const;
  // An array field; nullptr (with the error set) when absent or not one.
  const Json* Array(std::string_view name) const;

  const std::string& where() const { return where_; }
  bool failed() const { return !status_->ok(); }
  // Records a problem with a field of this object.
  void Fail(std::string_view name, std::string_view problem) const;

 private:
  const Json* Get(std::string_view name, std::string_view kind) const;

  const Json& object_;
  std::string where_;
  Status* status_;
};

// An even number of hex digits.
bool IsHex(std::string_view text);
std::string ToUpper(std::string_view text);
std::string ToLower(std::string_view text);

}  // namespace fipsval::host::acvp
