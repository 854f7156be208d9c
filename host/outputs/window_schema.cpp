#include "host/outputs/window_schema.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <limits>
#include <memory>
#include <string>

#include "host/support/errors.h"
#include "host/support/text.h"
#include "tev/schema.h"

namespace tev::host {
namespace {

constexpr std::size_t kMostColumns = 4096;  // that readers of messages accept
constexpr const char* kTypeSuffix = "_window";
constexpr const char* kLength = "window_usec";
constexpr const char* kSamples = "samples";

// A column of a record. The order is that of appendRecord().
struct Figure {
  const char* name;  // of a field's figure: what follows the field's name
  const char* type;
  std::uint32_t counting_mode;
  const char* description;
};

constexpr Figure kOfWindow[] = {
    {kLength, "uint64_t", TEV_VALUE_ABSOLUTE,
     "length of the window in microseconds; the time stamp is its begin"},
    {kSamples, "uint32_t", TEV_VALUE_DELTA, "samples in the window"},
    {"missing", "uint32_t", TEV_VALUE_DELTA, "samples that are missing by their time stamps"},
    {"partial", "uint8_t", TEV_VALUE_ABSOLUTE,
     "1: the series begins or ends within the window, which is therefore shorter"},
};

constexpr Figure kOfField[] = {
    {"_kind", "uint8_t", TEV_VALUE_ABSOLUTE,
     "kind: 0 is not decided, 1 counter, 2 gauge, 3 increase since the previous sample"},
    {"_uncertain", "uint8_t", TEV_VALUE_ABSOLUTE,
     "1: a counter that may go round more than once between two samples"},
    {"_sum", "uint64_t", TEV_VALUE_DELTA, "sum of the known steps; 0 unless the kind is 1 or 3"},
    {"_unknown", "uint32_t", TEV_VALUE_DELTA,
     "number of unknown steps, with which the sum is a lower bound; 0 unless the kind is 1 or 3"},
    {"_rate_max", "double", TEV_VALUE_ABSOLUTE,
     "highest rate of a single step, per second; NaN unless a step is known"},
    {"_rate_mean", "double", TEV_VALUE_ABSOLUTE,
     "mean rate over the known steps, per second; NaN unless a step is known"},
    {"_min", "uint64_t", TEV_VALUE_ABSOLUTE, "smallest value; 0 unless the kind is 0 or 2"},
    {"_max", "uint64_t", TEV_VALUE_ABSOLUTE, "largest value; 0 unless the kind is 0 or 2"},
    {"_mean", "double", TEV_VALUE_ABSOLUTE, "mean of the values; NaN unless the kind is 0 or 2"},
};

// The fields of one type, whose names and descriptions it owns.
class Fields {
 public:
  explicit Fields(const TypeView& type) {
    for (const Column& key : type.keys)
      keys_.push_back(add(key.name, tev_builtin_type_name(key.builtin_id), key.counting_mode,
                          key.description, key.count));
    for (const Figure& figure : kOfWindow)
      add(figure.name, figure.type, figure.counting_mode, figure.description, 1);
  }

  void add(const Column& column) {
    for (const Figure& figure : kOfField) {
      std::string description = fmt::format("{}: {}", column.name, figure.description);
      if (!column.description.empty()) description += fmt::format(" ({})", column.description);
      add(column.name + figure.name, figure.type, figure.counting_mode, description, 1);
    }
  }

  std::size_t size() const { return infos_.size(); }

  std::uint8_t addTo(tev_schema_t& schema, const std::string& name) const {
    std::uint8_t index = 0;
    if (tev_schema_add_type(&schema, name.c_str(), infos_.data(), infos_.size(), &index) !=
            TEV_SCHEMA_OK ||
        (!keys_.empty() &&
         tev_schema_set_field_indexes(&schema, index, keys_.data(), keys_.size()) != TEV_SCHEMA_OK))
      throw RunError(fmt::format("the type {} cannot be made", asPrintable(name)));
    return index;
  }

 private:
  const char* add(const std::string& name, const char* type, std::uint32_t counting_mode,
                  const std::string& description, std::uint16_t count) {
    const char* const unique = texts_.emplace_back(names_.add(name)).c_str();
    infos_.push_back(
        {unique, texts_.emplace_back(description).c_str(), type, counting_mode, count});
    return unique;
  }

