#include "server/page.hpp"

#include "access/access.hpp"
#include "server/page_text.hpp"

#include <cstddef>

namespace bridge {

namespace {

void fill_in(std::string& text, std::string_view mark, std::string_view value) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + value.size())) {
        text.replace(at, mark.size(), value);
    }
}

} // namespace

std::string make_page(std::string_view nonce) {
    std::string text = page_html;
    fill_in(text, "{{nonce}}", nonce);
    fill_in(text, "{{style}}", page_style);
    fill_in(text, "{{script}}", page_script);
    return text;
}

std::string page_policy(std::string_view nonce, unsigned short port) {
    std::string policy = "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; script-src ";
    const std::string source = std::string{"'nonce-"}.append(nonce) + "'";
    policy += source + "; style-src " + source + "; connect-src 'self'";
    for (const std::string& host : own_hosts(port)) {
        if (!host.starts_with('[')) { // policies know no such addresses
            policy += " ws://" + host;
        }
    }
    return policy;
}

} // namespace bridge
