/*
 * zvqrn.h - the host programmer's interface of ZVQRN.dll (libZVQRN.so on Linux).
 *
 * The library lets network scanners send push-scan requests (scans started at the scanner's own
 * panel) to this PC.  A host program loads the library, starts the service with three callbacks,
 * and gets every request as a call of its ScanEventCallback; the value it returns is the answer
 * that the scanner gets.
 *
 * Plain C, readable by C89-era compilers and by C++.  ZVQRN.dll exists for 32-bit (x86) and for
 * 64-bit (x64) processes: the DLL, the host and the maker's DRAVLIB.dll must have the same bitness.
 * A process gets error 193 (ERROR_BAD_EXE_FORMAT) from LoadLibrary for a DLL of the other one.
 *
 * Threads: every function may be called from any thread at any time.  QRNStartService and
 * QRNStopService wait for each other.  Do not call any function from DllMain.  The maker's DRAVLIB
 * is asked (GetTWAINName) on threads of the library, on two at once.
 *
 * Unloading: stop the service first.  A library that is unloaded while its service runs ends its
 * threads, waits for the callbacks that are running, and takes 2 seconds at least; a callback that
 * then needs the system's loader lock would wait for the unload in turn.
 *
 * Forks (Linux): a process that is forked while the service is in use has no service.  Every
 * function gives 0 there at once, for good, and the parent's service goes on.  A process that forks
 * before its start, as a daemon does, is free to start.
 *
 * Text is 8-bit, in the PC's ANSI code page, unless a field says otherwise.
 */
#ifndef ZVQRN_ZVQRN_H
#define ZVQRN_ZVQRN_H

/*
 * The version of this header, and so of the library that it came with.  Which version a process has
 * loaded, the DLL's version resource says, and the soname of libZVQRN.so.
 */
#define QRN_VERSION_MAJOR 0
#define QRN_VERSION_MINOR 1
#define QRN_VERSION_PATCH 0
#define QRN_VERSION "0.1.0"

/* For #if: whether this header is of that version or a later one. */
#define QRN_VERSION_AT_LEAST(major, minor, patch) \
  (QRN_VERSION_MAJOR > (major) ||                 \
   (QRN_VERSION_MAJOR == (major) &&               \
    (QRN_VERSION_MINOR > (minor) ||               \
     (QRN_VERSION_MINOR == (minor) && QRN_VERSION_PATCH >= (patch)))))

/* Visual C++ has <stdint.h> since 2010; before, a host may have brought one of its own. */
#if !defined(_MSC_VER) || _MSC_VER >= 1600
#include <stdint.h>
#elif !defined(INT32_MAX)
typedef signed int int32_t;
#endif

/*
 * Calling conventions.  The exports remove their own arguments (stdcall), the callbacks leave that
 * to the caller (cdecl).  They differ on 32-bit Windows only.
 *
 * QRN_PUBLIC says that a function comes from the DLL.  Define QRN_NO_IMPORT before the header in a
 * program that defines functions of these names itself instead of linking to the library.
 */
#if defined(_WIN32)
#define QRN_EXPORT __stdcall
#define QRN_CALLBACK __cdecl
#if defined(QRN_NO_IMPORT)
#define QRN_PUBLIC
#else
#define QRN_PUBLIC __declspec(dllimport)
#endif
#else
#define QRN_EXPORT
#define QRN_CALLBACK
#if defined(__GNUC__)
#define QRN_PUBLIC __attribute__((visibility("default")))
#else
#define QRN_PUBLIC
#endif
#endif

/* The records are laid out naturally, whatever packing the host is compiled with. */
#pragma pack(push, 8)

