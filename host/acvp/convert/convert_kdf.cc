// kdf-components vector sets: SSH groups become sections of the SSH KDF
// request, TLS 1.0/1.1 and 1.2 groups sections of the TLS PRF request.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

struct SshCipher {
  const char* name;
  int iv_bits;
  int key_bits;
};
constexpr SshCipher kSshCiphers[] = {
    {"TDES", 64, 192}, {"AES-128", 128, 128}, {"AES-192", 128, 192}, {"AES-256", 128, 256}};

constexpr std::size_t kMaxSshSecretBytes = 1024;  // the runner's K buffer
constexpr long long kPreMasterBits = 384;         // master secret of 48 bytes
constexpr long long kMaxKeyBlockBits = 512 * 8;   // the PRF's work buffers

struct SshGroup {
  const SshCipher* cipher = nullptr;
  bool sha1 = true;
};

GroupFate ReadSshGroup(const Item& group, SshGroup* ssh, Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  const auto cipher = g.String("cipher");
  const auto hash = g.String("hashAlg");
  if (!type || !cipher || !hash) return GroupFate::kBad;
  if (*type != "AFT") {
    return Unanswered(
        group, "testType \"" + *type + "\": the SSH runner answers AFT only", out);
  }
  if (*hash != "SHA-1" && *hash != "SHA2-256") {
    return Unanswered(group, "hashAlg \"" + *hash +
                                 "\": the SSH runner derives with SHA-1 and "
                                 "SHA2-256 only",
                      out);
  }
  for (const SshCipher& c : kSshCiphers) {
    if (*cipher == c.name) ssh->cipher = &c;
  }
  if (!ssh->cipher) {
    g.Fail("cipher", "is not TDES, AES-128, AES-192 or AES-256");
    return GroupFate::kBad;
  }
  ssh->sha1 = *hash == "SHA-1";
  return GroupFate::kAnswerable;
}

// K, H and the session id of a test (its COUNT line comes first).
std::optional<TestInput> ReadSshTest(const Item& test, const SshGroup& ssh,
                                     Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto k = t.Hex("k");
  const auto h = t.Hex("h");
  const auto session = t.Hex("sessionId");
  if (!k || !h || !session) return std::nullopt;
  const std::size_t hash_hex = ssh.sha1 ? 40 : 64;
  for (const auto& [name, value] : {std::pair{"h", *h}, {"sessionId", *session}}) {
    if (value.size() != hash_hex) {
      t.Fail(name, "is not one digest long");
      return std::nullopt;
    }
  }
  if (k->empty() || k->size() / 2 > kMaxSshSecretBytes) {
    return TestInput{"", "a shared secret of " + std::to_string(k->size() / 2) +
                             " bytes" + TcId(test) +
                             ": the runner takes 1 to 1024 bytes"};
  }
  return TestInput{"\r\nK = " + *k + "\r\nH = " + *h + "\r\nsession_id = " +
                       *session + "\r\n\r\n",
                   ""};
}

// The bits of the first test's K (read and checked), which the section
// line states.
std::size_t SecretBits(const GroupInputs& inputs) {
  if (inputs.tests.empty()) return 0;
  return (*inputs.tests[0].json)["k"].get<std::string>().size() * 4;
}

struct TlsGroup {
  std::string marker;  // "[TLS 1.0/1.1]", "[TLS 1.2, SHA-256]"
  long long secret_bits = 0;
  long long block_bits = 0;
};

GroupFate ReadTlsGroup(const Item& group, TlsGroup* tls, Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  const auto version = g.String("tlsVersion");
  const auto hash = g.String("hashAlg");
  const auto block_bits = g.Int("keyBlockLength");
  const auto secret_bits = g.Int("preMasterSecretLength");
  if (!type || !version || !hash || !block_bits || !secret_bits) {
    return GroupFate::kBad;
  }
  if (*type != "AFT") {
    return Unanswered(
        group, "testType \"" + *type + "\": the TLS runner answers AFT only", out);
  }
  if (*version == "v1.0/1.1") {
    tls->marker = "[TLS 1.0/1.1]";
  } else if (*version == "v1.2" && (*hash == "SHA2-256" || *hash == "SHA2-384" ||
                                    *hash == "SHA2-512")) {
    tls->marker = "[TLS 1.2, SHA-" + hash->substr(5) + "]";
  } else {
    return Unanswered(group, "tlsVersion \"" + *version + "\" with hashAlg \"" +
                                 *hash + "\": the TLS runner has TLS 1.0/1.1 and "
                                 "TLS 1.2 with SHA2-256, SHA2-384 or SHA2-512",
                      out);
  }
  if (*secret_bits != kPreMasterBits || *block_bits <= 0 ||
      *block_bits % 8 != 0 || *block_bits > kMaxKeyBlockBits) {
    return Unanswered(group, "preMasterSecretLength " +
                                 std::to_string(*secret_bits) +
                                 ", keyBlockLength " + std::to_string(*block_bits) +
                                 ": the runner derives a master secret as long "
                                 "as a 384-bit pre-master secret and key blocks "
                                 "of whole bytes up to 4096 bits",
                      out);
  }
  tls->secret_bits = *secret_bits;
  tls->block_bits = *block_bits;
  return GroupFate::kAnswerable;
}

