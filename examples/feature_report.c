/*
 * Asks a pad for its status with a pair of feature reports, then waits for one input report.
 * Usage: feature_report [PAD], pads being numbered from 1.
 */
#include "print_failure.h"

#include <stdlib.h>
#include <threads.h>
#include <time.h>

enum {
    STATUS_REQUEST = 0x27,
    MAX_REPORT = 65, /* the report-id byte and 64 bytes */
    POLLS = 500,     /* 10 ms apart */
};

static void print_report(const char* label, const unsigned char* report, unsigned int size) {
    printf("%s:", label);
    for (unsigned int i = 1; i < size; ++i) { /* byte 0 is the report id */
        printf(" %02x", report[i]);
    }
    putchar('\n');
}

/* Returns 0, or the handle of the record that tells what failed. */
static int ask_status(unsigned int pad) {
    unsigned char report[MAX_REPORT] = {0};
    unsigned int size = 0, moved = 0;
    int failed = GetFeatureReportSize(pad, 0, &size);

    if (failed != 0) {
        return failed;
    }
    if (size > MAX_REPORT) {
        size = MAX_REPORT;
    }
    report[1] = STATUS_REQUEST;
    if ((failed = SetFeature(pad, 0, report, size, &moved)) != 0) {
        return failed;
    }
    if ((failed = GetFeature(pad, 0, report, size, &moved)) != 0) {
        return failed;
    }
    print_report("status", report, moved);
    return 0;
}

static int wait_for_input(unsigned int pad) {
    const struct timespec pause = {.tv_sec = 0, .tv_nsec = 10 * 1000 * 1000};
    unsigned char report[MAX_REPORT];

    for (int poll = 0; poll < POLLS; ++poll) {
        unsigned int moved = 0; /* stays 0 where no report is waiting */
        const int failed = ReadFile(pad, 0, report, sizeof report, &moved);

        if (failed != 0) {
            return failed;
        }
        if (moved != 0) {
            print_report("input", report, moved);
            return 0;
        }
        thrd_sleep(&pause, NULL);
    }
    puts("no input report came");
    return 0;
}

int main(int argc, char** argv) {
    const unsigned int pad = argc > 1 ? (unsigned int)strtoul(argv[1], NULL, 10) : 1;

    Initialize();
    int failed = ask_status(pad);
    if (failed == 0) {
        failed = wait_for_input(pad);
    }
    if (failed != 0) {
        print_failure(failed);
    }
    Deinitialize();
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
