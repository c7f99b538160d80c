#include "reference/manager/program/run.h"

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "reference/hal/message_fields.h"
#include "reference/manager/engine/manager.h"
#include "reference/manager/program/chosen_hal.h"
#include "reference/manager/program/command_line.h"
#include "reference/manager/program/control_requests.h"
#include "reference/manager/program/control_server.h"
#include "reference/manager/program/event_feed.h"
#include "reference/manager/program/exit_status.h"
#include "reference/manager/program/read_site.h"
#include "reference/manager/program/removal_limit.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/explain.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/graph_file.h"
#include "reference/manager/views/progress.h"
#include "reference/manager/views/report.h"
#include "reference/manager/views/status.h"
#include "reference/manager/web/manager_pages.h"
#include "reference/record/recorder.h"
#include "reference/support/service_manager.h"
#include "reference/text/hex.h"
#include "reference/text/local_time.h"
#include "reference/text/output_file.h"
#include "reference/web/http_server.h"

namespace reference {
namespace {

constexpr std::chrono::milliseconds kProgressInterval{100};
constexpr std::chrono::seconds kServerPatience{5};
constexpr std::chrono::milliseconds kServerCheckInterval{100};

std::string Seconds(std::chrono::steady_clock::duration time) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(3)
       << std::chrono::duration_cast<std::chrono::duration<double>>(time).count() << " s";
  return text.str();
}

std::string AbsolutePath(const std::string& path) {
  return std::filesystem::absolute(path).string();
}

std::vector<std::string> AbsolutePaths(std::vector<std::string> paths) {
  for (std::string& path : paths) path = AbsolutePath(path);
  return paths;
}

/// One run of the manager with its HAL, on the calling thread.
class Run {
 public:
  /// `sites` are those of the command line, in order.
  Run(const CommandLine& line, std::vector<Site> sites)
      : line_(line),
        sites_(std::move(sites)),
        manager_(&io_, {[this] { Finished(); }, [this] { Reinstalling(); },
                        [this](std::size_t objects, auto time) { Reinstalled(objects, time); },
                        [this](std::uint64_t results) { GotResult(results); },
                        [this](bool up) { ConnectionChanged(up); },
                        [this](bool in_sync) { ReinstallEnded(in_sync); },
                        [this](const Object& object) { StandingChanged(object); },
                        [this](const std::string& differences, bool reinstalls) {
                          Audited(differences, reinstalls);
                        }}),
        hal_(Choice()) {
    head_.connection_since = LocalTime();
    head_.started = head_.connection_changed = std::chrono::system_clock::now();
    if (line.graph) graph_.emplace(*line.graph);
    if (line.dump_hal && *line.dump_hal != "-") dump_.emplace(*line.dump_hal);
    if (!line.record) return;
    recorder_.emplace(*line.record, "zuskux-manager " ZUSKUX_VERSION, LogLine);
    hal_.connection()->Observe(&*recorder_);
  }

  /// Returns the exit status.
  int Execute() {
    if (line_.stay) {
      CatchSignals();
      StartControlServer();
      if (line_.http) StartHttpServer();
      service_.Ready();
    } else {
      EndWithoutServer();
    }
    ApplyFirst();
    // The other manager must not end for a site that is refused.
    if (line_.take_over) static_cast<void>(CheckStaleEntries());
    manager_.Start(hal_.connection());
    AuditLater();
    io_.run();
    progress_.reset();
    control_server_.reset();
    http_server_.reset();
    if (!other_writer_) return Finish();
    LogLine(LogLevel::kError, "another client programs the HAL " + hal_.name() +
                                  "; stop that one, or start with --take-over");
    return kExitOtherWriter;
  }

 private:
  HalChoice Choice() {
    HalChoice choice = MakeHalChoice(line_);
    if (line_.stand_by) return choice;
    choice.other_writer = [this] {
      boost::asio::post(io_, [this] {
        other_writer_ = true;
        io_.stop();
      });
    };
    return choice;
  }

  void StartControlServer() {
    try {
      control_server_.emplace(&io_, line_.control, [this](const std::string& request) {
        return control_requests_.AnswerTo(request);
      });
    } catch (const boost::system::system_error& error) {
      if (error.code() != boost::system::errc::address_in_use) throw;
      throw std::runtime_error("the control socket " + line_.control +
                               " is in use, probably by another manager; stop that one, or add "
                               "--control PATH with another path");
    }
  }

