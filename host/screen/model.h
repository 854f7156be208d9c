// What the screens show, and how it is collected from the samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/figures/comparison.h"
#include "host/figures/figures.h"
#include "host/figures/health.h"
#include "host/figures/recent.h"
#include "host/figures/windows.h"
#include "host/outputs/output.h"
#include "host/screen/trace.h"

namespace tev::host {

// One field of one series.
struct CellModel {
  std::size_t track = 0;
  bool is_plane = false;
  Reading reading;
  Trace trace;
};

// Since when one plane stands out in a field.
struct Prominence {
  const Series* plane = nullptr;  // null: none did lately
  std::uint64_t since_usec = 0;   // since the Unix epoch
  std::uint64_t last_usec = 0;
};

// One field of a device.
struct FieldModel {
  std::size_t number = 0;                       // in ScreenModel::names
  std::vector<std::optional<CellModel>> cells;  // by series; nothing: the series does not have it
  std::optional<Comparison> comparison;         // of the planes
  Prominence prominence;

  bool hasMoved() const;
  bool isCompared() const { return comparison && comparison->planes.size() > 1; }
  bool standsOut() const { return comparison && comparison->stands_out; }
};

// One number for a field of a device: of a counter, the sum of its planes' rates; of a gauge, the
// largest of its planes' values. Of a field that the planes do not have, or not all of them are
// known, that of the device itself.
struct DeviceFigure {
  std::optional<double> amount;  // nothing: not known
  bool has_unknown = false;
  bool is_uncertain = false;
};

// Nothing when the field's kind is undecided.
std::optional<DeviceFigure> figureOf(const FieldModel& field);

struct DeviceModel {
  std::string name;
  DeviceHealth health;
  std::vector<const Series*> series;
  std::vector<FieldModel> fields;
  std::vector<std::optional<std::size_t>> place_of;  // by the field's number, in `fields`

  bool isSampling() const { return health.state == DeviceState::sampling; }
  std::string shownName() const { return name.empty() ? "(no name)" : name; }
  std::size_t planes() const;

  // Null when the device does not have the field.
  const FieldModel* field(std::size_t number) const;
};

struct ScreenModel {
  std::string source;
  double elapsed_seconds = 0;
  std::uint64_t now_usec = 0;  // since the Unix epoch
  std::vector<DeviceModel> devices;
  std::vector<std::string> names;    // of the fields, by number; printable
  std::vector<std::size_t> ranking;  // the fields' numbers; first those in which planes differ most
  std::vector<std::string> notes;    // recent log lines
  std::string hang;                  // what the source waits for; empty: nothing

  const DeviceModel* device(const std::string& name) const;
  std::optional<std::size_t> numberOf(const std::string& field) const;
};

// The plane of a device that stands out most.
struct WorstPlane {
  const FieldModel* field;
  const Comparison* comparison;

  const Series& plane() const { return *comparison->planes[comparison->worst]; }
  double share() const { return comparison->share(comparison->worst); }
};

// In the chosen field; without one, in the field in which planes differ most. Nothing for a device
// that does not deliver, or in which no plane stands out.
std::optional<WorstPlane> worstPlane(const ScreenModel& model, const DeviceModel& device,
                                     std::optional<std::size_t> chosen_field);

// Fills a model from the samples. The rates and the comparison cover at least a second.
class ModelCollector {
 public:
  explicit ModelCollector(const Figures& figures);
  ModelCollector(const ModelCollector&) = delete;
  ModelCollector& operator=(const ModelCollector&) = delete;

  // To be called with each event, after the figures have received it.
  void sample(const Event& event, const Series& series);

  // To be called after the samples of each update.
  void update(const RunStatus& status);

  // Takes over what may change between two updates: the time, the health and the notes.
  void refresh(const RunStatus& status);

  const ScreenModel& model() const { return model_; }

 private:
  struct Place {
    bool is_known = false;
    std::size_t device = 0;
    std::size_t series = 0;           // in the device
    std::vector<std::size_t> fields;  // by track, in the device
  };

  DeviceModel& deviceNamed(const std::string& name);
  std::size_t numberOf(const std::string& field);
  void place(const Series& series);
  void addWindow(const SeriesWindow& window);
  void read(DeviceModel& device);
  void readField(const DeviceModel& device, FieldModel& field);
  void rank();

  const Figures& figures_;
  RecentFigures recent_;
  Windows windows_;
  std::vector<Place> places_;   // by the series' number
  std::vector<double> scores_;  // by the field's number: how much its planes differ, or did lately
  std::uint64_t ranked_usec_ = 0;
  ScreenModel model_;
};

}  // namespace tev::host
