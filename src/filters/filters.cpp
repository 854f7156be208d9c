#include "tev/filters.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "tev/logger.h"

namespace {

constexpr std::size_t kMaxTokens = TEV_FILTER_MAX_TOKENS;
constexpr std::size_t kTokenSize = TEV_FILTER_TOKEN_SIZE;

char lower(char character) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

// A token that fills its slot has no NUL.
std::string_view tokenText(const char* token) {
  return {token, strnlen(token, kTokenSize)};
}

struct TerminatedToken {
  char text[kTokenSize + 1];
};

TerminatedToken terminated(const char* token) {
  TerminatedToken copy{};
  tokenText(token).copy(copy.text, kTokenSize);
  return copy;
}

// Returns false, with the reason logged, when there is no room for the token. Empty tokens are
// ignored.
bool append(std::string_view token, tev_filter_token_t* tokens, std::size_t& count) {
  if (token.empty()) return true;
  if (count >= kMaxTokens) {
    TEV_LOG_ERROR("Cannot handle more than %d tokens", TEV_FILTER_MAX_TOKENS);
    return false;
  }
  if (token.size() >= kTokenSize) {
    TEV_LOG_ERROR("Token of size %zu is too long to keep in the tokens array", token.size());
    return false;
  }
  char* const slot = tokens[count++];
  slot[token.copy(slot, token.size())] = '\0';
  return true;
}

// The end of the first occurrence of `core` in `text`; npos when `core` does not occur, or occurs
// in the wrong place.
std::size_t endOfCore(std::string_view text, std::string_view core, bool at_start) {
  const auto found = std::search(text.begin(), text.end(), core.begin(), core.end(),
                                 [](char left, char right) { return lower(left) == lower(right); });
  if (found == text.end() || (at_start && found != text.begin())) return std::string_view::npos;
  return static_cast<std::size_t>(found - text.begin()) + core.size();
}

bool tracedMatch(const char* kind, const char* token, const char* name) {
  const bool found = tev_filter_match_single_token(name, token);
  // The line prints the verb inside the quotes and the token after them. Its text is kept for
  // compatibility.
  TEV_LOG_DEBUG("[tev_filter_have_match] %s token '%s' %s found in '%s'", kind,
                found ? "was" : "was not", terminated(token).text, name);
  return found;
}

}  // namespace

void tev_filter_get_incl_excl_tokens(const char* expression, tev_filter_token_t* incl,
                                     std::size_t* incl_count, tev_filter_token_t* excl,
                                     std::size_t* excl_count) {
  if (incl_count) *incl_count = 0;
  if (excl_count) *excl_count = 0;
  if (!expression || !incl || !incl_count || !excl || !excl_count) return;

  std::string_view rest(expression);
  bool exclusive = false;
  for (;;) {
    const auto end = rest.find_first_of("+-");
    const auto token = rest.substr(0, end);
    const bool kept =
        exclusive ? append(token, excl, *excl_count) : append(token, incl, *incl_count);
    if (!kept || end == std::string_view::npos) return;
    exclusive = rest[end] == '-';
    rest.remove_prefix(end + 1);
  }
}

bool tev_filter_have_match(tev_filter_token_t* incl, std::size_t incl_count,
                           tev_filter_token_t* excl, std::size_t excl_count, const char* name) {
  if (!incl || !excl || !name) return false;
  for (std::size_t i = 0; i < std::min(excl_count, kMaxTokens); ++i)
    if (tracedMatch("exclusive", excl[i], name)) return false;
  for (std::size_t i = 0; i < std::min(incl_count, kMaxTokens); ++i)
    if (!tracedMatch("inclusive", incl[i], name)) return false;
  return true;
}

bool tev_filter_match_single_token(const char* name, const char* token) {
  if (!name || !token) return false;
  const std::string_view text(name);
  std::string_view rest = tokenText(token);

  const std::size_t carets = std::min(rest.find_first_not_of('^'), rest.size());
  rest.remove_prefix(carets);
  const bool at_start = carets != 0;
  const auto core = rest.substr(0, rest.find_first_of("^$"));
  rest.remove_prefix(core.size());

  std::size_t match_end = at_start ? 0 : text.size();
  if (!core.empty()) match_end = endOfCore(text, core, at_start);
  if (match_end == std::string_view::npos) return false;

  if (!rest.empty() && match_end != text.size()) return false;
  return rest.find_first_not_of('$') == std::string_view::npos;
}

void tev_filter_to_lower(char* text) {
  if (!text) return;
  for (; *text != '\0'; ++text) *text = lower(*text);
}
