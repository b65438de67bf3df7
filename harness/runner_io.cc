#include "harness/runner_io.h"

#include <cstdio>

namespace fipsval {

bool RunnerFiles::Open(const char* name) {
  char path[256];
  std::snprintf(path, sizeof path, "%s/%s.req", kRequestDir, name);
  req_.reset(std::fopen(path, "r"));
  if (!req_) {
    std::printf("Couldn't open %s\n", path);
    return false;
  }
  std::snprintf(path, sizeof path, "%s/%s.rsp", kResponseDir, name);
  rsp_.reset(std::fopen(path, "w"));
  if (!rsp_) {
    std::printf("Couldn't open %s\n", path);
    req_.reset();
    return false;
  }
  return true;
}

bool WriteChecked(std::FILE* out, std::string_view text, const char* message) {
  if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) {
    Fail(message);
    return false;
  }
  return true;
}

bool RunnerFiles::Write(std::string_view text, const char* message) const {
  return WriteChecked(rsp_.get(), text, message);
}

bool WriteAnswer(const RunnerFiles& files, std::string_view tag,
                 const uint8_t* bytes, int len, char* text,
                 std::size_t text_size, const AnswerMessages& m) {
  if (len > 0 && static_cast<std::size_t>(len) * 2 + 1 > text_size) {
    Fail(m.convert);
    return false;
  }
  if (!fips_tv_convert_to_asc(bytes, len, text)) {
    Fail(m.convert);
    return false;
  }
  return files.Write(tag, m.tag) && files.Write(text, m.value) &&
         files.WriteEol(m.eol);
}

}  // namespace fipsval
