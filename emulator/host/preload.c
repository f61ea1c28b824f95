/* Loaded into the program under test: forwards open, ioctl and close of /dev/bus/usb/BBB/DDD to the emulator.
 *
 * All system calls are made directly. The program's C library calls may be intercepted by a sanitizer or by the
 * library that stands in for /sys, and neither must see the emulator's own descriptors. */
#define _GNU_SOURCE
#include "host/usbfs_protocol.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

enum { file_limit = 4096 };

struct open_file {
    pthread_mutex_t request_lock; /* requests and replies alternate */
    pthread_mutex_t reap_lock;    /* a completion is taken whole */
    pid_t owner;                  /* a child after fork() has copies that are not its own */
    int requests;
    int completions;
    int node;         /* the file that stands for the device: /proc shows by it who has the pad open */
    atomic_bool gone; /* every completion has been reaped after an unplug */
};

static _Atomic(struct open_file*) files[file_limit]; /* by the application's descriptor */

/* ---- system calls ---- */

static void close_descriptor(int fd) {
    if (fd >= 0) {
        syscall(SYS_close, fd);
    }
}

static void make_path(struct sockaddr_un* address, const char* path) {
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    strncpy(address->sun_path, path, sizeof address->sun_path - 1);
}

static bool send_all(int fd, const void* head, size_t head_size, const void* data, size_t data_size, const int* fds,
                     size_t fd_count) {
    struct iovec parts[2] = {{(void*)head, head_size}, {(void*)data, data_size}};
    struct msghdr message = {.msg_iov = parts, .msg_iovlen = 2};
    union {
        struct cmsghdr align;
        char bytes[CMSG_SPACE(2 * sizeof(int))];
    } control;
    if (fd_count > 0) {
        memset(&control, 0, sizeof control);
        message.msg_control = control.bytes;
        message.msg_controllen = CMSG_SPACE(fd_count * sizeof(int));
        struct cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(fd_count * sizeof(int));
        memcpy(CMSG_DATA(header), fds, fd_count * sizeof(int));
    }
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const long sent = syscall(SYS_sendmsg, fd, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            return false;
        }
        message.msg_control = NULL;
        message.msg_controllen = 0;
        size_t left = (size_t)sent;
        for (int i = 0; i < 2; ++i) {
            const size_t part = left < parts[i].iov_len ? left : parts[i].iov_len;
            parts[i].iov_base = (char*)parts[i].iov_base + part;
            parts[i].iov_len -= part;
            left -= part;
        }
    }
    return true;
}

static long receive(int fd, void* data, size_t size, int flags) {
    long received;
    do {
        received = syscall(SYS_recvfrom, fd, data, size, flags, NULL, NULL);
    } while (received < 0 && errno == EINTR);
    return received;
}

static bool receive_all(int fd, void* data, size_t size) {
    while (size > 0) {
        const long received = receive(fd, data, size, 0);
        if (received <= 0) {
            return false;
        }
        data = (char*)data + received;
        size -= (size_t)received;
    }
    return true;
}

/* Waits until a socket can be read: 1; 0 after `milliseconds`, -1 when a signal came. Negative: for ever. */
static int wait_readable(int fd, int milliseconds) {
    struct pollfd entry = {fd, POLLIN, 0};
    struct timespec timeout = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return (int)syscall(SYS_ppoll, &entry, 1, milliseconds < 0 ? NULL : &timeout, NULL, 0);
}

/* ---- talking to the emulator ---- */

static int result_of(int error, int result) {
    if (error == 0) {
        return result;
    }
    errno = error;
    return -1;
}

/* 0, or -1 with errno; an emulator that has gone took its pads with it. */
static int call(struct open_file* file, const struct usbfs_request* request, const void* payload, const int* fds,
                size_t fd_count, uint32_t* value) {
    struct usbfs_reply reply = {ENODEV, 0};
    pthread_mutex_lock(&file->request_lock);
    if (!send_all(file->requests, request, sizeof *request, payload, request->payload, fds, fd_count) ||
        !receive_all(file->requests, &reply, sizeof reply)) {
        reply.error = ENODEV;
    }
    pthread_mutex_unlock(&file->request_lock);
    if (value != NULL) {
        *value = reply.value;
    }
    return result_of(reply.error, 0);
}

static int simple_call(struct open_file* file, uint32_t operation, uint32_t interface, uint32_t argument) {
    const struct usbfs_request request = {.operation = operation, .interface = interface, .argument = argument};
    return call(file, &request, NULL, NULL, 0, NULL);
}

