// The request-file toolkit that every runner is written in.
//
// A runner core works on two open streams: the request it reads and the
// response it writes. `Session` bundles the two with the runner's line
// buffer and names the steps every runner takes: read the next line, copy
// it through, copy lines up to a marker, read a field line that must hold a
// tag, write an answer line. Every step that can fail prints the runner's
// one-line message itself and returns false; the caller then stops.
//
// `RunOnFiles` is the shell around a core: it opens the fixed request and
// response paths, runs the core and closes both, reporting data that could
// not be written when the response is flushed or closed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include "fipsval.h"

namespace fipsval {

inline constexpr char kCopyError[] = "Problem writing to rsp file";
inline constexpr char kEolError[] = "Problem writing EOL to rsp file";

// Prints a runner's failure message as one line.
inline void Fail(const char* message) { std::puts(message); }

// Writes text whole to out; on a short write prints `message` and returns
// false.
bool WriteChecked(std::FILE* out, std::string_view text, const char* message);

// Flushes and closes a response stream. When data that the runner had
// written successfully cannot be stored (a full disk shows only here, for
// output that stdio buffered), prints `message` and returns false. A stream
// whose earlier write failed was reported then: it is closed without a
// second message (result true).
bool CloseChecked(std::FILE* out, const char* message);

// Runs core(request, response) on "/tmp/req/<name>.req" and
// "/tmp/resp/<name>.rsp", opened the way every runner opens them
// ("Couldn't open <path>" for the one that fails; the request is closed
// again then). `short_write` is printed when the response cannot be
// completed at close.
void RunOnFiles(const char* name,
                const std::function<void(std::FILE*, std::FILE*)>& core,
                const char* short_write = kCopyError);

// Messages of one computed answer line: tag, hex value, CR LF.
struct AnswerMessages {
  const char* convert;  // the hex text does not fit the text buffer
  const char* tag;
  const char* value;
  const char* eol = kEolError;
};

enum class Match { kContains, kBegins };
enum class MarkerLine { kCopied, kKept };
enum class Direction { kEncrypt, kDecrypt };

class Session {
 public:
  Session(std::FILE* req, std::FILE* rsp, std::span<char> line)
      : req_(req), rsp_(rsp), line_(line) {}

  std::FILE* req() const { return req_; }
  std::FILE* rsp() const { return rsp_; }
  char* line() const { return line_.data(); }
  std::span<char> buffer() const { return line_; }

  // The next request line (with its CR LF) into the line buffer; false at
  // the end of the request.
  bool Next() const;
  bool Has(std::string_view tag, Match how = Match::kContains) const;

  // Copies the current line through ("Problem writing to rsp file").
  bool Copy() const { return Write(line(), kCopyError); }
  bool Write(std::string_view text, const char* message) const {
    return WriteChecked(rsp_, text, message);
  }
  bool WriteEol(const char* message = kEolError) const {
    return Write("\r\n", message);
  }
  // Writes "<tag><decimal>\r\n" with the three messages of its parts.
  bool WriteNumber(std::string_view tag, int value, const char* tag_message,
                   const char* value_message) const;

  // Copies lines through until one holds `marker`; that line is copied too
  // (kCopied) or left in the buffer uncopied (kKept). At the end of the
  // request prints `missing` and returns false.
  bool CopyUntil(std::string_view marker, const char* missing,
                 MarkerLine marker_line = MarkerLine::kCopied,
                 Match how = Match::kContains) const;

  // Reads the next line, which must hold `tag`; else prints `missing`.
  bool ReadField(std::string_view tag, const char* missing,
                 Match how = Match::kContains) const;
  // ReadField, then the value must decode to exactly `size` bytes into out;
  // else prints `refused`.
  bool ReadHex(std::string_view tag, const char* missing, const char* refused,
               uint8_t* out, std::size_t size) const;
  // The data line of a cipher vector: "PLAINTEXT = " when encrypting,
  // "CIPHERTEXT = " when decrypting, 1 to `capacity` bytes into out. A longer
  // value prints too_long[dir] with the excess (a "%d" format).
  bool ReadCipherData(Direction dir, uint8_t* out, std::size_t capacity,
                      uint32_t* len, const char* const too_long[2]) const;

