// Running uhfctl (and uhfsim) as child processes for the end-to-end tests of
// the command-line tool.
#pragma once

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
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

// Starts path with args under env(1), which applies the environment changes;
// `io` sets up the child's standard streams.
inline pid_t spawn(std::vector<std::string> argv, const std::string& path, const std::vector<std::string>& args,
                   const Env& env, posix_spawn_file_actions_t* io) {
    argv.push_back("/usr/bin/env");
    for (const auto& e : env) {
        if (e.find('=') == std::string::npos) argv.push_back("-u");
        argv.push_back(e);
    }
    argv.push_back(path);
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> ptrs;
    for (auto& a : argv) ptrs.push_back(a.data());
    ptrs.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, ptrs[0], io, nullptr, ptrs.data(), environ) != 0) return -1;
    return pid;
}

inline int wait_for(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// An unlinked file to catch a child's output; read back from its start.
inline int scratch() {
    char name[] = "/tmp/uhf-test-XXXXXX";
    int fd = mkostemp(name, O_CLOEXEC);
    unlink(name);
    return fd;
}
inline std::string slurp(int fd) {
    std::string s;
    char b[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = read(fd, b, sizeof b)) > 0;) s.append(b, static_cast<size_t>(n));
    close(fd);
    return s;
}

// Runs a program to its end. timeout(1) only guards the suite against a hung
// child; nothing asserts on time.
inline Result run_program(const std::string& path, const std::vector<std::string>& args, const Env& env = {}) {
    int out = scratch(), err = scratch();
    posix_spawn_file_actions_t io;
    posix_spawn_file_actions_init(&io);
    posix_spawn_file_actions_adddup2(&io, out, 1);
    posix_spawn_file_actions_adddup2(&io, err, 2);
    pid_t pid = spawn({"/usr/bin/timeout", "-s", "KILL", "60"}, path, args, env, &io);
    posix_spawn_file_actions_destroy(&io);
    Result r;
    if (pid > 0) r.code = wait_for(pid);
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

inline Result uhfctl(const std::vector<std::string>& args, const Env& env = {"UHF_READER"}) {
    return run_program(UHFCTL_PATH, args, env);
}

// A child left running, its stdout read line by line; killed with SIGTERM
// (then waited for) when the object goes.
class Background {
public:
    Background(const std::string& path, const std::vector<std::string>& args, const Env& env = {"UHF_READER"}) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t io;
        posix_spawn_file_actions_init(&io);
        posix_spawn_file_actions_adddup2(&io, out[1], 1);
        pid_ = spawn({}, path, args, env, &io);
        posix_spawn_file_actions_destroy(&io);
        close(out[1]);
        out_ = fdopen(out[0], "r");
    }
    ~Background() {
        if (pid_ > 0 && !waited_) {
            kill(pid_, SIGTERM);
            wait();
        }
        close_output();
    }
    // The next line of output, without its newline; false at the end.
    bool line(std::string& l) {
        char* p = nullptr;
        size_t cap = 0;
        ssize_t n = out_ ? getline(&p, &cap, out_) : -1;
        if (n > 0) l.assign(p, static_cast<size_t>(p[n - 1] == '\n' ? n - 1 : n));
        free(p);
        return n > 0;
    }
    std::string rest() {
        std::string all, l;
        while (line(l)) all += l + "\n";
        return all;
    }
    void signal(int sig) { kill(pid_, sig); }
    // The reading end goes away, as when `| head -1` has had its line.
    void close_output() {
        if (out_) fclose(out_);
        out_ = nullptr;
    }
    int wait() {
        waited_ = true;
        return wait_for(pid_);
    }

private:
    pid_t pid_ = -1;
    FILE* out_ = nullptr;
    bool waited_ = false;
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

}  // namespace clitest
