// Writes the udev rules that let the user at the seat open the pads of the id header.
#include "../src/transport/usb_id_tables.hpp"
#include "udev_rule.hpp"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string_view>

namespace {

void write_rules(std::ostream& out) {
    out << "# USB signature pads: access for the user at the seat, for nobody else. Generated from the library's ids.\n"
           "ACTION==\"remove\", GOTO=\"vxpadcom_end\"\n"
           "SUBSYSTEM!=\"usb\", GOTO=\"vxpadcom_end\"\n"
           "ENV{DEVTYPE}!=\"usb_device\", GOTO=\"vxpadcom_end\"\n";
    for (const usb_id_tables::Pair& pair : usb_id_tables::hid_pairs) {
        out << udev_rule::for_pad(pair.vendor_id, pair.product_id) << '\n';
    }
    for (const usb_id_tables::Pair& pair : usb_id_tables::vcom_pairs) {
        out << udev_rule::for_pad(pair.vendor_id, pair.product_id) << '\n';
    }
    for (const std::string_view maker : usb_ids::vcom_named_makers) {
        out << udev_rule::for_pad(usb_ids::vcom_named_vendor, usb_ids::vcom_named_product, maker) << '\n';
    }
    out << "LABEL=\"vxpadcom_end\"\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: vxpad-udev-rules FILE\n";
        return EXIT_FAILURE;
    }
    std::ofstream out{argv[1]};
    write_rules(out);
    out.close();
    if (!out) {
        std::cerr << "vxpad-udev-rules: cannot write " << argv[1] << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
