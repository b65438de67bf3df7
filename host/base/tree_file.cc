#include "host/base/tree_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "host/base/safe_io.h"

namespace fipsval::host {
namespace {

TreeFile Problem(TreeRead status, std::string problem) {
  TreeFile file;
  file.status = status;
  file.problem = std::move(problem);
  return file;
}

// What an openat that refused to follow a link or to open a non-directory
// as one says about the entry.
TreeFile OpenProblem(int dir, const std::string& name, int error) {
  struct stat st;
  if (error == ENOENT) return Problem(TreeRead::kMissing, "no such file");
  if (fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISLNK(st.st_mode)) {
      return Problem(TreeRead::kRefused, "a symbolic link (not followed)");
    }
    if (error == ENOTDIR) {
      return Problem(TreeRead::kRefused, "not a directory");
    }
  }
  if (error == ELOOP) {
    return Problem(TreeRead::kRefused, "a symbolic link (not followed)");
  }
  return Problem(TreeRead::kFailed, std::strerror(error));
}

}  // namespace

TreeFile ReadTreeFile(const std::string& root, std::string_view relative) {
  std::vector<std::string> parts;
  while (!relative.empty()) {
    const std::size_t slash = relative.find('/');
    const std::string_view part = relative.substr(0, slash);
    if (part.empty() || part == "." || part == "..") {
      return Problem(TreeRead::kRefused, "a path that leaves the tree");
    }
    parts.emplace_back(part);
    if (slash == std::string_view::npos) break;
    relative.remove_prefix(slash + 1);
  }
  if (parts.empty()) return Problem(TreeRead::kRefused, "an empty path");

  UniqueFd dir(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) {
    return Problem(errno == ENOENT ? TreeRead::kMissing : TreeRead::kFailed,
                   std::string("tree: ") + std::strerror(errno));
  }
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    UniqueFd next(openat(dir.get(), parts[i].c_str(),
                   O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (next.get() < 0) {
      TreeFile problem = OpenProblem(dir.get(), parts[i], errno);
      problem.problem = parts[i] + "/ is " + problem.problem;
      if (problem.status == TreeRead::kMissing) problem.problem = "no " + parts[i] + "/";
      return problem;
    }
    dir = std::move(next);
  }
  // O_NONBLOCK: a FIFO put in place of the file must not hang the reader.
  UniqueFd fd(openat(dir.get(), parts.back().c_str(),
               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (fd.get() < 0) return OpenProblem(dir.get(), parts.back(), errno);
  struct stat st;
  if (fstat(fd.get(), &st) != 0) {
    return Problem(TreeRead::kFailed, std::strerror(errno));
  }
  if (!S_ISREG(st.st_mode)) {
    return Problem(TreeRead::kRefused, "not a regular file");
  }
  TreeFile file;
  file.content.reserve(static_cast<std::size_t>(st.st_size));
  char buffer[1 << 16];
  for (;;) {
    const ssize_t got = read(fd.get(), buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      return Problem(TreeRead::kFailed, std::strerror(errno));
    }
    file.content.append(buffer, static_cast<std::size_t>(got));
  }
  file.status = TreeRead::kOk;
  return file;
}

}  // namespace fipsval::host
