#include "host/catalog/runner_profiles.h"

#include <array>

#include "fipsval.h"

namespace fipsval::host {
namespace {

// ---- answer lines ----

constexpr AnswerField kCiphertext = {"CIPHERTEXT = ", "ct"};
constexpr AnswerField kPlaintext = {"PLAINTEXT = ", "pt"};

constexpr AnswerField kEncrypted[] = {kCiphertext};
constexpr AnswerField kDecrypted[] = {kPlaintext};
constexpr AnswerSection kCipherSections[] = {
    {"[ENCRYPT]", kEncrypted, "CIPHERTEXT = "},
    {"[DECRYPT]", kDecrypted, "PLAINTEXT = "}};

constexpr AnswerField kAesCbcRecord[] = {
    {"KEY = ", "key"}, {"IV = ", "iv"}, kPlaintext, kCiphertext};
constexpr AnswerSection kAesCbcMonteSections[] = {
    {"[ENCRYPT]", kAesCbcRecord, "CIPHERTEXT = "},
    {"[DECRYPT]", kAesCbcRecord, "PLAINTEXT = "}};
constexpr AnswerField kAesEcbRecord[] = {{"KEY = ", "key"}, kPlaintext,
                                         kCiphertext};
constexpr AnswerSection kAesEcbMonteSections[] = {
    {"[ENCRYPT]", kAesEcbRecord, "CIPHERTEXT = "},
    {"[DECRYPT]", kAesEcbRecord, "PLAINTEXT = "}};
constexpr AnswerField kTdesRecord[] = {
    {"KEY1 = ", "key1"}, {"KEY2 = ", "key2"}, {"KEY3 = ", "key3"},
    {"IV = ", "iv"},     kPlaintext,          kCiphertext};
constexpr AnswerSection kTdesMonteSections[] = {
    {"[ENCRYPT]", kTdesRecord, "CIPHERTEXT = "},
    {"[DECRYPT]", kTdesRecord, "PLAINTEXT = "}};

constexpr AnswerField kDigest[] = {{"MD = ", "md"}};
constexpr AnswerSection kDigestSections[] = {{"", kDigest, "MD = "}};
constexpr AnswerField kMac[] = {{"Mac = ", "mac"}};
constexpr AnswerSection kMacSections[] = {{"", kMac, "Mac = "}};
constexpr AnswerField kReturnedBits[] = {{"ReturnedBits = ", "returnedBits"}};
constexpr AnswerSection kDrbgAnswerSections[] = {
    {"", kReturnedBits, "ReturnedBits = "}};
constexpr AnswerField kSshKeys[] = {
    {"Initial IV (client to server) = ", "initialIvClient"},
    {"Initial IV (server to client) = ", "initialIvServer"},
    {"Encryption key (client to server) = ", "encryptionKeyClient"},
    {"Encryption key (server to client) = ", "encryptionKeyServer"},
    {"Integrity key (client to server) = ", "integrityKeyClient"},
    {"Integrity key (server to client) = ", "integrityKeyServer"}};
constexpr AnswerSection kSshSections[] = {
    {"", kSshKeys, "Integrity key (server to client) = "}};
constexpr AnswerField kTlsKeys[] = {{"master_secret = ", "masterSecret"},
                                    {"key_block = ", "keyBlock"}};
constexpr AnswerSection kTlsSections[] = {{"", kTlsKeys, "key_block = "}};
constexpr AnswerField kSignature[] = {
    {"n = ", "n"}, {"e = ", "e"}, {"S = ", "signature"}};
constexpr AnswerSection kSignatureSections[] = {{"", kSignature, "S = "}};
constexpr AnswerField kKatResult[] = {{"Result = ", ""}};
constexpr AnswerSection kKatSections[] = {{"", kKatResult, "Result = "}};
constexpr AnswerField kKey[] = {
    {"e = ", ""}, {"p = ", ""}, {"q = ", ""}, {"n = ", ""}, {"d = ", ""}};
constexpr AnswerSection kKeySections[] = {{"", kKey, "d = "}};

// The digests the RSA runners sign and verify with; others are copied.
constexpr std::string_view kRsaDigests[] = {"SHA1", "SHA256", "SHA384",
                                            "SHA512"};
constexpr std::string_view kRsaGroupFields[] = {"n", "e"};

// ---- the shapes ----

constexpr RequestShape kCipher = {.layout = Layout::kTests,
                                  .test_tag = "COUNT = ",
                                  .sections = kCipherSections};
constexpr RequestShape kAesCbcMonte = {.layout = Layout::kMonteCarlo,
                                       .test_tag = "COUNT = ",
                                       .monte_records = 100,
                                       .sections = kAesCbcMonteSections};
constexpr RequestShape kAesEcbMonte = {.layout = Layout::kMonteCarlo,
                                       .test_tag = "COUNT = ",
                                       .monte_records = 100,
                                       .sections = kAesEcbMonteSections};
constexpr RequestShape kTdesMonte = {.layout = Layout::kMonteCarlo,
                                     .test_tag = "COUNT = ",
                                     .monte_records = 400,
                                     .sections = kTdesMonteSections,
                                     .droppable = "NumKeys = "};
constexpr RequestShape kShaMessages = {.layout = Layout::kTests,
                                       .test_tag = "Len = ",
                                       .sections = kDigestSections};
constexpr RequestShape kShaMonte = {.layout = Layout::kShaMonte,
                                    .test_tag = "Seed = ",
                                    .monte_records = 100,
                                    .sections = kDigestSections};
// The HMAC runner knows SHA-1 and SHA-256; under another "[L=...]" it
// answers with the digest of the section before.
constexpr std::string_view kHmacSections[] = {"[L=20]", "[L=32]"};
constexpr RequestShape kHmac = {.layout = Layout::kTests,
                                .test_tag = "Count = ",
                                .sections = kMacSections,
                                .answered_sections = kHmacSections};
constexpr RequestShape kDrbg = {.layout = Layout::kDrbgSections,
                                .test_tag = "COUNT = ",
                                .sections = kDrbgAnswerSections};
constexpr RequestShape kSsh = {.layout = Layout::kTests,
                               .test_tag = "COUNT = ",
                               .answers_per_test = 6,
                               .sections = kSshSections};
constexpr RequestShape kTls = {.layout = Layout::kTests,
                               .test_tag = "COUNT = ",
                               .answers_per_test = 2,
                               .sections = kTlsSections};
constexpr RequestShape kSigGen = {.layout = Layout::kSignatures,
                                  .test_tag = "SHAAlg = ",
                                  .sections = kSignatureSections,
                                  .digests = kRsaDigests,
                                  .group_fields = kRsaGroupFields};
constexpr RequestShape kSigVer = {
    .layout = Layout::kStopsAtFirstTest,
    .test_tag = "SHAAlg = ",
    .answers_per_test = 0,
    .digests = kRsaDigests,
    .stop_line = "RSA param n is null",
    .stop_note = "the runner stops at the first test (RSA param n is null)"};
constexpr RequestShape kKeyGenCopy = {.layout = Layout::kCopiedThrough,
                                      .answers_per_test = 0};
constexpr RequestShape kKeyGenKat = {.layout = Layout::kTests,
                                     .test_tag = "e = ",
                                     .sections = kKatSections};
constexpr RequestShape kKeyGenRandom = {.layout = Layout::kKeyCount,
                                        .test_tag = "N = ",
                                        .answers_per_test = 0,
                                        .sections = kKeySections};

// ---- the request files, suite by suite in the library's order ----

constexpr RequestProfile kRequests[] = {
    {"AES", "AES", "CBCGFSbox128", &kCipher},
    {"AES", "AES", "CBCGFSbox192", &kCipher},
    {"AES", "AES", "CBCGFSbox256", &kCipher},
    {"AES", "AES", "CBCKeySbox128", &kCipher},
    {"AES", "AES", "CBCKeySbox192", &kCipher},
    {"AES", "AES", "CBCKeySbox256", &kCipher},
    {"AES", "AES", "CBCVarTxt128", &kCipher},
    {"AES", "AES", "CBCVarTxt192", &kCipher},
    {"AES", "AES", "CBCVarTxt256", &kCipher},
    {"AES", "AES", "CBCVarKey128", &kCipher},
    {"AES", "AES", "CBCVarKey192", &kCipher},
    {"AES", "AES", "CBCVarKey256", &kCipher},
    {"AES", "AES", "CBCMMT128", &kCipher},
    {"AES", "AES", "CBCMMT192", &kCipher},
    {"AES", "AES", "CBCMMT256", &kCipher},
    {"AES", "AES", "CBCMCT128", &kAesCbcMonte},
    {"AES", "AES", "CBCMCT192", &kAesCbcMonte},
    {"AES", "AES", "CBCMCT256", &kAesCbcMonte},
    {"HMAC", "HMAC", "HMAC", &kHmac},
    {"RSA2", "RSA2", "SigGen15_186-3", &kSigGen},
    {"RSA2", "RSA2", "SigVer15_186-3", &kSigVer},
    {"RSA2", "RSA2", "KeyGen_186-3", &kKeyGenCopy},
    {"RSA2", "RSA2", "KeyGen3_3_KAT", &kKeyGenKat},
    {"RSA2", "RSA2", "KeyGen_RandomProbablyPrime3_3", &kKeyGenRandom},
    {"SHA1", "SHA", "SHA1ShortMsg", &kShaMessages},
    {"SHA1", "SHA", "SHA1LongMsg", &kShaMessages},
    {"SHA1", "SHA", "SHA1Monte", &kShaMonte},
    {"SHA256", "SHA", "SHA256ShortMsg", &kShaMessages},
    {"SHA256", "SHA", "SHA256LongMsg", &kShaMessages},
    {"SHA256", "SHA", "SHA256Monte", &kShaMonte},
    {"3DES", "TDES", "TCBCvartext", &kCipher},
    {"3DES", "TDES", "TCBCinvperm", &kCipher},
    {"3DES", "TDES", "TCBCvarkey", &kCipher},
    {"3DES", "TDES", "TCBCpermop", &kCipher},
    {"3DES", "TDES", "TCBCsubtab", &kCipher},
    {"3DES", "TDES", "TCBCMMT1", &kCipher},
    {"3DES", "TDES", "TCBCMMT2", &kCipher},
    {"3DES", "TDES", "TCBCMMT3", &kCipher},
    {"3DES", "TDES", "TCBCMonte1", &kTdesMonte},
    {"3DES", "TDES", "TCBCMonte2", &kTdesMonte},
    {"3DES", "TDES", "TCBCMonte3", &kTdesMonte},
    {"SSH", "KDF135", "ssh", &kSsh},
    {"TLS", "KDF135", "tls", &kTls},
    {"DRBG800-90A", "DRBG800-90A", "CTR_DRBG", &kDrbg},
    {"AES-WF", "AES", "ECBGFSbox128", &kCipher},
    {"AES-WF", "AES", "ECBKeySbox128", &kCipher},
    {"AES-WF", "AES", "ECBVarKey128", &kCipher},
    {"AES-WF", "AES", "ECBVarTxt128", &kCipher},
    {"AES-WF", "AES", "ECBMMT128", &kCipher},
    {"AES-WF", "AES", "ECBMCT128", &kAesEcbMonte},
};

constexpr std::string_view kTdesTitles[] = {
    "TDES KAT",        "TDES KAT VARTEXT", "TDES KAT INVPERM", "TDES KAT VARKEY",
    "TDES KAT PERMOP", "TDES KAT SUBTAB",  "TDES MMT",         "TDES MCT",
    "TDES MCT 1",      "TDES MCT 2",       "TDES MCT 3"};
constexpr std::string_view kRsaTitles[] = {
    "Running PKCS1 tests",     "Running SigGen test",
    "Running SigVer test",     "Running KeyGen tests",
    "Running KeyGen test",     "Running KeyGen KAT test",
    "Running KeyGen RP Prime test"};

constexpr SuiteProfile kSuites[] = {
    {"AES", "AES", {}},         {"HMAC", "HMAC", {}},
    {"RSA2", "RSA2", kRsaTitles}, {"SHA1", "SHA", {}},
    {"SHA256", "SHA", {}},      {"3DES", "TDES", kTdesTitles},
    {"SSH", "KDF135", {}},      {"TLS", "KDF135", {}},
    {"DRBG800-90A", "DRBG800-90A", {}}, {"AES-WF", "AES", {}},
};

// In the order the self-test commands list them.
constexpr SelfTestProfile kSelfTests[] = {
    {"AES", "aes", fips_kat_aes_test},
    {"SHA1-HMAC", "sha1-hmac", fips_kat_sha1_test},
    {"SHA256-HMAC", "sha256-hmac", fips_kat_sha256_test},
    {"3DES", "3des", fips_kat_3des_test},
    {"RSA", "rsa", fips_kat_rsa_test},
    {"RNG", "", nullptr},
    {"Firmware-integrity", "", nullptr},
    {"Configuration", "", nullptr},
    {"", "native-aes", fips_aes_test},
};

constexpr AcvpRoute kAcvpRoutes[] = {
    {{"ACVP-AES-CBC", "", "AFT", 128}, "CBCMMT128"},
    {{"ACVP-AES-CBC", "", "AFT", 192}, "CBCMMT192"},
    {{"ACVP-AES-CBC", "", "AFT", 256}, "CBCMMT256"},
    {{"ACVP-AES-CBC", "", "MCT", 128}, "CBCMCT128"},
    {{"ACVP-AES-CBC", "", "MCT", 192}, "CBCMCT192"},
    {{"ACVP-AES-CBC", "", "MCT", 256}, "CBCMCT256"},
    // The ECB runner takes any key size; its Monte Carlo runner, 128 bits.
    {{"ACVP-AES-ECB", "", "AFT", 0}, "ECBMMT128"},
    {{"ACVP-AES-ECB", "", "MCT", 128}, "ECBMCT128"},
    {{"ACVP-TDES-CBC", "", "AFT", 0}, "TCBCMMT3"},
    {{"ACVP-TDES-CBC", "", "MCT", 0}, "TCBCMonte3"},
    {{"SHA-1", "", "AFT", 0}, "SHA1ShortMsg"},
    {{"SHA-1", "", "MCT", 0}, "SHA1Monte"},
    {{"SHA2-256", "", "AFT", 0}, "SHA256ShortMsg"},
    {{"SHA2-256", "", "MCT", 0}, "SHA256Monte"},
    {{"HMAC-SHA-1", "", "AFT", 0}, "HMAC"},
    {{"HMAC-SHA2-256", "", "AFT", 0}, "HMAC"},
    {{"ctrDRBG", "", "AFT", 0}, "CTR_DRBG"},
    {{"kdf-components", "ssh", "AFT", 0}, "ssh"},
    {{"kdf-components", "tls", "AFT", 0}, "tls"},
    {{"RSA", "sigGen", "GDT", 0}, "SigGen15_186-3"},
};

}  // namespace

std::span<const RequestProfile> RequestProfiles() { return kRequests; }
std::span<const AcvpRoute> AcvpRoutes() { return kAcvpRoutes; }
std::span<const SuiteProfile> SuiteProfiles() { return kSuites; }
std::span<const SelfTestProfile> SelfTestProfiles() { return kSelfTests; }

const RequestProfile* FindRequestProfile(std::string_view dir,
                                         std::string_view name) {
  for (const RequestProfile& p : kRequests) {
    if (p.dir == dir && p.name == name) return &p;
  }
  return nullptr;
}

const RequestProfile* FindRequestProfile(std::string_view name) {
  for (const RequestProfile& p : kRequests) {
    if (p.name == name) return &p;
  }
  return nullptr;
}

const SuiteProfile* FindSuiteProfile(std::string_view name) {
  for (const SuiteProfile& s : kSuites) {
    if (s.name == name) return &s;
  }
  return nullptr;
}

const RequestProfile* FindAcvpRequest(const AcvpGroup& group) {
  for (const AcvpRoute& route : kAcvpRoutes) {
    const AcvpGroup& g = route.group;
    if (g.algorithm == group.algorithm && g.mode == group.mode &&
        g.test_type == group.test_type &&
        (g.key_bits == 0 || g.key_bits == group.key_bits)) {
      return FindRequestProfile(route.request);
    }
  }
  return nullptr;
}

int RecordsPerTest(const RequestShape& shape) {
  return shape.monte_records > 0 ? shape.monte_records : 1;
}

}  // namespace fipsval::host
