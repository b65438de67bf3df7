// The host's file access. Files in a directory that another user may be
// able to write are opened one component at a time relative to a directory
// descriptor, never through a symbolic link, and read only when they are
// regular files of a bounded size; files are replaced by writing a
// temporary file beside them and renaming it into place. Paths the user
// names on the command line are taken as given.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/base/owners.h"
#include "host/base/status.h"

namespace fipsval::host {

// What a request file may hold; and any other file the host reads
// (responses, expected answers, JSON documents).
inline constexpr std::size_t kMaxRequestBytes = std::size_t{64} << 20;
inline constexpr std::size_t kMaxFileBytes = kMaxRequestBytes;

// Opens the directory `name` (one component) below dirfd without following
// a link. A create_mode other than 0 makes it with that mode (before the
// umask) when it is missing. Refusals: "it is a symbolic link (not
// followed)", "not a directory".
Status OpenDirBelow(int dirfd, std::string_view name, unsigned create_mode,
                    UniqueFd* dir);

// Opens a directory the user named (links followed: the user chose it).
// A create_mode other than 0 makes it first when it is missing.
Status OpenGivenDirectory(const std::string& path, unsigned create_mode,
                          UniqueFd* dir);

// Reads the regular file `name` below dirfd: no link, FIFO or device, and
// at most max_bytes ("larger than N MiB").
Status ReadFileBelow(int dirfd, std::string_view name, std::size_t max_bytes,
                     std::string* content);

// Reads root/relative: relative is walked one directory at a time without
// following a link, and ".." is refused; root is taken as given. A missing
// directory on the way says "no DIR/"; a refused one "DIR/ is ...".
Status ReadTreeFile(const std::string& root, std::string_view relative,
                    std::size_t max_bytes, std::string* content);

// Reads a file the user named: a link is followed, but only a regular file
// of at most max_bytes is read.
Status ReadGivenFile(const std::string& path, std::size_t max_bytes,
                     std::string* content);

// Writes content to a new temporary file in dirfd and renames it to `name`:
// a link at that name is replaced, not followed, and the name never holds a
// partly written file.
Status ReplaceFileBelow(int dirfd, std::string_view name,
                        std::string_view content, unsigned mode);

// ReplaceFileBelow for a path the user named: its directory as given, its
// last component replaced.
Status ReplaceGivenFile(const std::string& path, std::string_view content,
                        unsigned mode);

// Removes `name` below dirfd unless it is a directory; ok when it is gone.
Status RemoveFileBelow(int dirfd, std::string_view name);

}  // namespace fipsval::host
