#include "host/catalog/suite_catalog.h"

#include <strings.h>

#include <cstring>
#include <string>

namespace fipsval::host {
namespace {

std::vector<const fips_tv*> Collect(const fips_tv* const* list) {
  std::vector<const fips_tv*> suites;
  for (; *list; ++list) suites.push_back(*list);
  return suites;
}

}  // namespace

const std::vector<const fips_tv*>& AllSuites() {
  static const std::vector<const fips_tv*> all = [] {
    std::vector<const fips_tv*> suites = Collect(fips_tv_ssl_ops);
    for (const fips_tv* const* list : {fips_tv_rbg_ops, fips_tv_wf_ops}) {
      for (const fips_tv* suite : Collect(list)) suites.push_back(suite);
    }
    return suites;
  }();
  return all;
}

std::vector<const fips_tv*> SuitesOfList(std::string_view list) {
  // Any case, as for suite and test names.
  const auto is = [&](const char* name) {
    return list.size() == std::strlen(name) &&
           strncasecmp(std::string(list).c_str(), name, list.size()) == 0;
  };
  if (is("ops")) return Collect(fips_tv_ops);
  if (is("ssl")) return Collect(fips_tv_ssl_ops);
  if (is("rbg")) return Collect(fips_tv_rbg_ops);
  if (is("wf")) return Collect(fips_tv_wf_ops);
  if (is("all")) return AllSuites();
  return {};
}

const fips_tv* FindSuite(std::string_view name) {
  const std::string wanted(name);
  for (const fips_tv* suite : AllSuites()) {
    if (strcasecmp(suite->name, wanted.c_str()) == 0) return suite;
  }
  return nullptr;
}

std::string_view SuiteNamesForHelp() {
  static const std::string names = [] {
    std::string text;
    for (const fips_tv* suite : AllSuites()) {
      if (!text.empty()) text += ", ";
      text += suite->name;
    }
    return text;
  }();
  return names;
}

}  // namespace fipsval::host
