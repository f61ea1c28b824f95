/*
 * The record of one interface of a pad, which all functions on one pad work on.
 */
#ifndef VXPADCOM_INTERNALS_RECORD_H
#define VXPADCOM_INTERNALS_RECORD_H

#include "vxpadcom/export.h"
#include "vxpadcom/internals/uni_queue.h"

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct hid_device_;
struct libusb_device;
struct libusb_device_handle;
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

#ifdef __cplusplus
}
#endif

#endif
