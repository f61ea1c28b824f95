/* Lists the pads that are plugged in: number, name and serial number. */
#include <stdio.h>
#include <vxpadcom/vxpadcom.h>

static void print(const char16_t* text) {
    for (; *text != 0; ++text) {
        putchar(*text >= 0x20 && *text < 0x7f ? (int)*text : '?');
    }
}

int main(void) {
    char16_t text[VXPAD_MAX_STRING_LENGTH];
    unsigned int pad = 0, length = 0;

    Initialize();
    for (EnumerateDevicesStart(&pad); pad != 0; EnumerateDevicesNext(&pad)) {
        printf("%u: ", pad);
        if (GetProductName(pad, 0, text, VXPAD_MAX_STRING_LENGTH, &length) == 0) {
            print(text);
        }
        if (GetSerialNumber(pad, text, VXPAD_MAX_STRING_LENGTH, &length) == 0) {
            print(text);
        }
        putchar('\n');
    }
    return Deinitialize();
}
