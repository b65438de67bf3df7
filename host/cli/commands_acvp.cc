// The acvp command: answers ACVP vector sets with the library's suites, and
// checks a response against the expected results.
#include <algorithm>
#include <array>
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
#include "host/acvp/tally.h"
#include "host/base/clock.h"
#include "host/base/file_io.h"
#include "host/cli/cli.h"
#include "host/platform/host_settings.h"
#include "host/report/result_report.h"
#include "host/report/run_console.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;
using acvp::Json;
using acvp::SetResult;

// Says "fipsval: SHOWN: MESSAGE" and keeps the message as the set's own.
void Say(SetResult* set, const std::string& shown, const std::string& message) {
  std::fprintf(stderr, "fipsval: %s: %s\n", shown.c_str(), message.c_str());
  set->message += (set->message.empty() ? "" : "; ") + message;
}

// What names the vector set: its vsId, algorithm, mode and revision.
void Describe(const Json& vector_set, SetResult* set) {
  const auto id = vector_set.find("vsId");
  if (id != vector_set.end() && id->is_number_integer()) set->vs_id = id->get<long long>();
  for (const auto& [field, value] : {std::pair{"algorithm", &set->algorithm},
                                     {"mode", &set->mode}, {"revision", &set->revision}}) {
    const auto it = vector_set.find(field);
    if (it != vector_set.end() && it->is_string()) *value = it->get<std::string>();
  }
}

// How `acvp` answers and judges.
struct AnswerOptions {
  fs::path output;          // a file (one prompt) or directory; "": default
  bool bare = false;        // the response as the bare vector-set object
  bool allow_unsupported = false;  // groups no runner takes do not fail
};

// The groups of an answer, by tgId: answered, or not with the reason.
std::vector<acvp::GroupResult> GroupsOf(const acvp::AssembledResponse& answers) {
  std::vector<acvp::GroupResult> groups;
  for (const Json& group : answers.response["testGroups"]) {
    groups.push_back({group["tgId"].get<long long>(), "answered", "", 0, 0});
  }
  for (const acvp::Unanswered& u : answers.unanswered) {
    groups.push_back({u.tg_id, u.failed ? "failed" : "not-answered", u.reason, 0, 0});
  }
  std::sort(groups.begin(), groups.end(),
            [](const auto& a, const auto& b) { return a.tg_id < b.tg_id; });
  return groups;
}

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
Answered Answer(const std::string& shown, const Json& prompt, const std::string& version,
                const AnswerOptions& options,
                const std::function<bool(const std::string&)>& put, SetResult* set) {
  const int verbosity = Settings().verbosity;
  // -v: the library's lines on standard error, which the response leaves alone.
  RunConsole console(stderr, 1, false);
  const acvp::SessionResult result =
      acvp::AnswerVectorSet(prompt, verbosity >= 2 ? &console : nullptr);
  if (!result.status.ok()) {
    Say(set, shown, result.status.message());
    return result.status.kind() == StatusKind::kRefused ? Answered::kRefused
                                                        : Answered::kFailed;
  }
  const acvp::AssembledResponse& answers = result.answers;
  set->groups = GroupsOf(answers);
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
    Say(set, shown, "the vector set has no test group");
    return Answered::kPartly;
  }
  if (answers.answered_groups == 0) {
    Say(set, shown, "no group of the vector set could be answered");
  }
  // A runner that failed a group it was given always fails; a group no
  // runner takes fails unless the caller accepts it.
  if (answers.failed_groups > 0) return Answered::kFailed;
  if (answers.unanswered.empty() || options.allow_unsupported) return Answered::kFully;
  return Answered::kPartly;
}

constexpr std::array<const char*, 4> kAnsweredNames = {"answered", "not-answered", "refused",
                                                       "failed"};

