// Running request files through the library's suites: the files are
// written into a private CAVP-layout tree, the suites that read them run
// over it (RunTree), and the responses are read back, each with what the
// run's result says of its file.
#pragma once

#include <vector>

#include "host/acvp/convert/conversion.h"
#include "host/acvp/response_writer.h"
#include "host/base/status.h"
#include "host/run/run_result.h"

namespace fipsval::host::acvp {

// Splits the files into runs: two files of the same name go to different
// runs. Returns, for each run, the indexes of its files.
std::vector<std::vector<std::size_t>> PlanRuns(const std::vector<RequestFile>& files);

// Runs the files `run` of `files`; results[i] is filled for each index i of
// the run: the response, and as its note the runner's own message for that
// file in the run's result (or why the run did not answer it). The
// observer hears the run (none: it is silent). Fails when the run could
// not be made at all.
Status RunFiles(const std::vector<RequestFile>& files,
                const std::vector<std::size_t>& run,
                std::vector<FileResult>* results,
                RunObserver* observer = nullptr);

}  // namespace fipsval::host::acvp
