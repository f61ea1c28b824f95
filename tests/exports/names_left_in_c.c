/* An application may call its own things by names that are building blocks of the library: compiling is the test. */
#include "vxpadcom/vxpadcom.h"

enum Mode { Open, Close };
enum Access { Read, Write };
struct Malloc {
    enum Mode mode;
    enum Access access;
};

int application_in_c(void);
int application_in_c(void) {
    const struct Malloc Calloc = {Open, Write};
    return IsInitialized() && Calloc.mode == Open && Calloc.access == Write;
}
