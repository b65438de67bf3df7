// Temporary: replaced by the entropy export.
#include "fipsval.h"
int fips_tv_get_drbg_entropy_source(int) { return -1; }
