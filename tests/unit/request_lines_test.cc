// The request-line toolkit: line reading, hex conversion in both
// directions, and the length and key field helpers.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

// A read stream holding exactly `content` (zero bytes included).
UniqueFile Stream(std::string_view content) {
  UniqueFile f(std::tmpfile());
  std::fwrite(content.data(), 1, content.size(), f.get());
  std::rewind(f.get());
  return f;
}

std::string Contents(std::FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string out;
  for (int c; (c = std::fgetc(f)) != EOF;) out += static_cast<char>(c);
  return out;
}

// Every line the reader returns, until it reports the end.
std::vector<std::string> ReadAll(std::string_view content, int size) {
  const UniqueFile in = Stream(content);
  std::vector<char> buf(size, 0);
  std::vector<std::string> lines;
  while (fips_tv_get_line(buf.data(), size, in.get())) {
    lines.emplace_back(buf.data());
    std::fill(buf.begin(), buf.end(), 0);
  }
  return lines;
}

using Lines = std::vector<std::string>;

TEST(GetLine, EndsLinesOnlyAtCrLfAndKeepsTheEnding) {
  EXPECT_EQ(ReadAll("ab\r\ncd\r\n", 1024), (Lines{"ab\r\n", "cd\r\n"}));
  EXPECT_EQ(ReadAll("ab\ncd\r\n", 1024), (Lines{"ab\ncd\r\n"}));
  EXPECT_EQ(ReadAll("ab\rcd\r\n", 1024), (Lines{"ab\rcd\r\n"}));
  EXPECT_EQ(ReadAll("\r\n\r\n", 1024), (Lines{"\r\n", "\r\n"}));
  EXPECT_EQ(ReadAll("", 1024), Lines{});
}

TEST(GetLine, LastLineWithoutEndingIsReturnedWithoutATerminator) {
  EXPECT_EQ(ReadAll("ab\r\ncd", 1024), (Lines{"ab\r\n", "cd"}));

  // Into a buffer that is not zero-filled the old contents show through.
  const UniqueFile in = Stream("xy");
  char buf[16] = "stale";
  ASSERT_EQ(fips_tv_get_line(buf, sizeof buf, in.get()), buf);
  EXPECT_STREQ(buf, "xyale");
  EXPECT_EQ(fips_tv_get_line(buf, sizeof buf, in.get()), nullptr);
}

TEST(GetLine, ZeroByteEndsInput) {
  EXPECT_EQ(ReadAll(std::string("\0ab\r\n", 5), 1024), Lines{});
  EXPECT_EQ(ReadAll(std::string("ab\r\nc\0d\r\nef\r\n", 12), 1024),
            (Lines{"ab\r\n"}));
}

TEST(GetLine, LongLineIsCutAtSizeMinusOneAndTheRestFollows) {
  const std::string long_line(2000, 'x');
  const Lines lines = ReadAll(long_line + "\r\nnext\r\n", 1024);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], std::string(1023, 'x'));
  EXPECT_EQ(lines[1], std::string(977, 'x') + "\r\n");
  EXPECT_EQ(lines[2], "next\r\n");
}

TEST(GetLine, LfStartingACallDoesNotEndTheLine) {
  // The cut falls between CR and LF: the LF opens the next call's text and
  // that line runs on to the following CR LF.
  EXPECT_EQ(ReadAll("abc\r\nd\r\n", 5), (Lines{"abc\r", "\nd\r\n"}));
}

TEST(GetLine, NeverWritesPastTheGivenSize) {
  const UniqueFile in = Stream("abcdefgh\r\n");
  char buf[8];
  std::memset(buf, '#', sizeof buf);
  ASSERT_NE(fips_tv_get_line(buf, 4, in.get()), nullptr);
  EXPECT_EQ(std::string(buf, 4), std::string("abc\0", 4));
  EXPECT_EQ(std::string(buf + 4, 4), "####");
}

TEST(ConvertToAsc, WritesLowerCaseHexAndATerminator) {
  const unsigned char bytes[] = {0x0a, 0xff, 0x00, 0x9b};
  char text[16];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(fips_tv_convert_to_asc(bytes, 4, text), 1);
  EXPECT_EQ(std::string(text, 10), std::string("0aff009b\0#", 10));

  for (int len : {0, -3}) {
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(fips_tv_convert_to_asc(bytes, len, text), 1);
    EXPECT_EQ(text[0], 0);
    EXPECT_EQ(text[1], '#');
  }
}

// Decodes text into a buffer with guard bytes; returns the count and the
// bytes stored.
std::pair<int, std::string> Extract(const char* text) {
  unsigned char out[32];
  std::memset(out, 0xee, sizeof out);
  const int n = fips_tv_extract_from_asc(text, out);
  EXPECT_EQ(out[n], 0xee) << "wrote past the decoded bytes of " << text;
  return {n, std::string(reinterpret_cast<char*>(out), n)};
}

TEST(ExtractFromAsc, ReadsEitherCaseAndStopsAtTheFirstNonDigit) {
  EXPECT_EQ(Extract("0AfF\r\n"), (std::pair<int, std::string>{2, "\x0a\xff"}));
  EXPECT_EQ(Extract("abc"), (std::pair<int, std::string>{1, "\xab"}));
  EXPECT_EQ(Extract(""), (std::pair<int, std::string>{0, ""}));
  EXPECT_EQ(Extract("12 34"), (std::pair<int, std::string>{1, "\x12"}));
  EXPECT_EQ(Extract("1g23"), (std::pair<int, std::string>{0, ""}));
  EXPECT_EQ(Extract("DEADbeefG0"),
            (std::pair<int, std::string>{4, "\xde\xad\xbe\xef"}));
}

