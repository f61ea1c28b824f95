/* sign.c: draws what is signed on the first pad within ten seconds. */
#include <stdio.h>
#include <unistd.h>
#include <vxpadcom/vxpadcom.h>
static void on_report(void* user, unsigned int pad, unsigned int interface, const void* data, unsigned int length) {
    const unsigned char* report = data; /* x, y and pressure are where virtual pads have them */
    (void)user, (void)pad, (void)interface, (void)length;
    if (report[6] != 0 || report[7] != 0) {
        printf("%d,%d ", report[2] | report[3] << 8, report[4] | report[5] << 8);
    } else {
        puts("'/><polyline points='");
    }
}
int main(void) {
    unsigned int unused = 0;
    puts("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 4000 2000' fill='none' stroke='black'");
    printf("stroke-width='20'><polyline points='");
    Initialize();
    const int failed = SetOnDataReceivedHandler(1, 0, on_report, NULL) || SetDataReceivingEnabled(1, 0, 1);
    if (failed || sleep(10) || GetEndPointCount(1, &unused)) { /* such a call finds out whether the pad is there */
        return fprintf(stderr, "pad 1 %s\n", failed ? "cannot be used: 'vxpadctl list' tells why" : "was removed");
    }
    Deinitialize(); /* ends receiving */
    return puts("'/></svg>") < 0;
}
