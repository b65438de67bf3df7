#include "host/acvp/check.h"

#include <openssl/bn.h>
#include <openssl/obj_mac.h>

#include <map>
#include <vector>

#include "host/acvp/convert/conversion.h"
#include "host/base/owners.h"
#include "host/base/text.h"
#include "host/verify/pkcs1.h"

namespace fipsval::host::acvp {
namespace {

using internal::Item;

// The member `key` of an object; nullptr when absent or not an object.
const Json* Member(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

// The string member `key`, or "" when it is absent or not a string.
std::string Text(const Json& object, const char* key) {
  const Json* value = Member(object, key);
  return value && value->is_string() ? value->get<std::string>() : std::string();
}

// Where `actual` differs from `expected` ("" when it does not); hex
// strings compare without regard to case. The depth is bounded as the
// reader bounds it, for documents built otherwise.
std::string Difference(const Json& expected, const Json& actual, const std::string& path,
                       int depth = 0) {
  if (depth > kMaxJsonDepth) return path + " is nested too deep to compare";
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
      std::string d =
          Difference(expected[i], actual[i], path + "[" + std::to_string(i) + "]", depth + 1);
      if (!d.empty()) return d;
    }
    return "";
  }
  if (expected.is_object() && actual.is_object()) {
    for (const auto& [key, value] : expected.items()) {
      const std::string where = path.empty() ? key : path + "." + key;
      if (!actual.contains(key)) return where + " is missing";
      std::string d = Difference(value, actual[key], where, depth + 1);
      if (!d.empty()) return d;
    }
    return "";
  }
  if (expected == actual) return "";
  return path + " is " + actual.dump() + ", expected " + expected.dump();
}

int DigestNid(const std::string& hash) {
  if (hash == "SHA-1") return NID_sha1;
  if (hash == "SHA2-224") return NID_sha224;
  if (hash == "SHA2-256") return NID_sha256;
  if (hash == "SHA2-384") return NID_sha384;
  if (hash == "SHA2-512") return NID_sha512;
  return NID_undef;
}

Bignum HexNumber(const std::string& hex) {
  BIGNUM* bn = nullptr;
  BN_hex2bn(&bn, hex.c_str());
  return Bignum(bn);
}

// What a sigGen test's answer lacks, from the group of the response (n, e),
// its test (signature) and the prompt's group and test (hashAlg, modulo,
// message); "" when it verifies.
struct SigGenParts {
  const Json& answered_group;
  const Json& answered_test;
  const Json& asked_group;
  const Json& asked_test;
};

std::string VerifySignature(const SigGenParts& parts) {
  const Json* modulo = Member(parts.asked_group, "modulo");
  for (const auto& [object, key] :
       {std::pair{&parts.answered_group, "n"}, {&parts.answered_group, "e"},
        {&parts.answered_test, "signature"}, {&parts.asked_test, "message"},
        {&parts.asked_group, "hashAlg"}}) {
    const Json* value = Member(*object, key);
    if (!value || !value->is_string() || !modulo || !modulo->is_number_integer()) {
      return "n, e, signature, message, hashAlg or modulo is missing";
    }
  }
  const auto text = [](const Json& object, const char* key) { return Text(object, key); };
  const std::string hash = text(parts.asked_group, "hashAlg");
  const int nid = DigestNid(hash);
  if (nid == NID_undef) return "hashAlg " + hash + " is not known";
  const auto message = HexBytes(text(parts.asked_test, "message"));
  const auto signature = HexBytes(text(parts.answered_test, "signature"));
  const std::string n_hex = text(parts.answered_group, "n");
  const std::string e_hex = text(parts.answered_group, "e");
  if (!message || !signature || !IsHex(n_hex) || !IsHex(e_hex)) {
    return "n, e, the message or the signature is not hexadecimal";
  }
  const Bignum n = HexNumber(n_hex), e = HexNumber(e_hex);
  if (!n || !e) return "n and e do not make an RSA key";
  const long long bits = modulo->is_number_unsigned() && modulo->get<unsigned long long>() > 1u << 31
                             ? -1
                             : modulo->get<long long>();
  if (BN_num_bits(n.get()) != bits) {
    return "n has " + std::to_string(BN_num_bits(n.get())) +
           " bits, the group asks for " + std::to_string(bits);
  }
  if (!Pkcs1Verifies(nid, *message, *signature, n.get(), e.get())) {
    return "the signature does not verify under the reported n and e";
  }
  return "";
}

struct GroupIndex {
  std::map<long long, Item> groups;
  std::map<long long, std::map<long long, const Json*>> tests;