  // The value of the current line, read at the tag's length from the start
  // of the line wherever the tag stands: hex decoded into out (at most
  // capacity bytes stored; the count the text encodes is returned), or a
  // decimal number parsed with strtoll: 64 bits on every host, so that a
  // number past 32 bits reads the same where long has 32 bits (armhf).
  std::size_t Hex(std::string_view tag, uint8_t* out,
                  std::size_t capacity) const;
  long long Number(std::string_view tag) const;

  // fips_tv_extract_len on the next line: the value, or nothing once it
  // has said why not.
  std::optional<int> Length(const char* tag) const;

  // Writes tag, the lower-case hex of bytes[0..len) and CR LF. The hex text
  // is built in `text` (the line buffer when none is given); when it would
  // not fit, prints m.convert and returns false.
  bool Answer(std::string_view tag, const uint8_t* bytes, int len,
              const AnswerMessages& m, std::span<char> text = {}) const;

 private:
  std::FILE* req_;
  std::FILE* rsp_;
  std::span<char> line_;
};

// Room for the hex text of N bytes and its terminator, for Answer.
template <std::size_t N>
using HexText = std::array<char, 2 * N + 1>;

// A Session with its own zero-filled line buffer of N bytes: the usual
// way a runner core starts, `const BufferedSession<1024> s(req, rsp);`.
template <std::size_t N>
struct LineBuffer {
  std::array<char, N> storage{};
};
template <std::size_t N>
class BufferedSession : private LineBuffer<N>, public Session {
 public:
  BufferedSession(std::FILE* req, std::FILE* rsp)
      : Session(req, rsp, LineBuffer<N>::storage) {}
  BufferedSession(const BufferedSession&) = delete;
  BufferedSession& operator=(const BufferedSession&) = delete;
};

// Decodes hex digit pairs from text like fips_tv_extract_from_asc, but
// stores at most `capacity` bytes. Returns the number of bytes the text
// encodes, which may exceed `capacity`: callers compare and refuse.
std::size_t DecodeHex(const char* text, uint8_t* out, std::size_t capacity);

// fips_tv_parse_key with a bounded output: the same reading, messages and
// copying, but at most `capacity` bytes are stored. Returns the number of
// bytes the value encodes (0 on failure), which may exceed `capacity`.
int ParseKeyBounded(std::FILE* request, std::FILE* response, const char* tag,
                    uint8_t* out, std::size_t capacity);

// ParseKeyBounded into a field of its own size: the byte count (0 when the
// line lacks the tag, which the reader has reported, or holds no value), or
// nothing when the value is longer than the field ("<Name> is too long: N
// bytes, at most M" printed).
std::optional<std::size_t> ParseHexField(const Session& s, const char* tag,
                                         std::span<uint8_t> field);

// The AES and TDES request shape: the header through "[ENCRYPT]" is copied;
// each line of the encrypt section up to "[DECRYPT]" goes to
// on_line(kEncrypt) (the end of the request there prints `missing_decrypt`);
// the "[DECRYPT]" line is copied and every following line goes to
// on_line(kDecrypt). on_section(dir), when given, runs as each section
// starts. A handler returns false to stop the runner.
void RunCipherSections(const Session& s, const char* missing_decrypt,
                       const std::function<bool(Direction)>& on_line,
                       const std::function<bool(Direction)>& on_section = {});

// The KDF request shape: every line is copied; a line for which
// marker(line) is not 0 starts a section (marker's value selects it) and
// header() reads the section's length lines; a "COUNT" line inside a
// section is answered by answer(). With no section in the request, prints
// "Never found starting marker".
void RunKdfSections(const Session& s, int (*marker)(const char* line),
                    const std::function<bool(int selector)>& header,
                    const std::function<bool()>& answer);

}  // namespace fipsval
