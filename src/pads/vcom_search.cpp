// Finding VCOM pads: vendor interfaces with a bulk IN and a bulk OUT endpoint.
#include VXPADCOM_USB_IDS_FILE

#include "vxpadcom/internals/vcom_search.h"
#include "exchange/left_over.hpp"
#include "pads/registration.hpp"
#include "pads/registry.hpp"
#include "support/id_lines.hpp"
#include "support/owners.hpp"
#include "support/text.hpp"
#include "transport/known_ids.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/component_link.h"
#include "vxpadcom/internals/legacy_commands.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"
#include "vxpadcom/internals/ssp_engine.h"
#include "vxpadcom/internals/ssp_pad_desc.h"
#include "vxpadcom/internals/usb_id_tables.h"
#include "vxpadcom/internals/vcom_bulk.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <libusb-1.0/libusb.h>

namespace {

constexpr std::uint32_t out_packet_size = 64; // whatever the descriptor says

struct DeviceList {
    libusb_device** devices = nullptr;
    ssize_t count = 0;

    DeviceList() : count{libusb_get_device_list(nullptr, &devices)} {}
    DeviceList(const DeviceList&) = delete;
    DeviceList& operator=(const DeviceList&) = delete;
    ~DeviceList() {
        if (count >= 0) {
            libusb_free_device_list(devices, 1);
        }
    }
    std::span<libusb_device*> span() const { return {devices, static_cast<std::size_t>(std::max<ssize_t>(count, 0))}; }
};

struct ConfigDeleter {
    void operator()(libusb_config_descriptor* config) const { libusb_free_config_descriptor(config); }
};
using Config = std::unique_ptr<libusb_config_descriptor, ConfigDeleter>;

void say_name(const trace::Location& where, int result) {
    VX_INFO_AT(where, "%s", libusb_error_name(result));
}

void report(const trace::Location& where, const char* function, int result) {
    trace::error(where, "%s() failed and return %d", function, result);
    say_name(where, result);
}

// A missing string is an empty text.
struct String {
    char text[256] = {};
    String(const trace::Location& where, libusb_device_handle* handle, std::uint8_t index) {
        unsigned char bytes[sizeof text] = {};
        const int length = libusb_get_string_descriptor_ascii(handle, index, bytes, sizeof bytes);
        if (length > 0) {
            std::memcpy(text, bytes, sizeof text - 1);
        } else if (length < 0) {
            say_name(where, length);
        }
    }
};

// The largest bulk IN and OUT endpoint so far; the transfer type plays no part.
void look_at_endpoint(const trace::Location& where, vx_device& record, const libusb_endpoint_descriptor& endpoint) {
    const std::uint32_t packet_size = endpoint.wMaxPacketSize;
    const bool is_in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) != 0;
    const char* name = is_in ? "ENDPOINT_IN" : "ENDPOINT_OUT";
    if (packet_size <= (is_in ? record.ep_in_max_packet_size : record.ep_out_max_packet_size)) {
        VX_INFO_AT(where, "skipped %s...", name);
        return;
    }
    if (is_in) {
        record.ep_in = endpoint.bEndpointAddress;
        record.ep_in_max_packet_size = packet_size;
    } else {
        record.ep_out = endpoint.bEndpointAddress;
        record.ep_out_max_packet_size = out_packet_size;
    }
    VX_INFO_AT(where, "vx_device updated by %s...", name);
}

bool has_both_endpoints(const vx_device& record) {
    return record.ep_in != 0 && record.ep_out != 0;
}

// Looks at every alternate setting until both endpoints are found.
bool find_endpoints_in(const trace::Location& where, vx_device& record, const libusb_config_descriptor& config) {
    for (const auto& interface : std::span{config.interface, config.bNumInterfaces}) {
        int number = 0;
        for (const auto& setting :
             std::span{interface.altsetting, static_cast<std::size_t>(std::max(interface.num_altsetting, 0))}) {
            if (setting.bNumEndpoints <= 1) {
                VX_INFO_AT(where, "Skip interface[%d] > descriptor[%d]", setting.bInterfaceNumber, number);
            } else {
                for (const auto& endpoint : std::span{setting.endpoint, setting.bNumEndpoints}) {
                    look_at_endpoint(where, record, endpoint);
                    if (has_both_endpoints(record)) {
                        return true;
                    }
                }
            }
            ++number;
        }
    }
    return false;
}

