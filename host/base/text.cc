#include "host/base/text.h"

#include <cstdio>

namespace fipsval::host {

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsHexDigits(std::string_view text) {
  for (const char c : text) {
    if (HexDigitValue(c) < 0) return false;
  }
  return true;
}

std::optional<std::vector<uint8_t>> HexBytes(std::string_view hex) {
  if (hex.size() % 2 != 0 || !IsHexDigits(hex)) return std::nullopt;
  std::vector<uint8_t> bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(HexDigitValue(hex[2 * i]) * 16 +
                                    HexDigitValue(hex[2 * i + 1]));
  }
  return bytes;
}

std::string Printable(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (u < 0x20 || u == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", u);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out;
}

std::vector<Line> Lines(std::string_view text) {
  std::vector<Line> lines;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t lf = text.find('\n');
    std::string_view line = text.substr(0, lf);
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back({number, line});
    if (lf == std::string_view::npos) break;
    text.remove_prefix(lf + 1);
  }
  return lines;
}

std::vector<Line> NonBlankLines(std::string_view text) {
  std::vector<Line> lines = Lines(text);
  std::erase_if(lines, [](const Line& line) { return line.text.empty(); });
  return lines;
}

std::string QuoteLine(const Line& line, std::size_t shown) {
  std::string text(line.text.substr(0, shown));
  if (line.text.size() > shown) text += "...";
  return "line " + std::to_string(line.number) + ": " + text;
}

}  // namespace fipsval::host
