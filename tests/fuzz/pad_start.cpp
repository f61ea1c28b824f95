// Pads with any descriptors, strings and answers, through a whole start.
//
// Pads, until the input ends: a byte chooses the transport. A HID pad has a type, an interface number and three strings
// (each counted, in units of two bytes; the last may fail to be read) and the answer to the version command. A VCOM pad
// has ids of the table, three strings, configurations with interfaces, settings and endpoints, which calls fail, and an
// answer to whatever it is asked. The list of pads is the same in each start; what is told of a pad fits the buffer and
// its number, ends in time, and nothing is kept.
#include "messages.hpp"
#include "pads.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <string>

namespace {

using fuzz::bus;
using fuzz::Bytes;

constexpr std::size_t most_pads = 24;

std::wstring wide_text(fuzz::Input& input) {
    const Bytes bytes = input.counted();
    std::wstring text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const wchar_t unit = static_cast<wchar_t>(bytes[i] | bytes[i + 1] << 8);
        text += unit >= 0xFF00 ? static_cast<wchar_t>(unit << 16) : unit; // also what no Unicode has
    }
    return text;
}

// What a pad's functions do in place of the ordinary, by its path or name.
struct Habits {
    Bytes version;
    bool has_version = false;
    bool has_no_serial = false;
    std::map<std::string, int, std::less<>> failing; // calls of libusb
    std::vector<Bytes> answers;
    bool is_healthy = false;
};

constexpr std::array<const char*, 8> calls{"libusb_get_device_descriptor",
                                           "libusb_get_config_descriptor",
                                           "libusb_get_string_descriptor_ascii",
                                           "libusb_open",
                                           "libusb_kernel_driver_active",
                                           "libusb_detach_kernel_driver",
                                           "libusb_claim_interface",
                                           "libusb_bulk_transfer"};
constexpr std::array<int, 5> failures{LIBUSB_ERROR_IO, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_BUSY, 1};

class Bus {
  public:
    explicit Bus(fuzz::Input input) {
        bus().reset();
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        bus().cost_us["hid_get_feature_report"] = 1000;
        for (std::size_t i = 0; i < most_pads && !input.has_ended(); ++i) {
            const std::string name = "1-" + std::to_string(i + 1);
            (input.flag() ? plug_vcom(input, name) : plug_hid(input, name + ":1.0"));
        }
        set_hooks();
    }

  private:
    void plug_hid(fuzz::Input& input, const std::string& path) {
        constexpr std::array<unsigned int, 10> types{1, 8, 9, 10, 11, 12, 13, 15, 16, 17};
        const unsigned char kind = input.byte();
        standins::HidInterface pad =
            standins::pad_of_type(types[kind % types.size()], path, static_cast<signed char>(input.byte()));
        if ((kind & 0x80) != 0) {
            pad.serial_number = L"SN";
            pad.product = L"";
        } else {
            pad.manufacturer = wide_text(input);
            pad.product = wide_text(input);
            pad.serial_number = wide_text(input);
        }
        Habits& habits = habits_[path];
        const unsigned char more = input.byte();
        habits.has_no_serial = (more & 1) != 0;
        habits.has_version = (more & 2) != 0;
        if (habits.has_version) {
            habits.version = input.counted();
        }
        bus().plug(std::move(pad));
    }

    void plug_vcom(fuzz::Input& input, const std::string& name) {
        std::size_t count = 0;
        while (vcom_device_list[count].vendor_id != 0) {
            ++count;
        }
        standins::UsbDevice pad = standins::vcom_pad(name, input.byte() % count);
        const unsigned char more = input.byte();
        Habits& habits = habits_[name];
        if ((more & 1) != 0) {
            pad.manufacturer = (more & 0x40) != 0 ? "Quillon" + input.counted_text() : input.counted_text();
            pad.product = input.counted_text();
            pad.serial_number = input.counted_text();
        }
        if ((more & 2) != 0) {
            pad.configurations = configurations(input);
        }
        if ((more & 4) != 0) {
            const unsigned char which = input.byte();
            habits.failing[calls[which % calls.size()]] = failures[which / calls.size() % failures.size()];
        }
        habits.is_healthy = (more & 8) == 0;
        for (unsigned int i = habits.is_healthy ? 0 : input.below(4); i > 0; --i) {
            habits.answers.push_back(input.counted());
        }
        bus().plug(std::move(pad)).answer = [&habits, last = Bytes(64)](standins::UsbDevice& asked,
                                                                        const Bytes& sent) mutable {
            if (habits.is_healthy) {
                if (const Bytes reply = healthy(fuzz::unframed(sent), last); !reply.empty()) {
                    asked.incoming.push_back(fuzz::framed(reply));
                }
            }
            for (const Bytes& answer : habits.answers) {
                asked.incoming.push_back(answer);
            }
        };
    }

    static std::vector<standins::UsbConfiguration> configurations(fuzz::Input& input) {
        std::vector<standins::UsbConfiguration> all(input.below(3));
        for (auto& configuration : all) {
            configuration.resize(input.below(4));
            for (auto& interface : configuration) {
                interface.resize(input.below(3));
                for (auto& setting : interface) {
                    setting.resize(input.below(4));
                    for (auto& endpoint : setting) {
                        endpoint.address = input.byte();
                        endpoint.max_packet_size = input.byte();
                        endpoint.max_packet_size =
                            static_cast<std::uint16_t>(endpoint.max_packet_size << 8 | input.byte());
                    }
                }
            }
        }
        return all;
    }

