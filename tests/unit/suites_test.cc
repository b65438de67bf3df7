// The harness: the suite descriptors and lists, what a run operation does
// when its request files or the response directory are missing, and the
// entropy-sample export (its layout, results, a failing source, a short
// write at each of its writes, a missing or full response directory).
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/host_doubles.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Names = std::vector<std::string>;

Names Files(const fips_tv* tv) {
  Names names;
  for (const char* const* f = tv->get_filenames(); *f; ++f) names.emplace_back(*f);
  return names;
}
// The printed lines: a title, or "!name" for a request that is missing.
std::string Lines(const Names& lines) {
  std::string out;
  for (const std::string& l : lines) {
    out += l[0] == '!' ? "Couldn't open /tmp/req/" + l.substr(1) + ".req\n" : l + "\n";
  }
  return out;
}
std::string Missing(Names files) {
  for (std::string& f : files) f = "!" + f;
  return Lines(files);
}

// The lists' members with their names and directories (for the host); the
// suites of a directory list exactly the requests that the sample
// generator writes there.
TEST(Descriptors, ListsNameTheirSuitesDirectoriesAndSampleRequests) {
  std::string text;
  std::map<std::string, std::set<std::string>> listed, samples;
  for (const fips_tv* const* tv : {fips_tv_ops, fips_tv_ssl_ops, fips_tv_rbg_ops, fips_tv_wf_ops}) {
    for (; *tv; ++tv) {
      text += std::string((*tv)->name) + ":" + (*tv)->dir + " ";
      for (const std::string& f : Files(*tv)) listed[(*tv)->dir].insert(f);
      for (const auto& e : std::filesystem::directory_iterator(FIPSVAL_SOURCE_DIR "/samples/" +
                                                               std::string((*tv)->dir) + "/req")) {
        samples[(*tv)->dir].insert(e.path().stem());
      }
    }
    text += "| ";
  }
  EXPECT_EQ(text, "AES:AES HMAC:HMAC SHA1:SHA SHA256:SHA 3DES:TDES | AES:AES HMAC:HMAC RSA2:RSA2 "
                  "SHA1:SHA SHA256:SHA 3DES:TDES SSH:KDF135 TLS:KDF135 | DRBG800-90A:DRBG800-90A | "
                  "AES-WF:AES | ");
  EXPECT_EQ(listed, samples);
  EXPECT_TRUE(fips_tv_ssl_ops[0] == &fips_tv_aes && fips_tv_ssl_ops[2] == &fips_tv_rsa &&
              fips_tv_rbg_ops[0] == &fips_tv_rbg && fips_tv_wf_ops[0] == &fips_tv_aes_wf);
}

// The source's call n (from 0) fills the sample with 0xa0 + n and returns
// `result`, except call `fails_at`, which returns -5.
void Source(int result, int fails_at = -1) {
  Host().read_entropy = [=, n = 0](unsigned char* buf, int len) mutable {
    if (n == fails_at) return -5;
    std::fill(buf, buf + len, static_cast<unsigned char>(0xa0 + n++));
    return result;
  };
}

// The export's result and what it printed; into `out` when given.
std::pair<int, std::string> Export(int count, std::FILE* out = nullptr) {
  int v = 0;
  std::string printed = CaptureStdout(
      [&] { v = out ? WriteEntropySamples(out, count) : fips_tv_get_drbg_entropy_source(count); });
  return {v, printed};
}
std::string Samples(int count, int lines) {
  std::string text = "Min-Entropy Total = " + std::to_string(count) + "\r\n";
  for (int n = 0; n < lines; ++n) text += Hex(std::vector<uint8_t>(640, 0xa0 + n)) + "\r\n";
  return text;
}

