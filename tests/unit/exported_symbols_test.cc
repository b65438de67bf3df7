// The shared library exports exactly the C interface, and does not depend
// on libcrypto itself (the host process provides it).
#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string Shell(const std::string& command) {
  std::string out;
  if (std::FILE* p = popen(command.c_str(), "r")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) {
      out.append(buf, n);
    }
    pclose(p);
  }
  return out;
}

std::set<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in),
          std::istream_iterator<std::string>()};
}

TEST(ExportedSymbols, ExactlyTheCInterface) {
  const std::set<std::string> expected = {
      // self-tests
      "fips_self_tests", "fips_check_fail", "fips_check_config",
      "fips_update_config", "fips_get_max_hash_tests", "fips_kat_aes_test",
      "fips_kat_sha1_test", "fips_kat_sha256_test", "fips_kat_3des_test",
      "fips_kat_rsa_test",
      // suites, lists and run operations
      "fips_tv_3des", "fips_tv_aes", "fips_tv_aes_wf", "fips_tv_hmac",
      "fips_tv_rbg", "fips_tv_rsa", "fips_tv_sha1", "fips_tv_sha256",
      "fips_tv_ssh", "fips_tv_tls", "fips_tv_ops", "fips_tv_ssl_ops",
      "fips_tv_rbg_ops", "fips_tv_wf_ops", "fips_test_vectors_3des",
      "fips_test_vectors_aes", "fips_test_vectors_aes_wf",
      "fips_test_vectors_hmac", "fips_test_vectors_rbg",
      "fips_test_vectors_rsa", "fips_test_vectors_sha1",
      "fips_test_vectors_sha256", "fips_test_vectors_ssh",
      "fips_test_vectors_tls",
      // request-file helpers and entropy export
      "fips_tv_get_line", "fips_tv_convert_to_asc", "fips_tv_extract_from_asc",
      "fips_tv_extract_len", "fips_tv_parse_key",
      "fips_tv_get_drbg_entropy_source", "exps",
      // native AES
      "rijndaelKeySetupEnc", "rijndaelKeySetupDec", "rijndaelEncrypt",
      "rijndaelDecrypt", "blockEncrypt", "blockDecrypt", "padEncrypt",
      "padDecrypt", "fips_aes_init", "fips_aes_update", "fips_aes_final",
      "fips_aes_test"};
  const std::string library = FIPSVAL_LIBRARY;
  const std::set<std::string> exported = Words(
      Shell("nm -D --defined-only " + library + " | awk '{print $3}'"));
  EXPECT_EQ(exported, expected);
}

TEST(ExportedSymbols, LibcryptoIsNotANeededLibrary) {
  const std::string needed =
      Shell("readelf -d " + std::string(FIPSVAL_LIBRARY) + " | grep NEEDED");
  EXPECT_EQ(needed.find("libcrypto"), std::string::npos) << needed;
  const std::string soname =
      Shell("readelf -d " + std::string(FIPSVAL_LIBRARY) + " | grep SONAME");
  EXPECT_NE(soname.find("libfipsval.so.1"), std::string::npos) << soname;
}

}  // namespace
