#include "reference/server/fault_plan.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <optional>
#include <random>
#include <regex>
#include <string_view>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

#include "fault.pb.h"
#include "reference/text/printable.h"
#include "reference/wire/frame.h"

namespace reference {
namespace {

using fault::Fault;
using google::protobuf::FieldDescriptor;
using google::protobuf::TextFormat;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using PlanOrErrors = std::variant<std::unique_ptr<ServerFaults>, std::vector<FaultError>>;
using RequestFate = ServerFaults::RequestFate;

constexpr std::size_t kInHeader = kFrameHeaderSize / 2;
constexpr std::size_t kInBody = kFrameHeaderSize + 6;

enum class What {
  kRefuse,
  kCloseOnAccept,
  kOneByteWrites,
  kSlowReads,
  kAnswer,
  kTableFull,
  kCloseBefore,
  kCloseAfter,
  kCrashBefore,
  kCrashAfter,
  kCutInHeader,
  kCutInBody,
  kDelay,
  kReorder,
  kDuplicate,
  kSwallow,
  kStray,
  kPause,
  kStall,
};

enum class Scope { kConnection, kRequest };

struct Word {
  std::string_view word;
  What what;
  Scope scope;
  // The fields that it needs; 0 for none.
  std::array<int, 2> fields;
};

constexpr std::array kWords = {
    Word{"refuse", What::kRefuse, Scope::kConnection, {}},
    Word{"close-on-accept", What::kCloseOnAccept, Scope::kConnection, {}},
    Word{"one-byte-writes", What::kOneByteWrites, Scope::kConnection, {}},
    Word{"slow-reads", What::kSlowReads, Scope::kConnection, {Fault::kBytesPerSecondFieldNumber}},
    Word{"answer", What::kAnswer, Scope::kRequest, {Fault::kCodeFieldNumber}},
    Word{"table-full", What::kTableFull, Scope::kRequest, {Fault::kEntriesFieldNumber}},
    Word{"close-before", What::kCloseBefore, Scope::kRequest, {}},
    Word{"close-after", What::kCloseAfter, Scope::kRequest, {}},
    Word{"crash-before", What::kCrashBefore, Scope::kRequest, {}},
    Word{"crash-after", What::kCrashAfter, Scope::kRequest, {}},
    Word{"cut-in-header", What::kCutInHeader, Scope::kRequest, {}},
    Word{"cut-in-body", What::kCutInBody, Scope::kRequest, {}},
    Word{"delay", What::kDelay, Scope::kRequest, {Fault::kMsFieldNumber}},
    Word{"reorder",
         What::kReorder,
         Scope::kRequest,
         {Fault::kWindowFieldNumber, Fault::kMsFieldNumber}},
    Word{"duplicate", What::kDuplicate, Scope::kRequest, {}},
    Word{"swallow", What::kSwallow, Scope::kRequest, {}},
    Word{"stray", What::kStray, Scope::kRequest, {}},
    Word{"pause", What::kPause, Scope::kRequest, {Fault::kMsFieldNumber}},
    Word{"stall", What::kStall, Scope::kRequest, {Fault::kMsFieldNumber}},
};

// Both ends are allowed.
struct Range {
  std::int64_t first;
  std::int64_t last;
};

struct NumberField {
  int field;
  Range range;
};

constexpr std::int64_t kMaxCount = 1'000'000'000;
constexpr Range kSeeds{0, std::numeric_limits<std::uint32_t>::max()};

// They go with every fault.
constexpr std::array kCommonFields = {
    NumberField{Fault::kNthFieldNumber, {1, kMaxCount}},
    NumberField{Fault::kTimesFieldNumber, {1, kMaxCount}},
    NumberField{Fault::kOneInFieldNumber, {1, kMaxCount}},
};

// They go with those faults that need them.
constexpr std::array kOwnFields = {
    NumberField{Fault::kMsFieldNumber, {0, 600'000}},
    NumberField{Fault::kCodeFieldNumber, {0, std::numeric_limits<std::uint32_t>::max()}},
    NumberField{Fault::kEntriesFieldNumber, {0, kMaxCount}},
    NumberField{Fault::kWindowFieldNumber, {2, 65'536}},
    NumberField{Fault::kBytesPerSecondFieldNumber, {1, 1'000}},
};

// One fault of the file, and what has become of it.
struct Rule {
  Fault fault;
  What what{};
  Scope scope{};
  std::optional<HalOperation> operation;
  std::optional<HalKind> kind;
  // What it could have happened to, and what it happened to.
  std::int64_t seen = 0;
  std::int64_t fired = 0;
  // Of a reordering: when the results under way go.
  ServerFaults::Time due{};
};

class FaultPlan : public ServerFaults {
 public:
  FaultPlan(std::vector<Rule> rules, std::uint32_t seed, FaultPlanOptions options)
      : options_(std::move(options)), rules_(std::move(rules)), random_(seed) {}

  ConnectionFate OnAccept() override {
    ConnectionFate fate;
    for (Rule& rule : rules_) {
      if (rule.scope == Scope::kConnection && Fires(&rule, "a connection")) Apply(rule, &fate);
    }
    return fate;
  }

  RequestFate OnRequest(const HalRequest& request, const HalTables& tables) override {
    RequestFate fate;
    for (Rule& rule : rules_) {
      if (Matches(rule, request, tables) && Fires(&rule, OperationName(request.operation))) {
        Apply(&rule, &fate);
      }
    }
    fate.due = std::max(fate.due, paused_until_);
    return fate;
  }

  void OnBeginReinstall() override {
    reinstalling_ = true;
    for (Rule& rule : rules_) {
      if (rule.fault.in_reinstall()) rule.seen = 0;
    }
  }

  Time OnEndReinstall() override {
    reinstalling_ = false;
    return paused_until_;
  }

  void Crash() override {
    if (!options_.crash) _exit(kFaultCrashExitCode);
    options_.crash();
    reinstalling_ = false;
    paused_until_ = {};
  }

 private:
  bool Matches(const Rule& rule, const HalRequest& request, const HalTables& tables) const {
    if (rule.scope != Scope::kRequest) return false;
    if (rule.fault.in_reinstall() && !reinstalling_) return false;
    const HalKind kind = KindOf(request.operation);
    if (rule.operation.value_or(request.operation) != request.operation) return false;
    if (rule.kind.value_or(kind) != kind) return false;
    if (rule.what != What::kTableFull) return true;
    return ActionOf(request.operation) == HalAction::kInstall &&
           !tables.Contains(kind, request.id) &&
           tables.size(kind) >= static_cast<std::size_t>(rule.fault.entries());
  }

  bool Fires(Rule* rule, std::string_view subject) {
    const Fault& fault = rule->fault;
    ++rule->seen;
    if (rule->seen < fault.nth() || rule->fired >= fault.times()) return false;
    if (random_() % static_cast<std::uint64_t>(fault.one_in()) != 0) return false;
    ++rule->fired;
    if (options_.log) {
      options_.log("fault: " + fault.what() + " on " + std::string(subject) + ", " +
                   std::to_string(rule->fired) + " of " + std::to_string(fault.times()));
    }
    return true;
  }

  static void Apply(const Rule& rule, ConnectionFate* fate) {
    if (rule.what == What::kRefuse) {
      fate->entry = ConnectionFate::Entry::kRefuse;
    } else if (rule.what == What::kCloseOnAccept) {
      fate->entry = ConnectionFate::Entry::kClose;
    } else if (rule.what == What::kOneByteWrites) {
      fate->one_byte_writes = true;
    } else {
      fate->read_bytes_per_second = static_cast<std::size_t>(rule.fault.bytes_per_second());
    }
  }

  void Apply(Rule* rule, RequestFate* fate) {
    const milliseconds time(rule->fault.ms());
    switch (rule->what) {
      case What::kAnswer:
        fate->code = static_cast<HalReturnCode>(rule->fault.code());
        break;
      case What::kTableFull:
        fate->code = kHalTableFull;
        break;
      case What::kCloseBefore:
        fate->end = RequestFate::End::kCloseBefore;
        break;
      case What::kCloseAfter:
        fate->end = RequestFate::End::kCloseAfter;
        break;
      case What::kCrashBefore:
        fate->end = RequestFate::End::kCrashBefore;
        break;
      case What::kCrashAfter:
        fate->end = RequestFate::End::kCrashAfter;
        break;
      case What::kCutInHeader:
        fate->cut = kInHeader;
        break;
      case What::kCutInBody:
        fate->cut = kInBody;
        break;
      case What::kDelay:
        fate->due = steady_clock::now() + time;
        break;
      case What::kReorder:
        if ((rule->fired - 1) % rule->fault.window() == 0) rule->due = steady_clock::now() + time;
        fate->due = rule->due;
        fate->rank = static_cast<std::uint32_t>(random_());
        break;
      case What::kDuplicate:
        fate->copies = 2;
        break;
      case What::kSwallow:
        fate->copies = 0;
        break;
      case What::kStray:
        fate->stray = true;
        break;
      case What::kPause:
        paused_until_ = steady_clock::now() + time;
        break;
      case What::kStall:
        std::this_thread::sleep_for(time);
        break;
      case What::kRefuse:
      case What::kCloseOnAccept:
      case What::kOneByteWrites:
      case What::kSlowReads:
        break;
    }
  }

  const FaultPlanOptions options_;
  std::vector<Rule> rules_;
  std::mt19937_64 random_;
  bool reinstalling_ = false;
  Time paused_until_{};
};

// "a, b, c".
std::string Join(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) {
    if (!text.empty()) text += ", ";
    text += word;
  }
  return text;
}

std::string KnownWords() {
  std::vector<std::string_view> words;
  words.reserve(kWords.size());
  for (const Word& word : kWords) words.push_back(word.word);
  return Join(words);
}

// Makes the rules of a parsed file and keeps the mistakes.
class FaultReader {
 public:
  FaultReader(const fault::FaultFile& file, const TextFormat::ParseInfoTree& places)
      : file_(file), places_(places) {}

  PlanOrErrors Read(FaultPlanOptions options) {
    const std::int64_t seed = file_.has_seed() ? file_.seed() : 1;
    const FieldDescriptor* const field =
        fault::FaultFile::descriptor()->FindFieldByNumber(fault::FaultFile::kSeedFieldNumber);
    CheckRange(*field, seed, kSeeds, places_.GetLocation(field, -1));

    std::vector<Rule> rules;
    rules.reserve(static_cast<std::size_t>(file_.fault_size()));
    for (int index = 0; index < file_.fault_size(); ++index) rules.push_back(ReadRule(index));
    if (!errors_.empty()) return TakeErrors();
    return std::make_unique<FaultPlan>(std::move(rules), static_cast<std::uint32_t>(seed),
                                       std::move(options));
  }

 private:
  using Location = TextFormat::ParseLocation;

  Rule ReadRule(int index) {
    const FieldDescriptor* const faults =
        fault::FaultFile::descriptor()->FindFieldByNumber(fault::FaultFile::kFaultFieldNumber);
    place_ = places_.GetLocation(faults, index);
    fault_places_ = places_.GetTreeForNested(faults, index);

    Rule rule;
    rule.fault = file_.fault(index);
    for (const NumberField& number : kCommonFields) CheckCommon(number, &rule.fault);
    const auto* const word = std::find_if(kWords.begin(), kWords.end(), [&rule](const Word& known) {
      return known.word == rule.fault.what();
    });
    if (!rule.fault.has_what()) {
      Add(place_, "a fault has no what; add what: with one of: " + KnownWords());
    } else if (word == kWords.end()) {
      Add(PlaceOf(Fault::kWhatFieldNumber),
          "unknown what " + Quote(rule.fault.what()) + "; use one of: " + KnownWords());
    } else {
      rule.what = word->what;
      rule.scope = word->scope;
      for (const NumberField& number : kOwnFields) CheckOwn(number, *word, rule.fault);
      ReadSubject(&rule);
    }
    return rule;
  }

  void CheckCommon(const NumberField& number, Fault* fault) {
    const FieldDescriptor* const field = Field(number.field);
    const google::protobuf::Reflection* const reflection = Fault::GetReflection();
    if (!reflection->HasField(*fault, field)) {
      reflection->SetInt64(fault, field, 1);
      return;
    }
    CheckRange(*field, reflection->GetInt64(*fault, field), number.range, PlaceOf(number.field));
  }

  void CheckOwn(const NumberField& number, const Word& word, const Fault& fault) {
    const FieldDescriptor* const field = Field(number.field);
    const bool needed =
        std::find(word.fields.begin(), word.fields.end(), number.field) != word.fields.end();
    const google::protobuf::Reflection* const reflection = Fault::GetReflection();
    const bool present = reflection->HasField(fault, field);
    if (needed && !present) {
      Add(place_, "what: " + Quote(fault.what()) + " has no " + field->name() + "; add " +
                      field->name() + ": N");
    } else if (!needed && present) {
      AddUseless(number.field, fault);
    } else if (present) {
      CheckRange(*field, reflection->GetInt64(fault, field), number.range, PlaceOf(number.field));
    }
  }

  void ReadSubject(Rule* rule) {
    const Fault& fault = rule->fault;
    if (rule->scope == Scope::kConnection) {
      if (fault.has_of()) AddUseless(Fault::kOfFieldNumber, fault);
      if (fault.has_in_reinstall()) AddUseless(Fault::kInReinstallFieldNumber, fault);
      return;
    }
    if (!fault.has_of()) return;
    std::vector<std::string_view> words;
    for (std::size_t index = 0; index < kHalKinds; ++index) {
      const auto kind = static_cast<HalKind>(index);
      words.push_back(HalKindName(kind));
      if (words.back() == fault.of()) rule->kind = kind;
    }
    for (auto value = static_cast<std::uint8_t>(HalOperation::kInstallVrf);
         value <= static_cast<std::uint8_t>(HalOperation::kReplaceMpls); ++value) {
      const auto operation = static_cast<HalOperation>(value);
      words.push_back(OperationName(operation));
      if (words.back() == fault.of()) rule->operation = operation;
    }
    if (rule->kind || rule->operation) return;
    Add(PlaceOf(Fault::kOfFieldNumber),
        "unknown of " + Quote(fault.of()) + "; use one of: " + Join(words));
  }

  void CheckRange(const FieldDescriptor& field, std::int64_t value, Range range, Location place) {
    if (range.first <= value && value <= range.last) return;
    Add(place, field.name() + ' ' + std::to_string(value) + " is out of range; use " +
                   std::to_string(range.first) + " to " + std::to_string(range.last));
  }

  void AddUseless(int field, const Fault& fault) {
    Add(PlaceOf(field),
        Field(field)->name() + " does not go with what: " + Quote(fault.what()) + "; remove it");
  }

  void Add(Location place, std::string text) {
    errors_.push_back({place.line + 1, place.column + 1, std::move(text)});
  }

  // In the order of their places.
  std::vector<FaultError> TakeErrors() {
    std::stable_sort(errors_.begin(), errors_.end(), [](const FaultError& a, const FaultError& b) {
      return std::tie(a.line, a.column) < std::tie(b.line, b.column);
    });
    return std::move(errors_);
  }

  static const FieldDescriptor* Field(int number) {
    return Fault::descriptor()->FindFieldByNumber(number);
  }

  Location PlaceOf(int field) const { return fault_places_->GetLocation(Field(field), -1); }

  const fault::FaultFile& file_;
  const TextFormat::ParseInfoTree& places_;
  // Of the fault being read.
  Location place_;
  const TextFormat::ParseInfoTree* fault_places_ = nullptr;
  std::vector<FaultError> errors_;
};

// The parser's complaint with a remedy. A misspelt field is the likely one and gets the right ones.
std::string ExplainSyntaxError(std::string text) {
  static const std::regex kUnknownField(
      R"re(Message type "fault\.(\w+)" has no field named "(.*)"\.)re");
  std::smatch parts;
  if (!std::regex_match(text, parts, kUnknownField)) {
    if (!text.empty() && text.back() == '.') text.pop_back();
    return "syntax error: " + text + R"(; write faults as in fault { what: "delay" ms: 100 })";
  }
  const auto* const type = fault::FaultFile::descriptor()->file()->FindMessageTypeByName(parts[1]);
  std::vector<std::string_view> fields;
  fields.reserve(static_cast<std::size_t>(type->field_count()));
  for (int index = 0; index < type->field_count(); ++index) {
    fields.push_back(type->field(index)->name());
  }
  return (type == Fault::descriptor() ? "a fault has no field " : "a fault file has no field ") +
         Quote(parts[2].str()) + "; use one of: " + Join(fields);
}

// Keeps the first error; those after it come of the parser's attempt to go on.
class SyntaxErrors : public google::protobuf::io::ErrorCollector {
 public:
  void AddError(int line, google::protobuf::io::ColumnNumber column,
                const std::string& message) override {
    if (first_.empty()) first_.push_back({line + 1, column + 1, ExplainSyntaxError(message)});
  }

  std::vector<FaultError> Take() { return std::move(first_); }

 private:
  std::vector<FaultError> first_;
};

std::vector<FaultError> FileError(int error) {
  return {{0, 0,
           "cannot read the file: " + std::generic_category().message(error) +
               "; give the path of a readable fault file"}};
}

}  // namespace

std::string FormatFaultError(const std::string& file, const FaultError& error) {
  std::string text = file + ':';
  for (const int number : {error.line, error.column}) {
    if (number != 0) text += std::to_string(number) + ':';
  }
  return Printable(text + ' ' + error.text);
}

PlanOrErrors ParseFaultPlan(const std::string& text, FaultPlanOptions options) {
  fault::FaultFile file;
  SyntaxErrors syntax_errors;
  TextFormat::ParseInfoTree places;
  TextFormat::Parser parser;
  parser.RecordErrorsTo(&syntax_errors);
  parser.WriteLocationsTo(&places);
  if (!parser.ParseFromString(text, &file)) return syntax_errors.Take();
  return FaultReader(file, places).Read(std::move(options));
}

PlanOrErrors ReadFaultFile(const std::string& path, FaultPlanOptions options) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             &std::fclose);
  if (file == nullptr) return FileError(errno);
  std::string text;
  std::array<char, 4096> block{};
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    text.append(block.data(), size);
  }
  if (std::ferror(file.get()) != 0) return FileError(errno);
  return ParseFaultPlan(text, std::move(options));
}

}  // namespace reference
