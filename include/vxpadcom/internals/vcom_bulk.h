/*
 * Bytes over the bulk endpoints of a VCOM pad. Handles and devices are libusb's; failures are libusb's error codes.
 */
#ifndef VXPADCOM_INTERNALS_VCOM_BULK_H
#define VXPADCOM_INTERNALS_VCOM_BULK_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

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

#ifdef __cplusplus
}
#endif

#endif
