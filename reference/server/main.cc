// zuskux-hal: the HAL server. With "tables", shows what a running one holds.

#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/program_options.hpp>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "reference/log/log_sink.h"
#include "reference/record/recorder.h"
#include "reference/server/fault_file.h"
#include "reference/server/hal_pages.h"
#include "reference/server/hal_server.h"
#include "reference/server/kernel_check.h"
#include "reference/server/linux_data_plane.h"
#include "reference/server/tables_command.h"
#include "reference/site/site_reader.h"
#include "reference/socket_client/server_contents.h"
#include "reference/support/service_manager.h"
#include "reference/text/hex.h"
#include "reference/text/protobuf_log.h"
#include "reference/web/http_server.h"
#include "reference/wire/socket_access.h"
#include "reference/wire/unix_listener.h"

namespace {

namespace po = boost::program_options;
using reference::HalServer;
using reference::HalServerOptions;
using reference::HttpAddress;
using reference::LogLevel;
using reference::LogSink;
using reference::ServerFaults;

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;
constexpr int kDifference = 3;

constexpr std::int64_t kMaxTableSize = std::int64_t{1} << 32;
// A year.
constexpr std::int64_t kMaxKeep = 31'536'000;
constexpr std::int64_t kMaxAudit = 86'400;
constexpr std::int64_t kMaxPayload = std::int64_t{64} << 20;

constexpr const char* kUsage =
    "Usage: zuskux-hal [options]\n"
    "       zuskux-hal tables [--socket PATH] [--json | --check]\n"
    "                  [--interfaces SITE [--netns NAME]]\n"
    "A HAL server on a Unix socket; with \"tables\", shows what a running one holds.\n\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

po::options_description Options() {
  const HalServerOptions defaults;
  const auto table_size = static_cast<std::int64_t>(defaults.table_capacity);
  const auto max_payload = static_cast<std::int64_t>(defaults.max_payload);
  po::options_description options("Options");
  // The numbers are parsed as wide signed values, so that -1 does not become a huge number.
  options.add_options()                                                             //
      ("socket", po::value<std::string>()->value_name("PATH"),                      //
       "the server's socket (default: zuskux/hal.sock\nunder $XDG_RUNTIME_DIR, "    //
       "else /tmp/zuskux-UID/hal.sock)")                                            //
      ("table-size",                                                                //
       po::value<std::int64_t>()->value_name("N")->default_value(table_size),       //
       "maximum number of entries in each table")                                   //
      ("max-payload",                                                               //
       po::value<std::int64_t>()->value_name("BYTES")->default_value(max_payload),  //
       "longest payload of a request")                                              //
      ("keep", po::value<std::int64_t>()->value_name("SECONDS"),                    //
       "how long tables stay without a manager (forever)")                          //
      ("fault", po::value<std::string>()->value_name("FILE"),                       //
       "inject the faults in the file")                                             //
      ("record", po::value<std::string>()->value_name("FILE"),                      //
       "record all requests and results")                                           //
      ("data-plane", po::value<std::string>()->value_name("linux"),                 //
       "program the Linux kernel too")                                              //
      ("interfaces", po::value<std::string>()->value_name("SITE"),                  //
       "the site file that names the interfaces")                                   //
      ("netns", po::value<std::string>()->value_name("NAME"),                       //
       "program this network namespace")                                            //
      ("print", "print ip commands instead of changing the kernel")                 //
      ("audit", po::value<std::int64_t>()->value_name("SECONDS"),                   //
       "how often to compare the kernel (60; 0: never)")                            //
      ("http", po::value<std::string>()->value_name("ADDRESS"),                     //
       "serve tables and metrics there, such as\n127.0.0.1:8081 or unix:PATH")      //
      ("http-allow-remote", "let other machines read them")                         //
      ("quiet", "do not log connections")                                           //
      ("json", "with tables: as JSON")                                              //
      ("check", "with tables: compare with the kernel")                             //
      ("help,h", "show this help and exit")                                         //
      ("version", "show the version and exit");
  return options;
}

po::variables_map ParseCommandLine(int argc, char** argv) {
  namespace style = po::command_line_style;
  po::options_description options = Options();
  options.add_options()("command", po::value<std::vector<std::string>>());
  po::positional_options_description positions;
  positions.add("command", -1);
  po::variables_map values;
  po::store(po::command_line_parser(argc, argv)
                .options(options)
                .positional(positions)
                .style(style::unix_style & ~style::allow_guessing)
                .run(),
            values);
  return values;
}

bool IsTablesCommand(const po::variables_map& values) {
  if (values.count("command") == 0) return false;
  const auto& words = values["command"].as<std::vector<std::string>>();
  if (words[0] != "tables") {
    throw UsageError("unknown command \"" + words[0] + "\"; use tables, or none for the server");
  }
  if (words.size() > 1) throw UsageError("tables does not take \"" + words[1] + '"');
  return true;
}

// Rejects options of the other command.
void CheckOptions(const po::variables_map& values, bool tables_command) {
  const std::vector<std::string> wrong =
      tables_command
          ? std::vector<std::string>{"table-size",       "max-payload", "fault", "record", "quiet",
                                     "data-plane",       "print",       "audit", "keep",   "http",
                                     "http-allow-remote"}
          : std::vector<std::string>{"json", "check"};
  for (const std::string& option : wrong) {
    if (values.count(option) == 0 || values[option].defaulted()) continue;
    throw UsageError("--" + option +
                     (tables_command ? " cannot be combined with tables" : " needs tables"));
  }
}

void CheckTablesOptions(const po::variables_map& values) {
  const bool check = values.count("check") != 0;
  for (const char* const option : {"check", "netns"}) {
    if (values.count(option) != 0 && values.count("interfaces") == 0) {
      throw UsageError(std::string("--") + option + " needs --interfaces SITE");
    }
  }
  if (check && values.count("json") != 0) {
    throw UsageError("--json cannot be combined with --check");
  }
}

void CheckDataPlaneOptions(const po::variables_map& values) {
  const bool data_plane = values.count("data-plane") != 0;
  for (const char* const option : {"interfaces", "netns", "print", "audit"}) {
    if (!data_plane && values.count(option) != 0) {
      throw UsageError(std::string("--") + option + " needs --data-plane linux");
    }
  }
  if (!data_plane) return;
  const auto& name = values["data-plane"].as<std::string>();
  if (name != "linux") throw UsageError("--data-plane \"" + name + "\" is unknown; use linux");
  if (values.count("interfaces") == 0) throw UsageError("--data-plane needs --interfaces SITE");
  if (values.count("fault") != 0) throw UsageError("--fault cannot be combined with --data-plane");
  if (values.count("print") != 0 && values.count("netns") != 0) {
    throw UsageError(
        "--netns cannot be combined with --print; run it in the namespace: ip netns exec NAME "
        "zuskux-hal ...");
  }
}

std::size_t ReadNumber(const po::variables_map& values, const std::string& option,
                       std::int64_t last, std::int64_t first = 1) {
  const auto value = values[option].as<std::int64_t>();
  if (value < first || value > last) {
    throw UsageError("--" + option + ' ' + std::to_string(value) + " is out of range; use " +
                     std::to_string(first) + " to " + std::to_string(last));
  }
  return static_cast<std::size_t>(value);
}

std::string SocketPath(const po::variables_map& values) {
  return values.count("socket") != 0 ? values["socket"].as<std::string>()
                                     : reference::DefaultSocketPath("hal.sock");
}

LogSink& Log() {
  static LogSink sink("zuskux-hal");
  return sink;
}

void Say(LogLevel level, const std::string& line) { Log().Write(level, line); }

void SayError(const std::string& line) { Say(LogLevel::kError, line); }

// Null without --fault. Nothing if the file has mistakes, which have been reported by then.
std::optional<std::unique_ptr<ServerFaults>> ReadFaults(const po::variables_map& values) {
  if (values.count("fault") == 0) return std::unique_ptr<ServerFaults>();
  const auto& path = values["fault"].as<std::string>();
  auto faults = reference::ReadFaultFile(path, {Say, [] {
                                                  Log().Flush();
                                                  _exit(reference::kFaultCrashExitCode);
                                                }});
  if (auto* const plan = std::get_if<std::unique_ptr<ServerFaults>>(&faults)) {
    return std::move(*plan);
  }
  for (const auto& error : std::get<std::vector<reference::Diagnostic>>(faults)) {
    SayError(FormatDiagnostic(path, error));
  }
  return std::nullopt;
}

// Nothing if the file has mistakes, which have been reported by then.
std::optional<reference::InterfaceNames> ReadInterfaces(const std::string& path) {
  const auto site = reference::ReadSiteFile(path);
  if (const auto* const errors = std::get_if<std::vector<reference::Diagnostic>>(&site)) {
    for (const auto& error : *errors) SayError(FormatDiagnostic(path, error));
    return std::nullopt;
  }
  reference::InterfaceNames names;
  for (const auto& interface : std::get<reference::Site>(site).interfaces) {
    names[interface.lim_id] = interface.name;
  }
  return names;
}

std::string NetworkNamespace(const po::variables_map& values) {
  return values.count("netns") != 0 ? values["netns"].as<std::string>() : "";
}

std::unique_ptr<reference::DataPlane> MakeDataPlane(const po::variables_map& values,
                                                    const reference::InterfaceNames& interfaces) {
  if (values.count("print") != 0) {
    return reference::MakePrintingDataPlane(interfaces, &std::cout);
  }
  return reference::MakeLinuxDataPlane(interfaces, NetworkNamespace(values), Say);
}

// Where to serve the tables over HTTP; nothing without --http.
std::optional<HttpAddress> ReadHttp(const po::variables_map& values) {
  const bool allow_remote = values.count("http-allow-remote") != 0;
  if (values.count("http") == 0) {
    if (allow_remote) throw UsageError("--http-allow-remote needs --http");
    return std::nullopt;
  }
  try {
    return reference::ParseHttpAddress(values["http"].as<std::string>(), allow_remote);
  } catch (const std::runtime_error& error) {
    throw UsageError(error.what());
  }
}

int Serve(const HalServerOptions& options, const std::optional<HttpAddress>& http,
          const reference::InterfaceNames& interfaces) {
  boost::asio::io_context io(1);
  boost::asio::signal_set signals(io, SIGINT, SIGTERM);
  std::optional<HalServer> server(std::in_place, &io, options);
  std::optional<reference::HalPages> pages;
  std::optional<reference::HttpServer> http_server;
  if (http) {
    pages.emplace(&*server, options, interfaces);
    reference::HttpServerOptions http_options;
    http_options.address = *http;
    http_options.post_to_program = [&io](std::function<void()> function) {
      boost::asio::post(io, std::move(function));
    };
    http_server.emplace(std::move(http_options), &*pages);
  }
  Say(LogLevel::kInfo,
      "listening on " + options.path + ", generation " + reference::Hex(server->generation()));
  if (http) {
    Say(http->local ? LogLevel::kInfo : LogLevel::kWarning, ListeningText(http_server->address()));
  }
  const reference::ServiceManager service(&io);
  service.Ready();
  signals.async_wait([&server, &io](const boost::system::error_code&, int) {
    server.reset();
    io.stop();
  });
  io.run();
  return 0;
}

int ShowTables(const po::variables_map& values) {
  std::optional<reference::InterfaceNames> interfaces;
  if (values.count("interfaces") != 0) {
    interfaces = ReadInterfaces(values["interfaces"].as<std::string>());
    if (!interfaces) return kBadUsage;
  }
  const std::string socket = SocketPath(values);
  reference::CheckSocketAccess(socket);
  const auto contents = reference::ReadServerContents(socket, "zuskux-hal tables");
  std::optional<reference::KernelComparison> kernel;
  if (interfaces) {
    if (!contents.status.has_data_plane_writes()) {
      throw std::runtime_error("the server on " + SocketPath(values) +
                               " does not program the kernel; leave out --interfaces");
    }
    kernel = reference::CompareWithKernel(contents, *interfaces, NetworkNamespace(values));
  }
  bool agrees = true;
  if (values.count("check") != 0) {
    agrees = reference::PrintCheck(*kernel, &std::cout);
  } else if (values.count("json") != 0) {
    PrintAsJson(contents, kernel ? &*kernel : nullptr, std::cout);
  } else {
    PrintAsText(contents, kernel ? &*kernel : nullptr, std::cout);
  }
  if (!std::cout.flush()) throw std::runtime_error("cannot write to standard output");
  return agrees ? 0 : kDifference;
}

int Run(const po::variables_map& values) {
  if (values.count("help") != 0) {
    std::cout << kUsage << Options()
              << "\nExit status: 0 done, 1 an error, 2 wrong usage or mistakes in a file,\n"
                 "3 the kernel differs from the tables.\n";
    return 0;
  }
  if (values.count("version") != 0) {
    std::cout << "zuskux-hal " ZUSKUX_VERSION "\n";
    return 0;
  }
  const bool tables_command = IsTablesCommand(values);
  CheckOptions(values, tables_command);
  if (tables_command) {
    CheckTablesOptions(values);
    return ShowTables(values);
  }
  CheckDataPlaneOptions(values);

  HalServerOptions options;
  options.path = SocketPath(values);
  options.table_capacity = ReadNumber(values, "table-size", kMaxTableSize);
  options.max_payload = ReadNumber(values, "max-payload", kMaxPayload);
  const auto http = ReadHttp(values);
  if (values.count("quiet") == 0) options.log = Say;
  const auto faults = ReadFaults(values);
  if (!faults) return kBadUsage;
  options.faults = faults->get();
  std::optional<reference::InterfaceNames> interfaces;
  if (values.count("data-plane") != 0) {
    interfaces = ReadInterfaces(values["interfaces"].as<std::string>());
    if (!interfaces) return kBadUsage;
  }
  if (values.count("keep") != 0) {
    options.keep = std::chrono::seconds(ReadNumber(values, "keep", kMaxKeep));
  }
  if (values.count("audit") != 0) {
    options.audit = std::chrono::seconds(ReadNumber(values, "audit", kMaxAudit, 0));
  }
  std::optional<reference::Recorder> recorder;
  if (values.count("record") != 0) {
    recorder.emplace(values["record"].as<std::string>(), "zuskux-hal " ZUSKUX_VERSION, Say);
    options.observer = &*recorder;
  }
  reference::IgnoreWriteSignals();
  Log().ShowTimes();
  std::unique_ptr<reference::DataPlane> data_plane;
  if (interfaces) data_plane = MakeDataPlane(values, *interfaces);
  options.data_plane = data_plane.get();
  return Serve(options, http, interfaces.value_or(reference::InterfaceNames()));
}

}  // namespace

int main(int argc, char** argv) {
  // The server, not the parser, reports what a client sends.
  reference::SilenceProtobufLog();
  try {
    return Run(ParseCommandLine(argc, argv));
  } catch (const UsageError& error) {
    SayError(std::string(error.what()) + "; see --help");
    return kBadUsage;
  } catch (const po::error& error) {
    SayError(std::string(error.what()) + "; see --help");
    return kBadUsage;
  } catch (const std::exception& error) {
    SayError(error.what());
    return kFailed;
  }
}
