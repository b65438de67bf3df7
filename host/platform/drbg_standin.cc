#include "host/platform/drbg_standin.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "host/platform/ctr_drbg.h"
#include "fipsval_drbg.h"

namespace fipsval::host {
namespace {

// The block has no length fields: the runner leaves an input that the
// request gives empty all zero. An all-zero personalization string or
// additional input is therefore taken as empty (a real 256-bit input of
// zeros is not something a test request holds). Entropy inputs and the
// nonce are always used at their full field size.
CtrDrbg::Bytes Optional(std::span<const uint8_t> field) {
  const bool empty = std::all_of(field.begin(), field.end(),
                                 [](uint8_t b) { return b == 0; });
  return empty ? CtrDrbg::Bytes{} : field;
}

bool IsUrandom(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISCHR(st.st_mode) &&
         major(st.st_rdev) == 1 && minor(st.st_rdev) == 9;
}

long KernelIoctl(int fd, unsigned long request, void* arg) {
  return syscall(SYS_ioctl, fd, request, arg);
}

// What a kernel without the driver's test ioctl answers: ENOTTY or EINVAL,
// and ENOSYS under an emulator (qemu-user) that does not know the request.
bool KernelLacksTheIoctl(int kernel_errno) {
  return kernel_errno == ENOTTY || kernel_errno == EINVAL ||
         kernel_errno == ENOSYS;
}

}  // namespace

int RunDrbgStandin(void* block) {
  if (!block) {
    errno = EFAULT;
    return -1;
  }
  // Read the length word first: only a block that says it holds the whole
  // layout is read any further.
  if (fipsval_drbg_load_le32(block) != FIPSVAL_DRBG_PARAMS_FOLLOWING) {
    errno = EINVAL;
    return -1;
  }
  rbg_params p;
  std::memcpy(&p, block, sizeof p);
  // A count of 0 or below asks for no output bytes.
  const auto returned_len =
      static_cast<int32_t>(fipsval_drbg_load_le32(&p.returned_len));
  if (returned_len > static_cast<int32_t>(FIPSVAL_DRBG_RETURNED_MAX)) {
    OPENSSL_cleanse(&p, sizeof p);
    errno = EINVAL;
    return -1;
  }
  const auto len = static_cast<std::size_t>(std::max(returned_len, 0));

  CtrDrbg drbg;
  drbg.Instantiate(p.entropy, p.nonce, Optional(p.personalization));
  drbg.Reseed(p.entropy_reseed, Optional(p.additional_reseed));
  uint8_t first[FIPSVAL_DRBG_RETURNED_MAX];
  const bool ok =
      drbg.Generate(std::span(first, len), Optional(p.additional1)) &&
      drbg.Generate(std::span(p.returned, len), Optional(p.additional2));
  if (ok) {
    std::memcpy(static_cast<uint8_t*>(block) + offsetof(rbg_params, returned),
                p.returned, len);
  }
  OPENSSL_cleanse(first, sizeof first);
  OPENSSL_cleanse(&p, sizeof p);
  if (!ok) {  // not reached for lengths within the field
    errno = EINVAL;
    return -1;
  }
  return 0;
}

int InterposedIoctl(int fd, unsigned long request, void* arg) {
  const long rc = KernelIoctl(fd, request, arg);
  if (rc != -1 || request != FIPSVAL_DRBG_SET_PARAMS_IOCTL) return static_cast<int>(rc);
  const int kernel_errno = errno;
  if (!KernelLacksTheIoctl(kernel_errno) || !IsUrandom(fd)) {
    errno = kernel_errno;
    return -1;
  }
  return RunDrbgStandin(arg);
}

const char* DrbgBackendDescription() {
  const int fd = open(FIPSVAL_DRBG_DEVICE, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return "CTR_DRBG tests: /dev/urandom cannot be opened; they will fail";
  }
  rbg_params probe = {};  // asks for no bytes
  fipsval_drbg_store_le32(&probe.length, FIPSVAL_DRBG_PARAMS_FOLLOWING);
  const long rc = KernelIoctl(fd, FIPSVAL_DRBG_SET_PARAMS_IOCTL, &probe);
  const int kernel_errno = errno;
  const bool urandom = IsUrandom(fd);
  close(fd);
  if (rc == 0) {
    return "CTR_DRBG tests: answered by the kernel's random-device driver";
  }
  if (!urandom) {
    return "CTR_DRBG tests: /dev/urandom is not the kernel's random device "
           "(1:9); they will fail";
  }
  if (KernelLacksTheIoctl(kernel_errno)) {
    return "CTR_DRBG tests: the kernel does not answer the test ioctl; "
           "fipsval's user-space CTR_DRBG (AES-256, derivation function) "
           "answers it";
  }
  return "CTR_DRBG tests: the kernel refuses the test ioctl; they will fail";
}

}  // namespace fipsval::host
