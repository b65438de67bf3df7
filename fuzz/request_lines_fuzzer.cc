// The request-file toolkit under hostile input: the line reader with any
// buffer size, the hex conversions in both directions, and the two field
// readers that take a line from a request and copy it to a response. Every
// output buffer is allocated at exactly the size the caller contract asks
// for, so that AddressSanitizer sees the first byte written past it.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fipsval.h"
#include "fuzz/fuzz_runner.h"
#include "harness/runner_io.h"

namespace {

using File = fipsval::UniqueFile;

[[noreturn]] void Broken(const char* what) {
  std::fprintf(stderr, "request_lines_fuzzer: %s\n", what);
  std::abort();
}

// A request stream over bytes; nullptr for no bytes (fmemopen refuses an
// empty buffer).
File RequestStream(std::vector<uint8_t>& bytes) {
  if (bytes.empty()) return nullptr;
  return File(fmemopen(bytes.data(), bytes.size(), "r"));
}

// Reads the whole stream with one buffer, zero-filled once as the runners
// do. Each call must return exactly the bytes it took from the stream, at
// most size - 1 of them, terminated unless the stream ended.
void ReadLines(FuzzedDataProvider& in) {
  const int size = in.ConsumeIntegralInRange(-2, 5000);
  std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();
  File stream = RequestStream(bytes);
  if (!stream) return;
  const std::size_t capacity = size > 0 ? static_cast<std::size_t>(size) : 1;
  const auto buffer = std::make_unique<char[]>(capacity);  // zeroed

  long offset = 0;
  while (char* line = fips_tv_get_line(buffer.get(), size, stream.get())) {
    if (line != buffer.get()) Broken("the line is not the caller's buffer");
    const long next = std::ftell(stream.get());
    const std::size_t taken = static_cast<std::size_t>(next - offset);
    if (taken == 0 || taken > capacity - 1) Broken("line length out of range");
    if (std::memcmp(line, bytes.data() + offset, taken) != 0) {
      Broken("the line differs from the request bytes");
    }
    const bool at_end = static_cast<std::size_t>(next) == bytes.size();
    if (line[taken] != 0 && !at_end) Broken("line not terminated");
    if (std::memchr(line, 0, capacity) == nullptr) {
      Broken("no terminator anywhere in the buffer");
    }
    offset = next;
  }
}

// Bytes to hex text and back again.
void RoundTrip(FuzzedDataProvider& in) {
  const std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();
  const int n = static_cast<int>(bytes.size());
  const auto text = std::make_unique<char[]>(2 * bytes.size() + 1);
  if (fips_tv_convert_to_asc(bytes.data(), n, text.get()) != 1) {
    Broken("convert_to_asc did not return 1");
  }
  if (std::strlen(text.get()) != 2 * bytes.size() ||
      std::strspn(text.get(), "0123456789abcdef") != 2 * bytes.size()) {
    Broken("convert_to_asc wrote other than lower-case hex");
  }
  const auto back = std::make_unique<uint8_t[]>(bytes.size() + 1);
  if (fips_tv_extract_from_asc(text.get(), back.get()) != n ||
      (n > 0 && std::memcmp(back.get(), bytes.data(), bytes.size()) != 0)) {
    Broken("extract_from_asc does not undo convert_to_asc");
  }
}

// Hex text to bytes: unbounded into a buffer of half the hex run, as the
// exported helper's contract asks, and bounded into a buffer of any size.
void DecodeText(FuzzedDataProvider& in) {
  const std::size_t capacity = in.ConsumeIntegralInRange<std::size_t>(0, 64);
  const std::string text = in.ConsumeRemainingBytesAsString();
  const std::size_t run = std::strspn(text.c_str(), "0123456789abcdefABCDEF");

  const auto exact = std::make_unique<uint8_t[]>(run / 2 + 1);
  if (fips_tv_extract_from_asc(text.c_str(), exact.get()) !=
      static_cast<int>(run / 2)) {
    Broken("extract_from_asc miscounted");
  }
  const auto bounded = std::make_unique<uint8_t[]>(capacity);
  if (fipsval::DecodeHex(text.c_str(), bounded.get(), capacity) != run / 2) {
    Broken("DecodeHex miscounted");
  }
  if (std::memcmp(bounded.get(), exact.get(), std::min(capacity, run / 2))) {
    Broken("DecodeHex and extract_from_asc disagree");
  }
}

// The field readers: one line from the request, copied to a response.
void ReadField(FuzzedDataProvider& in) {
  static constexpr const char* kTags[] = {
      "Klen = ", "Key = ", "[IV length = ", "K = ", "= ", "", "EntropyInput = "};
  const int which = in.ConsumeIntegralInRange(0, 2);
  const std::size_t capacity = in.ConsumeIntegralInRange<std::size_t>(0, 64);
  const std::string tag = in.ConsumeBool()
                              ? std::string(in.PickValueInArray(kTags))
                              : in.ConsumeRandomLengthString(24);
  std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();
  File request = RequestStream(bytes);
  if (!request) return;
  char* written = nullptr;
  std::size_t written_len = 0;
  File response(open_memstream(&written, &written_len));
  if (!response) return;

  // A 4096-byte line holds at most 2047 bytes of hex value.
  constexpr std::size_t kLargestValue = 2047;
  switch (which) {
    case 0: {
      int len = 0;
      fips_tv_extract_len(request.get(), response.get(), tag.c_str(), &len);
      break;
    }
    case 1: {
      const auto key = std::make_unique<uint8_t[]>(kLargestValue);
      const int got = fips_tv_parse_key(request.get(), response.get(),
                                        tag.c_str(), key.get());
      if (got < 0 || static_cast<std::size_t>(got) > kLargestValue) {
        Broken("parse_key counted more bytes than a line holds");
      }
      break;
    }
    default: {
      const auto key = std::make_unique<uint8_t[]>(capacity);
      fipsval::ParseKeyBounded(request.get(), response.get(), tag.c_str(),
                               key.get(), capacity);
      break;
    }
  }
  std::fflush(response.get());
  if (written_len > 4095) Broken("copied more than one line");
  response.reset();
  std::free(written);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::SilenceStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > fipsval::fuzz::kMaxRequest) return 0;
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0:
      ReadLines(in);
      break;
    case 1:
      RoundTrip(in);
      break;
    case 2:
      DecodeText(in);
      break;
    default:
      ReadField(in);
      break;
  }
  return 0;
}
