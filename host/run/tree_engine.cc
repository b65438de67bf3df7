#include "host/run/tree_engine.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "host/base/file_io.h"
#include "host/report/evidence.h"
#include "host/run/console_sorter.h"
#include "host/run/private_staging.h"
#include "host/run/run_plan.h"
#include "host/verify/completeness.h"

namespace fipsval::host {
namespace {

bool HasRequests(int tree, const std::vector<const fips_tv*>& suites) {
  for (const fips_tv* suite : suites) {
    UniqueFd dir, req;
    if (OpenDirBelow(tree, suite->dir, 0, &dir).ok() &&
        OpenDirBelow(dir.get(), "req", 0, &req).ok()) {
      return true;
    }
  }
  return false;
}

// The output directory is made when missing; a link at its name is not
// followed: the responses of a run as root must not land where another
// user points them.
Status OpenOutput(const std::string& path, UniqueFd* root) {
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) return FromErrno(errno);
  *root = UniqueFd(
      open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (*root) return Ok();
  const int error = errno;
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    return Refused("it is a symbolic link (not followed)");
  }
  return error == ENOTDIR ? Refused("not a directory") : FromErrno(error);
}

// Opens the tree and the response root, and locks the root: two runs
// answering into one place would mix their responses.
Status OpenRoots(const RunOptions& options, const std::string& root_name,
                 UniqueFd* tree, UniqueFd* root) {
  if (Status s = OpenGivenDirectory(options.tree, 0, tree); !s.ok()) {
    return Refused(options.tree + " is not a directory (" + s.message() + ")");
  }
  if (!HasRequests(tree->get(), options.suites)) {
    return Refused(options.tree +
                   " has no request folders (<DIR>/req) for the selected "
                   "suites");
  }
  if (options.output.empty()) {
    *root = UniqueFd(dup(tree->get()));
  } else if (Status s = OpenOutput(options.output, root); !s.ok()) {
    return s.Prefixed("cannot use the output directory " + options.output +
                      ": ");
  }
  if (flock(root->get(), LOCK_EX | LOCK_NB) != 0) {
    return {StatusKind::kBusy, "another fipsval run is writing responses to " +
                                   root_name +
                                   ": try again when it has finished"};
  }
  return Ok();
}

// Every response goes below the root: a root it cannot write to is refused
// before anything is removed or run.
Status CheckWritable(int root, const std::string& name) {
  if (faccessat(root, ".", W_OK, AT_EACCESS) == 0) return Ok();
  return FromErrno(errno).Prefixed("cannot write responses in " + name + ": ");
}

// Responses of an earlier run must not pass for answers of this one.
void RemoveOldResponses(int root, std::vector<FileRun>& files) {
  for (FileRun& file : files) {
    if (file.plan == FilePlan::kAbsent) continue;
    UniqueFd dir, resp;
    if (!OpenDirBelow(root, file.dir, 0, &dir).ok() ||
        !OpenDirBelow(dir.get(), "resp", 0, &resp).ok()) {
      continue;
    }
    if (Status s = RemoveFileBelow(resp.get(), file.name + ".rsp"); !s.ok()) {
      file.plan = FilePlan::kRefused;
      file.message = "cannot remove the old response " + file.response_path +
                     ": " + s.message();
    }
  }
}

std::string Nonce() {
  std::random_device device;
  char text[40];
  std::snprintf(text, sizeof text,
                "\x1f"
                "fipsval-%08x%08x%08x ",
                device(), device(), device());
  return text;
}

// ---- the child: one request file at a time ----

Status PutResponse(int root, const FileRun& file, const std::string& content) {
  UniqueFd dir, resp;
  Status s = OpenDirBelow(root, file.dir, 0755, &dir);
  if (s.ok()) s = OpenDirBelow(dir.get(), "resp", 0755, &resp);
  if (s.ok()) s = ReplaceFileBelow(resp.get(), file.name + ".rsp", content, 0644);
  return s;
}

void StageAndRun(const FileRun& file, std::size_t index,
                 const std::string& marker, const StagingDirs& staging,
                 int root) {
  const auto say = [&](const std::string& what) {
    std::printf("%s%s\n", marker.c_str(), what.c_str());
    std::fflush(stdout);
  };
  const std::string end = "end " + std::to_string(index) + " ";
  say("begin " + std::to_string(index));
  const std::string request = file.name + ".req";
  const std::string response = file.name + ".rsp";
  static_cast<void>(RemoveFileBelow(staging.response, response));
  Status staged = RemoveFileBelow(staging.request, request);
  if (staged.ok()) {
    staged = ReplaceFileBelow(staging.request, request, file.request, 0600);
  }
  if (!staged.ok()) {
    return say(end + std::string(kMarkerError) +
               "cannot stage the request: " + staged.message());
  }
  file.suite->run();
  std::fflush(stdout);
  static_cast<void>(RemoveFileBelow(staging.request, request));
  std::string content;
  if (!ReadFileBelow(staging.response, response, kMaxFileBytes, &content)
           .ok()) {
    return say(end + std::string(kMarkerMissing));
  }
  static_cast<void>(RemoveFileBelow(staging.response, response));
  const Status put = PutResponse(root, file, content);
  say(end + (put.ok() ? std::string(kMarkerOk)
                      : std::string(kMarkerError) + "cannot write " +
                            file.response_path + ": " + put.message()));
}

// ---- the parent ----

Status Stopped(int exit_status) {
  if (exit_status > 128) {
    return Failed(std::string("the run stopped: ") +
                  strsignal(exit_status - 128));
  }
  if (exit_status != 0) {
    return Failed("the run stopped (exit status " +
                  std::to_string(exit_status) + ")");
  }
  return Ok();
}

// Runs the files planned kRun in a child with the staging, sorting what
// it prints. A failure to start the child is the run's refusal.
Status RunStaged(const Staging& staging, int root, RunObserver& observer,
                 RunResult& run) {
  std::vector<std::size_t> to_run;
  for (std::size_t i = 0; i < run.files.size(); ++i) {
    if (run.files[i].plan == FilePlan::kRun) to_run.push_back(i);
  }
  if (to_run.empty()) return Ok();
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
    return Failed(std::string("cannot create a pipe: ") + std::strerror(errno));
  }
  const std::string marker = Nonce();
  const pid_t child =
      StartStaged(staging, pipe_fds[1], [&](const StagingDirs& dirs) {
        close(pipe_fds[0]);
        setvbuf(stdout, nullptr, _IOLBF, 0);
        for (std::size_t index : to_run) {
          StageAndRun(run.files[index], index, marker, dirs, root);
        }
        return 0;
      });
  const int start_error = errno;
  close(pipe_fds[1]);
  const UniqueFd output(pipe_fds[0]);
  if (child < 0) {
    return Failed(std::string("cannot start the run: ") +
                  std::strerror(start_error));
  }
  ConsoleSorter sorter(run.files, marker, observer);
  SortOutput(output.get(), sorter);
  run.stopped = Stopped(WaitStaged(child));
  return Ok();
}

