#include "benchmarks/consumer.h"

#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kTableSize = 10'000'000;

bool Stores(std::string_view work) {
  if (work == "store") return true;
  if (work == "carry") return false;
  throw std::runtime_error("the work must be store or carry");
}

}  // namespace

Consumer::Consumer(std::string_view work) : stores_(Stores(work)), tables_(kTableSize) {}

Consumer::Outcome Consumer::Answer(reference::HalOperation operation, std::string_view payload) {
  if (!stores_) return {};
  request_.operation = operation;
  request_.payload = payload;
  return {tables_.Apply(request_), 0, 0};
}

}  // namespace bench
