// State of a buffered upload that other modules of the process may look at.
#include "vxpadcom/vxpadcom.h"

pthread_mutex_t interface_routine_count_lock = PTHREAD_MUTEX_INITIALIZER;
int interface_routine_count = 0;
unsigned char interface_routine_terminate = 0;
