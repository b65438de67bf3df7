#include "host/acvp/check.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/rsa.h>

#include <map>
#include <memory>
#include <vector>

#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp {
namespace {

using internal::Item;

// Where `actual` differs from `expected` ("" when it does not); hex
// strings compare without regard to case.
std::string Difference(const Json& expected, const Json& actual, const std::string& path) {
  if (expected.is_string() && actual.is_string()) {
    if (ToUpper(expected.get<std::string>()) == ToUpper(actual.get<std::string>())) return "";
    return path + " is " + actual.get<std::string>() + ", expected " +
           expected.get<std::string>();
  }
  if (expected.is_array() && actual.is_array()) {
    if (expected.size() != actual.size()) {
      return path + " has " + std::to_string(actual.size()) + " entries, expected " +
             std::to_string(expected.size());
    }
    for (std::size_t i = 0; i < expected.size(); ++i) {
      std::string d = Difference(expected[i], actual[i], path + "[" + std::to_string(i) + "]");
      if (!d.empty()) return d;
    }
    return "";
  }
  if (expected.is_object() && actual.is_object()) {
    for (const auto& [key, value] : expected.items()) {
      const std::string where = path.empty() ? key : path + "." + key;
      if (!actual.contains(key)) return where + " is missing";
      std::string d = Difference(value, actual[key], where);
      if (!d.empty()) return d;
    }
    return "";
  }
  if (expected == actual) return "";
  return path + " is " + actual.dump() + ", expected " + expected.dump();
}

struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
struct RsaFree {
  void operator()(RSA* r) const { RSA_free(r); }
};

std::vector<unsigned char> Bytes(const std::string& hex) {
  std::vector<unsigned char> out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

// PKCS#1 v1.5 verification of `signature` over `message` under (n, e).
std::string VerifySignature(const std::string& n_hex, const std::string& e_hex,
                            long long modulus_bits, const std::string& hash,
                            const std::string& message, const std::string& signature) {
  int nid = NID_undef;
  if (hash == "SHA-1") nid = NID_sha1;
  if (hash == "SHA2-224") nid = NID_sha224;
  if (hash == "SHA2-256") nid = NID_sha256;
  if (hash == "SHA2-384") nid = NID_sha384;
  if (hash == "SHA2-512") nid = NID_sha512;
  const EVP_MD* md = EVP_get_digestbynid(nid);
  if (!md) return "hashAlg " + hash + " is not known";
  if (!IsHex(n_hex) || !IsHex(e_hex) || !IsHex(signature) || !IsHex(message)) {
    return "n, e, the message or the signature is not hexadecimal";
  }
  BIGNUM* n = nullptr;
  BIGNUM* e = nullptr;
  BN_hex2bn(&n, n_hex.c_str());
  BN_hex2bn(&e, e_hex.c_str());
  std::unique_ptr<BIGNUM, BnFree> n_owner(n), e_owner(e);
  std::unique_ptr<RSA, RsaFree> rsa(RSA_new());
  if (!n || !e || !rsa || !RSA_set0_key(rsa.get(), n, e, nullptr)) {
    return "n and e do not make an RSA key";
  }
  n_owner.release();
  e_owner.release();
  if (BN_num_bits(n) != modulus_bits) {
    return "n has " + std::to_string(BN_num_bits(n)) + " bits, the group asks for " +
           std::to_string(modulus_bits);
  }
  const std::vector<unsigned char> msg = Bytes(message);
  const std::vector<unsigned char> sig = Bytes(signature);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digest_len = 0;
  if (!EVP_Digest(msg.data(), msg.size(), digest, &digest_len, md, nullptr)) {
    return "the message could not be hashed";
  }
  if (RSA_verify(nid, digest, digest_len, sig.data(), static_cast<unsigned int>(sig.size()),
                 rsa.get()) != 1) {
    return "the signature does not verify under the reported n and e";
  }
  return "";
}

struct GroupIndex {
  std::map<long long, Item> groups;
  std::map<long long, std::map<long long, const Json*>> tests;
};

bool Index(const Json& document, const char* name, GroupIndex* index, std::string* error) {
  std::vector<Item> groups;
  std::string problem;
  if (!internal::ReadGroups(document, &groups, &problem)) {
    *error = std::string(name) + ": " + problem;
    return false;
  }
  for (const Item& group : groups) {
    std::vector<Item> tests;
    if (!internal::ReadTests(group, &tests, &problem)) {
      *error = std::string(name) + ": " + problem;
      return false;
    }
    index->groups[group.id] = group;
    for (const Item& test : tests) index->tests[group.id][test.id] = test.json;
  }
  return true;
}

}  // namespace

CheckTally CheckResponse(const Json& expected, const Json& response, const Json* prompt,
                         std::FILE* out) {
  CheckTally tally;
  GroupIndex want, got, asked;
  if (!Index(expected, "expected results", &want, &tally.error) ||
      !Index(response, "response", &got, &tally.error) ||
      (prompt && !Index(*prompt, "prompt", &asked, &tally.error))) {
    return tally;
  }
  for (const char* field : {"vsId", "algorithm", "mode", "revision"}) {
    if (expected.contains(field) &&
        (!response.contains(field) || response[field] != expected[field])) {
      tally.error = "the response is not for this vector set: its \"" + std::string(field) +
                    "\" differs from the expected results'";
      return tally;
    }
  }
  const bool sig_gen = expected.value("algorithm", "") == "RSA" &&
                       expected.value("mode", "") == "sigGen";
  std::map<long long, std::string> not_answered;
  if (response.contains("notAnswered") && response["notAnswered"].is_array()) {
    for (const Json& entry : response["notAnswered"]) {
      if (entry.is_object() && entry.contains("tgId") && entry["tgId"].is_number_integer()) {
        not_answered[entry["tgId"].get<long long>()] =
            entry.contains("reason") && entry["reason"].is_string()
                ? entry["reason"].get<std::string>()
                : "no reason given";
      }
    }
  }

  for (const auto& [tg_id, tests] : want.tests) {
    const auto answered = got.tests.find(tg_id);
    if (answered == got.tests.end()) {
      if (const auto it = not_answered.find(tg_id); it != not_answered.end()) {
        std::fprintf(out, "tgId %lld: NOT ANSWERED (%s)\n", tg_id, it->second.c_str());
        ++tally.unanswered_groups;
      } else {
        std::fprintf(out, "tgId %lld: FAIL missing from the response (%zu tests)\n", tg_id,
                     tests.size());
        tally.failed += static_cast<int>(tests.size());
      }
      continue;
    }
    const Json& answered_group = *got.groups[tg_id].json;
    int failed = 0;
    std::string first;
    for (const auto& [tc_id, expected_test] : tests) {
      std::string problem;
      const auto it = answered->second.find(tc_id);
      if (it == answered->second.end()) {
        problem = "missing from the response";
      } else if (sig_gen) {
        const Json* asked_test = nullptr;
        if (asked.tests.count(tg_id) && asked.tests[tg_id].count(tc_id)) {
          asked_test = asked.tests[tg_id][tc_id];
        }
        const Json& group = asked.groups.count(tg_id) ? *asked.groups[tg_id].json : Json();
        if (!prompt || !asked_test) {
          problem = "the prompt with its message is needed to verify the signature";
        } else if (!answered_group.value("n", Json()).is_string() ||
                   !answered_group.value("e", Json()).is_string() ||
                   !it->second->value("signature", Json()).is_string() ||
                   !asked_test->value("message", Json()).is_string() ||
                   !group.value("hashAlg", Json()).is_string() ||
                   !group.value("modulo", Json()).is_number_integer()) {
          problem = "n, e, signature, message, hashAlg or modulo is missing";
        } else {
          problem = VerifySignature(answered_group["n"].get<std::string>(),
                                    answered_group["e"].get<std::string>(),
                                    group["modulo"].get<long long>(), group["hashAlg"].get<std::string>(),
                                    (*asked_test)["message"].get<std::string>(),
                                    (*it->second)["signature"].get<std::string>());
        }
      } else {
        problem = Difference(*expected_test, *it->second, "");
      }
      if (problem.empty()) {
        ++tally.passed;
        continue;
      }
      ++failed;
      ++tally.failed;
      if (first.empty()) first = "tcId " + std::to_string(tc_id) + ": " + problem;
    }
    if (failed == 0) {
      std::fprintf(out, "tgId %lld: PASS %zu tests\n", tg_id, tests.size());
    } else {
      std::fprintf(out, "tgId %lld: FAIL %d of %zu tests (first: %s)\n", tg_id, failed,
                   tests.size(), first.c_str());
    }
  }
  for (const auto& [tg_id, tests] : got.tests) {
    if (want.tests.count(tg_id)) continue;
    std::fprintf(out, "tgId %lld: FAIL not in the expected results (%zu tests)\n", tg_id,
                 tests.size());
    tally.failed += static_cast<int>(tests.size());
  }
  std::fprintf(out, "%d passed, %d failed\n", tally.passed, tally.failed);
  return tally;
}

}  // namespace fipsval::host::acvp
