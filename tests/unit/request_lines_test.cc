// The request-line toolkit: line reading, hex conversion in both
// directions, and the length and key field helpers.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Lines = std::vector<std::string>;

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

// Every line the reader returns into a zeroed buffer, until it reports the
// end.
Lines ReadAll(std::string_view content, int size) {
  const UniqueFile in = Stream(content);
  std::vector<char> buf(size, 0);
  Lines lines;
  while (fips_tv_get_line(buf.data(), size, in.get())) {
    lines.emplace_back(buf.data());
    std::fill(buf.begin(), buf.end(), 0);
  }
  return lines;
}

TEST(GetLine, SplitsOnlyAtCrLf) {
  using namespace std::string_literals;
  const struct {
    std::string input;
    int size;
    Lines lines;
  } kCases[] = {
      {"ab\r\ncd\r\n", 1024, {"ab\r\n", "cd\r\n"}},
      {"ab\ncd\r\n", 1024, {"ab\ncd\r\n"}},  // a bare LF ends nothing
      {"ab\rcd\r\n", 1024, {"ab\rcd\r\n"}},
      {"\r\n\r\n", 1024, {"\r\n", "\r\n"}},
      {"", 1024, {}},
      {"ab\r\ncd", 1024, {"ab\r\n", "cd"}},  // last line without its end
      {"\0ab\r\n"s, 1024, {}},               // a zero byte ends the input
      {"ab\r\nc\0d\r\nef\r\n"s, 1024, {"ab\r\n"}},
      // Cut at size - 1, the rest follows.
      {std::string(2000, 'x') + "\r\nnext\r\n",
       1024,
       {std::string(1023, 'x'), std::string(977, 'x') + "\r\n", "next\r\n"}},
      // The cut falls between CR and LF: the LF opens the next call's text,
      // and the first byte of a call never ends a line.
      {"abc\r\nd\r\n", 5, {"abc\r", "\nd\r\n"}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ReadAll(c.input, c.size), c.lines) << c.input;
  }
}

TEST(GetLine, WritesNoTerminatorAtTheEndNorPastTheSize) {
  // Into a buffer that is not zero-filled the old contents show through.
  const UniqueFile in = Stream("xy");
  char buf[16] = "stale";
  ASSERT_EQ(fips_tv_get_line(buf, sizeof buf, in.get()), buf);
  EXPECT_STREQ(buf, "xyale");
  EXPECT_EQ(fips_tv_get_line(buf, sizeof buf, in.get()), nullptr);

  const UniqueFile longer = Stream("abcdefgh\r\n");
  char guarded[8];
  std::memset(guarded, '#', sizeof guarded);
  ASSERT_NE(fips_tv_get_line(guarded, 4, longer.get()), nullptr);
  EXPECT_EQ(std::string(guarded, 8), std::string("abc\0####", 8));
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
    EXPECT_EQ(std::string(text, 2), std::string("\0#", 2));
  }
}

TEST(ExtractFromAsc, ReadsEitherCaseAndStopsAtTheFirstNonDigit) {
  const struct {
    const char* text;
    std::string bytes;
  } kCases[] = {{"0AfF\r\n", "\x0a\xff"},
                {"abc", "\xab"},
                {"", ""},
                {"12 34", "\x12"},
                {"1g23", ""},
                {"DEADbeefG0", "\xde\xad\xbe\xef"}};
  for (const auto& c : kCases) {
    unsigned char out[32];
    std::memset(out, 0xee, sizeof out);
    const int n = fips_tv_extract_from_asc(c.text, out);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), n), c.bytes) << c.text;
    EXPECT_EQ(out[n], 0xee) << "wrote past the decoded bytes of " << c.text;
  }
}

TEST(DecodeHex, StoresAtMostTheCapacityAndCountsTheWholeValue) {
  uint8_t out[4];
  std::memset(out, 0xee, sizeof out);
  EXPECT_EQ(DecodeHex("0102030405\r\n", out, 2), 5u);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 3),
            (std::vector<uint8_t>{1, 2, 0xee}));
  EXPECT_EQ(DecodeHex("ffff", out, 0), 2u);
  EXPECT_EQ(out[0], 1);
}

