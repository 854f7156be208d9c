/* The option dictionary: text to text. It has its own copies of all keys and values.
 *
 * A dictionary is built by one thread and then only read. Every call accepts a null dictionary: it
 * then fails, or finds nothing.
 */
#ifndef TEV_DICT_H
#define TEV_DICT_H

#include <stdbool.h>

#include "tev/export.h"

TEV_C_BEGIN

typedef struct tev_custom_options tev_custom_options;

/* Visits one entry; returns false to end the iteration. `value` is null for a key that was added
 * without one. */
typedef bool (*tev_dict_visitor_t)(const char* key, const char* value, void* user);

/* An empty dictionary, to be released with tev_dict_delete(); null when memory is short. */
TEV_API tev_custom_options* tev_dict_create(void);
TEV_API void tev_dict_delete(tev_custom_options* dict);

/* Inserts or replaces; `value` may be null. False, and the dictionary unchanged, when memory is
 * short or `dict` or `key` is null. */
TEV_API bool tev_dict_add(tev_custom_options* dict, const char* key, const char* value);

/* The value of `key`, or null when it is missing or has none. The dictionary owns the text, which
 * is valid until the entry is replaced or the dictionary is deleted. */
TEV_API const char* tev_dict_get(const tev_custom_options* dict, const char* key);

/* Calls `visitor` for every entry, in bucket order. False when the visitor ended the iteration. */
TEV_API bool tev_dict_enum(const tev_custom_options* dict, tev_dict_visitor_t visitor, void* user);

/* Logs all entries at debug level under the heading `name`. */
TEV_API void tev_dict_dump(const tev_custom_options* dict, const char* name);

/* A dictionary with copies of all entries; null when `dict` is null or memory is short. */
TEV_API tev_custom_options* tev_dict_dup(const tev_custom_options* dict);

/* True for "1", "true", "True" and for null: an option without a value is switched on. */
TEV_API bool tev_string_to_boolean(const char* text);

/* "true" or "false". */
TEV_API const char* boolean_to_string(bool value);

TEV_C_END

#endif
