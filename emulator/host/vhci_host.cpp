#include "host/vhci_host.hpp"

#include "base/fd.hpp"
#include "host/usbip_protocol.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <sys/socket.h>
#include <utility>

namespace emulator {

namespace {

// The kernel sets a pad up within half a second, and one that does not answer perhaps never.
constexpr auto longest_change = std::chrono::seconds(3);

bool is_recent(EventLoop::Clock::time_point since) {
    return EventLoop::Clock::now() - since < longest_change;
}

} // namespace

VhciHost::VhciHost(EventLoop& loop, Bus& bus, std::unique_ptr<VhciPorts> ports)
    : loop_{loop}, bus_{bus}, exports_{bus, {}}, ports_{std::move(ports)} {
    bus_.observe([this](Port& pad) { plugged(pad); }, [this](Port& pad) { unplugging(pad); });
}

void VhciHost::plugged(Port& pad) {
    std::array<int, 2> ends{};
    check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    Fd ours{ends[0]};
    const Fd kernels{ends[1]};
    const auto port = ports_->attach(kernels.get(), usbip::device_id(Bus::number, pad.address));
    auto& attached = attached_.emplace_back(Attached{&pad, port, EventLoop::Clock::now(), nullptr});
    attached.connection = std::make_unique<UsbipConnection>(
        loop_, std::move(ours), exports_, [this, &attached](UsbipConnection&, const std::string&) { drop(attached); },
        &pad);
}

void VhciHost::unplugging(const Port& pad) {
    for (auto& attached : attached_) {
        if (attached.pad == &pad) {
            attached.pad = nullptr;
            if (const auto device = ports_->device_at(attached.port); !device.empty()) {
                leaving_.push_back({device, EventLoop::Clock::now()});
            }
            attached.connection->unplugged();
        }
    }
}

// A pad that the kernel lets go ("usbip detach", the end of the module) has been pulled out.
void VhciHost::drop(const Attached& attached) {
    auto* pad = attached.pad;
    attached_.remove_if([&](const auto& each) { return &each == &attached; });
    if (pad != nullptr) {
        bus_.unplug(*pad);
    }
}

// A pad is being configured only after udev has heard of it, and the kernel lets nobody open it until that is done.
bool VhciHost::is_settled() {
    leaving_.remove_if(
        [&](const auto& leaving) { return !is_recent(leaving.since) || !ports_->exists(leaving.device); });
    return leaving_.empty() && std::ranges::none_of(attached_, [](const auto& attached) {
               return attached.pad != nullptr && !attached.pad->device->is_set_up() && is_recent(attached.since);
           });
}

} // namespace emulator
