#pragma once

#include <thread>
#include <vector>

namespace tev::test {

// Runs `body` this number of times, each time on its own thread, with the number of the thread.
template <class Body>
void onThreads(int count, const Body& body) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
  for (auto& thread : threads) thread.join();
}

}  // namespace tev::test
