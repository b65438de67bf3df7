// Reading a file of a CAVP tree that other users may be able to write: the
// path is walked one directory at a time from the tree's root without
// following a symbolic link, ".." is refused, and only a regular file is
// read. The root itself is taken as the user gave it.
#pragma once

#include <string>
#include <string_view>

namespace fipsval::host {

enum class TreeRead {
  kOk,
  kMissing,  // the file or a directory on its way does not exist
  kRefused,  // a link, a device, a FIFO, a directory, "..": not read
  kFailed,   // an I/O error
};

struct TreeFile {
  TreeRead status = TreeRead::kFailed;
  std::string content;
  std::string problem;  // why not read, for a message ("a symbolic link")
};

// Reads root/relative (relative: components separated by '/').
TreeFile ReadTreeFile(const std::string& root, std::string_view relative);

}  // namespace fipsval::host
