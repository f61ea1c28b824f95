/*
 * libvxpadcom: USB signature pads for Linux applications.
 *
 * Rules that hold for everything below:
 *
 * 1. Call Initialize() first. Pads are numbered from 1 in the order in which they were found, interfaces from 0.
 * 2. An exported function returns 0 on success. Any other value is the handle of an exception record, unless its
 *    own text says otherwise; read the record with GetExceptionCode(), GetExceptionName() and GetExceptionMessage()
 *    before the next Initialize() or Deinitialize(), which discard all records. The last 63 records are kept.
 * 3. Text that crosses this interface consists of 16-bit units (char16_t). Sizes of text buffers count units, not
 *    bytes. A text that does not fit is cut and then has no terminator.
 * 4. Buffers belong to the caller. The library keeps no pointer to them after the call.
 * 5. Functions may be called from any thread. Initialize(), Deinitialize() and EnumerateDevicesStart() (where it
 *    searches again) wait until other threads' calls that use a pad have ended, each by its own time-outs; a
 *    WriteFileBuffer() that is sending ends early. A call that comes meanwhile fails as without Initialize(). A call
 *    that is inside its device-removed callback is not waited for, since that may itself search again. This does not
 *    hold for the building blocks in vxpadcom/internals.h, whose names begin with core_ and the like.
 * 6. Callbacks run on the thread that has something to report, with none of the library's locks held; they must not
 *    throw. They may call the library, except for what their own texts forbid. Deinitialize(), with which Initialize()
 *    begins, ends all threads of the library and waits until they have ended.
 *
 * Environment: LIBVXPADCOM_DEBUG, LIBVXPADCOM_DEBUG_FUNC and LIBVXPADCOM_DEBUG_MUTEX, set to a positive number, turn
 * on information, enter/exit and lock lines on standard output. Error lines always go to standard error.
 */
#ifndef VXPADCOM_VXPADCOM_H
#define VXPADCOM_VXPADCOM_H

#include "vxpadcom/export.h"
#include "vxpadcom/version.h"

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

/* ------------------------------------------------------------------------------------------------------------------
 * Results and exception records
 * --------------------------------------------------------------------------------------------------------------- */

/* Result codes. They are stored in exception records, not returned. */
enum {
    VXPCEC_UNKNOWN = -1,            /* failure inside the exception functions themselves */
    VXPCEC_SUCCESS = 0,             /* never stored in a record */
    VXPCEC_DLL_NOT_LOADED = 1,      /* not raised by this library */
    VXPCEC_EXCEPTION_CAUGHT = 2,    /* not raised by this library */
    VXPCEC_INVALID_HANDLE = 257,    /* the pad cannot be selected, or an exchange with it failed */
    VXPCEC_INVALID_PARAMETER = 258, /* an argument is NULL or out of range */
    VXPCEC_TIMEOUT = 769,           /* not raised by this library */
    VXPCEC_NO_MORE_ELEMENTS = 770   /* not raised by this library */
};

/* Units that the library considers of any text, terminator included. */
#define VXPAD_MAX_STRING_LENGTH 256

/*
 * Writes the name of a result code ("VXPCEC_INVALID_PARAMETER") to res_text; unknown codes give "VXPCEC_UNKNOWN".
 * res_text_size is the buffer's size in units. *reply receives the units written, the terminator counted where it
 * fits. Failures are filed with the code VXPCEC_UNKNOWN.
 */
VXPADCOM_API int TranslateErrorCode(unsigned int error_code, char16_t* res_text, int res_text_size,
                                    unsigned int* reply);

/*
 * Write one text of the exception record behind a handle: the library's type name, the function that failed, what
 * went wrong. res_text_size is the buffer's size in units; *reply receives the text's length in units, cut to the
 * buffer. GetExceptionType() does not count the terminator, the other two do. A handle that names no record files a
 * new record with the code VXPCEC_UNKNOWN.
 */
VXPADCOM_API int GetExceptionType(unsigned int exception_handle, char16_t* res_text, int res_text_size,
                                  unsigned int* reply);
VXPADCOM_API int GetExceptionName(unsigned int exception_handle, char16_t* res_text, int res_text_size,
                                  unsigned int* reply);
VXPADCOM_API int GetExceptionMessage(unsigned int exception_handle, char16_t* res_text, int res_text_size,
                                     unsigned int* reply);

/* Stores the VXPCEC_ code of a record in *reply; a negative code arrives as its 32-bit pattern. */
VXPADCOM_API int GetExceptionCode(unsigned int exception_handle, unsigned int* reply);

