// The commands for pads that speak SSP.
#pragma once

#include "arguments.hpp"
#include "library.hpp"
#include "pad_output.hpp"

#include <cstdio>
#include <optional>

namespace vxpadctl {

bool ssp_send(const Session& session, const Arguments& arguments, std::FILE* results);
bool ssp_receive(const Session& session, const Arguments& arguments, std::FILE* results);
bool ssp_components(const Session& session, const Arguments& arguments, std::FILE* results);
bool ssp_modes(const Session& session, const Arguments& arguments, std::FILE* results);
bool ssp_description(const Session& session, const Arguments& arguments, std::FILE* results);
bool ssp_connection(const Session& session, const Arguments& arguments, std::FILE* results);
bool config_set(const Session& session, const Arguments& arguments, std::FILE* results);
bool config_persist(const Session& session, const Arguments& arguments, std::FILE* results);
bool config_state(const Session& session, const Arguments& arguments, std::FILE* results);
bool button_input(const Session& session, const Arguments& arguments, std::FILE* results);
bool button_event(const Session& session, const Arguments& arguments, std::FILE* results);
bool button_set(const Session& session, const Arguments& arguments, std::FILE* results);
bool button_refresh(const Session& session, const Arguments& arguments, std::FILE* results);

// What a pad has to say beyond its USB side, as far as it answers; nothing where it does not speak SSP.
std::optional<SspFacts> ssp_facts(unsigned int pad);

} // namespace vxpadctl
