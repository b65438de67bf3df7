// What the module can be asked through ACVP: the capabilities the runners
// answer, printed as a registration, and the test of whether a vector set's
// group falls within them (which the converters' answers must match).
#pragma once

#include "host/acvp/json_fields.h"

namespace fipsval::host::acvp {

// [{"acvVersion": "1.0"}, {"isSample": false, "algorithms": [...]}]: one
// entry per algorithm and mode.
Json Registration();

// Whether the registration covers the group of the vector set: its
// algorithm and mode are registered and every registered property of the
// group (test type, direction, key, message and MAC lengths, hash, DRBG
// mode and lengths, KDF parameters) is among the registered values.
bool Covers(const Json& vector_set, const Json& group);

}  // namespace fipsval::host::acvp
