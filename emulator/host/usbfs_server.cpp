#include "host/usbfs_server.hpp"

#include "base/send_buffer.hpp"
#include "base/sockets.hpp"
#include "host/urb_status.hpp"
#include "host/usbfs_protocol.h"
#include "pad/pad_settings.hpp"
#include "usb/open_transfers.hpp"
#include "usb/usb_device.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <linux/usbdevice_fs.h>
#include <optional>
#include <set>
#include <span>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace emulator {

namespace {

constexpr std::size_t longest_waited_for = 65536; // fits into a socket's buffer

// What can be waited for: other descriptors cannot be watched.
bool is_socket(const Fd& fd) {
    struct stat status {};
    return ::fstat(fd.get(), &status) == 0 && S_ISSOCK(status.st_mode);
}

// Reading from it ends at once, with nothing there as well.
bool never_waits(const Fd& fd) {
    return (::fcntl(fd.get(), F_GETFL) & O_NONBLOCK) != 0;
}

// Sends what the socket takes now and keeps the rest, in order, until it can be written again.
class Outbox {
  public:
    Outbox(EventLoop& loop, Fd socket) : loop_{loop}, socket_{std::move(socket)} {
        loop_.watch(socket_.get(), 0, [this](std::uint32_t events) { on_event(events); });
    }
    ~Outbox() { close(); }
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    void send(const usbfs_completion& head, std::span<const std::uint8_t> data) {
        if (!socket_) {
            return;
        }
        const bool waits = !rest_.empty();
        rest_.append({reinterpret_cast<const std::uint8_t*>(&head), sizeof head});
        rest_.append(data);
        if (waits) {
            return;
        }
        if (!rest_.send(socket_.get())) {
            return close();
        }
        if (!rest_.empty()) {
            loop_.change(socket_.get(), EPOLLOUT);
        }
    }

    // The reader finds the end after everything that was sent.
    void finish() {
        finished_ = true;
        if (rest_.empty() && socket_) {
            ::shutdown(socket_.get(), SHUT_WR);
        }
    }

  private:
    void on_event(std::uint32_t events) {
        if ((events & (EPOLLERR | EPOLLHUP)) != 0 || !rest_.send(socket_.get())) {
            return close();
        }
        if (!rest_.empty()) {
            return;
        }
        loop_.change(socket_.get(), 0);
        if (finished_) {
            finish();
        }
    }

    void close() {
        if (socket_) {
            loop_.forget(socket_.get());
        }
        socket_.reset();
        rest_.clear();
    }

    EventLoop& loop_;
    Fd socket_;
    SendBuffer rest_;
    bool finished_ = false;
};

} // namespace

// One open() of a pad by one process.
class UsbfsServer::OpenFile {
  public:
    OpenFile(UsbfsServer& server, Fd socket) : server_{server}, socket_{std::move(socket)} {
        server_.loop_.watch(socket_.get(), EPOLLIN, [this](std::uint32_t) { receive(); });
    }

