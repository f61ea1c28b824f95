/* What a failed call left behind: the function, what went wrong, and a code to act on. */
#ifndef PRINT_FAILURE_H
#define PRINT_FAILURE_H

#include <stdio.h>
#include <vxpadcom/vxpadcom.h>

static void print_text(FILE* stream, const char16_t* text) {
    for (; *text != 0; ++text) {
        putc(*text >= 0x20 && *text < 0x7f ? (int)*text : '?', stream);
    }
}

static void print_failure(int handle) {
    char16_t function[VXPAD_MAX_STRING_LENGTH] = {0}, message[VXPAD_MAX_STRING_LENGTH] = {0};
    char16_t code_name[VXPAD_MAX_STRING_LENGTH] = {0};
    unsigned int code = 0, length = 0;

    GetExceptionName((unsigned int)handle, function, VXPAD_MAX_STRING_LENGTH, &length);
    GetExceptionMessage((unsigned int)handle, message, VXPAD_MAX_STRING_LENGTH, &length);
    GetExceptionCode((unsigned int)handle, &code);
    TranslateErrorCode(code, code_name, VXPAD_MAX_STRING_LENGTH, &length);
    print_text(stderr, function);
    fputs(": ", stderr);
    print_text(stderr, message);
    fputs(" (", stderr);
    print_text(stderr, code_name);
    fputs(")\n", stderr);
}

#endif
