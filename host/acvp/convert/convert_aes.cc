// AES-CBC and AES-ECB vector sets: AFT groups become sections of the
// multi-block message files (CBCMMT128 … , ECBMMT128), MCT groups the
// Monte Carlo files (CBCMCT128 …, ECBMCT128).
#include <map>

#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {


std::vector<SectionAnswers> AftAnswers() {
  return {{"[ENCRYPT]", {{"CIPHERTEXT = ", "ct"}}, "CIPHERTEXT = "},
          {"[DECRYPT]", {{"PLAINTEXT = ", "pt"}}, "PLAINTEXT = "}};
}

std::vector<SectionAnswers> MctAnswers(bool cbc) {
  std::vector<AnswerTag> head = {{"KEY = ", "key"}};
  if (cbc) head.push_back({"IV = ", "iv"});
  head.push_back({"PLAINTEXT = ", "pt"});
  head.push_back({"CIPHERTEXT = ", "ct"});
  return {{"[ENCRYPT]", head, "CIPHERTEXT = "},
          {"[DECRYPT]", head, "PLAINTEXT = "}};
}

}  // namespace

void ConvertAes(const Json& prompt, bool cbc, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  // Files by name, in the order they are first used.
  std::map<std::string, CipherSections> files;
  std::vector<std::string> order;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    if (!type) return;
    if (*type != "AFT" && *type != "MCT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the AES runners answer AFT and MCT only"});
      continue;
    }
    const auto direction = g.String("direction");
    const auto key_bits = g.Int("keyLen");
    if (!direction || !key_bits) return;
    if (*direction != "encrypt" && *direction != "decrypt") {
      g.Fail("direction", "is neither \"encrypt\" nor \"decrypt\"");
      return;
    }
    if (*key_bits != 128 && *key_bits != 192 && *key_bits != 256) {
      g.Fail("keyLen", "is not 128, 192 or 256");
      return;
    }
    const bool mct = *type == "MCT";
    if (mct && !cbc && *key_bits != 128) {
      out->unanswered.push_back(
          {group.id, "ECB MCT with " + std::to_string(*key_bits) +
                         "-bit keys: the library's ECB Monte Carlo runner "
                         "updates 192- and 256-bit keys from the last block "
                         "only, not by the AES MCT rule"});
      continue;
    }
    const bool encrypt = *direction == "encrypt";
    const char* data_field = encrypt ? "pt" : "ct";
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::vector<std::string> lines;
    std::string unsupported;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto key = t.Hex("key");
      const auto iv = cbc ? t.Hex("iv") : std::optional<std::string>("");
      const auto data = t.Hex(data_field);
      if (!key || !iv || !data) return;
      if (static_cast<long long>(key->size()) != *key_bits / 4) {
        t.Fail("key", "does not have the group's keyLen");
        return;
      }
      if (cbc && iv->size() != 32) {
        t.Fail("iv", "is not 16 bytes");
        return;
      }
      unsupported = BlockDataRefusal(data->size() / 2, 16, mct, data_field, test.id);
      if (!unsupported.empty()) break;
      std::string text = "KEY = " + *key + "\r\n";
      if (cbc) text += "IV = " + *iv + "\r\n";
      text += (encrypt ? "PLAINTEXT = " : "CIPHERTEXT = ") + *data + "\r\n";
      lines.push_back(text);
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    const std::string name =
        cbc ? (mct ? "CBCMCT" : "CBCMMT") + std::to_string(*key_bits)
            : std::string(mct ? "ECBMCT128" : "ECBMMT128");
    if (!files.count(name)) order.push_back(name);
    CipherSections& file = files[name];
    for (std::size_t i = 0; i < tests.size(); ++i) {
      file.Add(encrypt, {group.id, tests[i].id, mct ? 100 : 1}, lines[i]);
    }
  }
  for (const std::string& name : order) {
    RequestFile file;
    file.suite = cbc ? "AES" : "AES-WF";
    file.dir = "AES";
    file.name = name;
    file.sections = name.find("MCT") != std::string::npos ? MctAnswers(cbc)
                                                          : AftAnswers();
    files[name].Finish(Header(prompt), "", &file);
    out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
