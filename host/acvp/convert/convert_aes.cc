// AES-CBC and AES-ECB vector sets: AFT groups become sections of the
// multi-block message files (CBCMMT128 … , ECBMMT128), MCT groups the
// Monte Carlo files (CBCMCT128 …, ECBMCT128).
#include <map>

#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// What a group of the set asks for.
struct AesGroup {
  bool cbc = true;
  bool mct = false;
  bool encrypt = true;
  long long key_bits = 0;
};

// The group's parameters, or why the runners do not answer it.
GroupFate ReadGroup(const Item& group, AesGroup* aes, Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  if (!type) return GroupFate::kBad;
  if (*type != "AFT" && *type != "MCT") {
    return Unanswered(group, "testType \"" + *type +
                                 "\": the AES runners answer AFT and MCT only",
                      out);
  }
  const auto direction = g.String("direction");
  const auto key_bits = g.Int("keyLen");
  if (!direction || !key_bits) return GroupFate::kBad;
  if (*direction != "encrypt" && *direction != "decrypt") {
    g.Fail("direction", "is neither \"encrypt\" nor \"decrypt\"");
    return GroupFate::kBad;
  }
  if (*key_bits != 128 && *key_bits != 192 && *key_bits != 256) {
    g.Fail("keyLen", "is not 128, 192 or 256");
    return GroupFate::kBad;
  }
  aes->mct = *type == "MCT";
  aes->encrypt = *direction == "encrypt";
  aes->key_bits = *key_bits;
  if (aes->mct && !aes->cbc && *key_bits != 128) {
    return Unanswered(group, "ECB MCT with " + std::to_string(*key_bits) +
                                 "-bit keys: the library's ECB Monte Carlo "
                                 "runner updates 192- and 256-bit keys from "
                                 "the last block only, not by the AES MCT rule",
                      out);
  }
  return GroupFate::kAnswerable;
}

std::optional<TestInput> ReadTest(const Item& test, const AesGroup& aes,
                                  Status* status) {
  const Fields t(*test.json, test.place, status);
  const char* data_field = aes.encrypt ? "pt" : "ct";
  const auto key = t.Hex("key");
  const auto iv = aes.cbc ? t.Hex("iv") : std::optional<std::string>("");
  const auto data = t.Hex(data_field);
  if (!key || !iv || !data) return std::nullopt;
  if (static_cast<long long>(key->size()) != aes.key_bits / 4) {
    t.Fail("key", "does not have the group's keyLen");
    return std::nullopt;
  }
  if (aes.cbc && iv->size() != 32) {
    t.Fail("iv", "is not 16 bytes");
    return std::nullopt;
  }
  std::string refusal =
      BlockDataRefusal(data->size() / 2, 16, aes.mct, data_field, test.id);
  if (!refusal.empty()) return TestInput{"", std::move(refusal)};
  std::string text = "KEY = " + *key + "\r\n";
  if (aes.cbc) text += "IV = " + *iv + "\r\n";
  text += (aes.encrypt ? "PLAINTEXT = " : "CIPHERTEXT = ") + *data + "\r\n";
  return TestInput{text, ""};
}

}  // namespace

void ConvertAes(const Json& prompt, bool cbc, Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  // Files by the kind of group they take, in the order they are first used.
  std::map<const RequestProfile*, CipherSections> files;
  std::vector<AcvpGroup> order;
  for (const Item& group : groups) {
    AesGroup aes{.cbc = cbc};
    const GroupFate fate = ReadGroup(group, &aes, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadTest(test, aes, &out->status);
    });
    if (!inputs) return;
    if (!inputs->refusal.empty()) {
      Unanswered(group, inputs->refusal, out);
      continue;
    }
    const AcvpGroup kind = GroupOf(prompt, aes.mct ? "MCT" : "AFT", aes.key_bits);
    const RequestProfile* profile = FindAcvpRequest(kind);
    if (!files.count(profile)) order.push_back(kind);
    for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
      files[profile].Add(aes.encrypt, {group.id, inputs->tests[i].id},
                         inputs->lines[i]);
    }
  }
  for (const AcvpGroup& kind : order) {
    RequestFile file;
    if (out->status = NewRequestFile(prompt, kind, &file); !out->status.ok()) {
      return;
    }
    files[file.profile].Finish("", &file);
    out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
