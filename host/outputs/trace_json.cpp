// Trace JSON, which viewers of traces open: a process per device, with a counter track per field.
// The end of the array may be missing, so each event begins with its separator.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include "host/events/values.h"
#include "host/outputs/derived_columns.h"
#include "host/outputs/json_text.h"
#include "host/outputs/text_output.h"

namespace tev::host {
namespace {

// Rows of a device's process. Spans in one row do not overlap.
constexpr std::size_t kStateRow = 1;
constexpr std::size_t kFirstCauseRow = 2;  // missing samples: a row for each cause
constexpr std::size_t kFirstSeriesRow = 100;

std::string quoted(std::string_view text) {
  std::string out;
  appendJsonText(out, text);
  return out;
}

// One field of a type.
struct Field {
  const Column* column;
  int track;                          // index of its track; -1: it is not followed
  std::vector<std::string> elements;  // `"name":`
  std::string per_second;             // the same for its rate
};

class TraceOutput final : public TextOutput {
 public:
  explicit TraceOutput(const OutputSetup& setup) : TextOutput(setup), figures_(setup.figures) {
    const DerivedColumns derived(figures_);
    for (const TypeView& type : projection_.schema().types()) {
      std::vector<Field>& fields = fields_.emplace_back();
      for (const Column& column : projection_.columns(type)) {
        if (column.key != 0 || isText(column)) continue;
        Field field{&column, figures_.trackOf(type, column), {}, {}};
        for (std::size_t i = 0; i < column.count; ++i)
          field.elements.push_back(
              quoted(column.count == 1 ? column.name : fmt::format("{}[{}]", column.name, i)) +
              ':');
        if (field.track >= 0) field.per_second = quoted(derived.of(column).per_second) + ':';
        fields.push_back(std::move(field));
      }
    }
  }

  void begin() override {
    TextOutput::begin();
    file_.buffer() += '[';
    is_open_ = true;
  }

  void event(const Event& event, const Series& series) override {
    State& state = stateOf(series);
    if (event.timestamp_usec < state.last_usec)
      write(R"("ph":"i","s":"t","pid":{},"tid":{},"ts":{},"name":"clock set back","args":{{}})",
            state.process, rowOf(series), event.timestamp_usec);
    values_.clear();
    unknown_.clear();
    for (const Field& field : fields_[event.type->number]) addField(field, event, series);
    if (!unknown_.empty()) {
      if (state.unknown.empty())
        state.unknown_since = std::min(state.last_usec, event.timestamp_usec);
      state.unknown.insert(unknown_.begin(), unknown_.end());
    } else if (!state.unknown.empty()) {
      closeSpan(series, state);
    }
    state.last_usec = event.timestamp_usec;
    writeValues(state, event.timestamp_usec);
    file_.flushWhenLarge();
  }

  void update(const RunStatus& status) override {
    writeHealth(*status.health);
    TextOutput::update(status);
  }

  void end(const RunStatus& status) override {
    writeHealth(*status.health);
    for (const DeviceHealth& device : status.health->devices())
      if (device.state != DeviceState::sampling)
        writeState(device, device.state, device.since_usec,
                   status.now_usec - std::min(status.now_usec, device.since_usec));
    for (auto& [series, state] : states_) {
      if (!state.unknown.empty()) closeSpan(*series, state);
      writeUndecided(*series, state);
    }
    closeArray();
    TextOutput::end(status);
  }

  void leave() override { closeArray(); }

 private:
  struct State {
    std::size_t process;
    std::string name;  // JSON text
    std::uint64_t last_usec = 0;
    // Fields whose rates are not known since some time. Their names are those of columns.
    std::set<std::string_view> unknown{};
    std::uint64_t unknown_since = 0;
  };

  template <class... Arguments>
  void write(fmt::format_string<Arguments...> members, Arguments&&... arguments) {
    std::string& out = file_.buffer();
    out += std::exchange(has_events_, true) ? ",\n{" : "\n{";
    fmt::format_to(std::back_inserter(out), members, std::forward<Arguments>(arguments)...);
    out += '}';
  }

  void closeArray() {
    if (std::exchange(is_open_, false)) file_.buffer() += "\n]\n";
  }

  static std::size_t rowOf(const Series& series) { return kFirstSeriesRow + series.number; }

  std::size_t processOf(const std::string& device) {
    const auto [entry, is_new] = processes_.emplace(device, processes_.size() + 1);
    if (is_new)
      write(R"("ph":"M","name":"process_name","pid":{},"args":{{"name":{}}})", entry->second,
            quoted(device.empty() ? "events" : device));
    return entry->second;
  }

  State& stateOf(const Series& series) {
    const auto known = states_.find(&series);
    if (known != states_.end()) return known->second;
    const std::string heading = headingOf(series);
    return states_
        .emplace(&series,
                 State{processOf(series.device),
                       quoted(series.device.empty() ? heading : series.device + ' ' + heading)})
        .first->second;
  }

