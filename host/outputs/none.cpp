// No text at all. The events are counted for the summary.
#include "host/outputs/text_output.h"

namespace tev::host {
namespace {

class NoOutput final : public TextOutput {
 public:
  explicit NoOutput(const OutputSetup& setup) : TextOutput(setup) {}
};

}  // namespace

std::unique_ptr<Output> makeNone(const OutputSetup& setup) {
  return std::make_unique<NoOutput>(setup);
}

}  // namespace tev::host
