#include "host/acvp/batch_runner.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "host/base/file_io.h"
#include "host/base/paths.h"
#include "host/catalog/suite_catalog.h"
#include "host/run/tree_engine.h"

namespace fipsval::host::acvp {
namespace {

// A fresh directory of this process's own below $TMPDIR (or /tmp).
Status MakePrivateTree(std::string* path) {
  const char* base = std::getenv("TMPDIR");
  const std::string dir = base && *base ? base : "/tmp";
  std::string pattern = JoinPath(dir, "fipsval-acvp-XXXXXX");
  if (!mkdtemp(pattern.data())) {
    return Failed("cannot create a private directory in " + dir + ": " +
                  std::strerror(errno));
  }
  *path = pattern;
  return Ok();
}

// <tree>/<DIR>/req/<name>.req, folders made as needed.
Status WriteRequest(const std::string& tree, const RequestFile& file) {
  const std::string dir = JoinPath(tree, file.profile->dir);
  const std::string req = JoinPath(dir, "req");
  const std::string name = std::string(file.profile->name) + ".req";
  UniqueFd root, dir_fd, req_fd;
  Status s = OpenGivenDirectory(tree, 0, &root).Prefixed("cannot open " + tree + ": ");
  if (s.ok()) {
    s = OpenDirBelow(root.get(), file.profile->dir, 0700, &dir_fd)
            .Prefixed("cannot create " + dir + ": ");
  }
  if (s.ok()) {
    s = OpenDirBelow(dir_fd.get(), "req", 0700, &req_fd)
            .Prefixed("cannot create " + req + ": ");
  }
  if (s.ok()) {
    s = ReplaceFileBelow(req_fd.get(), name, file.text, 0600)
            .Prefixed("cannot create " + JoinPath(req, name) + ": ");
  }
  return s;
}

// The tree with every file of the run written, and the suites to run.
Status Prepare(const std::vector<RequestFile>& files,
               const std::vector<std::size_t>& run, RunOptions* options) {
  for (const std::size_t i : run) {
    const RequestFile& file = files[i];
    const fips_tv* suite = FindSuite(file.profile->suite);
    if (!suite) {
      return Failed("no suite " + std::string(file.profile->suite) +
                    " in the library");
    }
    if (std::find(options->suites.begin(), options->suites.end(), suite) ==
        options->suites.end()) {
      options->suites.push_back(suite);
    }
    if (Status s = WriteRequest(options->tree, file); !s.ok()) return s;
  }
  return Ok();
}

FileResult Collect(const std::string& tree, const RunResult& run,
                   const RequestFile& file) {
  FileResult result;
  const std::string dir(file.profile->dir), name(file.profile->name);
  result.present = ReadTreeFile(tree, dir + "/resp/" + name + ".rsp",
                                kMaxFileBytes, &result.text)
                       .ok();
  if (!run.refusal.ok()) {
    result.note = run.refusal.message();
  } else if (const FileRun* ran = run.Find(dir, name)) {
    result.note = ran->message;
  }
  return result;
}

}  // namespace

std::vector<std::vector<std::size_t>> PlanRuns(const std::vector<RequestFile>& files) {
  std::vector<std::vector<std::size_t>> runs;
  std::vector<std::set<std::string>> names;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i].slots.empty()) continue;
    const std::string key =
        std::string(files[i].profile->dir) + "/" + std::string(files[i].profile->name);
    std::size_t r = 0;
    while (r < runs.size() && names[r].count(key)) ++r;
    if (r == runs.size()) {
      runs.emplace_back();
      names.emplace_back();
    }
    runs[r].push_back(i);
    names[r].insert(key);
  }
  return runs;
}

Status RunFiles(const std::vector<RequestFile>& files,
                const std::vector<std::size_t>& run,
                std::vector<FileResult>* results, RunObserver* observer) {
  RunOptions options;
  options.observer = observer;
  if (Status s = MakePrivateTree(&options.tree); !s.ok()) return s;
  Status prepared = Prepare(files, run, &options);
  if (prepared.ok()) {
    const RunResult result = RunTree(options);
    for (const std::size_t i : run) {
      (*results)[i] = Collect(options.tree, result, files[i]);
    }
  }
  std::error_code ec;
  std::filesystem::remove_all(options.tree, ec);
  return prepared;
}

}  // namespace fipsval::host::acvp
