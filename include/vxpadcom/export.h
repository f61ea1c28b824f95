/* Marks what the library exports; everything else is hidden. */
#ifndef VXPADCOM_EXPORT_H
#define VXPADCOM_EXPORT_H

#define VXPADCOM_API __attribute__((visibility("default")))

#endif
