// sign.cpp: draws what is signed on the first pad within ten seconds.
#include <iostream>
#include <vxpadcom/vxpadcom.hpp>

int main() try {
    vxpadcom::session pads;
    vxpadcom::reception reports{pads[1]};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    std::cout << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 4000 2000' fill='none' stroke='black' "
                 "stroke-width='20'><polyline points='";
    while (const auto report = reports.next_until(end)) {
        const auto number = [&](std::size_t at) { return (*report)[at] | (*report)[at + 1] << 8; };
        if (number(6) > 0) { // pressure is where virtual pads have it, and so are x and y
            std::cout << number(2) << ',' << number(4) << ' ';
        } else {
            std::cout << "'/>\n<polyline points='";
        }
    }
    std::cout << "'/></svg>\n";
} catch (const vxpadcom::error& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
