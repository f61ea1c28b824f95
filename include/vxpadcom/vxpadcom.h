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
 *    WriteFileBuffer() that is sending ends early. A call that comes meanwhile fails as without Initialize(). This
 *    does not hold for the building blocks further down, whose names begin with core_ and the like.
 * 6. Callbacks run on the thread that has something to report, with none of the library's locks held; they must not
 *    throw. They may call the library, except for what their own texts forbid. Deinitialize(), with which Initialize()
 *    begins, ends all threads of the library and waits until they have ended.
 *
 * Environment: LIBVXPADCOM_DEBUG, LIBVXPADCOM_DEBUG_FUNC and LIBVXPADCOM_DEBUG_MUTEX, set to a positive number, turn
 * on information, enter/exit and lock lines on standard output. Error lines always go to standard error.
 */
#ifndef VXPADCOM_VXPADCOM_H
#define VXPADCOM_VXPADCOM_H

#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

#define VXPADCOM_API __attribute__((visibility("default")))

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
 */
VXPADCOM_API int Initialize(void);

/* Closes all pads, discards all exception records and forgets all callbacks. Always 0; harmless when repeated. */
VXPADCOM_API int Deinitialize(void);

/* True between Initialize() and Deinitialize(). */
VXPADCOM_API bool IsInitialized(void);

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
 * - A device-removed callback may run on a receiving thread. It must not call those three there either, nor
 *   SetDataReceivingEnabled() for the interface that it may be running for. Inside an ordinary call of the
 *   application it may search again.
 * - A callback that is slow delays nobody but its own interface, whose queue grows.
 * The three functions stop all threads and return when these have left; so no callback runs afterwards.
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

/* ------------------------------------------------------------------------------------------------------------------
 * Process-wide locks and upload state, exported so that other modules of a process can take part
 * --------------------------------------------------------------------------------------------------------------- */

VXPADCOM_API extern pthread_mutex_t gen_thread_mutex_lock;        /* serialises Initialize() and Deinitialize() */
VXPADCOM_API extern pthread_mutex_t dev_list_short_lock;          /* guards the list of pads and the selection */
VXPADCOM_API extern pthread_mutex_t exception_list_lock;          /* guards the exception records */
VXPADCOM_API extern pthread_mutex_t print_wchar_to_asci_lock;     /* guards print_wchar_to_asci() */
VXPADCOM_API extern pthread_mutex_t interface_routine_count_lock; /* guards interface_routine_count */
VXPADCOM_API extern int interface_routine_count;                  /* upload threads not yet finished */
VXPADCOM_API extern unsigned char interface_routine_terminate;    /* 1 tells all upload threads to stop */

/* ------------------------------------------------------------------------------------------------------------------
 * Internals
 *
 * The library's own building blocks, exported for diagnosis and for tests. Applications need none of them. They take
 * narrow text, report failure as a negative number (-1 in general, -4 transport lost, -7 time-out, -20 pad removed)
 * and file no exception record.
 * --------------------------------------------------------------------------------------------------------------- */

struct hid_device_;
struct libusb_device;
struct libusb_device_handle;

/* USB ids to search for; a list ends with a pair whose vendor_id is 0. */
typedef struct vx_usb_id {
    uint32_t vendor_id;
    uint32_t product_id;
} vx_usb_id;

VXPADCOM_API extern vx_usb_id hid_device_list[55];
VXPADCOM_API extern vx_usb_id vcom_device_list[10];

/* Frame queue: an unbounded first-in-first-out list of byte buffers with one mutex. */
typedef struct uni_frame {
    uint32_t length;        /* bytes at data */
    unsigned char* data;    /* owned by the queue, from malloc() */
    struct uni_frame* next; /* next newer frame */
} uni_frame;

typedef struct uni_queue {
    pthread_mutex_t mutex; /* first member: a pointer to the queue is also one to its mutex */
    int64_t size;          /* frames queued */
    uni_frame* first;      /* oldest frame, NULL when empty */
    uni_frame* last;       /* newest frame, NULL when empty */
} uni_queue;

