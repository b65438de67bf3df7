// The request-line toolkit: line reading, hex conversion in both
// directions, the length and key field helpers, and the response check at
// close.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

// Every line the reader returns, into one buffer zeroed once, as the
// runners read: a last line without its end shows what the buffer held.
Lines ReadAll(std::string content, int size) {
  std::FILE* in = fmemopen(content.data(), content.size(), "r");
  std::vector<char> buf(size, 0);
  Lines lines;
  while (fips_tv_get_line(buf.data(), size, in)) lines.emplace_back(buf.data());
  std::fclose(in);
  return lines;
}

TEST(GetLine, SplitsOnlyAtCrLf) {
  const struct { std::string input; int size; Lines lines; } kCases[] = {
      {"ab\r\ncd\r\n", 1024, {"ab\r\n", "cd\r\n"}},
      {"ab\ncd\r\n", 1024, {"ab\ncd\r\n"}},  // a bare LF ends nothing
      {"ab\rcd\r\n\r\n", 1024, {"ab\rcd\r\n", "\r\n"}},
      {"", 1024, {}},
      // A last line without its end gets no terminator.
      {"ab\r\ncd", 1024, {"ab\r\n", "cd\r\n"}},
      {"abcd\r\nef", 1024, {"abcd\r\n", "efcd\r\n"}},
      {"ab", 1024, {"ab"}},
      {"\0ab\r\n"s, 1024, {}},               // a zero byte ends the input
      {"ab\r\nc\0d\r\nef\r\n"s, 1024, {"ab\r\n"}},
      {std::string(2000, 'x') + "\r\nnext\r\n",
       1024,
       {std::string(1023, 'x'), std::string(977, 'x') + "\r\n", "next\r\n"}},
      // Cut between CR and LF: the first byte of a call never ends a line.
      {"abc\r\nd\r\n", 5, {"abc\r", "\nd\r\n"}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ReadAll(c.input, c.size), c.lines) << c.input;
  }
}

TEST(Hex, LowerCaseOutEitherCaseIn) {
  const unsigned char bytes[] = {0x0a, 0xff, 0x00, 0x9b};
  char text[16];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(fips_tv_convert_to_asc(bytes, 4, text), 1);
  EXPECT_EQ(std::string(text, 10), "0aff009b\0#"s);
  // Decoding stops at the first non-digit. The bounded decoder (capacity
  // not -1) counts the whole value but stores no byte past its capacity.
  const struct { const char* text; std::string bytes; int capacity = -1, count = -1; } kCases[] = {
      {"0AfF\r\n", "\x0a\xff"}, {"abc", "\xab"}, {"", ""},
      {"12 34", "\x12"}, {"1g23", ""}, {"DEADbeefG0", "\xde\xad\xbe\xef"},
      {"0102030405", "\x01\x02", 2, 5}, {"0102", "", 0, 2}};
  for (const auto& c : kCases) {
    unsigned char out[8];
    std::memset(out, 0xee, sizeof out);
    const std::size_t n = c.capacity < 0 ? fips_tv_extract_from_asc(c.text, out)
                                         : DecodeHex(c.text, out, static_cast<std::size_t>(c.capacity));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), c.bytes.size()), c.bytes) << c.text;
    EXPECT_EQ(n, c.count < 0 ? c.bytes.size() : static_cast<std::size_t>(c.count)) << c.text;
    EXPECT_EQ(out[c.bytes.size()], 0xee) << c.text;
  }
}

// An answer's hex text fits its buffer with its terminator or is refused
// whole, with the conversion message and nothing written.
TEST(Hex, AnswerFitsItsTextBufferOrIsRefused) {
  const uint8_t bytes[] = {0xab, 0xcd};
  for (const auto& [size, written] : {std::pair{5, "T = abcd\r\n"}, {4, ""}, {3, ""}}) {
    char* data = nullptr;
    std::size_t length = 0;
    std::FILE* rsp = open_memstream(&data, &length);
    std::vector<char> line(64), text(size + 1, '#');
    const std::span<char> out(text.data(), std::size_t(size));
    bool ok = false;
    EXPECT_EQ(CaptureStdout([&] { ok = Session(nullptr, rsp, line).Answer("T = ", bytes, 2, {"small", "t", "v"}, out); }),
              *written ? "" : "small\n");
    std::fclose(rsp);
    EXPECT_EQ(std::string(data) + (ok ? "|ok" : ""), *written ? written + "|ok"s : "") << size;
    EXPECT_EQ(text[size], '#') << size;
    std::free(data);
  }
}

