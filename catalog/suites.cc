// The suite descriptors, the suite lists and the run operations with their
// console titles.
#include <openssl/crypto.h>

#include <cstdio>
#include <initializer_list>

#include "fipsval.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

using FileList = const char* const*;

constexpr const char* kTdesFiles[] = {
    "TCBCvartext", "TCBCinvperm", "TCBCvarkey", "TCBCpermop",
    "TCBCsubtab",  "TCBCMMT1",    "TCBCMMT2",   "TCBCMMT3",
    "TCBCMonte1",  "TCBCMonte2",  "TCBCMonte3", nullptr};
constexpr const char* kAesFiles[] = {
    "CBCGFSbox128",  "CBCGFSbox192",  "CBCGFSbox256",  "CBCKeySbox128",
    "CBCKeySbox192", "CBCKeySbox256", "CBCVarTxt128",  "CBCVarTxt192",
    "CBCVarTxt256",  "CBCVarKey128",  "CBCVarKey192",  "CBCVarKey256",
    "CBCMMT128",     "CBCMMT192",     "CBCMMT256",     "CBCMCT128",
    "CBCMCT192",     "CBCMCT256",     nullptr};
constexpr const char* kAesWfFiles[] = {"ECBGFSbox128", "ECBKeySbox128",
                                       "ECBVarKey128", "ECBVarTxt128",
                                       "ECBMMT128",    "ECBMCT128",
                                       nullptr};
constexpr const char* kHmacFiles[] = {"HMAC", nullptr};
constexpr const char* kRbgFiles[] = {"CTR_DRBG", nullptr};
constexpr const char* kRsaFiles[] = {
    "SigGen15_186-3", "SigVer15_186-3", "KeyGen_186-3", "KeyGen3_3_KAT",
    "KeyGen_RandomProbablyPrime3_3", nullptr};
constexpr const char* kSha1Files[] = {"SHA1ShortMsg", "SHA1LongMsg",
                                      "SHA1Monte", nullptr};
constexpr const char* kSha256Files[] = {"SHA256ShortMsg", "SHA256LongMsg",
                                        "SHA256Monte", nullptr};
constexpr const char* kSshFiles[] = {"ssh", nullptr};
constexpr const char* kTlsFiles[] = {"tls", nullptr};

FileList tdes_filenames() { return kTdesFiles; }
FileList aes_filenames() { return kAesFiles; }
FileList aes_wf_filenames() { return kAesWfFiles; }
FileList hmac_filenames() { return kHmacFiles; }
FileList rbg_filenames() { return kRbgFiles; }
FileList rsa_filenames() { return kRsaFiles; }
FileList sha1_filenames() { return kSha1Files; }
FileList sha256_filenames() { return kSha256Files; }
FileList ssh_filenames() { return kSshFiles; }
FileList tls_filenames() { return kTlsFiles; }

void title(const char* text) { std::puts(text); }

// The AES known-answer groups run one file per key size.
void aes_cbc_group(const char* prefix) {
  for (const char* bits : {"128", "192", "256"}) {
    char name[32];
    std::snprintf(name, sizeof name, "%s%s", prefix, bits);
    test_aes_cbc_from_file(name);
  }
}

}  // namespace

void test_3des_tcbc_kat_vartext() {
  title("TDES KAT VARTEXT");
  test_3des_tcbc_from_file("TCBCvartext");
}
void test_3des_tcbc_kat_invperm() {
  title("TDES KAT INVPERM");
  test_3des_tcbc_from_file("TCBCinvperm");
}
void test_3des_tcbc_kat_varkey() {
  title("TDES KAT VARKEY");
  test_3des_tcbc_from_file("TCBCvarkey");
}
void test_3des_tcbc_kat_permop() {
  title("TDES KAT PERMOP");
  test_3des_tcbc_from_file("TCBCpermop");
}
void test_3des_tcbc_kat_subtab() {
  title("TDES KAT SUBTAB");
  test_3des_tcbc_from_file("TCBCsubtab");
}
void test_3des_tcbc_kat() {
  title("TDES KAT");
  test_3des_tcbc_kat_vartext();
  test_3des_tcbc_kat_invperm();
  test_3des_tcbc_kat_varkey();
  test_3des_tcbc_kat_permop();
  test_3des_tcbc_kat_subtab();
}
void test_3des_tcbc_mmt() {
  title("TDES MMT");
  test_3des_tcbc_from_file("TCBCMMT1");
  test_3des_tcbc_from_file("TCBCMMT2");
  test_3des_tcbc_from_file("TCBCMMT3");
}
void test_3des_tcbc_mct() {
  title("TDES MCT");
  title("TDES MCT 1");
  test_3des_tcbc_mct_from_file("TCBCMonte1");
  title("TDES MCT 2");
  test_3des_tcbc_mct_from_file("TCBCMonte2");
  title("TDES MCT 3");
  test_3des_tcbc_mct_from_file("TCBCMonte3");
}
void test_3des_tcbc() {
  test_3des_tcbc_kat();
  test_3des_tcbc_mmt();
  test_3des_tcbc_mct();
}