/* The type text copied into every new record; writable, initially "libvxpadcom". Change it before other threads run. */
VXPADCOM_API extern char* lib_exception_type;

/* ------------------------------------------------------------------------------------------------------------------
 * Start, stop and the list of pads
 * --------------------------------------------------------------------------------------------------------------- */

/*
 * Finds the pads that are plugged in and selects the first. It begins with everything that Deinitialize() does, so it
 * also serves as a new search; register callbacks afterwards. Always 0: ask GetDeviceCount() what was found.
 *
 * A pad is known by its USB ids: those that are built in, and in front of them those of files in /etc/vxpadcom/ids.d
 * and $XDG_CONFIG_HOME/vxpadcom/ids.d, or of the file or folder that VXPADCOM_IDS in the environment names. They are
 * read each time. docs/ids.md describes them.
 */
VXPADCOM_API int Initialize(void);

/* Closes all pads, discards all exception records and forgets all callbacks. Always 0; harmless when repeated. */
VXPADCOM_API int Deinitialize(void);

/* True between Initialize() and Deinitialize(). */
VXPADCOM_API bool IsInitialized(void);

/* Version of the loaded library, as "0.1.0"; VXPADCOM_VERSION_STRING is that of the header. The text is static. */
VXPADCOM_API const char* vxpadcom_version(void);

/*
 * Returns the number of pads. Unlike other functions this one returns its answer: *reply is never written, but reply
 * must not be NULL, else the result is an exception handle.
 */
VXPADCOM_API int GetDeviceCount(unsigned int* reply);

/*
 * Select the first or the next pad and store its number in *reply, 0 where there is none. The position is the selected
 * pad itself, so a call for another pad moves it. With no pad known, EnumerateDevicesStart() searches again, with all
 * effects of Deinitialize() and Initialize(). A pad that cannot be selected is logged and gives 0; only a NULL reply
 * is filed as an exception.
 */
VXPADCOM_API int EnumerateDevicesStart(unsigned int* reply);
VXPADCOM_API int EnumerateDevicesNext(unsigned int* reply);

/*
 * Loop-back test of the text path: writes someText = "<text>" (with the quotes) to res_text. At most 254 units of text
 * are used. *reply receives min(res_text_size, length with terminator).
 */
VXPADCOM_API int SayHello(const char16_t* text, char16_t* res_text, int res_text_size, unsigned int* reply);

/* ------------------------------------------------------------------------------------------------------------------
 * Facts about a pad
 *
 * Failures: VXPCEC_INVALID_PARAMETER for a bad argument, VXPCEC_INVALID_HANDLE for a pad that cannot be selected or
 * that was removed. interface_number only names the interface for which a removal is reported.
 * --------------------------------------------------------------------------------------------------------------- */

/* USB serial number. *reply = min(res_text_size, length without terminator). */
VXPADCOM_API int GetSerialNumber(unsigned int device, char16_t* res_text, int res_text_size, unsigned int* reply);

/* USB product name; HID pads report it with one trailing blank. *reply = min(res_text_size, length + 1). */
VXPADCOM_API int GetProductName(unsigned int device, unsigned int interface_number, char16_t* res_text,
                                int res_text_size, unsigned int* reply);

/* USB manufacturer name. *reply = min(res_text_size, length without terminator). */
VXPADCOM_API int GetVendorName(unsigned int device, char16_t* res_text, int res_text_size, unsigned int* reply);

/* USB product id and vendor id. */
VXPADCOM_API int GetProductId(unsigned int device, unsigned int interface_number, unsigned int* reply);
VXPADCOM_API int GetVendorId(unsigned int device, unsigned int* reply);

/* Device release number as far as the search knows it; the search leaves it 0. */
VXPADCOM_API int GetUsbVersion(unsigned int device, unsigned int* reply);

/* A flag kept for the application, 0 after each search; any non-zero value is stored as 1. It has no other effect. */
VXPADCOM_API int GetUsedTransportProtocol(unsigned int device, unsigned int* reply);
VXPADCOM_API int SetUsedTransportProtocol(unsigned int device, unsigned int value);

/* Always stores 0: nothing is ever left to send when a call returns. */
VXPADCOM_API int GetBytesToSend(unsigned int device, unsigned int* reply);

/* Number of the pad's interfaces, at least 1. */
VXPADCOM_API int GetEndPointCount(unsigned int device, unsigned int* reply);

/*
 * Size in bytes of the buffer that a full report needs: payload plus the report-id byte. Waits where another thread's
 * failed exchange is just reopening the pad.
 */
VXPADCOM_API int GetFeatureReportSize(unsigned int device, unsigned int interface_number, unsigned int* reply);