  void StartHttpServer() {
    pages_.emplace(WatchedManager{&manager_, hal_.connection(), [this] { return Head(); },
                                  [this]() -> const InterfaceNames& { return interfaces_; }});
    HttpServerOptions options;
    options.address = *line_.http;
    options.post_to_program = [this](std::function<void()> function) {
      boost::asio::post(io_, std::move(function));
    };
    http_server_.emplace(std::move(options), &*pages_);
    LogLine(line_.http->local ? LogLevel::kInfo : LogLevel::kWarning,
            ListeningText(http_server_->address()));
  }

  void StandingChanged(const Object& object) {
    events_.Add(object);
    if (pages_) pages_->Changed(object);
  }

  // An event for those who follow.
  void Happened(const std::string& text) {
    events_.Add(text);
    if (pages_) pages_->Happened(text);
  }

  void ApplyFirst() {
    Apply(CompareNext());
    ++applied_;
  }

  // Applies the next site of the command line; false if there is none, or if it is refused.
  bool ApplyNext() {
    if (applied_ == sites_.size()) return false;
    SiteDifference difference = CompareNext();
    const auto refusal =
        RefusalOf(difference, line_.sites[applied_], line_.max_removals, "start with");
    if (refusal) {
      LogLine(LogLevel::kError, *refusal);
      refused_ = true;
      sites_.resize(applied_);
      return false;
    }
    Apply(std::move(difference));
    ++applied_;
    return true;
  }

  // Moves the site, because a large one should not be in memory twice.
  SiteDifference CompareNext() { return manager_.database().Compare(std::move(sites_[applied_])); }

  // The reason why the site of the file must not replace the current one; nothing if it may.
  std::optional<std::string> RefusalOf(const SiteDifference& difference, const std::string& path,
                                       std::optional<std::size_t> max_removals,
                                       const std::string& remedy) const {
    const SiteRemovals removals = NamedRemovals(difference);
    const auto reason = TooManyRemovals(removals, "objects", max_removals);
    if (!reason) return std::nullopt;
    return path + " is refused: it " + *reason + "; the current site stays; correct the file, or " +
           remedy + " --max-removals " + std::to_string(removals.removed);
  }

  // Ends the run if the first site would remove too much of what the server holds from before this
  // run. Without the server's tables, does nothing and returns why they cannot be read.
  std::optional<std::string> CheckStaleEntries() {
    TableEntries entries;
    try {
      entries = hal_.ReadTables();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    const SiteRemovals removals = StaleEntries(entries, manager_.database());
    const auto reason =
        TooManyRemovals(removals, "entries of the HAL " + hal_.name(), line_.max_removals);
    if (!reason) return std::nullopt;
    throw std::runtime_error(line_.sites.front() + " is refused: it " + *reason +
                             "; the HAL stays as it is; correct the file, or start with "
                             "--max-removals " +
                             std::to_string(removals.removed));
  }

  void Apply(SiteDifference difference) {
    if (recorder_) RecordInterfaces(difference.changed.interfaces);
    interfaces_.clear();
    for (const SiteInterface& interface : difference.changed.interfaces) {
      interfaces_[interface.lim_id] = interface.name;
    }
    ShowProgress("installing");
    manager_.Apply(std::move(difference));
    UpdateProgress();
  }

  void RecordInterfaces(const std::vector<SiteInterface>& interfaces) {
    for (const SiteInterface& interface : interfaces) {
      recorder_->Interface(interface.lim_id, interface.name, interface.type, interface.ifindex);
    }
  }

  // Only a manager that stays keeps waiting for a server.
  void EndWithoutServer() {
    const HalConnectionCounters counters = hal_.connection()->counters();
    // Counts checks instead of time: while this thread is busy, it does not check for the server.
    checks_without_server_ = counters.connected ? 0 : checks_without_server_ + 1;
    if (checks_without_server_ > kServerPatience / kServerCheckInterval) {
      if (counters.servers_found == 0) {
        throw std::runtime_error("no HAL server was found at " + hal_.name() +
                                 "; start one with zuskux-hal --socket " + HalSocket());
      }
      throw std::runtime_error(
          "the HAL server at " + hal_.name() + " was lost half-way and did not come back within " +
          std::to_string(kServerPatience.count()) + " s; start it again with zuskux-hal --socket " +
          HalSocket() + ", then run this again");
    }
    server_timer_.expires_after(kServerCheckInterval);
    server_timer_.async_wait([this](const boost::system::error_code& error) {
      if (!error) EndWithoutServer();
    });
  }

  // The file of the current site.
  const std::string& SitePath() const { return site_paths_[applied_ == 0 ? 0 : applied_ - 1]; }

  StatusHead Head() const {
    StatusHead head = head_;
    head.site = SitePath();
    head.hal = hal_.name();
    head.uptime = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start_);
    if (head.reinstall.started) {
      const std::size_t total = manager_.reinstalled_objects();
      head.reinstall.total = total;
      head.reinstall.done = total - std::min(total, manager_.remaining());
    }
    return head;
  }

