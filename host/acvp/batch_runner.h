// Running request files through the library's suites: the files are
// written into a private CAVP-layout tree, the suites that read them run
// over it (RunTree), and the responses are read back.
#pragma once

#include <string>
#include <vector>

#include "host/acvp/convert/conversion.h"
#include "host/acvp/response_writer.h"

namespace fipsval::host::acvp {

// Splits the files into runs: two files of the same name go to different
// runs. Returns, for each run, the indexes of its files.
std::vector<std::vector<std::size_t>> PlanRuns(const std::vector<RequestFile>& files);

// Runs the files `run` of `files`; results[i] is filled for each index i of
// the run. The library's console output is kept (not shown) and its last
// line given as the note of a file without its full answer. Returns false
// with *error set when the run could not be made at all.
bool RunFiles(const std::vector<RequestFile>& files,
              const std::vector<std::size_t>& run, std::vector<FileResult>* results,
              std::string* library_output, std::string* error);

}  // namespace fipsval::host::acvp
