#ifndef ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_
#define ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_

#include <iosfwd>
#include <map>
#include <string>
#include <utility>

#include "reference/hal/hal_request.h"
#include "wire.pb.h"

namespace reference {

/// What a HAL server holds and says about itself.
struct ServerContents {
  wire::ServerStatus status;
  /// Serialised messages.
  std::map<std::pair<HalKind, std::uint32_t>, std::string> entries;
};

/// Asks the server on `path`. Throws `std::runtime_error`, with a text for the operator, when there
/// is none or it does not answer as it should.
ServerContents ReadServerContents(const std::string& path);

/// One line for the server, one for the tables, then one for each entry, by kind and id.
void PrintAsText(const ServerContents& contents, std::ostream& out);

/// The same as one JSON object.
void PrintAsJson(const ServerContents& contents, std::ostream& out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_TABLES_COMMAND_H_
