#include "simulator/sdk.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

#include "simulator/common_library.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxRetired = 256;

template <class Map>
auto find(Map& map, const void* handle) {
  const auto place = map.find(handle);
  return place == map.end() ? nullptr : place->second;
}

}  // namespace

Sdk::Sdk(Scenario scenario, const char* trace) : scenario_(std::move(scenario)), trace_(trace) {}

Sdk::Sdk(const ScenarioError& refusal, const char* trace)
    : refusal_(refusal.what()), trace_(trace) {}

// This does not log, because the log streams may already be closed at the end of a process.
Sdk::~Sdk() {
  for (const auto& [handle, context] : contexts_)
    if (!context->unowned)
      trace_.misuse("unload", &context->device().ibdev_name, "context is alive");
  for (const auto& [handle, dev] : devs_)
    if (!dev->unowned) trace_.misuse("unload", &dev->info.device->ibdev_name, "device is open");
  for (const auto& [handle, list] : lists_)
    if (!list->unowned) trace_.misuse("unload", nullptr, "list is alive");
  trace_.unload();
}

// --- Bookkeeping ------------------------------------------------------------------------------

const vuna_devinfo* Sdk::findInfo(const void* handle) const {
  if (const vuna_devinfo* const listed = find(listed_infos_, handle)) return listed;
  for (const auto& [address, dev] : devs_)
    if (&dev->info == handle) return &dev->info;
  return nullptr;
}

const std::string* Sdk::nameOfDevice(const void* handle) const {
  if (const auto context = find(contexts_, handle)) return &context->device().ibdev_name;
  if (const auto dev = find(devs_, handle)) return &dev->info.device->ibdev_name;
  if (const auto* const info = findInfo(handle)) return &info->device->ibdev_name;
  return nullptr;
}

Sdk::Entry Sdk::enter(Function function, const Subject& subject) {
  const std::scoped_lock lock(mutex_);
  Entry entry;
  if (subject.handle) entry.device = nameOfDevice(subject.handle);
  entry.fault = scenario_.faults.next(function, entry.device);
  return entry;
}

void Sdk::leave(Function function, const Subject& subject, const Entry& entry,
                const char* result) const {
  if (!trace_.on()) return;
  char place[32] = "-";
  if (subject.slot && subject.counter)
    std::snprintf(place, sizeof place, "%u/%u", *subject.slot, *subject.counter);
  else if (subject.slot)
    std::snprintf(place, sizeof place, "%u", *subject.slot);
  trace_.call(nameOf(function), entry.device, place, result, entry.fault != nullptr);
}

vuna_status Sdk::misuse(const char* function, const std::string* device, const char* what,
                        vuna_status status) {
  ++totals_.misuses;
  trace_.misuse(function, device, what);
  log_.line(kLogError, "%s: %s", function, what);
  return status;
}

const char* Sdk::statusName(vuna_status status) const {
  if (status == kScenarioRefused && !refusal_.empty()) return refusal_.c_str();
  const auto own = scenario_.status_names.find(status);
  if (own != scenario_.status_names.end()) return own->second.c_str();
  const char* const name = vuna_common_status_name(status);
  return name ? name : "VUNA_STATUS_WITHOUT_NAME";
}

std::string Sdk::report() const {
  std::string text;
  const auto add = [&text](const char* name, std::uint64_t value) {
    text.append(name).append(" ").append(std::to_string(value)).append("\n");
  };
  add("lists_created", totals_.lists_created);
  add("lists_destroyed", totals_.lists_destroyed);
  add("opens", totals_.opens);
  add("closes", totals_.closes);
  add("creates", totals_.creates);
  add("destroys", totals_.destroys);
  add("starts", totals_.starts);
  add("stops", totals_.stops);
  add("misuses", totals_.misuses);
  for (std::size_t i = 0; i < kFunctionCount; ++i)
    if (const std::uint64_t calls = calls_[i]) add(kFunctionNames[i], calls);
  return text;
}

bool Sdk::released() const {
  const std::scoped_lock lock(mutex_);
  const auto unowned = [](const auto& entry) { return entry.second->unowned; };
  return std::ranges::all_of(lists_, unowned) && std::ranges::all_of(devs_, unowned) &&
         std::ranges::all_of(contexts_, unowned);
}

// A release never fails. When memory is short, the released handle is not kept.
void Sdk::retire(std::shared_ptr<void> handle) noexcept {
  try {
    retired_.push_back(std::move(handle));
  } catch (const std::bad_alloc&) {
    return;
  }
  if (retired_.size() > kMaxRetired) retired_.pop_front();
}

// --- Handles ----------------------------------------------------------------------------------

const vuna_devinfo* Sdk::info(Function function, const vuna_devinfo* devinfo) {
  const std::scoped_lock lock(mutex_);
  const vuna_devinfo* const found = findInfo(devinfo);
  if (!found) misuse(function, nullptr, "device description is not alive", kBadArgument);
  return found;
}

std::shared_ptr<vuna_telemetry_mp> Sdk::context(Function function, vuna_telemetry_mp* mp) {
  const std::scoped_lock lock(mutex_);
  auto found = find(contexts_, mp);
  if (!found) misuse(function, nullptr, "context is not alive", kBadArgument);
  return found;
}

void Sdk::tell(const void* handle, ToldSize size, std::uint32_t value) {
  const std::scoped_lock lock(mutex_);
  if (const auto found = find(contexts_, handle))
    found->told().*size = value;
  else if (const vuna_devinfo* const info = findInfo(handle))
    info->told.*size = value;
}

