/*
 * What a host relies on in the public header, in the C that every compiler knows: it can be
 * included twice, the records have their layout whatever packing is set, and the functions their
 * types.
 */
#include <stddef.h>
#include "zvqrn/zvqrn.h"

/* A negative size does not compile. */
#define HOLDS(name, condition) typedef char name[(condition) ? 1 : -1]

/* A record after a byte lies where its alignment wants it, packed by the host or not. */
#pragma pack(push, 8)
struct Alignment {
  char byte;
  EventHeader header;
};
#pragma pack(pop)

struct Packing {
  char byte;
  int32_t number;
};

#if !QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR, QRN_VERSION_MINOR, QRN_VERSION_PATCH) ||    \
    QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR, QRN_VERSION_MINOR, QRN_VERSION_PATCH + 1) || \
    QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR, QRN_VERSION_MINOR + 1, 0) ||                 \
    QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR + 1, 0, 0) ||                                 \
    (QRN_VERSION_MAJOR > 0 && !QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR - 1, 99, 99)) ||   \
    (QRN_VERSION_MINOR > 0 && !QRN_VERSION_AT_LEAST(QRN_VERSION_MAJOR, QRN_VERSION_MINOR - 1, 99))
#error "QRN_VERSION_AT_LEAST compares wrongly"
#endif

HOLDS(integer_size, sizeof(int32_t) == 4 && (int32_t)-1 < 0);
HOLDS(header_size, sizeof(EventHeader) == 36);
HOLDS(header_alignment, offsetof(struct Alignment, header) == 4);
HOLDS(header_uid, offsetof(EventHeader, uid) == 8);
HOLDS(request_size, sizeof(PushScanRequestRecord) == 132);
HOLDS(request_address, offsetof(PushScanRequestRecord, ipAddress) == 66);
HOLDS(request_format, offsetof(PushScanRequestRecord, imageFormat) == 100);
HOLDS(id_size, sizeof(PushScanIdRecord) == 104);
HOLDS(id_driver, offsetof(PushScanIdRecord, driverName) == 32);
HOLDS(peer_size, sizeof(PeerDescription) == 4 * sizeof(void*));
#ifdef WANTED_PACKING /* the host's own packing comes back after the header */
HOLDS(own_packing, sizeof(struct Packing) == 4 + WANTED_PACKING);
#endif

static int32_t QRN_CALLBACK on_peer(const PeerDescription* peer, FilterContext context) {
  return peer == (const PeerDescription*)context;
}
static int32_t QRN_CALLBACK on_request(EventHeader* header, int32_t kind, const void* data,
                                       int32_t size, EventContext context) {
  return header->subevent + kind + size + (data == context);
}
static int32_t QRN_CALLBACK on_status(int32_t status_class, int32_t code, const char* message,
                                      StatusContext context) {
  return status_class + code + (message == (const char*)context);
}

typedef int32_t(QRN_EXPORT* StartFunction)(PeerFilterCallback, ScanEventCallback, StatusCallback,
                                           FilterContext, EventContext, StatusContext);

int use_all(void);
int use_all(void) {
  EventHeader header = {0, 0, "", "", ""};
  StartFunction start = QRNStartService;
  int32_t length = 0;
  return start(on_peer, on_request, on_status, NULL, NULL, NULL) + QRNSendData(&header, "", 1) +
         QRNGetPCName(NULL, &length) + QRNSetPCName("A", 1) + QRNStopService();
}
