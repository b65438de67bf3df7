// SHA-1 and SHA2-256 vector sets: AFT groups become the short-message file
// (SHA1ShortMsg, SHA256ShortMsg), each standard MCT test a Monte Carlo file
// of its own (the runner reads one seed a file).
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// The message runner's line buffer is 20,000 bytes, "Msg = " and CR LF
// included.
constexpr std::size_t kMaxMessageHex = 20000 - 16;

// Why the runners do not answer a group of this type, or "".
std::string TypeRefusal(const Fields& g, const std::string& type) {
  if (type == "MCT") {
    const std::string version =
        g.Has("mctVersion") ? g.String("mctVersion").value_or("") : "standard";
    if (g.failed() || version == "standard") return "";
    return "mctVersion \"" + version +
           "\": the Monte Carlo runner does the standard MCT only";
  }
  if (type == "AFT") return "";
  return "testType \"" + type +
         "\": the SHA runners answer AFT and the standard MCT only";
}

// A test's message, as hex.
std::optional<TestInput> ReadMessage(const Item& test, bool mct,
                                     int digest_bytes, Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto msg = t.Hex("msg");
  const auto bits = t.Int("len");
  if (!msg || !bits) return std::nullopt;
  const long long bytes = *bits / 8 + (*bits % 8 != 0);
  if (*bits < 0 || bytes != static_cast<long long>(msg->size() / 2)) {
    t.Fail("len", "does not match the length of \"msg\"");
    return std::nullopt;
  }
  if (*bits % 8 != 0) {
    return TestInput{"", "a message of " + std::to_string(*bits) + " bits" +
                             TcId(test) + ": the runners hash whole bytes only"};
  }
  if (mct && *bits != digest_bytes * 8) {
    return TestInput{"", "a seed of " + std::to_string(*bits) + " bits" +
                             TcId(test) +
                             ": the Monte Carlo seed is one digest long"};
  }
  if (msg->size() > kMaxMessageHex) {
    return TestInput{"", "a message of " + std::to_string(msg->size() / 2) +
                             " bytes" + TcId(test) +
                             ": longer than the runner's line buffer"};
  }
  return TestInput{*msg, ""};
}

struct ShaFiles {
  const Json& prompt;
  std::string marker;  // "[L = 20]" and a blank line
  RequestFile messages;
};

Status AddMonteCarlo(ShaFiles& files, const Item& group, const Item& test,
                     const std::string& seed, Conversion* out) {
  RequestFile monte;
  if (Status s = NewRequestFile(files.prompt, GroupOf(files.prompt, "MCT"), &monte);
      !s.ok()) {
    return s;
  }
  monte.text += files.marker + "Seed = " + seed + "\r\n\r\n";
  monte.slots.push_back(
      {group.id, test.id, RecordsPerTest(*monte.profile->shape)});
  out->files.push_back(std::move(monte));
  return Ok();
}

GroupFate ConvertGroup(ShaFiles& files, const Item& group, int digest_bytes,
                       Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  if (!type) return GroupFate::kBad;
  const std::string refusal = TypeRefusal(g, *type);
  if (g.failed()) return GroupFate::kBad;
  if (!refusal.empty()) return Unanswered(group, refusal, out);
  const bool mct = *type == "MCT";
  const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
    return ReadMessage(test, mct, digest_bytes, &out->status);
  });
  if (!inputs) return GroupFate::kBad;
  if (!inputs->refusal.empty()) return Unanswered(group, inputs->refusal, out);
  for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
    const std::string& msg = inputs->lines[i];
    const Item& test = inputs->tests[i];
    if (mct) {
      out->status = AddMonteCarlo(files, group, test, msg, out);
      if (!out->status.ok()) return GroupFate::kBad;
      continue;
    }
    // The runner hashes nothing for Len = 0 but wants a byte to read.
    files.messages.text += "Len = " + std::to_string(msg.size() * 4) +
                           "\r\nMsg = " + (msg.empty() ? "00" : msg) +
                           "\r\n\r\n";
    files.messages.slots.push_back({group.id, test.id, 1});
  }
  return GroupFate::kAnswerable;
}

}  // namespace

void ConvertSha(const Json& prompt, int digest_bytes, Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  ShaFiles files{prompt, "[L = " + std::to_string(digest_bytes) + "]\r\n\r\n", {}};
  out->status = NewRequestFile(prompt, GroupOf(prompt, "AFT"), &files.messages);
  if (!out->status.ok()) return;
  files.messages.text += files.marker;
  for (const Item& group : groups) {
    if (ConvertGroup(files, group, digest_bytes, out) == GroupFate::kBad) return;
  }
  if (!files.messages.slots.empty()) {
    out->files.push_back(std::move(files.messages));
  }
}

}  // namespace fipsval::host::acvp::internal