vuna_status Sdk::createList(vuna_devinfo*** list, std::uint32_t* count, bool unowned) {
  if (!refusal_.empty()) {
    log_.line(kLogError, "%s", refusal_.c_str());
    return kScenarioRefused;
  }
  for (const std::string& note : scenario_.notes) log_.line(kLogWarning, "%s", note.c_str());
  auto made = std::make_shared<List>();
  made->unowned = unowned;
  made->infos.reserve(scenario_.devices.size());
  made->array.reserve(scenario_.devices.size() + 1);
  for (const Device& device : scenario_.devices) {
    made->infos.push_back(std::make_unique<vuna_devinfo>(device));
    made->array.push_back(made->infos.back().get());
  }
  made->array.push_back(nullptr);

  const std::scoped_lock lock(mutex_);
  lists_.emplace(made->array.data(), made);
  try {
    for (const auto& info : made->infos) listed_infos_.emplace(info.get(), info.get());
  } catch (const std::bad_alloc&) {
    for (const auto& info : made->infos) listed_infos_.erase(info.get());
    lists_.erase(made->array.data());
    throw;
  }
  *list = made->array.data();
  *count = static_cast<std::uint32_t>(scenario_.devices.size());
  ++totals_.lists_created;
  log_.line(kLogInfo, "listed %u devices", *count);
  return kVunaSuccess;
}

vuna_status Sdk::destroyList(vuna_devinfo** list) {
  if (!list) return kVunaSuccess;  // a list that was never created may be released
  const std::scoped_lock lock(mutex_);
  const auto found = find(lists_, list);
  if (!found)
    return misuse(Function::vuna_devinfo_destroy_list, nullptr, "list is not alive", kBadArgument);
  retire(found);
  for (const auto& info : found->infos) listed_infos_.erase(info.get());
  lists_.erase(list);
  ++totals_.lists_destroyed;
  return kVunaSuccess;
}

vuna_status Sdk::open(vuna_devinfo* devinfo, vuna_dev** dev, bool unowned) {
  const vuna_devinfo* const known = info(Function::vuna_dev_open, devinfo);
  if (!known) return kBadArgument;
  auto opened = std::make_shared<vuna_dev>(*known->device, unowned);
  const std::scoped_lock lock(mutex_);
  devs_.emplace(opened.get(), opened);
  *dev = opened.get();
  ++totals_.opens;
  log_.line(kLogInfo, "opened %s", known->device->ibdev_name.c_str());
  return kVunaSuccess;
}

vuna_status Sdk::close(vuna_dev* dev) {
  const std::scoped_lock lock(mutex_);
  const auto found = find(devs_, dev);
  if (!found) return misuse(Function::vuna_dev_close, nullptr, "device is not open", kBadArgument);
  const std::string& name = found->info.device->ibdev_name;

  for (auto place = contexts_.begin(); place != contexts_.end();) {
    const std::shared_ptr<vuna_telemetry_mp> context = place->second;
    if (context->dev() != dev) {
      ++place;
      continue;
    }
    if (!context->unowned)
      misuse(Function::vuna_dev_close, &name, "a context of the device is alive", kWrongState);
    context->stop();
    retire(context);
    place = contexts_.erase(place);
  }
  retire(found);
  devs_.erase(dev);
  ++totals_.closes;
  log_.line(kLogInfo, "closed %s", name.c_str());
  return kVunaSuccess;
}

vuna_devinfo* Sdk::asDevinfo(vuna_dev* dev) {
  const std::scoped_lock lock(mutex_);
  const auto found = find(devs_, dev);
  if (found) return &found->info;
  misuse(Function::vuna_dev_as_devinfo, nullptr, "device is not open", kBadArgument);
  return nullptr;
}

vuna_status Sdk::create(vuna_dev* dev, vuna_telemetry_mp** mp, bool unowned) {
  const std::scoped_lock lock(mutex_);
  auto found = find(devs_, dev);
  if (!found)
    return misuse(Function::vuna_telemetry_mp_create, nullptr, "device is not open", kBadArgument);
  auto context = std::make_shared<vuna_telemetry_mp>(std::move(found), scenario_, unowned);
  contexts_.emplace(context.get(), context);
  *mp = context.get();
  ++totals_.creates;
  return kVunaSuccess;
}

vuna_status Sdk::destroy(vuna_telemetry_mp* mp) {
  const std::scoped_lock lock(mutex_);
  const auto found = find(contexts_, mp);
  if (!found)
    return misuse(Function::vuna_telemetry_mp_destroy, nullptr, "context is not alive",
                  kBadArgument);
  if (found->mustBeStopped())
    misuse(Function::vuna_telemetry_mp_destroy, &found->device().ibdev_name, "context is started",
           kWrongState);
  found->stop();
  retire(found);
  contexts_.erase(mp);
  ++totals_.destroys;
  return kVunaSuccess;
}

vuna_status Sdk::start(vuna_telemetry_mp* mp, bool unowned) {
  const auto found = context(Function::vuna_telemetry_mp_start, mp);
  if (!found) return kBadArgument;
  const std::string& name = found->device().ibdev_name;
  if (!found->start(unowned))
    return misuse(Function::vuna_telemetry_mp_start, &name, "context is started", kWrongState);
  ++totals_.starts;
  log_.line(kLogInfo, "started %s", name.c_str());
  return kVunaSuccess;
}

vuna_status Sdk::stop(vuna_telemetry_mp* mp) {
  const auto found = context(Function::vuna_telemetry_mp_stop, mp);
  if (!found) return kBadArgument;
  const std::string& name = found->device().ibdev_name;
  if (!found->stop())
    return misuse(Function::vuna_telemetry_mp_stop, &name, "context is not started", kWrongState);
  ++totals_.stops;
  log_.line(kLogInfo, "stopped %s", name.c_str());
  return kVunaSuccess;
}

}  // namespace simulator