  UniqueNames names_;
  std::deque<std::string> texts_;  // addresses do not change
  std::vector<tev_type_field_info_t> infos_;
  std::vector<const char*> keys_;
};

template <class T>
void add(std::vector<std::uint8_t>& out, T value) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
  out.insert(out.end(), bytes, bytes + sizeof value);
}

std::uint32_t asCount(std::uint64_t count) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
}

void appendField(std::vector<std::uint8_t>& out, const SeriesWindow& window, std::size_t index) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  const Track& track = window.series->tracks[index];
  const FieldWindow& field = window.fields[index];
  const bool counts = track.counts();
  const auto rate = counts ? field.meanPerSecond() : std::nullopt;
  add(out, static_cast<std::uint8_t>(track.kind()));
  add(out, static_cast<std::uint8_t>(counts && window.series->uncertain[index]));
  add(out, counts ? field.sum : 0);
  add(out, counts ? asCount(field.unknown) : 0);
  add(out, rate ? field.highest_per_usec * 1e6 : kNone);
  add(out, rate.value_or(kNone));
  add(out, counts ? 0 : field.min);
  add(out, counts ? 0 : field.max);
  add(out, counts ? kNone : window.mean(index));
}

}  // namespace

WindowSchema::WindowSchema(const Figures& figures)
    : figures_(figures), places_(figures.projection().schema().types().size()), view_(makeView()) {
  if (view_.types().empty())
    throw UsageError("--window with --kafka needs a field that may count, and none is chosen");
}

SchemaView WindowSchema::makeView() {
  const std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types(
      tev_create_type_system(), tev_destroy_type_system);
  if (!types) throw std::bad_alloc();
  const SchemaView& events = figures_.projection().schema();
  for (const SchemaView::Schema& original : events.schemas()) {
    std::uint8_t index = 0;
    tev_schema_t* const schema =
        tev_type_system_add_schema(types.get(), (original.name + "_windows").c_str(), 1, &index);
    if (!schema) throw std::bad_alloc();
    for (const TypeView& type : events.types()) {
      const auto columns = figures_.columns(type);
      if (columns.empty() || &events.schemaOf(type) != &original) continue;
      Fields fields(type);
      for (const Column* const column : columns) fields.add(*column);
      if (fields.size() > kMostColumns)
        throw UsageError(fmt::format(
            "--window with --kafka: the windows of {} have {} columns, and readers accept {}; "
            "choose fewer fields with --cset",
            asPrintable(type.name), fields.size(), kMostColumns));
      places_[type.number] = Place{index, fields.addTo(*schema, type.name + kTypeSuffix)};
    }
  }
  tev_type_system_update_md5_hashes(types.get());
  return SchemaView::fromTypeSystem(*types);
}

std::vector<std::uint8_t> keyOf(const Event& event) {
  std::vector<std::uint8_t> bytes;
  for (const Column& key : event.type->keys) {
    const std::uint8_t* const first = event.data + key.offset;
    bytes.insert(bytes.end(), first, first + key.count * key.element_size);
  }
  return bytes;
}

void appendRecord(std::vector<std::uint8_t>& out, const std::vector<std::uint8_t>& key,
                  const SeriesWindow& window, bool is_partial) {
  out.insert(out.end(), key.begin(), key.end());
  add(out, window.end_usec - window.begin_usec);
  add(out, asCount(window.samples));
  add(out, asCount(window.missing));
  add(out, static_cast<std::uint8_t>(is_partial));
  for (std::size_t i = 0; i < window.fields.size(); ++i) appendField(out, window, i);
}

const Column* samplesColumn(const TypeView& type) {
  const auto& columns = type.columns;
  const std::size_t keys = type.keys.size();
  const bool is_window = type.name.ends_with(kTypeSuffix) &&
                         columns.size() >= keys + std::size(kOfWindow) &&
                         columns[keys].name == kLength && columns[keys + 1].name == kSamples &&
                         columns[keys + 1].builtin_id == TEV_TYPE_UINT32;
  return is_window ? &columns[keys + 1] : nullptr;
}

}  // namespace tev::host