/* One interface of a pad. The first interface's record stands for the pad. */
typedef struct vx_device {
    uint32_t pad_type; /* model class, see src/transport/usb_ids.hpp */
    struct hid_device_* hid;
    uint32_t bcdDevice;
    uint32_t vendor_id;
    uint32_t product_id;
    char manufacturer[256];
    char product[256];
    char serial_number[256];
    char hid_path[256];
    pthread_mutex_t* device_lock; /* serialises all traffic on this interface */
    uint32_t interface_number;    /* USB interface number */
    uint8_t in_use;
    uint8_t was_removed;
    char device_uid[512];
    char szPadSettings[256]; /* identity by which pads are told apart and selected */
    uint32_t model_param_1;
    uint32_t model_param_2;
    struct libusb_device_handle* vcom_handle;
    struct libusb_device* vcom_device;
    uint8_t ep_in;
    uint32_t ep_in_max_packet_size;
    uint8_t ep_out;
    uint32_t ep_out_max_packet_size;
    uni_queue* ssp_input_read;
    uni_queue* ssp_command_messages;
    int (*send_ssp_message)(struct vx_device* device, void* data, unsigned int length);
    int (*receive_ssp_message)(struct vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                               unsigned char legacy, int selector);
    int32_t count_of_interfaces;      /* this record and the further interfaces in use */
    struct vx_device** interfaces;    /* 8 further interfaces, of the pad's record only */
    uint8_t components_id_table[128]; /* type of each component; all zero until the pad was asked */
    uint32_t modes_id_table[32];      /* type of each signpad mode; all zero until the pad was asked */
    /* The library's own: */
    uni_queue* ssp_unfinished; /* a message that a call had no time to complete: goes in front of the next read */
    int32_t keepers;           /* calls and receive threads that want the interface to stay open */
    uint8_t count_of_modes;    /* entries of modes_id_table that the pad listed; 0 until it was asked */
    int32_t reports_due;       /* requests for a legacy report that have no answer yet */
    int32_t replies_due;       /* other messages sent that have no answer yet */
    int32_t slowest_report_ms; /* how long the pad lets a legacy report be waited for */
    uint8_t left_over;         /* 1: an answer to an earlier question may wait, 2: to one of before the search */
    uint8_t sends_unasked;     /* the pad has sent answers that nobody had asked for */
    uint8_t report_in_doubt;   /* the next legacy report may be the answer to an earlier request */
    uint8_t beginning_is_old;  /* what is in ssp_unfinished came before the last send */
} vx_device;

enum { VX_MAX_DEVICES = 16, VX_MAX_FURTHER_INTERFACES = 8 };

/* The pads found by a search. */
typedef struct vx_registry {
    vx_device devices[VX_MAX_DEVICES];
    int32_t count_of_devices;
    uint32_t size;
    vx_device* current_device; /* the pad on which the core operations act */
    uint16_t current_index;
} vx_registry;

/* Firmware version of a pad. */
typedef struct dev_fw_version {
    uint32_t major;
    uint32_t minor;
    uint32_t patch;
    uint32_t revision;
    char manufacturer[5]; /* four characters are written: zero the record before */
} dev_fw_version;

/* Status flags of a pad; byte 5 is its current mode. */
typedef struct flags_status {
    unsigned char flags[14];
} flags_status;

/* Registry of pads. TRUE is 1. */
VXPADCOM_API int core_initialize(void);                      /* empty registry, libusb initialised; TRUE */
VXPADCOM_API void core_uninitialize(void);                   /* closes and frees everything */
VXPADCOM_API int core_looking_for_devices(void);             /* searches and opens the first pad: pads found, or -1 */
VXPADCOM_API int core_search_devices(vx_registry* registry); /* clears and fills the registry: pads found */
VXPADCOM_API int core_close_all_devs_clear_mem(vx_registry* registry); /* closes and clears all records; TRUE */
/* A pad that does not open again is marked as removed, and the result is TRUE all the same. */
VXPADCOM_API int core_reopen_devs(vx_registry* registry); /* reopens the current pad; TRUE or FALSE */
VXPADCOM_API int __core_reopen_devs(void);                /* the same on the library's registry */
/* Makes the pad with these settings current, or with NULL the next one: 0, 1 none such, -1, -20. */
VXPADCOM_API int core_set_device_to_current(const char* settings);
VXPADCOM_API int core_get_pad_settings(char* dst); /* at least 256 bytes; length of the text, -1, -20 */
/* Composes the identity text in dst (256 bytes); transport: 0 HID, 1 VCOM. device_uid is not used. */
VXPADCOM_API void core_pad_settings_population(char* dst, unsigned int pad_type, const char* manufacturer,
                                               const char* product, unsigned int vendor_id, unsigned int product_id,
                                               const char* serial_number, const char* device_uid, int transport);