// The files the child did not come back from: the one being answered when
// the run stopped is the one that stopped it.
void ConcludeUnfinished(RunResult& run) {
  const std::string why =
      run.stopped.ok() ? "the run ended early" : run.stopped.message();
  for (FileRun& file : run.files) {
    if (file.plan != FilePlan::kRun || file.ended) continue;
    if (!file.begun) {
      file.message = "not run (" + why + ")";
      continue;
    }
    file.outcome = FileOutcome::kRunnerError;
    file.message = why;
    for (const std::string& line : file.runner_lines) file.message += "; " + line;
    file.seconds = SecondsSince(file.begun_at);
  }
}

// Reads back each response put in place: its digest is evidence, and an
// answered file whose response stops short of its request or skips a test
// is a runner error.
void CheckResponses(int root, RunResult& run) {
  for (FileRun& file : run.files) {
    if (!file.written) continue;
    UniqueFd dir, resp;
    std::string response;
    Status read = OpenDirBelow(root, file.dir, 0, &dir);
    if (read.ok()) read = OpenDirBelow(dir.get(), "resp", 0, &resp);
    if (read.ok()) {
      read = ReadFileBelow(resp.get(), file.name + ".rsp", kMaxFileBytes,
                           &response);
    }
    if (!read.ok()) {
      file.written = false;
      file.outcome = FileOutcome::kRunnerError;
      file.message = "cannot read back " + file.response_path + ": " +
                     read.message();
      continue;
    }
    file.response_sha256 = Sha256Hex(response);
    const RequestShape* shape = file.profile ? file.profile->shape : nullptr;
    if (file.outcome != FileOutcome::kAnswered || !shape ||
        shape->layout == Layout::kStopsAtFirstTest) {
      continue;
    }
    const Completeness complete =
        CheckCompleteness(*shape, file.request, response);
    if (!complete.status.ok()) {
      file.outcome = FileOutcome::kRunnerError;
      file.message = "incomplete response: " + complete.status.message();
    }
  }
}

Status Run(const RunOptions& options, int tree, int root,
           RunObserver& observer, RunResult& run) {
  run.files = PlanFiles(tree, options.tree, run.responses, options.suites,
                        options.accept_lf);
  run.unhandled = UnhandledRequests(tree, options.tree, options.suites);
  observer.Planned(run);
  Staging staging;
  if (Status s = PrepareStaging(&staging); !s.ok()) return s;
  observer.Staged(DescribeStaging(staging.kind));
  Status writable = CheckWritable(root, run.responses);
  if (writable.ok()) writable = DropEvidence(root, run);
  if (!writable.ok()) {
    if (!options.output.empty()) return writable;
    return {writable.kind(),
            writable.message() + " (use --output DIR for a read-only tree)"};
  }
  RemoveOldResponses(root, run.files);
  if (Status s = RunStaged(staging, root, observer, run); !s.ok()) return s;
  CheckResponses(root, run);
  for (FileRun& file : run.files) file.request = std::string();  // done with
  ConcludeUnfinished(run);
  run.finished = UtcStamp();
  run.record = RecordEvidence(root, run);
  return Ok();
}

}  // namespace

bool TreeHasRequests(const std::string& tree,
                     const std::vector<const fips_tv*>& suites) {
  UniqueFd root;
  return OpenGivenDirectory(tree, 0, &root).ok() &&
         HasRequests(root.get(), suites);
}

RunResult RunTree(const RunOptions& options) {
  const SteadyTime start = Now();
  RunObserver silent;
  RunObserver& observer = options.observer ? *options.observer : silent;
  RunResult run;
  run.tree = options.tree;
  run.responses = options.output.empty() ? options.tree : options.output;
  run.command = options.command;
  run.version = options.version;
  run.started = UtcStamp();
  UniqueFd tree, root;
  run.refusal = OpenRoots(options, run.responses, &tree, &root);
  if (run.refusal.ok()) {
    run.refusal = Run(options, tree.get(), root.get(), observer, run);
  }
  // A run that did not start ran nothing.
  if (!run.refusal.ok()) {
    run.files.clear();
    run.unhandled.clear();
  }
  run.seconds = SecondsSince(start);
  return run;
}

}  // namespace fipsval::host
