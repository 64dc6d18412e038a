// Test doubles for the library's allocation and thread-creation hooks, and a view of the
// process's threads.
#ifndef VANTOR_TESTS_ENTRY_TEST_HOOKS_H
#define VANTOR_TESTS_ENTRY_TEST_HOOKS_H

#include <pthread.h>
#include <stddef.h>
#include <sys/types.h>

#include <set>

namespace vtest {

// Installs counting hooks for as long as it lives. `fail_alloc` / `fail_create`: the 1-based
// number of the allocation or thread creation that fails (0: none). With `gated`, created
// threads wait at a gate before running their body until open_gate().
class hook_guard {
  public:
    explicit hook_guard(int fail_alloc = 0, int fail_create = 0, bool gated = false);
    ~hook_guard();
    hook_guard(const hook_guard&) = delete;
    hook_guard& operator=(const hook_guard&) = delete;

    int allocations() const;
    int frees() const;
    int creations() const;        // successful ones
    size_t size_of(int n) const;  // bytes of the n-th allocation (1-based)
    void open_gate();
};

// Ids of the process's threads, from /proc/self/task.
std::set<pid_t> thread_ids();
// Threads of the process that are not in `before`.
size_t threads_since(const std::set<pid_t>& before);
// Waits up to `ms` until at most `count` threads not in `before` remain; returns the last
// number seen. Counting new ids, not all threads, keeps emulator helper threads out of it.
size_t wait_threads_since(const std::set<pid_t>& before, size_t count, int ms);
// Niceness of one thread of this process, from /proc/self/task/<tid>/stat.
int thread_nice(pid_t tid);

}  // namespace vtest

#endif
