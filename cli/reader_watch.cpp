#include "reader_watch.h"

#include <cstdio>

#include "UHF.h"

namespace uhfctl {

namespace {

// A reader that has sent nothing for this long is asked whether it is still
// there: a stopped stream looks the same as an empty field until then.
constexpr auto kQuiet = std::chrono::milliseconds(1000);

// Stop, ask for the software version, start again: false when it does not
// answer (the link is gone; an exchange on a hung-up link fails at once).
bool still_there(const Reader& rd) {
    LinkSelect(rd.slot);
    UHFStopGet();
    uint8_t version[64];
    return UHFGetSoftwareVersion(version) == 0 && UHFInventory() == 0;
}

}  // namespace

ReaderWatch::ReaderWatch(const Session& s, bool reconnect, OnEvent on_event)
    : s_(s), reconnect_(reconnect && s.reopen), on_event_(std::move(on_event)), st_(s.readers.size()) {}

bool ReaderWatch::start() {
    const auto now = Clock::now();
    for (size_t i = 0; i < s_.readers.size(); i++) {
        const Reader& rd = s_.readers[i];
        st_[i].heard = now;
        if (!rd.is_open()) {
            lose(i, "not connected", true);  // why is on stderr already
            continue;
        }
        LinkSelect(rd.slot);
        if (UHFInventory() != 0) {
            fail(kReaderFailed, "could not start the inventory on " + rd.label);
            for (size_t k = 0; k < i; k++)
                if (!st_[k].lost) {
                    LinkSelect(s_.readers[k].slot);
                    UHFStopGet();
                }
            return false;
        }
    }
    return true;
}

void ReaderWatch::heard(int slot) {
    for (size_t i = 0; i < s_.readers.size(); i++)
        if (slot < 0 || s_.readers[i].slot == slot) {
            st_[i].heard = Clock::now();
            return;
        }
}

void ReaderWatch::lose(size_t i, const std::string& why, bool reported) {
    State& st = st_[i];
    st.lost = true;
    st.why = why;
    st.reported = !reconnect_;
    if (!reconnect_) {
        if (!reported) fail(kConnection, "lost " + s_.readers[i].label + ": " + why);
        return;
    }
    st.backoff.reset();
    st.next_try = Clock::now() + st.backoff.next();
    on_event_(s_.readers[i].label, "lost");
}

void ReaderWatch::retry(size_t i) {
    State& st = st_[i];
    std::string err;
    if (s_.reopen(i, err) == kOk) {
        LinkSelect(s_.readers[i].slot);
        if (UHFInventory() == 0) {
            st.lost = st.reported = false;
            st.heard = Clock::now();
            on_event_(s_.readers[i].label, "reconnected");
            return;
        }
        err = "it does not start the inventory";
    }
    st.why = err;
    st.next_try = Clock::now() + st.backoff.next();
}

void ReaderWatch::check() {
    const auto now = Clock::now();
    for (size_t i = 0; i < st_.size(); i++) {
        State& st = st_[i];
        if (!st.lost) {
            if (now - st.heard < kQuiet) continue;
            st.heard = now;
            if (!still_there(s_.readers[i])) lose(i, "it stopped sending and does not answer", false);
        } else if (reconnect_ && now >= st.next_try) {
            retry(i);
        }
    }
}

bool ReaderWatch::any_left() const {
    if (reconnect_) return true;
    for (const State& st : st_)
        if (!st.lost) return true;
    return false;
}

int ReaderWatch::stop() {
    int rc = kOk;
    for (size_t i = 0; i < st_.size(); i++) {
        const Reader& rd = s_.readers[i];
        if (st_[i].lost) continue;
        LinkSelect(rd.slot);
        if (UHFStopGet() != 0) {
            fail(kReaderFailed, "did not confirm the stop: " + rd.label + " (its receive thread was stopped anyway)");
            rc = kReaderFailed;
        }
    }
    return rc;
}

int ReaderWatch::finish() {
    int rc = kOk;
    for (size_t i = 0; i < st_.size(); i++) {
        if (!st_[i].lost) continue;
        if (!st_[i].reported) fail(kConnection, "lost " + s_.readers[i].label + ": not back when the run ended");
        rc = kConnection;
    }
    return rc;
}

std::vector<std::pair<std::string, std::string>> ReaderWatch::down() const {
    std::vector<std::pair<std::string, std::string>> out;
    const auto now = Clock::now();
    for (size_t i = 0; i < st_.size(); i++) {
        if (!st_[i].lost) continue;
        std::string text = st_[i].why;
        if (reconnect_) {
            auto wait = std::chrono::duration_cast<std::chrono::seconds>(st_[i].next_try - now).count();
            text += ", reconnecting (next try in " + std::to_string(wait > 0 ? wait : 0) + " s)";
        }
        out.emplace_back(s_.readers[i].label, text);
    }
    return out;
}

}  // namespace uhfctl
