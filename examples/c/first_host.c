/*
 * first_host - a host program in C: prints every push-scan request and answers it.
 *
 *   first_host [ANSWER [SECONDS]]
 *
 * ANSWER is the number of a QRN_RESPONSE_ code (default 1, OK; 9 declines).  It runs for SECONDS,
 * or until Ctrl-C.  Linked to the library, so the system says so itself when ZVQRN.dll or
 * libZVQRN.so is missing.
 */
#if !defined(_WIN32)
#define _POSIX_C_SOURCE 199309L /* nanosleep */
#endif

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#if defined(_WIN32)
#include <windows.h>
#else
#include <time.h>
#endif

#include <zvqrn/zvqrn.h>

static volatile sig_atomic_t interrupted = 0;

static void on_interrupt(int number) {
  (void)number;
  interrupted = 1;
}

static void sleep_100_ms(void) {
#if defined(_WIN32)
  Sleep(100);
#else
  struct timespec time = {0, 100000000};
  nanosleep(&time, NULL);
#endif
}

/*
 * Copies a text out of a record.  Anyone on the network can choose its bytes: what could disturb a
 * terminal becomes a question mark.
 */
static const char* shown(char* buffer, const char* text, size_t limit) {
  size_t i;
  for (i = 0; i < limit && text[i] != '\0'; i++) {
    buffer[i] = (char)(text[i] >= ' ' && text[i] <= '~' && text[i] != '"' ? text[i] : '?');
  }
  buffer[i] = '\0';
  return buffer;
}

static int32_t QRN_CALLBACK on_peer(const PeerDescription* peer, FilterContext context) {
  (void)peer;
  (void)context;
  return 1; /* answer every scanner that looks for this PC */
}

/*
 * Called on a thread of the library, several at once.  The pointers die when it returns: a host
 * that will call QRNSendData keeps a copy of *header, and gives a copy of that to each call.
 */
static int32_t QRN_CALLBACK on_request(EventHeader* header, int32_t kind, const void* data,
                                       int32_t size, EventContext context) {
  static const char* const EXCHANGES[] = {"single", "START", "END"};
  const int exchange = header->subevent >= 0 && header->subevent <= 2 ? header->subevent : 0;
  char uid[sizeof header->uid + 1];
  char driver[35];
  char address[33];
  shown(uid, header->uid, sizeof header->uid);
  if (kind == DOCUMENT_PUSHSCAN_V1 && size >= (int32_t)sizeof(PushScanRequestRecord)) {
    const PushScanRequestRecord* record = (const PushScanRequestRecord*)data;
    printf("request %s: %s, driver \"%s\", scanner %s, format %d, colour %d, paper %d\n", uid,
           EXCHANGES[exchange], shown(driver, (const char*)data, 34), /* 34: see the header */
           shown(address, record->ipAddress, sizeof record->ipAddress), (int)record->imageFormat,
           (int)record->colorType, (int)record->paperType);
  } else if (kind == DOCUMENT_PUSHSCAN_V2 && size >= (int32_t)sizeof(PushScanIdRecord)) {
    const PushScanIdRecord* record = (const PushScanIdRecord*)data;
    printf("request %s: %s, driver \"%s\", scanner %s, push-scan ID %d\n", uid, EXCHANGES[exchange],
           shown(driver, record->driverName, sizeof record->driverName),
           shown(address, record->ipAddress, sizeof record->ipAddress), (int)record->pushScanId);
  }
  fflush(stdout);
  return *(const int32_t*)context;
}

/* Locks of the library are held in here: return soon, and call none of its functions. */
static int32_t QRN_CALLBACK on_status(int32_t statusClass, int32_t code, const char* message,
                                      StatusContext context) {
  (void)context;
  fprintf(stderr, "status %d/%d: %s%s\n", (int)statusClass, (int)code, message,
          code == QRN_STATUS_NO_NETWORK ? "  Waiting until this PC has an address." : "");
  return 0;
}

int main(int argc, char** argv) {
  int32_t answer = argc > 1 ? atoi(argv[1]) : QRN_RESPONSE_OK;
  const long seconds = argc > 2 ? atol(argv[2]) : 0;
  long tenths;
  signal(SIGINT, on_interrupt);
  if (QRNStartService(on_peer, on_request, on_status, NULL, &answer, NULL) != 1) {
    fprintf(stderr,
            "The service did not start: another host holds port 2968, or the PC's name or\n"
            "address could not be had.  quorin-scanner doctor --local says more.\n");
    return 1;
  }
  printf("Waiting for requests; Ctrl-C ends.\n");
  fflush(stdout);
  for (tenths = 0; !interrupted && (seconds == 0 || tenths < 10 * seconds); tenths++) {
    sleep_100_ms();
  }
  QRNStopService(); /* no callback comes after this; 0 only if it was still waiting for a network */
  return 0;
}
