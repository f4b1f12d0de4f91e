// The readers of one inventory run: which are reading, which are lost (or
// were never opened), and when a lost one is tried again with --reconnect.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "backoff.h"
#include "session.h"

namespace uhfctl {

class ReaderWatch {
public:
    using Clock = std::chrono::steady_clock;
    // on_event(reader label, "lost" or "reconnected") marks a gap in the output.
    using OnEvent = std::function<void(const std::string& reader, const char* event)>;

    ReaderWatch(const Session& s, bool reconnect, OnEvent on_event);

    // Starts the inventory on every open reader; one that is not open is lost
    // from the start. False when an open reader refused (the others stopped).
    bool start();
    // A report came from this slot (-1: the only reader).
    void heard(int slot);
    // Quiet readers are asked whether they are there; lost ones are opened
    // again when their backoff allows.
    void check();
    // False once nothing more can come: every reader lost, no --reconnect.
    bool any_left() const;
    // Stops the readers that are reading: kReaderFailed when one did not confirm.
    int stop();
    // kConnection when a reader was lost or never opened and is not back
    // (said on stderr), else kOk.
    int finish();
    // The readers not reading now, and what the table says of each.
    std::vector<std::pair<std::string, std::string>> down() const;

private:
    struct State {
        Clock::time_point heard;
        bool lost = false;
        bool reported = false;  // finish() need not say it again
        std::string why;
        uhftools::Backoff backoff;
        Clock::time_point next_try;
    };
    // reported: the reason is on stderr already.
    void lose(size_t i, const std::string& why, bool reported);
    void retry(size_t i);

    const Session& s_;
    bool reconnect_;
    OnEvent on_event_;
    std::vector<State> st_;
};

}  // namespace uhfctl
