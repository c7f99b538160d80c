#ifndef ZUSKUX_REFERENCE_SERVER_FAULT_FILE_H_
#define ZUSKUX_REFERENCE_SERVER_FAULT_FILE_H_

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "reference/server/fault_plan.h"
#include "reference/server/server_faults.h"
#include "reference/text/diagnostics.h"

namespace reference {

/// The faults of a file, or its mistakes in file order.
using FaultsOrMistakes = std::variant<std::unique_ptr<ServerFaults>, std::vector<Diagnostic>>;

/// Parses the text of a fault file, whose grammar is in fault.proto. Stops at a syntax error.
FaultsOrMistakes ParseFaultFile(const std::string& text, FaultPlanOptions options);

/// Reads a fault file. An unreadable file is a single mistake.
FaultsOrMistakes ReadFaultFile(const std::string& path, FaultPlanOptions options);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_FAULT_FILE_H_