// Every file in its order, with the titles; no response file is made.
TEST(AbsentRequests, EachSuitePrintsItsTitlesAndOneLinePerFile) {
  ResetVectorDirs();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_3des),
            Lines({"TDES KAT", "TDES KAT VARTEXT", "!TCBCvartext", "TDES KAT INVPERM",
                   "!TCBCinvperm", "TDES KAT VARKEY", "!TCBCvarkey", "TDES KAT PERMOP",
                   "!TCBCpermop", "TDES KAT SUBTAB", "!TCBCsubtab", "TDES MMT", "!TCBCMMT1",
                   "!TCBCMMT2", "!TCBCMMT3", "TDES MCT", "TDES MCT 1", "!TCBCMonte1",
                   "TDES MCT 2", "!TCBCMonte2", "TDES MCT 3", "!TCBCMonte3"}));
  EXPECT_EQ(CaptureStdout(fips_test_vectors_rsa),
            Lines({"Running PKCS1 tests", "Running SigGen test", "!SigGen15_186-3",
                   "Running SigVer test", "!SigVer15_186-3", "Running KeyGen tests",
                   "Running KeyGen test", "!KeyGen_186-3", "Running KeyGen KAT test",
                   "!KeyGen3_3_KAT", "Running KeyGen RP Prime test",
                   "!KeyGen_RandomProbablyPrime3_3"}));
  for (const fips_tv* tv : {&fips_tv_hmac, &fips_tv_sha1, &fips_tv_sha256, &fips_tv_rbg,
                            &fips_tv_ssh, &fips_tv_tls}) {
    EXPECT_EQ(CaptureStdout(tv->run), Missing(Files(tv))) << tv->name;
  }
  for (const fips_tv* tv : {&fips_tv_aes, &fips_tv_aes_wf}) {
    std::string expected;  // the AES runners announce each file first
    for (const std::string& f : Files(tv)) expected += Lines({"Running file " + f, "!" + f});
    EXPECT_EQ(CaptureStdout(tv->run), expected) << tv->name;
  }
  EXPECT_TRUE(std::filesystem::is_empty("/tmp/resp"));
  // Without the response directory: the response path, and the request is
  // closed; the entropy export reads no sample.
  ASSERT_EQ(std::system("rmdir /tmp/resp"), 0);
  ResetHost();
  EXPECT_EQ(Export(3), std::make_pair(-1, Lines({"Couldn't open /tmp/resp/entropy_samples"})));
  EXPECT_TRUE(Host().entropy_lengths.empty());
  WriteRequest("SHA1Monte", Crlf("Seed = 00\n"));
  const int fds = OpenDescriptorCount();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_sha1), Missing({"SHA1ShortMsg", "SHA1LongMsg"}) +
                                                       "Couldn't open /tmp/resp/SHA1Monte.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

// The source's result passes through; a count of 0 or less writes the
// header alone.
TEST(Entropy, WritesTheCountThenOneHexLinePerSample) {
  const struct {
    int count, result, fails_at, value, lines, reads;
    std::string printed;
  } cases[] = {{3, 640, -1, 640, 3, 3, ""},  {1, 0, -1, 0, 1, 1, ""},
               {0, 640, -1, -1, 0, 0, ""},   {-2, 640, -1, -1, 0, 0, ""},
               {4, 640, 1, -5, 1, 2, "Problem reading entropy token\n"}};
  for (const auto& c : cases) {
    ResetVectorDirs();
    ResetHost();
    Source(c.result, c.fails_at);
    const int fds = OpenDescriptorCount();
    EXPECT_EQ(Export(c.count), std::make_pair(c.value, c.printed));
    EXPECT_EQ(ReadFile("/tmp/resp/entropy_samples"), Samples(c.count, c.lines)) << c.count;
    EXPECT_EQ(Host().entropy_lengths, std::vector<int>(c.reads, 640)) << c.count;
    EXPECT_EQ(OpenDescriptorCount(), fds) << "samples file left open";
  }
}

// Before the first sample a short write gives -1; inside the loop it gives
// the last read result, and only the message tells it from success.
TEST(Entropy, ShortWriteAtEachWriteEndsWithItsMessage) {
  const std::string kEol = "Problem writing EOL to rsp file\n";
  const struct {
    std::size_t room;
    int value;
    std::string printed;
  } cases[] = {{10, -1, "Problem writing rnd tag to rsp file\n"},
               {20, -1, "Problem writing count to rsp file\n"}, {22, -1, kEol},
               {23 + 1000, 640, "Problem writing entropy to rsp file\n"}, {23 + 1281, 640, kEol}};
  for (const auto& c : cases) {
    ResetHost();
    Source(640);
    std::string buf(c.room, '\0');
    std::FILE* out = fmemopen(buf.data(), buf.size(), "w");
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(Export(3, out), std::make_pair(c.value, c.printed)) << c.room;
    std::fclose(out);
  }
}

// A full response directory: samples lost at a write give the last read
// result; samples that stdio held until the file was closed give -1.
TEST(Entropy, FullResponseDirectory) {
  for (const bool full_at_close : {false, true}) {
    ResetVectorDirs();
    ResetHost();
    MountTinyResponseDir(4096);
    if (full_at_close) WriteFile("/tmp/resp/filler", std::string(4096, 'x'));
    const auto [value, printed] = Export(full_at_close ? 2 : 10);
    EXPECT_EQ(value, full_at_close ? -1 : 640);
    // A short write can hit either write, depending on where the stdio
    // buffer happens to be flushed.
    EXPECT_TRUE(printed == "Problem writing entropy to rsp file\n" ||
                printed == (full_at_close ? "" : "Problem writing EOL to rsp file\n"))
        << printed;
    EXPECT_LT(Host().entropy_lengths.size(), 10u);  // no sample read after a lost write
  }
}

}  // namespace
}  // namespace fipsval::testing