// Answer, timed and recorded in `set`.
Answered AnswerLoaded(const std::string& shown, const Json& prompt, const std::string& version,
                      const AnswerOptions& options,
                      const std::function<bool(const std::string&)>& put, SetResult* set) {
  const SteadyTime start = Now();
  Describe(prompt, set);
  const Answered answered = Answer(shown, prompt, version, options, put, set);
  set->outcome = kAnsweredNames[static_cast<std::size_t>(answered)];
  set->seconds = SecondsSince(start);
  return answered;
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
int AnswerOne(const fs::path& prompt_path, const AnswerOptions& options,
              acvp::AcvpTally* tally) {
  SetResult& set = tally->sets.emplace_back();
  set.file = prompt_path;
  set.response = options.output;
  Json prompt;
  std::string version;
  if (Status loaded = acvp::LoadVectorSet(prompt_path, &prompt, &version); !loaded.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
    set.outcome = "refused";
    set.message = loaded.message();
    return kUsage;
  }
  return ExitOf(AnswerLoaded(prompt_path, prompt, version, options,
                             [&](const std::string& text) {
                               return PutResponse(options.output, text);
                             }, &set));
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

int AnswerDirectory(const fs::path& dir, const AnswerOptions& options,
                    acvp::AcvpTally* tally) {
  const std::vector<Found> found = FindVectorSets(dir);
  if (found.empty()) {
    tally->problem = Missing("no prompt.json or " + std::string(kProxyRequest) + " below " +
                             dir.string());
    std::fprintf(stderr, "fipsval: %s\n", tally->problem.message().c_str());
    return kFailed;
  }
  int fully = 0, partly = 0, bad = 0, submitted = 0;
  for (const Found& f : found) {
    const fs::path shown = dir / f.relative;
    SetResult& set = tally->sets.emplace_back();
    set.file = shown;
    set.outcome = "refused";
    if (!f.problem.empty()) {
      Say(&set, shown, f.problem);
      ++bad;
      continue;
    }
    const bool proxy = f.relative.filename() == kProxyRequest;
    const fs::path folder = f.relative.parent_path();
    std::error_code ec;
    if (proxy && fs::exists(fs::symlink_status(dir / folder / kProxySubmitted, ec))) {
      set.outcome = "submitted";
      Say(&set, shown, "already submitted (" + std::string(kProxySubmitted) +
                           " beside it): left alone");
      ++submitted;
      continue;
    }
    Json prompt;
    std::string version;
    if (Status loaded = acvp::LoadVectorSetBelow(dir, f.relative, &prompt, &version);
        !loaded.ok()) {
      std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
      set.message = loaded.message();
      ++bad;
      continue;
    }
    const fs::path root = options.output.empty() ? dir : options.output;
    const std::string name = proxy ? kProxyResponse : "response.json";
    set.response = root / folder / name;
    const Answered answered =
        AnswerLoaded(shown, prompt, version, options, [&](const std::string& text) {
          const Status written = WriteBelow(root, folder, name, text);
          if (!written.ok()) {
            std::fprintf(stderr, "fipsval: %s\n", written.message().c_str());
            set.message = written.message();
          }
          return written.ok();
        }, &set);
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

// The documents of `acvp --check`.
Status LoadCheckDocuments(const std::vector<std::string>& files,
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
  return loaded;
}

// Checks one response into `set`; the exit status of the check.
int CheckDocuments(const std::vector<std::string>& files, const std::string& prompt_path,
                   bool allow_unsupported, SetResult* set) {
  Json expected, response, prompt;
  bool have_prompt = false;
  if (const Status loaded = LoadCheckDocuments(files, prompt_path, &expected, &response,
                                               &prompt, &have_prompt);
      !loaded.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
    set->message = loaded.message();
    set->outcome = "refused";
    return kUsage;
  }
  Describe(expected, set);
  acvp::CheckTally tally =
      acvp::CheckResponse(expected, response, have_prompt ? &prompt : nullptr, stdout);
  std::fflush(stdout);
  set->groups = std::move(tally.groups);
  set->outcome = "failed";
  if (!tally.status.ok()) {
    Say(set, files[1], tally.status.message());
    set->outcome = "refused";
    return kUsage;
  }
  if (tally.unanswered_groups > 0 && !allow_unsupported) {
    Say(set, files[1], std::to_string(tally.unanswered_groups) +
                           " groups not answered (--allow-unsupported accepts them)");
    set->outcome = "not-answered";
    return kFailed;
  }
  if (tally.passed == 0 && tally.failed == 0 && tally.unanswered_groups == 0) {
    Say(set, files[1], "no answered test to check");
    return kFailed;
  }
  if (tally.failed == 0) set->outcome = "passed";
  return tally.failed == 0 ? kOk : kFailed;
}

// CheckDocuments, timed, as one more set of `tally`.
int CheckPair(const std::vector<std::string>& files, const std::string& prompt_path,
              bool allow_unsupported, acvp::AcvpTally* tally) {
  const SteadyTime start = Now();
  SetResult& set = tally->sets.emplace_back();
  set.file = files[0];
  set.response = files[1];
  const int status = CheckDocuments(files, prompt_path, allow_unsupported, &set);
  set.seconds = SecondsSince(start);
  return status;
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
int CheckDirectory(const fs::path& dir, const fs::path& responses, bool allow_unsupported,
                   acvp::AcvpTally* tally) {
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
      SetResult& refused = tally->sets.emplace_back();
      refused.file = path;
      refused.outcome = "refused";
      refused.message = loaded.message();
      ++failed;
      continue;
    }
    const auto answer = answers.find(SetKey(set));
    if (answer == answers.end()) {
      SetResult& missing = tally->sets.emplace_back();
      missing.file = path;
      missing.outcome = "no-response";
      missing.message = "no response for vsId " + std::to_string(id->get<long long>()) +
                        " below " + responses.string();
      Describe(set, &missing);
      std::printf("%s: FAIL %s\n", path.c_str(), missing.message.c_str());
      ++failed;
      continue;
    }
    std::printf("%s against %s:\n", path.c_str(), answer->second.c_str());
    std::fflush(stdout);
    const int status = CheckPair({path, answer->second}, "", allow_unsupported, tally);
    ++(status == kOk ? passed : failed);
  }
  std::printf("%d vector sets: %d passed, %d failed or without a response\n", sets, passed,
              failed);
  if (sets == 0) {
    tally->problem = Missing("no expectedResults.json below " + dir.string());
    std::fprintf(stderr, "fipsval: %s\n", tally->problem.message().c_str());
    return kFailed;
  }
  return failed == 0 ? kOk : kFailed;
}

// --json FILE or --junit FILE at args[*i] (then true, *i at FILE); a
// missing FILE sets *usage.
bool ReportOption(const Args& args, std::size_t* i, const char* command, ReportPaths* paths,
                  int* usage) {
  const std::string& arg = args[*i];
  if (arg != "--json" && arg != "--junit") return false;
  if (*i + 1 == args.size()) {
    *usage = Usage(std::string(command) + ": " + arg + " needs a file");
  } else {
    (arg == "--json" ? paths->json : paths->junit) = args[++*i];
  }
  return true;
}

// Does the work of `command` into a tally, and writes the reports asked
// for from it: the exit status, which every report states.
int Reported(const char* command, const std::string& input, const std::string& responses,
             const ReportPaths& paths, const std::function<int(acvp::AcvpTally*)>& work) {
  if (Status checked = CheckReportPaths(paths); !checked.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", checked.message().c_str());
    return kFailed;
  }
  ResultReport report;
  report.version = ProgramVersion();
  report.command = command;
  report.tree = input;
  report.responses = responses;
  acvp::AcvpTally tally;
  const int status = Finish(work(&tally));
  report.acvp = &tally;
  report.status = tally.problem;
  return FinishReport(&report, paths, status);
}

int Check(const Args& args) {
  std::vector<std::string> files;
  std::string prompt_path;
  bool allow_unsupported = false;
  ReportPaths paths;
  int usage = kOk;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (ReportOption(args, &i, "acvp --check", &paths, &usage)) {
      if (usage != kOk) return usage;
    } else if (args[i] == "--allow-unsupported") {
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
  const bool dirs = fs::is_directory(files[0], ec) && fs::is_directory(files[1], ec);
  return Reported("acvp --check", files[0], files[1], paths, [&](acvp::AcvpTally* tally) {
    return dirs ? CheckDirectory(files[0], files[1], allow_unsupported, tally)
                : CheckPair(files, prompt_path, allow_unsupported, tally);
  });
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
  ReportPaths paths;
  int usage = kOk;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (ReportOption(args, &i, "acvp", &paths, &usage)) {
      if (usage != kOk) return usage;
    } else if (args[i] == "--output") {
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
  if (!options.output.empty() && (options.output == paths.json || options.output == paths.junit)) {
    return Usage("acvp: --output and a report name the same file ", options.output.string());
  }
  std::error_code ec;
  const bool dir = fs::is_directory(input, ec);
  return Reported("acvp", input, dir && options.output.empty() ? input : options.output.string(),
                  paths, [&](acvp::AcvpTally* tally) {
                    return dir ? AnswerDirectory(input, options, tally)
                               : AnswerOne(input, options, tally);
                  });
}

}  // namespace fipsval::host