/* Opening, closing and reports of one record. The __ variants and the feature transfers expect device_lock held. */
VXPADCOM_API int __core_open_dev(vx_device* device);
VXPADCOM_API int core_open_dev(vx_device* device); /* 0 for any record: a failed open shows at the first transfer */
VXPADCOM_API void __core_close_dev(vx_device* device);
VXPADCOM_API void core_close_dev(vx_device* device);
VXPADCOM_API int core_feature_read(vx_device* device, void* data, unsigned int length);        /* 0, -1, -20 */
VXPADCOM_API int core_feature_write(vx_device* device, const void* data, unsigned int length); /* 0, -1, -20 */
VXPADCOM_API int core_output_write(vx_device* device, const void* data, unsigned int length);  /* 0, -1, -20 */
VXPADCOM_API int core_input_read(vx_device* device, void* data, unsigned int length);          /* bytes, -1, -20 */
VXPADCOM_API void core_catch_is_dev_was_removed(int* result); /* *result = -20 when the current pad was removed */
VXPADCOM_API int hid_get_max_packet_size_of_out_endpoint(vx_device* device); /* bytes, or -1 */
VXPADCOM_API int hid_get_max_packet_size_of_input_report(vx_device* device); /* bytes, or -1 */

/* Fixed commands in 64-byte feature reports, tried three times each. */
VXPADCOM_API int core_read_version(vx_device* device, dev_fw_version* version); /* 0, -1 */
VXPADCOM_API int core_set_pad_mode(vx_device* device, int mode, int option);    /* >= 0, -1 */
VXPADCOM_API int __core_get_status(vx_device* device, flags_status* status);    /* 0, -1 */
VXPADCOM_API int __core_get_pad_mode(vx_device* device);                        /* the mode, -1 */
VXPADCOM_API int core_create_signature_rectangle(vx_device* device, unsigned short value_1, unsigned short value_2,
                                                 unsigned short value_3, unsigned short value_4,
                                                 unsigned int flag); /* 0, -1, -20 */
/* Pen data of the current pad on and off; a HID pad needs nothing. 0, -1, -20. */
VXPADCOM_API int core_enable_ssp_biodata_sending(void);
VXPADCOM_API int core_disable_ssp_biodata_sending(void);

/* Requests to the current pad. Texts go to buffers of at least 256 bytes; results are lengths, numbers, -1 or -20. */
VXPADCOM_API int core_get_serial_number(char* dst);
VXPADCOM_API int core_get_pad_name(char* dst);
VXPADCOM_API int core_get_pad_manufacturer(char* dst);
VXPADCOM_API int core_get_pad_product_id(void);
VXPADCOM_API int core_get_vendor_id(void);
VXPADCOM_API int core_get_pad_bcd_device(void);
VXPADCOM_API int core_get_count_of_hid_interfaces(void);
VXPADCOM_API int core_get_max_packet_size_of_out_endpoint(void);
VXPADCOM_API int core_get_max_packet_size_of_input_report(void);
/* interface_number: 0 is the pad's record, k its k-th further interface; data_size in bytes. */
VXPADCOM_API int core_set_hid_feature_report(unsigned int interface_number, const void* data, int data_size);
VXPADCOM_API int core_get_hid_feature_report(unsigned int interface_number, void* data, int data_size);
VXPADCOM_API int core_set_unsync_hid_output_report(unsigned int interface_number, const void* data, int data_size);
VXPADCOM_API int core_get_hid_input_report(unsigned int interface_number, void* data, int data_size);
/* Asks the interface's receive thread to end and calls the device-removed callback for a core result of -20 only. */
VXPADCOM_API void catch_removing_device(int code, unsigned int device, unsigned int interface_number);

