/* hostmon: a small data provider, to start your own from.
 *
 * Every second it sends what this host is doing, in three attribute groups:
 *   load     the load averages             one row
 *   memory   the memory in kilobytes       one row
 *   network  the traffic of an interface   one row for each interface
 * Watch it with `zordc watch HOSTMON load`.
 *
 * The life of a provider: register the application, take each group on line, send rows, and at the
 * end take the groups off line and unregister.
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <getopt.h>
#include <inttypes.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <zordchcl.h>

static const char applName[] = "HOSTMON";
enum { INTERFACE_SIZE = 16 }; /* with the terminating zero; as in the registration */

/* Tells the DCH what to expect: for each attribute its name, a letter for its kind (G and C are
 * numbers, D is text), the largest size of a value in bytes, and a help text. */
static const char registration[] =
    "appl:HOSTMON,HMN; type:SOCK; help:What a host is doing;"
    "group:load;"
    "attr:load1,G,4,hundredths over 1 minute;"
    "attr:load5,G,4,hundredths over 5 minutes;"
    "attr:load15,G,4,hundredths over 15 minutes;"
    "group:memory;"
    "attr:total,G,8,kilobytes;"
    "attr:available,G,8,kilobytes;"
    "attr:swapfree,G,8,kilobytes;"
    "group:network;"
    "attr:interface,D,16,name of the interface;"
    "attr:received,C,8,bytes since the start of the host;"
    "attr:sent,C,8,bytes since the start of the host;";

enum { LOAD, MEMORY, NETWORK, GROUP_COUNT };
static const char* const groupNames[GROUP_COUNT] = {"load", "memory", "network"};

static char sourceName[DCH_MAX_SOURCE_NAME + 1];
static ZORA_Long handles[GROUP_COUNT]; /* what the DCH calls our groups once they are on line */
static int online = 0;

/* Every request tells two things: its result (0: the DCH answered) and a status (0: all is well).
 * Reports a request that did not go well. Returns 1 when it did. */
static int done(const char* request, int result, ZORA_Long status) {
  if (result == 0 && status == 0) return 1;
  const char* text = "failed";
  if (status == 5) text = "the DCH does not answer";
  if (status >= 101 && status <= 104) text = "the DCH does not know us any more";
  fprintf(stderr, "hostmon: %s: %s (status %ld)\n", request, text, (long)status);
  /* Whatever it was, a fresh start mends it: registering again replaces the old registration, and a
   * group that is on line already gets the handle that it had. */
  online = 0;
  return 0;
}

static int goOnline(void) {
  ZORA_Long status = 0;
  int result = dp_register(&status, registration);
  if (!done("registration", result, status)) return 0;
  for (int group = 0; group < GROUP_COUNT; ++group) {
    result = dp_online(&status, &handles[group], applName, groupNames[group], sourceName);
    if (!done("online", result, status)) return 0;
  }
  fprintf(stderr, "hostmon: %s is on line\n", sourceName);
  return online = 1;
}

static void goOffline(void) {
  ZORA_Long status = 0;
  for (int group = 0; group < GROUP_COUNT; ++group) {
    const int result = dp_offline(&status, handles[group]);
    if (!done("offline", result, status)) return;
  }
  const int result = dp_unregister(&status, applName);
  done("unregistration", result, status);
}

/* A row on its way. dp_formatData allocates the buffer for the first value, dp_data frees it. */
struct Row {
  char* buffer;
  ZORA_Long size;
};

/* A value travels as the bytes it is: its size is that of the registration, or less for a text,
 * whose terminating zero travels too. */
static int add(struct Row* row, const char* name, const void* value, size_t size, char letter) {
  ZORA_Long status = 0;
  const int result =
      dp_formatData(&status, &row->buffer, &row->size, name, value, (ZORA_Long)size, letter);
  return done("building a row", result, status);
}

static int sendRow(struct Row* row, int group) {
  ZORA_Long status = 0;
  const int result = dp_data(&status, handles[group], 0, &row->buffer);
  return done("sending a row", result, status);
}

/* What cannot be read is told and left out; the next sample tries again. */
static FILE* openFile(const char* path) {
  FILE* file = fopen(path, "r");
  if (file == NULL) fprintf(stderr, "hostmon: cannot open %s: %s\n", path, strerror(errno));
  return file;
}

