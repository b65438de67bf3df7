// The shared library exports exactly the C interface, and does not depend
// on libcrypto itself (the host process provides it).
#include <gtest/gtest.h>

#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

std::string Shell(const std::string& command) {
  std::system((command + " >/tmp/shell.out").c_str());
  return ReadFile("/tmp/shell.out");
}

TEST(ExportedSymbols, ExactlyTheCInterfaceAndNoLibcrypto) {
  EXPECT_EQ(Shell("nm -D --defined-only " FIPSVAL_LIBRARY " | awk '{print $3}' | LC_ALL=C sort |"
                  "xargs"),
            "blockDecrypt blockEncrypt exps fips_aes_final fips_aes_init fips_aes_test "
            "fips_aes_update fips_check_config fips_check_fail fips_get_max_hash_tests "
            "fips_kat_3des_test fips_kat_aes_test fips_kat_rsa_test fips_kat_sha1_test "
            "fips_kat_sha256_test fips_self_tests fips_test_vectors_3des fips_test_vectors_aes "
            "fips_test_vectors_aes_wf fips_test_vectors_hmac fips_test_vectors_rbg "
            "fips_test_vectors_rsa fips_test_vectors_sha1 fips_test_vectors_sha256 "
            "fips_test_vectors_ssh fips_test_vectors_tls fips_tv_3des fips_tv_aes fips_tv_aes_wf "
            "fips_tv_convert_to_asc fips_tv_extract_from_asc fips_tv_extract_len "
            "fips_tv_get_drbg_entropy_source fips_tv_get_line fips_tv_hmac fips_tv_ops "
            "fips_tv_parse_key fips_tv_rbg fips_tv_rbg_ops fips_tv_rsa fips_tv_sha1 "
            "fips_tv_sha256 fips_tv_ssh fips_tv_ssl_ops fips_tv_tls fips_tv_wf_ops "
            "fips_update_config padDecrypt padEncrypt rijndaelDecrypt rijndaelEncrypt "
            "rijndaelKeySetupDec rijndaelKeySetupEnc\n");
  const std::string dynamic = Shell("readelf -d " FIPSVAL_LIBRARY);
  EXPECT_EQ(dynamic.find("libcrypto"), std::string::npos) << dynamic;
  EXPECT_NE(dynamic.find("Library soname: [libfipsval.so.1]"), std::string::npos) << dynamic;
}

}  // namespace
}  // namespace fipsval::testing
