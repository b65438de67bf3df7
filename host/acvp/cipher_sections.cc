// The "[ENCRYPT]" and "[DECRYPT]" sections of the AES and TDES requests.
#include "host/acvp/conversion.h"

namespace fipsval::host::acvp::internal {

void CipherSections::Add(bool encrypt_test, const Slot& slot,
                         const std::string& lines) {
  int& count = encrypt_test ? encrypt_count : decrypt_count;
  std::string& text = encrypt_test ? encrypt : decrypt;
  text += "COUNT = " + std::to_string(count++) + "\r\n" + lines + "\r\n";
  (encrypt_test ? encrypt_slots : decrypt_slots).push_back(slot);
}

void CipherSections::Finish(const std::string& header,
                            const std::string& section_lines,
                            RequestFile* file) const {
  file->text = header + "[ENCRYPT]\r\n" + section_lines + "\r\n" + encrypt +
               "[DECRYPT]\r\n" + section_lines + "\r\n" + decrypt;
  file->slots = encrypt_slots;
  file->slots.insert(file->slots.end(), decrypt_slots.begin(),
                     decrypt_slots.end());
}

}  // namespace fipsval::host::acvp::internal
