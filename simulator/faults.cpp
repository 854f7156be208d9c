#include "simulator/faults.h"

#include <utility>

namespace simulator {

void Faults::add(Fault fault) {
  std::vector<Fault>& faults = of_[indexOf(fault.function)];
  faults.push_back(std::move(fault));
}

const Fault* Faults::next(Function function, const std::string* device) {
  const Fault* due = nullptr;
  for (Fault& fault : of_[indexOf(function)]) {
    if (fault.device && (!device || *fault.device != *device)) continue;
    ++fault.seen;
    if (!due && (!fault.call || *fault.call == fault.seen)) due = &fault;
  }
  return due;
}

bool concernsDevice(Function function) {
  switch (function) {
    case Function::vuna_error_get_name:
    case Function::vuna_log_backend_create_with_file_sdk:
    case Function::vuna_log_backend_set_sdk_level:
    case Function::vuna_devinfo_create_list:
    case Function::vuna_devinfo_destroy_list:
      return false;
    default:
      return true;
  }
}

bool deliversNumber(Function function) {
  switch (function) {
    case Function::vuna_telemetry_mp_cap_get_max_algo_slots:
    case Function::vuna_telemetry_mp_get_algo_id:
    case Function::vuna_telemetry_mp_get_algo_major_version:
    case Function::vuna_telemetry_mp_get_algo_minor_version:
    case Function::vuna_telemetry_mp_cap_get_max_algo_info_len:
    case Function::vuna_telemetry_mp_get_num_counters:
    case Function::vuna_telemetry_mp_cap_get_max_counter_info_len:
    case Function::vuna_telemetry_mp_cap_get_max_num_counters:
    case Function::vuna_telemetry_mp_get_counters:
    case Function::vuna_telemetry_mp_get_and_clear_counters:
      return true;
    default:
      return false;
  }
}

bool releases(Function function) {
  switch (function) {
    case Function::vuna_devinfo_destroy_list:
    case Function::vuna_dev_close:
    case Function::vuna_telemetry_mp_destroy:
    case Function::vuna_telemetry_mp_stop:
      return true;
    default:
      return false;
  }
}

}  // namespace simulator
