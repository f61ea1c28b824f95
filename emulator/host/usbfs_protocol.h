/* What the preload library and the emulator tell each other: the calls on an open file of /dev/bus/usb.
 *
 * Each open file has two stream sockets and a pipe. Requests and their replies alternate on the first socket, which
 * the library connects. With the opening request it passes on its ends of the second socket, on which completed URBs
 * arrive, and the read end of a pipe. The application gets the pipe's write end as its descriptor: the pipe is full,
 * hence not writable, until the emulator empties it because a URB can be reaped; with its read end closed after
 * an unplug it polls as POLLERR. That is how the descriptor of the real file behaves. */
#pragma once

#include <stdint.h>

#define VXPAD_ENV_USBFS "VXPAD_EMULATOR_USBFS" /* path of the emulator's socket */
#define VXPAD_ENV_TESTBED "UMOCKDEV_DIR"       /* root of the tree that stands in for /sys and /dev */

enum usbfs_operation {
    usbfs_open,       /* interface: bus, argument: address; passes two descriptors: completions, pipe */
    usbfs_close,      /* acknowledged, so that a claim right after it finds the interface free */
    usbfs_get_driver, /* value: enum usbfs_driver */
    usbfs_disconnect,
    usbfs_connect,
    usbfs_disconnect_claim, /* argument: enum usbfs_driver to compare with, length: flags of the call */
    usbfs_claim,
    usbfs_release,
    usbfs_set_interface, /* argument: alternate setting */
    usbfs_clear_halt,    /* argument: endpoint */
    usbfs_reset,
    usbfs_submit,   /* urb, endpoint, setup, length, payload of OUT */
    usbfs_transfer, /* the same, completed on the one descriptor that comes with it */
    usbfs_discard,  /* urb */
    usbfs_wake      /* empties the pipe: the descriptor becomes writable */
};

enum usbfs_driver { usbfs_driver_none, usbfs_driver_usbfs, usbfs_driver_usbhid, usbfs_driver_other };

enum { usbfs_pipe_size = 4096 };

struct usbfs_request {
    uint64_t urb; /* address of the caller's URB, as its name */
    uint32_t operation;
    uint32_t interface;
    uint32_t argument;
    uint32_t length;  /* of a transfer: room for IN data, bytes of OUT data */
    uint32_t payload; /* bytes that follow */
    uint8_t type;     /* USBDEVFS_URB_TYPE_... */
    uint8_t endpoint;
    uint8_t setup[8];
    uint8_t unused[2];
};

struct usbfs_reply {
    int32_t error; /* 0 or an errno value */
    uint32_t value;
};

struct usbfs_completion {
    uint64_t urb;
    int32_t status;   /* as in the URB: 0 or a negative errno value */
    uint32_t length;  /* actual length */
    uint32_t payload; /* bytes that follow: the data of IN */
    uint32_t unused;
};
