/* The provider record: what a host gets from a plug-in, and how it drives it.
 *
 * Order of calls, all from one thread of the host's: construct_event_provider(), initialize, start,
 * progress again and again, stop, finalize. get_sources and get_source_config may be called at any
 * time in between. No call lets one of the library's exceptions out.
 */
#ifndef TEV_EVENT_PROVIDER_H
#define TEV_EVENT_PROVIDER_H

#include <stdbool.h>
#include <stdint.h>

#include "tev/dict.h"
#include "tev/export.h"
#include "tev/schema.h"
#include "tev/serializer.h"
#include "tev/sources.h"

TEV_C_BEGIN

typedef struct tev_event_provider_t tev_event_provider_t;

/* How a source is configured; what the numbers mean is the host's business. */
typedef struct tev_event_provider_config_t {
  uint64_t word64;
  uint32_t word32;
  uint16_t word16;
} tev_event_provider_config_t;

/* Results of `progress`. */
enum {
  TEV_PROGRESS_DONE = 0, /* nothing more to write now */
  TEV_PROGRESS_FULL = 1, /* the serializer is full: drain it and call again */
  TEV_PROGRESS_FAILED = -1,
};

struct tev_event_provider_t {
  uint32_t version; /* the schema's */
  const char* name; /* also the schema's name */
  const char* description;
  void* reserved3;
  void* context; /* the plug-in's */
  /* Adds the provider's schema to the type system, which must outlive the provider, and begins to
   * sample. */
  bool (*initialize)(tev_event_provider_t* provider, tev_type_system_t* type_system);
  void (*reserved6)(void);
  bool (*start)(tev_event_provider_t* provider);
  /* Writes the events sampled since the last batch; TEV_PROGRESS_... `source_index` is one of the
   * sources that get_sources lists; there is one, 0. */
  int (*progress)(tev_event_provider_t* provider, uint16_t source_index,
                  tev_data_serializer_t* serializer);
  /* Ends sampling. Events sampled until then can still be fetched by `progress`. */
  bool (*stop)(tev_event_provider_t* provider);
  /* Frees the record and all it owns. To be called after `stop`; after an initialize that failed,
   * with or without one. */
  void (*finalize)(tev_event_provider_t* provider);
  /* A new array, which the host releases with tev_destroy_source_array(); null on failure. */
  tev_source_array_t* (*get_sources)(tev_event_provider_t* provider);
  bool (*get_source_config)(tev_event_provider_t* provider, uint16_t source_index,
                            tev_event_provider_config_t* config);
  void* reserved13[6];
};

/* The one symbol that a host needs besides the common library's. The options are read during the
 * call only. Null on failure, which is logged (tev/logger.h: silent until told otherwise). */
typedef tev_event_provider_t* (*tev_construct_event_provider_t)(const tev_custom_options* options);
TEV_API tev_event_provider_t* construct_event_provider(const tev_custom_options* options);

/* The entry points that the record carries. */
TEV_API bool multipath_event_provider_initialize(tev_event_provider_t* provider,
                                                 tev_type_system_t* type_system);
TEV_API bool multipath_event_provider_start(tev_event_provider_t* provider);
TEV_API int multipath_event_provider_progress(tev_event_provider_t* provider, uint16_t source_index,
                                              tev_data_serializer_t* serializer);
TEV_API bool multipath_event_provider_stop(tev_event_provider_t* provider);
TEV_API void multipath_event_provider_finalize(tev_event_provider_t* provider);
TEV_API tev_source_array_t* multipath_event_provider_get_sources(tev_event_provider_t* provider);
TEV_API bool multipath_event_provider_get_source_config(tev_event_provider_t* provider,
                                                        uint16_t source_index,
                                                        tev_event_provider_config_t* config);

/* What became of a device's samples since initialize. taken = lost + delivered + those still in the
 * buffers; a read that the device refused is not a sample. */
typedef struct tev_multipath_sample_counts_t {
  uint64_t taken;  /* passes in which the device was due and did not refuse */
  uint64_t lost;   /* of these, dropped unread because the buffers were full */
  uint64_t failed; /* passes in which the device refused the read or had nothing to say */
} tev_multipath_sample_counts_t;

/* As a device index: all devices together, without a name. */
#define TEV_ALL_DEVICES UINT32_MAX

/* Fills `counts` for the device of that index, in the order of discovery, and `device_name` (may be
 * null) with a text that lives as long as the provider. False when there is no such device. May be
 * called from any thread between initialize and finalize; waits for nothing. */
typedef bool (*tev_multipath_get_sample_counts_t)(tev_event_provider_t* provider,
                                                  uint32_t device_index, const char** device_name,
                                                  tev_multipath_sample_counts_t* counts);
TEV_API bool multipath_event_provider_get_sample_counts(tev_event_provider_t* provider,
                                                        uint32_t device_index,
                                                        const char** device_name,
                                                        tev_multipath_sample_counts_t* counts);

TEV_C_END

#endif
