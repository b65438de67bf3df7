// sandbox_run COMMAND [ARGS...]
//
// Runs COMMAND in a private mount namespace whose root mirrors the real one
// except that "/tmp" and "/data" are fresh, empty and private. The library
// works on the fixed paths "/tmp/req", "/tmp/resp" and "/data/etc/katfail";
// inside the sandbox a test may create, fill or remount them freely, tests
// can run side by side, and nothing is left on the machine afterwards.
//
// Run by a user who is not root, it first enters a user namespace of its own
// (the user is root inside it, over nothing but that namespace's mounts).
// Exits with COMMAND's status, or 77 (the "skipped" status of the test
// runner), with the reason on stderr, when the kernel gives neither.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kSkipped = 77;
pid_t g_child = 0;

void forward_signal(int sig) {
  if (g_child > 0) kill(g_child, sig);
}

[[noreturn]] void die(const char* what) {
  std::fprintf(stderr, "sandbox_run: skipped: %s: %s\n", what,
               std::strerror(errno));
  _exit(kSkipped);
}

bool WriteProcFile(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok =
      write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return ok;
}

// Without root: a new user namespace mapping this user (and group) to root,
// which may then create the mount namespace.
void EnterNamespaces() {
  if (geteuid() == 0) {
    if (unshare(CLONE_NEWNS) != 0) {
      die("cannot create a private mount namespace");
    }
    return;
  }
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    die("not root, and the kernel refuses an unprivileged user namespace");
  }
  // (Kernels before 3.19 have no setgroups file and need none.)
  const bool setgroups = access("/proc/self/setgroups", F_OK) == 0;
  if ((setgroups && !WriteProcFile("/proc/self/setgroups", "deny")) ||
      !WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
      !WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
    die("cannot map the user into its user namespace");
  }
}

void make_dirs(const std::string& path, mode_t mode) {
  for (std::size_t pos = 1; pos != std::string::npos;) {
    pos = path.find('/', pos + 1);
    mkdir(path.substr(0, pos).c_str(), mode);
  }
}

// Mirrors every top-level entry of "/" into root, except /tmp and /data.
void mirror_root(const std::string& root) {
  DIR* dir = opendir("/");
  if (!dir) die("opendir /");
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || name == "tmp" || name == "data") {
      continue;
    }
    const std::string source = "/" + name;
    const std::string target = root + source;
    struct stat st;
    if (lstat(source.c_str(), &st) != 0) continue;
    if (S_ISLNK(st.st_mode)) {
      char link[4096];
      const ssize_t n = readlink(source.c_str(), link, sizeof link - 1);
      if (n < 0) continue;
      link[n] = 0;
      if (symlink(link, target.c_str()) != 0) die("symlink");
    } else if (S_ISDIR(st.st_mode)) {
      mkdir(target.c_str(), 0755);
      if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC,
                nullptr) != 0) {
        std::fprintf(stderr, "sandbox_run: cannot mirror %s: %s\n",
                     source.c_str(), std::strerror(errno));
      }
    }
  }
  closedir(dir);
}

[[noreturn]] void run_child(const std::string& root, char** argv) {
  EnterNamespaces();
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    die("cannot make mounts private");
  }
  if (mount("sandbox", root.c_str(), "tmpfs", 0, "mode=0755") != 0) {
    die("cannot mount the sandbox root");
  }
  mirror_root(root);
  mkdir((root + "/tmp").c_str(), 01777);
  chmod((root + "/tmp").c_str(), 01777);
  make_dirs(root + "/data/etc", 0755);

  char cwd[4096];
  if (!getcwd(cwd, sizeof cwd)) die("getcwd");
  // A working directory under /tmp (a build tree there, say) stays visible.
  if (std::strncmp(cwd, "/tmp/", 5) == 0) {
    make_dirs(root + cwd, 0755);
    if (mount(cwd, (root + cwd).c_str(), nullptr, MS_BIND | MS_REC,
              nullptr) != 0) {
      die("cannot keep the working directory");
    }
  }
  if (chroot(root.c_str()) != 0) die("chroot");
  if (chdir(cwd) != 0) die("chdir");
  setenv("FIPSVAL_SANDBOX", "1", 1);
  execvp(argv[0], argv);
  std::fprintf(stderr, "sandbox_run: cannot run %s: %s\n", argv[0],
               std::strerror(errno));
  _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: sandbox_run COMMAND [ARGS...]\n");
    return 2;
  }
  char root[] = "/tmp/fipsval-sandbox-XXXXXX";
  if (!mkdtemp(root)) {
    std::perror("sandbox_run: mkdtemp");
    return kSkipped;
  }
  std::fflush(nullptr);
  g_child = fork();
  if (g_child < 0) {
    std::perror("sandbox_run: fork");
    rmdir(root);
    return kSkipped;
  }
  if (g_child == 0) run_child(root, argv + 1);

  signal(SIGINT, forward_signal);
  signal(SIGTERM, forward_signal);
  int status = 0;
  while (waitpid(g_child, &status, 0) < 0 && errno == EINTR) {
  }
  rmdir(root);
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + WTERMSIG(status);
}