TEST(DecodeHex, StoresAtMostTheCapacityAndCountsTheWholeValue) {
  uint8_t out[4];
  std::memset(out, 0xee, sizeof out);
  EXPECT_EQ(DecodeHex("0102030405\r\n", out, 2), 5u);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 2);
  EXPECT_EQ(out[2], 0xee);
  EXPECT_EQ(DecodeHex("ffff", out, 0), 2u);
  EXPECT_EQ(out[0], 1);
}

struct FieldResult {
  int result;
  int value;
  std::string copied;
  std::string printed;
};

FieldResult ExtractLen(std::string_view request, const char* tag) {
  const UniqueFile req = Stream(request);
  const UniqueFile rsp(std::tmpfile());
  FieldResult r{0, -1, "", ""};
  r.printed = CaptureStdout([&] {
    r.result = fips_tv_extract_len(req.get(), rsp.get(), tag, &r.value);
  });
  r.copied = Contents(rsp.get());
  return r;
}

TEST(ExtractLen, StoresTheValueAndCopiesTheLine) {
  const FieldResult r = ExtractLen("Klen = 10\r\nKey = 00\r\n", "Klen = ");
  EXPECT_EQ(r.result, 1);
  EXPECT_EQ(r.value, 10);
  EXPECT_EQ(r.copied, "Klen = 10\r\n");
  EXPECT_EQ(r.printed, "");
}

TEST(ExtractLen, MissingTagPrintsTagThenLine) {
  const FieldResult r = ExtractLen("Tlen = 10\r\n", "Klen = ");
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.value, -1);
  EXPECT_EQ(r.copied, "");
  EXPECT_EQ(r.printed, "Klen =  field not present \nTlen = 10\r\n\n");

  const FieldResult eof = ExtractLen("", "Klen = ");
  EXPECT_EQ(eof.result, 0);
  EXPECT_EQ(eof.printed, "Klen =  field not present \n\n");
}

TEST(ExtractLen, ValueIsReadAtTheTagLengthFromTheLineStart) {
  // "Tlen = " is found at index 10 but read from index 7, where Klen's
  // value stands.
  const FieldResult r = ExtractLen("Klen = 10 Tlen = 7\r\n", "Tlen = ");
  EXPECT_EQ(r.result, 1);
  EXPECT_EQ(r.value, 10);
}

TEST(ExtractLen, ShortWriteOfTheLineFails) {
  const UniqueFile req = Stream("Klen = 10\r\n");
  const UniqueFile rsp(std::fopen("/dev/null", "r"));  // refuses writes
  int value = 0;
  int result = -1;
  const std::string printed = CaptureStdout([&] {
    result = fips_tv_extract_len(req.get(), rsp.get(), "Klen = ", &value);
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(printed, "Problem writing to rsp file\n");
}

FieldResult ParseKey(std::string_view request, const char* tag,
                     std::string* key) {
  const UniqueFile req = Stream(request);
  const UniqueFile rsp(std::tmpfile());
  unsigned char out[2048];
  FieldResult r{0, 0, "", ""};
  r.printed = CaptureStdout(
      [&] { r.result = fips_tv_parse_key(req.get(), rsp.get(), tag, out); });
  r.copied = Contents(rsp.get());
  key->assign(reinterpret_cast<char*>(out), r.result > 0 ? r.result : 0);
  return r;
}

TEST(ParseKey, DecodesTheValueAndCopiesTheLine) {
  std::string key;
  const FieldResult r = ParseKey("Key = 0a0B\r\nIV = 00\r\n", "Key = ", &key);
  EXPECT_EQ(r.result, 2);
  EXPECT_EQ(key, "\x0a\x0b");
  EXPECT_EQ(r.copied, "Key = 0a0B\r\n");
  EXPECT_EQ(r.printed, "");
}

TEST(ParseKey, MissingTagPrintsLineThenTag) {
  std::string key;
  const FieldResult r = ParseKey("IV = 00\r\n", "Key = ", &key);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.copied, "");
  EXPECT_EQ(r.printed, "IV = 00\r\n\nKey =  field not present\n");
}

TEST(ParseKey, ValueWithoutHexGivesZeroAfterCopying) {
  std::string key;
  const FieldResult r = ParseKey("Key = zz\r\n", "Key = ", &key);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.copied, "Key = zz\r\n");
  EXPECT_EQ(r.printed, "");
}

TEST(ParseKey, BoundedFormStoresOnlyTheCapacity) {
  const UniqueFile req = Stream("Key = 00112233445566778899\r\n");
  const UniqueFile rsp(std::tmpfile());
  uint8_t out[6];
  std::memset(out, 0xee, sizeof out);
  int n = 0;
  CaptureStdout(
      [&] { n = ParseKeyBounded(req.get(), rsp.get(), "Key = ", out, 4); });
  EXPECT_EQ(n, 10);
  EXPECT_EQ(out[3], 0x33);
  EXPECT_EQ(out[4], 0xee);
}

}  // namespace
}  // namespace fipsval::testing