// One call of a field helper on a request: its result, the value it
// stored, what it copied to the response and what it printed.
struct Field {
  int result;
  std::string value;
  std::string copied;
  std::string printed;
  bool operator==(const Field&) const = default;
};

void PrintTo(const Field& f, std::ostream* os) {
  *os << "{" << f.result << ", \"" << f.value << "\", \"" << f.copied
      << "\", \"" << f.printed << "\"}";
}

Field ExtractLen(std::string_view request, const char* tag) {
  const UniqueFile req = Stream(request);
  const UniqueFile rsp(std::tmpfile());
  Field f{};
  int value = -1;
  f.printed = CaptureStdout([&] {
    f.result = fips_tv_extract_len(req.get(), rsp.get(), tag, &value);
  });
  f.value = std::to_string(value);
  f.copied = Contents(rsp.get());
  return f;
}

Field ParseKey(std::string_view request, const char* tag) {
  const UniqueFile req = Stream(request);
  const UniqueFile rsp(std::tmpfile());
  unsigned char out[2048];
  Field f{};
  f.printed = CaptureStdout(
      [&] { f.result = fips_tv_parse_key(req.get(), rsp.get(), tag, out); });
  f.value.assign(reinterpret_cast<char*>(out), f.result > 0 ? f.result : 0);
  f.copied = Contents(rsp.get());
  return f;
}

TEST(FieldHelpers, ReadTheValueAtTheTagLengthAndCopyTheLine) {
  EXPECT_EQ(ExtractLen("Klen = 10\r\nKey = 00\r\n", "Klen = "),
            (Field{1, "10", "Klen = 10\r\n", ""}));
  // "Tlen = " is found at index 10 but read from index 7, where Klen's
  // value stands.
  EXPECT_EQ(ExtractLen("Klen = 10 Tlen = 7\r\n", "Tlen = "),
            (Field{1, "10", "Klen = 10 Tlen = 7\r\n", ""}));
  EXPECT_EQ(ParseKey("Key = 0a0B\r\nIV = 00\r\n", "Key = "),
            (Field{2, "\x0a\x0b", "Key = 0a0B\r\n", ""}));
  EXPECT_EQ(ParseKey("Key = zz\r\n", "Key = "),
            (Field{0, "", "Key = zz\r\n", ""}));
}

TEST(FieldHelpers, MissingTagsPrintTheirTwoMessages) {
  // The length helper prints the tag first, with a blank before the newline;
  // the key helper prints the line first.
  EXPECT_EQ(
      ExtractLen("Tlen = 10\r\n", "Klen = "),
      (Field{0, "-1", "", "Klen =  field not present \nTlen = 10\r\n\n"}));
  EXPECT_EQ(ExtractLen("", "Klen = "),
            (Field{0, "-1", "", "Klen =  field not present \n\n"}));
  EXPECT_EQ(ParseKey("IV = 00\r\n", "Key = "),
            (Field{0, "", "", "IV = 00\r\n\nKey =  field not present\n"}));
}

TEST(FieldHelpers, ShortWriteOfTheLineFails) {
  for (const bool key : {false, true}) {
    const UniqueFile req = Stream("Key = 10\r\n");
    const UniqueFile rsp(std::fopen("/dev/null", "r"));  // refuses writes
    unsigned char out[8];
    int value = 0;
    int result = -1;
    const std::string printed = CaptureStdout([&] {
      result =
          key ? fips_tv_parse_key(req.get(), rsp.get(), "Key = ", out)
              : fips_tv_extract_len(req.get(), rsp.get(), "Key = ", &value);
    });
    EXPECT_EQ(result, 0) << key;
    EXPECT_EQ(printed, "Problem writing to rsp file\n") << key;
  }
}

TEST(FieldHelpers, BoundedKeyStoresOnlyTheCapacity) {
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
