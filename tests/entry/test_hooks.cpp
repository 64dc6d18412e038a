#include "test_hooks.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>

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
    bool gate_open = true;
    int fail_alloc = 0, fail_create = 0;
    int allocs = 0, frees = 0, create_attempts = 0, creations = 0;  // allocs: attempts
    std::vector<size_t> sizes;
} st;

void* counting_alloc(size_t size) {
    {
        std::lock_guard<std::mutex> g(st.m);
        st.sizes.push_back(size);
        if (++st.allocs == st.fail_alloc)
            return nullptr;
    }
    return malloc(size);
}

void counting_free(void* p) {
    {
        std::lock_guard<std::mutex> g(st.m);
        st.frees += 1;
    }
    free(p);
}

struct gated_start {
    void* (*body)(void*);
    void* arg;
};

// Waits at the gate, then runs the worker's body.
void* gated_trampoline(void* p) {
    const gated_start start = *static_cast<gated_start*>(p);
    delete static_cast<gated_start*>(p);
    {
        std::unique_lock<std::mutex> g(st.m);
        st.gate_cv.wait(g, [] { return st.gate_open; });
    }
    return start.body(start.arg);
}

int counting_create(pthread_t* tid, const pthread_attr_t* attr, void* (*body)(void*), void* arg) {
    {
        std::lock_guard<std::mutex> g(st.m);
        if (++st.create_attempts == st.fail_create)
            return EAGAIN;
    }
    gated_start* start = new gated_start{body, arg};
    const int ret = pthread_create(tid, attr, gated_trampoline, start);
    std::lock_guard<std::mutex> g(st.m);
    st.creations += ret == 0;
    if (ret != 0)
        delete start;
    return ret;
}

int read_locked(const int& field) {
    std::lock_guard<std::mutex> g(st.m);
    return field;
}

}  // namespace

hook_guard::hook_guard(int fail_alloc, int fail_create, bool gated) {
    {
        std::lock_guard<std::mutex> g(st.m);
        st.fail_alloc = fail_alloc;
        st.fail_create = fail_create;
        st.gate_open = !gated;
        st.allocs = st.frees = st.create_attempts = st.creations = 0;
        st.sizes.clear();
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
    return read_locked(st.allocs);
}
int hook_guard::frees() const {
    return read_locked(st.frees);
}
int hook_guard::creations() const {
    return read_locked(st.creations);
}
size_t hook_guard::size_of(int n) const {
    std::lock_guard<std::mutex> g(st.m);
    return st.sizes.at(n - 1);
}
void hook_guard::open_gate() {
    {
        std::lock_guard<std::mutex> g(st.m);
        st.gate_open = true;
    }
    st.gate_cv.notify_all();
}

std::set<pid_t> thread_ids() {
    std::set<pid_t> ids;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.')
                ids.insert(static_cast<pid_t>(atoi(e->d_name)));
        closedir(d);
    }
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
    FILE* f = fopen(("/proc/self/task/" + std::to_string(tid) + "/stat").c_str(), "r");
    int nice = 1000;
    // Nice is field 19; the command name (field 2) is in parentheses and may hold spaces.
    if (f != nullptr && fscanf(f,
                               "%*d (%*[^)]) %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u "
                               "%*d %*d %*d %d",
                               &nice) != 1)
        nice = 1000;
    if (f != nullptr)
        fclose(f);
    return nice;
}

}  // namespace vtest
