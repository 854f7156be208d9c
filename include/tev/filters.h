/* Token filters: is a name (of a counter, a field or a device) wanted?
 *
 * An expression lists tokens, each after a '+' (inclusive) or a '-' (exclusive); the first sign may
 * be left out and is then '+'. A name passes when it matches every inclusive token and no exclusive
 * one. A token is a text that the name must contain, in any letter case; '^' before it ties it to
 * the name's start, '$' after it to the name's end.
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
 * fit is logged and ends the splitting: what came before it stays. */
TEV_API void tev_filter_get_incl_excl_tokens(const char* expression, tev_filter_token_t* incl,
                                             size_t* incl_count, tev_filter_token_t* excl,
                                             size_t* excl_count);

/* Whether `name` passes. Neither array may be null, even with a count of 0. They are only read; C
 * has no implicit way to an array of const. */
TEV_API bool tev_filter_have_match(tev_filter_token_t* incl, size_t incl_count,
                                   tev_filter_token_t* excl, size_t excl_count, const char* name);

/* Whether one token matches. Of `token`, TEV_FILTER_TOKEN_SIZE characters are looked at, or those
 * before its NUL. Only the first occurrence counts: "ab$" does not match "abab". */
TEV_API bool tev_filter_match_single_token(const char* name, const char* token);

/* Lower-cases `text`, which may be null, in place. */
TEV_API void tev_filter_to_lower(char* text);

TEV_C_END

#endif
