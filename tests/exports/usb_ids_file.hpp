#pragma once

#include VXPADCOM_USB_IDS_FILE
