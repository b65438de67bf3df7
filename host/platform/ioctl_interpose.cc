// The library calls ioctl by name; defining it in the executable routes the
// CTR_DRBG test request to the user-space stand-in when the kernel lacks it.
#include <cstdarg>

#include "host/platform/drbg_standin.h"

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void* const arg = va_arg(args, void*);
  va_end(args);
  return fipsval::host::InterposedIoctl(fd, request, arg);
}
