#include "host/acvp/json_fields.h"

#include <cctype>

#include "host/base/file_io.h"
#include "host/base/paths.h"
#include "host/base/text.h"

namespace fipsval::host::acvp {

namespace {

// Checks the nesting depth and the number of values before the parser
// builds anything: one pass over the text, strings skipped.
Status CheckShape(std::string_view text) {
  int depth = 0;
  std::size_t values = 1;
  bool in_string = false, escaped = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (in_string) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        in_string = false;
      }
      continue;
    }
    if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxJsonDepth) {
        return Refused("nested deeper than " + std::to_string(kMaxJsonDepth) +
                       " levels at byte " + std::to_string(i + 1));
      }
      ++values;
    } else if (c == ']' || c == '}') {
      --depth;
    } else if (c == ',') {
      ++values;
    }
    if (values > kMaxJsonValues) {
      return Refused("more than " + std::to_string(kMaxJsonValues) +
                     " values (at byte " + std::to_string(i + 1) + ")");
    }
  }
  return Ok();
}

// The library's message without its "[json.exception.x.N] " prefix.
std::string Problem(const Json::exception& e) {
  std::string problem = e.what();
  if (problem.starts_with("[json.exception.")) {
    if (const auto end = problem.find("] "); end != std::string::npos) {
      problem.erase(0, end + 2);
    }
  }
  return problem;
}

}  // namespace

Status ParseJsonText(std::string_view text, std::string_view origin,
                     Json* out) {
  if (text.size() > kMaxFileBytes) {
    return Refused(std::string(origin) + ": larger than " +
                   std::to_string(kMaxFileBytes >> 20) + " MiB");
  }
  if (Status shape = CheckShape(text); !shape.ok()) {
    return shape.Prefixed(std::string(origin) + ": ");
  }
  // Parse errors and numbers out of range (1e400) both throw here: every
  // exception of the library is turned into the one line.
  try {
    *out = Json::parse(text.begin(), text.end());
  } catch (const Json::exception& e) {
    return Refused(std::string(origin) + ": malformed JSON: " + Problem(e));
  }
  return Ok();
}

namespace {

Status ParseRead(const Status& read, const std::string& path, const std::string& text,
                 Json* out) {
  if (!read.ok()) {
    // Open and read errors say so; a link, FIFO, device or huge file is refused.
    return read.Prefixed(path + (read.kind() == StatusKind::kRefused
                                     ? ": "
                                     : ": cannot be read: "));
  }
  return ParseJsonText(text, path, out);
}

}  // namespace

Status LoadJsonFile(const std::string& path, Json* out) {
  std::string text;
  const Status read = ReadGivenFile(path, kMaxFileBytes, &text);
  return ParseRead(read, path, text, out);
}

Status OpenEnvelope(std::string_view origin, Json* document, std::string* version) {
  version->clear();
  if (document->is_object()) return Ok();
  const auto refused = [&](const std::string& why) {
    return Refused(std::string(origin) + ": " + why);
  };
  if (!document->is_array()) {
    return refused("neither a vector set (an object) nor [{\"acvVersion\": ...}, {vector set}]");
  }
  if (document->size() != 2 || !(*document)[0].is_object() || !(*document)[1].is_object()) {
    return refused("an array that is not [{\"acvVersion\": ...}, {vector set}]");
  }
  const auto it = (*document)[0].find("acvVersion");
  if (it == (*document)[0].end() || !it->is_string()) {
    return refused("[0]: field \"acvVersion\" is missing or not a string");
  }
  *version = it->get<std::string>();
  Json set = std::move((*document)[1]);
  *document = std::move(set);
  return Ok();
}

Json Envelope(const Json& vector_set, const std::string& version) {
  Json message = Json::array();
  message.push_back({{"acvVersion", version.empty() ? "1.0" : version}});
  message.push_back(vector_set);
  return message;
}

Status LoadVectorSet(const std::string& path, Json* vector_set, std::string* version) {
  Status loaded = LoadJsonFile(path, vector_set);
  if (loaded.ok()) loaded = OpenEnvelope(path, vector_set, version);
  return loaded;
}

Status LoadVectorSetBelow(const std::string& root, const std::string& relative,
                          Json* vector_set, std::string* version) {
  const std::string path = JoinPath(root, relative);
  std::string text;
  const Status read = ReadTreeFile(root, relative, kMaxFileBytes, &text);
  Status loaded = ParseRead(read, path, text, vector_set);
  if (loaded.ok()) loaded = OpenEnvelope(path, vector_set, version);
  return loaded;
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
  // An unsigned value above the range is refused before it is converted.
  const bool in_range =
      value->is_number_unsigned()
          ? value->get<unsigned long long>() <= static_cast<unsigned long long>(kMaxJsonInteger)
          : value->get<long long>() >= -kMaxJsonInteger && value->get<long long>() <= kMaxJsonInteger;
  if (!in_range) {
    Fail(name, "is out of range (-2^53 to 2^53)");
    return std::nullopt;
  }
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