/* HID transport. Handles are hidapi's. Failing calls are repeated for up to 1000 ms with growing pauses. */
VXPADCOM_API int search_hid_devices(vx_registry* registry); /* pads known after the last new one, or -1 */
VXPADCOM_API struct hid_device_* hid_open_dev(const char* path);
VXPADCOM_API void hid_close_dev(struct hid_device_* hid);
VXPADCOM_API int hid_feature_read(struct hid_device_* hid, void* data, unsigned int length);        /* 0, -1 */
VXPADCOM_API int hid_feature_write(struct hid_device_* hid, const void* data, unsigned int length); /* 0, -1 */
VXPADCOM_API int hid_output_write(struct hid_device_* hid, const void* data, unsigned int length);  /* 0, -1 */
VXPADCOM_API int hid_input_read(struct hid_device_* hid, void* data, unsigned int length);          /* bytes, -1 */
/* Message bytes that the pad hands out in feature reports; time_out in ms. At most 62 bytes, or -1. */
VXPADCOM_API int hid_read_ssp_data(struct hid_device_* hid, void* data, unsigned int data_size, unsigned int time_out,
                                   unsigned char request);

/* VCOM transport. Handles and devices are libusb's; failures are libusb's error codes. */
VXPADCOM_API int search_vcom_devices(vx_registry* registry); /* pads known after the last new one, 0, or -1 */
VXPADCOM_API struct libusb_device_handle* vcom_open_dev(struct libusb_device* usb_device);
VXPADCOM_API void vcom_close_dev(struct libusb_device_handle* handle);
/* One bulk IN transfer; time_out in ms. Bytes received, 0, -1 or an error code. */
VXPADCOM_API int usb_data_receive(struct libusb_device_handle* handle, unsigned char endpoint, void* data,
                                  int data_size, unsigned int time_out);
/* A bulk OUT transfer of 1000 ms, tried three times. 0, -1 or an error code. */
VXPADCOM_API int usb_data_send(struct libusb_device_handle* handle, unsigned char endpoint, void* data, int data_size);
/* Reads until bytes come, or with nonzero until one of them is not 0; time_out in ms. Bytes, -1 or an error code. */
VXPADCOM_API int vcom_read_ssp_data(vx_device* device, void* data, int data_size, unsigned int time_out,
                                    unsigned char nonzero);
/* Reports as legacy messages, 64 bytes at most. */
VXPADCOM_API int vcom_feature_read(vx_device* device, void* data, unsigned int length);        /* 0, negative */
VXPADCOM_API int vcom_feature_write(vx_device* device, const void* data, unsigned int length); /* 0, negative */
VXPADCOM_API int vcom_output_write(vx_device* device, const void* data, unsigned int length);  /* 0, -1 */
VXPADCOM_API int vcom_input_read(vx_device* device, void* data, unsigned int length);          /* bytes, 0, -4 */

/*
 * SSP messages. A base message is a component id (bit 7 clear), a 16-bit little-endian payload size minus one, and the
 * payload; a legacy message is a byte 0x80 | biodata flag 0x40 | payload size minus one, and 1 to 64 payload bytes.
 */
VXPADCOM_API int ssp_base_message_check_component_id(const void* message, int component_id); /* 0, or -1 */
VXPADCOM_API int ssp_base_message_is_it_old_message(const void* message);                    /* 1, 0, -1 for NULL */
VXPADCOM_API int ssp_base_message_is_it_biodata(const void* message);                        /* 1, 0, -1 for NULL */
VXPADCOM_API int ssp_base_message_get_data_length(const void* message);             /* payload bytes; 3 are read */
VXPADCOM_API int ssp_base_message_old_message_get_data_length(const void* message); /* payload bytes; 1 is read */
/* Wraps 1 to 64 bytes in a legacy message, *out, which the caller frees. Its size, or -1. */
VXPADCOM_API int ssp_base_message_old_message_create(const void* data, unsigned int data_size, unsigned char** out);

/*
 * Transport tokens: AA 55 02 starts a frame, AA 55 00 stands for the data bytes AA 55.
 * Framing gives the framed size and *out, which the caller frees, or -1. Parsing changes the received bytes in place,
 * adds each frame to the queue and gives the queue's size, or -1 where no frame starts.
 */
