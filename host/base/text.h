// Small text helpers the host shares: hex digits, lines of a file, and
// text shown to a user that must stay on one line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fipsval::host {

// The value of a hex digit (either case), or -1.
int HexDigitValue(char c);

// Every character a hex digit (either case); true for "".
bool IsHexDigits(std::string_view text);

// The bytes of an even-length hex text; empty when it is not one.
std::optional<std::vector<uint8_t>> HexBytes(std::string_view hex);

// The text with control characters shown as "\xNN" (request text echoed
// by a runner may hold anything).
std::string Printable(std::string_view text);

struct Line {
  int number;  // from 1
  std::string_view text;
};

// Lines without their ending (CR LF, LF, or the CR CR LF of the key
// generation KAT files), numbered from 1; a last line without ending
// counts. NonBlankLines leaves out the empty ones.
std::vector<Line> Lines(std::string_view text);
std::vector<Line> NonBlankLines(std::string_view text);

// "line N: TEXT", the text cut after `shown` characters ("...").
std::string QuoteLine(const Line& line, std::size_t shown);

}  // namespace fipsval::host
