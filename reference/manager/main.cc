// zuskux-manager: the reference destination manager.

#include <unistd.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "reference/hal/embedded_hal.h"
#include "reference/manager/command_line.h"
#include "reference/manager/explain.h"
#include "reference/manager/graph.h"
#include "reference/manager/hal_dump.h"
#include "reference/manager/log_setup.h"
#include "reference/manager/manager.h"
#include "reference/manager/progress.h"
#include "reference/manager/report.h"
#include "reference/site/site_reader.h"

namespace reference {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitIncomplete = 3;
constexpr std::chrono::milliseconds kProgressInterval{100};

void Say(const std::string& text) { std::cerr << "zuskux-manager: " << text << std::endl; }

bool OnTerminal() { return isatty(STDERR_FILENO) != 0; }

std::size_t ObjectsOf(const Site& site) {
  return site.vrfs.size() + site.vlans.size() + site.hosts.size() + site.mpls.size() +
         site.ecmps.size();
}

// Nothing after every mistake has been shown.
std::optional<Site> ReadSite(const std::string& path) {
  const Progress progress("reading " + path, &std::cerr, OnTerminal());
  auto result = ReadSiteFile(path);
  if (auto* const site = std::get_if<Site>(&result)) return std::move(*site);
  for (const SiteError& error : std::get<std::vector<SiteError>>(result)) {
    std::cerr << FormatSiteError(path, error) << '\n';
  }
  return std::nullopt;
}

int Check(const std::string& path) {
  const auto site = ReadSite(path);
  if (!site) return kExitFailed;
  const std::size_t objects = ObjectsOf(*site);
  std::cout << path << ": " << objects << (objects == 1 ? " object\n" : " objects\n");
  return EXIT_SUCCESS;
}

std::string Seconds(std::chrono::steady_clock::duration time) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(3)
       << std::chrono::duration_cast<std::chrono::duration<double>>(time).count() << " s";
  return text.str();
}

EmbeddedHalOptions HalOptions(const CommandLine& line) {
  EmbeddedHalOptions options;
  options.table_capacity = line.table_size;
  return options;
}

/// One run of the manager with its HAL, on the calling thread.
class Run {
 public:
  /// `sites` are those of the command line, in their order.
  Run(const CommandLine& line, std::vector<Site> sites)
      : line_(line),
        sites_(std::move(sites)),
        manager_(&io_, {[this] { Settled(); }, [this] { Reinstalling(); },
                        [this](std::size_t objects, auto time) { Reinstalled(objects, time); },
                        [this](std::uint64_t results) { GotResult(results); }}),
        hal_(std::make_unique<EmbeddedHal>(HalOptions(line))) {}

  /// Returns the exit status.
  int Execute() {
    if (line_.stay) CatchSignals();
    ApplyNext();
    manager_.Start(hal_.get());
    io_.run();
    progress_.reset();
    return Finish();
  }

 private:
  void ApplyNext() {
    Apply(sites_[applied_]);
    // Its objects are in the database now.
    sites_[applied_++] = Site();
  }

  void Apply(const Site& site) {
    ShowProgress("installing");
    manager_.Apply(site);
    UpdateProgress();
  }

  void Settled() {
    // The HAL that is in place is the one before the restart.
    if (restarting_) return;
    HideProgress();
    if (applied_ < sites_.size()) {
      ApplyNext();
    } else if (line_.stay) {
      Say("settled: " + Summary(manager_.database()).text());
    } else {
      io_.stop();
    }
  }

  void Reinstalling() {
    restarting_ = false;
    if (reinstalls_++ == 0) return;
    ShowProgress("reinstalling");
    UpdateProgress();
  }

  void Reinstalled(std::size_t objects, std::chrono::steady_clock::duration time) const {
    // The first one is the start.
    if (reinstalls_ == 1) return;
    Say("reinstall finished: " + std::to_string(objects) + " objects in " + Seconds(time));
  }

  void GotResult(std::uint64_t results) {
    if (results == line_.restart_hal_after) Restart();
  }

  void Restart() {
    Say("restarting the HAL");
    restarting_ = true;
    hal_->Restart();
  }

