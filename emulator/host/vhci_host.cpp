#include "host/vhci_host.hpp"

#include "base/fd.hpp"
#include "host/usbip_protocol.hpp"

#include <array>
#include <sys/socket.h>
#include <utility>

namespace emulator {

VhciHost::VhciHost(EventLoop& loop, Bus& bus, Attach attach)
    : loop_{loop}, bus_{bus}, exports_{bus, {}}, attach_{std::move(attach)} {
    bus_.observe([this](Port& port) { plugged(port); }, [this](Port& port) { unplugging(port); });
}

void VhciHost::plugged(Port& port) {
    std::array<int, 2> ends{};
    check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    Fd ours{ends[0]};
    const Fd kernels{ends[1]};
    attach_(kernels.get(), usbip::device_id(Bus::number, port.address));
    auto& attached = attached_.emplace_back(Attached{&port, nullptr});
    attached.connection = std::make_unique<UsbipConnection>(
        loop_, std::move(ours), exports_, [this, &attached](UsbipConnection&, const std::string&) { drop(attached); },
        &port);
}

void VhciHost::unplugging(const Port& port) {
    for (auto& attached : attached_) {
        if (attached.port == &port) {
            attached.port = nullptr;
            attached.connection->unplugged();
        }
    }
}

// A pad that the kernel lets go ("usbip detach", the end of the module) has been pulled out.
void VhciHost::drop(const Attached& attached) {
    auto* port = attached.port;
    attached_.remove_if([&](const auto& each) { return &each == &attached; });
    if (port != nullptr) {
        bus_.unplug(*port);
    }
}

} // namespace emulator
