/* example_host.c: a complete host application for libfipsval.
 *
 *   cc -o example_host example_host.c $(pkg-config --cflags --libs fipsval) \
 *      -rdynamic -Wl,-rpath,"$(realpath "$(pkg-config --variable=libdir fipsval)")"
 *   ./example_host [CAVP_TREE]
 *
 * Runs the power-on self-tests; with a CAVP tree (<tree>/<DIR>/req/<name>.req),
 * answers every suite into <tree>/<DIR>/resp/<name>.rsp.
 * Exit status: 0 all passed and answered, 1 otherwise.
 * It defines no ioctl, so its CTR_DRBG answers need the kernel driver, and it
 * stages a whole suite at once, so "answered" means only that a response
 * exists: see the README for per-file status. */
#include <fipsval.h>

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* ---- Host callbacks (see fipsval.h). The three tests return 1 for PASS.
 * Stand-ins: a real appliance compares digests of its configuration and
 * firmware and reads its raw noise source. */
static int in_error_mode;

static int read_urandom(unsigned char *out, size_t n) {
  FILE *f = fopen("/dev/urandom", "rb");
  size_t got = f ? fread(out, 1, n, f) : 0;
  if (f) fclose(f);
  return got == n;
}

int is_fips_cc_enabled(void) { return 1; }
int fips_check_vpn_cfg(int force) { return force ? 0 : 1; }
int fips_hash_vpn_cfg(int unused) { (void)unused; return 0; }
int fips_check_firmware(int force) { return force ? 0 : 1; }
int fips_rng_test(int force) {
  unsigned char a[32], b[32];
  if (force || !read_urandom(a, sizeof a) || !read_urandom(b, sizeof b)) return 0;
  return memcmp(a, b, sizeof a) != 0; /* two blocks in a row must differ */
}
int fips_log_startup_error(const char *text) {
  return fprintf(stderr, "log: %s\n", text) < 0 ? -1 : 0;
}
int fips_goto_error_mode(int code, const char *text) {
  fprintf(stderr, "error mode %d: %s\n", code, text);
  in_error_mode = 1;
  return 0;
}
int fipsmsg(const char *format, ...) {
  va_list args;
  va_start(args, format);
  int n = vfprintf(stderr, format, args);
  va_end(args);
  return n;
}
int fips_read_entropy(unsigned char *buffer, int length) {
  return length >= 0 && read_urandom(buffer, (size_t)length) ? length : -1;
}

/* ---- Staging: the library reads /tmp/req/<name>.req and writes
 * /tmp/resp/<name>.rsp. */
static int copy_file(const char *from, const char *to) {
  FILE *in = fopen(from, "rb");
  if (!in) return 0;
  FILE *out = fopen(to, "wb");
  char buf[65536];
  size_t n;
  int ok = out != NULL;
  while (ok && (n = fread(buf, 1, sizeof buf, in)) > 0) ok = fwrite(buf, 1, n, out) == n;
  ok = ok && !ferror(in);
  fclose(in);
  if (out && fclose(out) != 0) ok = 0;
  return ok;
}

/* The fixed directories must be real directories of this user. */
static int own_dir(const char *path) {
  struct stat st;
  if (mkdir(path, 0700) != 0 && errno != EEXIST) return 0;
  return lstat(path, &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == geteuid();
}

/* Stages the suite's requests, runs it, collects the responses. Returns
 * the number of requests in the tree that got no response. */
static int answer_suite(const fips_tv *suite, const char *tree) {
  char req[4096], resp[4096], dir[2048];
  const char *const *name;
  int staged = 0, missing = 0;
  for (name = suite->get_filenames(); *name; ++name) {
    snprintf(req, sizeof req, "%s/%s/req/%s.req", tree, suite->dir, *name);
    snprintf(resp, sizeof resp, "/tmp/req/%s.req", *name);
    if (access(req, R_OK) != 0) continue; /* not in this tree */
    if (!copy_file(req, resp)) {
      fprintf(stderr, "cannot stage %s\n", req);
      ++missing;
      continue;
    }
    snprintf(resp, sizeof resp, "/tmp/resp/%s.rsp", *name);
    unlink(resp); /* no stale answer from an earlier run */
    ++staged;
  }
  if (!staged) return 0;
  suite->run();
  fflush(stdout);
  snprintf(dir, sizeof dir, "%s/%s/resp", tree, suite->dir);
  mkdir(dir, 0755);
  for (name = suite->get_filenames(); *name; ++name) {
    snprintf(req, sizeof req, "/tmp/req/%s.req", *name);
    if (unlink(req) != 0) continue; /* was not staged */
    snprintf(req, sizeof req, "/tmp/resp/%s.rsp", *name);
    snprintf(resp, sizeof resp, "%s/%s.rsp", dir, *name);
    if (copy_file(req, resp)) {
      printf("answered %s/%s\n", suite->dir, *name);
    } else {
      printf("NOT answered %s/%s\n", suite->dir, *name);
      ++missing;
    }
    unlink(req);
  }
  return missing;
}

int main(int argc, char **argv) {
  /* Every suite once: these three lists hold them all. */
  const fips_tv *const *const lists[] = {fips_tv_ssl_ops, fips_tv_rbg_ops,
                                         fips_tv_wf_ops};
  int mask = fips_self_tests(); /* 0 = every test passed */
  int missing = 0;
  size_t i;
  printf("self-test mask %d\n", mask);
  if (mask != 0 || in_error_mode) return 1;
  if (argc < 2) return 0;
  if (!own_dir("/tmp/req") || !own_dir("/tmp/resp")) {
    fprintf(stderr, "/tmp/req and /tmp/resp must be directories of this user\n");
    return 1;
  }
  for (i = 0; i < sizeof lists / sizeof lists[0]; ++i) {
    const fips_tv *const *suite;
    for (suite = lists[i]; *suite; ++suite) missing += answer_suite(*suite, argv[1]);
  }
  return missing == 0 ? 0 : 1;
}
