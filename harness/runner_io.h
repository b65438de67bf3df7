// The file handling that every request-file runner shares: the fixed
// request and response paths, opening both files, copying request lines
// through, and checked writes. Both files are owned by RunnerFiles and are
// closed when it goes out of scope, so every return path of a runner closes
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

#include "fipsval.h"

namespace fipsval {

inline constexpr char kRequestDir[] = "/tmp/req";
inline constexpr char kResponseDir[] = "/tmp/resp";

struct FileCloser {
  void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

// Prints a runner's failure message as one line.
inline void Fail(const char* message) { std::puts(message); }

// Writes text whole to out; on a short write prints `message` and returns
// false.
bool WriteChecked(std::FILE* out, std::string_view text, const char* message);

class RunnerFiles {
 public:
  // Opens "/tmp/req/<name>.req" for reading, then creates or truncates
  // "/tmp/resp/<name>.rsp". Prints "Couldn't open <path>\n" for the file
  // that failed and returns false; the request is closed again then.
  bool Open(const char* name);

  std::FILE* req() const { return req_.get(); }
  std::FILE* rsp() const { return rsp_.get(); }

  // The next request line (with its CR LF) into buf, or nullptr at the end.
  char* ReadLine(char* buf, int size) const {
    return fips_tv_get_line(buf, size, req_.get());
  }

  // Writes text whole; on a short write prints `message` and returns false.
  bool Write(std::string_view text, const char* message) const;
  // Copies a request line through unchanged.
  bool Copy(const char* line) const {
    return Write(line, "Problem writing to rsp file");
  }
  bool WriteEol(const char* message = "Problem writing EOL to rsp file") const {
    return Write("\r\n", message);
  }

 private:
  UniqueFile req_;
  UniqueFile rsp_;
};

// Messages of one computed answer line: tag, hex value, CR LF.
struct AnswerMessages {
  const char* convert;  // the hex text does not fit the text buffer
  const char* tag;
  const char* value;
  const char* eol = "Problem writing EOL to rsp file";
};

// Writes `tag`, the lower-case hex of bytes[0..len) and "\r\n". The hex text
// is built in `text` (usually the runner's line buffer, as the runners
// always have); when it would not fit, prints m.convert and returns false.
bool WriteAnswer(const RunnerFiles& files, std::string_view tag,
                 const uint8_t* bytes, int len, char* text,
                 std::size_t text_size, const AnswerMessages& m);

// Decodes hex digit pairs from text like fips_tv_extract_from_asc, but
// stores at most `capacity` bytes. Returns the number of bytes the text
// encodes, which may exceed `capacity`: callers compare and refuse.
std::size_t DecodeHex(const char* text, uint8_t* out, std::size_t capacity);

// fips_tv_parse_key with a bounded output: the same reading, messages and
// copying, but at most `capacity` bytes are stored. Returns the number of
// bytes the value encodes (0 on failure), which may exceed `capacity`.
int ParseKeyBounded(std::FILE* request, std::FILE* response, const char* tag,
                    uint8_t* out, std::size_t capacity);

}  // namespace fipsval
