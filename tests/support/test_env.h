// Helpers for tests that run inside sandbox_run, where "/tmp/req",
// "/tmp/resp" and "/data/etc" are private to the test process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/test_util.h"

namespace fipsval::testing {

// Turns "\n" line ends into the CR LF of CAVP files.
std::string Crlf(std::string_view text);

std::string ReadFile(const std::string& path);  // "" when missing
void WriteFile(const std::string& path, std::string_view content);
bool FileExists(const std::string& path);

// Recreates "/tmp/req" and "/tmp/resp" empty (unmounting a tiny tmpfs that
// an earlier test left on "/tmp/resp").
void ResetVectorDirs();
void WriteRequest(std::string_view name, std::string_view content);
std::string ReadResponse(std::string_view name);

// Mounts a tmpfs of `bytes` bytes on "/tmp/resp", so that writes fail part
// way through a response file.
void MountTinyResponseDir(std::size_t bytes);

// Runs fn with standard output captured; returns what it printed.
std::string CaptureStdout(const std::function<void()>& fn);

// A response stream on which write number `fail_at` (from 1) and every
// write after it fail, as on a disk that fills up; `*writes` counts the
// writes tried. Unbuffered, each fwrite is one write; buffered, the data
// reaches the stream when it is flushed or closed.
std::FILE* FailingStream(int fail_at, int* writes = nullptr, bool buffered = false);

// A runner core: reads the request stream, writes the response stream.
using RunnerCore = std::function<void(std::FILE*, std::FILE*)>;

struct CoreResult {
  std::string response;  // what the core wrote to its response stream
  std::string printed;   // what it printed on standard output
};

// Runs core on `request` (its "\n" line ends turned into CR LF) through
// in-memory streams: no fixed paths, no mount namespace.
CoreResult RunCore(const RunnerCore& core, std::string_view request);

// What the core prints when write n of its response fails, for n = 1, 2,
// ...: one entry a run, ending with the first run that writes fewer than n
// times (what it prints undisturbed), or after `runs` entries.
std::vector<std::string> PrintedAtEachFailedWrite(const RunnerCore& core,
                                                  std::string_view request,
                                                  int runs = 1000);

// Number of open descriptors of this process, for leak checks.
int OpenDescriptorCount();

}  // namespace fipsval::testing

// Programs started by a test (the fipsval tool, setpriv, sh).
#include <sys/types.h>

#include <vector>

namespace fipsval::testing {

struct ProgramResult {
  int status = -1;  // exit status, 128 + signal when killed
  std::string out, err;
};

// Starts args (the program searched in PATH) with standard output and error
// in /tmp/<tag>.out and /tmp/<tag>.err; WaitProgram waits and reads them.
pid_t StartProgram(std::vector<std::string> args, const std::string& tag);
ProgramResult WaitProgram(pid_t pid, const std::string& tag);

}  // namespace fipsval::testing

// Expects the text to contain `part`, and shows the text when it does not.
#define EXPECT_HAS(text, part) \
  EXPECT_NE(std::string(text).find(part), std::string::npos) << (text)
