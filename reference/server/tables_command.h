#ifndef ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_
#define ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_

#include <iosfwd>

#include "reference/server/kernel_check.h"
#include "reference/socket_client/server_contents.h"

namespace reference {

/// Prints one line for the server, one for the tables, then one for each entry, by kind and id. If
/// `kernel`, of the same contents, is not null, another line names its kernel objects.
void PrintAsText(const ServerContents& contents, const KernelComparison* kernel, std::ostream& out);

/// Prints the same as one JSON object.
void PrintAsJson(const ServerContents& contents, const KernelComparison* kernel, std::ostream& out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_
