#include "host/acvp/registration.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "host/catalog/runner_profiles.h"

namespace fipsval::host::acvp {
namespace {

// A property of a group: its field's value one of `allowed` (an array), or
// an integer within a range {"min", "max", "increment"}. A field that is
// absent takes `absent` (null: the group is not covered). `when` limits the
// condition to groups whose field when[0] is when[1].
struct Condition {
  std::string field;
  Json allowed;
  Json absent = nullptr;
  bool registered = true;  // printed in the registration (else the server's fixed value)
  std::vector<std::string> when = {};
  bool checked = true;     // a property of the group (else of the tests, checked one by one)
};

struct Capability {
  std::string algorithm, mode, revision;
  std::vector<Condition> conditions;
  // Builds the entry's own fields from the conditions; null: each
  // registered condition under its name.
  Json (*shape)(const Capability&) = nullptr;
};

Json Range(long long min, long long max, long long increment) {
  return {{"min", min}, {"max", max}, {"increment", increment}};
}

// The values a condition allows, as the registration lists them.
Json Listed(const Condition& c) { return c.allowed.is_object() ? Json::array({c.allowed}) : c.allowed; }

const Json& Allowed(const Capability& capability, const std::string& field) {
  for (const Condition& c : capability.conditions) {
    if (c.field == field) return c.allowed;
  }
  static const Json none = Json::array();
  return none;
}

// The test types and key sizes the route table gives the algorithm (0 in
// a route: any AES key). A group's key size is checked against its test
// type's routes; the registration, whose one list serves every test type,
// names the sizes every test type takes (ECB: the Monte Carlo runner's 128).
std::vector<Condition> Routed(const std::string& algorithm, const std::string& mode,
                              const char* key_field) {
  std::set<std::string> types;
  for (const AcvpRoute& route : AcvpRoutes()) {
    if (route.group.algorithm == algorithm && route.group.mode == mode) {
      types.emplace(route.group.test_type);
    }
  }
  std::vector<Condition> conditions = {{.field = "testType", .allowed = Json(types), .registered = false}};
  if (!key_field) return conditions;
  std::set<long long> every = {128, 192, 256};
  for (const std::string& type : types) {
    std::set<long long> sizes;
    for (const AcvpRoute& route : AcvpRoutes()) {
      const AcvpGroup& g = route.group;
      if (g.algorithm != algorithm || g.mode != mode || g.test_type != type) continue;
      if (g.key_bits == 0) sizes.insert({128, 192, 256});
      sizes.insert(g.key_bits);
    }
    sizes.erase(0);
    std::erase_if(every, [&](long long k) { return !sizes.count(k); });
    conditions.push_back({.field = key_field, .allowed = Json(sizes), .registered = false,
                          .when = {"testType", type}});
  }
  conditions.push_back({.field = key_field, .allowed = Json(every), .checked = false});
  return conditions;
}

std::vector<Condition> With(std::vector<Condition> routed, std::vector<Condition> more) {
  routed.insert(routed.end(), more.begin(), more.end());
  return routed;
}

Json DrbgShape(const Capability& c) {
  Json modes = Json::array();
  for (const Json& mode : Allowed(c, "mode")) {
    Json one = {{"mode", mode}, {"derFuncEnabled", Allowed(c, "derFunc")[0]}};
    for (const char* field : {"entropyInputLen", "nonceLen", "persoStringLen", "additionalInputLen"}) {
      one[field] = Allowed(c, field);
    }
    one["returnedBitsLen"] = Allowed(c, "returnedBitsLen")["max"];
    modes.push_back(one);
  }
  return {{"predResistanceEnabled", Allowed(c, "predResistance")},
          {"reseedImplemented", Allowed(c, "reSeed")[0]},
          {"capabilities", modes}};
}

Json SigGenShape(const Capability& c) {
  Json pairs = Json::array();
  for (const Json& hash : Allowed(c, "hashAlg")) pairs.push_back({{"hashAlg", hash}});
  Json properties = Json::array();
  for (const Json& modulo : Allowed(c, "modulo")) {
    properties.push_back({{"modulo", modulo}, {"hashPair", pairs}});
  }
  Json capabilities = Json::array();
  for (const Json& type : Allowed(c, "sigType")) {
    capabilities.push_back({{"sigType", type}, {"properties", properties}});
  }
  return {{"capabilities", capabilities}};
}

// What the converters take, group by group (host/acvp/convert): the test
// types and AES key sizes come from the route table, the rest are the
// runners' limits the converters check.
const std::vector<Capability>& Capabilities() {
  const Json both = {"encrypt", "decrypt"};
  const auto sha = [&](const char* algorithm) {
    // Whole bytes up to the message runner's line buffer (19,984 bytes).
    return Capability{algorithm, "", "1.0",
                      With(Routed(algorithm, "", nullptr),
                           {{.field = "messageLength", .allowed = Range(0, 79936, 8), .checked = false},
                            {"mctVersion", {"standard"}, "standard", false}})};
  };
  const auto hmac = [&](const char* algorithm, int mac_bits) {
    // Keys of 1 to 504 bytes (the runner's 1,008 hex digits), whole-byte MACs.
    return Capability{algorithm, "", "1.0",
                      With(Routed(algorithm, "", nullptr),
                           {{"keyLen", Range(8, 4032, 8)}, {"macLen", Range(8, mac_bits, 8)}})};
  };
  static const std::vector<Capability> capabilities = {
      {"ACVP-AES-CBC", "", "1.0",
       With(Routed("ACVP-AES-CBC", "", "keyLen"), {{"direction", both}})},
      {"ACVP-AES-ECB", "", "1.0",
       With(Routed("ACVP-AES-ECB", "", "keyLen"), {{"direction", both}})},
      {"ACVP-TDES-CBC", "", "1.0",
       With(Routed("ACVP-TDES-CBC", "", nullptr), {{"direction", both}, {"keyingOption", {1}}})},
      sha("SHA-1"),
      sha("SHA2-256"),
      hmac("HMAC-SHA-1", 160),
      hmac("HMAC-SHA2-256", 256),
      {"ctrDRBG", "", "1.0",
       With(Routed("ctrDRBG", "", nullptr),
            {{"mode", {"AES-256"}},
             {"derFunc", {true}},
             {"predResistance", {false}},
             {"reSeed", {true}},
             {"entropyInputLen", {256}},
             {"nonceLen", {128}},
             {"persoStringLen", {0, 256}},
             {"additionalInputLen", {0, 256}},
             {"returnedBitsLen", Range(8, 512, 8)}}),
       DrbgShape},
      {"kdf-components", "ssh", "1.0",
       With(Routed("kdf-components", "ssh", nullptr),
            {{"hashAlg", {"SHA-1", "SHA2-256"}},
             {"cipher", {"TDES", "AES-128", "AES-192", "AES-256"}}})},
      {"kdf-components", "tls", "1.0",
       With(Routed("kdf-components", "tls", nullptr),
            {{"tlsVersion", {"v1.0/1.1", "v1.2"}},
             {"hashAlg", {"SHA2-256", "SHA2-384", "SHA2-512"}, nullptr, true, {"tlsVersion", "v1.2"}},
             {"preMasterSecretLength", {384}, nullptr, false},
             {"keyBlockLength", Range(8, 4096, 8), nullptr, false}})},
      {"RSA", "sigGen", "FIPS186-4",
       With(Routed("RSA", "sigGen", nullptr),
            {{"sigType", {"pkcs1v1.5"}},
             {"modulo", {1024, 1536, 2048, 3072, 4096}},
             {"hashAlg", {"SHA-1", "SHA2-256", "SHA2-384", "SHA2-512"}}}),
       SigGenShape},
  };
  return capabilities;
}

std::string TextOf(const Json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool Satisfies(const Condition& c, const Json& group) {
  if (!c.checked) return true;
  if (!c.when.empty() && TextOf(group, c.when[0].c_str()) != c.when[1]) return true;
  const auto it = group.find(c.field);
  const Json& value = it == group.end() ? c.absent : *it;
  if (value.is_null()) return false;
  if (!c.allowed.is_object()) {
    return std::find(c.allowed.begin(), c.allowed.end(), value) != c.allowed.end();
  }
  if (!value.is_number_integer()) return false;
  const long long v = value.get<long long>();
  const long long min = c.allowed["min"], max = c.allowed["max"], step = c.allowed["increment"];
  return v >= min && v <= max && (v - min) % step == 0;
}

}  // namespace

Json Registration() {
  Json algorithms = Json::array();
  for (const Capability& c : Capabilities()) {
    Json entry = {{"algorithm", c.algorithm}};
    if (!c.mode.empty()) entry["mode"] = c.mode;
    entry["revision"] = c.revision;
    entry["prereqVals"] = Json::array();
    if (c.shape) {
      const Json shaped = c.shape(c);
      for (const auto& [field, value] : shaped.items()) entry[field] = value;
    } else {
      for (const Condition& condition : c.conditions) {
        if (condition.registered) entry[condition.field] = Listed(condition);
      }
    }
    algorithms.push_back(entry);
  }
  return Json::array({{{"acvVersion", "1.0"}}, {{"isSample", false}, {"algorithms", algorithms}}});
}

bool Covers(const Json& vector_set, const Json& group) {
  if (!vector_set.is_object() || !group.is_object()) return false;
  const std::string algorithm = TextOf(vector_set, "algorithm"), mode = TextOf(vector_set, "mode");
  for (const Capability& c : Capabilities()) {
    if (c.algorithm != algorithm || c.mode != mode) continue;
    return std::all_of(c.conditions.begin(), c.conditions.end(),
                       [&](const Condition& condition) { return Satisfies(condition, group); });
  }
  return false;
}

}  // namespace fipsval::host::acvp