static int sendLoad(void) {
  static const char* const names[] = {"load1", "load5", "load15"};
  double averages[3] = {0, 0, 0};
  struct Row row = {NULL, 0};
  FILE* file = openFile("/proc/loadavg");
  if (file == NULL) return 1;
  const int found = fscanf(file, "%lf %lf %lf", &averages[0], &averages[1], &averages[2]);
  fclose(file);
  for (int i = 0; i < found; ++i) {
    const int32_t hundredths = (int32_t)(averages[i] * 100 + 0.5);
    if (!add(&row, names[i], &hundredths, sizeof hundredths, 'G')) return 0;
  }
  return found <= 0 || sendRow(&row, LOAD);
}

static int sendMemory(void) {
  static const char* const lines[] = {"MemTotal: %" SCNd64, "MemAvailable: %" SCNd64,
                                      "SwapFree: %" SCNd64};
  static const char* const names[] = {"total", "available", "swapfree"};
  char line[256];
  struct Row row = {NULL, 0};
  FILE* file = openFile("/proc/meminfo");
  if (file == NULL) return 1;
  int good = 1;
  while (good && fgets(line, sizeof line, file) != NULL)
    for (int i = 0; i < 3; ++i) {
      int64_t kilobytes = 0;
      if (sscanf(line, lines[i], &kilobytes) == 1)
        good = add(&row, names[i], &kilobytes, sizeof kilobytes, 'G');
    }
  fclose(file);
  return good && sendRow(&row, MEMORY);
}

static int sendNetwork(void) {
  char line[512];
  FILE* file = openFile("/proc/net/dev");
  if (file == NULL) return 1;
  int good = 1;
  while (good && fgets(line, sizeof line, file) != NULL) {
    char interface[INTERFACE_SIZE] = "";
    int64_t received = 0;
    int64_t sent = 0;
    /* The two lines of headings do not match. */
    if (sscanf(line, " %15[^: ]: %" SCNd64 " %*d %*d %*d %*d %*d %*d %*d %" SCNd64, interface,
               &received, &sent) != 3)
      continue;
    struct Row row = {NULL, 0};
    good = add(&row, "interface", interface, strlen(interface) + 1, 'D') &&
           add(&row, "received", &received, sizeof received, 'C') &&
           add(&row, "sent", &sent, sizeof sent, 'C') && sendRow(&row, NETWORK);
  }
  fclose(file);
  return good;
}

static void usage(FILE* out) {
  fprintf(
      out,
      "Usage: hostmon [--interval SECONDS] [--count N]\n"
      "Sends load, memory and network traffic of this host to the DCH, every second and without\n"
      "end by default, N times with --count. Ctrl-C ends it.\n");
}

/* A number of 1 to INT_MAX, or the end of the program. */
static long positive(const char* option, const char* text) {
  char* end = NULL;
  errno = 0;
  const long number = strtol(text, &end, 10);
  if (errno == 0 && *end == '\0' && number >= 1 && number <= INT_MAX) return number;
  fprintf(stderr, "hostmon: --%s wants a number from 1 to %d, not '%s'\n", option, INT_MAX, text);
  exit(64);
}

int main(int argc, char** argv) {
  static const struct option options[] = {{"interval", required_argument, NULL, 'i'},
                                          {"count", required_argument, NULL, 'c'},
                                          {"help", no_argument, NULL, 'h'},
                                          {NULL, 0, NULL, 0}};
  struct timespec interval = {1, 0};
  long count = 0; /* 0: no end */
  for (int option = 0; (option = getopt_long(argc, argv, "i:c:h", options, NULL)) != -1;) {
    if (option == 'i') {
      interval.tv_sec = positive("interval", optarg);
    } else if (option == 'c') {
      count = positive("count", optarg);
    } else {
      usage(option == 'h' ? stdout : stderr);
      return option == 'h' ? 0 : 64;
    }
  }
  if (optind < argc) {
    fprintf(stderr, "hostmon: unexpected argument '%s'\n", argv[optind]);
    return 64;
  }

  /* A signal that interrupts a request would count as a missing answer. So the signals that end the
   * program are blocked, and looked for where it sleeps. */
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigprocmask(SIG_BLOCK, &stopSignals, NULL);

  /* The source tells this host's rows from those of others. */
  struct utsname host;
  uname(&host);
  snprintf(sourceName, sizeof sourceName, "%.*s", DCH_MAX_SOURCE_NAME, host.nodename);

  for (long samples = 0; count == 0 || samples < count;) {
    if ((online || goOnline()) && sendLoad() && sendMemory() && sendNetwork()) ++samples;
    if (!online) fprintf(stderr, "hostmon: registering again in %ld s\n", (long)interval.tv_sec);
    if (count > 0 && samples == count) break;
    if (sigtimedwait(&stopSignals, NULL, &interval) > 0) break;
  }
  if (online) goOffline();
  return 0;
}
