// What a run will do with each request file, decided before anything runs:
// each request <tree>/<DIR>/req/<name>.req of the selected suites is read
// without following links and checked for what the library's request
// reader cannot read right. That reader ends lines only at CR LF (an
// LF-only file reads as one line), reads a last line without CR LF together
// with stale bytes of the line before, stops at a NUL byte, and stops a hex
// value at its first non-hex character.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "host/run/run_result.h"

namespace fipsval::host {

// The problems of one request text, at most `limit` of them, in order.
std::vector<RequestFinding> CheckRequest(std::string_view text,
                                         std::size_t limit = 3);

// Every request file of the suites (each suite once, in order), read from
// the tree open at tree_fd: planned kRun with its text, kAbsent ("no
// request file"), or kRefused with the reason. Paths are shown under
// `tree` and, for responses, `responses`. With accept_lf, LF-only line ends
// are made CR LF before the text is checked and staged.
std::vector<FileRun> PlanFiles(int tree_fd, const std::string& tree,
                               const std::string& responses,
                               const std::vector<const fips_tv*>& suites,
                               bool accept_lf = false);

// Request files that no suite reads, as paths under `tree`: in the selected
// suites' req folders, and in the req folder of any folder no suite knows.
std::vector<std::string> UnhandledRequests(
    int tree_fd, const std::string& tree,
    const std::vector<const fips_tv*>& suites);

}  // namespace fipsval::host
