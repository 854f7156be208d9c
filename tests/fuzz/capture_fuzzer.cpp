// Input: the first byte, whose bits are listed below, and a capture file or the chunks of one. The
// target gives chunks correct headers and hashes, so that mutations reach the bodies.
#include <sys/mman.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/events/decoder.h"
#include "host/support/errors.h"
#include "tests/fuzz/fuzz.h"
#include "tests/host/sample_types.h"

namespace {

using namespace tev::host;
using tev::test::check;

using Bytes = std::vector<std::uint8_t>;

// Bits of the first byte.
enum : std::uint8_t {
  kMade = 1,    // the input describes chunks
  kInPart = 2,  // only a part of the recording's time is read
  kCutOff = 4,  // as many bytes as the last byte of the input says are missing at the end
};

// What the second byte of a chunk's description says about its body.
enum : std::uint8_t {
  kStored,
  kPacked,        // by the target
  kClaimedFrame,  // the body is said to be packed
  kBare,          // the body has no header
  kUnknown,       // this and all others: an unknown codec
};

constexpr TimeSpan kAll;
constexpr TimeSpan kPart{2'000, 5'000};

// The file that is written again for each input.
class File {
 public:
  File() : descriptor_(memfd_create("capture", 0)) { check(descriptor_ >= 0, "a file in memory"); }

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  void write(const Bytes& bytes) const {
    const auto size = static_cast<ssize_t>(bytes.size());
    check(ftruncate(descriptor_, size) == 0, "the file gets its size");
    check(pwrite(descriptor_, bytes.data(), bytes.size(), 0) == size, "the file is written");
  }

 private:
  int descriptor_;
};

// A file whose chunks have correct headers. Each has a millisecond.
class Chunks {
 public:
  Chunks() {
    tev::test::SampleTypes types;
    types.add("t", {{"device", nullptr, "char", 0, 8}, {"rx", nullptr, "uint32_t", 0, 1}},
              {"device"});
    CaptureHead head;
    head.schemas = {SchemaView::fromTypeSystem(*types).schemas()[0].text};
    const std::string text = toJson(head);
    add(ChunkKind::head, kStored, Bytes(text.begin(), text.end()));
  }

  void add(ChunkKind kind, std::uint8_t form, Bytes body) {
    // A reader searches a body that it cannot read for headers. Without whole magics, it does not
    // find any.
    if (form != kStored && form != kPacked)
      std::ranges::replace(body, kCaptureMagic[sizeof kCaptureMagic - 1], std::uint8_t{0});
    if (form == kBare) {
      bytes.insert(bytes.end(), body.begin(), body.end());
      doubtful += body.size();
      return;
    }
    ChunkHeader header;
    header.file_id = 1;
    header.kind = kind;
    header.codec = form == kStored ? ChunkCodec::none : ChunkCodec::zstd;
    if (form >= kUnknown) header.codec = static_cast<ChunkCodec>(form);
    header.number = number_;
    header.unpacked = static_cast<std::uint32_t>(form == kClaimedFrame ? 4096 : body.size());
    header.first_usec = header.last_usec = 1000 * std::uint64_t{number_++};
    const Bytes stored = form == kPacked ? pack(body) : body;
    header.stored = static_cast<std::uint32_t>(stored.size());
    header.body_hash = hashOf(stored);
    bytes.resize(bytes.size() + kChunkHeaderSize);
    writeHeader(header, ChunkHeaderBytes(&bytes.end()[-std::ptrdiff_t{kChunkHeaderSize}],
                                         kChunkHeaderSize));
    bytes.insert(bytes.end(), stored.begin(), stored.end());
    if (form != kStored && form != kPacked) doubtful += kChunkHeaderSize + stored.size();
  }

  Bytes bytes;
  std::uint64_t doubtful = 0;  // bytes without a header, or whose body may be impossible to unpack

 private:
  static Bytes pack(const Bytes& body) {
    Bytes packed(ZSTD_compressBound(body.size()));
    packed.resize(ZSTD_compress(packed.data(), packed.size(), body.data(), body.size(), 1));
    return packed;
  }

  std::uint32_t number_ = 0;
};

// Each chunk is its kind, its form, the length of its body in two bytes, and the body.
void addAll(Chunks& chunks, const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kDescription = 4;
  while (size >= kDescription) {
    const std::size_t length =
        std::min<std::size_t>(data[2] + std::size_t{256} * data[3], size - kDescription);
    const std::uint8_t* const body = data + kDescription;
    chunks.add(static_cast<ChunkKind>(data[0]), data[1], Bytes(body, body + length));
    data = body + length;
    size -= kDescription + length;
  }
}

void checkDamages(const CaptureSource& source, std::uint64_t limit) {
  const CaptureFileState file = source.files().at(0);
  std::uint64_t end = 0;
  std::uint64_t sum = 0;
  for (const Damage& damage : file.damages) {
    check(damage.bytes + damage.chunks > 0 && damage.offset >= end, "damages are in order");
    end = damage.offset + damage.bytes;
    check(end <= file.size, "damages are in the file");
    sum += damage.bytes;
    check(!describe(file, damage).empty(), "damages have a text");
  }
  check(sum <= limit, "sound chunks are not passed over");
}

// At most `damaged` bytes may be passed over as damaged.
void readAll(const std::string& path, const TimeSpan& span, std::uint64_t damaged) {
  CaptureSource source({path}, span);
  std::uint64_t taken = 0;
  const auto take = [&](Blocks blocks) {
    try {
      decodeBlocks(source.schema(), blocks, [&](const Event&) {});
    } catch (const RunError&) {
      check(false, "passed blocks are well-formed");
    }
    taken += blocks.size();
  };
  std::uint64_t updates = 0;
  while (source.fetch(take, [] { return false; })) ++updates;
  check(source.readBytes() == source.size(), "the whole file is read");
  check(updates <= source.size() / kChunkHeaderSize, "each update has a chunk");
  checkDamages(source, damaged);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const File file;
  static const Chunks head;
  if (size == 0) return 0;
  const std::uint8_t bits = data[0];
  Chunks chunks = head;
  if (bits & kMade) addAll(chunks, data + 1, size - 1);
  Bytes bytes = bits & kMade ? chunks.bytes : Bytes(data + 1, data + size);
  if (bits & kCutOff)
    bytes.resize(bytes.size() - std::min<std::size_t>(bytes.size(), data[size - 1]));
  file.write(bytes);
  try {
    const bool is_whole = (bits & kMade) && !(bits & kCutOff);
    readAll(file.path(), bits & kInPart ? kPart : kAll, is_whole ? chunks.doubtful : UINT64_MAX);
  } catch (const RunError& error) {
    check(!std::string(error.what()).ends_with(": the file became shorter"),
          "nothing behind the end is read");
  }
  return 0;
}
