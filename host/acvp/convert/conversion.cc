// Choosing the converter for a vector set, and what the converters share.
#include "host/acvp/convert/conversion.h"

#include <functional>
#include <unordered_map>

namespace fipsval::host::acvp {
namespace internal {

std::string GroupPlace(std::size_t index, long long tg_id) {
  return "testGroups[" + std::to_string(index) + "] (tgId " +
         std::to_string(tg_id) + ")";
}

Status ReadGroups(const Json& prompt, std::vector<Item>* groups) {
  Status status;
  const Fields top(prompt, "vector set", &status);
  const Json* list = top.Array("testGroups");
  if (!list) return status;
  if (list->size() > kMaxGroups) {
    top.Fail("testGroups", "has more than " + std::to_string(kMaxGroups) + " groups");
    return status;
  }
  std::unordered_map<long long, std::size_t> seen;  // tgId → its group's index
  for (std::size_t i = 0; i < list->size(); ++i) {
    const Json& group = (*list)[i];
    const Fields fields(group, "testGroups[" + std::to_string(i) + "]", &status);
    const auto tg_id = fields.Int("tgId");
    if (!tg_id || !fields.Array("tests")) return status;
    if (const auto [it, fresh] = seen.emplace(*tg_id, groups->size()); !fresh) {
      fields.Fail("tgId", "repeats " + std::to_string(*tg_id) + " of " +
                              (*groups)[it->second].place);
      return status;
    }
    groups->push_back({&group, GroupPlace(i, *tg_id), *tg_id});
  }
  return status;
}

Status ReadTests(const Item& group, std::vector<Item>* tests) {
  Status status;
  const Json& list = (*group.json)["tests"];
  if (list.size() > kMaxTestsPerGroup) {
    Fields(*group.json, group.place, &status)
        .Fail("tests", "has more than " + std::to_string(kMaxTestsPerGroup) + " tests");
    return status;
  }
  std::unordered_map<long long, std::size_t> seen;  // tcId → its test's index
  for (std::size_t i = 0; i < list.size(); ++i) {
    const Json& test = list[i];
    const std::string place = group.place + " tests[" + std::to_string(i) + "]";
    const Fields fields(test, place, &status);
    const auto tc_id = fields.Int("tcId");
    if (!tc_id) return status;
    if (const auto [it, fresh] = seen.emplace(*tc_id, tests->size()); !fresh) {
      fields.Fail("tcId", "repeats " + std::to_string(*tc_id) + " of " +
                              (*tests)[it->second].place);
      return status;
    }
    tests->push_back({&test, place + " (tcId " + std::to_string(*tc_id) + ")",
                      *tc_id});
  }
  return status;
}

// Only the number: nothing of the document's text reaches a request file
// outside the fields the runners read.
std::string Header(const Json& prompt) {
  return "# ACVP vector set " + prompt["vsId"].dump() +
         ", converted by fipsval\r\n\r\n";
}

AcvpGroup GroupOf(const Json& prompt, std::string_view test_type,
                  long long key_bits) {
  const auto text = [&](const char* key) {
    const auto it = prompt.find(key);
    return it != prompt.end() && it->is_string()
               ? std::string_view(it->get_ref<const std::string&>())
               : std::string_view();
  };
  return {text("algorithm"), text("mode"), test_type, key_bits};
}

Status NewRequestFile(const Json& prompt, const AcvpGroup& group,
                      RequestFile* file) {
  file->profile = FindAcvpRequest(group);
  if (!file->profile) {
    return Failed("no runner answers " + std::string(group.algorithm) + " " +
                  std::string(group.test_type) + " groups");
  }
  file->text = Header(prompt);
  return Ok();
}

std::string TcId(const Item& test) {
  return " (tcId " + std::to_string(test.id) + ")";
}

GroupFate Unanswered(const Item& group, std::string reason, Conversion* out) {
  out->unanswered.push_back({group.id, std::move(reason)});
  return GroupFate::kUnanswered;
}

void AllUnsupported(const Json& prompt, const std::string& reason,
                    Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  for (const Item& group : groups) out->unanswered.push_back({group.id, reason});
}

}  // namespace internal

namespace {

using Converter = std::function<void(const Json&, const std::string& revision,
                                     Conversion*)>;

struct Algorithm {
  std::string_view algorithm;
  std::string_view mode;  // "": any
  Converter convert;
};

const std::vector<Algorithm>& Algorithms() {
  using namespace internal;
  static const std::vector<Algorithm> algorithms = {
      {"ACVP-AES-CBC", "", [](auto& p, auto&, auto* o) { ConvertAes(p, true, o); }},
      {"ACVP-AES-ECB", "", [](auto& p, auto&, auto* o) { ConvertAes(p, false, o); }},
      {"ACVP-TDES-CBC", "", [](auto& p, auto&, auto* o) { ConvertTdes(p, o); }},
      {"SHA-1", "", [](auto& p, auto&, auto* o) { ConvertSha(p, 20, o); }},
      {"SHA2-256", "", [](auto& p, auto&, auto* o) { ConvertSha(p, 32, o); }},
      {"HMAC-SHA-1", "", [](auto& p, auto&, auto* o) { ConvertHmac(p, 20, o); }},
      {"HMAC-SHA2-256", "", [](auto& p, auto&, auto* o) { ConvertHmac(p, 32, o); }},
      {"ctrDRBG", "", [](auto& p, auto&, auto* o) { ConvertDrbg(p, o); }},
      {"kdf-components", "ssh", [](auto& p, auto&, auto* o) { ConvertSsh(p, o); }},
      {"kdf-components", "tls", [](auto& p, auto&, auto* o) { ConvertTls(p, o); }},
      {"TLS-v1.2", "KDF",
       [](auto& p, auto& revision, auto* o) {
         AllUnsupported(p, "the extended-master-secret TLS KDF (" + revision +
                               ") has no runner in the library", o);
       }},
      {"RSA", "sigGen", [](auto& p, auto&, auto* o) { ConvertRsaSigGen(p, o); }},
      {"RSA", "sigVer",
       [](auto& p, auto&, auto* o) {
         AllUnsupported(p, "RSA signature verification: the library's SigVer "
                           "runner stops at the first test without verifying it",
                        o);
       }},
  };
  return algorithms;
}

}  // namespace

Conversion ConvertVectorSet(const Json& prompt) {
  Conversion out;
  const Fields top(prompt, "vector set", &out.status);
  const auto vs_id = top.Int("vsId");
  const auto algorithm = top.String("algorithm");
  const auto revision = top.String("revision");
  if (!vs_id || !algorithm || !revision || !top.Array("testGroups")) return out;
  std::string mode;
  if (top.Has("mode")) {
    const auto given = top.String("mode");
    if (!given) return out;
    mode = *given;
  }
  for (const Algorithm& a : Algorithms()) {
    if (a.algorithm == *algorithm && (a.mode.empty() || a.mode == mode)) {
      a.convert(prompt, *revision, &out);
      return out;
    }
  }
  out.status = Refused(
      "vector set: field \"algorithm\" names an algorithm fipsval does not "
      "answer: \"" + *algorithm + (mode.empty() ? "" : "\" mode \"" + mode) +
      "\"");
  return out;
}

}  // namespace fipsval::host::acvp
