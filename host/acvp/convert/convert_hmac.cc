// HMAC-SHA-1 and HMAC-SHA2-256 vector sets: every group becomes tests of
// the "[L=20]" or "[L=32]" section of the HMAC request file.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// The runner's line buffer is 1,024 bytes: "Key = " or "Msg = ", the hex
// text and CR LF must fit.
constexpr std::size_t kMaxHex = 1024 - 16;

GroupFate ReadGroup(const Item& group, int digest_bytes, long long* mac_bits,
                    Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  const auto bits = g.Int("macLen");
  if (!type || !bits) return GroupFate::kBad;
  if (*type != "AFT") {
    return Unanswered(
        group, "testType \"" + *type + "\": the HMAC runner answers AFT only",
        out);
  }
  if (*bits % 8 != 0 || *bits <= 0 || *bits > digest_bytes * 8) {
    return Unanswered(group, "macLen " + std::to_string(*bits) +
                                 ": the runner writes whole bytes, up to the "
                                 "digest",
                      out);
  }
  *mac_bits = *bits;
  return GroupFate::kAnswerable;
}

std::optional<TestInput> ReadTest(const Item& test, long long mac_bits,
                                  Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto key = t.Hex("key");
  const auto msg = t.Hex("msg");
  if (!key || !msg) return std::nullopt;
  if (key->empty() || msg->empty() || key->size() > kMaxHex ||
      msg->size() > kMaxHex) {
    return TestInput{"", "a key of " + std::to_string(key->size() / 2) +
                             " and a message of " +
                             std::to_string(msg->size() / 2) + " bytes" +
                             TcId(test) + ": the runner takes 1 to " +
                             std::to_string(kMaxHex / 2) + " bytes of each"};
  }
  return TestInput{"Klen = " + std::to_string(key->size() / 2) +
                       "\r\nTlen = " + std::to_string(mac_bits / 8) +
                       "\r\nKey = " + *key + "\r\nMsg = " + *msg + "\r\n\r\n",
                   ""};
}

}  // namespace

void ConvertHmac(const Json& prompt, int digest_bytes, Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  RequestFile file;
  if (out->status = NewRequestFile(prompt, GroupOf(prompt, "AFT"), &file);
      !out->status.ok()) {
    return;
  }
  file.text += "[L=" + std::to_string(digest_bytes) + "]\r\n\r\n";
  int count = 0;
  for (const Item& group : groups) {
    long long mac_bits = 0;
    const GroupFate fate = ReadGroup(group, digest_bytes, &mac_bits, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadTest(test, mac_bits, &out->status);
    });
    if (!inputs) return;
    if (!inputs->refusal.empty()) {
      Unanswered(group, inputs->refusal, out);
      continue;
    }
    for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
      file.text += "Count = " + std::to_string(count++) + "\r\n" + inputs->lines[i];
      file.slots.push_back({group.id, inputs->tests[i].id, 1});
    }
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
