#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_

#include <string>

#include "reference/hal/hal_tables.h"
#include "wire.pb.h"

namespace reference {

/// What a HAL server holds and says about itself.
struct ServerContents {
  wire::ServerStatus status;
  TableEntries entries;
};

/// Asks the server on `path`, in a connection of its own, which waits for each answer. `program` is
/// who asks. Throws `std::runtime_error`, with a text for the operator, when there is no server or
/// it does not answer as it should.
ServerContents ReadServerContents(const std::string& path, const std::string& program);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
