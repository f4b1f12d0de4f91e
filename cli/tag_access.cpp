// Tag access: read, write, erase, lock, kill and block permalock, each on
// the tag that --epc or --filter singles out (or the first that answers).
#include <CLI/CLI.hpp>
#include <cstdio>

#include "UHF.h"
#include "commands.h"
#include "completion.h"
#include "format.h"
#include "tag_select.h"

namespace uhfctl {

namespace {

int refused(const Reader& r, const std::string& what) {
    return fail(kReaderFailed, what + ": " + r.label +
                                   " reported a failure (no matching tag, wrong password, locked memory, an "
                                   "address past the bank) or did not answer");
}

struct MemoryArea {
    std::string bank_text;
    uint8_t bank = 0;
    unsigned addr = 0;
    unsigned count = 0;
    std::vector<std::string> data_text;
    std::vector<uint8_t> data;
};

int prepare(TagSelect& t, MemoryArea& g, std::string& err) {
    if (!t.resolve(err)) return kUsage;
    if (!parse_bank(g.bank_text, g.bank)) {
        err = g.bank_text + ": the banks are reserved, epc, tid and user";
        return kUsage;
    }
    std::string joined;
    for (const auto& d : g.data_text) joined += d;
    if (!g.data_text.empty() && (!parse_hex(joined, g.data) || g.data.empty() || g.data.size() % 2 != 0)) {
        err = "data must be whole 16-bit words in hex, e.g. 1234ABCD";
        return kUsage;
    }
    return kOk;
}

int run_read(const Session& s, TagSelect t, MemoryArea g) {
    std::string err;
    if (prepare(t, g, err) != kOk) return fail(kUsage, "read: " + err);
    return s.each([&](const Reader& r) {
        static uint8_t words[2048];
        std::fill(std::begin(words), std::end(words), 0);
        if (UHFReadData(t.pwd, t.bank, static_cast<int>(t.bit_addr), static_cast<int>(t.bit_len), t.mask_data(), g.bank,
                        static_cast<int>(g.addr), static_cast<uint16_t>(g.count), words) != 0)
            return refused(r, "read");
        // The reply's word count is not handed back; the request's is what a tag answers.
        std::string data = hex(words, g.count * 2u);
        if (s.format == Format::Json) {
            Json j(cJSON_CreateObject());
            cJSON_AddStringToObject(j.get(), "reader", r.label.c_str());
            cJSON_AddStringToObject(j.get(), "bank", kBanks[g.bank]);
            cJSON_AddNumberToObject(j.get(), "addr", g.addr);
            cJSON_AddStringToObject(j.get(), "data", data.c_str());
            print("%s\n", json_line(j.get()).c_str());
        } else {
            print("%s%s%s\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "", data.c_str());
        }
        return static_cast<int>(kOk);
    });
}

int run_write(const Session& s, TagSelect t, MemoryArea g) {
    std::string err;
    if (prepare(t, g, err) != kOk) return fail(kUsage, "write: " + err);
    const unsigned words = static_cast<unsigned>(g.data.size() / 2);
    // The plain write's request holds 100 bytes; larger writes go as a block write.
    const bool fits = 14 + (t.bit_len + 7) / 8 + g.data.size() <= 100;
    return s.each([&](const Reader& r) {
        int rc =
            fits ? UHFWriteData(t.pwd, t.bank, static_cast<int>(t.bit_addr), static_cast<int>(t.bit_len), t.mask_data(),
                                g.bank, static_cast<int>(g.addr), static_cast<uint16_t>(words), g.data.data())
                 : UHFBlockWriteData(t.pwd, t.bank, t.bit_addr, t.bit_len, t.mask_data(), g.bank, g.addr, words,
                                     g.data.data());
        if (rc != 0) return refused(r, "write");
        print("%s%swrote %u words\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "", words);
        return static_cast<int>(kOk);
    });
}

int run_erase(const Session& s, TagSelect t, MemoryArea g) {
    std::string err;
    if (prepare(t, g, err) != kOk) return fail(kUsage, "erase: " + err);
    return s.each([&](const Reader& r) {
        if (UHFBlockEraseData(t.pwd, t.bank, t.bit_addr, t.bit_len, t.mask_data(), g.bank, g.addr,
                              static_cast<unsigned char>(g.count)) != 0)
            return refused(r, "erase");
        print("%s%serased %u words\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "", g.count);
        return static_cast<int>(kOk);
    });
}

// Lock areas in the order of the 10-bit mask and action fields.
const char* const kLockAreas[5] = {"kill", "access", "epc", "tid", "user"};
const char* const kLockActions[4] = {"unlock", "permaunlock", "lock", "permalock"};  // bits: pwd-write, perma

bool lock_payload(const std::vector<std::string>& args, uint8_t out[3], std::string& err) {
    if (args.empty() || args.size() % 2 != 0) {
        err = "expected AREA ACTION pairs";
        return false;
    }
    unsigned mask = 0, action = 0;
    for (size_t i = 0; i < args.size(); i += 2) {
        int area = -1, act = -1;
        for (int k = 0; k < 5; k++)
            if (args[i] == kLockAreas[k]) area = k;
        for (int k = 0; k < 4; k++)
            if (args[i + 1] == kLockActions[k]) act = k;
        if (area < 0 || act < 0) {
            err = args[i] + " " + args[i + 1] +
                  ": areas are kill, access, epc, tid, user; actions unlock, lock, permalock, permaunlock";
            return false;
        }
        unsigned shift = static_cast<unsigned>(8 - 2 * area);
        mask |= 3u << shift;
        action |= static_cast<unsigned>(act) << shift;
    }
    unsigned payload = mask << 10 | action;
    out[0] = static_cast<uint8_t>(payload >> 16);
    out[1] = static_cast<uint8_t>(payload >> 8);
    out[2] = static_cast<uint8_t>(payload);
    return true;
}

int run_lock(const Session& s, TagSelect t, const std::vector<std::string>& args) {
    std::string err;
    uint8_t payload[3];
    if (!t.resolve(err) || !lock_payload(args, payload, err)) return fail(kUsage, "lock: " + err);
    return s.each([&](const Reader& r) {
        // This command reports failure as 1, not -1.
        if (UHFLockTag(t.pwd, t.bank, t.bit_addr, t.bit_len, t.mask_data(), payload) != 0) return refused(r, "lock");
        print("%s%slocked (payload %s)\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "",
              hex(payload, 3).c_str());
        return static_cast<int>(kOk);
    });
}

int run_kill(const Session& s, TagSelect t) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "kill: " + err);
    if (t.any()) return fail(kUsage, "kill: name the tag with --epc or --filter: killing is for ever");
    return s.each([&](const Reader& r) {
        if (UHFKillTag(t.pwd, t.bank, t.bit_addr, t.bit_len, t.mask_data()) != 0) return refused(r, "kill");
        print("%s%skilled\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "");
        return static_cast<int>(kOk);
    });
}

struct PermalockArgs {
    std::string bank = "user";
    unsigned block_ptr = 0;
    std::string mask_text;    // lock these blocks
    unsigned read_range = 0;  // or read this many mask words
};

int run_permalock(const Session& s, TagSelect t, const PermalockArgs& a) {
    std::string err;
    uint8_t bank = 3;
    std::vector<uint8_t> mask;
    if (!t.resolve(err)) return fail(kUsage, "permalock: " + err);
    if (!parse_bank(a.bank, bank)) return fail(kUsage, "permalock: " + a.bank + ": not a bank");
    const bool reading = a.mask_text.empty();
    if (reading) {
        if (a.read_range == 0) return fail(kUsage, "permalock: give a MASK of blocks to lock, or --read WORDS");
        mask.assign(a.read_range * 2u, 0);
    } else if (!parse_hex(a.mask_text, mask) || mask.empty() || mask.size() % 2 || mask.size() > 510) {
        return fail(kUsage, "permalock: the mask is whole 16-bit words of hex, one bit per block");
    }
    return s.each([&](const Reader& r) {
        std::vector<uint8_t> m = mask;
        if (UHFBlockPermalock(t.pwd, t.bank, t.bit_addr, t.bit_len, t.mask_data(), reading ? 0 : 1, bank, a.block_ptr,
                              static_cast<unsigned char>(m.size() / 2), m.data()) != 0)
            return refused(r, "permalock");
        print("%s%spermalocked blocks: %s\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "",
              hex(m).c_str());
        return static_cast<int>(kOk);
    });
}

CLI::App* tag_command(CLI::App& app, const char* name, const char* help, const std::string& examples, TagSelect& t) {
    auto* cmd = app.add_subcommand(name, help);
    cmd->footer(std::string(kSelectHelp) + "\nExamples:\n" + examples);
    add_select_options(cmd, t);
    return cmd;
}

void add_target(CLI::App* cmd, MemoryArea& g, bool with_count, bool with_data) {
    offer(cmd->add_option("bank", g.bank_text, "reserved, epc, tid or user")->required(),
          {std::begin(kBanks), std::end(kBanks)});
    cmd->add_option("addr", g.addr, "Word address")->required()->check(CLI::Range(0u, 65535u));
    if (with_count) cmd->add_option("count", g.count, "Words")->required()->check(CLI::Range(1u, 255u));
    if (with_data) cmd->add_option("data", g.data_text, "Words in hex")->required();
}

}  // namespace

void add_tag_commands(CLI::App& app, Context& ctx) {
    auto rt = std::make_shared<TagSelect>();
    auto rg = std::make_shared<MemoryArea>();
    auto* read = tag_command(
        app, "read", "Read words from a tag's memory",
        "  uhfctl --sim read tid 0 6\n  uhfctl --tcp 192.168.1.50 read user 0 4 --epc E2003412 -p 12345678\n", *rt);
    add_target(read, *rg, true, false);
    set_runner(read, ctx, [&ctx, rt, rg] { return run_read(ctx.session, *rt, *rg); }, {"text", "json"});

    auto wt = std::make_shared<TagSelect>();
    auto wg = std::make_shared<MemoryArea>();
    auto* write = tag_command(app, "write", "Write words to a tag's memory",
                              "  uhfctl --sim write user 0 1234ABCD\n"
                              "  uhfctl --sim write epc 2 E2003412AABBCCDD00000001 --epc E20034120123456789ABCDEF\n",
                              *wt);
    add_target(write, *wg, false, true);
    set_runner(write, ctx, [&ctx, wt, wg] { return run_write(ctx.session, *wt, *wg); });

    auto et = std::make_shared<TagSelect>();
    auto eg = std::make_shared<MemoryArea>();
    auto* erase =
        tag_command(app, "erase", "Erase (zero) words of a tag's memory", "  uhfctl --sim erase user 0 4\n", *et);
    add_target(erase, *eg, true, false);
    set_runner(erase, ctx, [&ctx, et, eg] { return run_erase(ctx.session, *et, *eg); });

    auto lt = std::make_shared<TagSelect>();
    auto largs = std::make_shared<std::vector<std::string>>();
    auto* lock = tag_command(app, "lock", "Lock or unlock memory areas of a tag",
                             "  uhfctl --sim lock user lock -p 12345678 --epc E2003412\n"
                             "  uhfctl --sim lock access permalock kill permalock -p 12345678\n",
                             *lt);
    std::vector<std::string> lock_words(std::begin(kLockAreas), std::end(kLockAreas));
    lock_words.insert(lock_words.end(), std::begin(kLockActions), std::end(kLockActions));
    offer(lock->add_option("changes", *largs,
                           "AREA ACTION pairs: areas kill, access, epc, tid, user; actions unlock, "
                           "lock, permalock, permaunlock")
              ->required(),
          lock_words);
    set_runner(lock, ctx, [&ctx, lt, largs] { return run_lock(ctx.session, *lt, *largs); });

    auto kt = std::make_shared<TagSelect>();
    auto* kill = tag_command(app, "kill", "Kill a tag for ever (its kill password as --password)",
                             "  uhfctl --sim kill --epc E2003412 -p 0BADCAFE\n", *kt);
    set_runner(kill, ctx, [&ctx, kt] { return run_kill(ctx.session, *kt); });

    auto pt = std::make_shared<TagSelect>();
    auto pa = std::make_shared<PermalockArgs>();
    auto* perma = tag_command(app, "permalock", "Permanently lock blocks of a bank, or read which are",
                              "  uhfctl --sim permalock 0 C000 -p 12345678     blocks 0 and 1 of USER\n"
                              "  uhfctl --sim permalock 0 --read 1 -p 12345678\n",
                              *pt);
    perma->add_option("block", pa->block_ptr, "First block, in units of 16 blocks")
        ->required()
        ->check(CLI::Range(0u, 65535u));
    perma->add_option("mask", pa->mask_text, "Blocks to lock: 16-bit words, most significant bit first");
    perma->add_option("--read", pa->read_range, "Read the lock bits of this many mask words instead")
        ->check(CLI::Range(1u, 255u));
    offer(perma->add_option("--bank", pa->bank, "Bank")->capture_default_str(), {std::begin(kBanks), std::end(kBanks)});
    set_runner(perma, ctx, [&ctx, pt, pa] { return run_permalock(ctx.session, *pt, *pa); });
}

}  // namespace uhfctl
