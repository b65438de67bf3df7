// The acvp command: answers ACVP vector sets with the library's suites, and
// checks a response against the expected results.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/acvp/check.h"
#include "host/acvp/json_fields.h"
#include "host/acvp/registration.h"
#include "host/acvp/session.h"
#include "host/base/file_io.h"
#include "host/cli/cli.h"
#include "host/platform/host_settings.h"
#include "host/report/run_console.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;
using acvp::Json;

// How `acvp` answers and judges.
struct AnswerOptions {
  fs::path output;          // a file (one prompt) or directory; "": default
  bool bare = false;        // the response as the bare vector-set object
  bool allow_unsupported = false;  // groups no runner takes do not fail
};

// Writes `text` to `path` through a new file beside it, renamed into place:
// a link at `path` is replaced, never followed.
bool WriteOutput(const fs::path& path, const std::string& text) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    std::fprintf(stderr, "fipsval: %s is a directory\n", path.c_str());
    return false;
  }
  const Status written = ReplaceGivenFile(path, text, 0644);
  if (!written.ok()) {
    std::fprintf(stderr, "fipsval: cannot write %s: %s\n", path.c_str(),
                 written.message().c_str());
  }
  return written.ok();
}

// Writes root/relative/name: root as given (made when missing), every
// folder below it opened without following a link (made when missing),
// the file replaced, never written through a link.
Status WriteBelow(const fs::path& root, const fs::path& relative, const std::string& name,
                  const std::string& text) {
  UniqueFd dir;
  Status s = OpenGivenDirectory(root, 0755, &dir).Prefixed("cannot open " + root.string() + ": ");
  fs::path at = root;
  for (const fs::path& part : relative) {
    if (!s.ok()) break;
    if (part == ".") continue;
    at /= part;
    UniqueFd below;
    s = OpenDirBelow(dir.get(), part.string(), 0755, &below)
            .Prefixed("cannot open " + at.string() + ": ");
    dir = std::move(below);
  }
  if (s.ok()) {
    s = ReplaceFileBelow(dir.get(), name, text, 0644)
            .Prefixed("cannot write " + (at / name).string() + ": ");
  }
  return s;
}

// The response on standard output, or in `output` when it is not empty.
bool PutResponse(const fs::path& output, const std::string& text) {
  if (!output.empty()) return WriteOutput(output, text);
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) != 0 || !written) {
    std::fprintf(stderr, "fipsval: cannot write the response to standard output: %s\n",
                 std::strerror(errno));
    return false;
  }
  return true;
}

// The outcome of answering one vector set.
enum class Answered { kFully, kPartly, kRefused, kFailed };

// Answers a loaded prompt; `put` writes the response text. Each group not
// answered is named with its reason.
Answered AnswerLoaded(const std::string& shown, const Json& prompt, const std::string& version,
                      const AnswerOptions& options,
                      const std::function<bool(const std::string&)>& put) {
  const int verbosity = Settings().verbosity;
  // -v: the library's lines on standard error, which the response leaves alone.
  RunConsole console(stderr, 1, false);
  const acvp::SessionResult result =
      acvp::AnswerVectorSet(prompt, verbosity >= 2 ? &console : nullptr);
  if (!result.status.ok()) {
    std::fprintf(stderr, "fipsval: %s: %s\n", shown.c_str(), result.status.message().c_str());
    return result.status.kind() == StatusKind::kRefused ? Answered::kRefused
                                                        : Answered::kFailed;
  }
  const acvp::AssembledResponse& answers = result.answers;
  for (const acvp::Unanswered& u : answers.unanswered) {
    std::fprintf(stderr, "fipsval: %s: tgId %lld not answered: %s\n", shown.c_str(), u.tg_id,
                 u.reason.c_str());
  }
  const Json& response = answers.response;
  if (!put((options.bare ? response : acvp::Envelope(response, version)).dump(2) + "\n")) {
    return Answered::kFailed;
  }
  const std::size_t groups = answers.answered_groups + answers.unanswered.size();
  if (verbosity >= 1) {
    std::fprintf(stderr, "fipsval: %s: %d of %zu groups answered\n", shown.c_str(),
                 answers.answered_groups, groups);
  }
  if (groups == 0) {
    std::fprintf(stderr, "fipsval: %s: the vector set has no test group\n", shown.c_str());
    return Answered::kPartly;
  }
  if (answers.answered_groups == 0) {
    std::fprintf(stderr, "fipsval: %s: no group of the vector set could be answered\n",
                 shown.c_str());
  }
  // A runner that failed a group it was given always fails; a group no
  // runner takes fails unless the caller accepts it.
  if (answers.failed_groups > 0) return Answered::kFailed;
  if (answers.unanswered.empty() || options.allow_unsupported) return Answered::kFully;
  return Answered::kPartly;
}

