// What every host operation that can fail returns: a kind that callers
// decide on, and one line for the user. Callers never look into the text.
#pragma once

#include <string>
#include <utility>

namespace fipsval::host {

enum class StatusKind {
  kOk,
  kMissing,  // the file or a directory on its way does not exist
  kRefused,  // there, but not acceptable: a link, a FIFO, too large, malformed
  kBusy,     // held by another run
  kFailed,   // the system said no: an I/O error, no memory, no space
};

class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(StatusKind kind, std::string message)
      : kind_(kind), message_(std::move(message)) {}

  bool ok() const { return kind_ == StatusKind::kOk; }
  StatusKind kind() const { return kind_; }
  const std::string& message() const { return message_; }

  // The same failure, its message put in context ("cannot read X: " + it).
  Status Prefixed(const std::string& context) const {
    return ok() ? *this : Status(kind_, context + message_);
  }

 private:
  StatusKind kind_ = StatusKind::kOk;
  std::string message_;
};

inline Status Ok() { return {}; }
inline Status Missing(std::string message) {
  return {StatusKind::kMissing, std::move(message)};
}
inline Status Refused(std::string message) {
  return {StatusKind::kRefused, std::move(message)};
}
inline Status Failed(std::string message) {
  return {StatusKind::kFailed, std::move(message)};
}

// The status of a system call that set errno: missing for ENOENT, failed
// otherwise, with the system's text.
Status FromErrno(int error);

}  // namespace fipsval::host
