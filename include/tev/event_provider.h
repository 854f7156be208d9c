/* The provider record: a host gets it from a plug-in and calls the plug-in through it.
 *
 * The host makes all calls from one of its threads, in this order: construct_event_provider(),
 * initialize, start, progress repeatedly, stop, finalize. It may call get_sources and
 * get_source_config at any time in between. The library's own exceptions never leave a call.
 *
 * After each call:
 * - initialize failed: everything that it opened has been released. initialize may be called again.
 *   stop, which does nothing, and finalize may be called too.
 * - initialize succeeded: sampling runs until stop. A second initialize is refused and changes
 *   nothing: sampling continues, and stop is still needed.
 * - start has no effect: sampling began with initialize. It may be omitted.
 * - stop: sampling has ended. progress still delivers what was sampled before. Sampling cannot be
 *   started again: initialize is refused and start does nothing.
 * - finalize after an initialize that succeeded, without stop, ends the process (std::terminate),
 *   after an error line in the log.
 *
 * A provider belongs to the process that constructed it. In a child of fork(), initialize, start
 * and progress fail, which is logged once. stop does nothing. finalize returns immediately and does
 * not release anything. The parent's provider is not affected.
 */
#ifndef TEV_EVENT_PROVIDER_H
#define TEV_EVENT_PROVIDER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "tev/dict.h"
#include "tev/export.h"
#include "tev/schema.h"
#include "tev/serializer.h"
#include "tev/sources.h"

TEV_C_BEGIN

typedef struct tev_event_provider_t tev_event_provider_t;

/* How a source is configured. The host defines the meaning of the numbers. */
typedef struct tev_event_provider_config_t {
  uint64_t word64;
  uint32_t word32;
  uint16_t word16;
} tev_event_provider_config_t;

/* Results of `progress`. */
enum {
  TEV_PROGRESS_DONE = 0, /* nothing more to write now */
  /* The serializer has no room for the next event: drain it and call again. A serializer holds any
   * event when its capacity is TEV_EVENT_BLOCK_HEADER_SIZE bytes plus the size of the largest type
   * (tev_type_system_get_max_event_type_size). With a smaller capacity, every call returns this
   * value and nothing is written. A warning, logged at most once in 10 s, names the size needed. */
  TEV_PROGRESS_FULL = 1,
  /* Also returned by every call after a sampling thread has ended by an exception. Samples taken
   * before are still delivered. The ledger gives the reason. */
  TEV_PROGRESS_FAILED = -1,
};

struct tev_event_provider_t {
  uint32_t version; /* of the schema */
  const char* name; /* also the schema's name */
  const char* description;
  void* reserved3;
  void* context; /* belongs to the plug-in */
  /* Adds the provider's schema to the type system, which must outlive the provider, and starts
   * sampling. A device whose answers cannot be used is left out. False when no device can be
   * sampled, the schema or a type is refused, or a sampling thread cannot be created. (A type is
   * refused when two of its fields have the same name; the last field is not compared.) Additions
   * to the type system made before the failure remain. */
  bool (*initialize)(tev_event_provider_t* provider, tev_type_system_t* type_system);
  void (*reserved6)(void);
  /* Has no effect: sampling begins with `initialize`. Returns true. */
  bool (*start)(tev_event_provider_t* provider);
  /* Writes the events sampled since the last batch. Returns TEV_PROGRESS_... `source_index` is one
   * of the sources that get_sources lists; the only one is 0. */
  int (*progress)(tev_event_provider_t* provider, uint16_t source_index,
                  tev_data_serializer_t* serializer);
  /* Ends sampling. Events sampled before can still be fetched with `progress`. */
  bool (*stop)(tev_event_provider_t* provider);
  /* Frees the record and everything it owns; null is ignored. Call `stop` first, unless initialize
   * was never called or never succeeded. */
  void (*finalize)(tev_event_provider_t* provider);
  /* A new array, which the host releases with tev_destroy_source_array(); null on failure. */
  tev_source_array_t* (*get_sources)(tev_event_provider_t* provider);
  bool (*get_source_config)(tev_event_provider_t* provider, uint16_t source_index,
                            tev_event_provider_config_t* config);
  void* reserved13[6];
};

