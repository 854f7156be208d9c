// Comma-separated values: a file for each layout of events.
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "host/events/values.h"
#include "host/fleet/sink.h"
#include "host/outputs/csv_text.h"
#include "host/outputs/output_file.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kOpenFiles = 64;

class CsvSink final : public Sink {
 public:
  explicit CsvSink(std::string folder) : folder_(std::move(folder)) { makeSinkFolder(folder_); }

  void take(const MessageHead& head, const Contents& contents, std::uint64_t skipped) override {
    std::string source;
    appendCsvText(source, asPrintable(head.run.source));
    const std::string begin = fmt::format("{},{},", source, runText(head.run.start));
    forEachEvent(head, contents, skipped, [&](const Event& event, std::uint64_t number) {
      OutputFile& file = fileOf(*contents.schema->layouts[event.type->number]);
      std::string& out = file.buffer();
      fmt::format_to(std::back_inserter(out), "{}{},{},", begin, number, event.timestamp_usec);
      appendCsvText(out, event.type->name);
      for (const Column& column : event.type->columns) {
        std::string value;
        appendPlain(value, column, event.data);
        appendCsvText(out += ',', value);
      }
      out += '\n';
      file.flushWhenLarge();
    });
  }

  void flush() override {
    for (const auto& [name, file] : files_) file->flush();
  }

 private:
  OutputFile& fileOf(const EventLayout& layout) {
    const std::string name = fmt::format("{}+{}.csv", layout.kind, layout.digest);
    auto& file = files_[name];
    if (file) return *file;
    if (files_.size() > kOpenFiles) {
      for (const auto& entry : files_)
        if (entry.second) entry.second->close();
      files_.clear();
    }
    auto& opened = files_[name];
    opened = std::make_unique<OutputFile>(folder_ + "/" + name);
    expectOnlyWriter(*opened);
    if (lseek(opened->descriptor(), 0, SEEK_END) == 0) writeHeadings(layout, opened->buffer());
    return *opened;
  }

  static void writeHeadings(const EventLayout& layout, std::string& out) {
    out += "source,run,sequence,timestamp,type";
    UniqueNames names;
    for (const char* const taken : {"source", "run", "sequence"}) names.add(taken);
    for (const Column& column : layout.columns) appendCsvText(out += ',', names.add(column.name));
    out += '\n';
  }

  std::string folder_;
  std::map<std::string, std::unique_ptr<OutputFile>> files_;
};

}  // namespace

void expectOnlyWriter(const OutputFile& file) {
  struct stat status {};
  if (fstat(file.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (flock(file.descriptor(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    throw RunError(fmt::format("another process writes {}; each worker needs an output of its own",
                               asPrintable(file.name())));
}

void makeSinkFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (std::error_code ignored; !std::filesystem::is_directory(folder, ignored))
    throw RunError(fmt::format("cannot make a folder {}: {}", asPrintable(folder),
                               error ? error.message() : std::generic_category().message(ENOTDIR)));
}

std::unique_ptr<Sink> makeCsvSink(const std::string& folder) {
  return std::make_unique<CsvSink>(folder);
}

}  // namespace tev::host
