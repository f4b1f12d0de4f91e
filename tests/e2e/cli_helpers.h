// Running uhfctl (and uhfsim) as child processes for the end-to-end tests of
// the command-line tool.
#pragma once

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "transport/servers.h"

namespace clitest {

struct Result {
    int code = -1;  // exit code; -1 when killed by a signal
    std::string out, err;
};

// Environment changes for one child: "NAME=value" sets, "NAME" unsets.
using Env = std::vector<std::string>;

// argv and envp built before fork: the child only calls execve, as a
// child of a threaded process should.
class ExecArgs {
public:
    ExecArgs(const std::string& path, const std::vector<std::string>& args, const Env& env) : path_(path) {
        strings_.push_back(path);
        for (const auto& a : args) strings_.push_back(a);
        size_t nargs = strings_.size();
        for (char** e = environ; *e; e++) {
            std::string kv = *e, name = kv.substr(0, kv.find('='));
            bool changed = false;
            for (const auto& c : env) changed = changed || c.substr(0, c.find('=')) == name;
            if (!changed) strings_.push_back(kv);
        }
        for (const auto& c : env)
            if (c.find('=') != std::string::npos) strings_.push_back(c);
        for (size_t i = 0; i < strings_.size(); i++) {
            (i < nargs ? argv_ : envp_).push_back(strings_[i].data());
        }
        argv_.push_back(nullptr);
        envp_.push_back(nullptr);
    }
    [[noreturn]] void exec() {
        execve(path_.c_str(), argv_.data(), envp_.data());
        _exit(127);
    }

private:
    std::string path_;
    std::vector<std::string> strings_;
    std::vector<char*> argv_, envp_;
};

inline int exit_code(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

// Reads both pipes to their end. The kill deadline only guards the suite
// against a hung child; nothing asserts on time.
inline Result run_program(const std::string& path, const std::vector<std::string>& args, const Env& env = {},
                          int kill_after_s = 60) {
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return {};
    ExecArgs exec_args(path, args, env);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]), close(err[0]), close(out[1]), close(err[1]);
        exec_args.exec();
    }
    close(out[1]);
    close(err[1]);
    Result r;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kill_after_s);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open_fds = 2;
    while (open_fds > 0) {
        if (std::chrono::steady_clock::now() > deadline) kill(pid, SIGKILL);
        if (poll(fds, 2, 500) <= 0) continue;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            char buf[4096];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                (i == 0 ? r.out : r.err).append(buf, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                open_fds--;
            }
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    r.code = exit_code(status);
    return r;
}

inline Result uhfctl(const std::vector<std::string>& args, const Env& env = {"UHF_READER"}) {
    return run_program(UHFCTL_PATH, args, env);
}

// A child left running: its stdout is read line by line; killed with
// SIGTERM (then waited for) when the object goes.
class Background {
public:
    Background(const std::string& path, const std::vector<std::string>& args, const Env& env = {"UHF_READER"}) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) return;
        ExecArgs exec_args(path, args, env);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], 1);
            close(out[0]), close(out[1]);
            exec_args.exec();
        }
        close(out[1]);
        fd_ = out[0];
    }
    ~Background() {
        if (pid_ > 0 && !waited_) {
            kill(pid_, SIGTERM);
            wait();
        }
        if (fd_ >= 0) close(fd_);
    }
    // Next line of output (without the newline); false at the end or after
    // the guard time.
    bool line(std::string& out, int guard_s = 30) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(guard_s);
        while (true) {
            auto nl = buf_.find('\n');
            if (nl != std::string::npos) {
                out = buf_.substr(0, nl);
                buf_.erase(0, nl + 1);
                return true;
            }
            if (fd_ < 0 || std::chrono::steady_clock::now() > deadline) return false;
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 200) <= 0) continue;
            char b[4096];
            ssize_t n = read(fd_, b, sizeof b);
            if (n <= 0) {
                close(fd_);
                fd_ = -1;
                continue;
            }
            buf_.append(b, static_cast<size_t>(n));
        }
    }
    // Everything still to come, up to the end of output.
    std::string rest() {
        std::string all, l;
        while (line(l)) all += l + "\n";
        return all + buf_;
    }
    void signal(int sig) { kill(pid_, sig); }
    // The reading end goes away, as when `| head -1` has had its line.
    void close_output() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        waited_ = true;
        return exit_code(status);
    }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    bool waited_ = false;
    std::string buf_;
};

// uhfsim as a child on a free loopback port (or a pseudo-terminal), and the
// uhfctl option that names it.
class SimProcess {
public:
    explicit SimProcess(std::vector<std::string> args, const std::string& prefix = "tcp ") : proc_(UHFSIM_PATH, args) {
        std::string l;
        while (proc_.line(l))
            if (l.rfind(prefix, 0) == 0) {
                where_ = l.substr(prefix.size());
                break;
            }
    }
    const std::string& where() const { return where_; }

private:
    Background proc_;
    std::string where_;
};

// Each line as a JSON value; null entries for lines that do not parse.
struct JsonFree {
    void operator()(cJSON* j) const { cJSON_Delete(j); }
};
using Json = std::unique_ptr<cJSON, JsonFree>;

inline std::vector<Json> json_lines(const std::string& text) {
    std::vector<Json> out;
    std::istringstream in(text);
    std::string l;
    while (std::getline(in, l))
        if (!l.empty()) out.emplace_back(cJSON_Parse(l.c_str()));
    return out;
}

inline std::string str(const cJSON* obj, const char* key) {
    const cJSON* v = cJSON_GetObjectItemCaseSensitive(obj, key);
    return cJSON_IsString(v) ? v->valuestring : "";
}

inline double num(const cJSON* obj, const char* key, double absent = -99999) {
    const cJSON* v = cJSON_GetObjectItemCaseSensitive(obj, key);
    return cJSON_IsNumber(v) ? v->valuedouble : absent;
}

// A virtual reader on a pseudo-terminal, named to uhfctl as a serial port.
// Unlike a TCP connection, which gets a fresh reader each time, it keeps its
// state from one uhfctl run to the next, as a reader on a serial line does.
class PtyReaderTest : public ::testing::Test {
protected:
    void start(const uhfsim::SimOptions& o) {
        pty = std::make_unique<uhfsim::PtyServer>(o);
        ASSERT_TRUE(pty->start());
    }
    // The tag field from a JSON tag file's text.
    static uhfsim::TagField field(const char* json) {
        std::string err;
        auto f = uhfsim::TagField::from_json(json, &err);
        EXPECT_TRUE(f) << err;
        return f ? *f : uhfsim::TagField{};
    }
    Result ctl(std::vector<std::string> args) {
        args.insert(args.begin(), {"--serial", pty->slave_path()});
        return uhfctl(args);
    }
    std::unique_ptr<uhfsim::PtyServer> pty;
};

inline size_t count_lines(const std::string& text) {
    size_t n = 0;
    for (char c : text) n += c == '\n';
    return n;
}

}  // namespace clitest
