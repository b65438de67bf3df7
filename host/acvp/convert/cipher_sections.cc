// The "[ENCRYPT]" and "[DECRYPT]" sections of the AES and TDES requests,
// and the data sizes their runners take.
#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {

void CipherSections::Add(bool encrypt_test, const Slot& slot,
                         const std::string& lines) {
  int& count = encrypt_test ? encrypt_count : decrypt_count;
  std::string& text = encrypt_test ? encrypt : decrypt;
  text += "COUNT = " + std::to_string(count++) + "\r\n" + lines + "\r\n";
  (encrypt_test ? encrypt_slots : decrypt_slots).push_back(slot);
}

void CipherSections::Finish(const std::string& section_lines,
                            RequestFile* file) const {
  file->text += "[ENCRYPT]\r\n" + section_lines + "\r\n" + encrypt +
                "[DECRYPT]\r\n" + section_lines + "\r\n" + decrypt;
  file->slots = encrypt_slots;
  file->slots.insert(file->slots.end(), decrypt_slots.begin(),
                     decrypt_slots.end());
  // A Monte Carlo test is answered by all its records.
  for (Slot& slot : file->slots) {
    slot.records = RecordsPerTest(*file->profile->shape);
  }
}

std::string BlockDataRefusal(std::size_t bytes, std::size_t block, bool monte,
                             const char* field, long long tc_id) {
  constexpr std::size_t kMaxDataBytes = 256;  // the runners' data buffers
  const bool fits = monte ? bytes == block
                          : bytes != 0 && bytes % block == 0 && bytes <= kMaxDataBytes;
  if (fits) return {};
  return "a " + std::string(field) + " of " + std::to_string(bytes) +
         " bytes (tcId " + std::to_string(tc_id) + "): the runner takes " +
         (monte ? "one " + std::to_string(block) + "-byte block"
                : "1 to " + std::to_string(kMaxDataBytes / block) + " whole blocks");
}

}  // namespace fipsval::host::acvp::internal
