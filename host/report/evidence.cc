#include "host/report/evidence.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "host/base/file_io.h"
#include "host/platform/host_settings.h"

namespace fipsval::host {
namespace {

using Json = nlohmann::ordered_json;

std::string Text(const nlohmann::json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>()
                                               : std::string();
}

std::string RunId(const RunResult& run) {
  return run.started + "-" + std::to_string(getpid());
}

// The folders of the run's files that the run touches, and those files.
std::map<std::string, std::vector<const FileRun*>> FoldersRun(
    const RunResult& run) {
  std::map<std::string, std::vector<const FileRun*>> folders;
  for (const FileRun& file : run.files) {
    if (file.plan != FilePlan::kAbsent) folders[file.dir].push_back(&file);
  }
  return folders;
}

Status WriteEvidence(int root, const Evidence& evidence) {
  UniqueFd dir, resp;
  Status s = OpenDirBelow(root, evidence.dir, 0, &dir);
  if (s.ok()) s = OpenDirBelow(dir.get(), "resp", 0, &resp);
  if (s.kind() == StatusKind::kMissing && evidence.files.empty()) return Ok();
  if (s.ok()) {
    s = ReplaceFileBelow(resp.get(), kEvidenceName, EvidenceJson(evidence),
                         0644);
  }
  return s.Prefixed("cannot write " + evidence.dir + "/resp/" + kEvidenceName +
                    ": ");
}

}  // namespace

std::string Sha256Hex(std::string_view data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(data.data(), data.size(), digest.data(), &size, EVP_sha256(),
                 nullptr) != 1) {
    return {};
  }
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    char byte[3];
    std::snprintf(byte, sizeof byte, "%02x", digest[i]);
    hex += byte;
  }
  return hex;
}

ModuleIdentity ThisModule(const std::string& version) {
  ModuleIdentity module;
  const std::string library = LoadedLibraryPath();
  module.library = library.substr(library.rfind('/') + 1);
  std::string content;
  if (!library.empty() &&
      ReadGivenFile(library, kMaxFileBytes, &content).ok()) {
    module.library_sha256 = Sha256Hex(content);
  }
  module.version = version;
  module.openssl = OpenSSL_version(OPENSSL_VERSION);
  utsname names{};
  if (uname(&names) == 0) {
    module.architecture = names.machine;
    module.host = names.nodename;
  }
  return module;
}

std::string EvidenceJson(const Evidence& evidence) {
  std::set<std::string> used;
  Json files = Json::array();
  for (const auto& [name, entry] : evidence.files) {
    used.insert(entry.run);
    files.push_back({{"name", name},
                     {"request", evidence.dir + "/req/" + name + ".req"},
                     {"request_sha256", entry.request_sha256},
                     {"response", evidence.dir + "/resp/" + name + ".rsp"},
                     {"response_sha256", entry.response_sha256},
                     {"outcome", entry.outcome},
                     {"message", entry.message},
                     {"made", entry.made},
                     {"run", entry.run}});
  }
  Json runs = Json::array();
  for (const auto& [id, run] : evidence.runs) {
    if (!used.contains(id)) continue;  // none of its responses is left
    const ModuleIdentity& m = run.module;
    runs.push_back({{"id", id},
                    {"started", run.started},
                    {"finished", run.finished},
                    {"command", run.command},
                    {"host", m.host},
                    {"module", {{"library", m.library},
                                {"library_sha256", m.library_sha256},
                                {"version", m.version},
                                {"openssl", m.openssl},
                                {"architecture", m.architecture}}}});
  }
  const Json json = {{"version", 1},
                     {"dir", evidence.dir},
                     {"runs", runs},
                     {"files", files}};
  // A runner's message echoes request text, which need not be UTF-8.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n";
}

Status ParseEvidence(std::string_view text, Evidence* evidence) {
  const nlohmann::json json =
      nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || !json.contains("files") ||
      !json["files"].is_array() || !json.contains("runs") ||
      !json["runs"].is_array()) {
    return Refused("not evidence this program can read");
  }
  for (const nlohmann::json& run : json["runs"]) {
    if (!run.is_object()) continue;
    EvidenceRun& r = evidence->runs[Text(run, "id")];
    r.started = Text(run, "started");
    r.finished = Text(run, "finished");
    r.command = Text(run, "command");
    r.module.host = Text(run, "host");
    if (const auto m = run.find("module"); m != run.end() && m->is_object()) {
      r.module.library = Text(*m, "library");
      r.module.library_sha256 = Text(*m, "library_sha256");
      r.module.version = Text(*m, "version");
      r.module.openssl = Text(*m, "openssl");
      r.module.architecture = Text(*m, "architecture");
    }
  }
  for (const nlohmann::json& file : json["files"]) {
    if (!file.is_object()) continue;
    evidence->files[Text(file, "name")] = {
        Text(file, "request_sha256"), Text(file, "response_sha256"),
        Text(file, "outcome"),        Text(file, "message"),
        Text(file, "made"),           Text(file, "run")};
  }
  return Ok();
}

Status ReadEvidence(int root, const std::string& dir, Evidence* evidence) {
  *evidence = Evidence{};
  evidence->dir = dir;
  UniqueFd folder, resp;
  std::string text;
  Status s = OpenDirBelow(root, dir, 0, &folder);
  if (s.ok()) s = OpenDirBelow(folder.get(), "resp", 0, &resp);
  if (s.ok()) s = ReadFileBelow(resp.get(), kEvidenceName, kMaxFileBytes, &text);
  if (s.kind() == StatusKind::kMissing) return Ok();
  if (s.ok()) s = ParseEvidence(text, evidence);
  return s.Prefixed(dir + "/resp/" + kEvidenceName + ": ");
}

Status DropEvidence(int root, const RunResult& run) {
  for (const auto& [dir, files] : FoldersRun(run)) {
    Evidence evidence;
    // Unreadable evidence is replaced: it vouches for nothing.
    static_cast<void>(ReadEvidence(root, dir, &evidence));
    evidence.dir = dir;
    bool changed = false;
    for (const FileRun* file : files) {
      changed = evidence.files.erase(file->name) > 0 || changed;
    }
    if (!changed) continue;
    if (Status s = WriteEvidence(root, evidence); !s.ok()) return s;
  }
  return Ok();
}

Status RecordEvidence(int root, const RunResult& run) {
  const std::string id = RunId(run);
  EvidenceRun this_run{run.started, run.finished, run.command,
                       ThisModule(run.version)};
  for (const auto& [dir, files] : FoldersRun(run)) {
    Evidence evidence;
    static_cast<void>(ReadEvidence(root, dir, &evidence));
    evidence.dir = dir;
    bool changed = false;
    for (const FileRun* file : files) {
      if (!file->written) continue;
      evidence.files[file->name] = {
          file->request_sha256, file->response_sha256,
          OutcomeName(file->outcome), file->message, file->made, id};
      changed = true;
    }
    if (!changed) continue;
    evidence.runs[id] = this_run;
    if (Status s = WriteEvidence(root, evidence); !s.ok()) return s;
  }
  return Ok();
}

}  // namespace fipsval::host