    // A pad of type 16.
    static Bytes healthy(const Bytes& request, Bytes& last) {
        if (request == Bytes{0xC0, 0}) {
            return cut_stream::legacy(0x80, last);
        }
        if (request.size() > 1 && (request[0] & 0x80) != 0) {
            last = Bytes(64);
            last[0] = request[1];
            last[11] = 1;
            return {};
        }
        if (request == Bytes{0, 0, 0, 0x10}) {
            return cut_stream::base(0, {0x10, 1, 4, 5, 11, 3, 1});
        }
        const standins::HidInterface ids = standins::pad_of_type(16);
        Bytes description(31);
        description[0] = 0x10;
        description[1] = 1;
        for (unsigned int i = 0; i < 2; ++i) {
            description[2 + i] = static_cast<unsigned char>(ids.vendor_id >> 8 * i);
            description[6 + i] = static_cast<unsigned char>(ids.product_id >> 8 * i);
        }
        description[30] = 3;
        description.insert(description.end(), {'S', 'N', '3'});
        return request.empty() ? Bytes{} : cut_stream::base(request[0], description);
    }

    void set_hooks() {
        bus().hooks.get_feature = [this](standins::HidInterface& pad,
                                         std::span<unsigned char> report) -> std::optional<int> {
            const Habits& habits = habits_[pad.path];
            if (!habits.has_version) {
                return std::nullopt;
            }
            std::fill(report.begin(), report.end(), static_cast<unsigned char>(0));
            std::copy_n(habits.version.begin(), std::min(habits.version.size(), report.size() - 1), report.begin() + 1);
            return static_cast<int>(report.size());
        };
        bus().hooks.get_string = [this](standins::HidInterface& pad, std::string_view which, std::span<wchar_t>) {
            const bool fails = habits_[pad.path].has_no_serial && which == "hid_get_serial_number_string";
            return fails ? std::optional{-1} : std::nullopt;
        };
        bus().hooks.usb = [this](standins::UsbDevice& device, std::string_view which) -> std::optional<int> {
            const Habits& habits = habits_[device.name];
            const auto found = habits.failing.find(which);
            return found == habits.failing.end() ? std::nullopt : std::optional{found->second};
        };
        bus().hooks.bulk_in = [this](standins::UsbDevice& device, std::span<unsigned char>,
                                     int&) -> std::optional<int> {
            const Habits& habits = habits_[device.name];
            const auto found = habits.failing.find("libusb_bulk_transfer");
            return found == habits.failing.end() || found->second > 0 ? std::nullopt : std::optional{found->second};
        };
    }

    std::map<std::string, Habits> habits_; // its elements stay where they are
};

constexpr char16_t guard = 0xE000;

// The text that a query gives, and its result.
template <typename Query> std::u16string text_of(int size, Query query) {
    std::u16string buffer(static_cast<std::size_t>(size) + 1, guard);
    unsigned int reply = 0xFFFF;
    const int result = query(buffer.data(), size, &reply);
    if (result != 0) { // a name that is empty
        unsigned int code = 0;
        fuzz::require(GetExceptionCode(static_cast<unsigned int>(result), &code) == 0 && code == 257, "a failure");
        fuzz::require(reply == 0xFFFF && buffer[0] == guard, "an answer left as it was");
        return u"none";
    }
    fuzz::require(reply <= static_cast<unsigned int>(size), "length of a text");
    fuzz::require(buffer.back() == guard, "end of the buffer");
    return buffer.substr(0, reply);
}

std::vector<std::u16string> list_pads() {
    std::vector<std::u16string> pads;
    unsigned int unused = 0;
    const int count = GetDeviceCount(&unused);
    fuzz::require(count >= 0 && count <= 15, "number of pads");
    unsigned int device = 0;
    int enumerated = 0;
    for (EnumerateDevicesStart(&device); device != 0; EnumerateDevicesNext(&device)) {
        fuzz::require(static_cast<int>(device) == ++enumerated, "pads in a row");
    }
    fuzz::require(enumerated == count, "all pads");
    for (unsigned int pad = 1; pad <= static_cast<unsigned int>(count); ++pad) {
        std::u16string text;
        for (const int size : {256, 5}) {
            text += text_of(size, [&](auto... where) { return GetSerialNumber(pad, where...); });
            text += u"|" + text_of(size, [&](auto... where) { return GetVendorName(pad, where...); });
            text += u"|" + text_of(size, [&](auto... where) { return GetProductName(pad, 0, where...); });
        }
        std::array<unsigned int, 4> numbers{};
        fuzz::require(GetProductId(pad, 0, &numbers[0]) == 0 && GetVendorId(pad, &numbers[1]) == 0 &&
                          GetEndPointCount(pad, &numbers[2]) == 0 && GetFeatureReportSize(pad, 0, &numbers[3]) == 0,
                      "numbers of a listed pad");
        fuzz::require(numbers[2] >= 1 && numbers[2] <= 9, "number of interfaces");
        for (const unsigned int number : numbers) {
            text += static_cast<char16_t>(number);
        }
        pads.push_back(std::move(text));
    }
    return pads;
}

std::vector<std::u16string> start() {
    const std::int64_t begun = bus().now_us();
    fuzz::require(Initialize() == 0, "Initialize");
    // A pad that never answers costs a few seconds for each of the entries that it matches.
    fuzz::require(bus().now_us() - begun < 600'000'000, "time");
    return list_pads();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Bus pads{fuzz::Input{data, size}};
    const auto first = start();
    const auto second = start();
    fuzz::require(first.size() == second.size(), "as many pads in the next start");
    fuzz::require(first == second, "the same pads in the next start");
    Deinitialize();
    bus().hooks = {};
    fuzz::require_all_given_back();
    return 0;
}
