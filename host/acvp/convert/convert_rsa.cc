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

}  // namespace

void ConvertRsaSigGen(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  RequestFile file;
  file.suite = "RSA2";
  file.dir = "RSA2";
  file.name = "SigGen15_186-3";
  file.sections = {{"", {{"n = ", "n"}, {"e = ", "e"}, {"S = ", "signature"}}, "S = "}};
  file.group_fields = {"n", "e"};
  file.text = Header(prompt);
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    const auto sig_type = g.String("sigType");
    const auto modulus = g.Int("modulo");
    const auto hash = g.String("hashAlg");
    if (!type || !sig_type || !modulus || !hash) return;
    if (*type != "GDT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": signature generation is GDT"});
      continue;
    }
    if (*sig_type != "pkcs1v1.5") {
      out->unanswered.push_back(
          {group.id, "sigType \"" + *sig_type + "\": the runner signs with PKCS#1 v1.5 only"});
      continue;
    }
    bool modulus_ok = false;
    for (const long long m : kModuli) modulus_ok = modulus_ok || m == *modulus;
    if (!modulus_ok) {
      out->unanswered.push_back(
          {group.id, "modulo " + std::to_string(*modulus) +
                         ": the runner makes keys of 1024, 1536, 2048, 3072 or 4096 bits"});
      continue;
    }
    const Digest* digest = nullptr;
    for (const Digest& d : kDigests) {
      if (*hash == d.acvp) digest = &d;
    }
    if (!digest) {
      out->unanswered.push_back(
          {group.id, "hashAlg \"" + *hash +
                         "\": the runner signs with SHA-1, SHA2-256, SHA2-384 or SHA2-512"});
      continue;
    }
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string lines;
    std::string unsupported;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto message = t.Hex("message");
      if (!message) return;
      if (message->empty() || message->size() / 2 > kMaxMessageBytes) {
        unsupported = "a message of " + std::to_string(message->size() / 2) +
                      " bytes (tcId " + std::to_string(test.id) +
                      "): the runner signs 1 to 1024 bytes";
        break;
      }
      lines += std::string("SHAAlg = ") + digest->cavp + "\r\nMsg = " + *message +
               "\r\n\r\n";
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    if (tests.empty()) continue;
    // The runner writes n and e after the section line, the blank line
    // that follows ends its "e = " line.
    file.text += "[mod = " + std::to_string(*modulus) + "]\r\n\r\n" + lines;
    for (const Item& test : tests) file.slots.push_back({group.id, test.id, 1});
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
