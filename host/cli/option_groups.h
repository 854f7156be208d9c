// The options that several commands have. Each function adds one group to a command. The command
// keeps references to the objects that are to be filled in.
#pragma once

#include <CLI/CLI.hpp>

#include "host/capture/capture_options.h"
#include "host/capture/capture_source.h"
#include "host/cli/given.h"
#include "host/commands/run_options.h"
#include "host/kafka/settings.h"

namespace tev::host {

void addPluginPath(CLI::App& command, Given& given);

void addConfig(CLI::App& command, Given& given);

// The plug-in, its options, and the simulator.
void addPluginOptions(CLI::App& command, PluginOptions& plugin, Given& given);

void addUpdate(CLI::App& command, RunOptions& options);
void addLinkSpeed(CLI::App& command, RunOptions& options);

// Which events, and what their fields are.
void addSets(CLI::App& command, RunOptions& options);

// What is sampled, and for how long.
void addSelection(CLI::App& command, RunOptions& options);

void addTimeSpan(CLI::App& command, TimeSpan& span);
void addWritingOptions(CLI::App& command, RunOptions& options);
void addCaptureOptions(CLI::App& command, CaptureOptions& capture);
void addPrometheusOptions(CLI::App& command, Given& given);
void addBusOptions(CLI::App& command, Given& given);

// The brokers, the topic and the settings of the client.
void addKafkaOptions(CLI::App& command, KafkaOptions& kafka);

}  // namespace tev::host
