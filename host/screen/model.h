// What the screens show, and how it is collected from the samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
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

// One field of a device.
struct FieldModel {
  std::string name;
  std::vector<std::optional<CellModel>> cells;  // by series; nothing: the series does not have it
  std::optional<Comparison> comparison;         // of the planes, if there are several

  bool hasMoved() const;
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

// The plane that stands out most.
struct WorstPlane {
  std::string field;
  std::string plane;
  double imbalance = 1;
  double share = 0;  // of the sum of a counter
  FieldKind kind = FieldKind::counter;
  std::uint64_t since_usec = 0;  // since the Unix epoch
};

struct DeviceModel {
  std::string name;
  DeviceHealth health;
  std::vector<const Series*> series;
  std::vector<FieldModel> fields;
  std::optional<WorstPlane> worst;

  const FieldModel* field(const std::string& name) const;
  std::size_t planes() const;
};

struct ScreenModel {
  std::string source;
  double elapsed_seconds = 0;
  std::uint64_t now_usec = 0;  // since the Unix epoch
  std::vector<DeviceModel> devices;
  std::vector<std::string> fields;  // names; first those in which the planes differ most
  std::vector<std::string> notes;   // recent log lines

  const DeviceModel* device(const std::string& name) const;
};

// Fills a model from the samples. The rates and the comparison cover at least a second.
class ModelCollector {
 public:
  explicit ModelCollector(const Figures& figures);
  ModelCollector(const ModelCollector&) = delete;
  ModelCollector& operator=(const ModelCollector&) = delete;

  // The field in which the planes are compared; nothing: the one in which they differ most.
  void compareBy(std::optional<std::string> field) { chosen_field_ = std::move(field); }

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
  void place(const Series& series);
  void addWindow(const SeriesWindow& window);
  void read(DeviceModel& device);
  void rank();
  void findWorst(DeviceModel& device);

  const Figures& figures_;
  RecentFigures recent_;
  Windows windows_;
  std::vector<Place> places_;             // by the series' number
  std::map<std::string, double> scores_;  // by field: how much its planes differ, or did lately
  std::uint64_t ranked_usec_ = 0;
  std::optional<std::string> chosen_field_;
  ScreenModel model_;
};

}  // namespace tev::host
