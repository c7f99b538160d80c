#include "reference/server/fault_file.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "fault.pb.h"
#include "reference/text/printable.h"
#include "reference/text/text_file.h"

namespace reference {
namespace {

using fault::Fault;
using google::protobuf::FieldDescriptor;

constexpr TextFileKind kFaultFile = {"fault file",
                                     R"(write faults as in fault { what: "delay" ms: 100 })"};

struct Word {
  std::string_view word;
  FaultEffect effect;
  FaultScope scope;
  // The fields that the fault needs; 0 for none.
  std::array<int, 2> fields;
};

constexpr std::array kWords = {
    Word{"refuse", FaultEffect::kRefuse, FaultScope::kConnection, {}},
    Word{"close-on-accept", FaultEffect::kCloseOnAccept, FaultScope::kConnection, {}},
    Word{"one-byte-writes", FaultEffect::kOneByteWrites, FaultScope::kConnection, {}},
    Word{"slow-reads",
         FaultEffect::kSlowReads,
         FaultScope::kConnection,
         {Fault::kBytesPerSecondFieldNumber}},
    Word{"answer", FaultEffect::kAnswer, FaultScope::kRequest, {Fault::kCodeFieldNumber}},
    Word{"table-full", FaultEffect::kTableFull, FaultScope::kRequest, {Fault::kEntriesFieldNumber}},
    Word{"close-before", FaultEffect::kCloseBefore, FaultScope::kRequest, {}},
    Word{"close-after", FaultEffect::kCloseAfter, FaultScope::kRequest, {}},
    Word{"crash-before", FaultEffect::kCrashBefore, FaultScope::kRequest, {}},
    Word{"crash-after", FaultEffect::kCrashAfter, FaultScope::kRequest, {}},
    Word{"cut-in-header", FaultEffect::kCutInHeader, FaultScope::kRequest, {}},
    Word{"cut-in-body", FaultEffect::kCutInBody, FaultScope::kRequest, {}},
    Word{"delay", FaultEffect::kDelay, FaultScope::kRequest, {Fault::kMsFieldNumber}},
    Word{"reorder",
         FaultEffect::kReorder,
         FaultScope::kRequest,
         {Fault::kWindowFieldNumber, Fault::kMsFieldNumber}},
    Word{"duplicate", FaultEffect::kDuplicate, FaultScope::kRequest, {}},
    Word{"swallow", FaultEffect::kSwallow, FaultScope::kRequest, {}},
    Word{"stray", FaultEffect::kStray, FaultScope::kRequest, {}},
    Word{"pause", FaultEffect::kPause, FaultScope::kRequest, {Fault::kMsFieldNumber}},
    Word{"stall", FaultEffect::kStall, FaultScope::kRequest, {Fault::kMsFieldNumber}},
    Word{"object-state",
         FaultEffect::kObjectState,
         FaultScope::kRequest,
         {Fault::kCodeFieldNumber, Fault::kMsFieldNumber}},
};

struct NumberField {
  int field;
  Range range;
  std::int64_t FaultRule::*value;
};

constexpr std::int64_t kMaxCount = 1'000'000'000;
constexpr Range kUint32;

// Every fault may have these.
constexpr std::array kCommonFields = {
    NumberField{Fault::kNthFieldNumber, {1, kMaxCount}, &FaultRule::nth},
    NumberField{Fault::kTimesFieldNumber, {1, kMaxCount}, &FaultRule::times},
    NumberField{Fault::kOneInFieldNumber, {1, kMaxCount}, &FaultRule::one_in},
};

// Only the faults that need these may have them.
constexpr std::array kOwnFields = {
    NumberField{Fault::kMsFieldNumber, {0, 600'000}, &FaultRule::ms},
    NumberField{Fault::kCodeFieldNumber, kUint32, &FaultRule::code},
    NumberField{Fault::kEntriesFieldNumber, {0, kMaxCount}, &FaultRule::entries},
    NumberField{Fault::kWindowFieldNumber, {2, 65'536}, &FaultRule::window},
    NumberField{Fault::kBytesPerSecondFieldNumber, {1, 1'000}, &FaultRule::bytes_per_second},
};

std::string KnownWords() {
  std::vector<std::string_view> words;
  words.reserve(kWords.size());
  for (const Word& word : kWords) words.push_back(word.word);
  return Join(words);
}

const Word* FindWord(std::string_view text) {
  const auto* const found = std::find_if(kWords.begin(), kWords.end(),
                                         [text](const Word& known) { return known.word == text; });
  return found == kWords.end() ? nullptr : found;
}

const FieldDescriptor* FaultField(int number) {
  return Fault::descriptor()->FindFieldByNumber(number);
}

// Makes the rule for one fault and collects its mistakes.
class RuleReader {
 public:
  // `places` are those of the fault, which is at `place`.
  RuleReader(const Fault& fault, Place place, const FieldPlaces& places, Diagnostics* mistakes)
      : fault_(fault), place_(place), places_(places), mistakes_(mistakes) {}

  FaultRule Read() {
    for (const NumberField& number : kCommonFields) ReadIfPresent(number);
    const Word* const word = FindWord(fault_.what());
    if (!fault_.has_what()) {
      mistakes_->Add(place_, "a fault has no what; add what: with one of: " + KnownWords());
    } else if (word == nullptr) {
      mistakes_->Add(PlaceOfField(Fault::kWhatFieldNumber),
                     "unknown what " + Quote(fault_.what()) + "; use one of: " + KnownWords());
    } else {
      rule_.what = word->word;
      rule_.effect = word->effect;
      rule_.scope = word->scope;
      for (const NumberField& number : kOwnFields) ReadOwn(number, *word);
      ReadSubject();
    }
    return rule_;
  }

 private:
  bool Has(int field) const { return Fault::GetReflection()->HasField(fault_, FaultField(field)); }

  Place PlaceOfField(int field) const { return PlaceOf(places_, *FaultField(field)); }

  void ReadIfPresent(const NumberField& number) {
    if (!Has(number.field)) return;
    const FieldDescriptor* const field = FaultField(number.field);
    const std::int64_t value = Fault::GetReflection()->GetInt64(fault_, field);
    mistakes_->CheckRange(PlaceOfField(number.field), field->name(), value, number.range);
    rule_.*number.value = value;
  }

  void ReadOwn(const NumberField& number, const Word& word) {
    const bool needed =
        std::find(word.fields.begin(), word.fields.end(), number.field) != word.fields.end();
    if (!needed) return RefuseField(number.field);
    if (Has(number.field)) return ReadIfPresent(number);
    const std::string& name = FaultField(number.field)->name();
    mistakes_->Add(place_,
                   "what: " + Quote(word.word) + " has no " + name + "; add " + name + ": N");
  }

  void RefuseField(int field) {
    if (!Has(field)) return;
    mistakes_->Add(PlaceOfField(field), FaultField(field)->name() + " does not apply to what: " +
                                            Quote(fault_.what()) + "; remove it");
  }

  void ReadSubject() {
    if (rule_.scope == FaultScope::kConnection) {
      RefuseField(Fault::kOfFieldNumber);
      RefuseField(Fault::kInReinstallFieldNumber);
      return;
    }
    rule_.in_reinstall = fault_.in_reinstall();
    if (!fault_.has_of()) return;
    std::vector<std::string_view> words;
    for (const HalKind kind : kAllHalKinds) {
      words.push_back(HalKindName(kind));
      if (words.back() == fault_.of()) rule_.kind = kind;
    }
    for (const OperationTraits& operation : kAllHalOperations) {
      words.push_back(operation.name);
      if (words.back() == fault_.of()) rule_.operation = operation.operation;
    }
    if (rule_.kind || rule_.operation) return;
    mistakes_->Add(PlaceOfField(Fault::kOfFieldNumber),
                   "unknown of " + Quote(fault_.of()) + "; use one of: " + Join(words));
  }

  const Fault& fault_;
  const Place place_;
  const FieldPlaces& places_;
  Diagnostics* const mistakes_;
  FaultRule rule_;
};

}  // namespace

FaultsOrMistakes ParseFaultFile(const std::string& text, FaultPlanOptions options) {
  fault::FaultFile file;
  FieldPlaces places;
  std::vector<Diagnostic> syntax_errors = ParseTextFile(text, kFaultFile, &file, &places);
  if (!syntax_errors.empty()) return syntax_errors;

  Diagnostics mistakes;
  const auto* const schema = fault::FaultFile::descriptor();
  const std::int64_t seed = file.has_seed() ? file.seed() : 1;
  const auto& seed_field = *schema->FindFieldByNumber(fault::FaultFile::kSeedFieldNumber);
  mistakes.CheckRange(PlaceOf(places, seed_field), seed_field.name(), seed, kUint32);

  const auto& fault_field = *schema->FindFieldByNumber(fault::FaultFile::kFaultFieldNumber);
  std::vector<FaultRule> rules;
  rules.reserve(static_cast<std::size_t>(file.fault_size()));
  for (int index = 0; index < file.fault_size(); ++index) {
    rules.push_back(RuleReader(file.fault(index), PlaceOf(places, fault_field, index),
                               *places.GetTreeForNested(&fault_field, index), &mistakes)
                        .Read());
  }
  if (!mistakes.empty()) return mistakes.Take();
  return MakeFaultPlan(rules, static_cast<std::uint32_t>(seed), std::move(options));
}

FaultsOrMistakes ReadFaultFile(const std::string& path, FaultPlanOptions options) {
  auto text = ReadTextFile(path, kFaultFile);
  if (auto* const mistake = std::get_if<Diagnostic>(&text)) return std::vector{std::move(*mistake)};
  return ParseFaultFile(std::get<std::string>(text), std::move(options));
}

}  // namespace reference
