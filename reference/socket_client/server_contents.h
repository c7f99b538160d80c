#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_

#include <chrono>
#include <cstddef>
#include <string>

#include "reference/hal/hal_tables.h"
#include "wire.pb.h"

namespace reference {

/// What a HAL server holds and says about itself.
struct ServerContents {
  wire::ServerStatus status;
  TableEntries entries;
};

/// How much a server may answer before it counts as one that never ends.
struct ReadLimits {
  /// Table entries of all kinds. The default is more than tables of the default size hold.
  std::size_t entries = std::size_t{1} << 24;
  /// Bytes of all frames.
  std::size_t bytes = std::size_t{1} << 30;
  /// From the connection to the last frame.
  std::chrono::milliseconds time{120'000};
  /// For each frame.
  std::chrono::milliseconds silence{10'000};
};

/// Asks the server on `path`, in a connection of its own, and waits for the answer. `program` is
/// who asks. Throws `std::runtime_error`, with a text for the operator, when there is no server, it
/// does not answer as it should, or its answer exceeds `limits`.
ServerContents ReadServerContents(const std::string& path, const std::string& program,
                                  const ReadLimits& limits = {});

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