void test_aes_cbc_kat_gfsbox() { aes_cbc_group("CBCGFSbox"); }
void test_aes_cbc_kat_keysbox() { aes_cbc_group("CBCKeySbox"); }
void test_aes_cbc_kat_vartext() { aes_cbc_group("CBCVarTxt"); }
void test_aes_cbc_kat_varkey() { aes_cbc_group("CBCVarKey"); }
void test_aes_cbc_kat() {
  test_aes_cbc_kat_gfsbox();
  test_aes_cbc_kat_keysbox();
  test_aes_cbc_kat_vartext();
  test_aes_cbc_kat_varkey();
}
void test_aes_cbc_mmt() { aes_cbc_group("CBCMMT"); }
void test_aes_cbc_mct() {
  test_aes_cbc_mct_from_file("CBCMCT128");
  test_aes_cbc_mct_from_file("CBCMCT192");
  test_aes_cbc_mct_from_file("CBCMCT256");
}
void test_aes_cbc() {
  test_aes_cbc_kat();
  test_aes_cbc_mmt();
  test_aes_cbc_mct();
}
void test_aes_ecb() {
  test_aes_ecb_from_file("ECBGFSbox128");
  test_aes_ecb_from_file("ECBKeySbox128");
  test_aes_ecb_from_file("ECBVarKey128");
  test_aes_ecb_from_file("ECBVarTxt128");
  test_aes_ecb_from_file("ECBMMT128");
  test_aes_ecb_mct_from_file("ECBMCT128");
}

void test_rsa_pkcs1() {
  title("Running SigGen test");
  test_rsa_sign_from_file("SigGen15_186-3", 0);
  title("Running SigVer test");
  test_rsa_verify_from_file("SigVer15_186-3", 0);
}
void test_rsa_keygen() {
  title("Running KeyGen test");
  test_rsa_keygen_from_file("KeyGen_186-3");
  title("Running KeyGen KAT test");
  test_rsa_keygen_kat_from_file("KeyGen3_3_KAT");
  title("Running KeyGen RP Prime test");
  test_rsa_keygen_rp_prime_from_file("KeyGen_RandomProbablyPrime3_3");
}

}  // namespace fipsval

using namespace fipsval;

static_assert(OPENSSL_INIT_ADD_ALL_DIGESTS == 8);
static_assert(OPENSSL_INIT_LOAD_CRYPTO_STRINGS == 2);

void fips_test_vectors_3des() { test_3des_tcbc(); }
void fips_test_vectors_aes() { test_aes_cbc(); }
void fips_test_vectors_aes_wf() { test_aes_ecb(); }
void fips_test_vectors_hmac() { test_hmac_from_file("HMAC"); }
void fips_test_vectors_rbg() { test_rbg_from_file("CTR_DRBG"); }
void fips_test_vectors_rsa() {
  OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  title("Running PKCS1 tests");
  test_rsa_pkcs1();
  title("Running KeyGen tests");
  test_rsa_keygen();
}
void fips_test_vectors_sha1() {
  test_sha1_from_file("SHA1ShortMsg");
  test_sha1_from_file("SHA1LongMsg");
  test_sha1_mct_from_file("SHA1Monte");
}
void fips_test_vectors_sha256() {
  test_sha256_from_file("SHA256ShortMsg");
  test_sha256_from_file("SHA256LongMsg");
  test_sha256_mct_from_file("SHA256Monte");
}
void fips_test_vectors_ssh() { test_ssh_from_file("ssh"); }
void fips_test_vectors_tls() { test_tls_from_file("tls"); }

const fips_tv fips_tv_3des = {"3DES", "TDES", tdes_filenames,
                              fips_test_vectors_3des};
const fips_tv fips_tv_aes = {"AES", "AES", aes_filenames,
                             fips_test_vectors_aes};
const fips_tv fips_tv_aes_wf = {"AES-WF", "AES", aes_wf_filenames,
                                fips_test_vectors_aes_wf};
const fips_tv fips_tv_hmac = {"HMAC", "HMAC", hmac_filenames,
                              fips_test_vectors_hmac};
const fips_tv fips_tv_rbg = {"DRBG800-90A", "DRBG800-90A", rbg_filenames,
                             fips_test_vectors_rbg};
const fips_tv fips_tv_rsa = {"RSA2", "RSA2", rsa_filenames,
                             fips_test_vectors_rsa};
const fips_tv fips_tv_sha1 = {"SHA1", "SHA", sha1_filenames,
                              fips_test_vectors_sha1};
const fips_tv fips_tv_sha256 = {"SHA256", "SHA", sha256_filenames,
                                fips_test_vectors_sha256};
const fips_tv fips_tv_ssh = {"SSH", "KDF135", ssh_filenames,
                             fips_test_vectors_ssh};
const fips_tv fips_tv_tls = {"TLS", "KDF135", tls_filenames,
                             fips_test_vectors_tls};

const fips_tv* const fips_tv_ops[] = {&fips_tv_aes, &fips_tv_hmac,
                                      &fips_tv_sha1, &fips_tv_sha256,
                                      &fips_tv_3des, nullptr};
const fips_tv* const fips_tv_ssl_ops[] = {
    &fips_tv_aes,    &fips_tv_hmac, &fips_tv_rsa, &fips_tv_sha1,
    &fips_tv_sha256, &fips_tv_3des, &fips_tv_ssh, &fips_tv_tls,
    nullptr};
const fips_tv* const fips_tv_rbg_ops[] = {&fips_tv_rbg, nullptr};
const fips_tv* const fips_tv_wf_ops[] = {&fips_tv_aes_wf, nullptr};
