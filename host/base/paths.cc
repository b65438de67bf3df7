#include "host/base/paths.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace fipsval::host {

std::string JoinPath(const std::string& a, std::string_view b) {
  if (a.empty() || a.ends_with('/')) return a + std::string(b);
  return a + "/" + std::string(b);
}

PathParts SplitPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::string AbsolutePath(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved)) return resolved;
  if (path.starts_with('/')) return path;
  char cwd[PATH_MAX];
  return getcwd(cwd, sizeof cwd) ? JoinPath(cwd, path) : path;
}

}  // namespace fipsval::host