VXPADCOM_API int ssp_base_message_to_transport_token_data(const void* data, unsigned int len, unsigned char** out);
VXPADCOM_API int ssp_transport_token_to_base_message_data(void* tt_data, size_t tt_data_size, uni_queue* queue);

/*
 * Whole messages. The __ variants expect device_lock held. *length: capacity, then bytes delivered; a message that is
 * longer is cut. time_out in ms. selector 1 without legacy serves pen data, anything else the replies.
 */
VXPADCOM_API int __send_ssp_message(vx_device* device, void* data, unsigned int length);
VXPADCOM_API int __receive_ssp_message(vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                                       unsigned char legacy, int selector);
VXPADCOM_API int lock_dev_and_send_ssp_message(vx_device* device, void* data, unsigned int length);
VXPADCOM_API int lock_dev_and_receive_ssp_message(vx_device* device, void* data, unsigned int* length,
                                                  unsigned int time_out, unsigned char legacy);
VXPADCOM_API int core_send_ssp_message(unsigned int interface_number, void* data, int data_size);
VXPADCOM_API int core_receive_ssp_message(unsigned int interface_number, void* data, unsigned int* data_size,
                                          unsigned int time_out);
VXPADCOM_API void core_clear_ssp_input_queue(void);                   /* drops the current pad's pen data */
VXPADCOM_API int core_ssp_biodata_sending(vx_device* device, int on); /* >= 0, or the last failure after 3000 ms */

/*
 * Components of a pad. They are addressed by id, the position of their type in the list that the pad reports. A message
 * is an SSP message as docs/wire-formats.md shows it; sizes are in bytes. Results are 0 or what is asked, -1 in
 * general, -2 where the pad has no such component or mode, -4 where it is gone; a failed transfer may also give the
 * transport's own negative code. No lock is taken: the caller holds the record's device_lock. The pad is asked for its
 * components and modes once, the answers stay in the record.
 */

/* Through the record's own two functions, with legacy and selector 0 whatever is passed. */
VXPADCOM_API int send_ssp_message(vx_device* device, void* message, unsigned int size);
VXPADCOM_API int receive_ssp_message(vx_device* device, void* data, unsigned int* size, unsigned int time_out,
                                     unsigned char legacy, int selector);
VXPADCOM_API int ssp_common_is_ssp_supported(vx_device* device); /* 1, 0, -1 for NULL; waits 100 ms at most */
VXPADCOM_API int ssp_common_components_id_initialize_table(vx_device* device);
VXPADCOM_API int ssp_common_component_id_get_id(vx_device* device, int component_type);
/* Of the component id and the message id the low byte counts. At most 65533 bytes of data behind the parameters. */
VXPADCOM_API int make_and_send_ssp_component_data_sequence(vx_device* device, int component_id,
                                                           unsigned char message_id, unsigned char parameter_1,
                                                           unsigned char parameter_2, const void* data,
                                                           unsigned int data_size);
/* At most 65535 bytes of data. */
VXPADCOM_API int make_and_send_ssp_data_sequence(vx_device* device, int component_id, unsigned char message_id,
                                                 const void* data, unsigned int data_size);
/* The reply, waited for 1000 ms: 1024 bytes, zeros behind it, freed by the caller; or NULL. */
VXPADCOM_API unsigned char* receive_ssp_message_and_get_data(vx_device* device);
VXPADCOM_API int ssp_common_ct_signpad_initialize_modes_id_table(vx_device* device);
VXPADCOM_API int ssp_common_ct_signpad_get_mode_id(vx_device* device, int mode_type); /* pad types 15, 16, 17 only */
/* Looks at 3 bytes of the payload: 0, -1. */
VXPADCOM_API int ct_signpad_mode_send_reply_check(const unsigned char* payload, int ct_cmd, int cts_mode_id);
/* Looks at 2 bytes: the button, -1. */
VXPADCOM_API int ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(const unsigned char* sub_reply, int sub_command);
/* The button (0..255), or negative. Pad types 15, 16 and 17 only: others give -1 at once. */
VXPADCOM_API int ssp_common_get_user_input(vx_device* device);
VXPADCOM_API int ssp_common_get_button_event(vx_device* device, int mode_type); /* mode type 0, 5 or 6 */