/* The only symbol that a host needs besides those of the common library. The options are read only
 * during the call. Null on failure, which is logged (the logger is silent by default:
 * tev/logger.h). */
typedef tev_event_provider_t* (*tev_construct_event_provider_t)(const tev_custom_options* options);
TEV_API tev_event_provider_t* construct_event_provider(const tev_custom_options* options);

/* The functions to which the record points. */
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

/* The numbers of a device's samples since initialize. taken = lost + delivered + those still in the
 * buffers. A read that the device refused is not a sample. */
typedef struct tev_multipath_sample_counts_t {
  uint64_t taken;  /* passes in which the device was due and did not refuse */
  uint64_t lost;   /* taken, but dropped without a read because the buffers were full */
  uint64_t failed; /* passes in which the device refused the read or filled in nothing */
} tev_multipath_sample_counts_t;

/* A device index that stands for all devices together. They have no name. */
#define TEV_ALL_DEVICES UINT32_MAX

/* Fills `counts` for the device of that index, in the order of discovery, and `device_name` (may be
 * null) with a text that is valid as long as the provider exists. False when there is no such
 * device, and in a child of fork(). May be called from any thread between initialize and finalize;
 * does not block. */
typedef bool (*tev_multipath_get_sample_counts_t)(tev_event_provider_t* provider,
                                                  uint32_t device_index, const char** device_name,
                                                  tev_multipath_sample_counts_t* counts);
TEV_API bool multipath_event_provider_get_sample_counts(tev_event_provider_t* provider,
                                                        uint32_t device_index,
                                                        const char** device_name,
                                                        tev_multipath_sample_counts_t* counts);

#define TEV_MULTIPATH_FAILURE_SIZE 72

/* What became of each sample that was due from a device since initialize. Each sample that did not
 * reach the host has one cause:
 *
 *   due = delivered + buffer_full + read_refused + nothing_filled + missed_by_overrun +
 *         missed_by_late_wakeup
 *
 * The host gets (delivered - discarded) samples, after sampling has ended and all events are
 * fetched. The fields are read one by one while sampling continues. The sums are exact after
 * `stop`.
 *
 * Later versions may add fields at the end. */
typedef struct tev_multipath_ledger_t {
  uint64_t due;               /* passes, made or missed, in which the device was to be read */
  uint64_t taken;             /* delivered + buffer_full */
  uint64_t delivered;         /* written to the buffers */
  uint64_t buffer_full;       /* not read, because the host had not emptied the buffers in time */
  uint64_t read_refused;      /* the device reported an error */
  uint64_t nothing_filled;    /* the device reported success but did not fill in a counter */
  uint64_t missed_by_overrun; /* no pass was made, because an earlier one took too long */
  uint64_t missed_by_late_wakeup; /* no pass was made, because the thread was woken too late */
  uint64_t discarded;   /* delivered to the buffers and swapped out before the host read them */
  uint64_t short_reads; /* delivered, but the device filled in an unexpected number of counters */
  /* Of the sampling thread of this device. */
  uint64_t overrun_passes; /* passes that took an interval or longer */
  uint64_t late_wakeups;   /* passes that began more than half an interval after they were due */
  /* Microseconds since the Unix epoch; 0: never. */
  uint64_t last_good_usec; /* time stamp of the last sample that `progress` has fetched */
  uint64_t last_failure_usec;
  /* What the device or the sampling thread reported at that time; truncated to fit, with a NUL. */
  char last_failure[TEV_MULTIPATH_FAILURE_SIZE];
  uint64_t buffer_bytes;    /* capacity for events, in both halves of the double buffer */
  uint64_t most_used_bytes; /* largest content of one half so far; updated at each swap and loss */
  /* Batches without this device, because its sampling thread did not end its pass in time. The
   * samples come with a later batch. */
  uint64_t left_out;
} tev_multipath_ledger_t;

/* Fills the first `size` bytes of `ledger`; pass sizeof(tev_multipath_ledger_t). Bytes for which
 * this version has no fields are set to zero. `device_index` and `device_name` are those of
 * multipath_event_provider_get_sample_counts(). For all devices together, the counts and the bytes
 * are sums, overrun_passes and late_wakeups are those of the sampling thread that has most, and the
 * times and the failure are the latest. False when there is no such device, and in a child of
 * fork(). May be called from any thread between initialize and finalize; does not block. */
