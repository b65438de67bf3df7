#include "host/acvp/json_fields.h"

#include <cctype>

#include "host/base/file_io.h"
#include "host/base/text.h"

namespace fipsval::host::acvp {

Status ParseJsonText(std::string_view text, std::string_view origin,
                     Json* out) {
  Json parsed = Json::parse(text.begin(), text.end(), nullptr, false);
  if (!parsed.is_discarded()) {
    *out = std::move(parsed);
    return Ok();
  }
  // Parse again with exceptions only to learn where it went wrong.
  std::string problem = "cannot be parsed";
  try {
    const Json unused = Json::parse(text.begin(), text.end());
    static_cast<void>(unused);
  } catch (const Json::parse_error& e) {
    problem = e.what();
    const std::string prefix = "[json.exception.parse_error.101] ";
    if (problem.starts_with(prefix)) problem.erase(0, prefix.size());
  }
  return Refused(std::string(origin) + ": malformed JSON: " + problem);
}

Status LoadJsonFile(const std::string& path, Json* out) {
  std::string text;
  if (Status read = ReadGivenFile(path, kMaxFileBytes, &text); !read.ok()) {
    // Open and read errors say so; a FIFO, device or huge file is refused.
    return read.Prefixed(path + (read.kind() == StatusKind::kRefused
                                     ? ": "
                                     : ": cannot be read: "));
  }
  return ParseJsonText(text, path, out);
}

Fields::Fields(const Json& object, std::string where, Status* status)
    : object_(object), where_(std::move(where)), status_(status) {}

bool Fields::Has(std::string_view name) const {
  return object_.is_object() && object_.contains(name);
}

void Fields::Fail(std::string_view name, std::string_view problem) const {
  if (failed()) return;
  *status_ = Refused(where_ + ": field \"" + std::string(name) + "\" " +
                     std::string(problem));
}

const Json* Fields::Get(std::string_view name, std::string_view kind) const {
  if (failed()) return nullptr;
  if (!object_.is_object()) {
    *status_ = Refused(where_ + ": not a JSON object");
    return nullptr;
  }
  const auto it = object_.find(name);
  if (it == object_.end()) {
    Fail(name, "is missing");
    return nullptr;
  }
  const bool ok = kind == "string"    ? it->is_string()
                  : kind == "integer" ? it->is_number_integer()
                  : kind == "boolean" ? it->is_boolean()
                                      : it->is_array();
  if (!ok) {
    Fail(name, "is not " + std::string(kind == "integer" || kind == "array" ? "an " : "a ") +
                   std::string(kind));
    return nullptr;
  }
  return &*it;
}

std::optional<std::string> Fields::String(std::string_view name) const {
  const Json* value = Get(name, "string");
  if (!value) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::string> Fields::Hex(std::string_view name) const {
  auto value = String(name);
  if (!value) return std::nullopt;
  if (!IsHex(*value)) {
    Fail(name, "is not hexadecimal (an even number of hex digits)");
    return std::nullopt;
  }
  return ToLower(*value);
}

std::optional<long long> Fields::Int(std::string_view name) const {
  const Json* value = Get(name, "integer");
  if (!value) return std::nullopt;
  return value->get<long long>();
}

std::optional<bool> Fields::Bool(std::string_view name) const {
  const Json* value = Get(name, "boolean");
  if (!value) return std::nullopt;
  return value->get<bool>();
}

const Json* Fields::Array(std::string_view name) const {
  return Get(name, "array");
}

bool IsHex(std::string_view text) {
  return text.size() % 2 == 0 && IsHexDigits(text);
}

std::string ToUpper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string ToLower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

}  // namespace fipsval::host::acvp
