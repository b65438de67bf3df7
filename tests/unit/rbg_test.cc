// The CTR_DRBG runner: request text in, the parameter block through the
// ioctl on /dev/urandom (answered by the user-space stand-in where the
// kernel does not), response text out.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <string>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

std::string Header(const std::string& returned_bits) {
  return "[AES-256 use df]\n[PredictionResistance = False]\n"
         "[EntropyInputLen = 256]\n[NonceLen = 128]\n[ReturnedBitsLen = " +
         returned_bits + "]\n\n";
}

std::string Inputs(int count, const DrbgVector& v) {
  return "COUNT = " + std::to_string(count) + "\nEntropyInput = " +
         std::string(v.entropy) + "\nNonce = " + std::string(v.nonce) +
         "\nPersonalizationString = " + std::string(v.personalization) +
         "\nEntropyInputReseed = " + std::string(v.entropy_reseed) +
         "\nAdditionalInputReseed = " + std::string(v.additional_reseed) +
         "\nAdditionalInput = " + std::string(v.additional1) +
         "\nAdditionalInput = " + std::string(v.additional2) + "\n";
}

std::string Answer(std::string_view hex) {
  return "ReturnedBits = " + std::string(hex) + "\n";
}

CoreResult Drbg(const std::string& request) {
  return RunCore(test_rbg_from_stream, request);
}

TEST(Rbg, NistVectorsInTheAes256UseDfSectionOnly) {
  // An earlier section is copied without answers, and so is a line that
  // mentions COUNT without being a COUNT line.
  const std::string earlier =
      "# CTR_DRBG options: AES-128 use df :: AES-256 use df\n\n"
      "[AES-128 use df]\n[ReturnedBitsLen = 256]\n\n" + Inputs(0, kDrbgAllEmpty) + "\n";
  const std::string head = earlier + Header("512") + "# COUNT of tests: 2\n";
  const int descriptors = OpenDescriptorCount();
  const CoreResult r = Drbg(head + Inputs(0, kDrbgAllEmpty) + "\n" +
                           Inputs(1, kDrbgEverything));
  EXPECT_EQ(OpenDescriptorCount(), descriptors) << "the device is closed after each test";
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response,
            Crlf(head + Inputs(0, kDrbgAllEmpty) + Answer(kDrbgAllEmpty.returned) +
                 "\n" + Inputs(1, kDrbgEverything) +
                 Answer(kDrbgEverything.returned)));
}

TEST(Rbg, ReturnedBitsLenSetsTheAnswerLength) {
  // Bits are cut to whole bytes; below 0 asks for nothing; the 64-byte
  // field bounds the length before any test reaches the driver.
  for (const auto& [bits, digits] : {std::pair{"0", 0}, {"256", 64}, {"263", 64},
                                     {"-8", 0}, {"512", 128}}) {
    const std::string request = Header(bits) + Inputs(0, kDrbgEverything);
    const CoreResult r = Drbg(request);
    EXPECT_EQ(r.printed, "") << bits;
    const std::string head = Crlf(request + "ReturnedBits = ");
    ASSERT_EQ(r.response.substr(0, head.size()), head) << bits;
    const std::string value = r.response.substr(head.size());
    EXPECT_EQ(value.find_first_not_of("0123456789abcdef"), digits) << bits;
    EXPECT_EQ(value.substr(digits), "\r\n") << bits;
  }
  // (Read in 64 bits on every host: 2^32 + 512 stays itself where long has 32.)
  for (const std::string bits : {"513", "4294967808"}) {
    const CoreResult r = Drbg(Header(bits) + Inputs(0, kDrbgAllEmpty));
    EXPECT_EQ(r.printed, "ReturnedBitsLen " + bits + " is above 512: not answered\n");
    EXPECT_EQ(r.response, Crlf(Header(bits).substr(0, Header(bits).size() - 1)));
  }
}

TEST(Rbg, FailuresStopWithTheirMessage) {
  // A missing Nonce line is reported by the reader, and the line it read
  // in its place is not copied. An empty required input ends the run after
  // its line. An over-long value is refused at its own field.
  const std::string head = Header("512") + "COUNT = 0\nEntropyInput = " +
                           std::string(kDrbgEverything.entropy) + "\n";
  const std::string nonce = "Nonce = " + std::string(34, '1') + "\n",
                    long_ps = "Nonce = 00\nPersonalizationString = " + std::string(2000, 'f') + "\n";
  std::string no_reseed = Header("512") + Inputs(0, kDrbgEverything);
  no_reseed.erase(no_reseed.find("EntropyInputReseed = ") + 21, 64);
  // kept "": the whole request.
  const struct { std::string request, printed, kept; } kCases[] = {
      {"[AES-128 use df]\n[ReturnedBitsLen = 256]\n\n" + Inputs(0, kDrbgAllEmpty),
       "Never found starting marker\n", ""},
      {"[AES-256 use df]\n[NonceLen = 128]\n", "Never found ReturnedBitsLen\n", ""},
      // Without its closing bracket the length line ends the run silently.
      {"[AES-256 use df]\n[ReturnedBitsLen = 512\n\n" + Inputs(0, kDrbgAllEmpty),
       "", "[AES-256 use df]\n[ReturnedBitsLen = 512\n"},
      {head + "PersonalizationString = \n",
       "PersonalizationString = \r\n\nNonce =  field not present\n", head},
      {head + "Nonce = \nPersonalizationString = \n", "", head + "Nonce = \n"},
      {Header("512") + "COUNT = 0\nEntropyInput = \nNonce = 00\n", "",
       Header("512") + "COUNT = 0\nEntropyInput = \n"},
      {no_reseed, "", no_reseed.substr(0, no_reseed.find("AdditionalInputReseed"))},
      {head + nonce, "Nonce is too long: 17 bytes, at most 16\n", ""},
      {head + long_ps, "PersonalizationString is too long: 1000 bytes, at most 32\n", ""},
  };
  for (const auto& c : kCases) {
    const CoreResult r = Drbg(c.request);
    EXPECT_EQ(r.printed, c.printed) << c.request;
    EXPECT_EQ(r.response, Crlf(c.kept.empty() ? c.request : c.kept)) << c.request;
  }
}

TEST(Rbg, UnopenableDeviceStopsAfterTheFirstTestsInputs) {
  const std::string request =
      Header("512") + Inputs(0, kDrbgEverything) + "\n" + Inputs(1, kDrbgAllEmpty);
  // An empty /dev for the length of the run (a private mount namespace).
  ASSERT_EQ(mount("nodev", "/dev", "tmpfs", 0, "size=4k"), 0);
  const CoreResult r = Drbg(request);
  ASSERT_EQ(umount2("/dev", MNT_DETACH), 0);
  EXPECT_EQ(r.printed, "Error opening urandom\nError set params  \n");
  EXPECT_EQ(r.response, Crlf(Header("512") + Inputs(0, kDrbgEverything)));
}

}  // namespace
}  // namespace fipsval::testing
