#include "kolt/metrics.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

#include <exception>

#include "ace/Log_Msg.h"

namespace kolt {

namespace {

// Never destroyed: static objects count to the very end.
prometheus::Registry& registry() {
  static auto& the_registry = *new prometheus::Registry;
  return the_registry;
}

/// The series, made where it is new. Null: there is no memory, or the name belongs to another type.
template <typename Builder, typename... Args>
auto* series(Builder builder, const char* name, const char* help, const Metric_Labels& labels,
             const Args&... args) noexcept {
  decltype(&builder.Register(registry()).Add(labels, args...)) found = nullptr;
  try {
    found = &builder.Name(name).Help(help).Register(registry()).Add(labels, args...);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("'%C' is not counted: %C\n"), name, e.what()));
  }
  return found;
}

}  // namespace

Counter::Counter(const char* name, const char* help, const Metric_Labels& labels) noexcept
    : series_(series(prometheus::BuildCounter(), name, help, labels)) {}

void Counter::add(double value) const noexcept {
  if (series_) series_->Increment(value);
}

Gauge::Gauge(const char* name, const char* help, const Metric_Labels& labels) noexcept
    : series_(series(prometheus::BuildGauge(), name, help, labels)) {}

void Gauge::set(double value) const noexcept {
  if (series_) series_->Set(value);
}

void Gauge::add(double value) const noexcept {
  if (series_) series_->Increment(value);
}

Histogram::Histogram(const char* name, const char* help, const Metric_Labels& labels,
                     const std::vector<double>& bounds) noexcept
    : series_(series(prometheus::BuildHistogram(), name, help, labels, bounds)) {}

void Histogram::observe(double value) const noexcept {
  if (series_) series_->Observe(value);
}

std::string metrics_text() noexcept {
  try {
    return prometheus::TextSerializer().Serialize(registry().Collect());
  } catch (const std::exception&) {
    return std::string();
  }
}

}  // namespace kolt
