// All virtual pads and the ports they are plugged into.
#pragma once

#include "base/event_loop.hpp"
#include "pad/faults.hpp"
#include "pad/pad_model.hpp"
#include "pad/pad_settings.hpp"
#include "pad/pen_player.hpp"
#include "pad/ssp_pad.hpp"
#include "pad/transfer_log.hpp"
#include "usb/usb_device.hpp"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace emulator {

// A port with its pad, which may be plugged in or not. Faults and log outlive an unplug; the pad's state does not.
struct Port {
    Port(unsigned int number_, const PadSettings& settings_, bool verbose)
        : number{number_}, settings{settings_}, log{number_, verbose} {}

    std::string name() const { return "1-" + std::to_string(number); } // as the system names bus and port

    // Of a plugged pad, what moves its pen: for input reports or, without them, for the stream.
    PenPlayer& pen() const { return reports ? *reports : ssp->pen(); }

    unsigned int number; // from 1
    PadSettings settings;
    FaultList faults;
    TransferLog log;
    unsigned int address = 0; // on the bus; new with each plugging
    std::unique_ptr<PadModel> model;
    std::unique_ptr<SspPad> ssp;        // of a pad that speaks it, while it is plugged in
    std::unique_ptr<UsbDevice> device;  // only while it is plugged in
    std::unique_ptr<PenPlayer> reports; // likewise, of a HID pad: what its input reports tell of the pen
};

class Bus {
  public:
    static constexpr unsigned int number = 1;

    using Callback = std::function<void(Port&)>;

    Bus(EventLoop& loop, bool verbose) : loop_{loop}, verbose_{verbose} {}

    Port& add(const PadSettings& settings); // not yet plugged in
    void plug(Port& port);
    void unplug(Port& port);

    const std::vector<std::unique_ptr<Port>>& ports() const { return ports_; }
    Port* find(unsigned int port_number) const;
    Port* find_address(unsigned int address) const; // a plugged pad

    // Who shows the pads to the outside hears of every change; a pad still has its device when it goes. One that throws
    // on hearing of a new pad has it pulled out again.
    void observe(Callback plugged, Callback unplugging) {
        observers_.emplace_back(std::move(plugged), std::move(unplugging));
    }

  private:
    unsigned int free_address();

    EventLoop& loop_;
    bool verbose_;
    unsigned int last_address_ = 1; // the root hub has the first one
    std::vector<std::unique_ptr<Port>> ports_;
    std::vector<std::pair<Callback, Callback>> observers_;
};

} // namespace emulator