    ~OpenFile() {
        server_.loop_.forget(socket_.get());
        close();
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    const Port* port() const { return port_; }
    bool has_claimed(unsigned int interface) const { return claimed_.contains(interface); }

    // The pad's URBs have been completed already.
    void unplugged() {
        port_ = nullptr;
        claimed_.clear();
        if (completions_) {
            completions_->finish();
        }
        pipe_.reset();
    }

  private:
    using Operation = int (OpenFile::*)(const usbfs_request&); // 0 or an errno value

    void receive();
    bool receive_part();
    void handle(const usbfs_request& request);

    int open(const usbfs_request& request);
    int get_driver(const usbfs_request& request);
    int disconnect(const usbfs_request& request);
    int connect(const usbfs_request& request);
    int disconnect_claim(const usbfs_request& request);
    int claim(const usbfs_request& request) { return claim_interface(request.interface); }
    int release(const usbfs_request& request);
    int set_interface(const usbfs_request& request);
    int clear_halt(const usbfs_request& request);
    int reset(const usbfs_request&) { return 0; }
    int submit(const usbfs_request& request);
    int transfer(const usbfs_request& request);
    int discard(const usbfs_request& request);
    int wake(const usbfs_request&) {
        empty_pipe();
        return 0;
    }
    void empty_pipe() {
        std::array<char, usbfs_pipe_size> bytes;
        [[maybe_unused]] const auto taken = ::read(pipe_.get(), bytes.data(), bytes.size());
    }

    int start(const usbfs_request& request, std::function<void(const usbfs_completion&, Transfer&)> answer);
    void close();
    int claim_interface(unsigned int interface);
    int check_claim(unsigned int interface);
    int check_control(const SetupPacket& setup);
    // Rather one that this file has claimed.
    std::optional<unsigned int> interface_of(std::uint8_t endpoint) const {
        return port_->device->interface_of(endpoint, claimed_);
    }
    bool exists(unsigned int interface) const { return interface < port_->device->interfaces(); }
    std::vector<bool>& kernel_driver() const { return server_.kernel_driver_[port_->number - 1]; }

    UsbfsServer& server_;
    Fd socket_;
    std::vector<std::uint8_t> received_;
    std::deque<Fd> passed_; // descriptors that came with the request
    std::uint32_t value_ = 0;

    Port* port_ = nullptr;
    std::unique_ptr<Outbox> completions_;
    Fd pipe_;
    std::set<unsigned int> claimed_;
    OpenTransfers urbs_;
};

// Reads what is there; false at the end of the connection.
bool UsbfsServer::OpenFile::receive_part() {
    std::array<std::uint8_t, 65536> buffer;
    union {
        cmsghdr align;
        char bytes[CMSG_SPACE(2 * sizeof(int))];
    } control;
    iovec part{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control;
    const auto size = ::recvmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    if (const auto* header = CMSG_FIRSTHDR(&message);
        header != nullptr && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS) {
        for (std::size_t offset = 0; CMSG_LEN(offset + sizeof(int)) <= header->cmsg_len; offset += sizeof(int)) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + offset, sizeof fd);
            passed_.emplace_back(fd);
        }
    }
    received_.insert(received_.end(), buffer.begin(), buffer.begin() + size);
    return true;
}

void UsbfsServer::OpenFile::receive() {
    if (!receive_part()) {
        return server_.drop(*this);
    }
    usbfs_request request;
    if (received_.size() < sizeof request) {
        return;
    }
    std::memcpy(&request, received_.data(), sizeof request);
    if (request.payload > longest_urb) {
        return server_.drop(*this);
    }
    if (received_.size() < sizeof request + request.payload) {
        return;
    }
    handle(request);
    received_.clear();
    passed_.clear();
}

void UsbfsServer::OpenFile::handle(const usbfs_request& request) {
    static constexpr std::array<std::pair<usbfs_operation, Operation>, 14> operations{{
        {usbfs_open, &OpenFile::open},
        {usbfs_get_driver, &OpenFile::get_driver},
        {usbfs_disconnect, &OpenFile::disconnect},
        {usbfs_connect, &OpenFile::connect},
        {usbfs_disconnect_claim, &OpenFile::disconnect_claim},
        {usbfs_claim, &OpenFile::claim},
        {usbfs_release, &OpenFile::release},
        {usbfs_set_interface, &OpenFile::set_interface},
        {usbfs_clear_halt, &OpenFile::clear_halt},
        {usbfs_reset, &OpenFile::reset},
        {usbfs_submit, &OpenFile::submit},
        {usbfs_transfer, &OpenFile::transfer},
        {usbfs_discard, &OpenFile::discard},
        {usbfs_wake, &OpenFile::wake},
    }};
    value_ = 0;
    int error = ENOTTY;
    if (request.operation == usbfs_close) {
        close();
        error = 0;
    } else if (request.operation != usbfs_open && port_ == nullptr) {
        error = ENODEV;
    } else {
        for (const auto& [operation, function] : operations) {
            if (operation == request.operation) {
                error = (this->*function)(request);
            }
        }
    }
    const usbfs_reply reply{error, value_};
    [[maybe_unused]] const auto sent = ::send(socket_.get(), &reply, sizeof reply, MSG_NOSIGNAL | MSG_DONTWAIT);
}

int UsbfsServer::OpenFile::open(const usbfs_request& request) {
    auto* port = request.interface == Bus::number ? server_.bus_.find_address(request.argument) : nullptr;
    if (port == nullptr || passed_.size() != 2 || port_ != nullptr) {
        return ENOENT;
    }
    if (port->settings.denied) {
        return EACCES;
    }
    if (!is_socket(passed_[0]) || !never_waits(passed_[1])) {
        return EINVAL;
    }
    port_ = port;
    completions_ = std::make_unique<Outbox>(server_.loop_, std::move(passed_[0]));
    pipe_ = std::move(passed_[1]);
    return 0;
}