/* Description, pen data, connection type: 0, -1, -2, -4. */

/* Fills vendor_id, product_id and serial_number (at most 255 characters) of the record. */
VXPADCOM_API int ssp_common_get_pad_description(vx_device* device);
/* The payload holds at least 31 bytes and as many more as byte 30 says. */
VXPADCOM_API int ct_signpad_get_pad_description_reply_check(const unsigned char* payload, int message_id);
VXPADCOM_API int ssp_biodata_sending(vx_device* device, int on); /* the low byte: 1 on, 0 off */
/* Looks at 2 bytes of the payload. */
VXPADCOM_API int ct_signpad_mode_ssp_biodata_sending_reply_check(const unsigned char* payload, int message_id);
/* Looks at 3 bytes of the payload: the type (0..127), -1. */
VXPADCOM_API int ct_communication_get_current_connection_type_from_reply_message(const unsigned char* payload);
VXPADCOM_API int ssp_common_ct_communication_get_current_connection(vx_device* device); /* the type, or negative */
/* What the types mean is the pad's. Returns as soon as the request is written; no reply is waited for. */
VXPADCOM_API int ssp_common_ct_communication_set_current_connection(vx_device* device, int type);

/* Configuration variables and buttons. A key counts with its first 40 characters, a value with its first 20. */
typedef struct vx_conf_key {
    uint32_t code; /* of the button; 0 ends a table */
    uint32_t mode; /* the signpad mode type: 0, 5 or 6 */
    char key[256];
} vx_conf_key;

/* The key in the caller's table, or NULL. */
VXPADCOM_API const char* get_conf_var_string_for_code(const vx_conf_key* table, unsigned int code, unsigned int mode);
/* Two upper-case digits for each byte, zeros behind them: the string, or NULL where a size is below 1, a pointer NULL
 * or the string too small. A string of exactly twice the data's size has no terminator. */
VXPADCOM_API char* get_hex_string_from_data_for_conf_var_set(char* string, int string_size, const void* data,
                                                             int data_size);
VXPADCOM_API int cmduni_reply_check_cc(const unsigned char* payload, int message_id); /* looks at 2 bytes: 0, -1 */
/* Looks at 3 bytes of the payload: the state, -1. */
VXPADCOM_API int ct_conf_handler_cmd_conf_state_get(const unsigned char* payload, int message_id);
/* State of the configuration handler: 0 idle, 1 waiting, 2 running, 3 done, 4 failed; or negative. */
VXPADCOM_API int ssp_common_get_conf_state(vx_device* device);
/* Waits up to 10 s until the handler is not busy: the last state seen, -4; 0 at once for other pad types than 15..17.
 */
VXPADCOM_API int ssp_common_check_configuration_state(vx_device* device);
/* 0, -1, or -2 without a configuration handler. Each waits for an idle handler before and behind the change. */
VXPADCOM_API int ssp_common_set_configuration_variable(vx_device* device, const char* key, const char* value);
VXPADCOM_API int ssp_common_persist_configuration_variable(vx_device* device, const char* key);
/* Pad types 15, 16 and 17 only, as the three refreshes. -1 also for a button that the mode does not have. */
VXPADCOM_API int ssp_common_set_button_state(vx_device* device, unsigned char code, unsigned int first_value,
                                             unsigned int second_value, unsigned int mode);
VXPADCOM_API int ssp_common_doc_view_buttons_refresh(vx_device* device);
VXPADCOM_API int ssp_common_signature_buttons_refresh(vx_device* device);
VXPADCOM_API int ssp_common_doc_sign_buttons_refresh(vx_device* device);

/* Frame queue. Readers lock, take, unlock; add and destroy lock by themselves. */
VXPADCOM_API uni_queue* init_uni_queue(void);
VXPADCOM_API void destroy_uni_queue(uni_queue* queue);
VXPADCOM_API int add_uni_frame(uni_queue* queue, void* data,
                               unsigned int length);                      /* 1, or 0: data stays the caller's */
