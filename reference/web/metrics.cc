#include "reference/web/metrics.h"

#include <dirent.h>
#include <prometheus/client_metric.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>

namespace reference {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

double Seconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double>(time).count();
}

ClientMetric Sample(const Metrics::Labels& labels) {
  ClientMetric sample;
  for (const auto& [name, value] : labels) sample.label.push_back({name, value});
  return sample;
}

ClientMetric Histogram(const std::string& stage, const StageLatency& latency) {
  ClientMetric sample = Sample({{"stage", stage}});
  sample.histogram.sample_count = latency.count;
  sample.histogram.sample_sum = Seconds(latency.sum);
  for (std::size_t i = 0; i < kLatencyBounds.size(); ++i) {
    sample.histogram.bucket.push_back({latency.up_to.at(i), Seconds(kLatencyBounds.at(i))});
  }
  sample.histogram.bucket.push_back({latency.count, std::numeric_limits<double>::infinity()});
  return sample;
}

// The numbers of /proc/self/stat behind the program's name, from field 3 on.
std::vector<std::string> StatFields() {
  std::ifstream file("/proc/self/stat");
  std::string line;
  std::getline(file, line);
  const auto name_end = line.rfind(')');
  std::istringstream rest(name_end == std::string::npos ? "" : line.substr(name_end + 1));
  std::vector<std::string> fields;
  for (std::string field; rest >> field;) fields.push_back(field);
  return fields;
}

// Seconds since the epoch at which the machine started.
double BootTime() {
  std::ifstream file("/proc/stat");
  for (std::string name, rest; file >> name; std::getline(file, rest)) {
    double time = 0;
    if (name == "btime" && file >> time) return time;
  }
  return 0;
}

std::size_t OpenFiles() {
  DIR* const folder = opendir("/proc/self/fd");
  if (folder == nullptr) return 0;
  std::size_t files = 0;
  while (readdir(folder) != nullptr) ++files;
  closedir(folder);
  // ".", ".." and the folder itself.
  return files - 3;
}

}  // namespace

struct Metrics::Families {
  std::vector<MetricFamily> all;
};

Metrics::Metrics() : families_(std::make_unique<Families>()) {}

Metrics::~Metrics() = default;

Metrics::Family& Metrics::Family::Add(double value, const Labels& labels) {
  MetricFamily& family = metrics_->families_->all.back();
  ClientMetric sample = Sample(labels);
  if (family.type == MetricType::Counter) {
    sample.counter.value = value;
  } else {
    sample.gauge.value = value;
  }
  family.metric.push_back(std::move(sample));
  return *this;
}

Metrics::Family Metrics::Counter(const std::string& name, const std::string& help) {
  families_->all.push_back({name, help, MetricType::Counter, {}});
  return Family(this);
}

Metrics::Family Metrics::Gauge(const std::string& name, const std::string& help) {
  families_->all.push_back({name, help, MetricType::Gauge, {}});
  return Family(this);
}

void Metrics::Stages(const std::string& name, const std::string& help, const HalLatencies& stages) {
  families_->all.push_back({name,
                            help,
                            MetricType::Histogram,
                            {Histogram("queue", stages.queue), Histogram("wire", stages.wire),
                             Histogram("hal", stages.hal)}});
}

void Metrics::AddProcess() {
  // Fields of /proc/self/stat, counted from field 3.
  enum : std::uint8_t {
    kUserTicks = 11,
    kSystemTicks = 12,
    kStartTicks = 19,
    kSize = 20,
    kPages = 21
  };
  const std::vector<std::string> fields = StatFields();
  if (fields.size() <= kPages) return;
  const auto number = [&fields](std::size_t field) { return std::stod(fields.at(field)); };
  const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
  Counter("process_cpu_seconds_total", "User and system processor time in seconds.")
      .Add((number(kUserTicks) + number(kSystemTicks)) / ticks);
  Gauge("process_resident_memory_bytes", "Resident memory in bytes.")
      .Add(number(kPages) * static_cast<double>(sysconf(_SC_PAGESIZE)));
  Gauge("process_virtual_memory_bytes", "Virtual memory in bytes.").Add(number(kSize));
  Gauge("process_start_time_seconds", "Start of the process, in seconds since the epoch.")
      .Add(BootTime() + number(kStartTicks) / ticks);
  Gauge("process_open_fds", "Open file descriptors.").Add(static_cast<double>(OpenFiles()));
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    Gauge("process_max_fds", "Limit on open file descriptors.")
        .Add(static_cast<double>(limit.rlim_cur));
  }
}

HttpResponse Metrics::Response() const {
  std::ostringstream text;
  prometheus::TextSerializer().Serialize(text, families_->all);
  return {200, "text/plain; version=0.0.4; charset=utf-8", text.str()};
}

double Timestamp(std::chrono::system_clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

}  // namespace reference
