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

// A test's three other inputs: one reseed, then two generate calls, in
// that order.
struct OtherInputs {
  std::string additional[3];
  std::string reseed_entropy;
  std::string refusal;  // an additional input of zeros
};

std::optional<OtherInputs> ReadOtherInputs(const Fields& t, const Item& test,
                                           const Json* other,
                                           long long input_bits,
                                           Status* status) {
  if (other->size() != 3) {
    t.Fail("otherInput", "does not hold one reSeed and two generate entries");
    return std::nullopt;
  }
  OtherInputs inputs;
  for (std::size_t i = 0; i < 3; ++i) {
    const Fields o((*other)[i],
                   test.place + " otherInput[" + std::to_string(i) + "]", status);
    const auto use = o.String("intendedUse");
    const auto input = o.Hex("additionalInput");
    const auto more_entropy = o.Hex("entropyInput");
    if (!use || !input || !more_entropy) return std::nullopt;
    if (*use != (i == 0 ? "reSeed" : "generate")) {
      o.Fail("intendedUse", i == 0 ? "is not \"reSeed\" (expected first)"
                                   : "is not \"generate\"");
      return std::nullopt;
    }
    if (!CheckLength(o, "additionalInput", *input, input_bits) ||
        (i == 0 && !CheckLength(o, "entropyInput", *more_entropy, kEntropyBits))) {
      return std::nullopt;
    }
    if (AllZero(*input)) inputs.refusal = "an additional input of zeros";
    inputs.additional[i] = *input;
    if (i == 0) inputs.reseed_entropy = *more_entropy;
  }
  return inputs;
}

// A test's lines after its COUNT line.
std::optional<TestInput> ReadTest(const Item& test, long long perso_bits,
                                  long long input_bits, Status* status) {
  const Fields t(*test.json, test.place, status);
  const auto entropy = t.Hex("entropyInput");
  const auto nonce = t.Hex("nonce");
  const auto perso = t.Hex("persoString");
  const Json* other_inputs = t.Array("otherInput");
  if (!entropy || !nonce || !perso || !other_inputs) return std::nullopt;
  if (!CheckLength(t, "entropyInput", *entropy, kEntropyBits) ||
      !CheckLength(t, "nonce", *nonce, kNonceBits) ||
      !CheckLength(t, "persoString", *perso, perso_bits)) {
    return std::nullopt;
  }
  const std::optional<OtherInputs> other =
      ReadOtherInputs(t, test, other_inputs, input_bits, status);
  if (!other) return std::nullopt;
  std::string refusal = other->refusal;
  if (AllZero(*perso)) refusal = "a personalization string of zeros";
  if (!refusal.empty()) {
    return TestInput{"", refusal + TcId(test) +
                             ": the driver's parameter block reads it as an "
                             "empty one"};
  }
  return TestInput{"\r\nEntropyInput = " + *entropy + "\r\nNonce = " + *nonce +
                       "\r\nPersonalizationString = " + *perso +
                       "\r\nEntropyInputReseed = " + other->reseed_entropy +
                       "\r\nAdditionalInputReseed = " + other->additional[0] +
                       "\r\nAdditionalInput = " + other->additional[1] +
                       "\r\nAdditionalInput = " + other->additional[2] +
                       "\r\n\r\n",
                   ""};
}

std::string SectionLines(long long perso_bits, long long input_bits,
                         long long returned_bits) {
  return "[AES-256 use df]\r\n[PredictionResistance = False]\r\n"
         "[EntropyInputLen = 256]\r\n[NonceLen = 128]\r\n"
         "[PersonalizationStringLen = " + std::to_string(perso_bits) +
         "]\r\n[AdditionalInputLen = " + std::to_string(input_bits) +
         "]\r\n[ReturnedBitsLen = " + std::to_string(returned_bits) +
         "]\r\n\r\n";
}

// One group into the file of its returned length.
GroupFate ConvertGroup(const Json& prompt, const Item& group,
                       std::map<long long, RequestFile>& by_length,
                       Conversion* out) {
  const Fields g(*group.json, group.place, &out->status);
  const auto type = g.String("testType");
  if (!type) return GroupFate::kBad;
  if (*type != "AFT") {
    return Unanswered(
        group, "testType \"" + *type + "\": the DRBG runner answers AFT only",
        out);
  }
  const std::string problem = GroupProblem(g);
  if (g.failed()) return GroupFate::kBad;
  if (!problem.empty()) return Unanswered(group, problem, out);
  const long long perso_bits = *g.Int("persoStringLen");
  const long long input_bits = *g.Int("additionalInputLen");
  const long long returned_bits = *g.Int("returnedBitsLen");
  const auto inputs = ReadInputs(group, &out->status, [&](const Item& test) {
    return ReadTest(test, perso_bits, input_bits, &out->status);
  });
  if (!inputs) return GroupFate::kBad;
  if (!inputs->refusal.empty()) return Unanswered(group, inputs->refusal, out);
  RequestFile& file = by_length[returned_bits];
  if (!file.profile) {
    out->status = NewRequestFile(prompt, GroupOf(prompt, "AFT"), &file);
    if (!out->status.ok()) return GroupFate::kBad;
  }
  file.text += SectionLines(perso_bits, input_bits, returned_bits);
  for (std::size_t i = 0; i < inputs->tests.size(); ++i) {
    file.text += "COUNT = " + std::to_string(file.slots.size()) + inputs->lines[i];
    file.slots.push_back({group.id, inputs->tests[i].id, 1});
  }
  return GroupFate::kAnswerable;
}

}  // namespace

void ConvertDrbg(const Json& prompt, Conversion* out) {
  std::vector<Item> groups;
  if (out->status = ReadGroups(prompt, &groups); !out->status.ok()) return;
  std::map<long long, RequestFile> by_length;
  for (const Item& group : groups) {
    if (ConvertGroup(prompt, group, by_length, out) == GroupFate::kBad) return;
  }
  for (auto& [bits, file] : by_length) {
    if (!file.slots.empty()) out->files.push_back(std::move(file));
  }
}

}  // namespace fipsval::host::acvp::internal