  void addValue(const std::string& label) {
    if (!values_.empty()) values_ += ',';
    values_ += label;
  }

  void addField(const Field& field, const Event& event, const Series& series) {
    if (field.track >= 0) {
      const SeriesFigures& figures = figures_.of(series);
      const auto index = static_cast<std::size_t>(field.track);
      const Track& track = figures.tracks[index];
      if (track.kind() == FieldKind::undecided) return;
      if (track.counts()) {
        const Derived derived = derive(figures, index);
        if (track.step() == StepState::unknown) unknown_.push_back(field.column->name);
        if (!derived.per_second) return;
        addValue(field.per_second);
        appendJsonNumber(values_, *derived.per_second);
        return;
      }
    }
    for (std::size_t i = 0; i < field.elements.size(); ++i) {
      if (!isFinite(*field.column, event.data, i)) continue;
      addValue(field.elements[i]);
      if (field.column->builtin_id == TEV_TYPE_BOOL)
        values_ += event.data[field.column->offset + i] != 0 ? '1' : '0';
      else
        appendElement(values_, *field.column, event.data, i);
    }
  }

  void writeValues(const State& state, std::uint64_t usec) {
    if (values_.empty()) return;
    write(R"("ph":"C","pid":{},"ts":{},"name":{},"args":{{{}}})", state.process, usec, state.name,
          values_);
  }

  // Fields that the samples did not decide: one value.
  void writeUndecided(const Series& series, const State& state) {
    const SeriesFigures& figures = figures_.of(series);
    for (const bool has_moved : {false, true}) {
      values_.clear();
      for (const Field& field : fields_[series.type->number]) {
        if (field.track < 0) continue;
        const Track& track = figures.tracks[static_cast<std::size_t>(field.track)];
        if (track.kind() != FieldKind::undecided || track.hasMoved() != has_moved) continue;
        addValue(field.elements.front());
        fmt::format_to(std::back_inserter(values_), "{}", track.value());
      }
      writeValues(state, has_moved ? figures.last_usec : figures.first_usec);
    }
  }

  void span(std::size_t process, std::size_t row, const std::string& row_name, std::uint64_t from,
            std::uint64_t length, const std::string& name, const std::string& members) {
    if (rows_.emplace(process, row).second)
      write(R"("ph":"M","name":"thread_name","pid":{},"tid":{},"args":{{"name":{}}})", process, row,
            quoted(row_name));
    write(R"("ph":"X","pid":{},"tid":{},"ts":{},"dur":{},"name":{},"args":{{{}}})", process, row,
          from, length, quoted(name), members);
  }

  void closeSpan(const Series& series, State& state) {
    std::string names;
    for (const std::string_view name : state.unknown)
      names += (names.empty() ? "" : ", ") + std::string(name);
    span(state.process, rowOf(series), headingOf(series), state.unknown_since,
         state.last_usec - std::min(state.last_usec, state.unknown_since), "rates not known",
         R"("fields":)" + quoted(names));
    state.unknown.clear();
  }

  void writeState(const DeviceHealth& device, DeviceState state, std::uint64_t from,
                  std::uint64_t length) {
    span(processOf(device.counts.device), kStateRow, "state", from, length, nameOf(state),
         R"("reason":)" + quoted(device.counts.last_failure));
  }

  void writeHealth(const HealthWatch& health) {
    const auto& causes = missingCauses();
    for (const MissingSamples& one : health.missing()) {
      const auto cause = std::ranges::find(causes, std::string_view(one.cause),
                                           [](const MissingCause& any) { return any.name; });
      const auto row = kFirstCauseRow + static_cast<std::size_t>(cause - causes.begin());
      span(processOf(one.device), row, fmt::format("missing samples: {}", one.cause), one.from_usec,
           one.to_usec - std::min(one.to_usec, one.from_usec),
           fmt::format("{}: {}", one.samples, one.cause),
           fmt::format(R"("samples":{},"reason":{})", one.samples, quoted(one.reason)));
    }
    for (const StateChange& change : health.changes()) {
      const DeviceHealth& device = health.devices()[change.device];
      if (change.before == DeviceState::failing || change.before == DeviceState::silent)
        writeState(device, change.before,
                   device.since_usec - std::min(device.since_usec, change.lasted_usec),
                   change.lasted_usec);
    }
  }

  const Figures& figures_;
  std::vector<std::vector<Field>> fields_;              // by the type's number
  std::map<std::string, std::size_t> processes_;        // by the device's name
  std::set<std::pair<std::size_t, std::size_t>> rows_;  // that have a name
  std::map<const Series*, State> states_;
  bool has_events_ = false;
  bool is_open_ = false;
  std::string values_;  // of the current event, as members of an object
  std::vector<std::string_view> unknown_;
};

}  // namespace

std::unique_ptr<Output> makeTraceJson(const OutputSetup& setup) {
  return std::make_unique<TraceOutput>(setup);
}

}  // namespace tev::host
