#include "test_hooks.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/hooks.h"

namespace vtest {

namespace {

struct state {
    std::mutex m;
    std::condition_variable gate_cv;
    bool gated = false;
    bool gate_open = false;
    int fail_alloc = 0;
    int fail_create = 0;
    int allocs = 0;  // attempts
    int frees = 0;
    int create_attempts = 0;
    int creations = 0;
    std::vector<size_t> sizes;
};

state& st() {
    static state s;
    return s;
}

void* counting_alloc(size_t size) {
    state& s = st();
    {
        std::lock_guard<std::mutex> g(s.m);
        s.allocs += 1;
        s.sizes.push_back(size);
        if (s.allocs == s.fail_alloc)
            return nullptr;
    }
    return malloc(size);
}

void counting_free(void* p) {
    {
        std::lock_guard<std::mutex> g(st().m);
        st().frees += 1;
    }
    free(p);
}

struct gated_start {
    void* (*body)(void*);
    void* arg;
};

void* gated_trampoline(void* p) {
    const gated_start start = *static_cast<gated_start*>(p);
    delete static_cast<gated_start*>(p);
    {
        std::unique_lock<std::mutex> g(st().m);
        st().gate_cv.wait(g, [] { return st().gate_open; });
    }
    return start.body(start.arg);
}

int counting_create(pthread_t* tid, const pthread_attr_t* attr, void* (*body)(void*), void* arg) {
    state& s = st();
    bool gated;
    {
        std::lock_guard<std::mutex> g(s.m);
        s.create_attempts += 1;
        if (s.create_attempts == s.fail_create)
            return EAGAIN;
        gated = s.gated;
    }
    int ret;
    if (gated) {
        gated_start* start = new gated_start{body, arg};
        ret = pthread_create(tid, attr, gated_trampoline, start);
        if (ret != 0)
            delete start;
    } else {
        ret = pthread_create(tid, attr, body, arg);
    }
    if (ret == 0) {
        std::lock_guard<std::mutex> g(s.m);
        s.creations += 1;
    }
    return ret;
}

}  // namespace

hook_guard::hook_guard(int fail_alloc, int fail_create, bool gated) {
    state& s = st();
    {
        std::lock_guard<std::mutex> g(s.m);
        s.fail_alloc = fail_alloc;
        s.fail_create = fail_create;
        s.gated = gated;
        s.gate_open = !gated;
        s.allocs = s.frees = s.create_attempts = s.creations = 0;
        s.sizes.clear();
    }
    vtr_alloc_hook = counting_alloc;
    vtr_free_hook = counting_free;
    vtr_thread_create_hook = counting_create;
}

hook_guard::~hook_guard() {
    open_gate();
    vtr_thread_create_hook = pthread_create;
    // Workers may still free a handle after the test: the counting free stays harmless.
    vtr_alloc_hook = malloc;
}

int hook_guard::allocations() const {
    std::lock_guard<std::mutex> g(st().m);
    return st().allocs;
}
int hook_guard::frees() const {
    std::lock_guard<std::mutex> g(st().m);
    return st().frees;
}
int hook_guard::creations() const {
    std::lock_guard<std::mutex> g(st().m);
    return st().creations;
}
size_t hook_guard::size_of(int n) const {
    std::lock_guard<std::mutex> g(st().m);
    return st().sizes.at(n - 1);
}
void hook_guard::open_gate() {
    {
        std::lock_guard<std::mutex> g(st().m);
        st().gate_open = true;
    }
    st().gate_cv.notify_all();
}

std::set<pid_t> thread_ids() {
    std::set<pid_t> ids;
    DIR* d = opendir("/proc/self/task");
    if (d == nullptr)
        return ids;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] != '.')
            ids.insert(static_cast<pid_t>(atoi(e->d_name)));
    }
    closedir(d);
    return ids;
}

size_t threads_since(const std::set<pid_t>& before) {
    size_t n = 0;
    for (pid_t tid : thread_ids())
        n += before.count(tid) == 0;
    return n;
}

size_t wait_threads_since(const std::set<pid_t>& before, size_t count, int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    size_t n = threads_since(before);
    while (n > count && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        n = threads_since(before);
    }
    return n;
}

int thread_nice(pid_t tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    FILE* f = fopen(path.c_str(), "r");
    if (f == nullptr)
        return 1000;
    char buf[1024] = {};
    const size_t n = fread(buf, 1, sizeof buf - 1, f);
    fclose(f);
    buf[n] = '\0';
    // Fields after the command name in parentheses; nice is field 19.
    const char* p = strrchr(buf, ')');
    if (p == nullptr)
        return 1000;
    int field = 3;
    const char* tok = p + 2;
    while (field < 19) {
        tok = strchr(tok, ' ');
        if (tok == nullptr)
            return 1000;
        ++tok;
        ++field;
    }
    return atoi(tok);
}

}  // namespace vtest
