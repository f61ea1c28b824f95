// A pad as one that speaks SSP: requests to its components, with answers as values and failures as sentences.
#pragma once

#include "hex.hpp"
#include "library.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vxpadctl {

struct SspError : std::runtime_error {
    using runtime_error::runtime_error;
};

// Needs a session and one pad at a time: the requests go to the pad that was selected last. All of it throws SspError.
class SspPad {
  public:
    explicit SspPad(unsigned int pad, unsigned int interface = 0);
    SspPad(SspPad&& other) noexcept;
    ~SspPad();

    bool speaks_ssp();

    // Types; the place of a type is its id.
    const std::vector<std::uint32_t>& components();
    const std::vector<std::uint32_t>& modes();

    unsigned int component_id(std::uint32_t type);
    void send(unsigned int component_id, std::uint8_t message_id, const Bytes& data);

    PadDescription description();
    unsigned int connection();
    void set_connection(unsigned int type); // a pad does not answer that

    unsigned int configuration_state();
    void set_variable(const std::string& variable, const std::string& value);
    void persist_variable(const std::string& variable);

    unsigned int user_input();
    unsigned int button_event(std::uint32_t mode);
    void refresh_buttons(std::uint32_t mode);
    void set_button(std::uint32_t mode, unsigned int button, std::uint32_t first, std::uint32_t second);

  private:
    struct Record;

    template <typename Request> int perform(Request request);
    template <typename Request> unsigned int answer(Request request);
    template <typename Request> void change_configuration(Request request);
    template <typename Request> unsigned int ask_mode(std::uint32_t mode, Request request);
    Bytes payload() const;
    bool is_refused() const;
    std::string failure() const;
    void expect_component(std::uint32_t type);
    void expect_buttons() const;

    unsigned int pad_;
    std::string name_;
    std::optional<std::vector<std::uint32_t>> components_;
    std::optional<std::vector<std::uint32_t>> modes_;
    std::unique_ptr<Record> record_;
};

} // namespace vxpadctl