  // If a server is reported as found again because the tables differ, the connection has not
  // changed.
  void ConnectionChanged(bool up) {
    const FoundServer server = hal_.connection()->server();
    if (up == connection_up_ && server.generation == server_.generation) return;
    connection_up_ = up;
    server_ = server;
    head_.connection_since = LocalTime();
    head_.connection_changed = std::chrono::system_clock::now();
    if (!up) head_.reinstall.started.reset();
    Happened(up ? "connected to HAL server " + server.name + ", generation " +
                      Hex(server.generation)
                : "HAL server lost");
  }

  std::string HalSocket() const { return line_.hal_socket ? AbsolutePath(*line_.hal_socket) : ""; }

  void ReinstallEnded(bool in_sync) {
    if (in_sync) {
      head_.last_in_sync = LocalTime();
      head_.in_sync_at = std::chrono::system_clock::now();
    }
    Happened(in_sync ? "in sync" : "NOT in sync");
  }

  void AuditLater() {
    if (line_.audit == std::chrono::seconds(0)) return;
    audit_timer_.expires_after(line_.audit);
    audit_timer_.async_wait([this](const boost::system::error_code& error) {
      if (error) return;
      manager_.Audit();
      AuditLater();
    });
  }

  void Audited(const std::string& differences, bool reinstalls) {
    head_.last_audit = LocalTime();
    if (differences.empty()) return;
    head_.last_difference = head_.last_audit;
    head_.last_difference_text = differences;
    const std::string line =
        "audit: the HAL's tables differ from what it has acknowledged: " + differences +
        (reinstalls ? "; reinstalling"
                    : "; not reinstalling again yet; run zuskux-manager resync --control " +
                          control_path_);
    LogLine(LogLevel::kError, line);
    Happened(line);
  }

  void Finished() {
    // The current HAL is still the one from before the restart.
    if (restarting_) return;
    HideProgress();
    if (ApplyNext()) return;
    if (line_.stay) {
      SayStanding();
    } else {
      io_.stop();
    }
  }

  void SayStanding() const {
    if (manager_.settled()) {
      LogLine(LogLevel::kInfo, "settled: " + StandingText());
    } else {
      LogLine(LogLevel::kWarning, "NOT settled: " + StandingText());
    }
  }

  // The objects' states, and whether the HAL holds what it has acknowledged of them.
  std::string StandingText() const {
    std::string text = Summary(manager_.database()).text();
    if (manager_.in_sync()) return text;
    return (manager_.connected() ? "not in sync with the HAL" : "no connection to the HAL") +
           std::string("; ") + text;
  }

  void Reinstalling() {
    restarting_ = false;
    head_.reinstall.started = std::chrono::system_clock::now();
    if (pages_) pages_->Happened("reinstall started");
    if (reinstalls_++ != 0) {
      ShowProgress("reinstalling");
      UpdateProgress();
    } else if (hal_.embedded() == nullptr) {
      // Nothing has been sent yet.
      if (const auto unread = CheckStaleEntries()) {
        LogLine(LogLevel::kWarning,
                "cannot tell what the site would remove from the HAL: " + *unread);
      }
    }
  }

  void Reinstalled(std::size_t objects, std::chrono::steady_clock::duration time) {
    head_.reinstall.started.reset();
    head_.reinstall.last = {objects, time, std::chrono::system_clock::now()};
    const std::string text =
        "reinstall finished: " + std::to_string(objects) + " objects in " + Seconds(time);
    if (pages_) pages_->Happened(text);
    // The first reinstall is the start.
    if (reinstalls_ != 1) LogLine(LogLevel::kInfo, text);
  }

  void GotResult(std::uint64_t results) {
    if (results == line_.restart_hal_after) Restart();
  }

  void Restart() {
    if (hal_.embedded() == nullptr) {
      LogLine(LogLevel::kWarning, "the HAL is a program of its own; restart zuskux-hal instead");
      return;
    }
    LogLine(LogLevel::kInfo, "restarting the HAL");
    restarting_ = true;
    hal_.embedded()->Restart();
  }

  void ShowProgress(const char* what) {
    progress_.emplace(what, &StandardError());
    progress_total_ = 0;
  }