bool find_endpoints(const trace::Location& where, vx_device& record, libusb_device* device,
                    std::uint8_t configurations) {
    for (std::uint8_t index = 0; index < configurations; ++index) {
        libusb_config_descriptor* raw = nullptr;
        if (const int result = libusb_get_config_descriptor(device, index, &raw); result != 0) {
            report(where, "libusb_get_config_descriptor", result);
            continue;
        }
        if (const Config config{raw}; find_endpoints_in(where, record, *config)) {
            return true;
        }
    }
    return false;
}

// The last vendor's devices are pads only where their manufacturer string begins with a pad maker's name.
bool expect_pad_maker(const trace::Location& where, const vx_device& record, std::uint32_t vendor_id) {
    VX_INFO_AT(where, "Check manufacturer string for vendor ID: 0x%x", vendor_id);
    const bool accepted =
        std::any_of(usb_ids::vcom_named_makers.begin(), usb_ids::vcom_named_makers.end(), [&](std::string_view maker) {
            return std::strncmp(record.manufacturer, maker.data(), maker.size()) == 0;
        });
    if (!accepted) {
        VX_INFO_AT(where, "It looks like not Quillon's device because manufacturer: %s", record.manufacturer);
    }
    return accepted;
}

// The interface's number stays 0 on purpose: the search never sets it.
void claim(const trace::Location& where, const vx_device& record, libusb_device* device) {
    const int interface = static_cast<int>(record.interface_number);
    const int active = libusb_kernel_driver_active(record.vcom_handle, interface);
    if (active < 0) {
        say_name(where, active);
    } else if (active == 1) {
        VX_INFO_AT(where, "going to libusb_detach_kernel_driver(%p, %d)", static_cast<void*>(record.vcom_handle),
                   interface);
        if (const int result = libusb_detach_kernel_driver(record.vcom_handle, interface); result != 0) {
            say_name(where, result);
        }
    }
    if (const int result = libusb_claim_interface(record.vcom_handle, interface); result != 0) {
        report(where, "libusb_claim_interface", result);
    } else {
        VX_INFO_AT(where, "interface: %d of device: %p was claimed by libusb_claim_interface()", interface,
                   static_cast<void*>(device));
    }
}

void set_debug_level() {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    libusb_set_debug(nullptr, LIBUSB_LOG_LEVEL_ERROR);
#pragma GCC diagnostic pop
}

class VcomSearch {
  public:
    VcomSearch(const trace::Location& where, vx_registry& pads, std::uint32_t named_vendor)
        : where_{where}, pads_{pads}, named_vendor_{named_vendor} {}

    int result() const { return result_; }

    // False ends the search.
    bool look_for(const vx_usb_id& id, const id_lines::Id* found_by) {
        set_debug_level();
        const DeviceList bus;
        if (bus.count < 0) {
            report(where_, "libusb_get_device_list", static_cast<int>(bus.count));
            return true;
        }
        if (bus.count == 0) {
            VX_INFO_AT(where_, "No usb devices");
            result_ = 0;
            return false;
        }
        VX_INFO_AT(where_, "Count of devices on USB bus: %d", static_cast<int>(bus.count));
        for (libusb_device* device : bus.span()) {
            visit(id, found_by, device);
        }
        VX_INFO_AT(where_, "before libusb_free_device_list(list, 1);");
        return true;
    }

  private:
    void visit(const vx_usb_id& id, const id_lines::Id* found_by, libusb_device* device) {
        libusb_device_descriptor descriptor{};
        if (const int result = libusb_get_device_descriptor(device, &descriptor); result != 0) {
            report(where_, "libusb_get_device_descriptor", result);
            return;
        }
        if (descriptor.idVendor != id.vendor_id || descriptor.idProduct != id.product_id) {
            return;
        }
        vx_device record{};
        record.vcom_handle = vcom_open_dev(device);
        if (record.vcom_handle == nullptr) {
            return;
        }
        VX_INFO_AT(where_, "was found device: %x:%x", descriptor.idVendor, descriptor.idProduct);
        const bool is_pad = identify(record, found_by, device, descriptor) && describe(record, found_by, device);
        // Talking to the pad may have replaced the handle that was opened above.
        libusb_device_handle* handle = record.vcom_handle;
        record.vcom_handle = nullptr;
        if (is_pad && !skip_) {
            take_over(record);
        } else {
            record::clear(record);
        }
        VX_INFO_AT(where_, "before libusb_close(vcom_handle);");
        vcom_close_dev(handle);
        VX_INFO_AT(where_, "before free(desc);");
    }

