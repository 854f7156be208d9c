// Writes the recording of recording.h: make_recording FILE SAMPLES
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tests/host/plot/recording.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    tev::test::writeRecording(argv[1], static_cast<std::uint32_t>(std::atoi(argv[2])));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
