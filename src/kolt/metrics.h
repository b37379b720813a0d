#pragma once

#include <map>
#include <string>
#include <vector>

#include "kolt/export.h"

namespace prometheus {
class Counter;
class Gauge;
class Histogram;
}  // namespace prometheus

namespace kolt {

/**
 * What the process counts and measures of itself, read by metrics_text().
 *
 * An object stands for one series: a name and the values of its labels. All objects with the same name and labels, in
 * whatever shared library, are one series; it lives as long as the process. Names begin with "tessarin_", hold the base
 * unit and, for counters, end in "_total". The values of a label are few and known beforehand: never a name or path of
 * a user, for each value costs memory for ever.
 *
 * To make one costs a look-up under a lock: what counts often keeps the object. Nothing here throws or fails: without
 * memory, or where two types claim one name, a series is not counted.
 *
 * Threads: any.
 */
typedef std::map<std::string, std::string> Metric_Labels;

/// Goes up only.
class TESSARIN_API Counter {
 public:
  Counter(const char* name, const char* help, const Metric_Labels& labels = {}) noexcept;
  /// @param value  not negative; others are passed over.
  void add(double value = 1) const noexcept;

 private:
  prometheus::Counter* series_ = nullptr;
};

/// Goes up and down.
class TESSARIN_API Gauge {
 public:
  Gauge(const char* name, const char* help, const Metric_Labels& labels = {}) noexcept;
  void set(double value) const noexcept;
  void add(double value) const noexcept;

 private:
  prometheus::Gauge* series_ = nullptr;
};

/// How values are spread.
class TESSARIN_API Histogram {
 public:
  /// @param bounds  upper bounds of the buckets, rising; the same for all series of a name.
  Histogram(const char* name, const char* help, const Metric_Labels& labels,
            const std::vector<double>& bounds) noexcept;
  void observe(double value) const noexcept;

 private:
  prometheus::Histogram* series_ = nullptr;
};

/// All series in the text form of Prometheus, version 0.0.4; empty without memory.
TESSARIN_API std::string metrics_text() noexcept;

}  // namespace kolt
