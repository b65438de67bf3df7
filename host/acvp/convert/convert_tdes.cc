// TDES-CBC vector sets with three keys: AFT groups become sections of the
// three-key multi-block message file TCBCMMT3, MCT groups the Monte Carlo
// file TCBCMonte3.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {


std::vector<SectionAnswers> AftAnswers() {
  return {{"[ENCRYPT]", {{"CIPHERTEXT = ", "ct"}}, "CIPHERTEXT = "},
          {"[DECRYPT]", {{"PLAINTEXT = ", "pt"}}, "PLAINTEXT = "}};
}

std::vector<SectionAnswers> MctAnswers() {
  const std::vector<AnswerTag> head = {
      {"KEY1 = ", "key1"}, {"KEY2 = ", "key2"},      {"KEY3 = ", "key3"},
      {"IV = ", "iv"},     {"PLAINTEXT = ", "pt"}, {"CIPHERTEXT = ", "ct"}};
  return {{"[ENCRYPT]", head, "CIPHERTEXT = "},
          {"[DECRYPT]", head, "PLAINTEXT = "}};
}

}  // namespace

void ConvertTdes(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  CipherSections aft, mct;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    const auto direction = g.String("direction");
    const auto keying = g.Int("keyingOption");
    if (!type || !direction || !keying) return;
    if (*type != "AFT" && *type != "MCT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the TDES runners answer AFT and MCT only"});
      continue;
    }
    if (*direction != "encrypt" && *direction != "decrypt") {
      g.Fail("direction", "is neither \"encrypt\" nor \"decrypt\"");
      return;
    }
    if (*keying != 1) {
      out->unanswered.push_back(
          {group.id, "keyingOption " + std::to_string(*keying) +
                         ": only three independent keys (keyingOption 1) are validated"});
      continue;
    }
    const bool monte = *type == "MCT";
    const bool encrypt = *direction == "encrypt";
    const char* data_field = encrypt ? "pt" : "ct";
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::vector<std::string> lines;
    std::string unsupported;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto key1 = t.Hex("key1");
      const auto key2 = t.Hex("key2");
      const auto key3 = t.Hex("key3");
      const auto iv = t.Hex("iv");
      const auto data = t.Hex(data_field);
      if (!key1 || !key2 || !key3 || !iv || !data) return;
      for (const auto& [name, value] :
           {std::pair{"key1", *key1}, {"key2", *key2}, {"key3", *key3}, {"iv", *iv}}) {
        if (value.size() != 16) {
          t.Fail(name, "is not 8 bytes");
          return;
        }
      }
      unsupported = BlockDataRefusal(data->size() / 2, 8, monte, data_field, test.id);
      if (!unsupported.empty()) break;
      lines.push_back("KEY1 = " + *key1 + "\r\nKEY2 = " + *key2 +
                      "\r\nKEY3 = " + *key3 + "\r\nIV = " + *iv + "\r\n" +
                      (encrypt ? "PLAINTEXT = " : "CIPHERTEXT = ") + *data +
                      "\r\n");
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    CipherSections& file = monte ? mct : aft;
    for (std::size_t i = 0; i < tests.size(); ++i) {
      file.Add(encrypt, {group.id, tests[i].id, monte ? 400 : 1}, lines[i]);
    }
  }
  for (const bool monte : {false, true}) {
    const CipherSections& sections = monte ? mct : aft;
    if (sections.encrypt_slots.empty() && sections.decrypt_slots.empty()) {
      continue;
    }
    RequestFile file;
    file.suite = "3DES";
    file.dir = "TDES";
    file.name = monte ? "TCBCMonte3" : "TCBCMMT3";
    file.sections = monte ? MctAnswers() : AftAnswers();
    sections.Finish(Header(prompt), monte ? "NumKeys = 3\r\n" : "", &file);
    out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
