// The acvp command: answers ACVP vector sets with the library's suites, and
// checks a response against the expected results.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host/acvp/check.h"
#include "host/acvp/json_fields.h"
#include "host/acvp/session.h"
#include "host/base/file_io.h"
#include "host/cli/cli.h"
#include "host/platform/host_settings.h"
#include "host/report/run_console.h"

namespace fipsval::host {
namespace {

namespace fs = std::filesystem;
using acvp::Json;

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

// Answers one prompt; the response goes to `output`, or to standard output
// when it is empty.
int AnswerOne(const fs::path& prompt_path, const fs::path& output) {
  const int verbosity = Settings().verbosity;
  Json prompt;
  if (Status loaded = acvp::LoadJsonFile(prompt_path, &prompt); !loaded.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
    return kUsage;
  }
  // -v: the library's lines on standard error, which the response leaves alone.
  RunConsole console(stderr, 1, false);
  const acvp::SessionResult result =
      acvp::AnswerVectorSet(prompt, verbosity >= 2 ? &console : nullptr);
  if (!result.status.ok()) {
    std::fprintf(stderr, "fipsval: %s: %s\n", prompt_path.c_str(),
                 result.status.message().c_str());
    return result.status.kind() == StatusKind::kRefused ? kUsage : kFailed;
  }
  const acvp::AssembledResponse& answers = result.answers;
  for (const acvp::Unanswered& u : answers.unanswered) {
    std::fprintf(stderr, "fipsval: %s: tgId %lld not answered: %s\n", prompt_path.c_str(),
                 u.tg_id, u.reason.c_str());
  }
  if (!PutResponse(output, answers.response.dump(2) + "\n")) return kFailed;
  const std::size_t groups = answers.answered_groups + answers.unanswered.size();
  if (verbosity >= 1) {
    std::fprintf(stderr, "fipsval: %s: %d of %zu groups answered%s%s\n", prompt_path.c_str(),
                 answers.answered_groups, groups, output.empty() ? "" : ", response in ",
                 output.c_str());
  }
  if (answers.answered_groups == 0) {
    std::fprintf(stderr, "fipsval: %s: no group of the vector set could be answered\n",
                 prompt_path.c_str());
    return kFailed;
  }
  return answers.failed_groups == 0 ? kOk : kFailed;
}

// Every prompt.json below `dir`, in a stable order; links are not followed.
std::vector<fs::path> FindPrompts(const fs::path& dir) {
  std::vector<fs::path> prompts;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, fs::directory_options::skip_permission_denied, ec),
       end;
       !ec && it != end; it.increment(ec)) {
    if (it->path().filename() == "prompt.json" && it->symlink_status().type() == fs::file_type::regular) {
      prompts.push_back(it->path());
    }
  }
  std::sort(prompts.begin(), prompts.end());
  return prompts;
}

int AnswerDirectory(const fs::path& dir, const fs::path& output) {
  const std::vector<fs::path> prompts = FindPrompts(dir);
  if (prompts.empty()) {
    std::fprintf(stderr, "fipsval: no prompt.json below %s\n", dir.c_str());
    return kFailed;
  }
  int status = kOk;
  for (const fs::path& prompt : prompts) {
    fs::path target = prompt.parent_path() / "response.json";
    if (!output.empty()) {
      target = output / fs::relative(prompt.parent_path(), dir) / "response.json";
      std::error_code ec;
      fs::create_directories(target.parent_path(), ec);
      if (ec) {
        std::fprintf(stderr, "fipsval: cannot create %s: %s\n", target.parent_path().c_str(),
                     ec.message().c_str());
        status = std::max(status, kFailed);
        continue;
      }
    }
    status = std::max(status, AnswerOne(prompt, target.lexically_normal()));
  }
  return status;
}

// The documents of `acvp --check`: kOk, or the usage status (said).
int LoadCheckDocuments(const std::vector<std::string>& files,
                       std::string prompt_path, Json* expected, Json* response,
                       Json* prompt, bool* have_prompt) {
  Status loaded = acvp::LoadJsonFile(files[0], expected);
  if (loaded.ok()) loaded = acvp::LoadJsonFile(files[1], response);
  if (loaded.ok() && prompt_path.empty()) {
    const fs::path beside = fs::path(files[0]).parent_path() / "prompt.json";
    std::error_code ec;
    if (fs::is_regular_file(beside, ec)) prompt_path = beside;
  }
  *have_prompt = !prompt_path.empty();
  if (loaded.ok() && *have_prompt) loaded = acvp::LoadJsonFile(prompt_path, prompt);
  if (loaded.ok()) return kOk;
  std::fprintf(stderr, "fipsval: %s\n", loaded.message().c_str());
  return kUsage;
}

int Check(const Args& args) {
  std::vector<std::string> files;
  std::string prompt_path;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--prompt") {
      if (i + 1 == args.size()) return Usage("acvp --check: --prompt needs a file");
      prompt_path = args[++i];
    } else if (args[i].starts_with("-")) {
      return Usage("acvp --check: unknown option ", args[i]);
    } else {
      files.push_back(args[i]);
    }
  }
  if (files.size() != 2) {
    return Usage("acvp --check: give EXPECTED.json and RESPONSE.json");
  }
  Json expected, response, prompt;
  bool have_prompt = false;
  if (const int usage = LoadCheckDocuments(files, prompt_path, &expected, &response,
                                           &prompt, &have_prompt);
      usage != kOk) {
    return usage;
  }
  const acvp::CheckTally tally =
      acvp::CheckResponse(expected, response, have_prompt ? &prompt : nullptr, stdout);
  if (!tally.status.ok()) {
    std::fprintf(stderr, "fipsval: %s\n", tally.status.message().c_str());
    return kUsage;
  }
  if (tally.passed == 0 && tally.failed == 0) {
    std::fprintf(stderr, "fipsval: %s: no answered test to check\n", files[1].c_str());
    return kFailed;
  }
  return tally.failed == 0 ? kOk : kFailed;
}

}  // namespace

int RunAcvp(const Args& args) {
  if (!args.empty() && args[0] == "--check") return Check(args);
  std::string input, output;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--output") {
      if (i + 1 == args.size()) return Usage("acvp: --output needs a path");
      output = args[++i];
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
  if (fs::is_directory(input, ec)) return Finish(AnswerDirectory(input, output));
  return Finish(AnswerOne(input, output));
}

}  // namespace fipsval::host