  void UpdateProgress() {
    // A reinstall may add work.
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
        Reload(std::nullopt);
      } else if (signal == SIGUSR1) {
        Restart();
      } else {
        io_.stop();
        return;
      }
      WaitForSignal();
    });
  }

  // Returns why the file was refused, if it was.
  std::optional<std::string> Reload(std::optional<std::size_t> max_removals) {
    const std::string& path = SitePath();
    auto site = ReadSiteOrLogMistakes(path);
    const bool readable = site.has_value();
    SiteDifference difference;
    if (readable) difference = manager_.database().Compare(*std::move(site));
    std::optional<std::string> refusal =
        readable ? RefusalOf(difference, path, max_removals ? max_removals : line_.max_removals,
                             "run zuskux-manager reload --control " + control_path_)
                 : "keeping the current site; correct " + path + "; zuskux-manager --check " +
                       path + " lists its mistakes";
    if (refusal) {
      LogLine(LogLevel::kError, *refusal);
      head_.refused_reload = LocalTime();
      head_.refused_reload_reason = *refusal;
      Happened("reload refused: " + *refusal);
      return refusal;
    }
    LogLine(LogLevel::kInfo, "applying " + path);
    Happened("applying " + path);
    Apply(std::move(difference));
    return std::nullopt;
  }

  int Finish() {
    const DestDatabase& database = manager_.database();
    bool written = WriteOutput([this] { Dump(); });
    written &= WriteOutput([this] { Draw(); });
    if (line_.explain) {
      const auto text = Explain(database, *line_.explain);
      if (!text) {
        LogLine(LogLevel::kError, "there is no " + KeyText(*line_.explain) +
                                      "; without --explain, the table lists all objects");
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
    if (!manager_.in_sync()) SayStanding();
    if (!written || refused_) return kExitFailed;
    // With --explain, the status is about the one object.
    const bool in_place = line_.explain ? manager_.in_sync() && IsInPlace(database, *line_.explain)
                                        : manager_.settled();
    if (!in_place) return kExitIncomplete;
    return recorder_ && !recorder_->Finish() ? kExitNotRecorded : EXIT_SUCCESS;
  }

  // Whether `write` succeeded. If not, the operator still gets the table.
  static bool WriteOutput(const std::function<void()>& write) {
    try {
      write();
    } catch (const std::exception& error) {
      LogLine(LogLevel::kError, error.what());
      return false;
    }
    return true;
  }

  void Dump() {
    if (!line_.dump_hal) return;
    const TableEntries entries = hal_.ReadTables();
    if (!dump_) {
      DumpEntries(entries, &std::cout);
      return;
    }
    std::ostringstream text;
    DumpEntries(entries, &text);
    dump_->Write(text.str());
  }

  void Draw() {
    if (graph_) graph_->Write(GraphText(NodesOf(manager_.database())));
  }

  const CommandLine& line_;
  // Operators ask from other folders than the manager's.
  const std::vector<std::string> site_paths_ = AbsolutePaths(line_.sites);
  const std::string control_path_ = AbsolutePath(line_.control);
  std::vector<Site> sites_;
  std::size_t applied_ = 0;
  bool connection_up_ = false;
  // Whether a site of the command line was refused.
  bool refused_ = false;
  std::size_t reinstalls_ = 0;
  bool restarting_ = false;
  // Whether this manager exits because another one programs the HAL.
  bool other_writer_ = false;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  boost::asio::io_context io_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      io_.get_executor()};
  boost::asio::signal_set signals_{io_};
  boost::asio::steady_timer progress_timer_{io_};
  boost::asio::steady_timer server_timer_{io_};
  boost::asio::steady_timer audit_timer_{io_};
  std::int64_t checks_without_server_ = 0;
  const ServiceManager service_{&io_};
  std::optional<Progress> progress_;
  std::size_t progress_total_ = 0;
  // Opened before the HAL is touched.
  std::optional<GraphFile> graph_;
  std::optional<OutputFile> dump_;
  EventFeed events_;
  // By the current site.
  InterfaceNames interfaces_;
  // Outlive the HAL, which may report to them.
  std::optional<ManagerPages> pages_;
  Manager manager_;
  // Outlives the HAL, which is destroyed before the manager.
  std::optional<Recorder> recorder_;
  ChosenHal hal_;
  // The members that only this class knows; `Head` fills in the rest.
  StatusHead head_;
  FoundServer server_;
  ControlRequests control_requests_{{&manager_, hal_.connection(), &events_, HalSocket(),
                                     [this] { return Head(); },
                                     [this](auto max_removals) { return Reload(max_removals); }}};
  std::optional<ControlServer> control_server_;
  std::optional<HttpServer> http_server_;
};

}  // namespace

int RunManager(const CommandLine& line, std::vector<Site> sites) {
  IgnoreWriteSignals();
  return Run(line, std::move(sites)).Execute();
}

}  // namespace reference
