// Which version of the library this is.
#include "support/trace.hpp"
#include "vxpadcom/vxpadcom.h"

const char* vxpadcom_version() {
    const trace::Entry scope{VX_HERE};
    return VXPADCOM_VERSION_STRING;
}
