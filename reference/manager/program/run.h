#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_

#include <vector>

#include "reference/site/site.h"

namespace reference {

struct CommandLine;

/// Runs a manager with its HAL on the calling thread until everything is settled or a signal ends
/// it, and shows the final state of the objects. `sites` are those of the command line, in order.
/// Returns the exit status. Throws `std::exception`, with a text for the operator, on failure.
int RunManager(const CommandLine& line, std::vector<Site> sites);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_
