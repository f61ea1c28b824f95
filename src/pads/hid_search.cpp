#include "pads/hid_search.hpp"

#include "pads/registration.hpp"
#include "pads/registry.hpp"
#include "support/id_lines.hpp"
#include "support/owners.hpp"
#include "support/text.hpp"
#include "support/wchar_tools.hpp"
#include "transport/known_ids.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/component_link.h"
#include "vxpadcom/internals/dev_errors.h"
#include "vxpadcom/internals/hid.h"
#include "vxpadcom/internals/hid_search.h"
#include "vxpadcom/internals/legacy_commands.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"
#include "vxpadcom/internals/ssp_engine.h"
#include "vxpadcom/internals/usb_id_tables.h"
#include "vxpadcom/vxpadcom.h"

#include <atomic>
#include <hidapi/hidapi.h>

namespace {

// No owner that closes it as the process ends: the application's callback may be gone by then, and in a forked child
// nobody would answer.
std::atomic<hid_device*> left_open{nullptr};

struct EnumerationDeleter {
    void operator()(hid_device_info* list) const { hid_free_enumeration(list); }
};
using Enumeration = std::unique_ptr<hid_device_info, EnumerationDeleter>;

using StringQuery = int (*)(hid_device*, wchar_t*, std::size_t);

// A string that cannot be read is empty.
wchar_tools::Text read_string(const trace::Location& where, hid_device* hid, StringQuery query) {
    wchar_t text[VXPAD_MAX_STRING_LENGTH] = {};
    if (query(hid, text, VXPAD_MAX_STRING_LENGTH) == -1) {
        trace::error(where, "%s", hidapi_str_error(hid));
        text[0] = L'\0';
    }
    text[VXPAD_MAX_STRING_LENGTH - 1] = L'\0';
    return wchar_tools::narrow(text);
}

class HidSearch {
  public:
    HidSearch(const trace::Location& where, vx_registry& pads) : where_{where}, pads_{pads} {}

    int result() const { return result_; }

    // False ends the search.
    bool look_for(const vx_usb_id& id, const id_lines::Id* found_by) {
        const Enumeration list{
            hid_enumerate(static_cast<unsigned short>(id.vendor_id), static_cast<unsigned short>(id.product_id))};
        for (const hid_device_info* interface = list.get(); interface != nullptr; interface = interface->next) {
            if (!visit(id, found_by, *interface)) {
                return false;
            }
        }
        return true;
    }

  private:
    // False ends the search.
    bool visit(const vx_usb_id& id, const id_lines::Id* found_by, const hid_device_info& interface) {
        vx_device device{};
        text::print(device.hid_path, "%s", interface.path);
        device.hid = hid_open_path(interface.path);
        if (device.hid == nullptr) {
            trace::error(where_, "failed during opening HID device %s", interface.path);
            trace::error(where_, "hid_open_path() failed and return NULL");
            trace::error(where_, "%s", hidapi_str_error(nullptr));
            return false;
        }
        describe(device, id, interface);
        if (!read_version(device)) {
            left_open.store(device.hid);
            return false;
        }
        text::print(device.device_uid, "%x%x%s", device.vendor_id, device.product_id, device.serial_number);
        if (!registration::derive_pad_type(where_, device, found_by)) {
            // Never cleared on purpose: behind an unknown device nothing more of this search is registered.
            skip_ = true;
        }
        // Reading the version may have replaced the handle that was opened above.
        hid_device* hid = device.hid;
        if (!skip_) {
            device.hid = nullptr;
            record::create_lock(device);
            device.send_ssp_message = __send_ssp_message;
            device.receive_ssp_message = __receive_ssp_message;
            take_over(device);
        }
        hid_close_dev(hid);
        return true;
    }

    void describe(vx_device& device, const vx_usb_id& id, const hid_device_info& interface) {
        text::print(device.manufacturer, "%s", read_string(where_, device.hid, hid_get_manufacturer_string).text);
        text::print(device.product, "%s ", read_string(where_, device.hid, hid_get_product_string).text);
        text::print(device.serial_number, "%s", read_string(where_, device.hid, hid_get_serial_number_string).text);
        device.interface_number = static_cast<std::uint32_t>(interface.interface_number);
        device.vendor_id = id.vendor_id;
        device.product_id = id.product_id;
    }

    bool read_version(vx_device& device) {
        dev_fw_version version{};
        if (const int code = core_read_version(&device, &version); code != 0) {
            trace::error(where_, "Function core_read_version() fail with code: %d", code);
            return false;
        }
        VX_INFO_AT(where_, "FW info: major->%d", version.major);
        VX_INFO_AT(where_, "FW info: minor->%d", version.minor);
        VX_INFO_AT(where_, "FW info: patch->%d", version.patch);
        VX_INFO_AT(where_, "FW info: revision->%d", version.revision);
        VX_INFO_AT(where_, "FW info: manufacturer->%s", version.manufacturer);
        device.was_removed = 0;
        return true;
    }

    void take_over(vx_device& device) {
        if (registration::take_over(where_, pads_, device, registration::Transport::hid) ==
            registration::SearchResult::is_count_of_devices) {
            result_ = pads_.count_of_devices;
        }
    }

    const trace::Location& where_;
    vx_registry& pads_;
    int result_ = -1;
    bool skip_ = false;
};

} // namespace

void hid_search::close_left_open() {
    if (hid_device* hid = left_open.exchange(nullptr)) {
        hid_close_dev(hid);
    }
}

int search_hid_devices(vx_registry* pads) {
    trace::Scope scope{VX_HERE};
    if (pads == nullptr) {
        return scope.exit(-1);
    }
    hid_search::close_left_open();

    HidSearch search{scope.where(), *pads};
    for (const id_lines::Id& id : known_ids::added()) {
        if (id.transport != id_lines::Transport::hid) {
            continue;
        }
        VX_INFO("looking for an id of a file: vendor_id -> %x, product_id -> %x", id.vendor_id, id.product_id);
        if (!search.look_for({id.vendor_id, id.product_id}, &id)) {
            return scope.exit(search.result());
        }
    }
    for (int j = 0; hid_device_list[j].vendor_id != 0; ++j) {
        const vx_usb_id& id = hid_device_list[j];
        if (known_ids::find_added(id.vendor_id, id.product_id) != nullptr) {
            continue;
        }
        VX_INFO("looking for hid_device_list[j].vendor_id -> %x, hid_device_list[j].product_id -> %x", id.vendor_id,
                id.product_id);
        if (!search.look_for(id, nullptr)) {
            break;
        }
    }
    return scope.exit(search.result());
}