std::optional<TestInput> ReadTlsTest(const Item& test, const TlsGroup& tls,
                                     Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto pms = t.Hex("preMasterSecret");
  const auto client_hello = t.Hex("clientHelloRandom");
  const auto server_hello = t.Hex("serverHelloRandom");
  const auto client = t.Hex("clientRandom");
  const auto server = t.Hex("serverRandom");
  if (!pms || !client_hello || !server_hello || !client || !server) {
    return std::nullopt;
  }
  if (static_cast<long long>(pms->size()) * 4 != tls.secret_bits) {
    t.Fail("preMasterSecret", "does not have the group's preMasterSecretLength");
    return std::nullopt;
  }
  for (const auto& [name, value] :
       {std::pair{"clientHelloRandom", *client_hello},
        {"serverHelloRandom", *server_hello},
        {"clientRandom", *client},
        {"serverRandom", *server}}) {
    if (value.empty() || value.size() > 480) {
      t.Fail(name, "is empty or longer than 240 bytes");
      return std::nullopt;
    }
  }
  return TestInput{"\r\npre_master_secret = " + *pms +
                       "\r\nserverHello_random = " + *server_hello +
                       "\r\nclientHello_random = " + *client_hello +
                       "\r\nserver_random = " + *server +
                       "\r\nclient_random = " + *client + "\r\n\r\n",
                   ""};
}

// The tests of one group as a section of the file, numbered on from *count.
void AddSection(const Item& group, const GroupInputs& inputs,
                const std::string& section, int* count, RequestFile* file) {
  file->text += section;
  for (std::size_t i = 0; i < inputs.tests.size(); ++i) {
    file->text += "COUNT = " + std::to_string((*count)++) + inputs.lines[i];
    file->slots.push_back({group.id, inputs.tests[i].id, 1});
  }
}

}  // namespace

void ConvertSsh(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  RequestFile file;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  out->status = NewRequestFile(prompt, GroupOf(prompt, "AFT"), &file);
  if (!out->status.ok()) return;
  int count = 0;
  for (const Item& group : groups) {
    SshGroup ssh;
    const GroupFate fate = ReadSshGroup(group, &ssh, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadSshTest(test, ssh, &out->status);
    });
    if (!inputs) return;
    if (!inputs->refusal.empty()) {
      Unanswered(group, inputs->refusal, out);
      continue;
    }
    const std::size_t secret_bits = SecretBits(*inputs);
    AddSection(group, *inputs,
               std::string(ssh.sha1 ? "[SHA-1]" : "[SHA-256]") +
                   "\r\n[shared secret length = " + std::to_string(secret_bits) +
                   "]\r\n[IV length = " + std::to_string(ssh.cipher->iv_bits) +
                   "]\r\n[encryption key length = " +
                   std::to_string(ssh.cipher->key_bits) + "]\r\n\r\n",
               &count, &file);
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

void ConvertTls(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  RequestFile file;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  out->status = NewRequestFile(prompt, GroupOf(prompt, "AFT"), &file);
  if (!out->status.ok()) return;
  int count = 0;
  for (const Item& group : groups) {
    TlsGroup tls;
    const GroupFate fate = ReadTlsGroup(group, &tls, out);
    if (fate == GroupFate::kBad) return;
    if (fate == GroupFate::kUnanswered) continue;
    const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
      return ReadTlsTest(test, tls, &out->status);
    });
    if (!inputs) return;
    AddSection(group, *inputs,
               tls.marker + "\r\n[pre-master secret length = " +
                   std::to_string(tls.secret_bits) + "]\r\n[key block length = " +
                   std::to_string(tls.block_bits) + "]\r\n\r\n",
               &count, &file);
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
