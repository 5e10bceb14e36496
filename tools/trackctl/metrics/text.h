// Measurements in the text that Prometheus and its kin read. What is measured is added in whatever
// order; the text has each metric in one piece, those that were added to first before the others,
// with a line that says what it is.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ot::trackctl {

enum class text_form {
  openmetrics,  // OpenMetrics 1.0
  prometheus,   // the older form, 0.0.4, which has no units and names counters otherwise
};

enum class metric_kind { gauge, counter };

// A row, which outlives the text. The name is without "_total", and ends in the unit if it has one.
struct metric {
  std::string_view name;
  metric_kind kind = metric_kind::gauge;
  std::string_view help;
  std::string_view unit = {};
};

// A name, and a value of any bytes.
using metric_label = std::pair<std::string_view, std::string_view>;

class metrics_text {
 public:
  explicit metrics_text(text_form form) : form_(form) {}

  // No two of one metric with the same labels.
  void add(const metric& of, std::initializer_list<metric_label> labels, double value);

  [[nodiscard]] std::string text() const;

 private:
  struct family {
    const metric* of;
    std::string lines;
  };

  std::string& lines_of(const metric& of);

  text_form form_;
  std::vector<family> families_;
};

}  // namespace ot::trackctl
