// A user-space stand-in for the random-device driver's CTR_DRBG test
// ioctl, for machines whose kernel does not answer it, and the ioctl
// interposer that routes the library's call to it.
#pragma once

namespace fipsval::host {

// Runs the CTR_DRBG test that `block` (an rbg_params) describes, as the
// driver would: instantiate with the entropy input, nonce and
// personalization string; reseed with the reseed entropy input and its
// additional input; generate twice, with the first and second additional
// inputs; store the second call's output, returned_len bytes, in the
// returned field. Returns 0, or -1 with errno set: EFAULT for a null block,
// EINVAL for a block whose first word is not 276 or whose returned length
// is above 64 (nothing else of such a block is read). A returned length of
// 0 or below asks for no bytes.
int RunDrbgStandin(void* block);

// ioctl for the host program: every call goes to the kernel; only the
// CTR_DRBG test request on a descriptor of /dev/urandom (character device
// 1:9) that the kernel does not answer (ENOTTY, EINVAL, or ENOSYS under
// an emulator) is answered by RunDrbgStandin instead. Returns what ioctl
// returns, errno included.
int InterposedIoctl(int fd, unsigned long request, void* arg);

// One line for the help text: who answers the CTR_DRBG tests on this
// machine, the kernel or the stand-in. Asks the kernel with a test that
// returns no bytes.
const char* DrbgBackendDescription();

}  // namespace fipsval::host