int ExitOf(Answered answered) {
  switch (answered) {
    case Answered::kFully:
      return kOk;
    case Answered::kRefused:
      return kUsage;
    case Answered::kPartly:
    case Answered::kFailed:
      break;
  }
  return kFailed;
}

// Answers one prompt; the response goes to `output`, or to standard output
// when it is empty.
int AnswerOne(const fs::path& prompt_path, const AnswerOptions& options) {
  Json prompt;
  std::string version;
  if (Status loaded = acvp::LoadVectorSet(prompt_path, &prompt, &version); !loaded.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
    return kUsage;
  }
  return ExitOf(AnswerLoaded(prompt_path, prompt, version, options,
                             [&](const std::string& text) {
                               return PutResponse(options.output, text);
                             }));
}

// A vector set found in a directory: the ACVP Proxy's
// testvector-request.json (answered beside it as testvector-response.json)
// or a prompt.json (answered as response.json).
struct Found {
  fs::path relative;  // to the directory given
  std::string problem;  // "": a regular file
};

constexpr const char* kProxyRequest = "testvector-request.json";
constexpr const char* kProxyResponse = "testvector-response.json";
constexpr const char* kProxySubmitted = "processed.txt";

// Every vector set below `dir`, in a stable order; links are not followed,
// and a link or other non-regular file of a vector set's name is listed
// with its problem, never skipped.
std::vector<Found> FindVectorSets(const fs::path& dir) {
  std::vector<Found> found;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, fs::directory_options::none, ec), end;
       !ec && it != end; it.increment(ec)) {
    const fs::path name = it->path().filename();
    if (name != "prompt.json" && name != kProxyRequest) continue;
    const fs::file_type type = it->symlink_status(ec).type();
    Found f{it->path().lexically_relative(dir), ""};
    if (type == fs::file_type::symlink) {
      f.problem = "a symbolic link: refused (not followed)";
    } else if (type != fs::file_type::regular) {
      f.problem = "not a regular file (a FIFO, device or directory): refused";
    }
    found.push_back(std::move(f));
  }
  if (ec) {
    std::fprintf(stderr, "fipsval: cannot list %s: %s\n", dir.c_str(), ec.message().c_str());
    found.push_back({fs::path(), "the directory could not be listed whole"});
  }
  std::sort(found.begin(), found.end(),
            [](const Found& a, const Found& b) { return a.relative < b.relative; });
  return found;
}

int AnswerDirectory(const fs::path& dir, const AnswerOptions& options) {
  const std::vector<Found> found = FindVectorSets(dir);
  if (found.empty()) {
    std::fprintf(stderr, "fipsval: no prompt.json or %s below %s\n", kProxyRequest,
                 dir.c_str());
    return kFailed;
  }
  int fully = 0, partly = 0, bad = 0, submitted = 0;
  for (const Found& f : found) {
    const fs::path shown = dir / f.relative;
    if (!f.problem.empty()) {
      std::fprintf(stderr, "fipsval: %s: %s\n", shown.c_str(), f.problem.c_str());
      ++bad;
      continue;
    }
    const bool proxy = f.relative.filename() == kProxyRequest;
    const fs::path folder = f.relative.parent_path();
    std::error_code ec;
    if (proxy && fs::exists(fs::symlink_status(dir / folder / kProxySubmitted, ec))) {
      std::fprintf(stderr, "fipsval: %s: already submitted (%s beside it): left alone\n",
                   shown.c_str(), kProxySubmitted);
      ++submitted;
      continue;
    }
    Json prompt;
    std::string version;
    if (Status loaded = acvp::LoadVectorSetBelow(dir, f.relative, &prompt, &version);
        !loaded.ok()) {
      std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
      ++bad;
      continue;
    }
    const fs::path root = options.output.empty() ? dir : options.output;
    const std::string name = proxy ? kProxyResponse : "response.json";
    const Answered answered =
        AnswerLoaded(shown, prompt, version, options, [&](const std::string& text) {
          const Status written = WriteBelow(root, folder, name, text);
          if (!written.ok()) std::fprintf(stderr, "fipsval: %s\n", written.message().c_str());
          return written.ok();
        });
    if (answered == Answered::kFully) {
      ++fully;
    } else if (answered == Answered::kPartly) {
      ++partly;
    } else {
      ++bad;
    }
  }
  std::fprintf(stderr,
               "fipsval: %s: %zu vector sets: %d answered in full, %d with groups not "
               "answered, %d failed or refused, %d already submitted\n",
               dir.c_str(), found.size(), fully, partly, bad, submitted);
  return partly + bad == 0 ? kOk : kFailed;
}

