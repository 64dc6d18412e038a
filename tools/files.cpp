#include "files.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
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

// `path` with every symbolic link in its last component followed, so that the file it points to
// is the one replaced. A link to a name that does not exist yet gives that name.
std::string resolve_links(const std::string& path) {
    std::string p = path;
    for (int depth = 0; depth < 40; ++depth) {
        struct stat st;
        if (lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            return p;
        char target[PATH_MAX];
        const ssize_t n = readlink(p.c_str(), target, sizeof target - 1);
        if (n < 0)
            fail("cannot write " + path + ": " + strerror(errno));
        target[n] = '\0';
        p = target[0] == '/' ? std::string(target) : dir_of(p) + "/" + target;
    }
    fail("cannot write " + path + ": too many levels of symbolic links");
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

int named_descriptor(const std::string& path) {
    if (path == "-" || path == "/dev/stdout")
        return STDOUT_FILENO;
    if (path == "/dev/stderr")
        return STDERR_FILENO;
    for (const char* prefix : {"/dev/fd/", "/proc/self/fd/"}) {
        const size_t n = strlen(prefix);
        if (path.compare(0, n, prefix) != 0 || path.size() == n || path.size() > n + 6 ||
            path.find_first_not_of("0123456789", n) != std::string::npos)
            continue;
        return atoi(path.c_str() + n);
    }
    return -1;
}

bool is_stream_output(const std::string& path) {
    struct stat st;
    return named_descriptor(path) >= 0 ||
           (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode));
}

output_file::output_file(const std::string& path) {
    name = is_stdio(path) ? "standard output" : path;
    const int named = named_descriptor(path);
    if (named >= 0) {
        // Written through the descriptor the process was given: reopening the name would
        // start a file that standard output was appending to over again.
        if (fcntl(named, F_GETFL) < 0)
            fail("cannot write " + name + ": " + strerror(errno));
        fd_ = named;
        own_fd_ = false;
        return;
    }
    target_ = resolve_links(path);
    struct stat st;
    const bool exists = stat(target_.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode))
        fail("cannot write " + path + ": it is a directory");
    if (exists && !S_ISREG(st.st_mode)) {
        // A device, FIFO or socket is written as it is: a file renamed over it would destroy
        // it, and a FIFO's reader waits for the data (opening blocks until it is there).
        fd_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd_ < 0)
            fail("cannot write " + path + ": " + strerror(errno));
        return;
    }
    std::string templ = dir_of(target_) + "/." + base_of(target_) + ".XXXXXX";
    fd_ = mkostemp(&templ[0], O_CLOEXEC);
    if (fd_ < 0)
        fail("cannot write " + path + ": " + strerror(errno));
    temp_ = templ;
    add_pending(temp_);
    // mkostemp creates the file private to its owner; give it the mode of the file it replaces,
    // or the one a plain create would have.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_, exists ? st.st_mode & 07777 : 0666 & ~mask);
}

output_file::~output_file() {
    if (committed_)
        return;
    if (fd_ >= 0 && own_fd_)
        close(fd_);
    if (!temp_.empty()) {
        unlink(temp_.c_str());
        remove_pending(temp_);
    }
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
    if (own_fd_) {
        const int fd = fd_;
        fd_ = -1;
        if (close(fd) != 0)
            fail("cannot write " + name + ": " + strerror(errno));
    }
    if (!temp_.empty()) {
        if (rename(temp_.c_str(), target_.c_str()) != 0)
            fail("cannot write " + name + ": " + strerror(errno));
        remove_pending(temp_);
    }
    committed_ = true;
}

void make_dirs(const std::string& dir) {
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        partial = dir.substr(0, pos);
        if (partial.empty())
            continue;
        if (mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST)
            fail("cannot create " + partial + ": " + strerror(errno));
    }
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        fail("cannot write to " + dir + ": not a directory");
}

std::string stem_of(const std::string& path) {
    const std::string base = base_of(path);
    const size_t dot = base.rfind('.');
    return dot == std::string::npos || dot == 0 ? base : base.substr(0, dot);
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
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
