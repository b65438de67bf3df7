// Paths as the host shows and records them.
#pragma once

#include <string>
#include <string_view>

namespace fipsval::host {

// a + "/" + b, without doubling a slash that a ends in.
std::string JoinPath(const std::string& a, std::string_view b);

struct PathParts {
  std::string dir;   // "." for a bare name, "/" for a name in the root
  std::string name;  // the last component ("" when the path ends in '/')
};
PathParts SplitPath(const std::string& path);

// The path made absolute: links resolved when it exists, otherwise the
// working directory put in front of a relative path.
std::string AbsolutePath(const std::string& path);

}  // namespace fipsval::host
