#include "reference/manager/program/chosen_hal.h"

#include <stdexcept>
#include <thread>
#include <utility>

#include "reference/manager/program/command_line.h"
#include "reference/manager/program/standard_error.h"
#include "reference/socket_client/server_contents.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/hal_name.h"

namespace reference {
namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::milliseconds kPause{1};

}  // namespace

HalChoice MakeHalChoice(const CommandLine& line) {
  return {line.hal_socket, line.table_size, line.deadline, LogLine, line.take_over};
}

ChosenHal::ChosenHal(const HalChoice& choice)
    : socket_(choice.socket), name_(socket_ ? UnixHalName(*socket_) : std::string(kEmbeddedHal)) {
  if (socket_) {
    SocketHalOptions options;
    options.path = *socket_;
    options.deadline = choice.deadline;
    options.log = choice.log;
    options.program = "zuskux-manager " ZUSKUX_VERSION;
    options.take_over = choice.take_over;
    options.other_writer = choice.other_writer;
    connection_ = std::make_unique<SocketHal>(std::move(options));
    return;
  }
  EmbeddedHalOptions options;
  options.table_capacity = choice.table_size;
  auto embedded = std::make_unique<EmbeddedHal>(options);
  embedded_ = embedded.get();
  connection_ = std::move(embedded);
}

void ChosenHal::AwaitEnd() const {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (connection_->counters().unfinished != 0) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("the HAL " + name_ +
                               " does not carry out what was sent; look for "
                               "what holds it up with zuskux-hal tables, and start again");
    }
    std::this_thread::sleep_for(kPause);
  }
}

TableEntries ChosenHal::ReadTables() const {
  if (embedded_ != nullptr) return embedded_->SnapshotTables().Entries();
  return ReadServerContents(*socket_, "zuskux-manager").entries;
}

}  // namespace reference
