#include "reference/manager/program/chosen_hal.h"

#include <utility>

#include "reference/manager/program/command_line.h"
#include "reference/manager/program/standard_error.h"
#include "reference/socket_client/server_contents.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/hal_name.h"
#include "reference/wire/socket_access.h"

namespace reference {
HalChoice MakeHalChoice(const CommandLine& line) {
  return {line.hal_socket, line.table_size, line.deadline, LogLine, line.take_over};
}

ChosenHal::ChosenHal(const HalChoice& choice)
    : socket_(choice.socket), name_(socket_ ? UnixHalName(*socket_) : std::string(kEmbeddedHal)) {
  if (socket_) {
    CheckSocketAccess(*socket_);
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

TableEntries ChosenHal::ReadTables() const {
  if (embedded_ != nullptr) return embedded_->SnapshotTables().Entries();
  return ReadServerContents(*socket_, "zuskux-manager").entries;
}

}  // namespace reference
