// A record of a pad that answers requests to its components.
#pragma once

#include "ssp_test.hpp"

namespace core_test {

class SspPadTest : public CoreTest {
  protected:
    explicit SspPadTest(unsigned int pad_type = 15)
        : model(described_as(pad_type)), record(std::in_place, pad, pad_type) {
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        model.attach(pad);
        forget();
    }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    vx_device* device() { return record->get(); }

    // What the pad answers to messages that begin like this one, in place of its own answer.
    void reply_to(const Bytes& beginning, std::vector<Bytes> replies) {
        model.replace = [=](const Bytes& message) {
            return part(message, 0, beginning.size()) == beginning ? std::optional(replies) : std::nullopt;
        };
    }

    // The payload of a list.
    static Bytes list(unsigned char id, unsigned char count, const Bytes& entries) {
        return Bytes{id, 1, count} + entries;
    }

    // Fills the tables, so that only the request under test is seen.
    void know_tables() {
        ssp_common_components_id_initialize_table(device());
        if (device()->pad_type >= 15) {
            ssp_common_ct_signpad_initialize_modes_id_table(device());
        }
        model.asked.clear();
        forget();
    }

    UsbDevice& pad = bus().plug(vcom_pad());
    SspPad model;
    std::optional<OpenVcomRecord> record;
};

inline const Bytes component_query{0, 0, 0, 0x10};
inline const Bytes mode_query = base(1, {0x12, 0, 0});

// What every request to a component has in common.
struct ComponentRequest {
    const char* name;
    int (*run)(vx_device* device);
    Bytes message;      // as it must be sent
    Bytes good_payload; // with which it succeeds
    int result;
    std::size_t shortest; // beginning of it with which it succeeds
};
inline void PrintTo(const ComponentRequest& request, std::ostream* out) {
    *out << request.name;
}

} // namespace core_test
