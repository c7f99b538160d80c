#ifndef ZUSKUX_BENCHMARKS_CONSUMER_H_
#define ZUSKUX_BENCHMARKS_CONSUMER_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"
#include "reference/server/request_decoder.h"

namespace bench {

/// The consumer behind another transport. Used by one thread at a time.
class Consumer {
 public:
  /// The outcome of a request, as on the HAL's own socket.
  struct Outcome {
    reference::HalReturnCode code{};
    std::uint32_t id = 0;
    std::uint32_t secondary_id = 0;
  };

  /// A consumer that `stores` decodes, checks and stores each request with the decoder and the
  /// tables of zuskux-hal. Another one only carries: it answers everything with success. Throws
  /// `std::runtime_error` unless `work` is "store" or "carry".
  explicit Consumer(std::string_view work);

  bool stores() const { return stores_; }

  /// Carries out one request.
  Outcome Answer(reference::HalOperation operation, std::string_view payload);

 private:
  const bool stores_;
  reference::RequestDecoder decoder_;
  reference::HalTables tables_;
  // A member so that its memory is reused.
  reference::HalRequest request_;
};

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CONSUMER_H_
