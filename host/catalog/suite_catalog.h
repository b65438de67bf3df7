// Finding the library's suites by name and by list name.
#pragma once

#include <string_view>
#include <vector>

#include "fipsval.h"

namespace fipsval::host {

// Every suite, each once, in the order of the "ssl" list followed by the
// DRBG and AES-WF suites.
const std::vector<const fips_tv*>& AllSuites();

// The suites of a list: "ops", "ssl", "rbg", "wf" or "all". Empty when the
// name is unknown.
std::vector<const fips_tv*> SuitesOfList(std::string_view list);

// A suite by its name ("AES", "3DES", "RSA2", …), compared without regard
// to case; nullptr when there is none.
const fips_tv* FindSuite(std::string_view name);

// "AES, AES-WF, …" for messages.
std::string_view SuiteNamesForHelp();

}  // namespace fipsval::host