    // What the device says of itself, before a word is spoken with it as a pad. One that a file names needs no maker.
    bool identify(vx_device& record, const id_lines::Id* found_by, libusb_device* device,
                  const libusb_device_descriptor& descriptor) {
        text::print(record.manufacturer, "%s", String(where_, record.vcom_handle, descriptor.iManufacturer).text);
        if (found_by == nullptr && descriptor.idVendor == named_vendor_ &&
            !expect_pad_maker(where_, record, descriptor.idVendor)) {
            return false;
        }
        text::print(record.product, "%s", String(where_, record.vcom_handle, descriptor.iProduct).text);
        // Only told: the serial number that counts is the pad's own.
        const String serial{where_, record.vcom_handle, descriptor.iSerialNumber};
        VX_INFO_AT(where_, "vx_device.serial_number: %s", serial.text);
        return find_endpoints(where_, record, device, descriptor.bNumConfigurations);
    }

    // What the pad says of itself.
    bool describe(vx_device& record, const id_lines::Id* found_by, libusb_device* device) {
        claim(where_, record, device);
        record.vcom_device = libusb_ref_device(device);
        record::create_lock(record);
        record.send_ssp_message = __send_ssp_message;
        record.receive_ssp_message = __receive_ssp_message;
        int result = greet(record);
        // What came in place of an answer may have been left over from a program before.
        if (result != 0 && left_over::absorb(where_, record)) {
            result = greet(record);
        }
        if (result != 0) {
            trace::error(where_, "ssp_common_get_pad_description() failed and return %d", result);
            return false;
        }
        record.was_removed = 0;
        text::print(record.device_uid, "%x%x%s", record.vendor_id, record.product_id, record.serial_number);
        if (!registration::derive_pad_type(where_, record, found_by)) {
            // Never cleared on purpose: behind an unknown device nothing more of this search is registered.
            skip_ = true;
        }
        return true;
    }

    static int greet(vx_device& record) {
        core_set_pad_mode(&record, 1, 0);
        return ssp_common_get_pad_description(&record);
    }

    void take_over(vx_device& record) {
        if (registration::take_over(where_, pads_, record, registration::Transport::vcom) ==
            registration::SearchResult::is_count_of_devices) {
            result_ = pads_.count_of_devices;
        }
    }

    const trace::Location& where_;
    vx_registry& pads_;
    std::uint32_t named_vendor_;
    int result_ = -1;
    bool skip_ = false;
};

std::span<const vx_usb_id> ids() {
    const auto* end = std::find_if(std::begin(vcom_device_list), std::end(vcom_device_list),
                                   [](const vx_usb_id& id) { return id.vendor_id == 0; });
    return {std::begin(vcom_device_list), end};
}

} // namespace

int search_vcom_devices(vx_registry* pads) {
    trace::Scope scope{VX_HERE};
    if (pads == nullptr) {
        return scope.exit(-1);
    }
    const auto list = ids();
    VcomSearch search{VX_HERE, *pads, list.empty() ? 0 : list.back().vendor_id};
    for (const id_lines::Id& id : known_ids::added()) {
        if (id.transport != id_lines::Transport::vcom) {
            continue;
        }
        VX_INFO("looking for an id of a file: vendor_id -> %x, product_id -> %x", id.vendor_id, id.product_id);
        if (!search.look_for({id.vendor_id, id.product_id}, &id)) {
            return scope.exit(search.result());
        }
    }
    for (const vx_usb_id& id : list) {
        if (known_ids::find_added(id.vendor_id, id.product_id) != nullptr) {
            continue;
        }
        VX_INFO("looking for vcom_device_list[j].vendor_id -> %x, vcom_device_list[j].product_id -> %x", id.vendor_id,
                id.product_id);
        if (!search.look_for(id, nullptr)) {
            break;
        }
    }
    return scope.exit(search.result());
}