/* ------------------------------------------------------------------------------------------------------------------
 * Reports
 *
 * A buffer starts with one report-id byte, which never reaches the pad and is 0 in what is read; the report follows.
 * Lengths count bytes with the report-id byte. interface: 0 is the pad's first interface, k its k-th further one.
 * Transfers on one interface exclude one another. A failed transfer is not repeated; the interface is closed and
 * opened again, and when that fails too the pad counts as removed until the next Initialize().
 * Failures: VXPCEC_INVALID_PARAMETER, VXPCEC_INVALID_HANDLE; *reply and dst are then left as they were.
 * --------------------------------------------------------------------------------------------------------------- */

/* Sends src_length - 1 bytes as a feature report. *reply = src_length. */
VXPADCOM_API int SetFeature(unsigned int device, unsigned int interface, const void* src, unsigned int src_length,
                            unsigned int* reply);

/* Reads a feature report of dst_length - 1 bytes; dst_length is at least 2. *reply = dst_length. */
VXPADCOM_API int GetFeature(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length,
                            unsigned int* reply);

/* Sends src_length - 1 bytes as an output report, at most GetFeatureReportSize() - 1. *reply = src_length. */
VXPADCOM_API int WriteFile(unsigned int device, unsigned int interface, const void* src, unsigned int src_length,
                           unsigned int* reply);

/*
 * Fetches a waiting input report of exactly dst_length - 1 bytes (20 on type 1 pads, else 64) without waiting for one.
 * *reply = dst_length. With no report waiting the call succeeds and touches neither dst nor *reply: preset *reply to
 * tell the two apart.
 */
VXPADCOM_API int ReadFile(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length,
                          unsigned int* reply);

/* ------------------------------------------------------------------------------------------------------------------
 * Buffered upload
 * --------------------------------------------------------------------------------------------------------------- */

/*
 * Sends a large buffer, for example an image for the display, as output reports over several interfaces at once, with
 * one thread for each. src is a sequence of pieces of GetFeatureReportSize() bytes, each with its report-id byte; a
 * shorter rest is not sent. Bit i of end_point_id_mask selects interface i; bits beyond the last interface are ignored.
 * The pieces are handed out in order, but which interface sends which, and so in which order they arrive, is left to
 * chance. The call returns when all threads have ended; *reply receives the bytes sent. An interface that fails
 * drops out: that shows as a smaller *reply and as exception records of WriteFile().
 *
 * One upload at a time. An upload that ended early leaves its position behind: the next one begins there.
 */
VXPADCOM_API int WriteFileBuffer(unsigned int device, unsigned int end_point_id_mask, const void* src,
                                 unsigned int src_length, unsigned int* reply);

/* Declared for completeness: it only logs that it is not implemented. Always 0. */
VXPADCOM_API int ReadFileBuffer(unsigned int device, unsigned int end_point_id_mask, void* dst, unsigned int dst_length,
                                unsigned int* reply);

/* ------------------------------------------------------------------------------------------------------------------
 * Pen data as it comes
 *
 * For each interface there may be two threads: one reads input reports and queues them, one takes them off the queue
 * and calls the application. Pads receive beside one another, and beside calls that use another pad; a pad that is
 * being received from is not reopened when a call selects it.
 *
 * Which callback may call what:
 * - A data callback may call every function but Initialize(), Deinitialize() and EnumerateDevicesStart() where that
 *   searches again: they would wait for the very thread that calls them, and do nothing but log that. It may replace
 *   or remove itself.
 * - A device-removed callback may run on a receiving thread. It must not call those three there either. It may stop the
 *   receiving that it runs for, which then ends as the callback returns, but not start it: that fails. Inside an
 *   ordinary call of the application it may search again.
 * - A callback that is slow delays nobody but its own interface, whose queue grows.
 * The three functions stop all threads of the library and return when these have left; so no callback runs on them
 * afterwards. A call of the application that is inside its device-removed callback is not waited for.
 * --------------------------------------------------------------------------------------------------------------- */

/*
 * Called with the registered pointer, the pad, the interface and one input report: always 64 bytes, zero behind the
 * report, valid during the call. One thread for each interface. Over VCOM a pen record must have exactly the size of
 * the IN endpoint's packet to be received.
 */
typedef void (*vxpad_data_callback)(void* user_specific, unsigned int device, unsigned int interface_number,
                                    const void* data, unsigned int length);

