// kdf-components vector sets: SSH groups become sections of the "ssh"
// request, TLS 1.0/1.1 and 1.2 groups sections of the "tls" request.
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

}  // namespace

void ConvertSsh(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  RequestFile file;
  file.suite = "SSH";
  file.dir = "KDF135";
  file.name = "ssh";
  file.sections = {{"",
                    {{"Initial IV (client to server) = ", "initialIvClient"},
                     {"Initial IV (server to client) = ", "initialIvServer"},
                     {"Encryption key (client to server) = ", "encryptionKeyClient"},
                     {"Encryption key (server to client) = ", "encryptionKeyServer"},
                     {"Integrity key (client to server) = ", "integrityKeyClient"},
                     {"Integrity key (server to client) = ", "integrityKeyServer"}},
                    "Integrity key (server to client) = "}};
  file.text = Header(prompt);
  int count = 0;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    const auto cipher = g.String("cipher");
    const auto hash = g.String("hashAlg");
    if (!type || !cipher || !hash) return;
    if (*type != "AFT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the SSH runner answers AFT only"});
      continue;
    }
    if (*hash != "SHA-1" && *hash != "SHA2-256") {
      out->unanswered.push_back(
          {group.id, "hashAlg \"" + *hash + "\": the SSH runner derives with SHA-1 and SHA2-256 only"});
      continue;
    }
    const SshCipher* chosen = nullptr;
    for (const SshCipher& c : kSshCiphers) {
      if (*cipher == c.name) chosen = &c;
    }
    if (!chosen) {
      g.Fail("cipher", "is not TDES, AES-128, AES-192 or AES-256");
      return;
    }
    const std::size_t hash_hex = *hash == "SHA-1" ? 40 : 64;
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string lines;
    std::string unsupported;
    std::size_t secret_bits = 0;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto k = t.Hex("k");
      const auto h = t.Hex("h");
      const auto session = t.Hex("sessionId");
      if (!k || !h || !session) return;
      if (h->size() != hash_hex) {
        t.Fail("h", "is not one digest long");
        return;
      }
      if (session->size() != hash_hex) {
        t.Fail("sessionId", "is not one digest long");
        return;
      }
      if (k->empty() || k->size() / 2 > kMaxSshSecretBytes) {
        unsupported = "a shared secret of " + std::to_string(k->size() / 2) +
                      " bytes (tcId " + std::to_string(test.id) +
                      "): the runner takes 1 to 1024 bytes";
        break;
      }
      if (secret_bits == 0) secret_bits = k->size() * 4;
      lines += "COUNT = " + std::to_string(count++) +
               "\r\nK = " + *k + "\r\nH = " + *h + "\r\nsession_id = " + *session +
               "\r\n\r\n";
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    file.text += std::string(*hash == "SHA-1" ? "[SHA-1]" : "[SHA-256]") +
                 "\r\n[shared secret length = " + std::to_string(secret_bits) +
                 "]\r\n[IV length = " + std::to_string(chosen->iv_bits) +
                 "]\r\n[encryption key length = " + std::to_string(chosen->key_bits) +
                 "]\r\n\r\n" + lines;
    for (const Item& test : tests) file.slots.push_back({group.id, test.id, 1});
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

void ConvertTls(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  RequestFile file;
  file.suite = "TLS";
  file.dir = "KDF135";
  file.name = "tls";
  file.sections = {{"",
                    {{"master_secret = ", "masterSecret"}, {"key_block = ", "keyBlock"}},
                    "key_block = "}};
  file.text = Header(prompt);
  int count = 0;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    const auto version = g.String("tlsVersion");
    const auto hash = g.String("hashAlg");
    const auto block_bits = g.Int("keyBlockLength");
    const auto secret_bits = g.Int("preMasterSecretLength");
    if (!type || !version || !hash || !block_bits || !secret_bits) return;
    if (*type != "AFT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the TLS runner answers AFT only"});
      continue;
    }
    std::string marker;
    if (*version == "v1.0/1.1") {
      marker = "[TLS 1.0/1.1]";
    } else if (*version == "v1.2" &&
               (*hash == "SHA2-256" || *hash == "SHA2-384" || *hash == "SHA2-512")) {
      marker = "[TLS 1.2, SHA-" + hash->substr(5) + "]";
    } else {
      out->unanswered.push_back(
          {group.id, "tlsVersion \"" + *version + "\" with hashAlg \"" + *hash +
                         "\": the TLS runner has TLS 1.0/1.1 and TLS 1.2 with "
                         "SHA2-256, SHA2-384 or SHA2-512"});
      continue;
    }
    if (*secret_bits != kPreMasterBits || *block_bits <= 0 || *block_bits % 8 != 0 ||
        *block_bits > kMaxKeyBlockBits) {
      out->unanswered.push_back(
          {group.id, "preMasterSecretLength " + std::to_string(*secret_bits) +
                         ", keyBlockLength " + std::to_string(*block_bits) +
                         ": the runner derives a master secret as long as a "
                         "384-bit pre-master secret and key blocks of whole "
                         "bytes up to 4096 bits"});
      continue;
    }
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string lines;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto pms = t.Hex("preMasterSecret");
      const auto client_hello = t.Hex("clientHelloRandom");
      const auto server_hello = t.Hex("serverHelloRandom");
      const auto client = t.Hex("clientRandom");
      const auto server = t.Hex("serverRandom");
      if (!pms || !client_hello || !server_hello || !client || !server) return;
      if (static_cast<long long>(pms->size()) * 4 != *secret_bits) {
        t.Fail("preMasterSecret", "does not have the group's preMasterSecretLength");
        return;
      }
      for (const auto& [name, value] :
           {std::pair{"clientHelloRandom", *client_hello}, {"serverHelloRandom", *server_hello},
            {"clientRandom", *client}, {"serverRandom", *server}}) {
        if (value.empty() || value.size() > 480) {
          t.Fail(name, "is empty or longer than 240 bytes");
          return;
        }
      }
      lines += "COUNT = " + std::to_string(count++) + "\r\npre_master_secret = " + *pms +
               "\r\nserverHello_random = " + *server_hello +
               "\r\nclientHello_random = " + *client_hello +
               "\r\nserver_random = " + *server + "\r\nclient_random = " + *client +
               "\r\n\r\n";
    }
    file.text += marker + "\r\n[pre-master secret length = " +
                 std::to_string(*secret_bits) + "]\r\n[key block length = " +
                 std::to_string(*block_bits) + "]\r\n\r\n" + lines;
    for (const Item& test : tests) file.slots.push_back({group.id, test.id, 1});
  }
  if (!file.slots.empty()) out->files.push_back(std::move(file));
}

}  // namespace fipsval::host::acvp::internal
