/*
 * The library's own building blocks, exported for diagnosis and for tests; applications need none of them.
 *
 * They take narrow text, report failure as a negative number (-1 in general, -2 no such component or mode, -4 transport
 * lost, -7 time-out, -20 pad removed) and file no exception record. Their names and structures may change with any
 * version.
 */
#ifndef VXPADCOM_INTERNALS_H
#define VXPADCOM_INTERNALS_H

#include "vxpadcom/internals/biodata.h"
#include "vxpadcom/internals/biodata_switch.h"
#include "vxpadcom/internals/component_ids.h"
#include "vxpadcom/internals/component_link.h"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/internals/dev_errors.h"
#include "vxpadcom/internals/discovery.h"
#include "vxpadcom/internals/err_log.h"
#include "vxpadcom/internals/hid.h"
#include "vxpadcom/internals/hid_search.h"
#include "vxpadcom/internals/legacy_commands.h"
#include "vxpadcom/internals/open_close.h"
#include "vxpadcom/internals/print_helpers.h"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registration.h"
#include "vxpadcom/internals/registry.h"
#include "vxpadcom/internals/removal.h"
#include "vxpadcom/internals/report_io.h"
#include "vxpadcom/internals/signpad_modes.h"
#include "vxpadcom/internals/ssp_base_message.h"
#include "vxpadcom/internals/ssp_configuration.h"
#include "vxpadcom/internals/ssp_engine.h"
#include "vxpadcom/internals/ssp_pad_desc.h"
#include "vxpadcom/internals/ssp_requests.h"
#include "vxpadcom/internals/ssp_transport_token.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/usb_id_tables.h"
#include "vxpadcom/internals/vcom_bulk.h"
#include "vxpadcom/internals/vcom_reports.h"
#include "vxpadcom/internals/vcom_search.h"
#include "vxpadcom/internals/wchar_tools.h"
#include "vxpadcom/internals/wide_text.h"
#include "vxpadcom/internals/wrappthread.h"
#include "vxpadcom/internals/wrapunix.h"

#endif
