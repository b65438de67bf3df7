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
#include "harness/owners.h"
#include "harness/runner_io.h"

namespace {

using File = fipsval::UniqueFile;

// Aborts, naming the broken promise, unless ok.
void Check(bool ok, const char* what) {
  if (ok) return;
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
    Check(line == buffer.get(), "the line is not the caller's buffer");
    const long next = std::ftell(stream.get());
    const std::size_t taken = static_cast<std::size_t>(next - offset);
    Check(taken > 0 && taken <= capacity - 1, "line length out of range");
    Check(!std::memcmp(line, bytes.data() + offset, taken), "the line differs from the request");
    const bool at_end = static_cast<std::size_t>(next) == bytes.size();
    Check(line[taken] == 0 || at_end, "line not terminated");
    Check(std::memchr(line, 0, capacity), "no terminator anywhere in the buffer");
    offset = next;
  }
}

// Bytes to hex text and back again.
void RoundTrip(FuzzedDataProvider& in) {
  const std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();
  const int n = static_cast<int>(bytes.size());
  const auto text = std::make_unique<char[]>(2 * bytes.size() + 1);
  Check(fips_tv_convert_to_asc(bytes.data(), n, text.get()) == 1, "convert_to_asc failed");
  Check(std::strlen(text.get()) == 2 * bytes.size() &&
            std::strspn(text.get(), "0123456789abcdef") == 2 * bytes.size(),
        "convert_to_asc wrote other than lower-case hex");
  const auto back = std::make_unique<uint8_t[]>(bytes.size() + 1);
  Check(fips_tv_extract_from_asc(text.get(), back.get()) == n &&
            (n == 0 || !std::memcmp(back.get(), bytes.data(), bytes.size())),
        "extract_from_asc does not undo convert_to_asc");
}

// Hex text to bytes: unbounded into a buffer of half the hex run, as the
// exported helper's contract asks, and bounded into a buffer of any size.
void DecodeText(FuzzedDataProvider& in) {
  const std::size_t capacity = in.ConsumeIntegralInRange<std::size_t>(0, 64);
  const std::string text = in.ConsumeRemainingBytesAsString();
  const std::size_t run = std::strspn(text.c_str(), "0123456789abcdefABCDEF");

  const auto exact = std::make_unique<uint8_t[]>(run / 2 + 1);
  Check(fips_tv_extract_from_asc(text.c_str(), exact.get()) == static_cast<int>(run / 2),
        "extract_from_asc miscounted");
  const auto bounded = std::make_unique<uint8_t[]>(capacity);
  Check(fipsval::DecodeHex(text.c_str(), bounded.get(), capacity) == run / 2,
        "DecodeHex miscounted");
  Check(!std::memcmp(bounded.get(), exact.get(), std::min(capacity, run / 2)),
        "DecodeHex and extract_from_asc disagree");
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
  if (which == 0) {
    int len = 0;
    fips_tv_extract_len(request.get(), response.get(), tag.c_str(), &len);
  } else if (which == 1) {
    const auto key = std::make_unique<uint8_t[]>(kLargestValue);
    const int got = fips_tv_parse_key(request.get(), response.get(), tag.c_str(), key.get());
    Check(got >= 0 && static_cast<std::size_t>(got) <= kLargestValue,
          "parse_key counted more bytes than a line holds");
  } else {
    const auto key = std::make_unique<uint8_t[]>(capacity);
    fipsval::ParseKeyBounded(request.get(), response.get(), tag.c_str(), key.get(), capacity);
  }
  std::fflush(response.get());
  Check(written_len <= 4095, "copied more than one line");
  response.reset();
  std::free(written);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();  // readable logs
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 64 * 1024) return 0;
  FuzzedDataProvider in(data, size);
  constexpr void (*kOperations[])(FuzzedDataProvider&) = {ReadLines, RoundTrip, DecodeText,
                                                         ReadField};
  kOperations[in.ConsumeIntegralInRange(0, 3)](in);
  return 0;
}