  void ShowProgress(const char* what) {
    progress_.emplace(what, &std::cerr, OnTerminal());
    progress_total_ = 0;
  }

  void UpdateProgress() {
    // A reinstall may add to what there was to do.
    progress_total_ = std::max(progress_total_, manager_.remaining());
    progress_->Set(progress_total_ - manager_.remaining(), progress_total_);
    progress_timer_.expires_after(kProgressInterval);
    progress_timer_.async_wait([this](const boost::system::error_code& error) {
      if (!error && progress_) UpdateProgress();
    });
  }

  void HideProgress() {
    progress_.reset();
    progress_timer_.cancel();
  }

  void CatchSignals() {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) signals_.add(signal);
    WaitForSignal();
  }

  void WaitForSignal() {
    signals_.async_wait([this](const boost::system::error_code& error, int signal) {
      if (error) return;
      if (signal == SIGHUP) {
        ReadAgain();
      } else if (signal == SIGUSR1) {
        Restart();
      } else {
        io_.stop();
        return;
      }
      WaitForSignal();
    });
  }

  void ReadAgain() {
    const std::string& path = line_.sites[applied_ - 1];
    if (const auto site = ReadSite(path)) {
      Say("applying " + path);
      Apply(*site);
    } else {
      Say("keeping the site as it was; correct " + path + " and send SIGHUP again");
    }
  }

  int Finish() {
    const DestDatabase& database = manager_.database();
    if (line_.dump_hal) Dump();
    if (line_.graph) WriteGraph(database, *line_.graph);
    if (line_.explain) {
      const auto text = Explain(database, *line_.explain);
      if (!text) {
        Say("there is no " + KeyText(*line_.explain) + "; the table without --explain lists all");
        return kExitUsage;
      }
      std::cout << *text;
    } else if (line_.json) {
      WriteJson(database, &std::cout);
    } else {
      WriteTable(database, &std::cout);
    }
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
    return Summary(database).complete() ? EXIT_SUCCESS : kExitIncomplete;
  }

  void Dump() {
    WaitUntilApplied(hal_.get());
    const HalTables tables = hal_->SnapshotTables();
    if (*line_.dump_hal == "-") {
      DumpTables(tables, &std::cout);
      return;
    }
    std::ofstream file(*line_.dump_hal);
    DumpTables(tables, &file);
    file.close();
    if (!file) throw std::runtime_error("cannot write " + *line_.dump_hal);
  }

  const CommandLine& line_;
  std::vector<Site> sites_;
  std::size_t applied_ = 0;
  std::size_t reinstalls_ = 0;
  bool restarting_ = false;

  boost::asio::io_context io_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      io_.get_executor()};
  boost::asio::signal_set signals_{io_};
  boost::asio::steady_timer progress_timer_{io_};
  std::optional<Progress> progress_;
  std::size_t progress_total_ = 0;
  Manager manager_;
  // Ends before the manager.
  std::unique_ptr<EmbeddedHal> hal_;
};

int RunManager(const CommandLine& line) {
  std::vector<Site> sites;
  bool readable = true;
  for (const std::string& path : line.sites) {
    auto site = ReadSite(path);
    if (site) {
      sites.push_back(std::move(*site));
    } else {
      readable = false;
    }
  }
  if (!readable) return kExitFailed;
  if (line.log_config) {
    StartConfiguredLogging(*line.log_config);
  } else {
    StartLogging(line.trace);
  }
  return Run(line, std::move(sites)).Execute();
}

int Main(const std::vector<std::string>& arguments) {
  try {
    const CommandLine line = ParseCommandLine(arguments);
    if (line.help) {
      std::cout << HelpText();
      return EXIT_SUCCESS;
    }
    if (line.version) {
      std::cout << "zuskux-manager " ZUSKUX_VERSION "\n";
      return EXIT_SUCCESS;
    }
    return line.check ? Check(*line.check) : RunManager(line);
  } catch (const UsageError& error) {
    Say(error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    Say(error.what());
    return kExitFailed;
  }
}

}  // namespace
}  // namespace reference

int main(int argc, char** argv) { return reference::Main({argv + 1, argv + argc}); }
