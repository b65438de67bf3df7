// The evidence of a response folder: "fipsval-evidence.json" beside the
// responses (<root>/<DIR>/resp/), one entry per response that a run made,
// with the SHA-256 of the request it answered and of the response itself,
// its outcome and when it was made, and the runs that made them (the
// module that answered, the command line, the host). A folder's evidence
// travels with it: every path in it is relative, so a tree can be moved or
// handed over, and a run rewrites only the entries of the files it ran.
// Its schema is doc/fipsval-evidence.schema.json.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "host/base/status.h"
#include "host/run/run_result.h"

namespace fipsval::host {

inline constexpr const char* kEvidenceName = "fipsval-evidence.json";

// 64 lower-case hex digits.
std::string Sha256Hex(std::string_view data);

// Who answered: filled once per run.
struct ModuleIdentity {
  std::string library;         // the file name of the library that answered
  std::string library_sha256;  // "" when it could not be read
  std::string version;
  std::string openssl;
  std::string architecture;
  std::string host;
};

// The identity of this process's library, OpenSSL and machine.
ModuleIdentity ThisModule(const std::string& version);

struct EvidenceEntry {
  std::string request_sha256;
  std::string response_sha256;
  std::string outcome;  // "answered" or "runner-error"
  std::string message;
  std::string made;     // UTC
  std::string run;      // the id of the run that made it
};

struct EvidenceRun {
  std::string started, finished;
  std::string command;
  ModuleIdentity module;
};

// One folder's evidence.
struct Evidence {
  std::string dir;                            // "<DIR>"
  std::map<std::string, EvidenceEntry> files;  // by request name
  std::map<std::string, EvidenceRun> runs;     // by id
};

std::string EvidenceJson(const Evidence& evidence);
// Refused when the text is not evidence this program wrote.
Status ParseEvidence(std::string_view text, Evidence* evidence);

// Reads <dir>/resp/fipsval-evidence.json below the response root; an
// absent file is empty evidence (ok).
Status ReadEvidence(int root, const std::string& dir, Evidence* evidence);

// Before a run: the entries of the files it will run are dropped, so that a
// run stopped part way leaves no evidence for what it did not finish.
// After it: the entries of the files it ran are replaced by what it made.
// Both rewrite only folders whose evidence changes, atomically and never
// through a link.
Status DropEvidence(int root, const RunResult& run);
Status RecordEvidence(int root, const RunResult& run);

}  // namespace fipsval::host
