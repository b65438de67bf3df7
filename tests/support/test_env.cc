#include "tests/support/test_env.h"

#include <dirent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fipsval::testing {


std::string Crlf(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  for (char c : text) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::string& path, std::string_view content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void ResetVectorDirs() {
  umount2("/tmp/resp", MNT_DETACH);
  if (std::system("rm -rf /tmp/req /tmp/resp") != 0) {
    throw std::runtime_error("cannot clear /tmp/req and /tmp/resp");
  }
  mkdir("/tmp/req", 0755);
  mkdir("/tmp/resp", 0755);
}

void WriteRequest(std::string_view name, std::string_view content) {
  WriteFile("/tmp/req/" + std::string(name) + ".req", content);
}

std::string ReadResponse(std::string_view name) {
  return ReadFile("/tmp/resp/" + std::string(name) + ".rsp");
}

void MountTinyResponseDir(std::size_t bytes) {
  const std::string options = "size=" + std::to_string(bytes);
  if (mount("tiny", "/tmp/resp", "tmpfs", 0, options.c_str()) != 0) {
    throw std::runtime_error("cannot mount a tmpfs on /tmp/resp");
  }
}

std::string CaptureStdout(const std::function<void()>& fn) {
  std::fflush(stdout);
  std::FILE* sink = std::tmpfile();
  const int saved = dup(STDOUT_FILENO);
  dup2(fileno(sink), STDOUT_FILENO);
  fn();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string out;
  std::rewind(sink);
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, sink)) > 0;) {
    out.append(buf, n);
  }
  std::fclose(sink);
  return out;
}

std::FILE* FailingStream(int fail_at, int* writes, bool buffered) {
  struct Budget {
    int fail_at, tried;
    int* writes;
  };
  cookie_io_functions_t io{};
  io.write = [](void* cookie, const char*, std::size_t n) -> ssize_t {
    auto* b = static_cast<Budget*>(cookie);
    if (b->writes) *b->writes = b->tried + 1;
    // 0, not -1: glibc keeps a byte whose write failed with -1 in an
    // unbuffered stream's one-byte buffer and reports that write done.
    return ++b->tried >= b->fail_at ? 0 : static_cast<ssize_t>(n);
  };
  io.close = [](void* cookie) {
    delete static_cast<Budget*>(cookie);
    return 0;
  };
  if (writes) *writes = 0;
  std::FILE* f = fopencookie(new Budget{fail_at, 0, writes}, "w", io);
  if (!buffered) setvbuf(f, nullptr, _IONBF, 0);
  return f;
}

int OpenDescriptorCount() {
  int count = 0;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (readdir(dir)) ++count;
    closedir(dir);
  }
  return count - 3;  // ".", ".." and the directory's own descriptor
}

namespace {

// What core prints on `text` as its request, writing to rsp (closed).
std::string Drive(const RunnerCore& core, const std::string& text, std::FILE* rsp) {
  std::FILE* req = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  const std::string printed = CaptureStdout([&] { core(req, rsp); });
  std::fclose(req);
  std::fclose(rsp);
  return printed;
}

}  // namespace

CoreResult RunCore(const RunnerCore& core, std::string_view request) {
  char* data = nullptr;
  std::size_t size = 0;
  CoreResult r;
  r.printed = Drive(core, Crlf(request), open_memstream(&data, &size));
  r.response.assign(data, size);
  std::free(data);
  return r;
}

std::vector<std::string> PrintedAtEachFailedWrite(const RunnerCore& core,
                                                  std::string_view request,
                                                  int runs) {
  const std::string text = Crlf(request);
  std::vector<std::string> printed;
  for (int n = 1; n <= runs; ++n) {
    int writes = 0;
    printed.push_back(Drive(core, text, FailingStream(n, &writes)));
    if (writes < n) break;
  }
  return printed;
}

}  // namespace fipsval::testing

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace fipsval::testing {

pid_t StartProgram(std::vector<std::string> args, const std::string& tag) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string out = "/tmp/" + tag + ".out", err = "/tmp/" + tag + ".err";
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

ProgramResult WaitProgram(pid_t pid, const std::string& tag) {
  ProgramResult r;
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) {
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  r.out = ReadFile("/tmp/" + tag + ".out");
  r.err = ReadFile("/tmp/" + tag + ".err");
  return r;
}

}  // namespace fipsval::testing
