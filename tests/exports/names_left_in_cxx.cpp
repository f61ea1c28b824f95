// As names_left_in_c.c, with the header for C++ too.
#include "vxpadcom/vxpadcom.h"
#include "vxpadcom/vxpadcom.hpp"

enum Mode { Open, Close };
enum Access { Read, Write };
struct Malloc {
    enum Mode mode;
    enum Access access;
};

int application_in_cxx();
int application_in_cxx() {
    const struct Malloc Calloc = {Open, Write};
    return IsInitialized() && Calloc.mode == Open && Calloc.access == Write;
}
