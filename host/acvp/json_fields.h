// Reading ACVP documents: loading a JSON file, and typed access to the
// fields of a vector set with messages that name the field and its place.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/status.h"

namespace fipsval::host::acvp {

using Json = nlohmann::ordered_json;

// The bounds every document is read within, so that no file can exhaust
// the stack, the memory or the time: the text (kMaxFileBytes, the host's
// one cap), the nesting depth, the number of values (counted as opening
// brackets and commas), the groups of a vector set and the tests of a
// group. Integers are taken between -2^53 and 2^53, the range a JSON
// number keeps exactly, so arithmetic on them cannot overflow.
inline constexpr int kMaxJsonDepth = 32;
inline constexpr std::size_t kMaxJsonValues = 1'000'000;
inline constexpr std::size_t kMaxGroups = 10'000;
inline constexpr std::size_t kMaxTestsPerGroup = 100'000;
inline constexpr long long kMaxJsonInteger = 1LL << 53;

// Reads and parses a JSON file (a regular file, links followed). On failure
// the message is one line naming the file and the cause (unreadable, too
// large or too deep, or where the JSON is malformed).
Status LoadJsonFile(const std::string& path, Json* out);

// Parses JSON text within the bounds above; `origin` names it in the
// message. Never throws.
Status ParseJsonText(std::string_view text, std::string_view origin, Json* out);

// An ACVP message is either the bare vector-set object or the array
// [{"acvVersion": ...}, {vector set}]. Replaces `document` by the vector
// set and sets `version` to the acvVersion given ("" for a bare object);
// refused, naming `origin`, for any other shape.
Status OpenEnvelope(std::string_view origin, Json* document, std::string* version);

// The array form of a vector set, with `version` ("1.0" when empty).
Json Envelope(const Json& vector_set, const std::string& version);

// LoadJsonFile, then OpenEnvelope.
Status LoadVectorSet(const std::string& path, Json* vector_set, std::string* version);

// The same for root/relative, read without following a link below root.
Status LoadVectorSetBelow(const std::string& root, const std::string& relative,
                          Json* vector_set, std::string* version);

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
