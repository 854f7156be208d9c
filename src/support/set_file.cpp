#include "src/support/set_file.h"

#include <boost/filesystem/operations.hpp>
#include <utility>

#include "src/support/text_file.h"
#include "tev/logger.h"

namespace tev::support {
namespace {

constexpr const char* kFunction = "loadFromFile";  // of both classes

bool isMissing(const std::string& filename) {
  boost::system::error_code ignored;
  return boost::filesystem::status(filename, ignored).type() == boost::filesystem::file_not_found;
}

// The last part of the path, without its last extension.
std::string stemOf(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

void logLines(const std::string& filename, const SetFileKind& kind, const Lines& lines) {
  TEV_LOG_DEBUG("[%s] loading %s file %s", kFunction, kind.extension, filename.c_str());
  for (const std::string_view line : lines)
    TEV_LOG_DEBUG("[%s] %.*s", kFunction, static_cast<int>(line.size()), line.data());
  TEV_LOG_DEBUG("[%s] -----------------------", kFunction);
}

}  // namespace

std::string_view trimLine(std::string_view line) {
  return trimView(line, " \t\r\n");
}

bool loadSetFile(const std::string& filename, const SetFileKind& kind, std::string& name,
                 const std::function<bool(const Lines&)>& load) {
  if (filename.empty()) {
    TEV_LOG_ERROR("[%s] empty filename", kFunction);
    return false;
  }
  if (isMissing(filename)) {
    TEV_LOG_ERROR("[%s] file %s does not exist", kFunction, filename.c_str());
    return false;
  }
  const auto text = readWholeText(kFunction, filename);
  if (!text) {
    TEV_LOG_WARNING("[%s] cannot open %s file %s", kFunction, kind.content, filename.c_str());
    return false;
  }
  std::string stem = stemOf(filename);
  const Lines lines(*text);
  logLines(filename, kind, lines);
  const bool loaded = load(lines);
  name = std::move(stem);
  if (loaded) return true;
  TEV_LOG_WARNING("[%s] no patterns found in %s", kFunction, filename.c_str());
  return false;
}

}  // namespace tev::support
