// Whether the topics can keep what is sent.
#pragma once

#include <string>

namespace tev::host {

class KafkaClient;

// The topic of the events with this name, and that of their schemas. Throws RunError when one does
// not exist, or has settings with which events are lost. Returns a sentence when the loss of a
// single broker can lose events, else an empty text. Settings that the brokers do not show to
// this client are not checked.
std::string expectTopics(KafkaClient& client, const std::string& name);

}  // namespace tev::host
