// Parquet files in a folder: one table for each type of event.
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <vector>

#include "host/outputs/formats.h"
#include "host/outputs/parquet_fields.h"
#include "host/parquet/parquet_file.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMaxMemory = std::size_t{256} << 20;  // bytes, of all files
constexpr std::size_t kMaxFileName = 200;                   // bytes, without the suffix

// The time stamp is in front of the event.
constexpr std::size_t kTimeSize = sizeof(std::uint64_t);

std::vector<RowField> fieldsOf(const std::vector<Column>& columns) {
  std::vector<RowField> fields = parquetFields(columns, kTimeSize);
  fields.insert(fields.begin(), {"timestamp", TEV_TYPE_TIMESTAMP, 0, kTimeSize});
  return fields;
}

// The names of the types as names of files. They are different also where upper and lower case are
// the same.
class FileNames {
 public:
  std::string add(const std::string& type) {
    std::string name;
    for (const char c : type.substr(0, kMaxFileName)) name += isPlainInFileName(c) ? c : '_';
    if (name.empty()) name = "type";
    std::string unique = name;
    for (int i = 2; !taken_.insert(lowered(unique)).second; ++i)
      unique = fmt::format("{}_{}", name, i);
    return unique + ".parquet";
  }

 private:
  static std::string lowered(std::string name) {
    for (char& c : name)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name;
  }

  std::set<std::string> taken_;
};

class ParquetOutput final : public Output {
 public:
  explicit ParquetOutput(const OutputSetup& setup)
      : projection_(setup.projection), folder_(setup.folder) {}

  const Projection* projection() const override { return &projection_; }

  void begin() override {
    std::error_code error;
    std::filesystem::create_directories(folder_, error);
    if (std::error_code ignored; !std::filesystem::is_directory(folder_, ignored))
      throw RunError(
          fmt::format("cannot make a folder {}: {}", asPrintable(folder_),
                      error ? error.message() : std::generic_category().message(ENOTDIR)));
    const auto& types = projection_.schema().types();
    FileNames names;
    for (const TypeView& type : types) {
      const std::string name = names.add(type.name);
      auto& file = files_.emplace_back();
      if (!projection_.takes(type)) continue;
      file = std::make_unique<ParquetFile>((std::filesystem::path(folder_) / name).string(),
                                           fieldsOf(projection_.columns(type)),
                                           kTimeSize + type.size, kMaxMemory / types.size());
    }
  }

  void event(const Event& event, const Series&) override {
    std::uint8_t* const row = files_[event.type->number]->addRow();
    std::memcpy(row, &event.timestamp_usec, kTimeSize);
    std::memcpy(row + kTimeSize, event.data, event.type->size);
  }

  void end(const RunStatus& status) override {
    for (const TypeView& type : projection_.schema().types()) {
      if (!files_[type.number]) continue;
      const SchemaView::Schema& schema = projection_.schema().schemaOf(type);
      files_[type.number]->complete({{"tev.type", asUtf8(type.name)},
                                     {"tev.source", asUtf8(status.source)},
                                     {"tev.schema_id", schema.id},
                                     {"tev.schema", schema.text}});
    }
    // Only all together are the recording.
    for (const auto& file : files_)
      if (file) file->publish();
    files_.clear();
  }

  void leave() override { files_.clear(); }

 private:
  const Projection& projection_;
  std::string folder_;
  std::vector<std::unique_ptr<ParquetFile>> files_;  // by the type's number; null: not taken
};

}  // namespace

std::unique_ptr<Output> makeParquet(const OutputSetup& setup) {
  return std::make_unique<ParquetOutput>(setup);
}

}  // namespace tev::host
