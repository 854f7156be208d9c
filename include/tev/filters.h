/* Token filters: they select names of counters, fields or devices.
 *
 * An expression lists tokens, each preceded by '+' (inclusive) or '-' (exclusive). The first sign
 * may be omitted and is then '+'. A name passes when it matches every inclusive token and does not
 * match any exclusive one. A token is a text that the name must contain; letter case is ignored.
 * '^' before the text anchors it to the name's start, '$' after the text to the name's end.
 *
 * The functions allocate nothing and may run on any thread.
 */
#ifndef TEV_FILTERS_H
#define TEV_FILTERS_H

#include <stdbool.h>
#include <stddef.h>

#include "tev/export.h"

TEV_C_BEGIN

#define TEV_FILTER_MAX_TOKENS 32
#define TEV_FILTER_TOKEN_SIZE 128

/* One slot of a token array: a text and its NUL. */
typedef char tev_filter_token_t[TEV_FILTER_TOKEN_SIZE];

/* Splits `expression` into two arrays of TEV_FILTER_MAX_TOKENS slots each. A token that does not
 * fit is logged and ends the splitting. The tokens before it remain in the arrays. */
TEV_API void tev_filter_get_incl_excl_tokens(const char* expression, tev_filter_token_t* incl,
                                             size_t* incl_count, tev_filter_token_t* excl,
                                             size_t* excl_count);

/* Whether `name` passes. The arrays must not be null, even with a count of 0. The function does not
 * change them. They are not const, because C does not convert an array of arrays to const
 * implicitly. */
TEV_API bool tev_filter_have_match(tev_filter_token_t* incl, size_t incl_count,
                                   tev_filter_token_t* excl, size_t excl_count, const char* name);

/* Whether one token matches. `token` ends at its NUL or after TEV_FILTER_TOKEN_SIZE characters.
 * Only the first occurrence in the name is examined: "ab$" does not match "abab". */
TEV_API bool tev_filter_match_single_token(const char* name, const char* token);

/* Lower-cases `text`, which may be null, in place. */
TEV_API void tev_filter_to_lower(char* text);

TEV_C_END

#endif
