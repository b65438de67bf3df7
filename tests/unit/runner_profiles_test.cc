// The host's runner profiles against the library's own tables: a suite,
// request file, title or self-test added, renamed or moved in the library
// without its profile fails here.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "fipsval.h"
#include "host/catalog/runner_profiles.h"
#include "host/catalog/suite_catalog.h"
#include "selftest/registry.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

TEST(RunnerProfiles, EveryRequestFileOfTheLibraryHasItsProfileAndNoOtherIsThere) {
  std::vector<std::string> library, profiles;
  for (const fips_tv* const* list : {fips_tv_ssl_ops, fips_tv_rbg_ops, fips_tv_wf_ops}) {
    for (; *list; ++list) {
      const host::SuiteProfile* suite = host::FindSuiteProfile((*list)->name);
      ASSERT_NE(suite, nullptr) << (*list)->name;
      EXPECT_EQ(suite->dir, (*list)->dir);
      for (const char* const* name = (*list)->get_filenames(); *name; ++name) {
        library.push_back(std::string((*list)->name) + " " + (*list)->dir + "/" + *name);
      }
    }
  }
  for (const host::RequestProfile& p : host::RequestProfiles()) {
    profiles.push_back(std::string(p.suite) + " " + std::string(p.dir) + "/" + std::string(p.name));
    EXPECT_EQ(host::FindRequestProfile(p.name), &p) << p.name << ": a base name twice";
  }
  EXPECT_EQ(profiles, library);
  EXPECT_EQ(host::SuiteProfiles().size(), host::AllSuites().size());
  for (const host::AcvpRoute& route : host::AcvpRoutes()) {
    EXPECT_NE(host::FindRequestProfile(route.request), nullptr) << route.request;
  }
}

// A run operation with nothing staged prints its titles and, for each of
// its files, that it could not open it (the AES runners name it first).
TEST(RunnerProfiles, SuiteTitlesAreWhatTheRunOperationsPrint) {
  ResetVectorDirs();
  for (const host::SuiteProfile& profile : host::SuiteProfiles()) {
    const fips_tv* suite = host::FindSuite(profile.name);
    ASSERT_NE(suite, nullptr) << profile.name;
    const std::string out = CaptureStdout([&] { suite->run(); });
    std::set<std::string> titles;
    for (std::size_t start = 0, lf; (lf = out.find('\n', start)) != std::string::npos; start = lf + 1) {
      const std::string line = out.substr(start, lf - start);
      if (!line.starts_with("Couldn't open /tmp/req/") && !line.starts_with("Running file ")) {
        titles.insert(line);
      }
    }
    EXPECT_EQ(titles, std::set<std::string>(profile.titles.begin(), profile.titles.end())) << profile.name;
  }
}

TEST(RunnerProfiles, SelfTestsAreTheRegistrysWithTheirForceNamesAndFunctions) {
  std::set<std::string_view> forced;
  for (const host::SelfTestProfile& p : host::SelfTestProfiles()) {
    if (!p.force_name.empty()) forced.insert(p.force_name);
  }
  std::set<std::string_view> registry;
  for (const selftest::SelfTest& t : selftest::kSelfTests) {
    registry.insert(t.force_name);
    for (const host::SelfTestProfile& p : host::SelfTestProfiles()) {
      // A known-answer test that `kat` runs alone is the one the self-tests run.
      if (p.force_name == t.force_name && p.kat) {
        EXPECT_EQ(p.kat, t.run) << t.force_name;
      }
    }
  }
  EXPECT_EQ(forced, registry);
}

}  // namespace
}  // namespace fipsval::testing
