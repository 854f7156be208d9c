/* A host in C: includes every public header, drives the plug-in through its record against the SDK
 * library that its argument names, and checks what comes out. Prints what it saw; exits with 0 when
 * all is as it should be. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tev/counter_set.h"
#include "tev/device_utils.h"
#include "tev/dict.h"
#include "tev/event_provider.h"
#include "tev/field_set.h"
#include "tev/filters.h"
#include "tev/logger.h"
#include "tev/schema.h"
#include "tev/serializer.h"
#include "tev/sources.h"

#define REQUIRE(condition)                                            \
  do {                                                                \
    if (!(condition)) {                                               \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                        \
    }                                                                 \
  } while (0)

static unsigned char buffer[4096];

/* Has the library log a warning. */
static void warn(void) {
  setenv("CONSUMER", "1", 1);
  setenv("TEV_CONSUMER", "2", 1);
  REQUIRE(strcmp(tev_getenv("CONSUMER"), "2") == 0);
}

/* The macros of this program and the functions of the library go by one and the same threshold,
 * which the program's first message leaves as it is. */
static void checkLogger(void) {
  char path[] = "/tmp/tev-consumer-XXXXXX";
  const int descriptor = mkstemp(path);
  REQUIRE(descriptor >= 0 && tev_init_file_logger(path, TEV_LEVEL_WARNING) == 1);
  warn();
  TEV_LOG_ERROR("%s goes to the file", "this");
  TEV_LOG_DEBUG("%d does not", 1);
  warn();
  REQUIRE(tev_set_log_level(TEV_LEVEL_ERROR) == TEV_LEVEL_WARNING);
  tev_close_logger();

  const char* const expected[] = {"[warning] [tev_getenv] ", "[error] this goes to the file\n",
                                  "[warning] [tev_getenv] "};
  char line[256] = "";
  FILE* file = fdopen(descriptor, "r");
  REQUIRE(file);
  for (int i = 0; i < 3; ++i) REQUIRE(fgets(line, sizeof line, file) && strstr(line, expected[i]));
  REQUIRE(!fgets(line, sizeof line, file));
  fclose(file);
  remove(path);
}

int main(int argc, char** argv) {
  REQUIRE(argc == 2);
  checkLogger();

  tev_custom_options* options = tev_dict_create();
  REQUIRE(tev_dict_add(options, "multipath-vuna-lib-path", argv[1]));
  REQUIRE(tev_dict_add(options, "multipath-sample-interval-usec", "1000"));
  tev_event_provider_t* provider = construct_event_provider(options);
  tev_dict_delete(options);
  REQUIRE(provider && strcmp(provider->name, "multipath_events") == 0);

  tev_type_system_t* types = tev_create_type_system();
  REQUIRE(provider->initialize(provider, types) && provider->start(provider));
  tev_type_system_update_md5_hashes(types);
  REQUIRE(types->num_schemas == 1 && strlen(types->schemas[0]->id_string) == 32);

  tev_data_serializer_t serializer = {types, buffer, sizeof buffer, 0};
  while (serializer.used == 0) {
    REQUIRE(provider->progress(provider, 0, &serializer) != TEV_PROGRESS_FAILED);
    const struct timespec pause = {0, 5000000};
    nanosleep(&pause, NULL);
  }
  REQUIRE(tev_magic_value_match_type((const char*)buffer, TEV_EVENT_BLOCK_KIND));
  REQUIRE(provider->stop(provider));
  const char* name = NULL;
  tev_multipath_sample_counts_t counts;
  REQUIRE(multipath_event_provider_get_sample_counts(provider, 0, &name, &counts));
  REQUIRE(counts.taken > 0 &&
          !multipath_event_provider_get_sample_counts(provider, 99, NULL, &counts));
  provider->finalize(provider);
  printf("schema %s\n", types->schemas[0]->id_string);
  tev_destroy_type_system(types);
  return 0;
}
