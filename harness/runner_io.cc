#include "harness/runner_io.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/owners.h"

namespace fipsval {

bool WriteChecked(std::FILE* out, std::string_view text, const char* message) {
  if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) {
    Fail(message);
    return false;
  }
  return true;
}

bool CloseChecked(std::FILE* out, const char* message) {
  const bool reported = std::ferror(out) != 0;
  const bool flushed = std::fflush(out) == 0;
  const bool closed = std::fclose(out) == 0;
  if (reported || (flushed && closed)) return true;
  Fail(message);
  return false;
}

void RunOnFiles(const char* name,
                const std::function<void(std::FILE*, std::FILE*)>& core,
                const char* short_write) {
  char path[256];
  std::snprintf(path, sizeof path, "%s/%s.req", FIPSVAL_REQUEST_DIR, name);
  const UniqueFile req(std::fopen(path, "r"));
  if (!req) {
    std::printf("Couldn't open %s\n", path);
    return;
  }
  std::snprintf(path, sizeof path, "%s/%s.rsp", FIPSVAL_RESPONSE_DIR, name);
  std::FILE* const rsp = std::fopen(path, "w");
  if (!rsp) {
    std::printf("Couldn't open %s\n", path);
    return;
  }
  core(req.get(), rsp);
  CloseChecked(rsp, short_write);
}

bool Session::Next() const {
  return fips_tv_get_line(line_.data(), static_cast<int>(line_.size()),
                          req_) != nullptr;
}

bool Session::Has(std::string_view tag, Match how) const {
  if (how == Match::kBegins) {
    return std::strncmp(line(), tag.data(), tag.size()) == 0;
  }
  return std::string_view(line()).find(tag) != std::string_view::npos;
}

bool Session::WriteNumber(std::string_view tag, int value,
                          const char* tag_message,
                          const char* value_message) const {
  char number[16];
  std::snprintf(number, sizeof number, "%d", value);
  return Write(tag, tag_message) && Write(number, value_message) &&
         WriteEol();
}

bool Session::CopyUntil(std::string_view marker, const char* missing,
                        MarkerLine marker_line, Match how) const {
  for (;;) {
    if (!Next()) {
      Fail(missing);
      return false;
    }
    const bool found = Has(marker, how);
    if (found && marker_line == MarkerLine::kKept) return true;
    if (!Copy()) return false;
    if (found) return true;
  }
}

bool Session::ReadField(std::string_view tag, const char* missing,
                        Match how) const {
  if (!Next() || !Has(tag, how)) {
    Fail(missing);
    return false;
  }
  return true;
}

bool Session::ReadHex(std::string_view tag, const char* missing,
                      const char* refused, uint8_t* out,
                      std::size_t size) const {
  if (!ReadField(tag, missing)) return false;
  if (Hex(tag, out, size) != size) {
    Fail(refused);
    return false;
  }
  return true;
}

bool Session::ReadCipherData(Direction dir, uint8_t* out,
                             std::size_t capacity, uint32_t* len,
                             const char* const too_long[2]) const {
  const bool enc = dir == Direction::kEncrypt;
  const char* tag = enc ? "PLAINTEXT = " : "CIPHERTEXT = ";
  if (!ReadField(tag, enc ? "Plaintext field not present"
                          : "Ciphertext field not present")) {
    return false;
  }
  *len = static_cast<uint32_t>(Hex(tag, out, capacity));
  if (*len == 0) {
    Fail(enc ? "Error extracting plaintext" : "Error extracting ciphertext");
    return false;
  }
  if (*len > capacity) {
    std::printf(too_long[enc ? 0 : 1], static_cast<int>(*len - capacity));
    std::putchar('\n');
    return false;
  }
  return true;
}

std::size_t Session::Hex(std::string_view tag, uint8_t* out,
                         std::size_t capacity) const {
  return DecodeHex(line() + tag.size(), out, capacity);
}

long long Session::Number(std::string_view tag) const {
  return std::strtoll(line() + tag.size(), nullptr, 10);
}

std::optional<int> Session::Length(const char* tag) const {
  int value = 0;
  if (!fips_tv_extract_len(req_, rsp_, tag, &value)) return std::nullopt;
  return value;
}

bool Session::Answer(std::string_view tag, const uint8_t* bytes, int len,
                     const AnswerMessages& m, std::span<char> text) const {
  if (text.empty()) text = line_;
  if (len > 0 && static_cast<std::size_t>(len) * 2 + 1 > text.size()) {
    Fail(m.convert);
    return false;
  }
  fips_tv_convert_to_asc(bytes, len, text.data());
  return Write(tag, m.tag) && Write(text.data(), m.value) && WriteEol(m.eol);
}

std::optional<std::size_t> ParseHexField(const Session& s, const char* tag,
                                         std::span<uint8_t> field) {
  const int n = ParseKeyBounded(s.req(), s.rsp(), tag, field.data(),
                                field.size());
  if (n > static_cast<int>(field.size())) {
    std::printf("%.*s is too long: %d bytes, at most %zu\n",
                static_cast<int>(std::strcspn(tag, " ")), tag, n,
                field.size());
    return std::nullopt;
  }
  return static_cast<std::size_t>(n);
}

void RunCipherSections(const Session& s, const char* missing_decrypt,
                       const std::function<bool(Direction)>& on_line,
                       const std::function<bool(Direction)>& on_section) {
  if (!s.CopyUntil("[ENCRYPT]", "Never found encrypt marker")) return;
  if (on_section && !on_section(Direction::kEncrypt)) return;
  for (;;) {
    if (!s.Next()) {
      Fail(missing_decrypt);
      return;
    }
    if (s.Has("[DECRYPT]")) break;
    if (!on_line(Direction::kEncrypt)) return;
  }
  if (!s.Copy()) return;
  if (on_section && !on_section(Direction::kDecrypt)) return;
  while (s.Next()) {
    if (!on_line(Direction::kDecrypt)) return;
  }
}

void RunKdfSections(const Session& s, int (*marker)(const char* line),
                    const std::function<bool(int selector)>& header,
                    const std::function<bool()>& answer) {
  bool started = false;
  while (s.Next()) {
    if (!s.Copy()) return;
    if (const int selector = marker(s.line())) {
      started = true;
      if (!header(selector)) return;
    } else if (started && s.Has("COUNT")) {
      if (!answer()) return;
    }
  }
  if (!started) Fail("Never found starting marker");
}

}  // namespace fipsval