// The documents of `acvp --check`: kOk, or the usage status (said).
int LoadCheckDocuments(const std::vector<std::string>& files,
                       std::string prompt_path, Json* expected, Json* response,
                       Json* prompt, bool* have_prompt) {
  std::string version;
  Status loaded = acvp::LoadVectorSet(files[0], expected, &version);
  if (loaded.ok()) loaded = acvp::LoadVectorSet(files[1], response, &version);
  if (loaded.ok() && prompt_path.empty()) {
    const fs::path beside = fs::path(files[0]).parent_path() / "prompt.json";
    std::error_code ec;
    if (fs::is_regular_file(beside, ec)) prompt_path = beside;
  }
  *have_prompt = !prompt_path.empty();
  if (loaded.ok() && *have_prompt) loaded = acvp::LoadVectorSet(prompt_path, prompt, &version);
  if (loaded.ok()) return kOk;
  std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
  return kUsage;
}

// Checks one response; the exit status of the check.
int CheckPair(const std::vector<std::string>& files, const std::string& prompt_path,
              bool allow_unsupported) {
  Json expected, response, prompt;
  bool have_prompt = false;
  if (const int usage = LoadCheckDocuments(files, prompt_path, &expected, &response,
                                           &prompt, &have_prompt);
      usage != kOk) {
    return usage;
  }
  const acvp::CheckTally tally =
      acvp::CheckResponse(expected, response, have_prompt ? &prompt : nullptr, stdout);
  std::fflush(stdout);
  if (!tally.status.ok()) {
    std::fprintf(stderr, "fipsval: %s: %s\n", files[1].c_str(), tally.status.message().c_str());
    return kUsage;
  }
  if (tally.unanswered_groups > 0 && !allow_unsupported) {
    std::fprintf(stderr,
                 "fipsval: %s: %d groups not answered (--allow-unsupported accepts them)\n",
                 files[1].c_str(), tally.unanswered_groups);
    return kFailed;
  }
  if (tally.passed == 0 && tally.failed == 0 && tally.unanswered_groups == 0) {
    std::fprintf(stderr, "fipsval: %s: no answered test to check\n", files[1].c_str());
    return kFailed;
  }
  return tally.failed == 0 ? kOk : kFailed;
}

// What pairs a response with its expected results: the vsId, and the
// algorithm, mode and revision (sample sets share ids).
std::string SetKey(const Json& set) {
  std::string key = set["vsId"].dump();
  for (const char* field : {"algorithm", "mode", "revision"}) {
    key += " " + (set.contains(field) ? set[field].dump() : std::string("-"));
  }
  return key;
}

// Every vector set in a *.json below `dir` by its key (links not followed),
// prompts and expected results aside; unreadable files are skipped here and
// said when they matter.
std::map<std::string, fs::path> ResponsesById(const fs::path& dir) {
  std::map<std::string, fs::path> found;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, fs::directory_options::none, ec), end;
       !ec && it != end; it.increment(ec)) {
    const fs::path name = it->path().filename();
    if (it->path().extension() != ".json" || name == "prompt.json" || name == kProxyRequest ||
        name == "expectedResults.json" || it->symlink_status(ec).type() != fs::file_type::regular) {
      continue;
    }
    Json set;
    std::string version;
    const fs::path relative = it->path().lexically_relative(dir);
    if (!acvp::LoadVectorSetBelow(dir, relative, &set, &version).ok()) continue;
    const auto id = set.find("vsId");
    if (set.contains("testGroups") && id != set.end() && id->is_number_integer()) {
      found.emplace(SetKey(set), it->path());
    }
  }
  return found;
}

