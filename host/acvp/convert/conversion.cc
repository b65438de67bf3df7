// Choosing the converter for a vector set, and what the converters share.
#include "host/acvp/convert/conversion.h"

#include <string_view>

namespace fipsval::host::acvp {
namespace internal {

std::string GroupPlace(std::size_t index, long long tg_id) {
  return "testGroups[" + std::to_string(index) + "] (tgId " +
         std::to_string(tg_id) + ")";
}

bool ReadGroups(const Json& prompt, std::vector<Item>* groups,
                std::string* error) {
  const Fields top(prompt, "vector set", error);
  const Json* list = top.Array("testGroups");
  if (!list) return false;
  for (std::size_t i = 0; i < list->size(); ++i) {
    const Json& group = (*list)[i];
    const Fields fields(group, "testGroups[" + std::to_string(i) + "]", error);
    const auto tg_id = fields.Int("tgId");
    if (!tg_id || !fields.Array("tests")) return false;
    for (const Item& seen : *groups) {
      if (seen.id == *tg_id) {
        fields.Fail("tgId", "repeats " + std::to_string(*tg_id) + " of " + seen.place);
        return false;
      }
    }
    groups->push_back({&group, GroupPlace(i, *tg_id), *tg_id});
  }
  return true;
}

bool ReadTests(const Item& group, std::vector<Item>* tests,
               std::string* error) {
  const Json& list = (*group.json)["tests"];
  for (std::size_t i = 0; i < list.size(); ++i) {
    const Json& test = list[i];
    const std::string place = group.place + " tests[" + std::to_string(i) + "]";
    const Fields fields(test, place, error);
    const auto tc_id = fields.Int("tcId");
    if (!tc_id) return false;
    for (const Item& seen : *tests) {
      if (seen.id == *tc_id) {
        fields.Fail("tcId", "repeats " + std::to_string(*tc_id) + " of " + seen.place);
        return false;
      }
    }
    tests->push_back({&test, place + " (tcId " + std::to_string(*tc_id) + ")",
                      *tc_id});
  }
  return true;
}

// Only the number: nothing of the document's text reaches a request file
// outside the fields the runners read.
std::string Header(const Json& prompt) {
  return "# ACVP vector set " + prompt["vsId"].dump() +
         ", converted by fipsval\r\n\r\n";
}

void AllUnsupported(const Json& prompt, const std::string& reason,
                    Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  for (const Item& group : groups) out->unanswered.push_back({group.id, reason});
}

}  // namespace internal

namespace {

using internal::AllUnsupported;

}  // namespace

Conversion ConvertVectorSet(const Json& prompt) {
  Conversion out;
  const Fields top(prompt, "vector set", &out.error);
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
  const std::string& a = *algorithm;
  if (a == "ACVP-AES-CBC" || a == "ACVP-AES-ECB") {
    internal::ConvertAes(prompt, a == "ACVP-AES-CBC", &out);
  } else if (a == "ACVP-TDES-CBC") {
    internal::ConvertTdes(prompt, &out);
  } else if (a == "SHA-1" || a == "SHA2-256") {
    internal::ConvertSha(prompt, a == "SHA-1" ? 20 : 32, &out);
  } else if (a == "HMAC-SHA-1" || a == "HMAC-SHA2-256") {
    internal::ConvertHmac(prompt, a == "HMAC-SHA-1" ? 20 : 32, &out);
  } else if (a == "ctrDRBG") {
    internal::ConvertDrbg(prompt, &out);
  } else if (a == "kdf-components" && mode == "ssh") {
    internal::ConvertSsh(prompt, &out);
  } else if (a == "kdf-components" && mode == "tls") {
    internal::ConvertTls(prompt, &out);
  } else if (a == "TLS-v1.2" && mode == "KDF") {
    AllUnsupported(prompt,
                   "the extended-master-secret TLS KDF (" + *revision +
                       ") has no runner in the library",
                   &out);
  } else if (a == "RSA" && mode == "sigGen") {
    internal::ConvertRsaSigGen(prompt, &out);
  } else if (a == "RSA" && mode == "sigVer") {
    AllUnsupported(prompt,
                   "RSA signature verification: the library's SigVer runner "
                   "stops at the first test without verifying it",
                   &out);
  } else {
    out.error = "vector set: field \"algorithm\" names an algorithm fipsval "
                "does not answer: \"" + a + (mode.empty() ? "" : "\" mode \"" + mode) +
                "\"";
  }
  return out;
}

}  // namespace fipsval::host::acvp
