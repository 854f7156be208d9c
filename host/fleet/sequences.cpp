#include "host/fleet/sequences.h"

#include <algorithm>
#include <iterator>

namespace tev::host {

const Sequences::Run* Sequences::find(const RunId& run) const {
  const auto known = by_name_.find(run.source);
  if (known == by_name_.end()) return nullptr;
  const Source& source = *known->second;
  const auto end = source.runs.begin() + static_cast<std::ptrdiff_t>(source.count);
  const auto found = std::find_if(source.runs.begin(), end,
                                  [&](const Run& one) { return one.start == run.start; });
  return found != end ? &*found : nullptr;
}

Arrival Sequences::judge(const MessageHead& head) const {
  const Run* const known = find(head.run);
  const std::uint64_t next = known ? known->next : 0;
  Arrival arrival;
  arrival.is_first = !known;
  if (head.first > next) {
    arrival.kind = Arrival::Kind::gap;
    arrival.lost = head.first - next;
  } else if (head.first < next) {
    arrival.taken = std::min(next - head.first, head.events);
    arrival.kind = arrival.taken == head.events ? Arrival::Kind::repeat : Arrival::Kind::overlap;
  }
  return arrival;
}

void Sequences::take(const MessageHead& head) {
  restore(head.run, head.first + head.events);
}

void Sequences::restore(const RunId& run, std::uint64_t next) {
  const auto known = by_name_.find(run.source);
  if (known != by_name_.end()) {
    sources_.splice(sources_.begin(), sources_, known->second);
  } else {
    if (sources_.size() >= most_sources_) {
      by_name_.erase(sources_.back().name);
      sources_.pop_back();
    }
    sources_.push_front({run.source, {}, 0});
    by_name_.emplace(sources_.front().name, sources_.begin());
  }
  Source& source = sources_.front();
  std::size_t place = 0;
  while (place < source.count && source.runs[place].start != run.start) ++place;
  if (place == source.count) {
    place = std::min(source.count, kRuns - 1);  // of a new one, or of the one that is forgotten
    source.count = place + 1;
  }
  source.runs[place] = {run.start, next};
  const auto found = source.runs.begin() + static_cast<std::ptrdiff_t>(place);
  std::rotate(source.runs.begin(), found, std::next(found));
}

void Sequences::forEach(const std::function<void(const RunId&, std::uint64_t next)>& visit) const {
  // NOLINTNEXTLINE(modernize-loop-convert): not all compilers have std::views::reverse of lists
  for (auto source = sources_.rbegin(); source != sources_.rend(); ++source)
    for (std::size_t i = source->count; i-- > 0;)
      visit({source->name, source->runs[i].start}, source->runs[i].next);
}

}  // namespace tev::host
