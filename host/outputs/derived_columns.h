// The derived figures of events, as further columns of machine-readable formats.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "host/figures/figures.h"

namespace tev::host {

// The figures of one field after one sample.
struct Derived {
  std::optional<std::uint64_t> total;  // increase since the first sample
  std::optional<double> per_second;    // since the previous sample
  // "": both are right. "first": there is no previous sample. "unknown": the step is not known, so
  // the total is a lower bound from here on. "lower_bound": an earlier step is not known.
  // "uncertain": the counter may have gone round more than once. "after_slow_read": the previous
  // sample may have been read late, so the previous rate may be too high and this one too low.
  // "lower_bound" may follow either of these two. "gauge" and "undecided": the field does not
  // count, or this is not known.
  const char* mark = "";
};

Derived derive(const SeriesFigures& series, std::size_t track);

// The names of the further columns. They differ from those of all fields.
class DerivedColumns {
 public:
  struct Names {
    std::string total;
    std::string per_second;
    std::string mark;
  };

  explicit DerivedColumns(const Figures& figures);

  const std::string& kind() const { return kind_; }
  const std::string& sample() const { return sample_; }

  // Of a followed column. Columns with the same name share them.
  const Names& of(const Column& column) const { return names_.at(column.name); }

  // The names of the columns that describe missing samples and states of devices; `name` is one of
  // kMissingColumns.
  const std::string& missing(const char* name) const { return missing_.at(name); }

 private:
  std::string kind_;
  std::string sample_;
  std::map<std::string, Names> names_;
  std::map<std::string, std::string> missing_;
};

inline constexpr const char* kMissingColumns[] = {"device", "state",   "cause", "from",
                                                  "to",     "missing", "reason"};

}  // namespace tev::host