/* A pipe of one page, which counts as full with one byte in it. */
static bool make_pipe(int ends[2], int flags) {
    if (syscall(SYS_pipe2, ends, O_NONBLOCK | (flags & O_CLOEXEC)) < 0) {
        return false;
    }
    return syscall(SYS_fcntl, ends[1], F_SETPIPE_SZ, usbfs_pipe_size) >= 0 && syscall(SYS_write, ends[1], "", 1) == 1;
}

static struct open_file* connect_file(void) {
    const char* path = getenv(VXPAD_ENV_USBFS);
    struct open_file* file = calloc(1, sizeof *file);
    if (path == NULL || file == NULL) {
        free(file);
        errno = ENOENT;
        return NULL;
    }
    pthread_mutex_init(&file->request_lock, NULL);
    pthread_mutex_init(&file->reap_lock, NULL);
    file->owner = getpid();
    file->completions = -1;
    file->node = -1;
    file->requests = (int)syscall(SYS_socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address;
    make_path(&address, path);
    if (file->requests >= 0 && syscall(SYS_connect, file->requests, &address, sizeof address) == 0) {
        return file;
    }
    close_descriptor(file->requests);
    free(file);
    errno = ENOENT;
    return NULL;
}

static void discard_file(struct open_file* file) {
    close_descriptor(file->requests);
    close_descriptor(file->completions);
    close_descriptor(file->node);
    pthread_mutex_destroy(&file->request_lock);
    pthread_mutex_destroy(&file->reap_lock);
    free(file);
}

/* Its rights count, as those of the real file do. One that has gone is told of by the emulator. */
static bool open_node(struct open_file* file, unsigned int bus, unsigned int address, int flags) {
    const char* root = getenv(VXPAD_ENV_TESTBED);
    char path[sizeof((struct sockaddr_un*)NULL)->sun_path + sizeof "/dev/bus/usb/BBB/DDD"];
    if (root == NULL ||
        snprintf(path, sizeof path, "%s/dev/bus/usb/%03u/%03u", root, bus, address) >= (int)sizeof path) {
        return true;
    }
    file->node = (int)syscall(SYS_openat, AT_FDCWD, path, (flags & O_ACCMODE) | O_CLOEXEC);
    return file->node >= 0 || errno != EACCES;
}

static int open_device(unsigned int bus, unsigned int address, int flags) {
    struct open_file* file = connect_file();
    if (file == NULL) {
        return -1;
    }
    int ends[2] = {-1, -1};
    int sockets[2] = {-1, -1};
    const struct usbfs_request request = {.operation = usbfs_open, .interface = bus, .argument = address};
    int result = -1;
    if (!open_node(file, bus, address, flags)) {
        errno = EACCES;
    } else if (make_pipe(ends, flags) && ends[1] < file_limit &&
               syscall(SYS_socketpair, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0) {
        const int passed[2] = {sockets[1], ends[0]};
        result = call(file, &request, NULL, passed, 2, NULL);
    } else {
        errno = EMFILE;
    }
    const int error = errno;
    close_descriptor(sockets[1]); /* the emulator has these two now */
    close_descriptor(ends[0]);
    file->completions = sockets[0];
    if (result < 0) {
        close_descriptor(ends[1]);
        discard_file(file);
        errno = error;
        return -1;
    }
    atomic_store(&files[ends[1]], file);
    return ends[1];
}

static int close_device(int fd) {
    struct open_file* file = atomic_exchange(&files[fd], NULL);
    if (file != NULL && file->owner == getpid()) {
        simple_call(file, usbfs_close, 0, 0);
    }
    if (file != NULL) {
        discard_file(file);
    }
    return (int)syscall(SYS_close, fd);
}

/* ---- URBs ---- */

static int submit(struct open_file* file, struct usbdevfs_urb* urb) {
    struct usbfs_request request = {
        .urb = (uintptr_t)urb, .operation = usbfs_submit, .type = urb->type, .endpoint = urb->endpoint};
    const char* data = urb->buffer;
    int length = urb->buffer_length;
    bool in = (urb->endpoint & 0x80) != 0;
    if (urb->type == USBDEVFS_URB_TYPE_CONTROL) {
        if (length < (int)sizeof request.setup) {
            errno = EINVAL;
            return -1;
        }
        memcpy(request.setup, data, sizeof request.setup);
        data += sizeof request.setup;
        length -= (int)sizeof request.setup;
        in = (request.setup[0] & 0x80) != 0;
    }
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    request.length = (uint32_t)length;
    request.payload = in ? 0 : (uint32_t)length;
    urb->status = 0;
    urb->actual_length = 0;
    return call(file, &request, data, NULL, 0, NULL);
}

/* Takes one completion that has arrived: 0, or EAGAIN or ENODEV. */
static int take_completion(struct open_file* file, void** reaped) {
    struct usbfs_completion completion;
    const long received = receive(file->completions, &completion, sizeof completion, MSG_DONTWAIT);
    if (received < 0 && errno == EAGAIN) {
        return EAGAIN;
    }
    if (received <= 0 ||
        !receive_all(file->completions, (char*)&completion + received, sizeof completion - (size_t)received)) {
        atomic_store(&file->gone, true);
        return ENODEV;
    }
    struct usbdevfs_urb* urb = (struct usbdevfs_urb*)(uintptr_t)completion.urb;
    char* data = urb->buffer;
    if (urb->type == USBDEVFS_URB_TYPE_CONTROL) {
        data += sizeof(((struct usbfs_request*)NULL)->setup);
    }
    if (!receive_all(file->completions, data, completion.payload)) {
        completion.status = -ENODEV;
    }
    urb->status = completion.status;
    urb->actual_length = (int)completion.length;
    *reaped = urb;
    return 0;
}

/* The emulator closes its end of the pipe when the pad is unplugged, which must not end the program with a SIGPIPE. */
static void fill_pipe(int fd) {
    sigset_t broken_pipe, before, pending;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe, &before);
    sigpending(&pending);
    const bool of_the_program = sigismember(&pending, SIGPIPE) == 1;
    if (syscall(SYS_write, fd, "", 1) < 0 && errno == EPIPE && !of_the_program) {
        sigtimedwait(&broken_pipe, NULL, &(const struct timespec){0, 0});
    }
    pthread_sigmask(SIG_SETMASK, &before, NULL);
}

static int reap_now(int fd, struct open_file* file, void** reaped) {
    pthread_mutex_lock(&file->reap_lock);
    int error = take_completion(file, reaped);
    if (error == EAGAIN) {
        /* Nothing is there: fill the pipe, so that waiting works again; then look once more, for the emulator may
         * have sent a completion and emptied the pipe in between. Only here, for one who waits without having
         * reaped everything loses nothing: he is woken once in vain. */
        fill_pipe(fd);
        error = take_completion(file, reaped);
        /* libusb does not always go on until nothing is left; what came behind this one must wake it again. */
        if (error == 0 && wait_readable(file->completions, 0) == 1) {
            simple_call(file, usbfs_wake, 0, 0);
        }
    }
    pthread_mutex_unlock(&file->reap_lock);
    return result_of(error, 0);
}

static int reap(int fd, struct open_file* file, void** reaped) {
    while (reap_now(fd, file, reaped) < 0) {
        if (errno != EAGAIN || wait_readable(file->completions, -1) < 0) {
            return -1;
        }
    }
    return 0;
}

/* A transfer that the caller waits for: its completion arrives on a socket of its own. */
static int transfer(struct open_file* file, struct usbfs_request* request, void* data, bool in, unsigned int timeout) {
    int sockets[2];
    if (syscall(SYS_socketpair, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) < 0) {
        return -1;
    }
    request->operation = usbfs_transfer;
    request->urb = (uintptr_t)request; /* unlike any other that is under way */
    request->payload = in ? 0 : request->length;
    int error = 0;
    if (call(file, request, data, &sockets[1], 1, NULL) < 0) {
        error = errno;
    }
    close_descriptor(sockets[1]);
    struct usbfs_completion completion = {0};
    if (error == 0) {
        bool timed_out = false;
        while (wait_readable(sockets[0], timeout == 0 || timed_out ? -1 : (int)timeout) == 0) {
            const struct usbfs_request discard = {.operation = usbfs_discard, .urb = request->urb};
            call(file, &discard, NULL, NULL, 0, NULL);
            timed_out = true;
        }
        if (!receive_all(sockets[0], &completion, sizeof completion) ||
            !receive_all(sockets[0], data, completion.payload)) {
            error = ENODEV;
        } else if (completion.status < 0) {
            error = completion.status == -ENOENT && timed_out ? ETIMEDOUT : -completion.status;
        }
    }
    close_descriptor(sockets[0]);
    return result_of(error, (int)completion.length);
}

static int control_transfer(struct open_file* file, const struct usbdevfs_ctrltransfer* control) {
    struct usbfs_request request = {
        .type = USBDEVFS_URB_TYPE_CONTROL, .endpoint = control->bRequestType & 0x80, .length = control->wLength};
    memcpy(request.setup, control, sizeof request.setup); /* the first fields are the packet, in the bus's order */
    return transfer(file, &request, control->data, (control->bRequestType & 0x80) != 0, control->timeout);
}

static int bulk_transfer(struct open_file* file, const struct usbdevfs_bulktransfer* bulk) {
    struct usbfs_request request = {.type = USBDEVFS_URB_TYPE_BULK, .endpoint = (uint8_t)bulk->ep, .length = bulk->len};
    return transfer(file, &request, bulk->data, (bulk->ep & 0x80) != 0, bulk->timeout);
}

/* ---- ioctl ---- */

static const char* const driver_names[] = {"", "usbfs", "usbhid"};

static int get_driver(struct open_file* file, struct usbdevfs_getdriver* driver) {
    const struct usbfs_request request = {.operation = usbfs_get_driver, .interface = driver->interface};
    uint32_t value = usbfs_driver_none;
    if (call(file, &request, NULL, NULL, 0, &value) < 0) {
        return -1;
    }
    if (value == usbfs_driver_none || value >= usbfs_driver_other) {
        errno = ENODATA;
        return -1;
    }
    strcpy(driver->driver, driver_names[value]);
    return 0;
}

static int disconnect_claim(struct open_file* file, const struct usbdevfs_disconnect_claim* claim) {
    uint32_t driver = usbfs_driver_other;
    for (uint32_t i = usbfs_driver_usbfs; i < usbfs_driver_other; ++i) {
        if (strncmp(claim->driver, driver_names[i], sizeof claim->driver) == 0) {
            driver = i;
        }
    }
    const struct usbfs_request request = {
        .operation = usbfs_disconnect_claim, .interface = claim->interface, .argument = driver, .length = claim->flags};
    return call(file, &request, NULL, NULL, 0, NULL);
}

static int interface_call(struct open_file* file, const struct usbdevfs_ioctl* command) {
    const uint32_t interface = (uint32_t)command->ifno;
    if ((unsigned int)command->ioctl_code == USBDEVFS_DISCONNECT) {
        return simple_call(file, usbfs_disconnect, interface, 0);
    }
    if ((unsigned int)command->ioctl_code == USBDEVFS_CONNECT) {
        return simple_call(file, usbfs_connect, interface, 0) < 0 ? -1 : 1; /* so many drivers were found */
    }
    errno = ENOTTY;
    return -1;
}

static int device_ioctl(int fd, struct open_file* file, unsigned long request, void* argument) {
    switch (request) {
    case USBDEVFS_REAPURB:
        return reap(fd, file, argument);
    case USBDEVFS_REAPURBNDELAY:
        return reap_now(fd, file, argument);
    default:
        break;
    }
    if (atomic_load(&file->gone)) {
        errno = ENODEV;
        return -1;
    }
    switch (request) {
    case USBDEVFS_SUBMITURB:
        return submit(file, argument);
    case USBDEVFS_DISCARDURB: {
        const struct usbfs_request discard = {.operation = usbfs_discard, .urb = (uintptr_t)argument};
        return call(file, &discard, NULL, NULL, 0, NULL);
    }
    case USBDEVFS_CONTROL:
        return control_transfer(file, argument);
    case USBDEVFS_BULK:
        return bulk_transfer(file, argument);
    case USBDEVFS_GET_CAPABILITIES:
        *(uint32_t*)argument = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                               USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        return 0;
    case USBDEVFS_GETDRIVER:
        return get_driver(file, argument);
    case USBDEVFS_IOCTL:
        return interface_call(file, argument);
    case USBDEVFS_DISCONNECT_CLAIM:
        return disconnect_claim(file, argument);
    case USBDEVFS_CLAIMINTERFACE:
        return simple_call(file, usbfs_claim, *(unsigned int*)argument, 0);
    case USBDEVFS_RELEASEINTERFACE:
        return simple_call(file, usbfs_release, *(unsigned int*)argument, 0);
    case USBDEVFS_SETINTERFACE: {
        const struct usbdevfs_setinterface* setting = argument;
        return simple_call(file, usbfs_set_interface, setting->interface, setting->altsetting);
    }
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
        return simple_call(file, usbfs_clear_halt, 0, *(unsigned int*)argument);
    case USBDEVFS_RESET:
        return simple_call(file, usbfs_reset, 0, 0);
    default:
        errno = ENOTTY;
        return -1;
    }
}

/* ---- what the program calls ---- */

/* The next library's function of this name: the one that stands in for /sys, then the C library. */
#define NEXT(type, name)                                                                                               \
    static _Atomic(type) next;                                                                                         \
    if (atomic_load(&next) == NULL)                                                                                    \
        atomic_store(&next, (type)dlsym(RTLD_NEXT, name));                                                             \
    const type function = atomic_load(&next)

/* Opens of anything under /dev end here, for the library that stands in for /sys loses a table entry with each of
 * them that fails. True when the path was one of these; the result is in *fd. */
static bool open_under_dev(const char* path, int flags, mode_t mode, int* fd) {
    static const char dev[] = "/dev/";
    if (path == NULL || strncmp(path, dev, sizeof dev - 1) != 0) {
        return false;
    }
    unsigned int bus;
    unsigned int address;
    int end = 0;
    if (getenv(VXPAD_ENV_USBFS) != NULL && sscanf(path, "/dev/bus/usb/%3u/%3u%n", &bus, &address, &end) == 2 &&
        path[end] == '\0') {
        *fd = open_device(bus, address, flags);
    } else {
        *fd = (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
    }
    return true;
}

typedef int (*open_function)(const char*, int, ...);
typedef int (*open_2_function)(const char*, int);
typedef int (*close_function)(int);
typedef int (*ioctl_function)(int, unsigned long, ...);
typedef int (*bind_function)(int, const struct sockaddr*, socklen_t);

#define OPEN(name)                                                                                                     \
    EXPORT int name(const char* path, int flags, ...);                                                                 \
    int name(const char* path, int flags, ...) {                                                                       \
        mode_t mode = 0;                                                                                               \
        if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {                                              \
            va_list arguments;                                                                                         \
            va_start(arguments, flags);                                                                                \
            mode = va_arg(arguments, mode_t);                                                                          \
            va_end(arguments);                                                                                         \
        }                                                                                                              \
        int fd;                                                                                                        \
        if (open_under_dev(path, flags, mode, &fd))                                                                    \
            return fd;                                                                                                 \
        NEXT(open_function, #name);                                                                                    \
        return function(path, flags, mode);                                                                            \
    }

#define OPEN_2(name)                                                                                                   \
    EXPORT int name(const char* path, int flags);                                                                      \
    int name(const char* path, int flags) {                                                                            \
        int fd;                                                                                                        \
        if (open_under_dev(path, flags, 0, &fd))                                                                       \
            return fd;                                                                                                 \
        NEXT(open_2_function, #name);                                                                                  \
        return function(path, flags);                                                                                  \
    }

OPEN(open)
OPEN(open64)
OPEN_2(__open_2)
OPEN_2(__open64_2)

static struct open_file* file_of(int fd) {
    return fd >= 0 && fd < file_limit ? atomic_load_explicit(&files[fd], memory_order_acquire) : NULL;
}

EXPORT int close(int fd) {
    if (file_of(fd) != NULL) {
        return close_device(fd);
    }
    NEXT(close_function, "close");
    return function(fd);
}

EXPORT int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    struct open_file* file = file_of(fd);
    if (file != NULL) {
        return device_ioctl(fd, file, request, argument);
    }
    NEXT(ioctl_function, "ioctl");
    return function(fd, request, argument);
}

/* A udev monitor's netlink socket has become a Unix socket. Its address would be made of the descriptor's number
 * alone, which two processes may share: take an address that is this process's own. */
EXPORT int bind_socket(int fd, const struct sockaddr* address, socklen_t length) __asm__("bind");
int bind_socket(int fd, const struct sockaddr* address, socklen_t length) {
    const char* root = getenv(VXPAD_ENV_TESTBED);
    int domain = 0;
    socklen_t size = sizeof domain;
    if (root != NULL && address != NULL && address->sa_family == AF_NETLINK &&
        syscall(SYS_getsockopt, fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX) {
        struct sockaddr_un path;
        memset(&path, 0, sizeof path);
        path.sun_family = AF_UNIX;
        snprintf(path.sun_path, sizeof path.sun_path, "%s/monitor%d.%d", root, (int)getpid(), fd);
        syscall(SYS_unlink, path.sun_path);
        return (int)syscall(SYS_bind, fd, &path, sizeof path);
    }
    NEXT(bind_function, "bind");
    return function(fd, address, length);
}
