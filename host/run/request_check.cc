#include "host/run/request_check.h"

#include <array>

namespace fipsval::host {
namespace {

// Field tags whose values the runners read as hexadecimal.
// clang-format off
constexpr std::array<std::string_view, 33> kHexTags = {
    "AdditionalInput", "AdditionalInputReseed", "CIPHERTEXT", "EntropyInput",
    "EntropyInputReseed", "H", "IV", "K", "KEY", "KEY1", "KEY2", "KEY3", "KEYs",
    "Key", "Msg", "Nonce", "PLAINTEXT", "PersonalizationString", "S", "Seed",
    "seed", "clientHello_random", "client_random", "d", "e", "n", "p", "q",
    "prandom", "qrandom", "pre_master_secret", "serverHello_random",
    "server_random"};
// clang-format on
constexpr std::string_view kSessionId = "session_id";

bool IsHexTag(std::string_view tag) {
  if (tag == kSessionId) return true;
  for (std::string_view t : kHexTags) {
    if (t == tag) return true;
  }
  return false;
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') ||
         (c >= 'A' && c <= 'F');
}

// The first character of a hex field's value that is not a hex digit.
std::string CheckHexField(std::string_view line) {
  const std::size_t eq = line.find(" = ");
  if (eq == std::string_view::npos || line.starts_with("#")) return {};
  const std::string_view tag = line.substr(0, eq);
  if (!IsHexTag(tag)) return {};
  std::string_view value = line.substr(eq + 3);
  while (!value.empty() && value.back() == '\r') value.remove_suffix(1);
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!IsHexDigit(value[i])) {
      return std::string(tag) +
             " has a character that is not a hex digit at column " +
             std::to_string(eq + 4 + i);
    }
  }
  return {};
}

}  // namespace

std::vector<RequestFinding> CheckRequest(std::string_view text,
                                         std::size_t limit) {
  std::vector<RequestFinding> findings;
  auto add = [&](int line, std::string cause) {
    if (findings.size() < limit) findings.push_back({line, std::move(cause)});
  };
  int number = 0;
  std::size_t start = 0;
  while (start < text.size() && findings.size() < limit) {
    ++number;
    const std::size_t lf = text.find('\n', start);
    const bool terminated = lf != std::string_view::npos;
    std::string_view line = text.substr(
        start, terminated ? lf - start + 1 : std::string_view::npos);
    start = terminated ? lf + 1 : text.size();
    if (line.find('\0') != std::string_view::npos) {
      add(number, "NUL byte (the reader stops there)");
      break;
    }
    if (!terminated) {
      add(number, "last line does not end in CR LF");
    } else if (line.size() < 2 || line[line.size() - 2] != '\r') {
      add(number, "line ends in LF, not CR LF");
      continue;
    }
    if (std::string cause = CheckHexField(line.substr(0, line.find('\n')));
        !cause.empty()) {
      add(number, std::move(cause));
    }
  }
  return findings;
}

}  // namespace fipsval::host
