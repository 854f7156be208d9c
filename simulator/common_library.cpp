#include "simulator/common_library.h"

const char* vuna_common_status_name(vuna_status status) {
  switch (status) {
    case kVunaSuccess:
      return "VUNA_SUCCESS";
    case simulator::kFailure:
      return "VUNA_FAILURE";
    case simulator::kBadArgument:
      return "VUNA_BAD_ARGUMENT";
    case simulator::kNoMemory:
      return "VUNA_NO_MEMORY";
    case simulator::kDeviceGone:
      return "VUNA_DEVICE_GONE";
    case simulator::kWrongState:
      return "VUNA_WRONG_STATE";
    case simulator::kUnreadable:
      return "VUNA_UNREADABLE";
    case kVunaSlotEmpty:
      return "VUNA_SLOT_EMPTY";
    case kVunaSlotInvalid:
      return "VUNA_SLOT_INVALID";
    default:
      return nullptr;
  }
}

const char* vuna_common_version() {
  return "simulated " SIMULATOR_VERSION;
}
