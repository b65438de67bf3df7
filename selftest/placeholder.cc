// Temporary: replaced by the self-test driver.
#include "fipsval.h"
int fips_self_tests(void) { return 0; }
int fips_check_fail(void) { return 0; }
int fips_check_config(int) { return 0; }
int fips_update_config(void) { if (is_fips_cc_enabled()) fips_hash_vpn_cfg(0); return 0; }
int fips_get_max_hash_tests(void) { return 1; }
int fips_kat_aes_test(int f) { return !f; }
int fips_kat_sha1_test(int f) { return !f; }
int fips_kat_sha256_test(int f) { return !f; }
int fips_kat_3des_test(int f) { return !f; }
int fips_kat_rsa_test(int f) { return !f; }
int fips_tv_get_drbg_entropy_source(int) { return -1; }
int fips_aes_test(int f) { return !f; }