  const Json* Test(long long tg_id, long long tc_id) const {
    const auto group = tests.find(tg_id);
    if (group == tests.end()) return nullptr;
    const auto test = group->second.find(tc_id);
    return test == group->second.end() ? nullptr : test->second;
  }
};

Status Index(const Json& document, const char* name, GroupIndex* index) {
  std::vector<Item> groups;
  Status read = internal::ReadGroups(document, &groups);
  for (const Item& group : groups) {
    std::vector<Item> tests;
    if (!read.ok()) break;
    read = internal::ReadTests(group, &tests);
    index->groups[group.id] = group;
    for (const Item& test : tests) index->tests[group.id][test.id] = test.json;
  }
  return read.Prefixed(std::string(name) + ": ");
}

std::map<long long, std::string> NotAnswered(const Json& response) {
  std::map<long long, std::string> reasons;
  const Json* list = Member(response, "notAnswered");
  if (!list || !list->is_array()) return reasons;
  for (const Json& entry : *list) {
    const Json* tg_id = Member(entry, "tgId");
    if (tg_id && tg_id->is_number_integer()) {
      const std::string reason = Text(entry, "reason");
      reasons[tg_id->get<long long>()] = reason.empty() ? "no reason given" : reason;
    }
  }
  return reasons;
}

// The documents of one check.
struct Documents {
  GroupIndex want, got, asked;
  bool sig_gen = false;
  bool have_prompt = false;
};

std::string CheckTest(const Documents& docs, long long tg_id, long long tc_id,
                      const Json& expected_test) {
  const Json* answer = docs.got.Test(tg_id, tc_id);
  if (!answer) return "missing from the response";
  if (!docs.sig_gen) return Difference(expected_test, *answer, "");
  const Json* asked_test = docs.asked.Test(tg_id, tc_id);
  if (!docs.have_prompt || !asked_test) {
    return "the prompt with its message is needed to verify the signature";
  }
  const auto asked_group = docs.asked.groups.find(tg_id);
  return VerifySignature({*docs.got.groups.at(tg_id).json, *answer,
                          asked_group == docs.asked.groups.end()
                              ? Json()
                              : *asked_group->second.json,
                          *asked_test});
}

void CheckGroup(const Documents& docs, long long tg_id,
                const std::map<long long, const Json*>& tests, std::FILE* out,
                CheckTally* tally) {
  int failed = 0;
  std::string first;
  for (const auto& [tc_id, expected_test] : tests) {
    const std::string problem = CheckTest(docs, tg_id, tc_id, *expected_test);
    if (problem.empty()) {
      ++tally->passed;
      continue;
    }
    ++failed;
    ++tally->failed;
    if (first.empty()) first = "tcId " + std::to_string(tc_id) + ": " + problem;
  }
  if (failed == 0) {
    std::fprintf(out, "tgId %lld: PASS %zu tests\n", tg_id, tests.size());
  } else {
    std::fprintf(out, "tgId %lld: FAIL %d of %zu tests (first: %s)\n", tg_id,
                 failed, tests.size(), first.c_str());
  }
  tally->groups.push_back({tg_id, failed == 0 ? "passed" : "failed", first,
                           static_cast<int>(tests.size()), failed});
}

// A group in one document and not the other: each of its tests fails.
void Missed(long long tg_id, std::size_t tests, const char* why, std::FILE* out,
            CheckTally* tally) {
  std::fprintf(out, "tgId %lld: FAIL %s (%zu tests)\n", tg_id, why, tests);
  const int count = static_cast<int>(tests);
  tally->failed += count;
  tally->groups.push_back({tg_id, "failed", why, count, count});
}

Status SameVectorSet(const Json& expected, const Json& response) {
  for (const char* field : {"vsId", "algorithm", "mode", "revision"}) {
    if (expected.contains(field) &&
        (!response.contains(field) || response[field] != expected[field])) {
      return Refused("the response is not for this vector set: its \"" +
                     std::string(field) + "\" differs from the expected results'");
    }
  }
  return Ok();
}

CheckTally CheckDocuments(const Json& expected, const Json& response, const Json* prompt,
                          std::FILE* out) {
  CheckTally tally;
  Documents docs;
  tally.status = Index(expected, "expected results", &docs.want);
  if (tally.status.ok()) tally.status = Index(response, "response", &docs.got);
  if (tally.status.ok() && prompt) tally.status = Index(*prompt, "prompt", &docs.asked);
  if (tally.status.ok()) tally.status = SameVectorSet(expected, response);
  if (!tally.status.ok()) return tally;
  docs.have_prompt = prompt != nullptr;
  docs.sig_gen = Text(expected, "algorithm") == "RSA" && Text(expected, "mode") == "sigGen";
  const std::map<long long, std::string> not_answered = NotAnswered(response);
  for (const auto& [tg_id, tests] : docs.want.tests) {
    if (docs.got.tests.count(tg_id)) {
      CheckGroup(docs, tg_id, tests, out, &tally);
    } else if (const auto it = not_answered.find(tg_id); it != not_answered.end()) {
      std::fprintf(out, "tgId %lld: NOT ANSWERED (%s)\n", tg_id, it->second.c_str());
      ++tally.unanswered_groups;
      tally.groups.push_back({tg_id, "not-answered", it->second, static_cast<int>(tests.size()), 0});
    } else {
      Missed(tg_id, tests.size(), "missing from the response", out, &tally);
    }
  }
  for (const auto& [tg_id, tests] : docs.got.tests) {
    if (!docs.want.tests.count(tg_id)) {
      Missed(tg_id, tests.size(), "not in the expected results", out, &tally);
    }
  }
  std::fprintf(out, "%d passed, %d failed\n", tally.passed, tally.failed);
  return tally;
}

}  // namespace

CheckTally CheckResponse(const Json& expected, const Json& response, const Json* prompt,
                         std::FILE* out) {
  // The fields are looked at before use; a slip there must still not throw
  // out of the tool.
  try {
    return CheckDocuments(expected, response, prompt, out);
  } catch (const Json::exception& e) {
    CheckTally tally;
    tally.status = Refused(std::string("cannot compare the documents: ") + e.what());
    return tally;
  }
}

}  // namespace fipsval::host::acvp
