// The host's side of /dev/bus/usb: open files, claimed interfaces and URBs, as the preload library asks for them.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "usb/bus.hpp"

#include <memory>
#include <string>
#include <vector>

namespace emulator {

class UsbfsServer {
  public:
    UsbfsServer(EventLoop& loop, Bus& bus, const std::string& socket_path);
    ~UsbfsServer();
    UsbfsServer(const UsbfsServer&) = delete;
    UsbfsServer& operator=(const UsbfsServer&) = delete;

  private:
    class OpenFile;

    void accept_file();
    void drop(OpenFile& file);
    OpenFile* owner_of(const Port& port, unsigned int interface) const;

    EventLoop& loop_;
    Bus& bus_;
    Fd listener_;
    std::vector<std::unique_ptr<OpenFile>> files_;
    // The kernel's HID driver holds each HID interface of a new pad until someone detaches it: by port and interface.
    std::vector<std::vector<bool>> kernel_driver_;
};

} // namespace emulator
