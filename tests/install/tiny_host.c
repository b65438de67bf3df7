/* A minimal host application: provides the callbacks and runs the
 * power-on self-tests through the installed library. */
#include <fipsval.h>
#include <stdio.h>
#include <string.h>

int is_fips_cc_enabled(void) { return 1; }
int fips_check_vpn_cfg(int force) { return force ? 0 : 1; }
int fips_hash_vpn_cfg(int unused) { (void)unused; return 0; }
int fips_check_firmware(int force) { return force ? 0 : 1; }
int fips_rng_test(int force) { return force ? 0 : 1; }
int fips_log_startup_error(const char *text) { fprintf(stderr, "log: %s\n", text); return 0; }
int fips_goto_error_mode(int code, const char *text) {
  fprintf(stderr, "error mode %d: %s\n", code, text);
  return 0;
}
int fipsmsg(const char *format, ...) { (void)format; return 0; }
int fips_read_entropy(unsigned char *buffer, int length) {
  memset(buffer, 0x5a, (size_t)length);
  return length;
}

int main(void) {
  int mask = fips_self_tests();
  printf("mask %d\n", mask);
  return mask == 0 && fips_get_max_hash_tests() == 1 ? 0 : 1;
}