// acvp --check DIR RESPONSES: every expectedResults.json below DIR against
// the response of the same vsId below RESPONSES (prompt.json beside the
// expected results, for RSA signatures).
int CheckDirectory(const fs::path& dir, const fs::path& responses, bool allow_unsupported) {
  const std::map<std::string, fs::path> answers = ResponsesById(responses);
  int sets = 0, passed = 0, failed = 0;
  std::vector<fs::path> expected;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, fs::directory_options::none, ec), end;
       !ec && it != end; it.increment(ec)) {
    if (it->path().filename() == "expectedResults.json") expected.push_back(it->path());
  }
  std::sort(expected.begin(), expected.end());
  for (const fs::path& path : expected) {
    ++sets;
    Json set;
    std::string version;
    Status loaded = fs::is_symlink(path, ec)
                        ? Refused(path.string() + ": a symbolic link: refused (not followed)")
                        : acvp::LoadVectorSet(path, &set, &version);
    const auto id = loaded.ok() ? set.find("vsId") : set.end();
    if (loaded.ok() && (id == set.end() || !id->is_number_integer())) {
      loaded = Refused(path.string() + ": field \"vsId\" is missing or not an integer");
    }
    if (!loaded.ok()) {
      std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
      ++failed;
      continue;
    }
    const auto answer = answers.find(SetKey(set));
    if (answer == answers.end()) {
      std::printf("%s: FAIL no response for vsId %lld below %s\n", path.c_str(),
                  id->get<long long>(), responses.c_str());
      ++failed;
      continue;
    }
    std::printf("%s against %s:\n", path.c_str(), answer->second.c_str());
    std::fflush(stdout);
    const int status = CheckPair({path, answer->second}, "", allow_unsupported);
    ++(status == kOk ? passed : failed);
  }
  std::printf("%d vector sets: %d passed, %d failed or without a response\n", sets, passed,
              failed);
  if (sets == 0) {
    std::fprintf(stderr, "fipsval: no expectedResults.json below %s\n", dir.c_str());
    return kFailed;
  }
  return failed == 0 ? kOk : kFailed;
}

int Check(const Args& args) {
  std::vector<std::string> files;
  std::string prompt_path;
  bool allow_unsupported = false;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--allow-unsupported") {
      allow_unsupported = true;
    } else if (args[i] == "--prompt") {
      if (i + 1 == args.size()) return Usage("acvp --check: --prompt needs a file");
      prompt_path = args[++i];
    } else if (args[i].starts_with("-")) {
      return Usage("acvp --check: unknown option ", args[i]);
    } else {
      files.push_back(args[i]);
    }
  }
  if (files.size() != 2) {
    return Usage("acvp --check: give EXPECTED.json and RESPONSE.json, or two directories");
  }
  std::error_code ec;
  if (fs::is_directory(files[0], ec) && fs::is_directory(files[1], ec)) {
    return CheckDirectory(files[0], files[1], allow_unsupported);
  }
  return CheckPair(files, prompt_path, allow_unsupported);
}

}  // namespace

int RunAcvp(const Args& args) {
  if (!args.empty() && args[0] == "--check") return Check(args);
  if (!args.empty() && args[0] == "--registration") {
    if (args.size() > 1) return Usage("acvp --registration: unexpected argument ", args[1]);
    return Finish(PutResponse("", acvp::Registration().dump(2) + "\n") ? kOk : kFailed);
  }
  std::string input;
  AnswerOptions options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--output") {
      if (i + 1 == args.size()) return Usage("acvp: --output needs a path");
      options.output = args[++i];
    } else if (args[i] == "--bare") {
      options.bare = true;
    } else if (args[i] == "--allow-unsupported") {
      options.allow_unsupported = true;
    } else if (args[i].starts_with("-")) {
      return Usage("acvp: unknown option ", args[i]);
    } else if (input.empty()) {
      input = args[i];
    } else {
      return Usage("acvp: unexpected argument ", args[i]);
    }
  }
  if (input.empty()) return Usage("acvp: give a prompt.json or a directory of vector sets");
  std::error_code ec;
  if (fs::is_directory(input, ec)) return Finish(AnswerDirectory(input, options));
  return Finish(AnswerOne(input, options));
}

}  // namespace fipsval::host