// One call of a field helper on a request: its result, the value stored,
// the text copied to the response and what it printed. An unwritable
// response refuses every write.
std::string Call(std::string request, const char* tag, bool key,
                 bool writable = true) {
  std::FILE* req = fmemopen(request.data(), request.size(), "r");
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* rsp = writable ? open_memstream(&data, &size) : FailingStream(1);
  unsigned char out[64];
  int len = -1, result = 0;
  const std::string printed = CaptureStdout([&] {
    result = key ? fips_tv_parse_key(req, rsp, tag, out)
                 : fips_tv_extract_len(req, rsp, tag, &len);
  });
  std::fclose(req);
  std::fclose(rsp);
  std::string copied = data ? data : "";
  std::free(data);
  return std::to_string(result) + "|" +
         (key ? Hex(std::span<const uint8_t>(out, std::max(result, 0)))
              : std::to_string(len)) +
         "|" + copied + "|" + printed;
}

TEST(FieldHelpers, ValueAtTheTagLengthLineCopiedMessagesWhenMissing) {
  const struct {
    const char* request;
    const char* tag;
    bool key;
    std::string expected;  // result|value|copied|printed
  } kCases[] = {
      {"Klen = 10\r\nKey = 00\r\n", "Klen = ", false, "1|10|Klen = 10\r\n|"},
      // "Tlen = " stands at index 10 but is read from index 7.
      {"Klen = 10 Tlen = 7\r\n", "Tlen = ", false, "1|10|Klen = 10 Tlen = 7\r\n|"},
      {"Len = 0a Msg = ff\r\n", "Msg = ", true, "1|0a|Len = 0a Msg = ff\r\n|"},
      {"Tlen = 10\r\n", "Klen = ", false,
       "0|-1||Klen =  field not present \nTlen = 10\r\n\n"},
      {"", "Klen = ", false, "0|-1||Klen =  field not present \n\n"},
      {"Key = 0a0B\r\nIV = 00\r\n", "Key = ", true, "2|0a0b|Key = 0a0B\r\n|"},
      {"Key = zz\r\n", "Key = ", true, "0||Key = zz\r\n|"},
      {"IV = 00\r\n", "Key = ", true, "0|||IV = 00\r\n\nKey =  field not present\n"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(Call(c.request, c.tag, c.key), c.expected) << c.request;
  }
  for (const bool key : {false, true}) {
    EXPECT_EQ(Call("Key = 10\r\n", "Key = ", key, false),
              std::string("0|") + (key ? "" : "10") + "||Problem writing to rsp file\n");
  }
}

// A response that cannot be stored, as on a full disk: a failed write is
// reported once, and data lost only when the response is closed is
// reported then.
TEST(RunnerClose, LostDataIsReportedOnceWhereItIsLost) {
  for (const bool buffered : {true, false}) {
    std::string request = Crlf("[L = 20]\n\nLen = 24\nMsg = 616263\n");
    std::FILE* req = fmemopen(request.data(), request.size(), "r");
    std::FILE* rsp = FailingStream(1, nullptr, buffered);
    bool closed = true;
    const std::string printed = CaptureStdout([&] {
      test_sha1_from_stream(req, rsp);
      closed = CloseChecked(rsp, kCopyError);
    });
    std::fclose(req);
    // Buffered, the loss shows at close; unbuffered, at the first write,
    // and the close does not report it again.
    EXPECT_EQ(closed, !buffered);
    EXPECT_EQ(printed, "Problem writing to rsp file\n");
  }
}

}  // namespace
}  // namespace fipsval::testing
