// Temporary: replaced by the native AES engine.
#include "fipsval.h"

int fips_aes_test(int f) { return !f; }