VXPADCOM_API void* get_uni_frame(uni_queue* queue, unsigned int* length); /* lock held; the caller frees the buffer */
VXPADCOM_API int get_uni_queue_size(uni_queue* queue);                    /* lock held for an exact answer */
VXPADCOM_API void clear_uni_queue(uni_queue* queue);                      /* lock held */
VXPADCOM_API int __lock_uni_queue(uni_queue* queue);
VXPADCOM_API int quiet_lock_queue(uni_queue* queue);
VXPADCOM_API int quiet_unlock_queue(uni_queue* queue);

/* Checked system calls: failures are logged. The allocators try three times and then end the process. */
VXPADCOM_API void* Malloc(size_t size);
VXPADCOM_API void* Calloc(size_t count, size_t size);
VXPADCOM_API void* Realloc(void* block, size_t size);
VXPADCOM_API int Open(const char* path, int flags, mode_t mode);
VXPADCOM_API int Close(int fd);
VXPADCOM_API ssize_t Read(int fd, void* buffer, size_t count);
VXPADCOM_API ssize_t Write(int fd, const void* buffer, size_t count);
VXPADCOM_API unsigned char* load_file(const char* name, unsigned int* image_size);    /* freed by the caller */
VXPADCOM_API long save_file(const char* name, const void* buffer, unsigned int size); /* bytes written, or -1 */
VXPADCOM_API void Pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                                 void* argument);
VXPADCOM_API void Pthread_join(pthread_t thread, void** result);
VXPADCOM_API void Pthread_detach(pthread_t thread);
VXPADCOM_API void Pthread_kill(pthread_t thread, int signal_number);
VXPADCOM_API void Pthread_mutexattr_init(pthread_mutexattr_t* attributes);
VXPADCOM_API void Pthread_mutexattr_setpshared(pthread_mutexattr_t* attributes, int shared);
VXPADCOM_API void Pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
VXPADCOM_API void Pthread_mutex_lock(pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_mutex_unlock(pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_cond_broadcast(pthread_cond_t* condition);
VXPADCOM_API void Pthread_cond_signal(pthread_cond_t* condition);
VXPADCOM_API void Pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                         const struct timespec* deadline);
VXPADCOM_API void Pthread_once(pthread_once_t* once, void (*routine)(void));
VXPADCOM_API void Pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
VXPADCOM_API void Pthread_setspecific(pthread_key_t key, const void* value);

/* Error lines: errno's text is appended by err_ret, err_sys and err_dump; err_sys and err_quit exit(1), err_dump
 * abort(). */
VXPADCOM_API void err_msg(const char* format, ...) __attribute__((format(printf, 1, 2)));
VXPADCOM_API void err_ret(const char* format, ...) __attribute__((format(printf, 1, 2)));
VXPADCOM_API void err_sys(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));
VXPADCOM_API void err_dump(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));
VXPADCOM_API void err_quit(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));

/* Text for log lines. The returned texts are static: the next call overwrites them. */
VXPADCOM_API void print_current_time(void);
VXPADCOM_API char* print_bits(int value);                                       /* low 8 bits, "00000101" */
VXPADCOM_API char* print_bytes(const unsigned char* data, unsigned int length); /* "[ 01 AB ]", 340 bytes at most */
VXPADCOM_API bool is_it_zero_array(const unsigned char* data, size_t length);
VXPADCOM_API const char* print_wchar_to_asci(const char16_t* text); /* sets LC_CTYPE from the environment */
VXPADCOM_API const char* vx_dev_strerror(unsigned char status);     /* text of a pad's status byte */
VXPADCOM_API const char* hidapi_str_error(struct hid_device_* hid); /* "" for NULL */

/* Text conversion, unit by unit, by the single-byte conversions of the process's LC_CTYPE locale. */
VXPADCOM_API void wbzero(void* buffer, int units);
VXPADCOM_API int wstr_length(const char16_t* text);                   /* 256 units at most are looked at */
VXPADCOM_API int astr_to_wstr(char16_t* dst, const char* src, int n); /* n units; returns n */
VXPADCOM_API int wstr_to_astr(char* dst, const char16_t* src, int n); /* n bytes; returns n */

#ifdef __cplusplus
}
#endif

#endif
