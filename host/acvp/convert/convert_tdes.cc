// TDES-CBC vector sets with three keys: AFT groups become sections of the
// three-key multi-block message file TCBCMMT3, MCT groups the Monte Carlo
// file TCBCMonte3.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

struct TdesGroup {
  bool monte = false;
  bool encrypt = true;
};

GroupFate ReadGroup(const Item& group, TdesGroup* tdes, Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  const auto direction = g.String("direction");
  const auto keying = g.Int("keyingOption");
  if (!type || !direction || !keying) return GroupFate::kBad;
  if (*type != "AFT" && *type != "MCT") {
    return Unanswered(group, "testType \"" + *type +
                                 "\": the TDES runners answer AFT and MCT only",
                      out);
  }
  if (*direction != "encrypt" && *direction != "decrypt") {
    g.Fail("direction", "is neither \"encrypt\" nor \"decrypt\"");
    return GroupFate::kBad;
  }
  if (*keying != 1) {
    return Unanswered(group, "keyingOption " + std::to_string(*keying) +
                                 ": only three independent keys "
                                 "(keyingOption 1) are validated",
                      out);
  }
  tdes->monte = *type == "MCT";
  tdes->encrypt = *direction == "encrypt";
  return GroupFate::kAnswerable;
}

std::optional<TestInput> ReadTest(const Item& test, const TdesGroup& tdes,
                                  Status* status) {
  const Fields t(*test.json, test.place, status);
  const char* data_field = tdes.encrypt ? "pt" : "ct";
  const auto key1 = t.Hex("key1");
  const auto key2 = t.Hex("key2");
  const auto key3 = t.Hex("key3");
  const auto iv = t.Hex("iv");
  const auto data = t.Hex(data_field);
  if (!key1 || !key2 || !key3 || !iv || !data) return std::nullopt;
  for (const auto& [name, value] :
       {std::pair{"key1", *key1}, {"key2", *key2}, {"key3", *key3}, {"iv", *iv}}) {
    if (value.size() != 16) {
      t.Fail(name, "is not 8 bytes");
      return std::nullopt;
    }
  }
  std::string refusal =
      BlockDataRefusal(data->size() / 2, 8, tdes.monte, data_field, test.id);
  if (!refusal.empty()) return TestInput{"", std::move(refusal)};
  return TestInput{"KEY1 = " + *key1 + "\r\nKEY2 = " + *key2 + "\r\nKEY3 = " +
                       *key3 + "\r\nIV = " + *iv + "\r\n" +
                       (tdes.encrypt ? "PLAINTEXT = " : "CIPHERTEXT = ") +
                       *data + "\r\n",
                   ""};
}

}  // namespace

void ConvertTdes(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  CipherSections aft, mct;
  for (const Item& group : groups) {
    TdesGroup tdes;
    const GroupFate fate = ReadGroup(group, &tdes, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadTest(test, tdes, &out->status);
    });
    if (!inputs) return;
    if (!inputs->refusal.empty()) {
      Unanswered(group, inputs->refusal, out);
      continue;
    }
    for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
      (tdes.monte ? mct : aft)
          .Add(tdes.encrypt, {group.id, inputs->tests[i].id}, inputs->lines[i]);
    }
  }
  for (const bool monte : {false, true}) {
    const CipherSections& sections = monte ? mct : aft;
    if (sections.empty()) continue;
    RequestFile file;
    out->status =
        NewRequestFile(prompt, GroupOf(prompt, monte ? "MCT" : "AFT"), &file);
    if (!out->status.ok()) return;
    sections.Finish(monte ? "NumKeys = 3\r\n" : "", &file);
    out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
