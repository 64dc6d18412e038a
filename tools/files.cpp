#include "files.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"

namespace vtool {

namespace {

// Temporary names still to be removed if a signal ends the process. Fixed storage, because the
// handler may only use async-signal-safe calls.
constexpr int max_pending = 8;
char pending[max_pending][PATH_MAX];
volatile sig_atomic_t pending_used[max_pending];

void add_pending(const std::string& path) {
    for (int i = 0; i < max_pending; ++i) {
        if (!pending_used[i] && path.size() < PATH_MAX) {
            memcpy(pending[i], path.c_str(), path.size() + 1);
            pending_used[i] = 1;
            return;
        }
    }
}

void remove_pending(const std::string& path) {
    for (int i = 0; i < max_pending; ++i)
        if (pending_used[i] && path == pending[i])
            pending_used[i] = 0;
}

void on_signal(int sig) {
    for (int i = 0; i < max_pending; ++i)
        if (pending_used[i])
            unlink(pending[i]);
    signal(sig, SIG_DFL);
    raise(sig);
}

std::string dir_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string base_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

input_file::input_file(const std::string& path) {
    if (is_stdio(path)) {
        name = "standard input";
        fd = STDIN_FILENO;
    } else {
        name = path;
        fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            fail("cannot read " + path + ": " + strerror(errno));
    }
    struct stat st;
    if (fstat(fd, &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            close(fd);
            fd = -1;
            fail("cannot read " + path + ": it is a directory");
        }
        regular = S_ISREG(st.st_mode);
        size = regular ? static_cast<uint64_t>(st.st_size) : 0;
    }
}

input_file::~input_file() {
    if (fd > STDERR_FILENO)
        close(fd);
}

size_t input_file::read(uint8_t* dst, size_t n) {
    size_t got = 0;
    while (got < n && peek_pos_ < peeked_.size()) {
        dst[got++] = peeked_[peek_pos_++];
    }
    while (got < n) {
        const ssize_t r = ::read(fd, dst + got, n - got);
        if (r == 0)
            break;
        if (r < 0) {
            if (errno == EINTR)
                continue;
            fail("cannot read " + name + ": " + strerror(errno));
        }
        got += static_cast<size_t>(r);
    }
    return got;
}

const std::vector<uint8_t>& input_file::peek(size_t n) {
    if (peeked_.size() - peek_pos_ < n) {
        std::vector<uint8_t> more(n - (peeked_.size() - peek_pos_));
        size_t got = 0;
        while (got < more.size()) {
            const ssize_t r = ::read(fd, more.data() + got, more.size() - got);
            if (r == 0)
                break;
            if (r < 0) {
                if (errno == EINTR)
                    continue;
                fail("cannot read " + name + ": " + strerror(errno));
            }
            got += static_cast<size_t>(r);
        }
        peeked_.erase(peeked_.begin(), peeked_.begin() + static_cast<ptrdiff_t>(peek_pos_));
        peek_pos_ = 0;
        peeked_.insert(peeked_.end(), more.begin(), more.begin() + static_cast<ptrdiff_t>(got));
    }
    return peeked_;
}

std::vector<uint8_t> input_file::read_all() {
    std::vector<uint8_t> out;
    if (regular)
        out.reserve(size);
    uint8_t chunk[1 << 16];
    for (;;) {
        const size_t n = read(chunk, sizeof chunk);
        out.insert(out.end(), chunk, chunk + n);
        if (n < sizeof chunk)
            break;
    }
    return out;
}

output_file::output_file(const std::string& path) {
    if (is_stdio(path)) {
        name = "standard output";
        fd_ = STDOUT_FILENO;
        to_stdout_ = true;
        return;
    }
    name = path;
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        fail("cannot write " + path + ": it is a directory");
    std::string templ = dir_of(path) + "/." + base_of(path) + ".XXXXXX";
    fd_ = mkostemp(&templ[0], O_CLOEXEC);
    if (fd_ < 0)
        fail("cannot write " + path + ": " + strerror(errno));
    temp_ = templ;
    add_pending(temp_);
    // mkostemp creates the file private to its owner; give it the permissions a plain create
    // would have.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_, 0666 & ~mask);
}

output_file::~output_file() {
    if (to_stdout_ || committed_)
        return;
    if (fd_ >= 0)
        close(fd_);
    unlink(temp_.c_str());
    remove_pending(temp_);
}

void output_file::write(const uint8_t* data, size_t n) {
    size_t done = 0;
    while (done < n) {
        const ssize_t r = ::write(fd_, data + done, n - done);
        if (r < 0) {
            if (errno == EINTR)
                continue;
            fail("cannot write " + name + ": " + strerror(errno));
        }
        done += static_cast<size_t>(r);
    }
}

void output_file::commit() {
    if (to_stdout_) {
        committed_ = true;
        return;
    }
    if (close(fd_) != 0) {
        fd_ = -1;
        fail("cannot write " + name + ": " + strerror(errno));
    }
    fd_ = -1;
    if (rename(temp_.c_str(), name.c_str()) != 0)
        fail("cannot write " + name + ": " + strerror(errno));
    remove_pending(temp_);
    committed_ = true;
}

void write_whole_file(const std::string& path, const std::vector<uint8_t>& bytes) {
    output_file out(path);
    out.write(bytes.data(), bytes.size());
    out.commit();
}

void install_signal_cleanup() {
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

}  // namespace vtool
