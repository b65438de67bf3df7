// SHA-1 and SHA2-256 vector sets: AFT groups become the short-message file
// (SHA1ShortMsg, SHA256ShortMsg), each standard MCT test a Monte Carlo file
// of its own (the runner reads one seed a file).
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// The message runner's line buffer is 20,000 bytes, "Msg = " and CR LF
// included.
constexpr std::size_t kMaxMessageHex = 20000 - 16;

}  // namespace

void ConvertSha(const Json& prompt, int digest_bytes, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  const std::string suite = digest_bytes == 20 ? "SHA1" : "SHA256";
  const std::string marker =
      "[L = " + std::to_string(digest_bytes) + "]\r\n\r\n";
  RequestFile messages;
  messages.suite = suite;
  messages.dir = "SHA";
  messages.name = suite + "ShortMsg";
  messages.sections = {{"", {{"MD = ", "md"}}, "MD = "}};
  messages.text = Header(prompt) + marker;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    if (!type) return;
    if (*type == "MCT") {
      const std::string version =
          g.Has("mctVersion") ? g.String("mctVersion").value_or("") : "standard";
      if (g.failed()) return;
      if (version != "standard") {
        out->unanswered.push_back(
            {group.id, "mctVersion \"" + version +
                           "\": the Monte Carlo runner does the standard MCT only"});
        continue;
      }
    } else if (*type != "AFT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type +
                         "\": the SHA runners answer AFT and the standard MCT only"});
      continue;
    }
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string unsupported;
    std::vector<std::string> messages_hex;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto msg = t.Hex("msg");
      const auto bits = t.Int("len");
      if (!msg || !bits) return;
      if (*bits < 0 || (*bits + 7) / 8 != static_cast<long long>(msg->size() / 2)) {
        t.Fail("len", "does not match the length of \"msg\"");
        return;
      }
      if (*bits % 8 != 0) {
        unsupported = "a message of " + std::to_string(*bits) +
                      " bits (tcId " + std::to_string(test.id) +
                      "): the runners hash whole bytes only";
      } else if (*type == "MCT" && *bits != digest_bytes * 8) {
        unsupported = "a seed of " + std::to_string(*bits) + " bits (tcId " +
                      std::to_string(test.id) +
                      "): the Monte Carlo seed is one digest long";
      } else if (msg->size() > kMaxMessageHex) {
        unsupported = "a message of " + std::to_string(msg->size() / 2) +
                      " bytes (tcId " + std::to_string(test.id) +
                      "): longer than the runner's line buffer";
      }
      if (!unsupported.empty()) break;
      messages_hex.push_back(*msg);
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    for (std::size_t i = 0; i < tests.size(); ++i) {
      const std::string& msg = messages_hex[i];
      if (*type == "MCT") {
        RequestFile monte;
        monte.suite = suite;
        monte.dir = "SHA";
        monte.name = suite + "Monte";
        monte.sections = {{"", {{"MD = ", "md"}}, "MD = "}};
        monte.text = Header(prompt) + marker + "Seed = " + msg + "\r\n\r\n";
        monte.slots.push_back({group.id, tests[i].id, 100});
        out->files.push_back(std::move(monte));
      } else {
        // The runner hashes nothing for Len = 0 but wants a byte to read.
        messages.text += "Len = " + std::to_string(msg.size() * 4) +
                         "\r\nMsg = " + (msg.empty() ? "00" : msg) + "\r\n\r\n";
        messages.slots.push_back({group.id, tests[i].id, 1});
      }
    }
  }
  if (!messages.slots.empty()) out->files.push_back(std::move(messages));
}

}  // namespace fipsval::host::acvp::internal
