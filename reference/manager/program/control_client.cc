#include "reference/manager/program/control_client.h"

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "reference/wire/socket_access.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;
using boost::asio::local::stream_protocol;

constexpr std::chrono::seconds kPatience{10};

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
  throw std::runtime_error("the manager on " + path + ": " + what +
                           "; check that zuskux-manager --stay runs and that this is its control "
                           "socket");
}

}  // namespace

Json AskManager(const std::string& path, const Json& request,
                const std::function<void(const Json& line)>& use, bool follows) {
  CheckSocketAccess(path);
  stream_protocol::iostream stream;
  stream.expires_after(kPatience);
  try {
    stream.connect(stream_protocol::endpoint(path));
  } catch (const boost::system::system_error& error) {
    // A socket address cannot hold every path.
    Fail(path, "cannot connect: " + error.code().message());
  }
  if (!stream) Fail(path, "cannot connect: " + stream.error().message());
  stream << request.dump() << '\n' << std::flush;
  // A manager that is busy answers without waiting for the request.
  stream.clear();
  std::string line;
  while (true) {
    if (follows) {
      stream.expires_at(std::chrono::steady_clock::time_point::max());
    } else {
      stream.expires_after(kPatience);
    }
    if (!std::getline(stream, line)) break;
    try {
      Json json = Json::parse(line);
      if (json.contains("exit_status")) return json;
      if (use) use(json);
    } catch (const Json::exception& error) {
      Fail(path, std::string("the answer is not from a manager: ") + error.what());
    }
  }
  const bool ended = !stream.error() || stream.error() == boost::asio::error::eof;
  Fail(path, ended ? "the answer ends early" : "no answer: " + stream.error().message());
}

}  // namespace reference
