// HMAC-SHA-1 and HMAC-SHA2-256 vector sets: every group becomes tests of
// the "[L=20]" or "[L=32]" section of the HMAC request file.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// The runner's line buffer is 1,024 bytes: "Key = " or "Msg = ", the hex
// text and CR LF must fit.
constexpr std::size_t kMaxHex = 1024 - 16;

}  // namespace

void ConvertHmac(const Json& prompt, int digest_bytes, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  RequestFile file;
  file.suite = "HMAC";
  file.dir = "HMAC";
  file.name = "HMAC";
  file.sections = {{"", {{"Mac = ", "mac"}}, "Mac = "}};
  file.text = Header(prompt) + "[L=" + std::to_string(digest_bytes) + "]\r\n\r\n";
  int count = 0;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    const auto mac_bits = g.Int("macLen");
    if (!type || !mac_bits) return;
    if (*type != "AFT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the HMAC runner answers AFT only"});
      continue;
    }
    if (*mac_bits % 8 != 0 || *mac_bits <= 0 || *mac_bits > digest_bytes * 8) {
      out->unanswered.push_back(
          {group.id, "macLen " + std::to_string(*mac_bits) +
                         ": the runner writes whole bytes, up to the digest"});
      continue;
    }
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string unsupported;
    std::vector<std::string> lines;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto key = t.Hex("key");
      const auto msg = t.Hex("msg");
      if (!key || !msg) return;
      if (key->empty() || msg->empty() || key->size() > kMaxHex ||
          msg->size() > kMaxHex) {
        unsupported = "a key of " + std::to_string(key->size() / 2) +
                      " and a message of " + std::to_string(msg->size() / 2) +
                      " bytes (tcId " + std::to_string(test.id) +
                      "): the runner takes 1 to " + std::to_string(kMaxHex / 2) +
                      " bytes of each";
        break;
      }
      lines.push_back("Klen = " + std::to_string(key->size() / 2) +
                      "\r\nTlen = " + std::to_string(*mac_bits / 8) +
                      "\r\nKey = " + *key + "\r\nMsg = " + *msg + "\r\n\r\n");
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    for (std::size_t i = 0; i < tests.size(); ++i) {
      file.text += "Count = " + std::to_string(count++) + "\r\n" + lines[i];
      file.slots.push_back({group.id, tests[i].id, 1});
    }
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
