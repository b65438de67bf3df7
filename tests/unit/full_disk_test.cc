// Every runner on a response directory that fills up part way through its
// response: it reports the failed write, closes both files and returns;
// and the message of each write of a runner's response, failed alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

// The project's own request (its encrypt half) of each runner, repeated
// until its response cannot fit the page-sized response directory.
TEST(FullDisk, ReportsTheWriteAndClosesBothFiles) {
  const struct {
    const char* dir;
    const char* name;
    void (*run)(const char*);
  } kCases[] = {
      {"AES", "CBCVarKey128", test_aes_cbc_from_file},
      {"AES", "ECBVarTxt128", test_aes_ecb_from_file},
      {"AES", "CBCMCT128", test_aes_cbc_mct_from_file},
      {"AES", "ECBMCT128", test_aes_ecb_mct_from_file},
      {"TDES", "TCBCvartext", test_3des_tcbc_from_file},
      {"TDES", "TCBCMonte1", test_3des_tcbc_mct_from_file},
      {"SHA", "SHA1LongMsg", test_sha1_from_file},
      {"SHA", "SHA256Monte", test_sha256_mct_from_file},
      {"HMAC", "HMAC", test_hmac_from_file},
      {"RSA2", "SigGen15_186-3", [](const char* n) { test_rsa_sign_from_file(n, 0); }},
      {"RSA2", "KeyGen3_3_KAT", test_rsa_keygen_kat_from_file},
      {"DRBG800-90A", "CTR_DRBG", test_rbg_from_file},
      {"KDF135", "ssh", test_ssh_from_file},
      {"KDF135", "tls", test_tls_from_file},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string file = std::string(c.dir) + "/req/" + c.name + ".req";
    std::string sample = ReadFile(FIPSVAL_SOURCE_DIR "/vectors/" + file);
    if (sample.empty()) sample = ReadFile(FIPSVAL_SOURCE_DIR "/samples/" + file);
    ASSERT_FALSE(sample.empty());
    sample.resize(std::min(sample.size(), sample.find("[DECRYPT]")));
    ResetVectorDirs();
    std::string text;
    while (text.size() < 16384) text += sample;
    WriteRequest(c.name, text);
    MountTinyResponseDir(4096);
    const int descriptors = OpenDescriptorCount();
    const std::string printed = CaptureStdout([&] { c.run(c.name); });
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
    EXPECT_NE(printed.find("Problem writing"), std::string::npos) << printed;
    EXPECT_LE(ReadResponse(c.name).size(), 4096u);
  }
  ResetVectorDirs();
}

std::string Lost(const std::string& what) {
  return "Problem writing " + what + " to rsp file\n";
}

