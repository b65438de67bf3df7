#include "host/acvp/json_fields.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "host/base/safe_io.h"

namespace fipsval::host::acvp {

bool ParseJsonText(std::string_view text, std::string_view origin, Json* out,
                   std::string* error) {
  std::string problem;
  Json parsed = Json::parse(text.begin(), text.end(), nullptr, false);
  if (parsed.is_discarded()) {
    // Parse again with exceptions only to learn where it went wrong.
    try {
      const Json unused = Json::parse(text.begin(), text.end());
      static_cast<void>(unused);
    } catch (const Json::parse_error& e) {
      problem = e.what();
      const std::string prefix = "[json.exception.parse_error.101] ";
      if (problem.starts_with(prefix)) problem.erase(0, prefix.size());
    }
    *error = std::string(origin) + ": malformed JSON: " +
             (problem.empty() ? std::string("cannot be parsed") : problem);
    return false;
  }
  *out = std::move(parsed);
  return true;
}

bool LoadJsonFile(const std::string& path, Json* out, std::string* error) {
  // Non-blocking, so that a FIFO in place of the file cannot hold the
  // program; only a regular file is read.
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    *error = path + ": cannot be read: " + std::strerror(errno);
    return false;
  }
  struct stat st {};
  if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    *error = path + ": not a regular file";
    return false;
  }
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t n = read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      *error = path + ": read error: " + std::strerror(errno);
      return false;
    }
    if (n == 0) break;
    text.append(buffer, static_cast<std::size_t>(n));
  }
  return ParseJsonText(text, path, out, error);
}

Fields::Fields(const Json& object, std::string where, std::string* error)
    : object_(object), where_(std::move(where)), error_(error) {}

bool Fields::Has(std::string_view name) const {
  return object_.is_object() && object_.contains(name);
}

void Fields::Fail(std::string_view name, std::string_view problem) const {
  if (!error_->empty()) return;
  *error_ = where_ + ": field \"" + std::string(name) + "\" " +
            std::string(problem);
}

const Json* Fields::Get(std::string_view name, std::string_view kind) const {
  if (failed()) return nullptr;
  if (!object_.is_object()) {
    *error_ = where_ + ": not a JSON object";
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
  if (text.size() % 2 != 0) return false;
  for (const char c : text) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
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
