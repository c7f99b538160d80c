#ifndef ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_PAGES_H_
#define ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_PAGES_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/manager/web/change_history.h"
#include "reference/manager/web/manager_queries.h"
#include "reference/support/mutex.h"
#include "reference/web/http_server.h"

namespace reference {

/// What a manager serves: its page, the API behind it with its events, and the metrics. The
/// manager's thread only notes what happens; everything else is done on the HTTP server's thread.
class ManagerPages : public HttpPages {
 public:
  explicit ManagerPages(WatchedManager manager);

  // On the manager's thread.

  /// An object's standing has changed.
  void Changed(const Object& object);
  /// Something happened that is worth a line.
  void Happened(const std::string& text);

  // On the HTTP server's thread.
  void Start(HttpServer* server) override;
  HttpAnswer Get(const HttpRequest& request) override;
  std::string MissedText(std::uint64_t events) override;

  /// How many changes may wait for the HTTP server's thread; those beyond are only counted.
  static constexpr std::size_t kMaxWaiting = std::size_t{1} << 17;
  /// How many changes of a batch are sent.
  static constexpr std::size_t kMaxSent = 256;

 private:
  using Time = std::chrono::system_clock::time_point;

  struct Line {
    Time time;
    std::string text;
  };
  struct News {
    std::vector<Change> changes;
    std::vector<Line> lines;
    // Changes for which there was no room.
    std::uint64_t lost = 0;
  };
  struct Rate {
    Time time;
    std::uint64_t requests = 0;
    std::uint64_t results = 0;
  };

  void HandOver();
  void Send(const News& news);
  std::string Event(const char* name, const std::string& data) const;
  EventStream Follow(const std::string& last_event_id);
  void SendStatus();
  void FollowersTick();
  void RatesTick();

  HttpResponse Changes(const HttpRequest& request) const;
  HttpResponse Rates() const;

  const WatchedManager manager_;
  // Of this run of the program.
  const std::string instance_;
  HttpServer* server_ = nullptr;
  ChangeHistory history_;
  std::deque<Rate> rates_;
  // Changes so far that were handed over.
  std::uint64_t seq_ = 0;
  // A status for the followers is asked for, and another one is wanted after it.
  bool status_asked_ = false;
  bool status_wanted_ = false;
  bool ticking_ = false;
  bool reinstalling_ = false;
  int ticks_ = 0;

  Mutex mutex_;
  News news_ ZUSKUX_GUARDED_BY(mutex_);
  // Null before `Start`.
  HttpServer* waker_ ZUSKUX_GUARDED_BY(mutex_) = nullptr;
  bool woken_ ZUSKUX_GUARDED_BY(mutex_) = false;
  std::uint64_t last_seq_ ZUSKUX_GUARDED_BY(mutex_) = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_PAGES_H_
