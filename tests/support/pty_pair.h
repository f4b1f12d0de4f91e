// A pseudo-terminal pair for serial tests: the test plays the reader on the
// master side, the library opens the slave's path.
#pragma once

#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "scripted_reader.h"

namespace uhftest {

class Pty {
public:
    Pty() {
        char name[128];
        if (openpty(&master_, &slave_, name, nullptr, nullptr) == 0) path_ = name;
        termios t;
        tcgetattr(slave_, &t);
        cfmakeraw(&t);
        tcsetattr(slave_, TCSANOW, &t);
    }
    ~Pty() {
        close(master_);
        close(slave_);
    }
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    const std::string& path() const { return path_; }
    int master() const { return master_; }

    // Read what the library wrote, waiting up to ms for the first byte.
    Bytes read_master(int ms) {
        Bytes out;
        pollfd p{master_, POLLIN, 0};
        while (poll(&p, 1, ms) > 0) {
            uint8_t buf[512];
            ssize_t n = read(master_, buf, sizeof buf);
            if (n <= 0) break;
            out.insert(out.end(), buf, buf + n);
            ms = 50;
        }
        return out;
    }
    void write_master(const Bytes& b) { ASSERT_EQ(write(master_, b.data(), b.size()), ssize_t(b.size())); }

private:
    int master_ = -1, slave_ = -1;
    std::string path_;
};

}  // namespace uhftest
