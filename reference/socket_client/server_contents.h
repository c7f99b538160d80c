#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_

#include <chrono>
#include <cstddef>
#include <string>

#include "reference/hal/hal_tables.h"
#include "wire.pb.h"

namespace reference {

/// What a HAL server holds and reports about itself.
struct ServerContents {
  wire::ServerStatus status;
  TableEntries entries;
};

/// Limits on an answer, so that one that never ends is detected.
struct ReadLimits {
  /// Table entries of all kinds. The default is more than tables of the default size can hold.
  std::size_t entries = std::size_t{1} << 24;
  /// Bytes of all frames.
  std::size_t bytes = std::size_t{1} << 30;
  /// From connecting to the last frame.
  std::chrono::milliseconds time{120'000};
  /// For each frame.
  std::chrono::milliseconds silence{10'000};
};

/// Queries the server on `path` over a separate connection and waits for the answer. `program`
/// names the caller. Throws `std::runtime_error`, with a text for the operator, if there is no
/// server, its answer is invalid or exceeds `limits`.
ServerContents ReadServerContents(const std::string& path, const std::string& program,
                                  const ReadLimits& limits = {});

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SERVER_CONTENTS_H_
