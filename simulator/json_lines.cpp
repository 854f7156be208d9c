#include "simulator/json_lines.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace simulator {
namespace {

// Much deeper than any scenario, and small enough for recursion over the tree.
constexpr std::size_t kMaxDepth = 32;
constexpr std::size_t kMaxMembers = 1024;  // of one object

// The position of the parser. The parser reads one character after a number, which may be a line
// feed. A line feed therefore belongs to the line that it ends.
struct Cursor {
  std::size_t line = 1;
  bool ended = false;

  void pass(char c) {
    if (ended) ++line;
    ended = c == '\n';
  }
};

// An iterator over the text that also advances the cursor. The parser keeps its own copy of the
// iterator.
class TrackedText {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  TrackedText(const char* position, Cursor* cursor) : position_(position), cursor_(cursor) {}

  const char& operator*() const { return *position_; }
  TrackedText& operator++() {
    cursor_->pass(*position_++);
    return *this;
  }
  TrackedText operator++(int) {
    TrackedText before = *this;
    ++*this;
    return before;
  }
  bool operator==(const TrackedText& other) const { return position_ == other.position_; }
  bool operator!=(const TrackedText& other) const { return position_ != other.position_; }

 private:
  const char* position_;
  Cursor* cursor_;
};

class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit TreeBuilder(const Cursor& cursor) : cursor_(cursor) {}

  Json take() { return std::move(root_); }

  bool null() override {
    add(Json::Type::null);
    return true;
  }
  bool boolean(bool value) override {
    add(Json::Type::boolean).boolean = value;
    return true;
  }
  bool number_integer(number_integer_t value) override {
    add(Json::Type::negative_number).real = static_cast<double>(value);
    return true;
  }
  bool number_unsigned(number_unsigned_t value) override {
    Json& json = add(Json::Type::unsigned_number);
    json.number = value;
    json.real = static_cast<double>(value);
    return true;
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    add(Json::Type::real_number).real = value;
    return true;
  }
  bool string(string_t& value) override {
    add(Json::Type::string).text = std::move(value);
    return true;
  }
  bool binary(binary_t& /*value*/) override { return false; }

  bool start_object(std::size_t /*size*/) override { return open(Json::Type::object); }
  bool start_array(std::size_t /*size*/) override { return open(Json::Type::array); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& value) override {
    std::vector<JsonMember>& members = open_.back()->members;
    for (const JsonMember& member : members)
      if (member.key == value)
        throw JsonError(cursor_.line, "key \"" + value + "\" is given twice");
    if (members.size() == kMaxMembers) throw JsonError(cursor_.line, "too many keys in one object");
    members.push_back({std::move(value), cursor_.line, {}});
    return true;
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& error) override {
    throw JsonError(cursor_.line, plainReason(error.what()));
  }

 private:
  // The library's message without the identifier and the position at its beginning.
  static std::string plainReason(std::string_view text) {
    constexpr std::size_t kNone = std::string_view::npos;
    if (const std::size_t mark = text.find("] "); mark != kNone) text.remove_prefix(mark + 2);
    if (const std::size_t column = text.find("column "); column != kNone)
      if (const std::size_t colon = text.find(": ", column); colon != kNone)
        text.remove_prefix(colon + 2);
    return std::string(text);
  }

  // A pointer into the tree is valid while its value is being built, because its siblings are
  // added only afterwards.
  Json& add(Json::Type type) {
    Json* place = &root_;
    if (!open_.empty()) {
      Json& parent = *open_.back();
      place = parent.type == Json::Type::array ? &parent.items.emplace_back()
                                               : &parent.members.back().value;
    }
    place->type = type;
    place->line = cursor_.line;
    return *place;
  }

  bool open(Json::Type type) {
    if (open_.size() == kMaxDepth) throw JsonError(cursor_.line, "nested too deeply");
    open_.push_back(&add(type));
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  const Cursor& cursor_;
  Json root_;
  std::vector<Json*> open_;
};

}  // namespace

Json parseJson(std::string_view text) {
  Cursor cursor;
  TreeBuilder builder(cursor);
  nlohmann::json::sax_parse(TrackedText(text.data(), &cursor),
                            TrackedText(text.data() + text.size(), &cursor), &builder,
                            nlohmann::detail::input_format_t::json, true, true);
  return builder.take();
}

}  // namespace simulator
