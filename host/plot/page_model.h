// What a page says beside its levels: the adapters in their order, their fields and totals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/figures/figures.h"
#include "host/figures/health.h"
#include "host/plot/findings.h"
#include "host/plot/levels.h"
#include "host/plot/reduction.h"

namespace tev::host {

// What is known of the recording beside its samples.
struct PageHead {
  std::string title;
  std::string source;
  std::string host;
  std::string writer;
  std::vector<std::string> files;
  std::vector<std::string> notes;  // for example damaged places, one sentence each
};

// One field of a device: of its planes, or of the device itself.
struct PageField {
  struct Member {
    std::size_t series = 0;  // index in the device
    std::size_t track = 0;
    const SeriesRows* rows = nullptr;
  };

  const Column* column = nullptr;
  bool is_plane = false;
  FieldKind kind = FieldKind::counter;
  std::vector<Member> members;

  const Track& trackOf(const Member& member) const {
    return member.rows->figures().tracks[member.track];
  }
  bool hasMoved() const;
};

struct PageDevice {
  std::string name;
  double score = 0;  // 0: no plane stands out
  DeviceHealth health;
  std::vector<const Series*> series;
  std::vector<PageField> fields;

  // The fields that have a chart, as they are packed.
  std::vector<PackedField> packed() const;
};

// The device with the worst plane is the first one, then those that miss samples.
std::vector<PageDevice> pageDevices(const Reduction& reduction, const Findings& findings,
                                    const Figures& figures,
                                    const std::vector<DeviceHealth>& health);

struct MissingList {
  std::vector<MissingSamples> entries;  // the first ones
  std::uint64_t left_out = 0;           // entries beyond these
};

// As page.js reads it.
std::string pageJson(const PageHead& head, const std::vector<PageDevice>& devices,
                     const Reduction& reduction, const Findings& findings, const Figures& figures,
                     const MissingList& missing);

}  // namespace tev::host
