// Reading CAVP request lines and converting between bytes and hex text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"

namespace fipsval {
namespace {

int is_asc_hex(char c) {
  if (c >= '0' && c <= '9') return 1;
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? 1 : 0;
}

char get_asc(unsigned n) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  return n < kDigits.size() ? kDigits[n] : 0;
}

uint8_t get_hex(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  return 0;
}

// The value of a field line starts at the tag's length from the start of
// the line, wherever the tag was found. Parsed in 64 bits on every host
// (long has 32 bits on some), then cut to 32.
int extract_len(const char* line, const char* tag, int* out) {
  if (!std::strstr(line, tag)) return 0;
  *out = static_cast<int32_t>(std::strtoll(line + std::strlen(tag), nullptr, 10));
  return 1;
}

std::size_t extract_key(const char* line, const char* tag, uint8_t* out,
                        std::size_t capacity) {
  if (!std::strstr(line, tag)) return 0;
  return DecodeHex(line + std::strlen(tag), out, capacity);
}

}  // namespace

std::size_t DecodeHex(const char* text, uint8_t* out, std::size_t capacity) {
  std::size_t i = 0;
  for (; is_asc_hex(text[2 * i]) && is_asc_hex(text[2 * i + 1]); ++i) {
    if (i < capacity) {
      out[i] = static_cast<uint8_t>(get_hex(text[2 * i]) * 16 +
                                    get_hex(text[2 * i + 1]));
    }
  }
  return i;
}

int ParseKeyBounded(std::FILE* request, std::FILE* response, const char* tag,
                    uint8_t* out, std::size_t capacity) {
  char line[4096] = {};
  if (!fips_tv_get_line(line, sizeof line, request) ||
      !std::strstr(line, tag)) {
    std::printf("%s\n", line);
    std::printf("%s field not present\n", tag);
    return 0;
  }
  const std::size_t n = extract_key(line, tag, out, capacity);
  const std::size_t len = std::strlen(line);
  if (std::fwrite(line, 1, len, response) != len) {
    Fail("Problem writing to rsp file");
    return 0;
  }
  return static_cast<int>(n);
}

}  // namespace fipsval

using fipsval::Fail;

char* fips_tv_get_line(char* buffer, int size, FILE* stream) {
  if (size < 2) return nullptr;
  int count = 0;
  for (;;) {
    char* const slot = buffer + count;
    if (std::fread(slot, 1, 1, stream) != 1) {
      return count == 0 ? nullptr : buffer;  // no terminator written here
    }
    if (*slot == 0) return nullptr;
    ++count;
    if (count == size - 1) {
      buffer[count] = 0;
      return buffer;
    }
    // Only CR LF ends a line, and only when both belong to this call.
    if (*slot == '\n' && count >= 2 && buffer[count - 2] == '\r') {
      buffer[count] = 0;
      return buffer;
    }
  }
}

int fips_tv_convert_to_asc(const unsigned char* bytes, int length,
                           char* text) {
  for (int i = 0; i < length; ++i) {
    *text++ = fipsval::get_asc(bytes[i] >> 4);
    *text++ = fipsval::get_asc(bytes[i] & 0x0f);
  }
  *text = 0;
  return 1;
}

int fips_tv_extract_from_asc(const char* text, unsigned char* bytes) {
  return static_cast<int>(fipsval::DecodeHex(
      text, bytes, std::numeric_limits<std::size_t>::max()));
}

int fips_tv_extract_len(FILE* request, FILE* response, const char* tag,
                        int* out) {
  char line[4096] = {};
  if (!fips_tv_get_line(line, sizeof line, request) ||
      !std::strstr(line, tag)) {
    std::printf("%s field not present \n%s\n", tag, line);
    return 0;
  }
  fipsval::extract_len(line, tag, out);
  const std::size_t len = std::strlen(line);
  if (std::fwrite(line, 1, len, response) != len) {
    Fail("Problem writing to rsp file");
    return 0;
  }
  return 1;
}

int fips_tv_parse_key(FILE* request, FILE* response, const char* tag,
                      unsigned char* out) {
  return fipsval::ParseKeyBounded(request, response, tag, out,
                                  std::numeric_limits<std::size_t>::max());
}
