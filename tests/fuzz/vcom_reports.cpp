// Reports of a VCOM pad, whatever the pad sends in their place.
//
// Byte 0: the pad's habits (bit 0 it answers requests for reports, bit 1 in pieces of single bytes, bit 2 raw bytes of
// the input may be in its stream, bit 3 it may be pulled out). Then steps, a byte each with what it needs: write a
// report, read one, read pen data, the pad sends a message by itself, the pad sends raw bytes, the pad goes. What was
// written is on the wire as a legacy message. What is read was sent: a report is one that the pad has sent, pen data
// comes in order and once. Nothing is written behind the caller's buffer.
#include "messages.hpp"
#include "pads.hpp"

#include <algorithm>

namespace {

using fuzz::bus;
using fuzz::Bytes;

constexpr unsigned char guard = 0xEE;
constexpr unsigned int most_steps = 24;

class Pad {
  public:
    explicit Pad(fuzz::Input& input) : input_{input} {
        const unsigned char habits = input.byte();
        answers_ = (habits & 1) != 0;
        in_single_bytes_ = (habits & 2) != 0;
        may_send_anything_ = (habits & 4) != 0;
        may_go_ = (habits & 8) != 0;
        bus().reset();
        bus().cost_us["libusb_bulk_transfer"] = 100;
        model_ = &bus().plug(standins::vcom_pad());
        model_->answer = [this](standins::UsbDevice&, const Bytes& sent) { take(fuzz::unframed(sent)); };
    }

    void run() {
        {
            fuzz::VcomRecord record;
            for (unsigned int i = 0; i < most_steps && !input_.has_ended(); ++i) {
                const std::int64_t start = bus().now_us();
                step(*record.get());
                fuzz::require(bus().now_us() - start < 15'000'000, "time");
            }
        }
        fuzz::require_all_given_back();
    }

  private:
    void send_bytes(const Bytes& stream) {
        if (in_single_bytes_) {
            for (const unsigned char byte : stream) {
                model_->incoming.push_back({byte});
            }
        } else {
            model_->incoming.push_back(stream);
        }
    }
    void send(const Bytes& message) {
        if (model_->plugged) {
            (fuzz::is_pen_data(message) ? pen_data_ : others_).push_back(message);
            send_bytes(fuzz::framed(message));
        }
    }
    void take(const Bytes& message) {
        if (message == Bytes{0xC0, 0x00}) {
            if (answers_) {
                send(cut_stream::legacy(0x80, last_written_));
            }
        } else if (message.size() > 1) {
            last_written_.assign(message.begin() + 1, message.end());
        }
    }

    void step(vx_device& record) {
        switch (input_.below(6)) {
        case 0:
            return write(record);
        case 1:
            return read(record);
        case 2:
            return read_pen_data(record);
        case 3:
            return send(fuzz::take_message(input_));
        case 4:
            if (may_send_anything_ && model_->plugged) {
                has_sent_anything_ = true;
                send_bytes(input_.counted());
            }
            return;
        default:
            if (may_go_) {
                bus().unplug(*model_);
            }
        }
    }

    void write(vx_device& record) {
        const bool as_output = input_.flag();
        const Bytes report = input_.counted();
        const std::size_t sent_before = model_->outgoing.size();
        const auto size = static_cast<unsigned int>(report.size());
        const int result = as_output ? vcom_output_write(&record, report.data(), size)
                                     : vcom_feature_write(&record, report.data(), size);
        const bool fits = !report.empty() && report.size() <= 64;
        fuzz::require(result <= 0, "result of writing");
        fuzz::require(!model_->plugged || (result == 0) == fits, "success of writing");
        if (result == 0) {
            fuzz::require(model_->outgoing.size() > sent_before, "a report on the wire");
            fuzz::require(model_->outgoing.back() == fuzz::framed(cut_stream::legacy(0x80, report)), "report");
        }
    }

    void read(vx_device& record) {
        const unsigned int length = input_.byte();
        Bytes report(length + 1, guard);
        const int result = vcom_feature_read(&record, report.data(), length);
        fuzz::require(result <= 0 && result >= -20, "result of reading");
        fuzz::require(report.back() == guard, "end of the buffer");
        if (result == 0 && !has_sent_anything_) {
            const bool was_sent = std::any_of(others_.begin(), others_.end(), [&](const Bytes& message) {
                const std::size_t count = std::min<std::size_t>(message.size() - 1, length);
                return (message[0] & 0x80) != 0 &&
                       std::equal(message.begin() + 1, message.begin() + 1 + static_cast<std::ptrdiff_t>(count),
                                  report.begin());
            });
            fuzz::require(was_sent, "a report that the pad has sent");
        }
    }

    void read_pen_data(vx_device& record) {
        const unsigned int length = input_.byte();
        Bytes bytes(length + 1, guard);
        const int result = vcom_input_read(&record, bytes.data(), length);
        fuzz::require(result <= static_cast<int>(std::min(length, 64U)) && result >= -20, "result of reading pen data");
        fuzz::require(std::all_of(bytes.begin() + std::max(result, 0), bytes.end(),
                                  [](unsigned char byte) { return byte == guard; }),
                      "the rest of the buffer");
        if (result <= 0 || has_sent_anything_) {
            return;
        }
        // Those before it were overtaken by a loss of the pad, never by a later record.
        const auto found = std::find_if(
            pen_data_.begin() + static_cast<std::ptrdiff_t>(pen_read_), pen_data_.end(), [&](const Bytes& message) {
                return std::min<std::size_t>(message.size() - 1, std::min(length, 64U)) ==
                           static_cast<std::size_t>(result) &&
                       std::equal(bytes.begin(), bytes.begin() + result, message.begin() + 1);
            });
        fuzz::require(found != pen_data_.end(), "pen data that the pad has sent, in order");
        fuzz::require(found == pen_data_.begin() + static_cast<std::ptrdiff_t>(pen_read_), "no pen data lost");
        pen_read_ = static_cast<std::size_t>(found - pen_data_.begin()) + 1;
    }

    fuzz::Input& input_;
    standins::UsbDevice* model_;
    bool answers_;
    bool in_single_bytes_;
    bool may_send_anything_;
    bool may_go_;
    bool has_sent_anything_ = false;
    Bytes last_written_ = Bytes(64);
    std::vector<Bytes> pen_data_;
    std::vector<Bytes> others_;
    std::size_t pen_read_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    Pad{input}.run();
    return 0;
}
