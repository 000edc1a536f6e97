// Exceptions, threads and streams: what a C++ library for another C library gets wrong first.
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

int main() {
    std::string caught;
    std::thread([&] {
        try {
            throw std::runtime_error("caught");
        } catch (const std::exception &error) {
            caught = error.what();
        }
    }).join();
    std::cout << caught << '\n';
    return caught == "caught" ? 0 : 1;
}
