// An ACVP vector set turned into the library's request files: the text of
// each file, its runner's profile (suite, folder, answer lines), where each
// test's answer will stand in the response, and the groups that no suite
// can answer (with the reason).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/acvp/json_fields.h"
#include "host/base/status.h"
#include "host/catalog/runner_profiles.h"

namespace fipsval::host::acvp {

// One test of the vector set inside a request file. An answer takes
// `records` response records: 1, or the Monte Carlo iterations.
struct Slot {
  long long tg_id = 0;
  long long tc_id = 0;
  int records = 1;
};

struct RequestFile {
  const RequestProfile* profile = nullptr;  // its runner: suite, folder, name
  std::string text;         // the request, CR LF line ends
  std::vector<Slot> slots;  // in the order of the answers
};

struct Unanswered {
  long long tg_id = 0;
  std::string reason;
  bool failed = false;  // a runner was given the group and did not answer it whole
};

struct Conversion {
  std::vector<RequestFile> files;
  std::vector<Unanswered> unanswered;
  Status status;  // a bad document: one line naming the field (refused)
};

// Converts a vector set (a prompt). The status is refused for a document
// that cannot be read (missing or bad field, unknown algorithm); otherwise
// every group ends up either in a request file or in `unanswered`.
Conversion ConvertVectorSet(const Json& prompt);

// The parts of the converters that they share.
namespace internal {

// A test group or a test, with its id and its place in the document for
// messages ("testGroups[1] (tgId 2)").
struct Item {
  const Json* json = nullptr;
  std::string place;
  long long id = 0;
};

// The groups of the set (each an object with an integer tgId and a tests
// array), and the tests of a group (each with an integer tcId); refused
// when one is malformed.
Status ReadGroups(const Json& prompt, std::vector<Item>* groups);
Status ReadTests(const Item& group, std::vector<Item>* tests);

// The kind of a group of the vector set: its algorithm and mode, the
// group's test type and key size (0: not a property of the set).
AcvpGroup GroupOf(const Json& prompt, std::string_view test_type,
                  long long key_bits = 0);

// A request file for the groups of that kind (the runner profiles route
// them), its text begun with the header of the vector set. Fails when no
// runner takes such groups.
Status NewRequestFile(const Json& prompt, const AcvpGroup& group,
                      RequestFile* file);

// The first lines of every request file written for a vector set.
std::string Header(const Json& prompt);

// A block-cipher request file: the tests of an "[ENCRYPT]" and a
// "[DECRYPT]" section, each numbered from 0; the answers come encrypt
// section first.
struct CipherSections {
  std::string encrypt, decrypt;
  int encrypt_count = 0, decrypt_count = 0;
  std::vector<Slot> encrypt_slots, decrypt_slots;

  // Appends a test: "COUNT = n" and then `lines` (CR LF ended each).
  void Add(bool encrypt, const Slot& slot, const std::string& lines);
  // Appends to the file's text "[ENCRYPT]" (then `section_lines`), the
  // encrypt tests, "[DECRYPT]" (then `section_lines`), the decrypt tests;
  // the slots take the records of the file's profile.
  void Finish(const std::string& section_lines, RequestFile* file) const;
  bool empty() const { return encrypt_slots.empty() && decrypt_slots.empty(); }
};

// A test as the request gets it, or why the runners cannot take it.
struct TestInput {
  std::string lines;    // its request lines (CR LF ended each)
  std::string refusal;  // "" when the runners can take it
};

// The tests of a group as TestInputs, read with `read` (which returns
// nullopt, with the status set, for a malformed test): their lines, up to
// the first test the runners cannot take, whose refusal ends the list.
struct GroupInputs {
  std::vector<Item> tests;
  std::vector<std::string> lines;
  std::string refusal;
};
template <typename Read>
std::optional<GroupInputs> ReadInputs(const Item& group, Status* status,
                                      Read read) {
  GroupInputs inputs;
  if (Status s = ReadTests(group, &inputs.tests); !s.ok()) {
    *status = s;
    return std::nullopt;
  }
  for (const Item& test : inputs.tests) {
    std::optional<TestInput> input = read(test);
    if (!input) return std::nullopt;
    if (!input->refusal.empty()) {
      inputs.refusal = std::move(input->refusal);
      break;
    }
    inputs.lines.push_back(std::move(input->lines));
  }
  return inputs;
}

// " (tcId N)", for refusals that name a test.
std::string TcId(const Item& test);

// Why the block-cipher runners cannot take `bytes` of data in a test of a
// Monte Carlo group (one block) or another group (1 to 256 bytes of whole
// blocks), naming the field and the tcId; empty when they can.
std::string BlockDataRefusal(std::size_t bytes, std::size_t block, bool monte,
                             const char* field, long long tc_id);

// Converters by family; each handles all groups of the set.
void ConvertAes(const Json& prompt, bool cbc, Conversion* out);
void ConvertTdes(const Json& prompt, Conversion* out);
void ConvertSha(const Json& prompt, int digest_bytes, Conversion* out);
void ConvertHmac(const Json& prompt, int digest_bytes, Conversion* out);
void ConvertDrbg(const Json& prompt, Conversion* out);
void ConvertSsh(const Json& prompt, Conversion* out);
void ConvertTls(const Json& prompt, Conversion* out);
void ConvertRsaSigGen(const Json& prompt, Conversion* out);
// Every group unsupported with the same reason.
void AllUnsupported(const Json& prompt, const std::string& reason,
                    Conversion* out);

// What a converter makes of one group: kAnswerable (its tests are in a
// request file), kUnanswered (with its reason), or kBad (the document's
// error is in the conversion's status: stop).
enum class GroupFate { kAnswerable, kUnanswered, kBad };
GroupFate Unanswered(const Item& group, std::string reason, Conversion* out);

}  // namespace internal
}  // namespace fipsval::host::acvp
