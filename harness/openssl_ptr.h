// Kept for older includes: the owners live in harness/owners.h.
#pragma once

#include "harness/owners.h"
