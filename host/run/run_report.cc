#include "host/run/run_report.h"

#include <array>
#include <cstdio>

namespace fipsval::host {
namespace {

constexpr std::array<std::string_view, 17> kTitles = {
    "TDES KAT",
    "TDES KAT VARTEXT",
    "TDES KAT INVPERM",
    "TDES KAT VARKEY",
    "TDES KAT PERMOP",
    "TDES KAT SUBTAB",
    "TDES MMT",
    "TDES MCT",
    "TDES MCT 1",
    "TDES MCT 2",
    "TDES MCT 3",
    "Running PKCS1 tests",
    "Running SigGen test",
    "Running SigVer test",
    "Running KeyGen tests",
    "Running KeyGen test",
    "Running KeyGen KAT test"};
constexpr std::string_view kLastTitle = "Running KeyGen RP Prime test";

bool AllDigits(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

}  // namespace

bool IsSuiteTitle(std::string_view line) {
  if (line == kLastTitle) return true;
  for (std::string_view title : kTitles) {
    if (line == title) return true;
  }
  return false;
}

bool IsProgressLine(std::string_view line, std::string_view name) {
  if (line == "ENCRYPT" || line == "DECRYPT") return true;
  if (line.starts_with("Running file ")) return line.substr(13) == name;
  if (line.starts_with("COUNT = ")) return AllDigits(line.substr(8));
  const std::size_t of = line.find(" of ");
  return of != std::string_view::npos && AllDigits(line.substr(0, of)) &&
         AllDigits(line.substr(of + 4));
}

std::string Printable(std::string_view line) {
  std::string text;
  for (unsigned char c : line) {
    if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      text += escaped;
    } else {
      text += static_cast<char>(c);
    }
  }
  return text;
}

const char* OutcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kAnswered:
      return "answered";
    case Outcome::kRunnerError:
      return "runner-error";
    case Outcome::kNotAnswered:
      break;
  }
  return "not-answered";
}

}  // namespace fipsval::host