void UsbfsServer::OpenFile::close() {
    if (port_ != nullptr) {
        urbs_.abandon(*port_->device);
    }
    unplugged();
    completions_.reset();
}

int UsbfsServer::OpenFile::get_driver(const usbfs_request& request) {
    if (!exists(request.interface)) {
        return EINVAL;
    }
    if (server_.owner_of(*port_, request.interface) != nullptr) {
        value_ = usbfs_driver_usbfs;
    } else {
        value_ = kernel_driver()[request.interface] ? usbfs_driver_usbhid : usbfs_driver_none;
    }
    return 0;
}

int UsbfsServer::OpenFile::disconnect(const usbfs_request& request) {
    if (!exists(request.interface)) {
        return EINVAL;
    }
    if (auto* owner = server_.owner_of(*port_, request.interface); owner != nullptr) {
        owner->claimed_.erase(request.interface);
    } else if (!kernel_driver()[request.interface]) {
        return ENODATA;
    }
    kernel_driver()[request.interface] = false;
    return 0;
}

int UsbfsServer::OpenFile::connect(const usbfs_request& request) {
    if (!exists(request.interface)) {
        return EINVAL;
    }
    if (server_.owner_of(*port_, request.interface) != nullptr) {
        return EBUSY;
    }
    kernel_driver()[request.interface] = true;
    return 0;
}

int UsbfsServer::OpenFile::disconnect_claim(const usbfs_request& request) {
    if (!exists(request.interface)) {
        return EINVAL;
    }
    get_driver(request);
    const auto bound = std::exchange(value_, 0);
    if (bound != usbfs_driver_none) {
        if ((request.length & USBDEVFS_DISCONNECT_CLAIM_IF_DRIVER) != 0 && bound != request.argument) {
            return EBUSY;
        }
        if ((request.length & USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER) != 0 && bound == request.argument) {
            return EBUSY;
        }
        disconnect(request);
    }
    return claim_interface(request.interface);
}

int UsbfsServer::OpenFile::claim_interface(unsigned int interface) {
    if (!exists(interface)) {
        return ENOENT;
    }
    if (claimed_.contains(interface)) {
        return 0;
    }
    if (server_.owner_of(*port_, interface) != nullptr || kernel_driver()[interface]) {
        return EBUSY;
    }
    claimed_.insert(interface);
    return 0;
}

int UsbfsServer::OpenFile::release(const usbfs_request& request) {
    if (claimed_.erase(request.interface) == 0) {
        return EINVAL;
    }
    urbs_.cancel_interface(*port_->device, request.interface);
    return 0;
}

int UsbfsServer::OpenFile::set_interface(const usbfs_request& request) {
    if (const int error = check_claim(request.interface); error != 0) {
        return error;
    }
    return request.argument == 0 ? 0 : EINVAL;
}

int UsbfsServer::OpenFile::clear_halt(const usbfs_request& request) {
    const auto interface = interface_of(static_cast<std::uint8_t>(request.argument));
    return interface ? check_claim(*interface) : ENOENT;
}

// As the kernel does, an interface that nobody has is claimed by using it.
int UsbfsServer::OpenFile::check_claim(unsigned int interface) {
    return claimed_.contains(interface) ? 0 : claim_interface(interface);
}

int UsbfsServer::OpenFile::check_control(const SetupPacket& setup) {
    constexpr unsigned int vendor_request = 0x40;
    if ((setup.request_type & 0x60) == vendor_request) {
        return 0;
    }
    switch (setup.request_type & 0x1f) {
    case 1: // to an interface
        return check_claim(setup.index & 0xff);
    case 2: { // to an endpoint
        if ((setup.index & 0x7f) == 0) {
            return 0;
        }
        const auto interface = interface_of(static_cast<std::uint8_t>(setup.index));
        return interface ? check_claim(*interface) : ENOENT;
    }
    default:
        return 0;
    }
}

int UsbfsServer::OpenFile::submit(const usbfs_request& request) {
    return start(request, [this](const usbfs_completion& completion, Transfer& transfer) {
        completions_->send(completion, std::span{transfer.data}.first(completion.payload));
        // Empty, for the reader may have filled it more than once: the descriptor becomes writable.
        empty_pipe();
    });
}

