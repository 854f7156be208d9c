// JSON lines: one object per event, with its source.
#include <fmt/format.h>
#include <unistd.h>

#include <iterator>
#include <vector>

#include "host/fleet/sink.h"
#include "host/outputs/json_text.h"
#include "host/outputs/json_value.h"
#include "host/outputs/output_file.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

// The parts that all objects of a type have in common.
struct Labels {
  std::string type;
  std::vector<std::string> columns;
};

std::vector<Labels> labelsOf(const SchemaView& view) {
  std::vector<Labels> all;
  for (const TypeView& type : view.types()) {
    Labels& labels = all.emplace_back();
    labels.type = jsonLabel("type");
    appendJsonText(labels.type, type.name);
    UniqueNames names;
    for (const char* const taken : {"source", "run", "sequence"}) names.add(taken);
    for (const Column& column : type.columns)
      labels.columns.push_back(jsonLabel(names.add(column.name)));
  }
  return all;
}

class JsonlSink final : public Sink {
 public:
  explicit JsonlSink(const std::string& path) : file_(path) {
    expectOnlyWriter(file_);
    lseek(file_.descriptor(), 0, SEEK_END);
    file_.whileStalled([](auto) { return StopSignal::requests() == 0; });
  }

  void take(const MessageHead& head, const Contents& contents, std::uint64_t skipped) override {
    const std::vector<Labels>& types = labels_.of(contents.schema, labelsOf);
    std::string begin = "{\"source\":";
    appendJsonText(begin, head.run.source);
    begin += fmt::format(",\"run\":\"{}\",\"sequence\":", runText(head.run.start));
    forEachEvent(head, contents, skipped, [&](const Event& event, std::uint64_t number) {
      const Labels& labels = types[event.type->number];
      std::string& out = file_.buffer();
      out += begin;
      fmt::format_to(std::back_inserter(out), "{},\"timestamp\":{}", number, event.timestamp_usec);
      out += labels.type;
      for (std::size_t i = 0; i < labels.columns.size(); ++i) {
        out += labels.columns[i];
        appendJsonValue(out, event.type->columns[i], event.data);
      }
      out += "}\n";
      file_.flushWhenLarge();
    });
  }

  void flush() override { file_.flush(); }

 private:
  OutputFile file_;
  PerSchema<std::vector<Labels>> labels_;
};

}  // namespace

std::unique_ptr<Sink> makeJsonlSink(const std::string& path) {
  return std::make_unique<JsonlSink>(path);
}

}  // namespace tev::host
