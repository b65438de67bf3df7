// RSA sigGen vector sets with PKCS#1 v1.5: each group becomes a "[mod = …]"
// section of SigGen15_186-3, signed with the key the runner makes for it.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

struct Digest {
  const char* acvp;
  const char* cavp;
};
constexpr Digest kDigests[] = {
    {"SHA-1", "SHA1"}, {"SHA2-256", "SHA256"}, {"SHA2-384", "SHA384"}, {"SHA2-512", "SHA512"}};

constexpr long long kModuli[] = {1024, 1536, 2048, 3072, 4096};
// The runner's message buffer.
constexpr std::size_t kMaxMessageBytes = 1024;

struct SigGenGroup {
  long long modulus = 0;
  const Digest* digest = nullptr;
};

GroupFate ReadGroup(const Item& group, SigGenGroup* rsa, Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  const auto sig_type = g.String("sigType");
  const auto modulus = g.Int("modulo");
  const auto hash = g.String("hashAlg");
  if (!type || !sig_type || !modulus || !hash) return GroupFate::kBad;
  if (*type != "GDT") {
    return Unanswered(
        group, "testType \"" + *type + "\": signature generation is GDT", out);
  }
  if (*sig_type != "pkcs1v1.5") {
    return Unanswered(group, "sigType \"" + *sig_type +
                                 "\": the runner signs with PKCS#1 v1.5 only",
                      out);
  }
  bool modulus_ok = false;
  for (const long long m : kModuli) modulus_ok = modulus_ok || m == *modulus;
  if (!modulus_ok) {
    return Unanswered(group, "modulo " + std::to_string(*modulus) +
                                 ": the runner makes keys of 1024, 1536, 2048, "
                                 "3072 or 4096 bits",
                      out);
  }
  for (const Digest& d : kDigests) {
    if (*hash == d.acvp) rsa->digest = &d;
  }
  if (!rsa->digest) {
    return Unanswered(group, "hashAlg \"" + *hash +
                                 "\": the runner signs with SHA-1, SHA2-256, "
                                 "SHA2-384 or SHA2-512",
                      out);
  }
  rsa->modulus = *modulus;
  return GroupFate::kAnswerable;
}

std::optional<TestInput> ReadTest(const Item& test, const SigGenGroup& rsa,
                                  Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto message = t.Hex("message");
  if (!message) return std::nullopt;
  if (message->empty() || message->size() / 2 > kMaxMessageBytes) {
    return TestInput{"", "a message of " + std::to_string(message->size() / 2) +
                             " bytes" + TcId(test) +
                             ": the runner signs 1 to 1024 bytes"};
  }
  return TestInput{std::string("SHAAlg = ") + rsa.digest->cavp +
                       "\r\nMsg = " + *message + "\r\n\r\n",
                   ""};
}

}  // namespace

void ConvertRsaSigGen(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  RequestFile file;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  out->status = NewRequestFile(prompt, GroupOf(prompt, "GDT"), &file);
  if (!out->status.ok()) return;
  for (const Item& group : groups) {
    SigGenGroup rsa;
    const GroupFate fate = ReadGroup(group, &rsa, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadTest(test, rsa, &out->status);
    });
    if (!inputs) return;
    if (!inputs->refusal.empty()) {
      Unanswered(group, inputs->refusal, out);
      continue;
    }
    if (inputs->tests.empty()) continue;
    // The runner writes n and e after the section line, the blank line
    // that follows ends its "e = " line.
    file.text += "[mod = " + std::to_string(rsa.modulus) + "]\r\n\r\n";
    for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
      file.text += inputs->lines[i];
      file.slots.push_back({group.id, inputs->tests[i].id, 1});
    }
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