int UsbfsServer::OpenFile::transfer(const usbfs_request& request) {
    if (passed_.size() != 1 || !is_socket(passed_[0])) {
        return EINVAL;
    }
    if (request.length > longest_waited_for) {
        return ENOMEM;
    }
    const auto outbox = std::make_shared<Outbox>(server_.loop_, std::move(passed_[0]));
    return start(request, [outbox](const usbfs_completion& completion, Transfer& transfer) {
        outbox->send(completion, std::span{transfer.data}.first(completion.payload));
    });
}

int UsbfsServer::OpenFile::start(const usbfs_request& request,
                                 std::function<void(const usbfs_completion&, Transfer&)> answer) {
    auto transfer = std::make_shared<Transfer>();
    transfer->room = request.length;
    if (request.length > longest_urb) {
        return ENOMEM;
    }
    if (request.type == USBDEVFS_URB_TYPE_CONTROL) {
        transfer->setup = setup_packet(request.setup);
        if (transfer->setup.length > request.length) {
            return EINVAL;
        }
        if (const int error = check_control(transfer->setup); error != 0) {
            return error;
        }
    } else if (request.type == USBDEVFS_URB_TYPE_INTERRUPT || request.type == USBDEVFS_URB_TYPE_BULK) {
        const auto interface = interface_of(request.endpoint);
        if (!interface) {
            return ENOENT;
        }
        if (request.type == USBDEVFS_URB_TYPE_INTERRUPT && port_->settings.kind == PadKind::vcom) {
            return EINVAL; // the other way round the kernel allows it
        }
        if (const int error = check_claim(*interface); error != 0) {
            return error;
        }
        transfer->endpoint = request.endpoint;
        transfer->interface = *interface;
    } else {
        return EINVAL;
    }
    // What comes in has nothing yet, and what goes out has all of it.
    if (request.payload != (transfer->is_in() ? 0 : request.length)) {
        return EINVAL;
    }
    transfer->data.assign(received_.begin() + sizeof request, received_.begin() + sizeof request + request.payload);
    const auto id = request.urb;
    const auto completed = [id, answer = std::move(answer)](Transfer& done, TransferStatus status) {
        const auto length = static_cast<std::uint32_t>(done.data.size());
        const bool in = done.is_in();
        const bool nothing = !in && status != TransferStatus::done;
        answer({id, urb_status(status), nothing ? 0 : length, in ? length : 0, 0}, done);
    };
    if (urbs_.has(id)) {
        return EINVAL;
    }
    urbs_.submit(*port_->device, id, std::move(transfer), completed);
    return 0;
}

int UsbfsServer::OpenFile::discard(const usbfs_request& request) {
    return urbs_.cancel(*port_->device, request.urb) ? 0 : EINVAL;
}

UsbfsServer::UsbfsServer(EventLoop& loop, Bus& bus, const std::string& socket_path)
    : loop_{loop}, bus_{bus}, listener_{listen_at(socket_path)} {
    loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { accept_file(); });
    const auto plugged = [this](Port& port) {
        kernel_driver_.resize(std::max<std::size_t>(kernel_driver_.size(), port.number));
        kernel_driver_[port.number - 1].assign(port.settings.interfaces, port.settings.kind == PadKind::hid);
    };
    const auto unplugging = [this](Port& port) {
        for (const auto& file : files_) {
            if (file->port() == &port) {
                file->unplugged();
            }
        }
    };
    bus_.observe(plugged, unplugging);
}

UsbfsServer::~UsbfsServer() {
    loop_.forget(listener_.get());
}

void UsbfsServer::accept_file() {
    Fd socket{::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    if (socket) {
        files_.push_back(std::make_unique<OpenFile>(*this, std::move(socket)));
    }
}

void UsbfsServer::drop(OpenFile& file) {
    std::erase_if(files_, [&](const auto& each) { return each.get() == &file; });
}

UsbfsServer::OpenFile* UsbfsServer::owner_of(const Port& port, unsigned int interface) const {
    const auto found = std::ranges::find_if(
        files_, [&](const auto& file) { return file->port() == &port && file->has_claimed(interface); });
    return found == files_.end() ? nullptr : found->get();
}

} // namespace emulator
