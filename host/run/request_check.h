// What the library's request reader cannot read right, found before a
// request file is run: it ends lines only at CR LF (an LF-only file reads as
// one line), reads a last line without CR LF together with stale bytes of
// the line before, stops at a NUL byte, and stops a hex value at its first
// non-hex character.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fipsval::host {

struct RequestFinding {
  int line = 0;  // 1-based
  std::string cause;
};

// The problems of one request file, at most `limit` of them, in file order.
std::vector<RequestFinding> CheckRequest(std::string_view text,
                                         std::size_t limit = 3);

}  // namespace fipsval::host
