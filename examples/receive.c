/*
 * Receives pen data: prints the first bytes of each report as it comes.
 * Usage: receive [PAD [REPORTS]], pads being numbered from 1; ends after so many reports (100) or 10 s without one.
 */
#include "print_failure.h"

#include <stdlib.h>
#include <threads.h>
#include <time.h>

enum {
    INTERFACE = 0,
    SHOWN = 8, /* bytes of a report; what they mean differs from one pad model to another */
    PATIENCE_S = 10,
};

struct reception {
    mtx_t lock;
    cnd_t progress;
    unsigned long received;
    unsigned long wanted;
};

/* Runs on a thread of the library. The report is valid during the call only. */
static void on_data(void* user_specific, unsigned int pad, unsigned int interface, const void* data,
                    unsigned int length) {
    struct reception* reception = user_specific;
    const unsigned char* bytes = data;
    (void)interface;

    mtx_lock(&reception->lock);
    if (reception->received < reception->wanted) {
        printf("pad %u:", pad);
        for (unsigned int i = 0; i < length && i < SHOWN; ++i) {
            printf(" %02x", bytes[i]);
        }
        putchar('\n');
    }
    ++reception->received;
    cnd_signal(&reception->progress);
    mtx_unlock(&reception->lock);
}

/* 1 when enough has come, 0 when the pad has fallen silent. */
static int wait_for_reports(struct reception* reception) {
    int enough;

    mtx_lock(&reception->lock);
    while ((enough = reception->received >= reception->wanted) == 0) {
        const unsigned long before = reception->received;
        struct timespec deadline;

        timespec_get(&deadline, TIME_UTC);
        deadline.tv_sec += PATIENCE_S;
        if (cnd_timedwait(&reception->progress, &reception->lock, &deadline) != thrd_success &&
            reception->received == before) {
            break;
        }
    }
    mtx_unlock(&reception->lock);
    return enough;
}

int main(int argc, char** argv) {
    const unsigned int pad = argc > 1 ? (unsigned int)strtoul(argv[1], NULL, 10) : 1;
    struct reception reception = {.wanted = argc > 2 ? strtoul(argv[2], NULL, 10) : 100};
    int enough = 0;

    mtx_init(&reception.lock, mtx_plain);
    cnd_init(&reception.progress);
    Initialize();
    const int failed = SetOnDataReceivedHandler(pad, INTERFACE, on_data, &reception);
    if (failed != 0) {
        print_failure(failed);
    } else if (SetDataReceivingEnabled(pad, INTERFACE, 1) != 0) {
        fprintf(stderr, "pad %u: receiving cannot be started\n", pad);
    } else {
        enough = wait_for_reports(&reception);
    }
    Deinitialize(); /* stops receiving; no callback runs afterwards */
    printf("%lu reports\n", reception.received);
    cnd_destroy(&reception.progress);
    mtx_destroy(&reception.lock);
    return enough ? EXIT_SUCCESS : EXIT_FAILURE;
}
