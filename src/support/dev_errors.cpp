// Texts of the status bytes that pads report and of hidapi's errors.

#include "vxpadcom/internals/dev_errors.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <hidapi/hidapi.h>

namespace {

constexpr std::array status_texts{
    "device: success",
    "device: write outside RAM",
    "device: read outside RAM",
    "device: wrong sector",
    "device: flash failure",
    "device: function not implemented",
    "device: wrong HASH",
    "device: in progress",
    "device: invalid sector",
    "device: sector read protected",
    "device: sector write protected",
    "device: sector erase protected",
    "device: write outside sector",
    "device: read outside sector",
    "device: admin key set",
    "device: admin key not set",
    "device: admin key already set",
    "device: wrong admin key",
    "device: pad is locked",
    "device: pre doc HASH not set",
    "device: final doc HASH not set",
    "device: AES context not set",
    "device: there is no sign BMP",
    "device: not in signature mode",
    "device: RSA encryption failed",
    "device: RSA check public key failed",
    "device: pad mode is already set",
    "device: switch mode not allowed",
    "device: invalid address",
    "device: file already open",
    "device: file open failed",
    "device: file not open",
    "device: file close failed",
    "device: delete failed",
    "device: file read failed",
    "device: no directory entry",
    "device: different length written",
    "device: out of memory",
    "device: format failed",
    "device: not in configuration mode",
};

} // namespace

const char* vx_dev_strerror(unsigned char status) {
    // Callers may leave rubbish above the low byte, and a compiler may trust them not to: reading it back drops that.
    const volatile unsigned char stored = status;
    const unsigned char code = stored;
    return code < status_texts.size() ? status_texts[code] : "device: unknown error";
}

const char* hidapi_str_error(hid_device* hid) {
    // One text for each thread: failing transfers of several pads may report at the same time.
    thread_local char text[256];
    std::memset(text, 0, sizeof text);
    if (hid != nullptr) {
        const wchar_t* reason = hid_error(hid);
        std::snprintf(text, sizeof text - 1, "hidapi error: %ls", reason == nullptr ? L"" : reason);
    }
    return text;
}
