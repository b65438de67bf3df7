// What the host knows about each of the library's runners, in one table:
// the suite and folder of every request file, the titles a suite's run
// operation prints, how the tests of a file are answered (answer lines,
// their ACVP fields, Monte Carlo records), and the self-tests with the
// names that force them. Completeness, verify, the tree runner, the ACVP
// side and the self-test commands read it; no other host file names a
// request kind. The profile test compares it with the library's own tables.
#pragma once

#include <span>
#include <string_view>

namespace fipsval::host {

// A response line that carries an answer: the tag that begins it and the
// ACVP field it becomes ("CIPHERTEXT = ", "ct"; "" when ACVP has none).
struct AnswerField {
  std::string_view tag;
  std::string_view acvp;
};

// The answers of one section of a response. The section begins at a line
// starting with `marker` (empty: the whole file); its fields come in the
// order the runner writes them, and a record ends with `closing`.
struct AnswerSection {
  std::string_view marker;
  std::span<const AnswerField> fields;
  std::string_view closing;
};

// How the tests of a request are laid out and answered.
enum class Layout {
  kTests,           // a line starting with test_tag begins a test, answered
                    // by answers_per_test answer lines after its inputs
  kMonteCarlo,      // a seed (test_tag and its fields) is replaced by
                    // monte_records records of COUNT and the fields
  kShaMonte,        // the seed line is copied, then monte_records records
                    // of COUNT and the fields; nothing after it is read
  kDrbgSections,    // kTests in "[AES-256 use df]" sections, the runner
                    // stops at the first test of a mechanism it cannot read
  kSignatures,      // "[mod = ...]" gets the key's n and e, each test of a
                    // signed digest its S
  kKeyCount,        // "N = k" is replaced by k keys of the fields
  kStopsAtFirstTest,  // the response is the request up to its first test
  kCopiedThrough,   // no test: the request is copied as it is
};

struct RequestShape {
  Layout layout = Layout::kTests;
  std::string_view test_tag = {};  // begins a test (or a seed)
  int answers_per_test = 1;        // kTests, kDrbgSections
  int monte_records = 0;           // records per seed
  std::span<const AnswerSection> sections = {};
  std::string_view droppable = {};  // a request line the runner may leave out
  std::span<const std::string_view> digests = {};  // SHAAlg values it answers
  // kTests: the "[...]" sections whose tests it answers right; none: all.
  // Under another section an answer cannot be right.
  std::span<const std::string_view> answered_sections = {};
  std::span<const std::string_view> group_fields = {};  // ACVP group fields
  std::string_view stop_line = {};  // what it prints when it stops by design
  std::string_view stop_note = {};  // what the run says of that stop
};

struct RequestProfile {
  std::string_view suite;  // the suite descriptor's name ("AES-WF")
  std::string_view dir;    // its CAVP folder ("AES")
  std::string_view name;   // the request's base name ("ECBMMT128")
  const RequestShape* shape;
};

struct SuiteProfile {
  std::string_view name;
  std::string_view dir;
  // What its run operation prints before its runners ("TDES KAT VARTEXT").
  std::span<const std::string_view> titles;
};

// A power-on self-test: the marker text that forces it, and, for the
// known-answer tests that `fipsval kat` runs alone, its name there and
// the exported function.
struct SelfTestProfile {
  std::string_view force_name;  // "" when it cannot be forced
  std::string_view kat_name;    // "" when `kat` does not run it
  int (*kat)(int force);
};

// An ACVP test group that the runners answer: the vector set's algorithm
// and mode ("" when it has none), the group's test type, and its key size
// (0: any); and the request file its tests go to.
struct AcvpGroup {
  std::string_view algorithm;
  std::string_view mode;
  std::string_view test_type;
  long long key_bits = 0;
};
struct AcvpRoute {
  AcvpGroup group;
  std::string_view request;
};

std::span<const RequestProfile> RequestProfiles();
std::span<const AcvpRoute> AcvpRoutes();
std::span<const SuiteProfile> SuiteProfiles();
std::span<const SelfTestProfile> SelfTestProfiles();

// The profile of a request file, or nullptr.
const RequestProfile* FindRequestProfile(std::string_view dir,
                                         std::string_view name);
// By the base name alone (they are unique across the library).
const RequestProfile* FindRequestProfile(std::string_view name);
const SuiteProfile* FindSuiteProfile(std::string_view name);
// The profile of the request file that answers such ACVP groups, or nullptr.
const RequestProfile* FindAcvpRequest(const AcvpGroup& group);

// Response records that answer one test: the Monte Carlo records, or 1.
int RecordsPerTest(const RequestShape& shape);

}  // namespace fipsval::host
