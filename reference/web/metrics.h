#ifndef ZUSKUX_REFERENCE_WEB_METRICS_H_
#define ZUSKUX_REFERENCE_WEB_METRICS_H_

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/latency.h"
#include "reference/web/http_message.h"

namespace reference {

/// A scrape in Prometheus' text format. Units are seconds and bytes; the name of a counter ends in
/// "_total". Used on one thread.
class Metrics {
 public:
  using Labels = std::vector<std::pair<std::string, std::string>>;
  /// The samples of one metric.
  class Family {
   public:
    Family& Add(double value, const Labels& labels = {});

   private:
    friend class Metrics;
    explicit Family(Metrics* metrics) : metrics_(metrics) {}
    Metrics* const metrics_;
  };

  Metrics();
  Metrics(const Metrics&) = delete;
  Metrics& operator=(const Metrics&) = delete;
  ~Metrics();

  // Begin a metric, which the next samples belong to.
  Family Counter(const std::string& name, const std::string& help);
  Family Gauge(const std::string& name, const std::string& help);
  /// A histogram of durations for each stage, labelled "stage".
  void Stages(const std::string& name, const std::string& help, const HalLatencies& stages);

  /// Memory, processor time, files and start of this process, under the names that all programs
  /// use.
  void AddProcess();

  HttpResponse Response() const;

 private:
  struct Families;
  const std::unique_ptr<Families> families_;
};

/// Seconds since the epoch.
double Timestamp(std::chrono::system_clock::time_point time);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WEB_METRICS_H_