typedef bool (*tev_multipath_get_ledger_t)(tev_event_provider_t* provider, uint32_t device_index,
                                           const char** device_name, tev_multipath_ledger_t* ledger,
                                           size_t size);
TEV_API bool multipath_event_provider_get_ledger(tev_event_provider_t* provider,
                                                 uint32_t device_index, const char** device_name,
                                                 tev_multipath_ledger_t* ledger, size_t size);

/* What became of a device that the SDK listed. */
enum {
  TEV_DEVICE_SAMPLED = 0,
  TEV_DEVICE_LEFT_OUT = 1,
};

/* A device that the SDK listed for the last initialize. The texts are never null, and valid until
 * the next initialize or finalize. The fields from `algorithm` on are empty or zero for a device
 * that is left out.
 *
 * Later versions may add fields at the end. */
typedef struct tev_multipath_device_info_t {
  uint32_t state;             /* TEV_DEVICE_... */
  uint32_t device_index;      /* of the ledger; TEV_ALL_DEVICES: left out */
  const char* name;           /* in the events: the network interface, or else the RDMA device */
  const char* rdma_name;      /* empty: the SDK did not report it */
  const char* interface_name; /* empty: the device has no network interface */
  const char* reason;         /* for people: why the device is left out; empty: it is sampled, or
                               * the set-up failed for a reason that does not concern it */
  const char* algorithm;      /* text of the algorithm in the slot that is sampled */
  uint32_t algorithm_id;
  uint32_t algorithm_major; /* version */
  uint32_t algorithm_minor;
  uint32_t slot;
  uint32_t device_counters;
  uint32_t plane_counters; /* of each plane */
  uint32_t planes;
  uint16_t schema_index; /* of the types below, in the type system */
  uint16_t device_type;  /* index of the type of its device events */
  uint16_t plane_type;   /* index of the type of its plane events, which it has if `planes` > 0 */
  uint16_t reserved;
  uint64_t buffer_samples; /* samples that one half of the double buffer holds */
  uint64_t buffer_bytes;   /* capacity for events, in both halves, as in the ledger */
  uint64_t memory_bytes;   /* allocated for both halves, with the time stamps */
} tev_multipath_device_info_t;

/* Fills `info` with the listed device of that index, starting at 0, also after an initialize that
 * failed. `size` is used as in multipath_event_provider_get_ledger(). False for an index beyond the
 * last device, and in a child of fork(). To be called from the host's thread. */
typedef bool (*tev_multipath_get_device_info_t)(tev_event_provider_t* provider, uint32_t index,
                                                tev_multipath_device_info_t* info, size_t size);
TEV_API bool multipath_event_provider_get_device_info(tev_event_provider_t* provider,
                                                      uint32_t index,
                                                      tev_multipath_device_info_t* info,
                                                      size_t size);

/* The kind of an option's value. */
enum {
  TEV_OPTION_NUMBER = 0,  /* unsigned, 64 bits, decimal */
  TEV_OPTION_BOOLEAN = 1, /* tev_string_to_boolean() */
  TEV_OPTION_WORD = 2,    /* one of the words of `range` */
  TEV_OPTION_NAMES = 3,   /* names separated by commas */
  TEV_OPTION_PATH = 4,
};

/* One of the options that construct_event_provider() reads. All texts are static and never null.
 * Later versions may add fields at the end. */
typedef struct tev_multipath_option_t {
  const char* key;
  uint32_t kind;             /* TEV_OPTION_... */
  const char* unit;          /* of a number; otherwise empty */
  const char* default_value; /* of a missing key */
  const char* range;         /* for people: possible values, and the meaning of special ones */
  const char* meaning;       /* for people */
} tev_multipath_option_t;

/* Fills `option` with the option of that index, starting at 0. `size` is used as in
 * multipath_event_provider_get_ledger(). False for an index beyond the last option. Does not need a
 * provider. */
typedef bool (*tev_multipath_get_option_t)(uint32_t index, tev_multipath_option_t* option,
                                           size_t size);
TEV_API bool multipath_event_provider_get_option(uint32_t index, tev_multipath_option_t* option,
                                                 size_t size);

TEV_C_END

#endif