// Each write of the response failed in turn: the runner prints that
// write's own message and stops (a KDF runner also names the field whose
// line it could not copy). The last entry is the run that no failure
// reaches; `runs` cuts the Monte Carlo runners after their first record.
TEST(ShortWrite, EachWriteHasItsOwnMessage) {
  const std::string l = "Problem writing to rsp file\n", eol = Lost("EOL"),
                    parse = l + "Problem parse ", rnd = Lost("rnd tag"), value = Lost("rnd");
  const std::string aes = "COUNT = 0\nKEY = 06a9214036b8a15b512e03d534120006\n",
                    iv = "IV = 3dafba429d9eb430b422da802c9fac41\n",
                    block = "53696e676c6520626c6f636b206d7367\n",
                    tdes = "COUNT = 0\nKEYs = 0123456789abcdef\nIV = 1234567890abcdef\n";
  const struct {
    const char* name;
    RunnerCore core;
    std::string request;
    std::vector<std::string> printed;
    int runs = 1000;
  } kCases[] = {
      {"HMAC", test_hmac_from_stream,
       "[L=20]\nCount = 0\nKlen = 3\nTlen = 4\nKey = 4a6566\nMsg = 00\n",
       {l, l, l, l, l, l, Lost("mac tag"), Lost("mac"), eol}},
      {"SHA-1", test_sha1_from_stream, "[L = 20]\nLen = 8\nMsg = 61\n",
       {l, l, l, Lost("digest tag"), Lost("digest"), eol}},
      {"SHA-256 Monte Carlo", test_sha256_mct_from_stream,
       "[L = 32]\nSeed = " + std::string(64, '1') + "\n",
       {l, l, eol, Lost("count tag"), Lost("count"), eol, Lost("digest tag"), Lost("digest"),
        eol, eol}, 10},
      {"RSA SigGen", [](std::FILE* q, std::FILE* s) { test_rsa_sign_from_stream(q, s, 0); },
       "[mod = 1024]\nSHAAlg = SHA1\nMsg = 00\n",
       {l, l, l, l, l, l, l, l, Lost("signature tag"), Lost("signature"), eol}},
      {"AES CBC", test_aes_cbc_from_stream,
       "[ENCRYPT]\n" + aes + iv + "PLAINTEXT = " + block + "[DECRYPT]\n" + aes + iv +
           "CIPHERTEXT = e353779c1079aeb82708942dbe77181a\n",
       {l, l, l, l, l, Lost("cipher tag"), Lost("cipher"), eol, l, l, l, l, l,
        Lost("plain tag"), Lost("cipher"), eol}},
      {"AES CBC Monte Carlo", test_aes_cbc_mct_from_stream,
       "[ENCRYPT]\n" + aes + iv + "PLAINTEXT = " + block + "[DECRYPT]\n",
       {l, Lost("count tag"), Lost("count"), eol, Lost("key tag"), Lost("cipher"), eol,
        Lost("iv tag"), Lost("cipher"), eol, Lost("plaintext tag"), Lost("plaintext"), eol,
        Lost("cipher tag"), Lost("cipher"), eol, eol, Lost("count tag")}, 18},
      {"AES ECB Monte Carlo decrypting", test_aes_ecb_mct_from_stream,
       "[ENCRYPT]\n[DECRYPT]\n" + aes + "CIPHERTEXT = " + block,
       {l, l, Lost("count tag"), Lost("count"), eol, Lost("key tag"), Lost("cipher"), eol,
        Lost("cipher tag"), Lost("plaintext"), eol, Lost("plaintext tag"), Lost("plaintext"),
        eol, eol, Lost("count tag")}, 16},
      {"TDES", test_3des_tcbc_from_stream,
       "[ENCRYPT]\n" + tdes + "PLAINTEXT = 4e6f772069732074\n[DECRYPT]\n" + tdes +
           "CIPHERTEXT = 4e6f772069732074\n",
       {l, l, l, l, l, Lost("cipher tag"), Lost("cipher"), eol, l, l, l, l, l,
        Lost("plain tag"), Lost("cipher"), eol}},
      {"SSH", test_ssh_from_stream,
       "[SHA-1]\n[shared secret length = 8]\n[IV length = 64]\n"
       "[encryption key length = 128]\nCOUNT = 0\nK = 01\nH = 02\nsession_id = 03\n",
       {l, l, l, l, l, parse + "K = \n", l, l, rnd, value, eol, rnd, value, eol, rnd, value,
        eol, rnd, value, eol, rnd, value, eol, rnd, value, eol}},
      {"TLS", test_tls_from_stream,
       "[TLS 1.0/1.1]\n[pre-master secret length = 16]\n[key block length = 64]\n"
       "COUNT = 0\npre_master_secret = 0102\nserverHello_random = 03\n"
       "clientHello_random = 04\nserver_random = 05\nclient_random = 06\n",
       {l, l, l, l, parse + "pre_master_secret = \n", parse + "serverHello_random = \n",
        parse + "clientHello_random = \n", parse + "server_random = \n",
        parse + "client_random = \n", Lost("master-secret tag"), Lost("master-secret"), eol,
        Lost("key-block tag"), Lost("master-secret"), eol}},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> expected = c.printed;
    if (static_cast<int>(expected.size()) < c.runs) expected.push_back("");
    EXPECT_EQ(PrintedAtEachFailedWrite(c.core, c.request, c.runs), expected) << c.name;
  }
}

}  // namespace
}  // namespace fipsval::testing
