// Fixed-capacity request builder shared by every command. Appends past the
// capacity are refused and poison the request, so a command that would not
// fit its buffer sends nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace uhf {

class Request {
public:
    Request(uint8_t* buf, size_t cap) : buf_(buf), cap_(cap) {}

    Request& u8(unsigned v) { return put(static_cast<uint8_t>(v)); }
    Request& u16(unsigned v) { return u8(v >> 8).u8(v); }
    Request& u24(unsigned long v) { return u8(static_cast<unsigned>(v >> 16)).u16(static_cast<unsigned>(v)); }
    Request& u32(unsigned long v) { return u16(static_cast<unsigned>(v >> 16)).u16(static_cast<unsigned>(v)); }

    // n bytes from p; a null p with n > 0 poisons the request.
    Request& bytes(const uint8_t* p, size_t n) {
        if (n == 0) return *this;
        if (p == nullptr || !room(n)) return fail();
        memcpy(buf_ + len_, p, n);
        len_ += n;
        return *this;
    }

    // Tag filter block: bank, bit address, bit length, ceil(length/8) mask bytes.
    Request& filter(unsigned bank, unsigned bit_addr, unsigned bit_len, const uint8_t* mask) {
        return u8(bank).u16(bit_addr).u16(bit_len).bytes(mask, (bit_len & 0xFFFF) / 8 + ((bit_len & 7) ? 1 : 0));
    }

    bool ok() const { return ok_; }
    size_t size() const { return len_; }
    const uint8_t* data() const { return buf_; }

private:
    bool room(size_t n) const { return ok_ && cap_ - len_ >= n; }
    Request& put(uint8_t b) {
        if (!room(1)) return fail();
        buf_[len_++] = b;
        return *this;
    }
    Request& fail() {
        ok_ = false;
        return *this;
    }

    uint8_t* buf_;
    size_t cap_;
    size_t len_ = 0;
    bool ok_ = true;
};

// A request with its own storage of Cap bytes (the command's buffer size).
template <size_t Cap>
class RequestBuf : public Request {
public:
    RequestBuf() : Request(storage_, Cap) {}
    RequestBuf(const RequestBuf&) = delete;
    RequestBuf& operator=(const RequestBuf&) = delete;

private:
    uint8_t storage_[Cap];
};

}  // namespace uhf
