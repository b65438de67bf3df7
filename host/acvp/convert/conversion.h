// An ACVP vector set turned into the library's request files: the text of
// each file, the suite that reads it, where each test's answer will stand in
// the response, and the groups that no suite can answer (with the reason).
#pragma once

#include <string>
#include <vector>

#include "host/acvp/json_fields.h"

namespace fipsval::host::acvp {

// A response line that carries an answer: the line begins with `prefix`
// ("CIPHERTEXT = ") and its value becomes the JSON field `field` ("ct").
struct AnswerTag {
  std::string prefix;
  std::string field;
};

// The answer lines of one section of a response file. The section starts at
// a line beginning with `marker` (an empty marker: at the start of the
// file). A record is complete at its `closing` line.
struct SectionAnswers {
  std::string marker;
  std::vector<AnswerTag> tags;
  std::string closing;
};

// One test of the vector set inside a request file. An answer takes
// `records` response records: 1, or the Monte Carlo iterations.
struct Slot {
  long long tg_id = 0;
  long long tc_id = 0;
  int records = 1;
};

struct RequestFile {
  std::string suite;  // the suite descriptor's name ("AES-WF")
  std::string dir;    // its CAVP directory ("AES")
  std::string name;   // the request's base name ("ECBMMT128")
  std::string text;   // the request, CR LF line ends
  std::vector<SectionAnswers> sections;
  std::vector<std::string> group_fields;  // record fields that belong to the group (RSA n, e)
  std::vector<Slot> slots;                // in the order of the answers
};

struct Unanswered {
  long long tg_id = 0;
  std::string reason;
};

struct Conversion {
  std::vector<RequestFile> files;
  std::vector<Unanswered> unanswered;
  std::string error;  // a bad document: one line naming the field
};

// Converts a vector set (a prompt). Sets `error` for a document that cannot
// be read (missing or bad field, unknown algorithm); otherwise every group
// ends up either in a request file or in `unanswered`.
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
// array), and the tests of a group (each with an integer tcId). False, with
// the error set, when one is malformed.
bool ReadGroups(const Json& prompt, std::vector<Item>* groups,
                std::string* error);
bool ReadTests(const Item& group, std::vector<Item>* tests, std::string* error);

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
  // Header, "[ENCRYPT]" (then `section_lines`), the encrypt tests,
  // "[DECRYPT]" (then `section_lines`), the decrypt tests.
  void Finish(const std::string& header, const std::string& section_lines,
              RequestFile* file) const;
};

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

}  // namespace internal
}  // namespace fipsval::host::acvp