/*
 * Sets the data callback of an interface and starts its callback thread where none runs; a later one takes its place
 * from the next report on. NULL ends the thread within half a second and stops the receiving that was enabled when
 * NULL was set; receiving that is enabled anew meanwhile goes on.
 * Failures: VXPCEC_INVALID_PARAMETER before Initialize() and where the thread cannot be started,
 * VXPCEC_INVALID_HANDLE for a pad number above 15 or an interface number above 7.
 */
VXPADCOM_API int SetOnDataReceivedHandler(unsigned int device, unsigned int interface_number,
                                          vxpad_data_callback callback, void* user_specific);

/*
 * Starts (non-zero) or stops receiving. Starting closes and opens the pad, drops what was queued, has a VCOM pad send
 * pen data, and restarts a receiving that runs already. It makes the pad current, as any call does. Stopping returns
 * when no further report is read, normally within 0.9 s, and never fails. A removed pad stops by itself, also one that
 * was removed before the start: that succeeds, and the device-removed callback tells. A start that fails returns -1,
 * not the handle of its record, whose code is VXPCEC_UNKNOWN.
 */
VXPADCOM_API int SetDataReceivingEnabled(unsigned int device, unsigned int interface_number, unsigned int enabled);

/* Stores the number of queued reports in *result; before receiving was first enabled *result stays as it is. */
VXPADCOM_API int GetDataPacketsAvailable(unsigned int device, unsigned int interface_number, unsigned int* result);

/*
 * Drops the queued reports; waits for an exchange that is under way on that pad. Failures as those of
 * SetOnDataReceivedHandler().
 */
VXPADCOM_API int FlushDataPackets(unsigned int device, unsigned int interface_number);

/* ------------------------------------------------------------------------------------------------------------------
 * SSP messages
 *
 * Whole messages, without a report-id byte. interface and failures are those of reports.
 * --------------------------------------------------------------------------------------------------------------- */

/* Sends one message of src_length bytes. Replies to earlier messages that nobody received are dropped. */
VXPADCOM_API int SendSspMessage(unsigned int device, unsigned int interface, const void* src, unsigned int src_length);

/*
 * Waits up to time_out milliseconds for one message that is no pen data. dst_length is at least 2; a longer message is
 * cut. *reply receives the bytes stored. A time-out is a failure like any other. A message that arrives together with
 * the loss of the pad is lost.
 */
VXPADCOM_API int ReceiveSspMessage(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length,
                                   unsigned int time_out, unsigned int* reply);

/* Declared for completeness: it only logs that it is not implemented. Always 0. */
VXPADCOM_API int AddComDevice(void* argument_1, unsigned int argument_2, void* argument_3);

/* ------------------------------------------------------------------------------------------------------------------
 * Events and logging
 * --------------------------------------------------------------------------------------------------------------- */

/* Called with the registered pointer and the pad's number when an operation finds the pad removed. */
typedef void (*vxpad_device_callback)(void* user_specific, unsigned int device);

/* Called with the registered pointer and one message of at most 255 units, valid during the call. */
typedef void (*vxpad_logging_callback)(void* user_specific, const char16_t* message);

/*
 * Sets the device-removed callback; NULL turns it off. It runs once for each operation that sees the removal, on that
 * operation's thread and before that operation returns; a receive thread may report one removal several times and then
 * ends. A pad that was pulled out while nobody used it is found by the next call that selects or reaches it. What the
 * callback itself asks the lost pad fails like any call and is not reported on that thread again. What the callback
 * must not call is told with receiving. Always 0.
 */
VXPADCOM_API int SetOnDeviceRemovedHandler(vxpad_device_callback callback, void* user_specific);

/* Declared for completeness: they only log that they are not implemented. Always 0. */
VXPADCOM_API int SetOnDeviceArrivedHandler(vxpad_device_callback callback, void* user_specific);
VXPADCOM_API int TriggerOnDeviceArrivedEvents(void);
VXPADCOM_API int LogDeviceStatistics(unsigned int device);

/*
 * Sets the callback (a vxpad_logging_callback) that receives every information and error message, from any thread and
 * possibly from several at a time; NULL turns it off, though another thread may be inside it still. Messages of a
 * thread that holds a lock of the library come when it has released it, a thousand at most: the first and the last
 * half, and between them how many were left out. What the library says to the callback's own calls is not delivered.
 * Initialize() and Deinitialize() deliver their last messages to it before they return, unless another is registered.
 * It may run on any thread of the library, and so must not call what a data callback or a device-removed callback must
 * not call. Always 0.
 */
VXPADCOM_API int RegisterLoggingCallBackProcedure(void* callback, void* user_specific);

/* Non-zero sends error lines to syslog instead of standard error. */
VXPADCOM_API extern int daemon_proc;

#ifdef __cplusplus
}
#endif

#endif
