#include "reference/record/show.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

#include "interface_ids/interface_table.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/record/wrapped_message.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

constexpr const char* kToHal = " ===> ";
constexpr const char* kFromHal = " <=== ";
constexpr const char* kBeside = " ---- ";

std::string NineDigits(std::uint64_t nanoseconds) {
  std::ostringstream text;
  text << std::setw(9) << std::setfill('0') << nanoseconds % kNanosecondsPerSecond;
  return text.str();
}

std::string TimeOfDay(std::uint64_t ns_since_epoch) {
  const auto seconds = static_cast<std::time_t>(ns_since_epoch / kNanosecondsPerSecond);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::ostringstream text;
  text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%S.") << NineDigits(ns_since_epoch) << 'Z';
  return text.str();
}

std::string Named(std::uint64_t number, HalOperation operation) {
  return '#' + std::to_string(number) + ' ' + std::string(OperationName(operation));
}

std::string Line(const record::Interface& interface) {
  return kBeside + ("interface lim_id=" + std::to_string(interface.lim_id())) +
         " name=" + interface.name() + " type=" + std::to_string(interface.type()) +
         " ifindex=" + std::to_string(interface.ifindex());
}

std::string Line(const record::Result& result) {
  const auto operation = static_cast<HalOperation>(result.operation());
  std::string line =
      kFromHal + Named(result.number(), operation) + " id=" + std::to_string(result.id());
  if (KindOf(operation) == HalKind::kMpls) {
    line += " secondary_id=" + std::to_string(result.secondary_id());
  }
  return line + " code=" + std::to_string(result.code()) + ' ' +
         OutcomeText(HalReturnCode{result.code()}, result.reason());
}

std::string Line(const record::ObjectState& state) {
  const std::string kind = state.kind() < kHalKinds
                               ? std::string(HalKindName(static_cast<HalKind>(state.kind())))
                               : "kind " + std::to_string(state.kind());
  return kFromHal + ("object-state " + kind) + " id=" + std::to_string(state.id()) +
         " code=" + std::to_string(state.code()) + ' ' +
         OutcomeText(HalReturnCode{state.code()}, state.reason());
}

std::string MessageText(const RecordedSchema& schema, const record::Request& request) {
  if (request.omitted_payload_bytes() != 0) {
    return "(a message of " + std::to_string(request.omitted_payload_bytes()) +
           " bytes, too long to be recorded)";
  }
  const HalKind kind = KindOf(static_cast<HalOperation>(request.operation()));
  if (schema.IsUnderstood(kind, request.payload())) {
    const WrappedMessage wrapped = WrapMessage(kind, request.payload());
    if (wrapped.message != nullptr) {
      return Render(wrapped,
                    request.has_wrapper() ? std::optional(request.wrapper()) : std::nullopt);
    }
  }
  return schema.Text(kind, request.payload());
}

std::string Line(const RecordedSchema& schema, const record::Request& request) {
  return kToHal + Named(request.number(), static_cast<HalOperation>(request.operation())) + ' ' +
         MessageText(schema, request);
}

std::string Line(const RecordedSchema& schema, const record::Entry& entry) {
  switch (entry.what_case()) {
    case record::Entry::kRequest:
      return Line(schema, entry.request());
    case record::Entry::kResult:
      return Line(entry.result());
    case record::Entry::kBeginReinstall:
      return std::string(kToHal) + "begin-reinstall";
    case record::Entry::kEndReinstall:
      return std::string(kToHal) + "end-reinstall";
    case record::Entry::kServerFound:
      return std::string(kFromHal) + "server-found";
    case record::Entry::kEvent:
      return kBeside + entry.event().line();
    case record::Entry::kInterface:
      return Line(entry.interface());
    case record::Entry::kObjectState:
      return Line(entry.object_state());
    case record::Entry::WHAT_NOT_SET:
      break;
  }
  return {};
}

void Print(const std::string& line, std::ostream* out) { *out << Printable(line) << '\n'; }

void Define(const record::Interface& interface) {
  interface_ids::InterfaceTable::Global().Set(
      interface.lim_id(),
      {interface.name(), static_cast<std::uint8_t>(interface.type()), interface.ifindex()});
}

}  // namespace

void ShowRecording(RecordingReader* recording, std::ostream* out) {
  const record::Header& header = recording->header();
  Print("recorded by " + header.program() + " from " + TimeOfDay(header.start_time_ns()), out);
  record::Entry entry;
  while (recording->Next(&entry)) {
    if (entry.has_interface()) Define(entry.interface());
    Print(std::to_string(entry.time_ns() / kNanosecondsPerSecond) + '.' +
              NineDigits(entry.time_ns()) + Line(recording->schema(), entry),
          out);
  }
}

}  // namespace reference
