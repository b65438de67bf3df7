// Temporary: replaced by the entropy export and the native AES engine.
#include "fipsval.h"
int fips_tv_get_drbg_entropy_source(int) { return -1; }
int fips_aes_test(int f) { return !f; }
