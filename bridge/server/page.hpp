// The bridge's own page, in one piece: nothing else has to be fetched, so nothing else has to be guarded.
#pragma once

#include <string>
#include <string_view>

namespace bridge {

// The nonce, new for each answer, is what lets its own script and style through the policy.
std::string make_page(std::string_view nonce);

// For the header Content-Security-Policy.
std::string page_policy(std::string_view nonce, unsigned short port);

} // namespace bridge
