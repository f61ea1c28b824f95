// What the tests have in common whose pads speak SSP, each of them on both transports.
#pragma once

#include "pad_test.hpp"
#include "vxpadcom/internals.h"

#include <memory>

namespace pads {

// The emulator's number of a pad is the number of its option, HID pads first.
struct Transport {
    const char* name;
    int pad;

    bool is_vcom() const { return pad == 2; }
};
void PrintTo(const Transport& transport, std::ostream* stream);
inline constexpr Transport hid{"hid", 1};
inline constexpr Transport vcom{"vcom", 2};

Bytes operator+(Bytes first, const Bytes& second);

// A base message; its payload is at least one byte long.
Bytes base_message(unsigned char component, const Bytes& payload);
Bytes legacy_message(const Bytes& report);
Bytes pen_message(const Bytes& record);
Bytes framed(const Bytes& message);                         // as it travels in the stream
Bytes numbered_bytes(std::size_t count, unsigned int seed); // the same ones for a seed, with many markers among them

inline const Bytes components_request{0x00, 0x00, 0x00, 0x10};
inline const Bytes components_reply{0x00, 0x06, 0x00, 0x10, 0x01, 0x04, 0x05, 0x0b, 0x03, 0x01};
inline constexpr unsigned char signpad_id = 1;
inline constexpr unsigned char handler_id = 2;
inline constexpr unsigned char communication_id = 3;

// Messages of the application to and from a pad.
struct MessageAnswer {
    Failure failure;
    Bytes message;

    bool operator==(const MessageAnswer&) const = default;
};
void PrintTo(const MessageAnswer& answer, std::ostream* stream);
Failure send_message(const Bytes& message, unsigned int device = 1);
MessageAnswer receive_message(unsigned int time_out = 1000, unsigned int capacity = 4096, unsigned int device = 1);
MessageAnswer exchange_messages(const Bytes& request, unsigned int time_out = 1000);

void drop_late_replies(); // receives what the pad still has for the application

inline const Failure send_failure = {VXPCEC_INVALID_HANDLE, "SendSspMessage",
                                     "Error of send ssp message for device: 1"};
inline const Failure receive_failure = {VXPCEC_INVALID_HANDLE, "ReceiveSspMessage",
                                        "Error of receive ssp message for device: 1"};

void put_into_stream(int pad, const Bytes& bytes);
std::string ssp_state_of(int pad, const std::string& name); // "" when it has none
bool has_ssp_line(int pad, const std::string& line);

// The one pad that is plugged in, as a record of the test's own. The library is not initialised meanwhile.
class OwnRecord {
  public:
    OwnRecord();
    ~OwnRecord();
    OwnRecord(const OwnRecord&) = delete;
    OwnRecord& operator=(const OwnRecord&) = delete;

    vx_device* get() const { return registry_->devices; }
    vx_device* operator->() const { return get(); }

  private:
    std::unique_ptr<vx_registry> registry_ = std::make_unique<vx_registry>();
};

// One pad in its first state; the library is not initialised.
class SspPad : public testing::TestWithParam<Transport> {
  protected:
    void SetUp() override { plug_only({pad()}); }
    void TearDown() override {
        Deinitialize();
        plug_only({});
    }

    static int pad() { return GetParam().pad; }
    static void fault(const std::string& what) { to_pad("fault", pad(), what); }

    static void initialize();       // and expects the pad
    static void expect_sound_pad(); // as the application sees it
};

inline std::string name_of_transport(const testing::TestParamInfo<Transport>& tested) {
    return tested.param.name;
}

} // namespace pads
