// `uhfctl upgrade FILE`: boot loader, blocks with a progress bar, and a
// final word based on the version the reader reports afterwards.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

#include "UHF.h"
#include "commands.h"
#include "format.h"

namespace uhfctl {

namespace {

using Clock = std::chrono::steady_clock;

struct UpgradeOptions {
    std::string file;
    unsigned target = 0;  // boot target flag of UHFJump2Boot
    unsigned block = 64;
    unsigned settle_ms = 300;
};

std::string software_version() {
    uint8_t b[16] = {};
    if (UHFGetSoftwareVersion(b) != 0 || b[0] < 1 || b[0] > 15) return "";
    return std::string(reinterpret_cast<const char*>(b + 1), b[0] - 1u);
}

class Progress {
public:
    Progress(size_t blocks, size_t bytes) : blocks_(blocks), bytes_(bytes), tty_(isatty(STDERR_FILENO) == 1) {}

    void update(size_t blocks_done, size_t bytes_done) {
        double secs = std::chrono::duration<double>(Clock::now() - start_).count();
        double rate = secs > 0 ? static_cast<double>(bytes_done) / secs : 0;
        double eta = rate > 0 ? static_cast<double>(bytes_ - bytes_done) / rate : 0;
        int pct = static_cast<int>(bytes_ ? bytes_done * 100 / bytes_ : 100);
        if (!tty_) {
            // Logs get a line per quarter rather than a redrawn bar.
            if (pct / 25 == last_quarter_ && blocks_done != blocks_) return;
            last_quarter_ = pct / 25;
        }
        char bar[31];
        int filled = pct * 30 / 100;
        for (int i = 0; i < 30; i++) bar[i] = i < filled ? '#' : '.';
        bar[30] = '\0';
        std::fprintf(stderr, "%s[%s] %3d%%  %zu/%zu blocks  %zu/%zu B  %.1f kB/s  ETA %s%s", tty_ ? "\r" : "", bar, pct,
                     blocks_done, blocks_, bytes_done, bytes_, rate / 1000, clock_text(eta).c_str(), tty_ ? "" : "\n");
        if (tty_ && blocks_done == blocks_) std::fprintf(stderr, "\n");
        std::fflush(stderr);
    }

private:
    size_t blocks_, bytes_;
    bool tty_;
    int last_quarter_ = -1;
    Clock::time_point start_ = Clock::now();
};

void pause_ms(unsigned ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

int upgrade_one(const Reader& r, const UpgradeOptions& o, const std::vector<uint8_t>& image) {
    const std::string before = software_version();
    print("%s: firmware %s, sending %s (%zu bytes)\n", r.label.c_str(), before.empty() ? "unknown" : before.c_str(),
          o.file.c_str(), image.size());
    std::fflush(out());
    // A reader that refused the previous image reports it by refusing the
    // next boot request once.
    if (UHFJump2Boot(static_cast<unsigned char>(o.target)) != 0 &&
        UHFJump2Boot(static_cast<unsigned char>(o.target)) != 0)
        return reader_failed(r, "upgrade: entering the boot loader");
    pause_ms(o.settle_ms);
    if (UHFStartUpd() != 0) return reader_failed(r, "upgrade: starting the update");

    const size_t blocks = (image.size() + o.block - 1) / o.block;
    Progress progress(blocks, image.size());
    progress.update(0, 0);
    for (size_t i = 0; i < blocks; i++) {
        if (stop_requested())
            return fail(kReaderFailed, "upgrade interrupted after " + std::to_string(i) + " of " +
                                           std::to_string(blocks) + " blocks: " + r.label +
                                           " stays in its boot loader; run the upgrade again");
        size_t off = i * o.block, n = std::min<size_t>(o.block, image.size() - off);
        int rc;
        if (o.block == 64) {
            uint8_t b[64];
            std::fill(std::begin(b), std::end(b), 0xFF);  // the last block padded as erased flash
            std::copy_n(image.begin() + static_cast<long>(off), n, b);
            rc = UHFUpdating(b);
        } else {
            rc = UHF_Upgrade(image.data() + off, static_cast<unsigned short>(n));
        }
        if (rc != 0) {
            std::fprintf(stderr, "\n");
            return reader_failed(r, "upgrade: block " + std::to_string(i + 1) + " of " + std::to_string(blocks));
        }
        progress.update(i + 1, off + n);
    }
    if (UHFStopUpdate() != 0) return reader_failed(r, "upgrade: ending the transfer");

    // The reader checks the image and restarts; give it a few tries to come back.
    std::string after;
    for (int i = 0; i < 3 && after.empty(); i++) {
        pause_ms(o.settle_ms);
        after = software_version();
    }
    if (after.empty()) return fail(kReaderFailed, "upgrade: " + r.label + " did not answer after the transfer");
    if (!before.empty() && after == before)
        return fail(kReaderFailed, "upgrade: " + r.label + " refused the image: it still runs " + before +
                                       " (an image of the same version looks the same)");
    print("%s: upgrade done, firmware %s -> %s\n", r.label.c_str(), before.empty() ? "?" : before.c_str(),
          after.c_str());
    return static_cast<int>(kOk);
}

}  // namespace

void add_upgrade_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("upgrade", "Upgrade the reader's firmware from an image file");
    cmd->footer(
        "Enters the boot loader, sends the image in blocks (each acknowledged), ends the transfer, then\n"
        "asks the reader for its firmware version: a changed version means the reader took the image.\n"
        "Ctrl-C stops between blocks and leaves the reader in its boot loader.\n\n"
        "Examples:\n  uhfctl --serial /dev/ttyUSB0 upgrade firmware.bin\n"
        "  uhfctl --tcp 192.168.1.50 upgrade firmware.bin --block 1024");
    auto o = std::make_shared<UpgradeOptions>();
    cmd->add_option("file", o->file, "Firmware image")->required()->check(CLI::ExistingFile);
    cmd->add_option("--boot-target", o->target, "Boot target 0..3 (sent as EE, CC, BB, AA)")
        ->check(CLI::Range(0u, 3u))
        ->capture_default_str();
    cmd->add_option("--block", o->block, "Bytes per block (64 uses the fixed-size block command)")
        ->check(CLI::Range(1u, 2040u))
        ->capture_default_str();
    cmd->add_option("--settle-ms", o->settle_ms, "Pause after entering the boot loader and after the transfer")
        ->check(CLI::Range(0u, 10000u))
        ->capture_default_str();
    set_runner(cmd, ctx, [&ctx, o] {
        std::ifstream in(o->file, std::ios::binary);
        std::vector<uint8_t> image((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in.good() && !in.eof()) return fail(kUsage, "cannot read " + o->file);
        if (image.empty()) return fail(kUsage, o->file + " is empty");
        return ctx.session.each([&](const Reader& r) { return upgrade_one(r, *o, image); });
    });
}

}  // namespace uhfctl
