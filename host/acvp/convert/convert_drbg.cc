// ctrDRBG vector sets: AES-256 with a derivation function, no prediction
// resistance, with reseed, whose inputs fit the driver's parameter block,
// become "[AES-256 use df]" sections of CTR_DRBG. The runner reads the
// returned-bits length once a file, so each length gets a file of its own.
#include <map>

#include "host/acvp/convert/conversion.h"

namespace fipsval::host::acvp::internal {
namespace {

// The parameter block: 256-bit entropy and inputs, a 128-bit nonce, up to
// 512 returned bits.
constexpr long long kEntropyBits = 256;
constexpr long long kNonceBits = 128;
constexpr long long kInputBits = 256;
constexpr long long kMaxReturnedBits = 512;

// Why the group cannot be answered, or "".
std::string GroupProblem(const Fields& g) {
  const auto mode = g.String("mode");
  const auto df = g.Bool("derFunc");
  const auto pr = g.Bool("predResistance");
  const auto reseed = g.Bool("reSeed");
  const auto entropy = g.Int("entropyInputLen");
  const auto nonce = g.Int("nonceLen");
  const auto perso = g.Int("persoStringLen");
  const auto additional = g.Int("additionalInputLen");
  const auto returned = g.Int("returnedBitsLen");
  if (g.failed()) return "";
  std::string problems;
  const auto add = [&problems](const std::string& problem) {
    problems += (problems.empty() ? "" : "; ") + problem;
  };
  if (*mode != "AES-256") add("mode \"" + *mode + "\": the driver's DRBG is AES-256");
  if (!*df) add("no derivation function: the driver's DRBG uses one");
  if (*pr) add("prediction resistance: the runner's tests have none");
  if (!*reseed) add("no reseed: the runner's tests reseed once");
  const auto sizes = [](long long bits) { return std::to_string(bits) + " bits"; };
  if (*entropy != kEntropyBits || *nonce != kNonceBits ||
      (*perso != 0 && *perso != kInputBits) ||
      (*additional != 0 && *additional != kInputBits) || *returned <= 0 ||
      *returned % 8 != 0 || *returned > kMaxReturnedBits) {
    add("entropy " + sizes(*entropy) + ", nonce " + sizes(*nonce) +
        ", personalization " + sizes(*perso) + ", additional input " +
        sizes(*additional) + ", returned " + sizes(*returned) +
        ": the driver's parameter block holds 256-bit entropy, a 128-bit "
        "nonce, empty or 256-bit other inputs and up to 512 returned bits");
  }
  return problems;
}

// The block has no lengths: an input of zeros reads as an empty one.
bool AllZero(const std::string& hex) {
  return !hex.empty() && hex.find_first_not_of('0') == std::string::npos;
}

bool CheckLength(const Fields& t, const char* name, const std::string& hex,
                 long long bits) {
  if (static_cast<long long>(hex.size()) * 4 == bits) return true;
  t.Fail(name, "does not have the group's length (" + std::to_string(bits) + " bits)");
  return false;
}

}  // namespace

void ConvertDrbg(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (!ReadGroups(prompt, &groups, &out->error)) return;
  std::map<long long, RequestFile> by_length;
  for (const Item& group : groups) {
    const Fields g(*group.json, group.place, &out->error);
    const auto type = g.String("testType");
    if (!type) return;
    if (*type != "AFT") {
      out->unanswered.push_back(
          {group.id, "testType \"" + *type + "\": the DRBG runner answers AFT only"});
      continue;
    }
    const std::string problem = GroupProblem(g);
    if (g.failed()) return;
    if (!problem.empty()) {
      out->unanswered.push_back({group.id, problem});
      continue;
    }
    const long long perso_bits = *g.Int("persoStringLen");
    const long long input_bits = *g.Int("additionalInputLen");
    const long long returned_bits = *g.Int("returnedBitsLen");
    std::vector<Item> tests;
    if (!ReadTests(group, &tests, &out->error)) return;
    std::string text =
        "[AES-256 use df]\r\n[PredictionResistance = False]\r\n"
        "[EntropyInputLen = 256]\r\n[NonceLen = 128]\r\n"
        "[PersonalizationStringLen = " + std::to_string(perso_bits) +
        "]\r\n[AdditionalInputLen = " + std::to_string(input_bits) +
        "]\r\n[ReturnedBitsLen = " + std::to_string(returned_bits) + "]\r\n\r\n";
    RequestFile& file = by_length[returned_bits];
    std::vector<Slot> slots;
    std::string unsupported;
    for (const Item& test : tests) {
      const Fields t(*test.json, test.place, &out->error);
      const auto entropy = t.Hex("entropyInput");
      const auto nonce = t.Hex("nonce");
      const auto perso = t.Hex("persoString");
      const Json* other = t.Array("otherInput");
      if (!entropy || !nonce || !perso || !other) return;
      if (!CheckLength(t, "entropyInput", *entropy, kEntropyBits) ||
          !CheckLength(t, "nonce", *nonce, kNonceBits) ||
          !CheckLength(t, "persoString", *perso, perso_bits)) {
        return;
      }
      // One reseed, then two generate calls, in that order.
      if (other->size() != 3) {
        t.Fail("otherInput", "does not hold one reSeed and two generate entries");
        return;
      }
      std::string inputs[3], reseed_entropy;
      for (std::size_t i = 0; i < 3; ++i) {
        const Fields o((*other)[i], test.place + " otherInput[" + std::to_string(i) + "]",
                       &out->error);
        const auto use = o.String("intendedUse");
        const auto input = o.Hex("additionalInput");
        const auto more_entropy = o.Hex("entropyInput");
        if (!use || !input || !more_entropy) return;
        if (*use != (i == 0 ? "reSeed" : "generate")) {
          o.Fail("intendedUse", i == 0 ? "is not \"reSeed\" (expected first)"
                                       : "is not \"generate\"");
          return;
        }
        if (!CheckLength(o, "additionalInput", *input, input_bits)) return;
        if (i == 0 && !CheckLength(o, "entropyInput", *more_entropy, kEntropyBits)) {
          return;
        }
        if (AllZero(*input)) unsupported = "an additional input of zeros";
        inputs[i] = *input;
        if (i == 0) reseed_entropy = *more_entropy;
      }
      if (AllZero(*perso)) unsupported = "a personalization string of zeros";
      if (!unsupported.empty()) {
        unsupported += " (tcId " + std::to_string(test.id) +
                       "): the driver's parameter block reads it as an empty one";
        break;
      }
      text += "COUNT = " + std::to_string(file.slots.size() + slots.size()) +
              "\r\nEntropyInput = " + *entropy + "\r\nNonce = " + *nonce +
              "\r\nPersonalizationString = " + *perso +
              "\r\nEntropyInputReseed = " + reseed_entropy +
              "\r\nAdditionalInputReseed = " + inputs[0] +
              "\r\nAdditionalInput = " + inputs[1] +
              "\r\nAdditionalInput = " + inputs[2] + "\r\n\r\n";
      slots.push_back({group.id, test.id, 1});
    }
    if (!unsupported.empty()) {
      out->unanswered.push_back({group.id, unsupported});
      continue;
    }
    if (file.text.empty()) {
      file.suite = "DRBG800-90A";
      file.dir = "DRBG800-90A";
      file.name = "CTR_DRBG";
      file.sections = {{"", {{"ReturnedBits = ", "returnedBits"}}, "ReturnedBits = "}};
      file.text = Header(prompt);
    }
    file.text += text;
    file.slots.insert(file.slots.end(), slots.begin(), slots.end());
  }
  for (auto& [bits, file] : by_length) {
    if (!file.slots.empty()) out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