#ifdef __cplusplus
extern "C" {
#endif

/* ---- EventHeader: which message of the scanner this is -------------------------------------- */

/* Values of EventHeader.exchangeType. */
enum {
  EXCHANGE_SINGLE = 1, /* a request that stands alone */
  EXCHANGE_PAIRED = 2  /* the START or the END of a pair */
};

/* Values of EventHeader.subevent. */
enum { SUBEVENT_NONE = 0, SUBEVENT_START = 1, SUBEVENT_END = 2 };

/*
 * The identity of one received event message, 36 bytes.  The library hands it to
 * ScanEventCallback; the host hands it, or its own copy of the 36 bytes, back to QRNSendData.
 */
typedef struct EventHeader {
  int32_t exchangeType;    /* EXCHANGE_SINGLE or EXCHANGE_PAIRED */
  int32_t subevent;        /* SUBEVENT_NONE, SUBEVENT_START or SUBEVENT_END */
  char uid[20];            /* the scanner's name for the message: at most 19 bytes and a NUL */
  char protocolVersion[6]; /* "1.00" or "2.00", NUL-terminated */
  char reserved[2];        /* zero */
} EventHeader;

/* ---- The request data records --------------------------------------------------------------- */

/* Kinds of document; ScanEventCallback gets the first or the third. */
enum {
  DOCUMENT_PUSHSCAN_V1 = 1,       /* PushScanRequestRecord: the scanner sends scan settings */
  DOCUMENT_PUSHSCAN_RESPONSE = 2, /* what the library answers with; never given to the host */
  DOCUMENT_PUSHSCAN_V2 = 3        /* PushScanIdRecord: the scanner sends a push-scan ID */
};

/* Values of PushScanRequestRecord.imageFormat. */
enum { QRN_IMAGE_PDF = 1, QRN_IMAGE_TIFF = 2, QRN_IMAGE_JPEG = 3 };

/* Values of PushScanRequestRecord.colorType. */
enum { QRN_COLOR_COLOR = 110, QRN_COLOR_MONOCHROME = 111 };

/* Values of PushScanRequestRecord.loadPaper: where the paper is. */
enum { QRN_LOAD_AUTO = 0, QRN_LOAD_FLATBED = 1, QRN_LOAD_SINGLE = 2, QRN_LOAD_DOUBLE = 3 };

/* Values of PushScanRequestRecord.paperType. */
enum {
  QRN_PAPER_AUTO = 0,
  QRN_PAPER_USER = 1,
  QRN_PAPER_A3 = 2,
  QRN_PAPER_A4 = 3,
  QRN_PAPER_A4_LANDSCAPE = 4,
  QRN_PAPER_B4 = 5,
  QRN_PAPER_B5 = 6,
  QRN_PAPER_B5_LANDSCAPE = 7,
  QRN_PAPER_LETTER = 8,
  QRN_PAPER_LETTER_LANDSCAPE = 9,
  QRN_PAPER_LEGAL = 10
};

/*
 * A version 1 request (DOCUMENT_PUSHSCAN_V1), 132 bytes; the size given with it is 136, and the
 * four bytes after the record are zero.  Every text is NUL-terminated and padded with NULs.
 *
 * productName holds the name of the TWAIN driver that serves the scanner on this PC, which takes
 * the place of the product name that the scanner sent.  It has up to 33 bytes and a NUL, so it may
 * run on into the first two bytes of reserved1: read up to 34 bytes.
 *
 * paperWidth, paperHeight, scanX and scanY are 0 to 999999999, exactly as the scanner states
 * them; they carry no unit.
 */
typedef struct PushScanRequestRecord {
  char productName[32];
  char reserved1[34];
  char ipAddress[32]; /* the scanner's address as it states it, at most 31 bytes */
  char reserved2[2];
  int32_t imageFormat; /* QRN_IMAGE_... */
  int32_t colorType;   /* QRN_COLOR_... */
  int32_t loadPaper;   /* QRN_LOAD_... */
  int32_t paperType;   /* QRN_PAPER_... */
  int32_t paperWidth;
  int32_t paperHeight;
  int32_t scanX;
  int32_t scanY;
} PushScanRequestRecord;

/*
 * A version 2 request (DOCUMENT_PUSHSCAN_V2), 104 bytes; the size given with it is 104.  Texts as
 * above.
 */
typedef struct PushScanIdRecord {
  char productName[32]; /* the scanner's product name as it sent it */
  char driverName[34];  /* the TWAIN driver that serves it on this PC, at most 33 bytes */
  char ipAddress[32];   /* the scanner's address as it states it, at most 31 bytes */
  char reserved[2];
  int32_t pushScanId; /* 1 to 3: which of the settings kept on the PC is meant */
} PushScanIdRecord;

/* ---- PeerDescription: who looks for this PC -------------------------------------------------- */

/*
 * A scanner that looks for this PC, as PeerFilterCallback gets it: four pointers to NUL-terminated
 * texts, 16 bytes in a 32-bit process and 32 in a 64-bit one.  (No other record here holds a
 * pointer: they have the same size in both.)  None is null; all belong to the library.
 */
typedef struct PeerDescription {
  const char* driverName;  /* the TWAIN driver that serves the scanner on this PC */
  const char* serviceType; /* "service:Quorin-agent", in the scanner's own letters (UTF-8) */
  const char* scopeList;   /* the scope that names the scanner, as received (UTF-8) */
  const char* tagList;     /* the attribute tags asked for, as received (UTF-8); may be empty */
} PeerDescription;

/* ---- Callbacks ------------------------------------------------------------------------------- */

/* Values of the host's own that the library passes back unchanged; they may be null. */
typedef void* FilterContext;
typedef void* EventContext;
typedef void* StatusContext;

/*
 * Asks the host whether a scanner that looks for this PC by its own name is to be answered.
 * Result: 1 = answer it; anything else = stay silent.
 *
 * Called on a thread of the library, with no lock held; several calls may run at once.  `peer` and
 * its texts live until the callback returns.  QRNSendData, QRNGetPCName and QRNSetPCName may be
 * called from it; QRNStartService and QRNStopService give 0 there.  No call comes after
 * QRNStopService has returned.
 */
typedef int32_t(QRN_CALLBACK* PeerFilterCallback)(const PeerDescription* peer,
                                                  FilterContext context);

/*
 * Hands the host one push-scan request; its result is the answer to the scanner.
 *
 *   header           the request's identity.  A host that will call QRNSendData should keep a copy
 *                    of the 36 bytes and give that: QRNSendData changes the uid of the record that
 *                    it is given.
 *   documentKind     DOCUMENT_PUSHSCAN_V1 or DOCUMENT_PUSHSCAN_V2
 *   requestData      the PushScanRequestRecord or PushScanIdRecord of that kind
 *   requestDataSize  its size in bytes: 136 or 104
 *   context          the EventContext given to QRNStartService
 *
 * Result: a QRN_RESPONSE_ code; QRN_RESPONSE_BUSY declines the request, any other value is put
 * into the answer as the word beside it.
 *
 * Called on a thread of the library made for this one request, with no lock held; several calls
 * may run at once.  It may take as long as it needs: the scanner is answered when it returns, and
 * QRNStopService waits for it.  But a connection on which nothing is said for 300 seconds is
 * closed: an answer that comes later is lost, and so is the END of a START that comes later.  A
 * scanner that leaves keeps the PC busy for the others until its callbacks have returned.  The
 * pointers stay valid until the callback returns; for a START they stay so until its END has been
 * answered or the scanner's connection has ended.  The host only reads what they point to and frees
 * nothing.  QRNSendData, QRNGetPCName and QRNSetPCName may be called from it; QRNStartService and
 * QRNStopService give 0 there.  No call comes after QRNStopService has returned.
 */
typedef int32_t(QRN_CALLBACK* ScanEventCallback)(EventHeader* header, int32_t documentKind,
                                                 const void* requestData, int32_t requestDataSize,
                                                 EventContext context);

/* Results of ScanEventCallback, with the word that the scanner gets in StatusOut. */
enum {
  QRN_RESPONSE_OK = 1,                /* "OK": the request is accepted */
  QRN_RESPONSE_PARAM_ERR = 2,         /* "PARAM_ERR" */
  QRN_RESPONSE_PARSE_ERR = 3,         /* "PARSE_ERR" */
  QRN_RESPONSE_PM_EXECUTE_ERR = 5,    /* "PM_EXECUTE_ERR" */
  QRN_RESPONSE_PM_NOT_INSTALL = 6,    /* "PM_NOT_INSTALL" */
  QRN_RESPONSE_TWAIN_NOT_INSTALL = 7, /* "TWAIN_NOT_INSTALL" */
  QRN_RESPONSE_ERROR = 8,             /* "ERROR"; so is every value that is not listed here */
  QRN_RESPONSE_BUSY = 9               /* no document: the answer carries x-status 2001, "busy" */
};

/* Status classes and codes given to StatusCallback. */
enum {
  QRN_STATUS_CLASS_ERROR = 257,  /* 0x101 */
  QRN_STATUS_CLASS_NOTICE = 259, /* 0x103 */
  QRN_STATUS_NO_NETWORK = 769,   /* 0x301 "There is no network interface card which can be used." */
  QRN_STATUS_RESTART = 770       /* 0x302 "Service restart." */
};

/*
 * Tells the host of a condition of the service: one of the two pairs of class and code above, and
 * its message (NUL-terminated, at most 63 bytes, valid until the callback returns).  The result is
 * ignored.
 *
 * Called on the host's own thread inside QRNStartService, there on a thread of the library too, and
 * on threads of the library after the PC's address has changed; one call at a time.  One change may
 * be told twice.  Locks of the library are held: return soon, and call no function of
 * this header from it (they give 0 there).
 */
typedef int32_t(QRN_CALLBACK* StatusCallback)(int32_t statusClass, int32_t statusCode,
                                              const char* message, StatusContext context);

/* ---- Exported functions ---------------------------------------------------------------------- */

/*
 * Starts the service: reads the PC's name and address, then listens on TCP port 2968 for requests
 * and on UDP port 2968 for scanners that look for PCs.
 *
 * The three callbacks must not be null; the contexts may be anything.
 * Result: 1 = the service runs, or waits for the PC to get a usable address (StatusCallback has
 * then been told QRN_STATUS_NO_NETWORK); 0 = it does not: a callback is null, the service runs
 * already, no name or address could be had, a port is taken, or the call came from inside a
 * callback.  A service that waits for an address is ended first and then started anew.
 */
QRN_PUBLIC int32_t QRN_EXPORT QRNStartService(PeerFilterCallback filterCallback,
                                              ScanEventCallback eventCallback,
                                              StatusCallback statusCallback,
                                              FilterContext filterContext,
                                              EventContext eventContext,
                                              StatusContext statusContext);

/*
 * Stops the service: waits for the callbacks that are running, answers requests that arrive
 * meanwhile "busy" without a callback, sends the answers that are due, closes every connection and
 * ends every thread of the library.  Do not hold anything that a running callback waits for.
 *
 * Result: 1 = stopped; 0 = it was not running, or the call came from inside a callback.  A service
 * that waits for an address is ended too, and the result is 0.
 */
QRN_PUBLIC int32_t QRN_EXPORT QRNStopService(void);

/*
 * Sends the host's data to the scanner that made a request.
 *
 *   request  an EventHeader as ScanEventCallback got it, or a copy of it.  Its uid is replaced by
 *            the uid under which the data is sent, so each call needs a copy of its own.
 *   data     `length` bytes, copied before the call returns; `length` must be greater than 0
 *
 * A single request can be named until its callback has returned, a START (declined or not) until
 * the END that closes it has been answered; afterwards, and when the scanner has gone, there is
 * nobody to send to. Result: 1 = the data is on its way to the scanner; whether it arrives is not
 * reported.  0 = bad arguments, the service does not run, or no such request is open.
 */
QRN_PUBLIC int32_t QRN_EXPORT QRNSendData(EventHeader* request, const void* data, int32_t length);

/* QRNGetPCName's result when the buffer is too small. */
enum { QRN_BUFFER_TOO_SMALL = 513 /* 0x201 */ };

/*
 * Gives the name under which scanners list this PC.
 *
 * `buffer` receives the name's bytes without a NUL; `*length` is the buffer's size on entry and
 * the name's length on return.  With a null buffer only the length is given.
 * Result: 1 = done; QRN_BUFFER_TOO_SMALL = the buffer is too small: `*length` says what is
 * needed and the buffer is untouched; 0 = `length` is null, the service does not run, or there is
 * no name.
 */
QRN_PUBLIC int32_t QRN_EXPORT QRNGetPCName(char* buffer, int32_t* length);

/*
 * Replaces the name under which scanners list this PC, until the service stops.  The computer's
 * own name stays as it is.
 *
 * `name` is 1 to 15 bytes; it need not end in a NUL.  Scanners are told what comes before its first
 * NUL; a PC whose name begins with one answers no search.
 * Result: 1 = done; 0 = a bad length, a name that ends inside a character of several bytes, no
 * running service, or no memory.
 */
QRN_PUBLIC int32_t QRN_EXPORT QRNSetPCName(const char* name, int32_t length);

#ifdef __cplusplus
}
#endif

#pragma pack(pop)

#endif
